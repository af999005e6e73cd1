// cli/body.cpp - mailtree body: the text of a message, plain or HTML, in any charset.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "cli/arguments.h"
#include "cli/commands.h"
#include "cli/input.h"
#include "cli/views/outline.h"
#include "cli/views/terminal.h"
#include "mailtree/mime/Charset.h"

namespace mailtree::cli {
namespace {

struct BodyOptions {
  std::string file;
  std::string charset;
  bool text = false;
  bool html = false;

  /// What is missing when there is no such body.
  const char* wanted() const { return text ? "no plain-text body" : html ? "no HTML body" : "no body"; }
};

/// Mail that names no type is plain text (RFC 2045, 5.2), which the library leaves to its callers. Its bytes are
/// as they came, for they are no text to it.
bool readUntyped(Email2& root, StringBuffer& out) {
  if (!root.m_contentType.m_type.isEmpty()) return false;
  const Outline outline = outlineOf(root);
  return outline.plainText >= 0 && out.append(textOf(outline.row(outline.plainText)));
}

bool readBody(Email2& root, const BodyOptions& options, StringBuffer& out) {
  LogNull log;
  if (!options.html && (root.getPlainTextBodyUtf8(root, out, log) || readUntyped(root, out))) return true;
  return !options.text && root.getHtmlBodyUtf8(root, out, log);
}

/// Complains about what the charset does not have.
std::string inCharset(const BodyOptions& options, std::string_view text) {
  const int codePage = options.charset.empty() ? kCpUtf8 : codePageOfCharset(options.charset);
  if (codePage == kCpUtf8) return std::string(text);
  std::string encoded;
  if (!encodeFromUtf8(codePage, text, encoded))
    complain(options.file,
             "\"?\" stands for characters that do not exist in " + std::string(charsetNameOf(codePage)));
  return encoded;
}

Exit body(const BodyOptions& options) {
  std::optional<Message> message = loadMessage(options.file);
  if (!message) return Exit::unreadable;
  const Exit result = reportLimits(options.file, message->limits());
  StringBuffer text;
  if (!readBody(*message->root, options, text)) {
    complain(options.file, options.wanted());
    return graver(result, Exit::negative);
  }
  std::cout << inCharset(options, standardOutputIsTerminal() ? printableLines(text) : text.extractString());
  return graver(result, finishStandardOutput());
}

std::string checkCharset(const std::string& name) {
  return codePageOfCharset(name) > 0 ? std::string() : "unknown charset: " + name;
}

}  // namespace

void addBody(CLI::App& app, Action& action) {
  auto options = std::make_shared<BodyOptions>();
  CLI::App* verb = app.add_subcommand(
      "body", "Print the body: plain text, else HTML; exactly its bytes, unless onto a terminal");
  addText(*verb, "FILE", options->file, "Message; - is standard input")->required();
  CLI::Option* text =
      verb->add_flag("--text", options->text, "The plain text only; status 1 when there is none");
  verb->add_flag("--html", options->html, "The HTML only; status 1 when there is none")->excludes(text);
  addText(*verb, "--charset", options->charset,
          "Convert to this charset instead of utf-8; \"?\" for what it does not have")
      ->check(checkCharset);
  verb->footer(
      "Example:\n  mailtree body samples/newsletter.eml\n  mailtree body --html mail.eml > page.html");
  verb->callback([options, &action] { action = [options] { return body(*options); }; });
}

}  // namespace mailtree::cli
