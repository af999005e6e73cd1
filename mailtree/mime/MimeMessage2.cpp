#include "mailtree/mime/MimeMessage2.h"

#include <new>
#include <string>
#include <utility>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Log.h"
#include "mailtree/base/Platform.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/MimeParser.h"
#include "mailtree/mime/address/Address.h"

namespace mailtree {

// Construction and destruction

MimeMessage2::~MimeMessage2() { deleteParts(); }

MimeMessage2* MimeMessage2::createNewObject() {
  return neverThrow<MimeMessage2*>(nullptr, [] { return new MimeMessage2(); });
}

/// Walks down to a leaf, deletes it and goes on from its parent: no recursion and no memory at any depth.
void MimeMessage2::deleteParts() noexcept {
  MimeMessage2* entity = this;
  for (;;) {
    if (!entity->m_parts.empty() && !entity->m_parts.back()) {
      entity->m_parts.pop_back();  // by deletePart()
    } else if (!entity->m_parts.empty()) {
      MimeMessage2* part = entity->m_parts.back().get();
      part->m_parentInDeletion = entity;
      entity = part;
    } else if (entity != this) {
      entity = entity->m_parentInDeletion;
      entity->m_parts.pop_back();
    } else {
      return;
    }
  }
}

void MimeMessage2::reset() {
  deleteParts();
  m_header.clear();
  m_contentType.clear();
  m_charset.clear();
  m_parsedCharset.clear();
  m_disposition.clear();
  m_filename.clear();
  m_transferEncoding.clear();
  m_contentId.clear();
  m_body.clear();
  m_receivedBytes.reset();
  m_limits.clear();
  m_repairs = RepairSet();
  m_isWhole = true;
  m_origin = kNoOrigin;
  m_isUnwrapped = false;
}

// Parsing

bool MimeMessage2::loadText(std::string_view mime, LogBase& log) {
  int parts = kMaxParts;
  return loadText(mime, parts, log);
}

bool MimeMessage2::loadText(std::string_view mime, int& parts, LogBase& log) {
  return neverThrow(false, [&] {
    reset();
    MimeParser::parse(mime, *this, parts, log);
    return true;
  });
}

bool MimeMessage2::loadText(std::string_view mime, std::vector<EntityPlace>& places, LogBase& log) {
  return neverThrow(false, [&] {
    reset();
    int parts = kMaxParts;
    MimeParser::parse(mime, *this, parts, log, &places);
    return true;
  });
}

bool MimeMessage2::loadContent(std::string_view mime, int level, Origin origin, int& parts, LogBase& log) {
  return neverThrow(false, [&] {
    reset();
    MimeParser::parseContent(mime, *this, level, origin, parts, log);
    return true;
  });
}

bool MimeMessage2::reloadReceived(int level, int& parts, LogBase& log) {
  if (!m_receivedBytes) return false;
  std::unique_ptr<DataBuffer> received = std::move(m_receivedBytes);
  const bool loaded = loadContent(received->view(), level, m_origin, parts, log);
  m_receivedBytes = std::move(received);
  return loaded;
}

bool MimeMessage2::loadMimeComplete(const StringBuffer& mime, LogBase& log, bool /*option*/) {
  return loadText(mime.view(), log);
}

bool MimeMessage2::loadMimeComplete2(const char* data, unsigned size, bool /*keepInput*/,
                                     StringBuffer& /*scratch*/, LogBase& log, bool /*option*/) {
  return loadText(data ? std::string_view(data, size) : std::string_view(), log);
}

bool MimeMessage2::loadMimeCompleteDb(DataBuffer& mime, LogBase& log) { return loadText(mime.view(), log); }

void MimeMessage2::makeAttachmentFilenamesRelative(LogBase&) {
  guarded([&] {
    std::vector<MimeMessage2*> pending{this};
    while (!pending.empty()) {
      MimeMessage2& entity = *pending.back();
      pending.pop_back();
      for (const auto& part : entity.m_parts) pending.push_back(part.get());
      if (baseName(entity.m_filename).size() != entity.m_filename.getSize()) {
        entity.m_filename.stripDirectory();
        entity.refreshDispositionField();
      }
      if (baseName(entity.m_contentType.m_name).size() != entity.m_contentType.m_name.getSize()) {
        entity.m_contentType.m_name.stripDirectory();
        entity.refreshContentTypeField();
      }
    }
  });
}

// Reading

bool MimeMessage2::isMultipart() const noexcept {
  return beginsWithNoCase(m_contentType.m_type, "multipart/");
}

bool MimeMessage2::isMultipartMixed() const noexcept {
  return equalsNoCase(m_contentType.m_type, "multipart/mixed");
}

PartTraits MimeMessage2::basicTraits() const noexcept {
  PartTraits traits;
  traits.type = m_contentType.m_type;
  traits.name = m_contentType.m_name;
  traits.disposition = m_disposition;
  // The name parameter replaces a missing file name, as in the email tree, so both decide alike.
  traits.dispFilename = m_filename.isEmpty() ? m_contentType.m_name : m_filename;
  traits.transferEncoding = m_transferEncoding;
  return traits;
}

PartTraits MimeMessage2::traits() const noexcept {
  PartTraits traits = basicTraits();
  traits.hasMessageClass = neverThrow(false, [&] {
    LogNull quiet;
    return m_header.hasHeaderMatchingUtf8("Content-Class", "*content-classes:message*",
                                          /*caseSensitive=*/false, quiet);
  });
  return traits;
}

bool MimeMessage2::isAttachment(LogBase&) const {
  return judgeAttachment(basicTraits(), /*inMixed=*/false).isAttachment;
}

void MimeMessage2::getMimeFilename(StringBuffer& out) const {
  out.setString(m_filename.isEmpty() ? m_contentType.m_name : m_filename);
}

void MimeMessage2::getHeaderFieldUtf8(const char* name, StringBuffer& out, LogBase& log) const {
  m_header.getMimeFieldUtf8(name, out, log);
}

void MimeMessage2::getEmailAddresses(const char* field, ExtPtrArray& out, LogBase&) const {
  guarded([&] {
    // Read before decoding, so that an encoded word cannot forge an address.
    std::string scratch;
    const std::string_view name = viewOf(field);
    for (int i = m_header.findField(name); i >= 0; i = m_header.findField(name, i + 1))
      _svEmailAddress::parseAndLoadList(m_header.unfoldedValue(i, scratch), out);
  });
}

void MimeMessage2::getQBEncodedHeader(StringBuffer& out, LogBase& log) const {
  guarded([&] {
    MimeHeader encoded(m_header);
    encoded.encode8bitFields();
    encoded.getMimeHeader(out, nullptr, kCpUtf8, /*isTop=*/true, log);
  });
}

MimeMessage2* MimeMessage2::getPart(int index) const noexcept {
  return index >= 0 && index < getNumParts() ? m_parts[static_cast<std::size_t>(index)].get() : nullptr;
}

// Body

bool MimeMessage2::setBodyFromText(std::string_view bytes, std::string_view charset) {
  DataBuffer text;
  const DecodedText decoded = receivedTextToUtf8(charset, bytes, text);
  const bool wasGuessed = decoded.origin == TextOrigin::byteOrderMark ||
                          decoded.origin == TextOrigin::validUtf8 || decoded.origin == TextOrigin::detected;
  // Plain ASCII tells nothing about its charset, so an unknown label is not reported
  // unless the text has escape sequences.
  if (wasGuessed && (decoded.converted || !isAscii(bytes)) &&
      decoded.codePage != m_parsedCharset.getCodePage()) {
    m_repairs.add(Repair::charset);  // also tells copyContentType that the member differs from the field
    m_parsedCharset.setByCodePage(decoded.codePage);
  }
  m_repairs.addDamage(decoded.damaged);
  if (decoded.converted) m_body = std::move(text);
  return decoded.converted;
}

void MimeMessage2::setMimeBody8Bit_2(const void* data, unsigned size, const _svCharset& charset, bool isText,
                                     LogBase& log) {
  guarded([&] {
    const auto* bytes = static_cast<const unsigned char*>(data);
    const std::string_view text(static_cast<const char*>(data), data ? size : 0);
    const bool isConverted = isText && *charset.getName() && isConvertibleText(basicTraits()) &&
                             setBodyFromText(text, charset.getName());
    if (!isConverted) setMimeBodyBinary2(bytes, size, log);
  });
}

void MimeMessage2::setMimeBodyBinary2(const unsigned char* data, unsigned size, LogBase& log) {
  DataBuffer body;
  if (data && size && !body.append(data, size))
    return log.logError("Out of memory while setting the body of a part.");
  m_body = std::move(body);
}

void MimeMessage2::copyMimeBody(DataBuffer& out, LogBase& log) const {
  if (!out.append(m_body)) log.logError("Out of memory while copying the body of a part.");
}

void MimeMessage2::extractMimeBody(DataBuffer& out, LogBase&) { out.takeData(m_body); }

// Parts

void MimeMessage2::adoptContent(MimeMessage2& content) {
  guarded([&] { m_header.takeFieldsBeginningWith("Content-", content.m_header); });
  m_contentType = std::move(content.m_contentType);
  m_charset = std::move(content.m_charset);
  m_parsedCharset = std::move(content.m_parsedCharset);
  m_disposition = std::move(content.m_disposition);
  m_filename = std::move(content.m_filename);
  m_transferEncoding = std::move(content.m_transferEncoding);
  m_contentId = std::move(content.m_contentId);
  m_body.takeData(content.m_body);
  deleteParts();
  m_parts = std::move(content.m_parts);
  m_receivedBytes.reset();
  m_limits.add(content.m_limits);
  m_repairs.add(content.m_repairs);
  m_isWhole &= content.m_isWhole;
}

void MimeMessage2::newMultipartAlternative(LogBase& log) {
  guarded([&] {
    m_contentType.m_type.setString("multipart/alternative");
    Psdk::generateBoundary(m_contentType.m_boundary, log);
    refreshContentTypeField();
  });
}

void MimeMessage2::addPart(MimeMessage2* part) {
  guarded([&] {
    Owned<MimeMessage2> owned(part);
    if (owned) m_parts.push_back(std::move(owned));
  });
}

void MimeMessage2::addPartInFront(MimeMessage2* part) {
  guarded([&] {
    Owned<MimeMessage2> owned(part);
    if (owned) m_parts.insert(m_parts.begin(), std::move(owned));
  });
}

MimeMessage2* MimeMessage2::extractPart(int index) {
  if (!getPart(index)) return nullptr;
  const auto position = m_parts.begin() + index;
  MimeMessage2* part = position->release();
  m_parts.erase(position);
  return part;
}

void MimeMessage2::deletePart(int index) noexcept { m_parts[static_cast<std::size_t>(index)].reset(); }

void MimeMessage2::replacePart(int index, MimeMessage2* part, LogBase&) {
  guarded([&] {
    Owned<MimeMessage2> owned(part);
    if (extractPart(index) && owned) m_parts.insert(m_parts.begin() + index, std::move(owned));
  });
}

}  // namespace mailtree
