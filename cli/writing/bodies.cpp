#include "cli/writing/bodies.h"

#include <CLI/CLI.hpp>

#include "cli/message/structure.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/files.h"
#include "mailtree/base/Utf.h"

namespace mailtree::cli {
namespace {

constexpr const char* kPlain = "text/plain";
constexpr const char* kHtml = "text/html";

/// What the files are in.
struct TextCharset {
  int codePage = 0;          ///< 0: utf-8, unless their marks say otherwise.
  bool isOrderOpen = false;  ///< The name is of both byte orders; without a mark, little-endian.
};

TextCharset charsetOf(const std::string& name) {
  const bool isOrderOpen = equalsNoCase(name, "utf-16") || equalsNoCase(name, "utf-32");
  return {codePageOfCharset(name), isOrderOpen};
}

struct ByteOrderMark {
  std::string_view bytes;
  int codePage;
  int swapped;  ///< The code page of the other order.
};

constexpr ByteOrderMark kMarks[] = {
    {"\xEF\xBB\xBF", kCpUtf8, kCpUtf8},
    {std::string_view("\xFF\xFE\0\0", 4), kCpUtf32LE, kCpUtf32BE},
    {std::string_view("\0\0\xFE\xFF", 4), kCpUtf32BE, kCpUtf32LE},
    {"\xFF\xFE", kCpUtf16LE, kCpUtf16BE},
    {"\xFE\xFF", kCpUtf16BE, kCpUtf16LE},
};

bool mayStandIn(const ByteOrderMark& mark, TextCharset charset) {
  const int given = charset.codePage;
  return given == 0 || mark.codePage == given || (charset.isOrderOpen && mark.swapped == given);
}

/// Drops a byte-order mark that the charset has and says what it promises; 0 without one. In any other charset
/// its bytes are letters.
int takeMark(TextCharset charset, std::string_view& bytes) {
  for (const ByteOrderMark& mark : kMarks) {
    if (!bytes.starts_with(mark.bytes) || !mayStandIn(mark, charset)) continue;
    bytes.remove_prefix(mark.bytes.size());
    return mark.codePage;
  }
  return 0;
}

std::string withCrlf(std::string_view text) {
  StringBuffer lines(text);
  lines.toCRLF();
  return lines.extractString();
}

/// A text of the command line is a line or more, and the last one ends too.
Exit takeText(const char* option, const std::string& given, std::string& out) {
  if (!isValidUtf8(given)) return usageError(option, "the text is not utf-8");
  out = withCrlf(given);
  if (!out.empty() && !out.ends_with('\n')) out += "\r\n";
  return Exit::fine;
}

/// Why the bytes of a file are no text in the charset; null when `out` holds them.
const char* decode(std::string_view bytes, TextCharset charset, std::string& out) {
  const int marked = takeMark(charset, bytes);
  const int codePage = marked ? marked : charset.codePage;
  if (codePage == 0 || codePage == kCpUtf8) {
    if (!isValidUtf8(bytes)) return "the text is not utf-8; --text-charset says what it is";
    out = bytes;
  } else if (!decodeToUtf8(codePage, bytes, out)) {
    return charset.codePage ? "the text is not in the charset given"
                            : "the text is not what its byte-order mark says";
  }
  return contains(out, std::string_view("\0", 1)) ? "NUL bytes stand in it: it is no text" : nullptr;
}

Exit readTextFile(const std::string& path, TextCharset charset, std::string& out) {
  DataBuffer bytes;
  if (!readFile(path, bytes)) return Exit::unreadable;
  std::string text;
  if (const char* problem = decode(bytes.view(), charset, text)) {
    reportError(path, problem);
    return Exit::unreadable;
  }
  out = withCrlf(text);
  return Exit::fine;
}

/// One body, from the command line or a file.
Exit readBody(const char* option, const std::optional<std::string>& text,
              const std::optional<std::string>& file, TextCharset charset, std::optional<std::string>& out) {
  if (text) return takeText(option, *text, out.emplace());
  if (file) return readTextFile(*file, charset, out.emplace());
  return Exit::fine;
}

/// A text about to be put into a message.
struct NewText {
  DataBuffer data;
  StringBuffer type;

