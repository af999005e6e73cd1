#include "cli/secure/sending.h"

#include <algorithm>
#include <ctime>

#include "cli/views/layers.h"

namespace mailtree::cli {
namespace {

constexpr const char* kInternalPrefixes[] = {"SVX-", "SVZ-"};

/// Signed content keeps its bytes whatever is in them, and nothing below it is looked at.
void removeInternalFields(Email2& root) {
  std::vector<Email2*> open{&root};
  while (!open.empty()) {
    Email2& node = *open.back();
    open.pop_back();
    if (node.m_received) continue;
    for (const char* const prefix : kInternalPrefixes) node.m_header.removeHeadersBeginningWith(prefix);
    for (int i = 0; i < node.getNumParts(); ++i)
      if (Email2* child = node.getPart(i)) open.push_back(child);
  }
}

}  // namespace

std::optional<Message> loadToSecure(const std::string& path) {
  std::optional<Message> message = loadMessageToWrite(path);
  if (!message) return message;
  removeInternalFields(*message->root);
  message->root->removeHeaderField("Bcc");
  message->root->removeHeaderField("Resent-Bcc");
  // What gets around the content would be no MIME without it, to readers who look.
  LogNull log;
  if (!message->root->hasHeaderField("MIME-Version", log))
    message->root->setHeaderField("MIME-Version", "1.0", log);
  return message;
}

std::string reasonOf(const LogMemory& log, std::string what) {
  const auto isError = [](const LogEntry& entry) { return entry.kind == LogEntry::Kind::Error; };
  const auto first = std::ranges::find_if(log.entries(), isError);
  if (first != log.entries().end()) what += ": " + std::string(first->text);
  return what;
}

std::string invalidityOf(const Certificate& certificate) {
  const std::int64_t now = std::time(nullptr);
  if (now > certificate.notAfter())
    return "has expired: it was valid until " + timeText(certificate.notAfter());
  if (now < certificate.notBefore()) return "is not valid before " + timeText(certificate.notBefore());
  return {};
}

std::vector<Recipient> recipientsOf(const Email2& email) {
  const struct {
    const char* field;
    const ExtPtrArray& list;
  } lists[] = {{"To", email.m_toAddrs}, {"Cc", email.m_ccAddrs}, {"Bcc", email.m_bccAddrs}};
  std::vector<Recipient> recipients;
  for (const auto& row : lists)
    for (int i = 0; i < row.list.getSize(); ++i) {
      const std::string_view address = row.list.at<_svEmailAddress>(i)->m_address.view();
      if (!address.empty()) recipients.push_back({row.field, std::string(address)});
    }
  return recipients;
}

}  // namespace mailtree::cli
