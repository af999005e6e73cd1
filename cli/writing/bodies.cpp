#include "cli/writing/bodies.h"

#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/files.h"
#include "cli/support/text_charset.h"
#include "mailtree/base/Utf.h"
#include "mailtree/message/content.h"
#include "mailtree/mime/html/HtmlEscape.h"
#include "mailtree/mime/html/HtmlFrame.h"
#include "mailtree/mime/html/HtmlText.h"

namespace mailtree::cli {
namespace {

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

}  // namespace

void addTextOptions(Verb verb, BodyOptions& options) {
  const Option text = verb.addText("--text", options.text, "Plain text body");
  verb.addText("--text-file", options.textFile, "File with the plain text body; - is standard input")
      .kind(kFile)
      .excludes(text);
}

void addBodyOptions(Verb verb, BodyOptions& options) {
  addTextOptions(verb, options);
  const Option html = verb.addText("--html", options.html, "HTML body");
  verb.addText("--html-file", options.htmlFile, "File with the HTML body; - is standard input")
      .kind(kFile)
      .excludes(html);
  verb.addText("--text-charset", options.textCharset,
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

Result<void> putBodies(mailtree::Message& message, const Bodies& bodies) {
  if (bodies.plain)
    if (Result<void> done = message.setText(*bodies.plain); !done) return done;
  return bodies.html ? message.setHtml(*bodies.html) : Result<void>();
}

}  // namespace mailtree::cli
