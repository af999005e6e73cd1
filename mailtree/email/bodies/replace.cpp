// email/bodies/replace.cpp - puts a new body in its place: replacing the old one, beside it as an
// alternative, or in the multipart/related of its images.

#include "mailtree/email/internal.h"
#include "mailtree/mime/charset/WrittenCharset.h"

namespace mailtree {
namespace {

constexpr int kRelated = static_cast<int>(EnclosureKind::related);

void setOut(Email2** outPart, Email2* part) noexcept {
  if (outPart) *outPart = part;
}

bool isPlain(const StringBuffer& type) noexcept { return equalsNoCase(type, "text/plain"); }
bool isHtml(const StringBuffer& type) noexcept { return equalsNoCase(type, "text/html"); }

void logVerbose(LogBase& log, const char* text) {
  if (log.m_verboseLogging) log.logInfo(text);
}

void logDebug(LogBase& log, const char* text) {
  if (log.m_debugLogging) log.logInfo(text);
}

/// A body cannot be a multipart, so a multipart type is replaced.
void replaceMultipartType(StringBuffer& type, bool isText, LogBase& log) {
  if (!beginsWithNoCase(type, "multipart/")) return;
  log.logError("Invalid body content type.");
  type.setString(isText ? "text/plain" : "application/octet-stream");
}

bool mayBeFlowed() noexcept { return !_svContentType::m_noFormatFlowed; }

void encodeLongLines(Email2& part, const char* message, LogBase& log) {
  if (!part.m_transferEncoding.equals("7bit") || !part.m_body.hasLineLonger(kMaxLine7bit)) return;
  log.logInfo(message);
  setTransferEncoding(part, "quoted-printable", log);
}

/// The subpart of an enclosure that a body of this type replaces: not an attached file, and not `kept`, the
/// bytes of a multipart that could not be split.
Email2* findReplaceable(const Email2& enclosure, const StringBuffer& type, const Email2* kept) {
  for (int i = 0; i < enclosure.getNumParts(); ++i) {
    Email2* const part = enclosure.getPart(i);
    if (part && part != kept && part->equalsContentType(type.getString()) &&
        !part->isStrictAttachment(nullptr))
      return part;
  }
  return nullptr;
}

void storeBody(Email2& part, DataBuffer& data, bool isText, LogBase& log) {
  if (isText) return storeText(part, data, log);
  part.m_body.takeData(data);
}

/// Keeps type, Content-Type field and charset; output writes the email's charset anyway.
void replaceInPlace(Email2& part, DataBuffer& data, bool isText, const StringBuffer& type, LogBase& log) {
  storeBody(part, data, isText, log);
  if (!isText) return setTransferEncoding(part, "base64", log);
  if (part.emailCodePage() != 0) part.setEncodingViaCodePage(part.emailCodePage(), 0, log);
  if (isPlain(type)) part.m_contentType.m_formatFlowed = mayBeFlowed();
  encodeLongLines(part,
                  "Automatically setting Content-Transfer-Encoding equal to quoted-printable because of long "
                  "line length. (2)",
                  log);
}

/// Mail clients display the last alternative they support, so plain text goes first (RFC 2046, 5.1.4).
void insertByType(Email2& enclosure, Email2* part, bool htmlFirst, const StringBuffer& type) {
  if (isPlain(type)) part->m_contentType.m_formatFlowed = mayBeFlowed();
  const bool goesFirst = isPlain(type) || (htmlFirst && isHtml(type));
  enclosure.insertSubPartAtIndex(part, goesFirst ? 0 : -1);
}

bool put(Email2& email, Email2& enclosure, const Email2* kept, bool htmlFirst, DataBuffer& data, bool isText,
         StringBuffer& type, Email2** outPart, LogBase& log) {
  if (Email2* const part = findReplaceable(enclosure, type, kept)) {
    replaceInPlace(*part, data, isText, type, log);
    setOut(outPart, part);
    return true;
  }
  EmailPtr part(email.createNonMultipart(data, isText, email.emailCodePage(), type, log));
  if (!part) return false;
  setOut(outPart, part.get());
  insertByType(enclosure, part.release(), htmlFirst, type);
  return true;
}

/// Two texts of one type are not alternatives: moves the kept one beside its enclosure, into a
/// multipart/mixed around both. Returns the enclosure, now empty; null when memory ran out.
Email2* moveBesideKept(Email2& alternative, LogBase& log) {
  alternative.convertToMultipartX("multipart/mixed", log);
  Email2* const inner = alternative.isMultipartMixed() ? alternative.getPart(0) : nullptr;
  if (inner) alternative.insertSubPartAtIndex(inner->extractSubpartByIndex(0), -1);
  return inner;
}

/// Whether a multipart/mixed begins with a text that would become an attachment when an enclosure is
/// put before it.
bool beginsWithLooseText(const Email2& email) {
  LogNull quiet;
  Email2* const first = email.isMultipartMixed() ? email.getPart(0) : nullptr;
  return first && first->m_contentType.m_type.equals("text/plain") &&
         !first->isEmailAttachment(/*inMixed=*/true, quiet);
}

Email2* makeAlternative(Email2& email, LogBase& log) {
  if (beginsWithLooseText(email)) email.moveMtMixedPlainTextToAlt(log);
  return email.ensureAlternativeEnclosure(log);
}

/// Adds a first body to a multipart without an enclosure for it.
bool addToMultipart(Email2& email, DataBuffer& data, bool isText, StringBuffer& type, Email2** outPart,
                    LogBase& log) {
  logDebug(log, "Adding new non-multipart body...");
  const Email2* const kept = moveUnsplitBytesToPart(email, log);
  Email2* const first = email.getPart(0);
  // Deliberate: only a real multipart/mixed, not types treated like one.
  if (isHtml(type) && email.m_contentType.m_type.equals("multipart/mixed") && first &&
      first->equalsContentType("text/plain")) {
    if (!first->m_body.isEmpty()) return email.addAlternativeBody(data, isText, type, outPart, log);
    // Deliberate: in this case the caller is not told which part it is.
    return Email2::replaceEmailBody(first, data, isText, email.emailCodePage(), type, log);
  }
  logVerbose(log, "Inserting new MIME part...");
  return put(email, email, kept, /*htmlFirst=*/false, data, isText, type, outPart, log);
}

}  // namespace

void storeText(Email2& part, DataBuffer& utf8, LogBase& log) {
  part.m_body.takeData(utf8);
  refreshCharsetLabel(part, log);
  if (isConvertibleText(part.traits()) || !beginsWithNoCase(part.m_contentType.m_type, "text/")) return;
  neverThrow(false, [&] {
    const int labelled = labelledCharset(part).getCodePage();
    if (labelled == kCpUtf8 || (labelled == 0 && part.m_body.is7bit(0))) return true;
    DataBuffer own;
    const DataBuffer& body = part.m_body;
    const int codePage = codePageToWrite(labelled, body.view());
    const bool isCarried = codePage != 0 && EncodingConvert::EncConvert(kCpUtf8, codePage, body.getData2(),
                                                                        body.getSize(), own, log);
    if (isCarried) part.m_body.takeData(own);
    if (!isCarried || codePage != labelled) labelCodePage(part, isCarried ? codePage : kCpUtf8, log);
    return true;
  });
}

bool Email2::setBody(DataBuffer& data, bool isText, StringBuffer& type, Email2** outPart, LogBase& log) {
  if (!isLive()) return false;
  LogContextExitor context(log, "setBody");
  if (log.m_verboseLogging) {
    log.LogDataSb("content-type", type);
    log.LogDataLong("isText", isText);
  }
  if (isText) chooseCharsetIfNecessary(data, log);
  const int codePage = emailCodePage();
  setOut(outPart, nullptr);
  const bool isHtmlText = isText && isHtml(type);

  if (Email2* const html = isHtmlText ? findHtmlPart() : nullptr) {
    logVerbose(log, "Found existing HTML body.");
    setOut(outPart, html);
    return replaceEmailBody(html, data, true, codePage, type, log);
  }
  replaceMultipartType(type, isText, log);
  if (findMultipartEnclosure(kAlternative, 0)) {
    logVerbose(log, "Found multipart/alternative enclosure.");
    return addAlternativeBody(data, isText, type, outPart, log);
  }
  logDebug(log, "No multipart/alternative enclosure found to exist yet.");
  if (isHtmlText) {
    if (findMultipartEnclosure(kRelated, 0)) {
      logVerbose(log, "Found multipart/related enclosure.");
      return addAlternativeBody(data, true, type, outPart, log);
    }
    logDebug(log, "No multipart/related enclosure found to exist yet.");
    prepHtmlBody(data, log);
  }
  if (isMultipart()) return addToMultipart(*this, data, isText, type, outPart, log);

  logDebug(log, "Replacing THIS body...");
  setOut(outPart, this);
  replaceEmailBody(this, data, isText, codePage, type, log);
  return true;
}

bool Email2::addAlternativeBody(DataBuffer& data, bool isText, StringBuffer& type, Email2** outPart,
                                LogBase& log) {
  if (!isLive()) return false;
  LogContextExitor context(log, "addAlternativeBody");
  setOut(outPart, nullptr);
  replaceMultipartType(type, isText, log);
  if (isText) chooseCharsetIfNecessary(data, log);
  if (isText && isHtml(type)) {
    prepHtmlBody(data, log);
    if (Email2* const related = findMultipartEnclosure(kRelated, 0)) {
      logVerbose(log, "Adding/replacing HTML body under pre-existing RELATED enclosure.");
      return replaceOrAddNonMultipart(related, true, data, isText, type, outPart, log);
    }
  }

  logVerbose(log, "Looking for an existing ALTERNATIVE enclosure.");
  Email2* alternative = findMultipartEnclosure(kAlternative, 0);
  if (!alternative) {
    logVerbose(log, "Did not find an existing ALTERNATIVE enclosure, adding one..");
    alternative = makeAlternative(*this, log);
  }
  if (!alternative) {
    log.logError("Failed to find alternative enclosure after just adding it.");
    return false;
  }
  return replaceOrAddNonMultipart(alternative, false, data, isText, type, outPart, log);
}

bool Email2::replaceOrAddNonMultipart(Email2* enclosure, bool htmlFirst, DataBuffer& data, bool isText,
                                      StringBuffer& type, Email2** outPart, LogBase& log) {
  if (!isLive()) return false;
  setOut(outPart, nullptr);
  if (!enclosure) return false;
  const Email2* const kept = moveUnsplitBytesToPart(*enclosure, log);
  if (kept && enclosure->isMultipartAlternative() && kept->equalsContentType(type.getString()))
    enclosure = moveBesideKept(*enclosure, log);
  return enclosure && put(*this, *enclosure, kept, htmlFirst, data, isText, type, outPart, log);
}

bool Email2::replaceEmailBody(Email2* target, DataBuffer& data, bool isText, int codePage, StringBuffer& type,
                              LogBase& log) {
  if (!target) return false;
  LogContextExitor context(log, "replaceBody");
  _svContentType& contentType = target->m_contentType;
  if (!type.isEmpty()) {
    contentType.m_type.setString(trim(type));
    contentType.m_type.toLowerCase();
  }
  if (!isText)
    setTransferEncoding(*target, "base64", log);
  else if (codePage != 0)
    target->setEncodingViaCodePage(codePage, 0, log);
  contentType.m_formatFlowed = isPlain(type) && mayBeFlowed();
  target->refreshContentTypeHeader(log);
  storeBody(*target, data, isText, log);
  encodeLongLines(*target,
                  "Automatically setting Content-Transfer-Encoding equal to quoted-printable because of long "
                  "line length.",
                  log);
  return true;
}

Email2* Email2::createNonMultipart(DataBuffer& data, bool isText, int codePage, StringBuffer& type,
                                   LogBase& log) {
  if (!isLive() || !m_common) return nullptr;
  EmailPtr part(createNewObject(*m_common));
  if (!part) return nullptr;
  replaceEmailBody(part.get(), data, isText, codePage, type, log);
  return part.release();
}

bool Email2::addReplaceAlternative(Email2* part, const char* type, LogBase& log) {
  if (!isLive() || !part) return false;
  Email2* const enclosure = ensureAlternativeEnclosure(log);
  if (!enclosure) return false;
  const Email2* const kept = moveUnsplitBytesToPart(*enclosure, log);
  if (!kept || !kept->equalsContentType(type)) removeAlternative(type, log);
  return enclosure->m_subParts.appendObject(part);
}

void Email2::setBodyDb(const DataBuffer& data) {
  if (!isLive() || &data == &m_body) return;
  DataBuffer copy;
  if (copy.append(data)) m_body.takeData(copy);
}

}  // namespace mailtree
