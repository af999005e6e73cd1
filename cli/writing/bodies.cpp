#include "cli/writing/bodies.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iterator>

#include "cli/arguments.h"
#include "cli/input.h"
#include "mailtree/base/Utf.h"

namespace mailtree::cli {
namespace {

constexpr int kCpUtf32LE = 12000, kCpUtf32BE = 12001;
constexpr const char* kPlain = "text/plain";
constexpr const char* kHtml = "text/html";

struct ByteOrderMark {
  std::string_view bytes;
  int codePage;
};

constexpr ByteOrderMark kMarks[] = {
    {"\xEF\xBB\xBF", kCpUtf8},
    {"\xFF\xFE", kCpUtf16LE},
    {"\xFE\xFF", kCpUtf16BE},
};

/// Drops a byte-order mark and says what it promises; 0 without one.
int takeMark(std::string_view& bytes) {
  for (const ByteOrderMark& mark : kMarks) {
    if (!bytes.starts_with(mark.bytes)) continue;
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
  if (!isValidUtf8(given)) return refuse(option, "the text is not utf-8");
  out = withCrlf(given);
  if (!out.empty() && !out.ends_with('\n')) out += "\r\n";
  return Exit::fine;
}

/// Why the bytes of a file are no text in the code page (0: utf-8); null when `out` holds them.
const char* decode(std::string_view bytes, int codePage, std::string& out) {
  const int marked = takeMark(bytes);
  if (marked) codePage = marked;
  if (codePage == 0) codePage = kCpUtf8;
  if (codePage == kCpUtf8) {
    if (!isValidUtf8(bytes)) return "the text is not utf-8; --text-charset says what it is";
    out = bytes;
  } else if (!decodeToUtf8(codePage, bytes, out)) {
    return marked ? "the text is not the utf-16 that it says it is" : "the text is not in the charset given";
  }
  return contains(out, std::string_view("\0", 1)) ? "NUL bytes stand in it: it is no text" : nullptr;
}

Exit readTextFile(const std::string& path, int codePage, std::string& out) {
  DataBuffer bytes;
  if (!readFile(path, bytes)) return Exit::unreadable;
  std::string text;
  if (const char* problem = decode(bytes.view(), codePage, text)) {
    complain(path, problem);
    return Exit::unreadable;
  }
  out = withCrlf(text);
  return Exit::fine;
}

/// One body, from the command line or a file.
Exit readBody(const char* option, const std::optional<std::string>& text,
              const std::optional<std::string>& file, int codePage, std::optional<std::string>& out) {
  if (text) return takeText(option, *text, out.emplace());
  if (file) return readTextFile(*file, codePage, out.emplace());
  return Exit::fine;
}

/// Replaces the text that a reader sees, wherever it stands: the library looks for one at the top, which would
/// put a second text beside one that was signed.
bool replaceText(Email2& email, Email2& part, DataBuffer& data, StringBuffer& type, LogBase& log) {
  email.chooseCharsetIfNecessary(data, log);
  return Email2::replaceEmailBody(&part, data, /*isText=*/true, email.emailCodePage(), type, log);
}

/// Where a text joins the one of the other kind: in the enclosure that is there, else in one made around that
/// text (and its images), so that neither of them ends as an attachment.
Email2& placeBeside(Email2& email, Email2& other, bool isHtml) {
  if (email.findMultipartEnclosure(static_cast<int>(EnclosureKind::alternative), 0)) return email;
  Email2* const related = email.findMultipartEnclosure(static_cast<int>(EnclosureKind::related), 0);
  if (related) return isHtml ? email : *related;
  return other;
}

/// The library takes a text set into a single part of the other kind for its replacement; a user who adds a text
/// means to keep both.
bool addBody(Email2& email, Email2* other, DataBuffer& data, StringBuffer& type, LogBase& log) {
  if (!other || other->m_body.isEmpty()) return email.setBody(data, /*isText=*/true, type, nullptr, log);
  Email2& place = placeBeside(email, *other, type.equals(kHtml));
  return place.addAlternativeBody(data, /*isText=*/true, type, nullptr, log);
}

bool putPlain(Email2& email, const std::string& text, LogBase& log) {
  DataBuffer data;
  StringBuffer type(kPlain);
  if (!data.append(std::string_view(text))) return false;
  if (Email2* const present = email.getPlainTextAlternative())
    return replaceText(email, *present, data, type, log);
  return addBody(email, email.getHtmlAlternative(), data, type, log);
}

bool putHtml(Email2& email, const std::string& html, LogBase& log) {
  DataBuffer data;
  StringBuffer type(kHtml);
  if (!data.append(std::string_view(html))) return false;
  Email2* const other = email.getHtmlAlternative() ? nullptr : email.getPlainTextAlternative();
  return addBody(email, other, data, type, log);
}

}  // namespace

void addBodyOptions(CLI::App& verb, BodyOptions& options) {
  CLI::Option* text = addText(verb, "--text", options.text, "The plain text");
  addText(verb, "--text-file", options.textFile, "File that holds it; - is standard input")->excludes(text);
  CLI::Option* html = addText(verb, "--html", options.html, "The HTML");
  addText(verb, "--html-file", options.htmlFile, "File that holds it; - is standard input")->excludes(html);
  addText(verb, "--text-charset", options.textCharset,
          "Charset of both files; without it utf-8, or utf-16 with its byte-order mark");
}

Exit readBodies(const BodyOptions& options, Bodies& bodies) {
  const int codePage = options.textCharset ? codePageOfCharset(*options.textCharset) : 0;
  if (options.textCharset && codePage == 0)
    return refuse("--text-charset", "'" + *options.textCharset + "': no charset of that name is known");
  const Exit result = readBody("--text", options.text, options.textFile, codePage, bodies.plain);
  if (result != Exit::fine) return result;
  return readBody("--html", options.html, options.htmlFile, codePage, bodies.html);
}

bool isMailCharset(const std::string& name) {
  const int codePage = codePageOfCharset(name);
  constexpr int kWide[] = {0, kCpUtf16LE, kCpUtf16BE, kCpUtf32LE, kCpUtf32BE};
  return std::find(std::begin(kWide), std::end(kWide), codePage) == std::end(kWide);
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
  if (bodies.plain && !putPlain(email, *bodies.plain, log)) return false;
  return !bodies.html || putHtml(email, *bodies.html, log);
}

}  // namespace mailtree::cli
