// email/creation/attachments.cpp - creates attachments from bytes, files and messages, and adds them
// to a tree.

#include <string_view>
#include <tuple>
#include <utility>

#include "mailtree/base/Platform.h"
#include "mailtree/email/creation/internal.h"
#include "mailtree/mime/header/ContentTypeTable.h"

namespace mailtree {
namespace {

std::string_view typeFor(const char* given, std::string_view name) noexcept {
  const std::string_view type = trim(given ? viewOf(given) : typeByName(name));
  return type.empty() ? kUnknownType : type;
}

/// An attachment still without content.
EmailPtr createAttachment(_svEmailCommon& common, std::string_view path, const char* contentType,
                          LogBase& log) {
  EmailPtr part = createPart(common);
  if (!part) return part;
  const StringBuffer name = workingName(path);
  const StringBuffer filename = shortName(name);
  part->setContentDispositionUtf8("attachment", filename.getString(), log);
  setTypeAndEncoding(*part, typeFor(contentType, name), filename, log);
  return part;
}

EmailPtr createFromBytes(_svEmailCommon& common, const char* fileName, const char* contentType,
                         std::string_view bytes, LogBase& log) {
  const std::string_view name = viewOf(fileName).empty() ? "attach.dat" : viewOf(fileName);
  EmailPtr part = createAttachment(common, name, contentType, log);
  if (!part || !part->m_body.append(bytes)) return EmailPtr();
  return part;
}

bool loadIntoAttachmentBody(Email2& part, const char* path, LogBase& log) {
  LogContextExitor context(log, "loadIntoAttachmentBody");
  return part.m_body.loadFileUtf8(path, log);
}

/// Appends a part to a node, which is or becomes a multipart/mixed. On false the caller still owns the part.
bool appendToMixed(Email2& node, Email2& part, LogBase& log) {
  moveUnsplitBytesToPart(node, log);
  if (!node.isMultipartMixed()) node.convertToMultipartX("multipart/mixed", log);
  return node.isMultipartMixed() && node.m_subParts.appendObject(&part);
}

bool appendNew(Email2& node, EmailPtr part, LogBase& log) {
  if (!part || !appendToMixed(node, *part, log)) return false;
  std::ignore = part.release();  // the node owns it now
  return true;
}

}  // namespace

Email2* Email2::createAttachmentFromDataUtf8(_svEmailCommon& common, const char* fileName,
                                             const char* contentType, const unsigned char* data, int size,
                                             LogBase& log) {
  const bool hasBytes = data && size > 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data),
                               hasBytes ? static_cast<std::size_t>(size) : 0);
  return neverThrow<Email2*>(
      nullptr, [&] { return createFromBytes(common, fileName, contentType, bytes, log).release(); });
}

Email2* Email2::createAttachmentFromFileX(_svEmailCommon& common, XString& path, const char* contentType,
                                          LogBase& log) {
  return neverThrow<Email2*>(nullptr, [&]() -> Email2* {
    LogContextExitor context(log, "createEmailAttachmentFromFile");
    if (!FileSys::fileExistsUtf8(path.getUtf8())) {
      log.logError("file does not exist");
      return nullptr;
    }
    EmailPtr part = createAttachment(common, path.view(), contentType, log);
    if (!part) return nullptr;
    if (loadIntoAttachmentBody(*part, path.getUtf8(), log)) return part.release();
    log.logError("Failed to load file.");
    return nullptr;
  });
}

Email2* Email2::createRfc822AttachedMessage(_svEmailCommon& common, DataBuffer& mime, LogBase& log) {
  EmailPtr part = createPart(common);
  if (!part) return nullptr;
  part->removeHeaderField("Content-transfer-encoding");
  part->setContentTypeUtf8("message/rfc822", nullptr, nullptr, nullptr, 0, nullptr, nullptr, nullptr, log);
  part->m_body.takeData(mime);
  return part.release();
}

bool Email2::addDataAttachmentUtf8(const char* fileName, const char* contentType, int codePage,
                                   const DataBuffer& data, StringBuffer& outContentType, LogBase& log) {
  if (!isLive() || !m_common) return false;
  return neverThrow(false, [&] {
    LogNull quiet;
    EmailPtr part = createFromBytes(*m_common, fileName, contentType, data.view(), quiet);
    if (!part) return false;
    if (codePage != 0) {
      part->m_attachCodePage = codePage;
      part->refreshContentTypeHeader(quiet);  // to write the new charset
    }
    outContentType.setString(part->m_contentType.m_type);
    return appendNew(*this, std::move(part), log);
  });
}

bool Email2::addFileAttachmentX(XString& path, const char* contentType, StringBuffer& outContentType,
                                LogBase& log) {
  if (!isLive()) return false;
  LogContextExitor context(log, "addFileAttachmentX");
  if (!m_common) {
    log.logError("No internal pointer...");
    return false;
  }
  EmailPtr part(createAttachmentFromFileX(*m_common, path, contentType, log));
  if (!part) {
    log.logError("Failed to create attachment from file.");
    return false;
  }
  outContentType.setString(part->m_contentType.m_type);
  return appendNew(*this, std::move(part), log);
}

bool Email2::addAttachment(Email2* part, StringBuffer& outContentType, LogBase& log) {
  if (!isLive()) return false;
  outContentType.clear();
  if (!part || !appendToMixed(*this, *part, log)) return false;
  outContentType.setString(part->m_contentType.m_type);
  return true;
}

bool Email2::attachMessage(DataBuffer& mime, LogBase& log) {
  if (!isLive() || !m_common) return false;
  return appendNew(*this, EmailPtr(createRfc822AttachedMessage(*m_common, mime, log)), log);
}

void Email2::getTypeFromExtension(const char* extension, StringBuffer& out) {
  const std::string_view wanted = viewOf(extension);
  // Deliberate: the first letter is case-sensitive, and the table has no capitals.
  if (!wanted.empty() && toLowerAscii(wanted[0]) == wanted[0]) out.append(contentTypeOfExtension(wanted));
}

bool Email2::getExtensionFromType(const char* contentType, StringBuffer& out) {
  const std::string_view extension = extensionOfContentType(viewOf(contentType));
  return !extension.empty() && out.append(extension);
}

void Email2::getContentDisposition(StringBuffer& disposition, StringBuffer& fileName) {
  if (!isLive()) return;
  disposition.setString(m_disposition);
  fileName.setString(m_dispFilename);
}

}  // namespace mailtree
