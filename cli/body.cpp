// cli/body.cpp - mailtree body: prints what a reader sees of a message, as text or HTML, in any charset.
#include <algorithm>
#include <memory>

#include "cli/commands.h"
#include "cli/message/each_message.h"
#include "cli/secure/keys.h"
#include "cli/support/arguments.h"
#include "cli/support/capture.h"
#include "cli/support/errors.h"
#include "cli/support/terminal.h"
#include "mailtree/message/displayed_text.h"
#include "mailtree/mime/charset/Charset.h"

namespace mailtree::cli {
namespace {

struct BodyOptions {
  SourceArguments sources;
  StreamSettings stream;
  std::string charset;
  bool text = false;
  bool html = false;
  KeyOptions keys;

  /// The error when there is no such body.
  const char* wanted() const { return text ? "no plain-text body" : html ? "no HTML body" : "no body"; }
};

/// What a reader sees, as text unless HTML is wanted; nothing when there is no such body.
std::optional<std::string> bodyOf(Email2& root, const BodyOptions& options) {
  const Outline outline = outlineOf(root);
  const Displayed display = displayedIn(outline);
  const auto shows = [&outline](const std::vector<int>& rows, auto&& isWanted) {
    return std::ranges::any_of(rows, [&](int id) { return isWanted(outline.row(id)); });
  };
  LoadBudget& budget = root.m_common->m_budget;
  if (options.html) {
    if (!shows(display.htmlBody, isHtml)) return std::nullopt;
    return displayedHtml(outline, display, &budget);
  }
  const auto isText = [&options](const PartRow& row) {
    return row.isMessage() || (isReadAsText(row) && !(options.text && isHtml(row)));
  };
  if (!shows(display.textBody, isText)) return std::nullopt;
  return displayedText(outline, display, &budget);
}

/// Reports characters that the charset does not have.
std::string inCharset(const std::string& file, const BodyOptions& options, std::string text) {
  const int codePage = options.charset.empty() ? kCpUtf8 : codePageOfCharset(options.charset);
  if (codePage == kCpUtf8) return text;
  std::string encoded;
  if (!encodeFromUtf8(codePage, text, encoded))
    reportError(file,
                "\"?\" replaces characters that do not exist in " + std::string(charsetNameOf(codePage)));
  return encoded;
}

Exit body(Input& input, const BodyOptions& options, const Keys& keys) {
  std::optional<mailtree::Message> message = openMessage(input, keys.all);
  if (!message) return Exit::unreadable;
  const Exit result = reportLimits(input.name, limitsIn(*message));
  std::optional<std::string> text = bodyOf(message->email2(), options);
  if (!text) {
    reportError(input.name, options.wanted());
    return worse(result, Exit::negative);
  }
  if (standardOutputIsTerminal()) text = printableLines(*text);
  standardOutput() << inCharset(input.name, options, *std::move(text));
  return result;
}

Exit bodies(const BodyOptions& options) {
  Keys keys;
  if (const Exit failed = readKeys(options.keys, keys); failed != Exit::fine) return failed;
  return forEachMessage(options.sources,
                        {.needsAll = false, .stream = streamWith(options.keys, options.stream)},
                        [&](Input& input) { return body(input, options, keys); });
}

std::string checkCharset(const std::string& name) {
  return codePageOfCharset(name) > 0 ? std::string() : "unknown charset: " + name;
}

}  // namespace

void addBody(Verb app, Action& action) {
  auto options = std::make_shared<BodyOptions>();
  const Verb verb = app.addVerb("body",
                                "Print the text that a reader sees: every plain text, and HTML as text "
                                "where there is no other; made safe on a terminal");
  addSources(verb, options->sources);
  const Option text = verb.addFlag("--text", options->text, "Only when there is plain text; else status 1");
  verb.addFlag("--html", options->html, "HTML as it is; status 1 when there is none").excludes(text);
  verb.addText("--charset", options->charset,
               "Convert to this charset instead of utf-8; \"?\" replaces missing characters")
      .check(checkCharset);
  addReadingKeyOptions(verb, options->keys);
  addStreamOptions(verb, options->stream);
  verb.setFooter(
      "Example:\n  mailtree body samples/newsletter.eml\n  mailtree body --html mail.eml > page.html");
  verb.whenChosen([options, &action] { action = [options] { return bodies(*options); }; });
}

}  // namespace mailtree::cli
