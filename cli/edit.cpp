// cli/edit.cpp - mailtree edit: changes fields, texts and attachments of a message.
#include <memory>

#include "cli/commands.h"
#include "cli/message/input.h"
#include "cli/message/output.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/output_file.h"
#include "cli/writing/bodies.h"
#include "cli/writing/calendar.h"
#include "cli/writing/dropping.h"
#include "cli/writing/fields.h"
#include "cli/writing/files.h"
#include "cli/writing/related.h"
#include "mailtree/message/tree_changes.h"

namespace mailtree::cli {
namespace {

struct EditOptions {
  std::string file;
  std::vector<std::string> set, remove;
  DropOptions dropped;
  BodyOptions bodies;
  InlineOptions shown;
  CalendarOptions calendar;
  AttachOptions attached;
  Destination output;
  bool fixRelated = false;

  bool changesContent() const {
    return dropped.any() || fixRelated || bodies.any() || shown.any() || calendar.any() || attached.any();
  }
  int countOfStandardInput() const {
    return (file == "-") + bodies.countOfStandardInput() + calendar.countOfStandardInput() +
           attached.countOfStandardInput();
  }
};

/// Everything from the command line, checked and read.
struct Changes {
  std::vector<HeaderField> fields;
  Bodies bodies;
  std::vector<InlineFile> shown;
  std::optional<Calendar> calendar;
  std::vector<AttachedFile> files;
};

Exit checkOptions(const EditOptions& options, Changes& changes) {
  for (const std::string& name : options.remove)
    if (const auto problem = fieldNameProblem(name)) return usageError("--remove '" + name + "'", *problem);
  for (const std::string& text : options.set) {
    changes.fields.push_back(fieldOfText(text));
    if (const auto problem = typedFieldProblem(changes.fields.back()))
      return usageError("--set '" + text + "'", *problem);
  }
  if (options.countOfStandardInput() > 1)
    return usageError("-", "standard input can be only one of the files");
  return Exit::fine;
}

/// Reads and checks everything except the message, before anything is changed.
Exit read(const EditOptions& options, Changes& changes) {
  if (const Exit result = checkOptions(options, changes); result != Exit::fine) return result;
  if (const Exit result = readBodies(options.bodies, changes.bodies); result != Exit::fine) return result;
  if (const Exit result = readInlineFiles(options.shown, changes.shown); result != Exit::fine) return result;
  if (const Exit result = readCalendar(options.calendar, changes.calendar); result != Exit::fine)
    return result;
  return readAttachedFiles(options.attached, changes.files);
}

Result<void> fixRelated(mailtree::Message& message) {
  if (Result<void> begun = message.beginTreeChange(); !begun) return begun;
  LogNull quiet;
  message.email2().fixRelated(quiet);
  return {};
}

Result<void> changeFields(const EditOptions& options, const Changes& changes, mailtree::Message& message) {
  for (const std::string& name : options.remove)
    if (Result<void> done = message.removeHeader(name); !done) return done;
  for (const HeaderField& field : changes.fields)
    if (Result<void> done = message.setHeader(field.name, field.value); !done) return done;
  return {};
}

Result<void> addInlineFiles(const Changes& changes, mailtree::Message& message) {
  if (!changes.shown.empty() && message.html().empty())
    return Error{ErrorCode::notFound,
                 "there is no HTML body to show the file in; add one with --html or --html-file",
                 {}};
  return putInlineFiles(message, changes.shown);
}

Result<void> change(const EditOptions& options, const Changes& changes, mailtree::Message& message) {
  Result<void> done = options.fixRelated ? fixRelated(message) : Result<void>();
  if (done) done = changeFields(options, changes, message);
  if (done) done = putBodies(message, changes.bodies);
  if (done) done = addInlineFiles(changes, message);
  if (done && changes.calendar) done = message.setCalendar(*changes.calendar);
  for (const AttachedFile& file : changes.files)
    if (done) done = attach(message, file);
  return done;
}

Exit edit(const EditOptions& options) {
  Changes changes;
  if (const Exit result = read(options, changes); result != Exit::fine) return result;
  std::optional<mailtree::Message> message = openMessage(options.file);
  if (!message) return Exit::unreadable;
  const Exit limits = reportLimits(options.file, limitsIn(*message));
  if (options.changesContent() && (message->security().isSigned() || isSigned(message->email2())))
    reportError(options.file, "warning: the message is signed; signatures over what changes are left out");
  if (const Exit result = dropParts(options.dropped, options.file, *message); result != Exit::fine)
    return result;
  if (const Result<void> changed = change(options, changes, *message); !changed) {
    reportError(options.file, changed.error().message);
    return Exit::negative;
  }
  return worse(limits, writeMessage(*message, options.output, {.bcc = true}));
}

}  // namespace

void addEdit(Verb app, Action& action) {
  auto options = std::make_shared<EditOptions>();
  const Verb verb = app.addVerb("edit", "Change fields, texts and attachments of a message");
  verb.addText("FILE", options->file, "Message; - is standard input").required();
  verb.addRepeated("--set", options->set, "Replace all fields of this name by 'Name: value'");
  verb.addRepeated("--remove", options->remove, "Remove all fields of this name");
  addBodyOptions(verb, options->bodies);
  addInlineOptions(verb, options->shown);
  addCalendarOptions(verb, options->calendar);
  addDropOptions(verb, options->dropped);
  verb.addFlag("--fix-related", options->fixRelated,
               "Move attachments that the HTML shows by Content-ID into its multipart/related");
  addAttachOptions(verb, options->attached);
  addOutput(verb, options->output);
  verb.setFooter(
      "Everything else is kept. Attachments are numbered as by \"mailtree attachments\", related items\n"
      "as by \"mailtree related\", both in the given message. Changes are made in this order: drop\n"
      "parts, --fix-related, remove fields, set fields, set bodies, inline files, the calendar, and\n"
      "attachments.\n"
      "A body replaces the displayed one of its type, or is added to the one of the other type; an empty\n"
      "one removes it. A message that is one file gets the body before it. The content of an encrypted\n"
      "message cannot be changed, and a signature over what changes is left out.\n"
      "HTML in a charset other than utf-8 declares its charset.\n"
      "Example:\n  mailtree edit mail.eml --set 'Subject: New plan' --drop-attachment 0 --attach plan.pdf -o "
      "new.eml");
  verb.whenChosen([options, &action] { action = [options] { return edit(*options); }; });
}

}  // namespace mailtree::cli
