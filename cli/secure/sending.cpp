#include "cli/secure/sending.h"

#include <algorithm>
#include <ctime>

#include "mailtree/message/internal_fields.h"
#include "mailtree/message/tree_changes.h"
#include "cli/support/times.h"
#include "mailtree/mime/LineLengths.h"

namespace mailtree::cli {
namespace {

void removeInternalFields(Email2& node) {
  for (const char* const prefix : kInternalPrefixes) node.m_header.removeHeadersBeginningWith(prefix);
}

bool isText(const Email2& leaf) {
  const std::string_view type = leaf.m_contentType.m_type;
  return type.empty() || beginsWithNoCase(type, "text/");
}

bool hasLongLine(std::string_view body) {
  while (body.size() > kLongestLine) {
    const std::size_t end = body.find('\n');
    if (std::min(end, body.size()) > kLongestLine + 1) return true;
    if (end == std::string_view::npos) return false;
    body.remove_prefix(end + 1);
  }
  return false;
}

/// Enclosures and message parts must not be encoded (RFC 2046, 5.2.1).
bool needsEncoding(const Email2& node) {
  const std::string_view encoding = node.m_transferEncoding;
  if (node.getNumParts() > 0 || node.isMultipart() ||
      beginsWithNoCase(node.m_contentType.m_type.view(), "message/"))
    return false;
  if (equalsNoCase(encoding, "quoted-printable") || equalsNoCase(encoding, "base64")) return false;
  return equalsNoCase(encoding, "8bit") || equalsNoCase(encoding, "binary") || !node.m_body.is7bit(0) ||
         hasLongLine(node.m_body.view());
}

}  // namespace

std::optional<Message> loadToSecure(const std::string& path) {
  std::optional<Message> message = loadMessageToWrite(path);
  if (!message) return message;
  walkUnsigned(*message->root, removeInternalFields);
  message->root->removeHeaderField("Bcc");
  message->root->removeHeaderField("Resent-Bcc");
  // Some mail clients ignore the layer that is added later unless this field is present.
  LogNull log;
  if (!message->root->hasHeaderField("MIME-Version", log))
    message->root->setHeaderField("MIME-Version", "1.0", log);
  return message;
}

void encodeForTransport(Email2& root) {
  LogNull log;
  walkUnsigned(root, [&log](Email2& node) {
    if (needsEncoding(node))
      node.setContentEncodingNonRecursive(isText(node) ? "quoted-printable" : "base64", log);
  });
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
