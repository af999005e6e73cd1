// cli/messages.cpp - mailtree messages: lists the messages inside a message, or writes them to files.
#include <array>
#include <ctime>
#include <iostream>
#include <memory>

#include "cli/commands.h"
#include "cli/message/each_message.h"
#include "cli/message/folders.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/json_text.h"
#include "cli/support/json_values.h"
#include "cli/support/saving.h"
#include "cli/support/terminal.h"
#include "cli/support/terminal_table.h"
#include "mailtree/message/inner_messages.h"
#include "mailtree/message/outline.h"

namespace mailtree::cli {
namespace {

struct MessagesOptions {
  SourceArguments sources;
  std::string wanted;
  std::string folder = ".";
  std::string output;
  bool all = false;
  bool force = false;
  bool json = false;

  bool isListing() const { return !all && wanted.empty(); }
};

/// "2026-04-22 13:30" in the local time zone.
std::string shortDate(const std::optional<SorvikSysTime>& date) {
  if (!date) return "-";
  const auto seconds = static_cast<std::time_t>(date->toUnixTime());
  std::tm local{};
  if (!localtime_r(&seconds, &local)) return "-";
  std::array<char, 32> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M", &local);
  return text.data();
}

std::string senderText(const InnerMessage& message) {
  const std::optional<_svEmailAddress> sender = message.sender();
  return sender ? singleSpaced(displayForm(*sender)) : "-";
}

bool writeTable(InnerMessages& messages) {
  Table table({{"#"}, {"Part"}, {"Date"}, {"Size", true}, {"From"}, {"Subject"}});
  bool any = false;
  while (const InnerMessage* message = messages.next()) {
    any = true;
    table.add({message->number, message->part, shortDate(message->date()),
               humanSize(message->bytes.getSize()), senderText(*message), singleSpaced(message->subject())});
  }
  if (any) table.write(std::cout);
  return any;
}

std::string jsonOf(const InnerMessage& message) {
  const int id = message.header.findField("Message-ID");
  return ObjectText()
      .add("number", message.number)
      .add("part", message.part)
      .addOrNull("subject", message.subject())
      .addSerialized("from", addressOrNull(message.sender()))
      .addSerialized("date", dateOrNull(message.date()))
      .addOrNull("message_id", message.header.decodedValue(id))
      .add("size", message.bytes.getSize())
      .addOrNull("filename", message.filename)
      .closed();
}

bool writeJson(const std::string& file, InnerMessages& messages, LimitSet limits) {
  ListText list;
  while (const InnerMessage* message = messages.next()) list.addSerialized(jsonOf(*message));
  const bool any = !list.isEmpty();
  limits.add(messages.limits());
  std::cout << ObjectText()
                   .add("schema", kSchema)
                   .add("file", file)
                   .addSerialized("messages", list.closed())
                   .addSerialized("limits", limitsOf(limits))
                   .closed()
            << '\n';
  return any;
}

/// A file name that sorts by the date of the message.
std::string fileNameOf(const InnerMessage& message) {
  SorvikSysTime now;
  now.getCurrentGmt();
  StringBuffer name;
  Email2::genEmailFilename2(message.date().value_or(now), name);
  return name.extractString();
}

/// Writes the messages to files; one that cannot be written does not stop the others.
Exit writeToFolder(const MessagesOptions& options, InnerMessages& messages, MessageFolders& folders) {
  Exit result = Exit::negative;
  while (const InnerMessage* message = messages.next()) {
    if (!options.all && message->number != options.wanted) continue;
    if (result == Exit::negative) {
      if (!makeFolder(folders.folder())) return Exit::unreadable;
      result = Exit::fine;
    }
    const std::string path = folders.pick(fileNameOf(*message));
    if (saveFile(path, message->bytes.view(), Existing::refuse))
      printPath(path);
    else
      result = Exit::unreadable;
  }
  return result;
}

Exit writeToOutput(const MessagesOptions& options, InnerMessages& messages) {
  while (const InnerMessage* message = messages.next())
    if (message->number == options.wanted)
      return saveToOutput(message->bytes.view(), {options.output, options.force});
  return Exit::negative;
}

Exit write(const Input& input, const MessagesOptions& options, InnerMessages& messages,
           MessageFolders& folders) {
  folders.begin(input);
  const Exit result =
      options.output.empty() ? writeToFolder(options, messages, folders) : writeToOutput(options, messages);
  if (result == Exit::negative)
    reportError(input.name, options.all ? "contains no messages" : "no message " + options.wanted);
  return result;
}

Exit messages(Input& input, const MessagesOptions& options, MessageFolders& folders) {
  std::optional<mailtree::Message> message = openMessage(input);
  if (!message) return Exit::unreadable;
  LimitSet limits = limitsIn(*message);
  InnerMessages inner(message->email2(), options.wanted);
  Exit result = Exit::fine;
  if (!options.isListing())
    result = write(input, options, inner, folders);
  else if (!(options.json ? writeJson(input.name, inner, limits) : writeTable(inner)))
    result = Exit::negative;
  limits.add(inner.limits());
  return worse(result, reportLimits(input.name, limits));
}

Exit messagesOfAll(const MessagesOptions& options) {
  MessageFolders folders(options.folder, /*mayOverwrite=*/false);
  return forEachMessage(options.sources,
                        {.hasTitles = !options.json,
                         .needsAll = false,
                         .single = options.output.empty() ? nullptr : "--output"},
                        [&](Input& input) { return messages(input, options, folders); });
}

/// "2", "2/0"
std::string checkNumber(const std::string& number) {
  char last = '/';
  for (const char c : number) {
    if (!isDigitAscii(c) && (c != '/' || last == '/')) return "not a message number: " + number;
    last = c;
  }
  return last == '/' ? "not a message number: " + number : std::string();
}

void addDestinations(Verb verb, MessagesOptions& options) {
  const Option json = verb.addFlag("--json", options.json, "Print the list as one JSON object on one line");
  const Option wanted = verb.addText("--extract", options.wanted, "Write the message with this number")
                            .check(checkNumber)
                            .excludes(json);
  verb.addFlag("--all", options.all, "Write all messages").excludes(wanted).excludes(json);
  const Option folder = verb.addText("--dir", options.folder,
                                     "Folder to write to, created if missing (default: current folder)")
                            .kind(kFolder)
                            .check(checkNameGiven);
  const Option output =
      verb.addText("-o,--output", options.output, "With --extract: file to write; - is standard output")
          .kind(kFile)
          .check(checkNameGiven)
          .excludes(folder)
          .needs(wanted);
  verb.addFlag("--force", options.force, "With --output: overwrite an existing file").needs(output);
}

}  // namespace

void addMessages(Verb app, Action& action) {
  auto options = std::make_shared<MessagesOptions>();
  const Verb verb = app.addVerb("messages",
                                "List the messages inside a message, attached or in a digest, or write "
                                "them to files; status 1 when there "
                                "are none");
  addSources(verb, options->sources);
  addDestinations(verb, *options);
  verb.setFooter(
      "A message inside message 2 has the number 2/0. \"Part\" is the number of its part in show.\n"
      "Messages are written byte for byte, under names that sort by date. The path of each file in a folder "
      "is printed.\n\n"
      "Example:\n  mailtree messages samples/digest.eml\n"
      "  mailtree messages mail.eml --extract 0 -o - | mailtree show -\n"
      "  mailtree messages mail.eml --all --dir inner");
  verb.whenChosen([options, &action] { action = [options] { return messagesOfAll(*options); }; });
}

}  // namespace mailtree::cli
