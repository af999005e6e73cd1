#include "mailtree/email/Email2.h"

#include "mailtree/base/Stdio.h"
#include "mailtree/email/internal.h"
#include "mailtree/email/model/internal.h"

namespace mailtree {
namespace {

/// Fields that the model parses: setting or adding one also updates the parsed members.
enum class ParsedField { none, date, from, replyTo, contentId, contentType, transferEncoding };

struct ParsedFieldRow {
  const char* name;  ///< In the letter case used when written.
  ParsedField parsed;
};

constexpr ParsedFieldRow kParsedFields[] = {
    {"Date", ParsedField::date},
    {"From", ParsedField::from},
    {"Reply-To", ParsedField::replyTo},
    {"Content-ID", ParsedField::contentId},
    {"Content-Type", ParsedField::contentType},
    {"Content-Transfer-Encoding", ParsedField::transferEncoding},
};

ParsedField parsedFieldOf(std::string_view name) noexcept {
  for (const ParsedFieldRow& route : kParsedFields)
    if (equalsNoCase(name, route.name)) return route.parsed;
  return ParsedField::none;
}

/// Sets a sender that has only a display name.
void setBareSenderName(Email2& node, const char* name, LogBase& log) {
  node.m_fromAddr.m_name.setFromUtf8(name);
  if (*name) node.updateFromInHeader(log);
  // Deliberate: the field finally holds only the name, whatever was written for name and address.
  node.m_header.replaceMimeFieldUtf8("From", name, log);
}

void setSender(Email2& node, const char* value, LogBase& log) {
  if (svStrChr(value, '@')) {
    node.setFromFullUtf8(value, log);
  } else {
    setBareSenderName(node, value, log);
  }
}

void setContentTypeField(Email2& node, const char* name, const char* value, bool asGiven, LogBase& log) {
  node.m_header.replaceMimeFieldUtf8_a(name, value, asGiven, /*ordinary=*/false, log);
  _svCharset charset;
  node.m_contentType.loadFromMimeHeaderValue(value, charset, log);
  if (node.m_common && node.emailCodePage() == 0) node.m_common->m_charset.copy(charset);
}

/// Sets a field that exists once, so setting and adding are the same.
void setSingleField(Email2& node, ParsedField parsed, const char* value, LogBase& log) {
  switch (parsed) {
    case ParsedField::date: node.setDate(value, log, /*setField=*/true); break;
    case ParsedField::replyTo: node.setReplyToUtf8(value, log); break;
    case ParsedField::contentId: node.setContentId(value, log); break;
    case ParsedField::transferEncoding: setTransferEncoding(node, value, log); break;
    case ParsedField::none:
    case ParsedField::from:
    case ParsedField::contentType: break;
  }
}

/// The parsed member cleared when the fields of a name are removed.
struct ParsedMember {
  const char* name;
  void (*clear)(Email2& node);
};

// Deliberate: "Bcc" has no row. Its recipients are still needed for sending after the field is gone.
constexpr ParsedMember kParsedMembers[] = {
    {"To", [](Email2& node) { node.clearRecipients(static_cast<int>(RecipientKind::to)); }},
    {"Cc", [](Email2& node) { node.clearRecipients(static_cast<int>(RecipientKind::cc)); }},
    {"From", [](Email2& node) { node.m_fromAddr.clearEmailAddress(); }},
    {"Content-ID", [](Email2& node) { node.m_contentId.clear(); }},
    {"Content-Type", [](Email2& node) { node.m_contentType.clear(); }},
    {"Content-Disposition", clearDisposition},
    {"Content-Transfer-Encoding", [](Email2& node) { node.m_transferEncoding.clear(); }},
};

}  // namespace

// Reading

bool Email2::getHeaderFieldUtf8(const char* name, StringBuffer& out, LogBase& log) const {
  return isLive() && m_header.getMimeFieldUtf8(name, out, log);
}

bool Email2::getHeaderFieldX(const char* name, XString& out, LogBase& log) const {
  if (!isLive()) return false;
  StringBuffer value;
  const bool found = m_header.getMimeFieldUtf8(name, value, log);
  out.setFromSbUtf8(value);
  return found;
}

int Email2::getNumHeaderFields() const { return isLive() ? m_header.getNumFields() : 0; }

bool Email2::getHeaderFieldName(int index, StringBuffer& out, LogBase& log) const {
  return isLive() && m_header.getFieldNameUtf8(index, out, log);
}

bool Email2::getHeaderFieldValue(int index, StringBuffer& out, LogBase& log) const {
  return isLive() && m_header.getFieldValueUtf8(index, out, log);
}

bool Email2::hasHeaderField(const char* name, LogBase& log) const {
  return isLive() && m_header.hasField(name, log);
}

bool Email2::hasHeaderMatchingUtf8(const char* name, const char* pattern, bool caseSensitive,
                                   LogBase& log) const {
  return isLive() && m_header.hasHeaderMatchingUtf8(name, pattern, caseSensitive, log);
}

bool Email2::getSubjectUtf8(StringBuffer& out, LogBase& log) const {
  return isLive() && m_header.getMimeFieldUtf8_2("Subject", 7, out, log);
}

bool Email2::getReplyToUtf8(StringBuffer& out, LogBase& log) const {
  return isLive() && m_header.getMimeFieldUtf8_2("Reply-To", 8, out, log);
}

bool Email2::getMailerUtf8(StringBuffer& out, LogBase& log) const {
  return isLive() && m_header.getMimeFieldUtf8_2("X-Mailer", 8, out, log);
}

bool Email2::getUidlUtf8(StringBuffer& out, LogBase& log) const {
  return isLive() && m_header.getMimeFieldUtf8_2("X-UIDL", 6, out, log);
}

// Setting, adding, removing

void Email2::setHeaderField(const char* name, const char* value, LogBase& log) {
  setHeaderField_a(name, value, /*asGiven=*/false, log);
}

void Email2::setHeaderField_a(const char* name, const char* value, bool asGiven, LogBase& log) {
  if (!isLive() || viewOf(name).empty()) return;
  if (!value) {
    removeHeaderField(name);
    return;
  }

  const StringBuffer line = oneLine(value);
  const ParsedField parsed = parsedFieldOf(name);
  if (parsed == ParsedField::from) {
    setSender(*this, line.getString(), log);
  } else if (parsed == ParsedField::contentType) {
    setContentTypeField(*this, name, line.getString(), asGiven, log);
  } else if (parsed == ParsedField::none) {
    m_header.replaceMimeFieldUtf8_a(name, line.getString(), asGiven, /*ordinary=*/true, log);
  } else {
    setSingleField(*this, parsed, line.getString(), log);
  }
}

void Email2::addHeaderField2(const char* name, const char* value, LogBase& log) {
  addHeaderField2_a(name, value, /*asGiven=*/false, log);
}

void Email2::addHeaderField2_a(const char* name, const char* value, bool asGiven, LogBase& log) {
  if (!isLive() || viewOf(name).empty() || !value) return;

  const StringBuffer line = oneLine(value);
  const ParsedField parsed = parsedFieldOf(name);
  if (parsed == ParsedField::from) {
    // Deliberate: unlike setting, adding accepts no sender without an address.
    setFromFullUtf8(line.getString(), log);
  } else if (parsed == ParsedField::contentType) {
    // Deliberate: a part has one Content-Type, so it is replaced, and `asGiven` is ignored.
    setContentTypeField(*this, name, line.getString(), /*asGiven=*/false, log);
  } else if (parsed == ParsedField::none) {
    m_header.addMimeField(name, line.getString(), asGiven, log);
  } else {
    setSingleField(*this, parsed, line.getString(), log);
  }
}

void Email2::removeHeaderField(const char* name) {
  if (!isLive() || viewOf(name).empty()) return;
  const StringBuffer wanted = copyOf(name);
  m_header.removeMimeField(wanted.getString(), /*all=*/true);
  for (const ParsedMember& member : kParsedMembers)
    if (wanted.equalsIgnoreCase(member.name)) member.clear(*this);
}

bool Email2::setAttachmentHeader(int index, const char* name, const char* value, LogBase& log) {
  if (!isLive()) return false;
  Email2* attachment = getAttachment(index);
  if (!attachment) {
    log.logError("Failed to find attachment sub-part.");
    return false;
  }
  attachment->setHeaderField_a(name, value, /*asGiven=*/false, log);
  return true;
}

void Email2::copyHeader(Email2& source, LogBase& log) {
  if (!isLive() || !source.isLive() || &source == this) return;
  m_toAddrs.removeAllObjects();
  m_ccAddrs.removeAllObjects();
  m_bccAddrs.removeAllObjects();
  m_fromAddr.clearEmailAddress();

  m_header.copyMimeHeaderFrom(source.m_header, log);
  neverThrow(false, [&] { return m_contentType.copyFrom(source.m_contentType), true; });
  m_disposition.setString(source.m_disposition);
  m_transferEncoding.setString(source.m_transferEncoding);
  m_contentId.setString(source.m_contentId);
  m_dispFilename.setString(source.m_dispFilename);
  m_fromAddr.copyEmailAddress(source.m_fromAddr);
  copyRecipients(source);
  if (source.isValidEmailObject()) m_date.copyFrom(source.m_date);
}

}  // namespace mailtree
