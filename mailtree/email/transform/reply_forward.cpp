// email/transform/reply_forward.cpp - converts a received message to a reply or a forward.
//
// Quoted text stays in place and gets a reply header above it: one form for plain text, one for HTML,
// never both in one body.

#include <string>

#include "mailtree/base/Utf.h"
#include "mailtree/email/internal.h"
#include "mailtree/email/transform/original_message_header.h"
#include "mailtree/mime/charset/WrittenCharset.h"
#include "mailtree/mime/coding/ContentCoding.h"
#include "mailtree/mime/coding/EncodedWord.h"
#include "mailtree/mime/html/Html.h"

namespace mailtree {
namespace {

constexpr int kTo = static_cast<int>(RecipientKind::to);
constexpr int kCc = static_cast<int>(RecipientKind::cc);
constexpr int kBcc = static_cast<int>(RecipientKind::bcc);

/// How far into a text to search for the first HTML tags.
constexpr std::size_t kTagSearchLimit = 2000;

/// The differences between the two conversions.
struct Conversion {
  const char* context;
  const char* subjectPrefix;
  bool isReply;
};

constexpr Conversion kReply = {"convertToReply", "RE: ", true};
constexpr Conversion kForward = {"convertToForward", "FW: ", false};

/// The list, formatted like the folded header field. Deliberate: line folding becomes "<br>" in both forms,
/// so plain text shows it.
std::string recipientsOf(Email2& email, int kind, std::string_view field, LogBase& log) {
  StringBuffer list;
  email.getAllRecipients(kind, list, log);
  const std::string line = foldHeaderLine(std::string(field).append(" ").append(list.view()));
  StringBuffer folded(trim(std::string_view(line).substr(field.size())));
  folded.replaceAllOccurances("\r\n", "<br>");
  ContentCoding::QB_DecodeToUtf8(folded, log);
  return folded.extractString();
}

/// Deliberate: the values are inserted as text, without escaping, and the list of recipients is the same in
/// plain text and HTML.
QuotedFields quotedFieldsOf(Email2& email, LogBase& log) {
  StringBuffer sender, sent, subject;
  email.getSubjectUtf8(subject, log);
  email.getFromFullUtf8(sender, log);
  email.getHeaderFieldUtf8("Date", sent, log);
  return {sender.extractString(), sent.extractString(), recipientsOf(email, kTo, "To:", log),
          recipientsOf(email, kCc, "Cc:", log), subject.extractString()};
}

// Where to quote

/// The node, at or below a part, that holds its displayed body; null when there is none.
Email2* holderOfBody(Email2* part) {
  const DataBuffer* const body = part ? part->getEffectiveBodyObject3(*part) : nullptr;
  Email2* holder = nullptr;
  if (!body) return nullptr;
  walkTree(*part, [&](Email2& node) {
    if (&node.m_body != body) return Walk::descend;
    holder = &node;
    return Walk::stop;
  });
  return holder;
}

/// Whether a reply header may go before the content of a part: not into an image, a calendar or an attached
/// file. A part without a type is plain text (RFC 2045, 5.2).
bool isQuotable(const Email2& email, Email2* part) {
  if (!part || part->getNumParts() != 0) return false;
  const std::string_view type = part->m_contentType.m_type;
  const bool isText = type.empty() || isType(type, "text/plain") || isType(type, "text/html");
  return isText && (part == &email || !part->isNotAlternativeBody());
}

/// The parts to quote into; either may be null.
struct QuotedParts {
  Email2* plain;
  Email2* html;
  bool isIncomplete = false;  ///< A chosen part has no body.
};

Email2* plainPartOf(Email2& email) {
  const bool isAlternative = email.equalsContentType("multipart/alternative");
  Email2* const part = isAlternative ? email.getPlainTextAlternative() : nullptr;
  return part ? part : &email;
}

/// A first part that is not text does not prevent quoting the text after it.
Email2* quotablePlain(Email2& email) {
  for (Email2* const part :
       {holderOfBody(plainPartOf(email)), email.findPlainTextPart(), email.getPlainTextAlternative()})
    if (isQuotable(email, part)) return part;
  return nullptr;
}

Email2* htmlPartOf(Email2& email) {
  Email2* const alternative = email.findMultipartEnclosure(kAlternative, 0);
  return (alternative ? alternative : &email)->getHtmlAlternative();
}

bool isReallyHtml(const Email2& part) {
  if (part.equalsContentType("text/html")) return true;
  for (const char* const tag : {"<html", "<HTML", "<BODY", "<body"})
    if (part.m_body.containsSubstring(tag, kTagSearchLimit)) return true;
  return false;
}

QuotedParts partsToQuote(Email2& email) {
  QuotedParts parts{quotablePlain(email), htmlPartOf(email)};
  if (!parts.plain && !parts.html) return {nullptr, nullptr, /*isIncomplete=*/true};
  if (parts.plain && isReallyHtml(*parts.plain)) {
    if (!parts.html) parts.html = parts.plain;
    parts.plain = nullptr;
  }
  if (!parts.html) return parts;
  parts.html = holderOfBody(parts.html);
  parts.isIncomplete = !parts.html;
  if (parts.html == parts.plain) parts.plain = nullptr;  // both parts may have the same holder
  return parts;
}

bool lacksText(Email2& email) { return !quotablePlain(email) && !htmlPartOf(email); }

void addEmptyText(Email2& email, LogBase& log) {
  log.logInfo("This email has no plain-text or HTML body...");
  DataBuffer empty;
  StringBuffer type("text/plain");
  email.addAlternativeBody(empty, /*isText=*/true, type, nullptr, log);
}

// Quoting

bool prepend(DataBuffer& body, std::string_view text) { return body.prepend(text.data(), text.size()); }

/// An attached text file keeps its declared charset if the reply header fits into it; else it becomes utf-8.
bool prependToFile(Email2& part, std::string_view header, LogBase& log) {
  const int codePage = labelledCharset(part).getCodePage();
  if (codePage == 0 || codePage == kCpUtf8) return prepend(part.m_body, header);
  DataBuffer converted;
  if (codePageToWrite(codePage, header) == codePage &&
      EncodingConvert::EncConvert(kCpUtf8, codePage, header.data(), header.size(), converted, log))
    return prepend(part.m_body, converted.view());
  converted.clear();
  EncodingConvert::EncConvert(codePage, kCpUtf8, part.m_body.getData2(), part.m_body.getSize(), converted,
                              log);
  part.m_body.takeData(converted);
  labelUtf8(part, log);
  return prepend(part.m_body, header);
}

/// Corrects the charset declared in the HTML, but does not complete its structure, because the reply header
/// is before all tags.
void correctDeclaredCharset(Email2& email, DataBuffer& body, LogBase& log) {
  StringBuffer html(body.view()), declared;
  if (!_svHtmlHelp::getCharset(html, declared)) return;
  if (declared.equalsIgnoreCase(email.get_charset_name())) return;
  _svHtmlHelp::removeCharsetMetaTag(html, log);
  _svHtmlHelp::addCharsetMetaTag(html, email.get_charset_name(), log);
  body.clear();
  body.append(html);
}

/// Chooses charset and encoding as for a new body, because the text may no longer be us-ascii or 7bit.
void chooseCharsetAndEncoding(Email2& email, Email2& part, LogBase& log) {
  const int before = email.emailCodePage();
  email.chooseCharsetIfNecessary(part.m_body, log);
  const int codePage = email.emailCodePage();
  if (codePage != 0) part.setEncodingViaCodePage(codePage, 0, log);
  part.refreshContentTypeHeader(log);
  if (codePage == before || codePage == kCpUsAscii) return;
  if (Email2* const html = htmlPartOf(email); html && isConvertibleText(html->traits()))
    correctDeclaredCharset(email, html->m_body, log);
}

void quote(Email2& email, Email2& part, const std::string& header, LogBase& log) {
  if (part.m_contentType.m_type.isEmpty()) {
    part.fixContentTypeUtf8("text/plain", log);
    if (!part.m_body.is7bit(0)) part.detectAndSetCharset(log);
  }
  if (!isConvertibleText(part.traits())) {
    prependToFile(part, header, log);
  } else if (prepend(part.m_body, header) && !isAscii(header)) {
    refreshCharsetLabel(part, log);
    chooseCharsetAndEncoding(email, part, log);
  }
  if (isDeclared7bit(part) && (!part.m_body.is7bit(0) || part.m_body.hasLineLonger(kMaxLine7bit)))
    setTransferEncoding(part, "quoted-printable", log);
}

// The header

void removeFields(Email2& email, const Conversion& conversion) {
  for (const char* const name : {"x-sender", "x-rcpt-to", "x-uidl", "status", "received"})
    email.removeHeaderField(name);
  if (!conversion.isReply) email.removeHeaderField("SVX-Bounce-Address");
  for (const char* const name : {"return-path", "From", "Reply-To"}) email.removeHeaderField(name);
  email.m_fromAddr.clearEmailAddress();
}

void setRecipients(Email2& email, const Conversion& conversion, LogBase& log) {
  email.clearRecipients(kTo);
  if (conversion.isReply) {
    StringBuffer name, address;
    email.getFromNameUtf8(name, log);
    email.getFromAddrUtf8(address);
    email.addRecipient(kTo, name.getString(), address.getString(), log);
  }
  email.clearRecipients(kBcc);
  email.clearRecipients(kCc);
}

void setFields(Email2& email, LogBase& log) {
  email.setHeaderField("MIME-Version", "1.0", log);
  email.resetDate(log);
  email.generateMessageID(log);
  email.setHeaderField("X-Priority", "3 (Normal)", log);
}

/// False when the conversion must stop.
bool quoteInBodies(Email2& email, const QuotedFields& fields, LogBase& log) {
  const QuotedParts parts = partsToQuote(email);
  if (parts.plain) {
    log.logInfo("Prepending to plain-text body");
    quote(email, *parts.plain, plainReplyHeader(fields), log);
  }
  if (parts.html) {
    log.logInfo("Prepending to HTML body");
    quote(email, *parts.html, htmlReplyHeader(fields), log);
  }
  return !parts.isIncomplete;
}

bool convert(Email2& email, const Conversion& conversion, LogBase& log) {
  LogContextExitor context(log, conversion.context);
  email.removeHdrsForwRepl(log);
  if (lacksText(email)) addEmptyText(email, log);
  const QuotedFields fields = quotedFieldsOf(email, log);
  StringBuffer subject(conversion.subjectPrefix);
  subject.append(std::string_view(fields.subject));
  email.setHeaderField_a("Subject", subject.getString(), /*asGiven=*/false, log);
  // Deliberate: the new subject is kept, as documented for a message without a body to quote.
  if (!quoteInBodies(email, fields, log)) return false;
  setRecipients(email, conversion, log);
  removeFields(email, conversion);
  setFields(email, log);
  return true;
}

}  // namespace

void Email2::convertToReply(LogBase& log) {
  if (isLive()) neverThrow(false, [&] { return convert(*this, kReply, log); });
}

void Email2::convertToForward(LogBase& log) {
  if (isLive()) neverThrow(false, [&] { return convert(*this, kForward, log); });
}

void Email2::removeHdrsForwRepl(LogBase&) {
  if (!isLive()) return;
  removeHeaderField("received");
  for (const char* const prefix : {"dkim-", "svx-", "x-"}) m_header.removeHeadersBeginningWith(prefix);
}

}  // namespace mailtree
