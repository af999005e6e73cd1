#include "cli/writing/bodies.h"

#include <CLI/CLI.hpp>

#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/files.h"
#include "cli/support/text_charset.h"
#include "mailtree/base/Utf.h"
#include "mailtree/message/content.h"
#include "mailtree/message/tree_changes.h"
#include "mailtree/mime/html/HtmlEscape.h"
#include "mailtree/mime/html/HtmlFrame.h"
#include "mailtree/mime/html/HtmlText.h"

namespace mailtree::cli {
namespace {

constexpr const char* kPlain = "text/plain";
constexpr const char* kHtml = "text/html";

/// Text from the command line is one or more whole lines: adds the final line break.
Exit readTextOption(const char* option, const std::string& given, std::string& out) {
  if (!isValidUtf8(given)) return usageError(option, "the text is not valid utf-8");
  out = withCrlf(given);
  if (!out.empty() && !out.ends_with('\n')) out += "\r\n";
  return Exit::fine;
}

Exit readTextFile(const std::string& path, TextCharset charset, std::string& out) {
  DataBuffer bytes;
  if (!readFile(path, bytes)) return Exit::unreadable;
  std::string text;
  if (const auto problem = decodeText(bytes.view(), charset, "--text-charset", text)) {
    reportError(path, *problem);
    return Exit::unreadable;
  }
  out = withCrlf(text);
  return Exit::fine;
}

/// One body, from the command line or a file.
Exit readBody(const char* option, const std::optional<std::string>& text,
              const std::optional<std::string>& file, TextCharset charset, std::optional<std::string>& out) {
  if (text) return readTextOption(option, *text, out.emplace());
  if (file) return readTextFile(*file, charset, out.emplace());
  return Exit::fine;
}

// Signatures

constexpr std::string_view kSignatureMark = "-- \r\n";

/// The mark, by which programs know a signature, is added unless the file begins with it.
std::string signatureOf(std::string text) {
  if (!text.starts_with(kSignatureMark)) text.insert(0, kSignatureMark);
  if (!text.ends_with('\n')) text += "\r\n";
  return text;
}

std::string asHtml(std::string_view signature) {
  StringBuffer lines(escapeHtml(trimRight(signature)));
  lines.replaceAllOccurances("\r\n", "<br>\r\n");
  return "<div>" + lines.extractString() + "</div>\r\n";
}

void addSignature(const std::string& signature, Bodies& bodies) {
  if (bodies.html) bodies.html = frameHtml(*bodies.html, {}, asHtml(signature));
  if (bodies.html && !bodies.plain) return;
  std::string& plain = bodies.plain ? *bodies.plain : bodies.plain.emplace();
  if (!plain.empty() && !plain.ends_with('\n')) plain += "\r\n";
  plain += signature;
}

/// A text to be added to a message.
struct NewText {
  DataBuffer data;
  StringBuffer type;

