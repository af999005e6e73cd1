#include "mailtree/email/Email2.h"

#include <string>

#include "mailtree/email/addresses/unused.h"
#include "mailtree/email/internal.h"
#include "mailtree/mime/coding/EncodedWord.h"
#include "mailtree/mime/coding/HeaderText.h"

namespace mailtree {
namespace {

void removeLineBreaks(StringBuffer& text) {
  text.removeCharOccurances('\r');
  text.removeCharOccurances('\n');
}

/// Renders an address as the final value of a header field of this email.
StringBuffer asHeaderValue(Email2& email, const _svEmailAddress& address, LogBase& log) {
  const int codePage = email.emailCodePage();
  StringBuffer value;
  address.emitSelfAsMimeField(codePage, true, /*forHeader=*/true,
                              email.qbChooseForEmailAddrEncoding(codePage), value, log);
  return value;
}

void replaceFinished(Email2& email, const char* field, const StringBuffer& value, LogBase& log) {
  email.m_header.replaceMimeFieldUtf8_a(field, value.getString(), /*asGiven=*/true, /*ordinary=*/true, log);
}

/// The display name of a From value that could not be parsed: the text before the first "<",
/// without its quotes.
StringBuffer nameFromFieldText(const StringBuffer& from) {
  StringBuffer name = copyOf(from);
  name.chopAtFirstChar('<');
  name.trim2();
  name.replaceFirstOccurance("\"", "");
  name.replaceLastOccurance("\"", "");
  return name;
}

/// The undecoded value of a field, because an encoded word must not forge an address.
StringBuffer undecodedValue(const Email2& email, std::string_view field) {
  StringBuffer value;
  neverThrow(false, [&] {
    std::string scratch;
    return value.setString(email.m_header.unfoldedValue(email.m_header.findField(field), scratch));
  });
  return value;
}

/// Reads the sender from the From field again.
void reloadSender(Email2& email, LogBase& log) {
  email.m_fromAddr.loadSingleEmailAddr(undecodedValue(email, "from").getString(), /*relaxed=*/false, log);
}

enum class Candidate { field, sender, reloadedSender };

/// A source of the envelope sender.
struct ReversePathSource {
  const char* tag;
  Candidate candidate;
  const char* field = nullptr;
};

/// In order of preference; the first candidate that is not empty wins.
constexpr ReversePathSource kReversePathSources[] = {
    {"fromSvxBounceAddr", Candidate::field, "SVX-Bounce-Address"},
    {"fromReturnPath", Candidate::field, "return-path"},
    {"fromAddr822", Candidate::sender},
    {"fromMimeHeader", Candidate::reloadedSender},
    {"fromReplyTo", Candidate::field, "reply-to"},  // Deliberate: the whole value, with display name.
};

/// Replaces `out` with the value of the source.
void fetchCandidate(Email2& email, const ReversePathSource& source, StringBuffer& out, LogBase& log) {
  if (source.candidate == Candidate::field) {
    out.setString(undecodedValue(email, source.field));
    return;
  }
  if (source.candidate == Candidate::reloadedSender) reloadSender(email, log);
  out.setString(email.m_fromAddr.m_address.getUtf8Sb());
}

}  // namespace

bool Email2::qbChooseForEmailAddrEncoding(int codePage) {
  return isLive() && preferredWordEncoding(codePage) == WordEncoding::q;
}

// Sender

void Email2::updateFromInHeader(LogBase& log) {
  if (!isLive()) return;
  const StringBuffer value = asHeaderValue(*this, m_fromAddr, log);
  replaceFinished(*this, "From", value, log);
  const bool isTooLong = value.isEmpty() && !m_fromAddr.m_address.isEmpty();  // for any header line
  // Bounces keep going to the first sender, which the caller may have chosen on purpose.
  if (!isTooLong && !m_header.hasField("SVX-Bounce-Address", log))
    m_header.addMimeField("SVX-Bounce-Address", m_fromAddr.m_address.getUtf8(), /*asGiven=*/false, log);
}

void Email2::setFromFullUtf8(const char* text, LogBase& log) {
  if (!isLive() || !text) return;
  reportUnused(text, UsedAddresses::first, log);
  if (m_fromAddr.loadSingleEmailAddr(text, /*relaxed=*/false, log)) updateFromInHeader(log);
}

void Email2::setFromName(const char* name, LogBase& log) {
  if (!isLive()) return;
  StringBuffer given = copyOf(name);
  m_fromAddr.m_name.clear();
  // Deliberate: the field keeps the old name until it is rewritten.
  if (given.isEmpty()) return;
  removeLineBreaks(given);
  m_fromAddr.m_name.setFromSbUtf8(given);
  updateFromInHeader(log);
}

void Email2::setFromAddr(const char* address, LogBase& log) {
  if (!isLive()) return;
  if (!contains(viewOf(address), "@")) return reportUnused(viewOf(address), UsedAddresses::first, log);
  m_fromAddr.m_address.setFromUtf8(address);
  updateFromInHeader(log);
}

void Email2::getFromFullUtf8(StringBuffer& out, LogBase& log) {
  if (!isLive()) return;
  StringBuffer sender;
  if (!m_fromAddr.m_address.isEmpty()) {
    const int codePage = emailCodePage();
    m_fromAddr.emitSelfAsMimeField(codePage, true, /*forHeader=*/false,
                                   qbChooseForEmailAddrEncoding(codePage), sender, log);
  }
  if (sender.isEmpty()) m_header.getMimeFieldUtf8("From", sender, log);
  removeLineBreaks(sender);
  out.append(sender);
}

void Email2::getFromNameUtf8(StringBuffer& out, LogBase& log) {
  if (!isLive()) return;
  if (m_fromAddr.m_name.isEmpty() && m_fromAddr.m_address.isEmpty()) {
    StringBuffer from;
    m_header.getMimeFieldUtf8("From", from, log);
    if (!from.isEmpty()) m_fromAddr.m_name.setFromSbUtf8(nameFromFieldText(from));
  }
  out.append(m_fromAddr.m_name.getUtf8Sb());
}

void Email2::getFromAddrUtf8(StringBuffer& out) {
  if (!isLive()) return;
  StringBuffer address = copyOf(m_fromAddr.m_address.getUtf8Sb());
  removeLineBreaks(address);
  out.append(address);
}

void Email2::getSmtpReversePathUtf8(StringBuffer& out, LogBase& log) {
  if (!isLive()) return;
  LogContextExitor context(log, "getSmtpReversePath", log.m_verboseLogging);
  for (const ReversePathSource& source : kReversePathSources) {
    fetchCandidate(*this, source, out, log);
    eraseBreaks(out.text());
    out.removeCharOccurances('<');
    out.removeCharOccurances('>');
    out.trim2();
    if (out.isEmpty()) continue;
    if (log.m_verboseLogging) log.LogDataSb(source.tag, out);
    return;
  }
  out.clear();
  if (log.m_verboseLogging) log.LogDataSb("fromNothing", out);
}

// Reply-To

void Email2::setReplyToUtf8(const char* text, LogBase& log) {
  if (!isLive()) return;
  reportUnused(viewOf(text), UsedAddresses::first, log);
  _svEmailAddress address;
  if (trim(viewOf(text)).empty() || !address.loadSingleEmailAddr(text, /*relaxed=*/false, log)) {
    m_header.removeMimeField("Reply-To", /*all=*/true);
    return;
  }
  replaceFinished(*this, "Reply-To", asHeaderValue(*this, address, log), log);
}

}  // namespace mailtree
