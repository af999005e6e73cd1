// cli/edit.cpp - mailtree edit: fields, texts and attachments of a message changed.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>
#include <memory>

#include "cli/arguments.h"
#include "cli/commands.h"
#include "cli/input.h"
#include "cli/output.h"
#include "cli/writing/bodies.h"
#include "cli/writing/fields.h"
#include "cli/writing/files.h"

namespace mailtree::cli {
namespace {

struct EditOptions {
  std::string file;
  std::vector<std::string> set, remove;
  std::vector<int> drop;
  BodyOptions bodies;
  AttachOptions attached;
  std::string output;
  bool dropAll = false;

  bool changesContent() const { return bodies.any() || attached.any() || dropAll || !drop.empty(); }
};

/// Everything the command line names, checked and read.
struct Changes {
  std::vector<HeaderField> fields;
  Bodies bodies;
  std::vector<AttachedFile> files;
};

Exit checkOptions(const EditOptions& options, Changes& changes) {
  for (const std::string& name : options.remove)
    if (const auto problem = whyBadFieldName(name)) return refuse("--remove '" + name + "'", *problem);
  for (const std::string& text : options.set) {
    changes.fields.push_back(fieldOfText(text));
    if (const auto problem = whyBadField(changes.fields.back()))
      return refuse("--set '" + text + "'", *problem);
  }
  if ((options.file == "-") + options.bodies.readsStandardInput() + options.attached.readsStandardInput() > 1)
    return refuse("-", "standard input can be only one of the files");
  return Exit::fine;
}

/// Reads and checks everything but the message itself before anything is changed.
Exit read(const EditOptions& options, Changes& changes) {
  if (const Exit result = checkOptions(options, changes); result != Exit::fine) return result;
  if (const Exit result = readBodies(options.bodies, changes.bodies); result != Exit::fine) return result;
  return readAttachedFiles(options.attached, changes.files);
}

/// Attachments are numbered as the message was given: the last one goes first.
Exit dropAttachments(const EditOptions& options, Email2& email, LogBase& log) {
  std::vector<int> numbers = options.drop;
  std::sort(numbers.begin(), numbers.end(), std::greater<>());
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  const int count = email.getNumAttachments(log);
  if (!numbers.empty() && (numbers.front() >= count || numbers.back() < 0)) {
    const int bad = numbers.front() >= count ? numbers.front() : numbers.back();
    complain(options.file, "there is no attachment " + std::to_string(bad));
    return Exit::negative;
  }
  for (const int number : numbers) email.dropSingleAttachment(number, log);
  if (options.dropAll) email.dropAttachments();
  return Exit::fine;
}

bool change(const EditOptions& options, Changes& changes, Email2& email, LogBase& log) {
  for (const std::string& name : options.remove) removeField(email, name);
  for (const HeaderField& field : changes.fields) setField(email, field, log);
  if (!putBodies(email, changes.bodies, log)) return false;
  for (AttachedFile& file : changes.files)
    if (!attach(email, file, log)) return false;
  return true;
}

/// A signature covers the content, not the fields of the message.
bool isSigned(const Email2& email) {
  return email.findContentType("multipart/signed") || email.findContentType("application/pkcs7-mime") ||
         email.findContentType("application/x-pkcs7-mime");
}

Exit edit(const EditOptions& options) {
  Changes changes;
  if (const Exit result = read(options, changes); result != Exit::fine) return result;
  std::optional<Message> message = loadMessage(options.file);
  if (!message) return Exit::unreadable;
  const Exit limits = reportLimits(options.file, message->limits());

  Email2& email = *message->root;
  if (options.changesContent() && isSigned(email))
    complain(options.file, "warning: the message is signed, and its signature may no longer fit");
  LogMemory log;
  if (const Exit result = dropAttachments(options, email, log); result != Exit::fine) return result;
  if (!change(options, changes, email, log)) {
    complain(options.file, lastError(log, "not enough memory"));
    return Exit::unreadable;
  }
  return graver(limits, writeMessage(email, options.output));
}

}  // namespace

void addEdit(CLI::App& app, Action& action) {
  auto options = std::make_shared<EditOptions>();
  CLI::App* verb = app.add_subcommand("edit", "Change fields, texts and attachments of a message");
  addText(*verb, "FILE", options->file, "Message; - is standard input")->required();
  addRepeated(*verb, "--set", options->set, "Put 'Name: value' in place of the fields of that name");
  addRepeated(*verb, "--remove", options->remove, "Remove the fields of that name");
  addBodyOptions(*verb, options->bodies);
  CLI::Option* all = verb->add_flag("--drop-attachments", options->dropAll, "Remove every attachment");
  verb->add_option("--drop-attachment", options->drop, "Remove the attachment of that number")
      ->type_name("N")
      ->allow_extra_args(false)
      ->excludes(all);
  addAttachOptions(*verb, options->attached);
  addOutput(*verb, options->output);
  verb->footer(
      "What is not named stays as it came. Attachments are numbered from 0, as in the message given; they "
      "are\n"
      "dropped first. Then fields are removed, fields set, texts put in, files attached.\n"
      "Example:\n  mailtree edit mail.eml --set 'Subject: New plan' --drop-attachment 0 --attach plan.pdf -o "
      "new.eml");
  verb->callback([options, &action] { action = [options] { return edit(*options); }; });
}

}  // namespace mailtree::cli