  bool isHtml() const { return type.equals(kHtml); }
  const char* otherType() const { return isHtml() ? kPlain : kHtml; }
};

bool hasEnclosure(const Email2& email, EnclosureKind kind) {
  return email.findMultipartEnclosure(static_cast<int>(kind), 0) != nullptr;
}

/// Replaces the displayed body, wherever it is. The library only searches at the top level, and would add a
/// second body beside a signed one or replace an attached HTML file.
bool replaceText(Email2& email, Email2& part, NewText& text, LogBase& log) {
  return Email2::replaceEmailBody(&part, text.data, /*isText=*/true, email.emailCodePage(), text.type, log);
}

/// Returns the container for a body beside the body of the other type: the existing one, or a new one around
/// that body and its images. Otherwise one of them would become an attachment.
Email2* placeBeside(Email2& email, Email2& other, bool isHtml, LogBase& log) {
  if (hasEnclosure(email, EnclosureKind::alternative)) return &email;
  Email2* const related = email.findMultipartEnclosure(static_cast<int>(EnclosureKind::related), 0);
  if (related) return isHtml ? &email : related;
  if (&other != &email)
    return encloseBelow(email, other,
                        EmailPtr(Email2::createEmptyMultipartAlternative(*email.m_common, log)));
  return enclose(email, "multipart/alternative", log) ? &email : nullptr;
}

/// The body that the new one goes beside: of the other type, or the only text of the message, such as a
/// calendar. Never `file`, which is an attached text file.
Email2* siblingText(Email2& email, const NewText& text, const Email2* file) {
  if (email.getNumParts() == 0) return email.isMultipart() ? nullptr : &email;
  Email2* const other = email.getAlternativeByContentType(text.otherType());
  return other == file ? nullptr : other;
}

/// Whether the new body must be inserted as first part of the multipart/mixed. The library would replace an
/// attached text file of the same type.
bool belongsFirst(const Email2& email, const NewText& text) {
  if (!email.isMultipartMixed() || email.getNumParts() == 0) return false;
  if (hasEnclosure(email, EnclosureKind::alternative)) return false;
  return !text.isHtml() || !hasEnclosure(email, EnclosureKind::related);
}

bool insertFirst(Email2& email, NewText& text, LogBase& log) {
  if (text.isHtml()) email.prepHtmlBody(text.data, log);
  Email2* const part =
      email.createNonMultipart(text.data, /*isText=*/true, email.emailCodePage(), text.type, log);
  email.insertSubPartAtIndex(part, 0);
  return part != nullptr;
}

/// Adds a text body beside the existing one. The library would replace a single part of the other type, but
/// the user wants both.
bool addBody(Email2& email, NewText& text, const Email2* file, LogBase& log) {
  Email2* const other = siblingText(email, text, file);
  if (other && !other->m_body.isEmpty()) {
    Email2* const place = placeBeside(email, *other, text.isHtml(), log);
    return place && place->addAlternativeBody(text.data, /*isText=*/true, text.type, nullptr, log);
  }
  if (!other && belongsFirst(email, text)) return insertFirst(email, text, log);
  // An HTML part that is not an alternative is an attachment, and setBody would replace it.
  if (text.isHtml() && email.getNumParts() > 0 && email.findHtmlPart())
    return email.addAlternativeBody(text.data, /*isText=*/true, text.type, nullptr, log);
  return email.setBody(text.data, /*isText=*/true, text.type, nullptr, log);
}

/// @param file  the root's old content, moved into a part, if it was a file; else null.
bool putText(Email2& email, const char* type, const std::string& body, const Email2* file, LogBase& log) {
  NewText text;
  if (!text.type.setString(type) || !text.data.append(std::string_view(body))) return false;
  // The charset applies to the whole message.
  email.chooseCharsetIfNecessary(text.data, log);
  Email2* const present = email.getAlternativeByContentType(type);
  if (present && present != file) return replaceText(email, *present, text, log);
  return addBody(email, text, file, log);
}

/// Updates the charset declared in an HTML body that was not replaced.
void declareCharset(Email2& email, LogBase& log) {
  Email2* const html = email.getHtmlAlternative();
  if (html && isConvertibleText(html->traits())) email.prepHtmlBody(html->m_body, log);
}

/// The part that is displayed as the body of this type.
Email2* textReadAs(Email2& email, const char* type) {
  const bool isReportText = email.isMultipartReport() && equalsNoCase(type, kPlain);
  return isReportText ? email.getPart(0) : email.getAlternativeByContentType(type);
}

/// Whether a body reads back unchanged. An attached text file has its own charset and is not compared.
bool isReadBack(Email2& email, const char* type, const std::string& wanted, LogBase& log) {
  Email2* const part = textReadAs(email, type);
  if (!part) return false;
  if (part->getNumParts() == 0 && !isConvertibleText(part->traits())) return true;
  StringBuffer found;
  if (equalsNoCase(type, kPlain))
    return email.getPlainTextBodyUtf8(email, found, log) && found.equals(wanted.c_str());
  if (!email.getHtmlBodyUtf8(email, found, log)) return false;
  if (found.equals(wanted.c_str())) return true;
  DataBuffer body;
  if (!body.append(std::string_view(wanted))) return false;
  email.prepHtmlBody(body, log);
  return found.view() == body.view();
}

}  // namespace

void addTextOptions(CLI::App& verb, BodyOptions& options) {
  CLI::Option* text = addText(verb, "--text", options.text, "Plain text body");
  addText(verb, "--text-file", options.textFile, "File with the plain text body; - is standard input")
      ->type_name(kFile)
      ->excludes(text);
}

void addBodyOptions(CLI::App& verb, BodyOptions& options) {
  addTextOptions(verb, options);
  CLI::Option* html = addText(verb, "--html", options.html, "HTML body");
  addText(verb, "--html-file", options.htmlFile, "File with the HTML body; - is standard input")
      ->type_name(kFile)
      ->excludes(html);
  addText(verb, "--text-charset", options.textCharset,
          "Charset of both files (default: utf-8, or utf-16 or utf-32 with a byte order mark)");
}

Exit readBodies(const BodyOptions& options, Bodies& bodies) {
  TextCharset charset;
  if (options.textCharset) {
    charset = charsetOf(*options.textCharset);
    if (charset.codePage == 0)
      return usageError("--text-charset", "'" + *options.textCharset + "': unknown charset");
  }
  const Exit result = readBody("--text", options.text, options.textFile, charset, bodies.plain);
  if (result != Exit::fine) return result;
  if (const Exit read = readBody("--html", options.html, options.htmlFile, charset, bodies.html);
      read != Exit::fine)
    return read;
  if (options.makesText && bodies.html && !bodies.plain)
    if (const std::string text = textOfHtml(*bodies.html); !text.empty()) bodies.plain = withCrlf(text);
  if (!options.signatureFile) return Exit::fine;
  std::string signature;
  const Exit read = readTextFile(*options.signatureFile, charset, signature);
  if (read == Exit::fine && !trim(signature).empty()) addSignature(signatureOf(signature), bodies);
  return read;
}

void preferCharset(Email2& email, const std::string& name, const Bodies& bodies) {
  email.m_common->m_preferredCharset.setFromUtf8(name.c_str());
  const std::string all = bodies.plain.value_or("") + bodies.html.value_or("");
  if (isAscii(all)) return;
  // Both bodies share one charset. The library would choose it by the first one, and the second may not fit.
  const int codePage = codePageOfCharset(name);
  std::string unused;
  email.use_codepage(encodeFromUtf8(codePage, all, unused) ? codePage : kCpUtf8);
}

bool putBodies(Email2& email, const Bodies& bodies, LogBase& log) {
  // Mail clients join lines of flowed text that end in a blank and remove leading blanks (RFC 3676), but the
  // user's lines must not change.
  _svContentType::m_noFormatFlowed = true;
  if (!bodies.plain && !bodies.html) return true;
  labelUntypedBody(email, log);
  const Email2* const file = moveIntoMixed(email, log);
  const int codePage = email.emailCodePage();
  if (bodies.plain && !putText(email, kPlain, *bodies.plain, file, log)) return false;
  if (bodies.html && !putText(email, kHtml, *bodies.html, file, log)) return false;
  const int chosen = email.emailCodePage();
  if (chosen != codePage && chosen != kCpUsAscii) declareCharset(email, log);
  return true;
}

bool bodiesReadBack(Email2& email, const Bodies& bodies, LogBase& log) {
  if (bodies.plain && !isReadBack(email, kPlain, *bodies.plain, log)) return false;
  return !bodies.html || isReadBack(email, kHtml, *bodies.html, log);
}

}  // namespace mailtree::cli
