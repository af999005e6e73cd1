// cli/body.cpp - mailtree body: prints the plain-text or HTML body of a message in any charset.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/secure/keys.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/terminal.h"
#include "mailtree/message/outline.h"
#include "mailtree/mime/charset/Charset.h"

namespace mailtree::cli {
namespace {

struct BodyOptions {
  std::string file;
  std::string charset;
  bool text = false;
  bool html = false;
  KeyOptions keys;

  /// The error when there is no such body.
  const char* wanted() const { return text ? "no plain-text body" : html ? "no HTML body" : "no body"; }
};

/// The row of the requested body; -1 when there is none.
int bodyRow(const Outline& outline, const BodyOptions& options) {
  if (options.html || (outline.plainText < 0 && !options.text)) return outline.html;
  return outline.plainText;
}

/// Reports characters that the charset does not have.
std::string inCharset(const BodyOptions& options, std::string text) {
  const int codePage = options.charset.empty() ? kCpUtf8 : codePageOfCharset(options.charset);
  if (codePage == kCpUtf8) return text;
  std::string encoded;
  if (!encodeFromUtf8(codePage, text, encoded))
    reportError(options.file,
                "\"?\" replaces characters that do not exist in " + std::string(charsetNameOf(codePage)));
  return encoded;
}

Exit body(const BodyOptions& options) {
  Keys keys;
  if (const Exit failed = readKeys(options.keys, keys); failed != Exit::fine) return failed;
  std::optional<Message> message = loadMessage(options.file, keys.store);
  if (!message) return Exit::unreadable;
  const Exit result = reportLimits(options.file, message->limits());
  const Outline outline = outlineOf(*message->root);
  const int id = bodyRow(outline, options);
  if (id < 0) {
    reportError(options.file, options.wanted());
    return worse(result, Exit::negative);
  }
  // Not every body is stored as text: untyped bodies and inline text with a file name are stored as bytes.
  std::string text = textOf(outline.row(id));
  if (standardOutputIsTerminal()) text = printableLines(text);
  std::cout << inCharset(options, std::move(text));
  return worse(result, finishStandardOutput());
}

std::string checkCharset(const std::string& name) {
  return codePageOfCharset(name) > 0 ? std::string() : "unknown charset: " + name;
}

}  // namespace

void addBody(CLI::App& app, Action& action) {
  auto options = std::make_shared<BodyOptions>();
  CLI::App* verb = app.add_subcommand("body",
                                      "Print the body: plain text, else HTML; unchanged except for malformed "
                                      "bytes, but made safe on a terminal");
  addText(*verb, "FILE", options->file, "Message; - is standard input")->required();
  CLI::Option* text = verb->add_flag("--text", options->text, "Only plain text; status 1 when there is none");
  verb->add_flag("--html", options->html, "Only HTML; status 1 when there is none")->excludes(text);
  addText(*verb, "--charset", options->charset,
          "Convert to this charset instead of utf-8; \"?\" replaces missing characters")
      ->check(checkCharset);
  addReadingKeyOptions(*verb, options->keys);
  verb->footer(
      "Example:\n  mailtree body samples/newsletter.eml\n  mailtree body --html mail.eml > page.html");
  verb->callback([options, &action] { action = [options] { return body(*options); }; });
}

}  // namespace mailtree::cli
