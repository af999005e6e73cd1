// cli/check.cpp - mailtree check: what is wrong with messages.
#include <iostream>
#include <memory>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/message/streaming.h"
#include "cli/secure/keys.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/json_text.h"
#include "cli/support/terminal.h"
#include "cli/views/problems_json.h"

namespace mailtree::cli {
namespace {

constexpr Problem::Severity kSeverities[] = {Problem::Severity::note, Problem::Severity::warning,
                                             Problem::Severity::danger};

struct CheckOptions {
  SourceArguments sources;
  StreamSettings stream;
  std::string least = "note";
  bool json = false;
  KeyOptions keys;

  Problem::Severity leastSeverity() const {
    for (const Problem::Severity each : kSeverities)
      if (equalsNoCase(nameOf(each), least)) return each;
    return Problem::Severity::note;
  }
};

void writeProblem(const std::string& file, const Problem& problem) {
  std::string place = "part " + problem.part;
  if (problem.offset) place += ", byte " + std::to_string(*problem.offset);
  writeLine(printable(file) + ": " + std::string(nameOf(problem.severity)) + ": ",
            place + ": " + problem.text);
}

void writeJson(const std::string& file, const std::vector<Problem>& problems) {
  ObjectText json;
  json.add("schema", kSchema).add("file", file);
  appendProblems(json.begin("problems"), problems);
  std::cout << json.closed() << '\n';
}

struct Checked {
  std::vector<Problem> problems = {};
  LimitSet limits = {};
  std::optional<Error> error = {};
};

Checked check(const SourceMessage& source, const CheckOptions& options, const Keys& keys) {
  const Result<mailtree::Message> message = mailtree::Message::parse(source.bytes, {.keys = &keys.all});
  if (!message) return {.error = message.error()};
  Checked checked{message->problems(), limitsIn(*message)};
  std::erase_if(checked.problems, [least = options.leastSeverity()](const Problem& problem) {
    return problem.severity < least;
  });
  return checked;
}

Exit show(const std::string& name, const Checked& checked, const CheckOptions& options) {
  if (checked.error) {
    reportError(name, checked.error->message);
    return Exit::unreadable;
  }
  if (options.json)
    writeJson(name, checked.problems);
  else
    for (const Problem& problem : checked.problems) writeProblem(name, problem);
  const Exit answer = checked.problems.empty() ? Exit::fine : Exit::negative;
  return worse(answer, reportLimits(name, checked.limits));
}

Exit checkAll(const CheckOptions& options) {
  Keys keys;
  if (const Exit failed = readKeys(options.keys, keys); failed != Exit::fine) return failed;
  Exit result = Exit::fine;
  Streaming stream(options.sources, streamWith(options.keys, options.stream));
  const Exit end = stream.run([&](SourceMessage& message) { return check(message, options, keys); },
                              [&](const SourceMessage& message, const Checked& checked) {
                                result = worse(result, show(nameOf(message), checked, options));
                                return std::cout.good();
                              },
                              [] {});
  return worse(end, result);
}

}  // namespace

void addCheck(Verb app, Action& action) {
  auto options = std::make_shared<CheckOptions>();
  const Verb verb = app.addVerb(
      "check", "Say what is wrong with messages: damage, tricks, spoofing; status 1 when anything is");
  addSources(verb, options->sources);
  verb.addText("--least", options->least, "Only problems that are at least this severe")
      .oneOf({"note", "warning", "danger"});
  verb.addFlag("--json", options->json, "One JSON object per message, one line each");
  addStreamOptions(verb, options->stream);
  addReadingKeyOptions(verb, options->keys);
  verb.setFooter(
      "note: nothing is lost, and nobody is misled. warning: something may be lost, or read differently\n"
      "elsewhere. danger: what a reader sees may not be what a filter saw, or not who wrote it.\n"
      "Bytes are counted from 0 at the beginning of the message. Attached messages are not looked into:\n"
      "\"mailtree messages\" saves them.\n\n"
      "Example:\n  mailtree check inbox\n  mailtree check --least danger --json mails | jq .problems");
  verb.whenChosen([options, &action] { action = [options] { return checkAll(*options); }; });
}

}  // namespace mailtree::cli
