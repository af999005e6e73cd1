// cli/edit.cpp - mailtree edit: changes fields, texts and attachments of a message.
#include <CLI/CLI.hpp>
#include <algorithm>
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
#include "mailtree/message/calendar.h"
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

void changeFields(const EditOptions& options, const Changes& changes, Email2& email, LogBase& log) {
  for (const std::string& name : options.remove) removeField(email, name);
  for (const HeaderField& field : changes.fields) setField(email, field, log);
  const auto isBcc = [](const HeaderField& field) { return equalsNoCase(field.name, "Bcc"); };
  if (std::ranges::any_of(changes.fields, isBcc)) showBcc(email, log);
}

Exit fail(const EditOptions& options, const LogMemory& log) {
  reportError(options.file, lastError(log, "not enough memory"));
  return Exit::unreadable;
}

/// Reads texts back before files are attached, because attaching to signed content adds an enclosure.
Exit changeTexts(const EditOptions& options, const Bodies& bodies, Email2& email) {
  LogMemory log;
  const std::string type(email.m_contentType.m_type.view());
  if (!putBodies(email, bodies, log)) return fail(options, log);
  if (bodiesReadBack(email, bodies, log)) return Exit::fine;
  reportError(options.file, "a text added to this message would not be read as its body (" + type + ")");
  return Exit::negative;
}

Exit showInline(const EditOptions& options, const Changes& changes, Email2& email) {
  LogMemory log;
  if (!changes.shown.empty() && !email.getHtmlAlternative()) {
    reportError(options.file,
                "there is no HTML body to show the file in; add one with --html or --html-file");
    return Exit::negative;
  }
  return putInlineFiles(email, changes.shown, log) ? Exit::fine : fail(options, log);
}

Exit addCalendar(const EditOptions& options, std::optional<Calendar>& calendar, Email2& email) {
  LogMemory log;
  const std::string type(email.m_contentType.m_type.view());
  if (!calendar || putCalendar(email, calendar->method, calendar->text, log)) return Exit::fine;
  reportError(options.file, "a calendar added to this message would not be found (" + type + ")");
  return Exit::negative;
}

Exit change(const EditOptions& options, Changes& changes, Email2& email) {
  if (const Exit result = dropParts(options.dropped, options.file, email); result != Exit::fine)
    return result;
  LogMemory log;
  if (options.fixRelated) email.fixRelated(log);
  changeFields(options, changes, email, log);
  if (const Exit result = changeTexts(options, changes.bodies, email); result != Exit::fine) return result;
  if (const Exit result = showInline(options, changes, email); result != Exit::fine) return result;
  if (const Exit result = addCalendar(options, changes.calendar, email); result != Exit::fine) return result;
  for (AttachedFile& file : changes.files)
    if (!attach(email, file, log)) return fail(options, log);
  // Without it, Content- fields do not count (RFC 2045, 4).
  if (options.changesContent() && !email.hasHeaderField("MIME-Version", log))
    email.setHeaderField("MIME-Version", "1.0", log);
  return Exit::fine;
}

Exit edit(const EditOptions& options) {
  Changes changes;
  if (const Exit result = read(options, changes); result != Exit::fine) return result;
  std::optional<Message> message = loadMessageToWrite(options.file);
  if (!message) return Exit::unreadable;
  const Exit limits = reportLimits(options.file, message->limits());

  Email2& email = *message->root;
  if ((options.bodies.any() || options.calendar.any()) && isEncrypted(email)) {
    reportError(options.file, "the message is encrypted, so its text cannot be changed");
    return Exit::negative;
  }
  if (options.changesContent() && isSigned(email))
    reportError(options.file, "warning: the message is signed, and its signature may no longer verify");
  if (const Exit result = change(options, changes, email); result != Exit::fine) return result;
  return worse(limits, writeMessage(email, options.output));
}

}  // namespace

void addEdit(CLI::App& app, Action& action) {
  auto options = std::make_shared<EditOptions>();
  CLI::App* verb = app.add_subcommand("edit", "Change fields, texts and attachments of a message");
  addText(*verb, "FILE", options->file, "Message; - is standard input")->required();
  addRepeated(*verb, "--set", options->set, "Replace all fields of this name by 'Name: value'");
  addRepeated(*verb, "--remove", options->remove, "Remove all fields of this name");
  addBodyOptions(*verb, options->bodies);
  addInlineOptions(*verb, options->shown);
  addCalendarOptions(*verb, options->calendar);
  addDropOptions(*verb, options->dropped);
  verb->add_flag("--fix-related", options->fixRelated,
                 "Move attachments that the HTML shows by Content-ID into its multipart/related");
  addAttachOptions(*verb, options->attached);
  addOutput(*verb, options->output);
  verb->footer(
      "Everything else is kept. Attachments are numbered as by \"mailtree attachments\", related items\n"
      "as by \"mailtree related\", both in the given message. Changes are made in this order: drop\n"
      "parts, --fix-related, remove fields, set fields, set bodies, inline files, the calendar, and\n"
      "attachments.\n"
      "A body replaces the displayed one of its type, or is added to the one of the other type. A message\n"
      "that is one file gets the body before it. The text of an encrypted message cannot be changed; a\n"
      "body that no mail client would show is refused (status 1).\n"
      "HTML in a charset other than utf-8 declares its charset.\n"
      "Example:\n  mailtree edit mail.eml --set 'Subject: New plan' --drop-attachment 0 --attach plan.pdf -o "
      "new.eml");
  verb->callback([options, &action] { action = [options] { return edit(*options); }; });
}

}  // namespace mailtree::cli
