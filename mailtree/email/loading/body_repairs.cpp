#include "mailtree/email/loading/body_repairs.h"

#include <tuple>

#include "mailtree/base/Ascii.h"
#include "mailtree/email/internal.h"

namespace mailtree {
namespace {

bool isAttachedFile(const Email2& node) noexcept {
  return judgeAttachment(node.traits(), /*inMixed=*/false).isAttachment;
}

bool isAttachmentOnly(const Email2& node) {
  if (!node.m_disposition.equals("attachment") || node.m_dispFilename.isEmpty()) return false;
  return hasAttachHeader(node) && !containsNoCase(node.m_contentType.m_type, "pkcs7-mime");
}

}  // namespace

bool hasAttachHeader(const Email2& node) {
  StringBuffer value;
  LogNull quiet;
  return node.getHeaderFieldUtf8("X-MS-Has-Attach", value, quiet) && value.equalsIgnoreCase("yes");
}

bool lacksCharset(const Email2& node, bool hasCharset) {
  const std::string_view type = node.m_contentType.m_type.view();
  if (hasCharset || !(type.empty() || containsNoCase(type, "text/"))) return false;
  if (node.m_subParts.getSize() != 0 || isAttachedFile(node)) return false;
  return !node.m_body.is7bit(0) && !node.m_body.containsChar('\0');
}

void repairReceivedText(Email2& node, LogBase& log) {
  if (isAttachedFile(node)) return;
  node.checkFixEmailTextBody(log);
  node.checkFixUnicodeHtml(log);
}

void unpackAttachmentOnly(Email2& node, DataBuffer& body, LogBase& log) {
  if (!isAttachmentOnly(node)) return;
  log.logInfo("This email has no body and is simply an attachment...");
  EmailPtr attachment(Email2::createAttachmentFromDataUtf8(*node.m_common, node.m_dispFilename.getString(),
                                                           nullptr, nullptr, 0, log));
  if (!attachment) return;
  attachment->m_body.takeData(body);
  node.removeHeaderField("content-disposition");
  node.removeHeaderField("content-transfer-encoding");
  node.setContentTypeUtf8("text/plain", nullptr, nullptr, nullptr, 0, nullptr, nullptr, nullptr, log);
  StringBuffer type;
  if (node.addAttachment(attachment.get(), type, log))
    std::ignore = attachment.release();  // owned by the node
  node.m_repairs.add(Repair::loneAttachment);
}

}  // namespace mailtree