  bool isHtml() const { return type.equals(kHtml); }
  const char* otherType() const { return isHtml() ? kPlain : kHtml; }
};

bool hasEnclosure(const Email2& email, EnclosureKind kind) {
  return email.findMultipartEnclosure(static_cast<int>(kind), 0) != nullptr;
}

/// Replaces the text that a reader sees, wherever it stands: the library looks for one at the top, which would
/// put a second text beside one that was signed, or take an attached page for the text.
bool replaceText(Email2& email, Email2& part, NewText& text, LogBase& log) {
  return Email2::replaceEmailBody(&part, text.data, /*isText=*/true, email.emailCodePage(), text.type, log);
}

/// Where a text joins the one of the other kind: in the enclosure that is there, else in one made around that
/// text (and its images), so that neither of them ends as an attachment.
Email2* placeBeside(Email2& email, Email2& other, bool isHtml, LogBase& log) {
  if (hasEnclosure(email, EnclosureKind::alternative)) return &email;
  Email2* const related = email.findMultipartEnclosure(static_cast<int>(EnclosureKind::related), 0);
  if (related) return isHtml ? &email : related;
  if (&other != &email)
    return encloseBelow(email, other,
                        EmailPtr(Email2::createEmptyMultipartAlternative(*email.m_common, log)));
  return enclose(email, "multipart/alternative", log) ? &email : nullptr;
}

/// The text that a new one is to stand beside: of the other kind, or whatever else the message has as its only
/// text, such as a calendar. Not `file`, which only looks like one.
Email2* neighbour(Email2& email, const NewText& text, const Email2* file) {
  if (email.getNumParts() == 0) return email.isMultipart() ? nullptr : &email;
  Email2* const other = email.getAlternativeByContentType(text.otherType());
  return other == file ? nullptr : other;
}

/// Whether a text without a neighbour has no enclosure to go to and stands in front of everything. The library
/// would take an attached text of its type for the one to replace.
bool goesFirst(const Email2& email, const NewText& text) {
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

/// The library takes a text set into a single part of the other kind for its replacement; a user who adds a text
/// means to keep both.
bool addBody(Email2& email, NewText& text, const Email2* file, LogBase& log) {
  Email2* const other = neighbour(email, text, file);
  if (other && !other->m_body.isEmpty()) {
    Email2* const place = placeBeside(email, *other, text.isHtml(), log);
    return place && place->addAlternativeBody(text.data, /*isText=*/true, text.type, nullptr, log);
  }
  if (!other && goesFirst(email, text)) return insertFirst(email, text, log);
  // A page that is no alternative is an attached one, and setBody would replace it.
  if (text.isHtml() && email.getNumParts() > 0 && email.findHtmlPart())
    return email.addAlternativeBody(text.data, /*isText=*/true, text.type, nullptr, log);
  return email.setBody(text.data, /*isText=*/true, text.type, nullptr, log);
}

/// @param file  what the whole message was before there was a text; null when it was something else.
bool putText(Email2& email, const char* type, const std::string& body, const Email2* file, LogBase& log) {
  NewText text;
  if (!text.type.setString(type) || !text.data.append(std::string_view(body))) return false;
  // At the root, so that every part follows.
  email.chooseCharsetIfNecessary(text.data, log);
  Email2* const present = email.getAlternativeByContentType(type);
  if (present && present != file) return replaceText(email, *present, text, log);
  return addBody(email, text, file, log);
}

/// A page that nobody changed names the charset in which it came.
void declareCharset(Email2& email, LogBase& log) {
  Email2* const page = email.getHtmlAlternative();
  if (page && isConvertibleText(page->traits())) email.prepHtmlBody(page->m_body, log);
}

/// The part that a reader takes for the text of that type.
Email2* textReadAs(Email2& email, const char* type) {
  const bool isReportText = email.isMultipartReport() && equalsNoCase(type, kPlain);
  return isReportText ? email.getPart(0) : email.getAlternativeByContentType(type);
}

/// Whether a text comes out as it was put in. One that counts as a file is in a charset of its own, and not looked
/// at.
bool readsBack(Email2& email, const char* type, const std::string& wanted, LogBase& log) {
  Email2* const part = textReadAs(email, type);
  if (!part) return false;
  if (part->getNumParts() == 0 && !isConvertibleText(part->traits())) return true;
  StringBuffer found;
  if (equalsNoCase(type, kPlain))
    return email.getPlainTextBodyUtf8(email, found, log) && found.equals(wanted.c_str());
  if (!email.getHtmlBodyUtf8(email, found, log)) return false;
  if (found.equals(wanted.c_str())) return true;
  DataBuffer page;
  if (!page.append(std::string_view(wanted))) return false;
  email.prepHtmlBody(page, log);
  return found.view() == page.view();
}

}  // namespace

void addTextOptions(CLI::App& verb, BodyOptions& options) {
  CLI::Option* text = addText(verb, "--text", options.text, "The plain text");
  addText(verb, "--text-file", options.textFile, "File that holds it; - is standard input")->excludes(text);
}

void addBodyOptions(CLI::App& verb, BodyOptions& options) {
  addTextOptions(verb, options);
  CLI::Option* html = addText(verb, "--html", options.html, "The HTML");
  addText(verb, "--html-file", options.htmlFile, "File that holds it; - is standard input")->excludes(html);
  addText(verb, "--text-charset", options.textCharset,
          "Charset of both files; without it utf-8, or utf-16 or utf-32 with its byte-order mark");
}

Exit readBodies(const BodyOptions& options, Bodies& bodies) {
  TextCharset charset;
  if (options.textCharset) {
    charset = charsetOf(*options.textCharset);
    if (charset.codePage == 0)
      return usageError("--text-charset", "'" + *options.textCharset + "': no charset of that name is known");
  }
  const Exit result = readBody("--text", options.text, options.textFile, charset, bodies.plain);
  if (result != Exit::fine) return result;
  return readBody("--html", options.html, options.htmlFile, charset, bodies.html);
}

void preferCharset(Email2& email, const std::string& name, const Bodies& bodies) {
  email.m_common->m_preferredCharset.setFromUtf8(name.c_str());
  const std::string all = bodies.plain.value_or("") + bodies.html.value_or("");
  if (isAscii(all)) return;
  // Both texts have one charset. Left to choose at the first, the library would settle on what the second may
  // not fit.
  const int codePage = codePageOfCharset(name);
  std::string unused;
  email.use_codepage(encodeFromUtf8(codePage, all, unused) ? codePage : kCpUtf8);
}

bool putBodies(Email2& email, const Bodies& bodies, LogBase& log) {
  // Readers of a flowed text join the lines that end in a blank and take leading blanks away (RFC 3676); the
  // user's lines are to stay as they are.
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
  if (bodies.plain && !readsBack(email, kPlain, *bodies.plain, log)) return false;
  return !bodies.html || readsBack(email, kHtml, *bodies.html, log);
}

}  // namespace mailtree::cli
