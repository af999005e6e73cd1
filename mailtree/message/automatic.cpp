// message/automatic.cpp - which messages no program may answer (RFC 3834, 2). Two programs that answer each
// other never stop, and nobody reads an answer to a list or a bounce.
#include <algorithm>
#include <string>

#include "mailtree/message/internal.h"
#include "mailtree/mime/ReportFields.h"

namespace mailtree {
namespace {

/// Fields that only mailing lists and programs write.
constexpr std::string_view kAutomaticFields[] = {
    "List-ID",      "List-Post",   "List-Unsubscribe", "List-Help",     "List-Owner",
    "List-Archive", "Feedback-ID", "X-Autoreply",      "X-Autorespond", "X-Auto-Response-Suppress"};
/// Values of Precedence, which was never standardized but is older than everything else here.
constexpr std::string_view kMassPrecedences[] = {"bulk", "list", "junk"};
/// Local parts of senders that nobody reads, as a whole or at the beginning or end.
constexpr std::string_view kProgramNames[] = {"mailer-daemon", "postmaster", "listserv",   "majordomo",
                                              "noreply",       "no-reply",   "donotreply", "do-not-reply"};
constexpr std::string_view kProgramPrefixes[] = {"owner-", "bounce-", "bounces-", "noreply-", "no-reply-"};
constexpr std::string_view kProgramSuffixes[] = {"-request", "-owner", "-bounces", "-noreply", "-no-reply"};

bool isProgram(std::string_view address) {
  const std::string local = lowerCase(address.substr(0, address.rfind('@')));
  const auto isLocal = [&local](std::string_view name) { return local == name; };
  const auto isPrefix = [&local](std::string_view prefix) { return local.starts_with(prefix); };
  const auto isSuffix = [&local](std::string_view suffix) { return local.ends_with(suffix); };
  return std::ranges::any_of(kProgramNames, isLocal) || std::ranges::any_of(kProgramPrefixes, isPrefix) ||
         std::ranges::any_of(kProgramSuffixes, isSuffix);
}

/// The first word of a field; its parameters do not matter.
std::string_view keywordIn(std::string_view value) {
  return trim(value.substr(0, value.find_first_of(";(")));
}

}  // namespace

bool isAutomatedReply(const MimeHeader& header) {
  return equalsNoCase(keywordIn(header.decodedValue(header.findField("Auto-Submitted"))), "auto-replied");
}

bool Message::isAutomatic() const {
  const auto valueOf = [this](std::string_view name) { return header(name).value_or(std::string()); };
  const std::string submitted = valueOf("Auto-Submitted"), precedence = valueOf("Precedence");
  if (!trim(submitted).empty() && !equalsNoCase(keywordIn(submitted), "no")) return true;
  const auto isPrecedence = [&](std::string_view name) { return equalsNoCase(keywordIn(precedence), name); };
  if (std::ranges::any_of(kMassPrecedences, isPrecedence)) return true;
  const auto isPresent = [this](std::string_view name) { return header(name).has_value(); };
  if (std::ranges::any_of(kAutomaticFields, isPresent)) return true;
  const std::optional<std::string> returnPath = header("Return-Path");
  if (returnPath && trim(*returnPath) == "<>") return true;
  if (equalsNoCase(root().type(), "multipart/report") || reportKindOf(root().type())) return true;
  return isProgram(from().address) || isProgram(sender().address);
}

}  // namespace mailtree
