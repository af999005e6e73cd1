#include "mailtree/email/Email2.h"

#include <optional>
#include <string>

#include "mailtree/base/Search.h"
#include "mailtree/email/internal.h"
#include "mailtree/email/model/internal.h"
#include "mailtree/mime/charset/WrittenCharset.h"
#include "mailtree/mime/coding/ContentCoding.h"
#include "mailtree/mime/header/ContentTypeTable.h"
#include "mailtree/mime/header/Token.h"

namespace mailtree {
namespace {

constexpr int kCpIso2022JpShift = 50222;

/// A trimmed copy of an argument that may be null or may point into the node about to change.
std::optional<StringBuffer> trimmedCopy(const char* text) {
  if (!text) return std::nullopt;
  StringBuffer copy = copyOf(text);
  copy.trim2();
  return copy;
}

/// The media type to set; a missing one keeps the present type.
std::string_view typeToSet(const char* type, const StringBuffer& present) noexcept {
  if (!viewOf(type).empty()) return viewOf(type);
  return present.isEmpty() ? std::string_view("text/plain") : present.view();
}

void setLowerTrimmed(StringBuffer& member, std::string_view value) {
  member.setString(trim(value));
  member.toLowerCase();
}

/// Whether a code page set with a content type applies to the whole email: for text, a multipart whose main
/// part is text, signed content and messages.
bool setsMessageCharset(const _svContentType& type) {
  return beginsWithNoCase(type.m_type, "text") || beginsWithNoCase(type.m_subtype, "text") ||
         containsNoCase(type.m_type, "multipart/signed") || beginsWithNoCase(type.m_type, "message");
}

/// Whether a charset label leaves the byte order open. Output never does, because it writes no
/// byte order mark.
bool hasUnspecifiedByteOrder(const _svCharset& charset) {
  const int codePage = charset.getCodePage();
  return (codePage == kCpUtf16LE || codePage == kCpUtf16BE) &&
         !equalsNoCase(viewOf(charset.getName()), charsetNameOf(codePage));
}

/// Whether two Content-Type values have the same meaning. An empty value has none; it is not text/plain.
bool haveSameMeaning(std::string_view present, std::string_view wanted) {
  if (present == wanted) return true;
  if (present.empty() || wanted.empty()) return false;
  _svContentType presentType, wantedType;
  _svCharset presentCharset, wantedCharset;
  presentType.loadFromMimeHeaderValue(present, presentCharset);
  wantedType.loadFromMimeHeaderValue(wanted, wantedCharset);
  return presentType.sameMeaning(wantedType) && presentCharset.equals(wantedCharset) &&
         !hasUnspecifiedByteOrder(presentCharset);
}

/// Takes "; NAME=VALUE" from the beginning of a received field value. False for any unusual form.
bool takeParameter(std::string_view& received, std::string_view name, std::string_view value) {
  const auto take = [&received](std::string_view text) {
    const bool isThere = received.starts_with(text);
    received.remove_prefix(isThere ? text.size() : 0);
    return isThere;
  };
  if (!take(";")) return false;
  received = trimLeft(received);
  if (!beginsWithNoCase(received, name)) return false;
  received.remove_prefix(name.size());
  if (!take("=")) return false;
  const bool isQuoted = take("\"");
  const bool isPlain = isQuoted ? findUnprintable<'"', '\\'>(value) == value.size() : isToken(value);
  return isPlain && take(value) && (!isQuoted || take("\""));
}

/// Whether a received field has this type, charset and boundary, no other parameter, and a usual form. Most
/// fields have, and comparing them is faster than writing a value first.
bool isPlainly(std::string_view received, const _svContentType& type, const _svCharset& charset) {
  const bool hasMore = type.m_formatFlowed || !type.m_otherParams.params().empty() ||
                       !type.m_name.isEmpty() || !type.m_subtype.isEmpty() || !type.m_protocol.isEmpty() ||
                       !type.m_micalg.isEmpty() || !type.m_smimeType.isEmpty();
  if (hasMore || hasUnspecifiedByteOrder(charset)) return false;
  if (type.m_type.isEmpty() || !beginsWithNoCase(received, type.m_type)) return false;
  received.remove_prefix(type.m_type.view().size());
  const std::string_view label = viewOf(charset.getName()), boundary = type.m_boundary;
  if (beginsWithNoCase(type.m_type, "text/") && !label.empty() && !takeParameter(received, "charset", label))
    return false;
  return (boundary.empty() || takeParameter(received, "boundary", boundary)) && trim(received).empty();
}

/// Whether the field was received and needs no change. A field that was set has no received form to keep.
bool receivedFieldMatches(const MimeHeader& header, int index, std::string_view wanted) {
  return neverThrow(false, [&] {
    std::string unfolded;
    return header.isReceived(index) && haveSameMeaning(header.unfoldedValue(index, unfolded), wanted);
  });
}

/// Deliberate: the file name is inserted as given, with line breaks and quotes; the header list makes them
/// harmless when it writes the field. Parameters after the disposition are dropped, because they would be
/// read as part of the name.
void setDispositionField(Email2& node, std::string_view disposition, std::string_view filename,
                         LogBase& log) {
  if (!filename.empty()) disposition = disposition.substr(0, disposition.find(';'));
  StringBuffer value = copyOf(disposition);
  if (!filename.empty()) {
    value.append("; filename=\"");
    value.append(filename);
    value.appendChar('"');
  }
  node.m_header.replaceMimeFieldUtf8("Content-Disposition", value.getString(), log);
}

void setTypeField(Email2& node, _svCharset& charset, bool withFlowed, LogBase& log) {
  StringBuffer value;
  node.m_contentType.buildMimeHeaderValue(value, charset, withFlowed, /*withName=*/true, log);
  node.m_header.replaceMimeFieldUtf8_a("Content-Type", value.getString(), /*asGiven=*/true,
                                       /*ordinary=*/false, log);
}

bool isText(const Email2& node) noexcept { return beginsWithNoCase(node.m_contentType.m_type, "text/"); }

/// Whether this text part is stored and written as raw bytes, because the rules treat it as an attachment.
bool isStoredAsFile(const Email2& node) { return isText(node) && !isConvertibleText(node.traits()); }

/// Output converts a text from utf-8, but writes a text file as stored. When a new disposition or name turns
/// one into the other, the charset label or the bytes change too.
template <class Change>
void changeDispositionOrName(Email2& node, Change&& change, LogBase& log) {
  const bool wasFile = isStoredAsFile(node);
  change();
  if (!isText(node) || wasFile == isStoredAsFile(node)) return;
  neverThrow(false, [&] {
    DataBuffer utf8;
    const bool converted =
        receivedTextToUtf8(labelledCharset(node).getName(), node.m_body.view(), utf8).converted;
    const bool isAsciiOnly = !converted && node.m_body.is7bit(0);
    if (!wasFile && !isAsciiOnly) labelUtf8(node, log);
    if (wasFile && converted) node.m_body.takeData(utf8);
    return true;
  });
}

/// The name of a part given by its sender, or one derived from its type.
void rawFilename(const Email2& node, StringBuffer& out, LogBase& log) {
  for (const StringBuffer* name : {&node.m_dispFilename, &node.m_contentType.m_name}) {
    if (name->isEmpty()) continue;
    out.setString(*name);
    return;
  }
  node.m_header.getMimeFieldUtf8("content-location", out, log);
  if (out.containsChar('.')) return;

  const std::string_view extension = extensionOfContentType(node.m_contentType.m_type);
  out.setString("attachedFile.");
  out.append(extension.empty() ? std::string_view("dat") : extension);
}

/// Whether a text contains the escape sequences of ISO-2022-JP.
bool holdsIso2022JpEscapes(const StringBuffer& text) noexcept {
  return text.containsSubstring("\x1B$B") || text.containsSubstring("\x1B(B");
}

}  // namespace

void clearDisposition(Email2& node) {
  LogNull quiet;
  const auto clear = [&] {
    node.m_disposition.clear();
    node.m_dispFilename.clear();
  };
  changeDispositionOrName(node, clear, quiet);
}

void decodeFilename(StringBuffer& name, LogBase& log) {
  if (name.containsSubstringNoCase("?Q?") || name.containsSubstringNoCase("?B?"))
    ContentCoding::QB_DecodeToUtf8(name, log);
  if (holdsIso2022JpEscapes(name)) name.convertEncoding(kCpIso2022JpShift, kCpUtf8, log);
}

_svCharset labelledCharset(const Email2& node) {
  std::string scratch;
  _svContentType unused;
  _svCharset charset;
  unused.loadFromMimeHeaderValue(
      node.m_header.unfoldedValue(node.m_header.findField("Content-Type"), scratch), charset);
  return charset;
}

void labelCodePage(Email2& node, int codePage, LogBase& log) {
  _svCharset charset;
  charset.setByCodePage(codePage);
  if (node.isStrictAttachment(nullptr)) node.m_attachCodePage = codePage;
  setTypeField(node, charset, /*withFlowed=*/true, log);
}

void refreshCharsetLabel(Email2& node, LogBase& log) {
  const int field = node.m_header.findField("Content-Type");
  if (!node.m_header.isReceived(field) || !isConvertibleText(node.traits())) return;
  _svCharset charset = labelledCharset(node);
  if (codePageToWrite(charset.getCodePage(), node.m_body.view()) != charset.getCodePage())
    setTypeField(node, charset, /*withFlowed=*/true, log);
}

void Email2::getContentType(StringBuffer& out) const {
  if (isLive()) out.setString(m_contentType.m_type);
}

void Email2::getContentEncoding(StringBuffer& out) const {
  if (isLive()) out.setString(m_transferEncoding);
}

void Email2::getName(StringBuffer& out) {
  if (isLive()) out.setString(m_contentType.m_name);
}

void Email2::getContentId(StringBuffer& out) const {
  if (isLive()) out.append(m_contentId);
}

void Email2::getAttachmentName(StringBuffer& out) const {
  if (isLive()) out.append(m_contentType.m_name);
}

// Content-Type

void Email2::setContentTypeUtf8(const char* type, const char* name, const char* protocol, const char* micalg,
                                int codePage, const char* boundary, const char* smimeType,
                                const char* subtype, LogBase& log) {
  if (!isLive()) return;
  const StringBuffer newType = copyOf(typeToSet(type, m_contentType.m_type));
  const auto newSubtype = trimmedCopy(subtype);
  const struct {
    StringBuffer& member;
    std::optional<StringBuffer> value;
  } params[] = {
      {m_contentType.m_name, trimmedCopy(name)},         {m_contentType.m_protocol, trimmedCopy(protocol)},
      {m_contentType.m_micalg, trimmedCopy(micalg)},     {m_contentType.m_smimeType, trimmedCopy(smimeType)},
      {m_contentType.m_boundary, trimmedCopy(boundary)},
  };

  m_contentType.clear();
  setLowerTrimmed(m_contentType.m_type, newType);
  if (newSubtype && !m_contentType.m_type.containsSubstring("multipart"))
    setLowerTrimmed(m_contentType.m_subtype, *newSubtype);
  if (setsMessageCharset(m_contentType)) use_codepage(codePage);
  for (const auto& param : params)
    if (param.value) param.member.setString(*param.value);
  // The boundary is written on its own line, and a line break would end it.
  for (const char c : {'\r', '\n', '\0'}) m_contentType.m_boundary.removeCharOccurances(c);
  refreshContentTypeHeader(log);
  if (codePage != 0 && isStoredAsFile(*this) && !isStrictAttachment(nullptr))
    labelCodePage(*this, codePage, log);
}

void Email2::refreshContentTypeHeader(LogBase& log) {
  if (!isLive()) return;
  _svCharset charset;
  _svCharset* label = &charset;
  const bool isAttachedText = isText(*this) && isStrictAttachment(nullptr);
  if (isAttachedText) {
    if (m_attachCodePage != 0) charset.setByCodePage(m_attachCodePage);
    m_contentType.m_formatFlowed = false;  // the line wrapping of an attached file is not changed
  } else if (isStoredAsFile(*this)) {
    charset = labelledCharset(*this);
  } else {
    label = &emailCharset(charset);
  }
  const int field = m_header.findField("Content-Type");
  if (m_header.isReceived(field) && isPlainly(m_header.rawValue(field), m_contentType, *label)) return;

  StringBuffer value;
  m_contentType.buildMimeHeaderValue(value, *label, /*withFlowed=*/!isAttachedText, /*withName=*/true, log);
  if (receivedFieldMatches(m_header, field, value)) return;
  m_header.replaceMimeFieldUtf8_a("Content-Type", value.getString(), /*asGiven=*/true, /*ordinary=*/false,
                                  log);
}

void Email2::fixContentTypeUtf8(const char* type, LogBase& log) {
  if (!isLive()) return;
  m_contentType.m_type.setString(type);  // Deliberate: stored exactly as given.
  refreshContentTypeHeader(log);
}

void Email2::setContentSubtype(const char* subtype, LogBase& log) {
  if (!isLive()) return;
  setLowerTrimmed(m_contentType.m_subtype, viewOf(subtype));
  refreshContentTypeHeader(log);
}

void Email2::setName(const StringBuffer& name, LogBase& log) {
  if (!isLive()) return;
  const auto change = [&] {
    m_contentType.m_name.setString(name);
    refreshContentTypeHeader(log);
  };
  changeDispositionOrName(*this, change, log);
}

void Email2::setContentId(const char* id, LogBase& log) {
  if (!isLive()) return;
  const StringBuffer given = copyOf(id);
  m_contentId.setString(given);
  m_header.replaceMimeFieldUtf8("Content-ID", id ? given.getString() : nullptr, log);
}

// Content-Disposition and file names

void Email2::setContentDisposition1(const char* disposition, LogBase& log) {
  if (!isLive()) return;
  const auto change = [&] {
    m_disposition.setString(disposition);
    setDispositionField(*this, m_disposition, m_dispFilename, log);
  };
  changeDispositionOrName(*this, change, log);
}

void Email2::setContentDispositionUtf8(const char* disposition, const char* filename, LogBase& log) {
  if (!isLive()) return;
  const StringBuffer given = copyOf(filename);
  const auto change = [&] {
    m_disposition.setString(disposition);
    m_dispFilename.setString(given);
    m_dispFilename.removeCharOccurances('\r');
    m_dispFilename.removeCharOccurances('\n');
    setDispositionField(*this, m_disposition, m_dispFilename.isEmpty() ? std::string_view() : given.view(),
                        log);
  };
  changeDispositionOrName(*this, change, log);
}

void Email2::setFilenameUtf8(const char* filename, LogBase& log) {
  if (!isLive()) return;
  const StringBuffer disposition = copyOf(m_disposition);
  setContentDispositionUtf8(disposition.getString(), filename, log);
}

void Email2::getFilenameUtf8(StringBuffer& out, LogBase& log) const {
  if (!isLive()) return;
  out.clear();
  rawFilename(*this, out, log);
  decodeFilename(out, log);
}

}  // namespace mailtree
