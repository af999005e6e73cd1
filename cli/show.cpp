// cli/show.cpp - mailtree show: shows a message to people, or as JSON.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <utility>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/secure/keys.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/files.h"
#include "cli/views/json_view.h"
#include "cli/views/text_view.h"

namespace mailtree::cli {
namespace {

struct ShowOptions {
  std::vector<std::string> files;
  bool json = false;
  bool headers = false;
  bool verbose = false;
  bool color = false;
  bool noColor = false;
  KeyOptions keys;
};

ColorChoice choiceOf(const ShowOptions& options) {
  if (options.noColor) return ColorChoice::never;
  return options.color ? ColorChoice::always : ColorChoice::automatic;
}

void writeTitle(const std::string& file, bool isFirst, const Style& style) {
  std::cout << (isFirst ? "" : "\n") << style.paint(Ink::bold, "== " + printable(file) + " ==") << '\n';
}

Exit showOne(const std::string& file, const ShowOptions& options, Keys& keys, const Style& style,
             bool isFirst) {
  std::optional<mailtree::Message> message = openMessage(file, keys.all);
  if (!message) return Exit::unreadable;
  if (options.json) {
    std::cout << jsonOf(file, *message, {options.headers}) << '\n';
  } else {
    if (options.files.size() > 1) writeTitle(file, isFirst, style);
    writeText(std::cout, *message, {style, options.headers, options.verbose});
  }
  return reportLimits(file, limitsIn(*message));
}

/// Replaces folders with their files.
Exit openFolders(ShowOptions& options) {
  Exit result = Exit::fine;
  std::vector<std::string> files;
  for (const std::string& path : options.files) result = worse(result, appendFiles(path, files));
  options.files = std::move(files);
  return result;
}

Exit show(ShowOptions options) {
  Keys keys;
  if (const Exit result = readKeys(options.keys, keys); result != Exit::fine) return result;
  const Style style = styleOfStandardOutput(choiceOf(options));
  Exit result = openFolders(options);
  bool isFirst = true;
  for (const std::string& file : options.files) {
    result = worse(result, showOne(file, options, keys, style, isFirst));
    isFirst = false;
  }
  return worse(result, finishStandardOutput());
}

}  // namespace

void addShow(CLI::App& app, Action& action) {
  auto options = std::make_shared<ShowOptions>();
  CLI::App* verb =
      app.add_subcommand("show", "Show messages: main header fields, tree of parts, first lines of text");
  addTexts(*verb, "FILE", options->files, "Messages, or folders of them; - is standard input")->required();
  verb->add_flag("--json", options->json, "One JSON object per message, one line each");
  verb->add_flag("--headers", options->headers, "Show every header field, decoded");
  verb->add_flag("-v,--verbose", options->verbose, "Show why parts are attachments, and what was repaired");
  CLI::Option* color =
      verb->add_flag("--color", options->color, "Color even when the output is not a terminal");
  verb->add_flag("--no-color", options->noColor, "No color (as with NO_COLOR in the environment)")
      ->excludes(color);
  addReadingKeyOptions(*verb, options->keys);
  verb->footer(
      "Example:\n  mailtree show samples/newsletter.eml\n  mailtree show --json mails | jq .subject\n"
      "  mailtree show --p12 jo.p12 --trust ca.pem secret.eml");
  verb->callback([options, &action] { action = [options] { return show(*options); }; });
}

}  // namespace mailtree::cli
