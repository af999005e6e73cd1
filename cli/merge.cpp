// cli/merge.cpp - mailtree merge: makes a message for each row of a table.
#include <iostream>
#include <memory>

#include "cli/commands.h"
#include "cli/merging/mailbox.h"
#include "cli/merging/row_files.h"
#include "cli/merging/template.h"
#include "cli/message/input.h"
#include "cli/support/arguments.h"
#include "cli/support/csv.h"
#include "cli/support/errors.h"
#include "cli/support/progress.h"
#include "cli/support/saving.h"
#include "mailtree/message/tree_changes.h"

namespace mailtree::cli {
namespace {

struct MergeOptions {
  std::string file;
  std::string data;
  std::optional<std::string> toField;
  std::vector<std::string> attachFields;
  CsvForm form;
  std::string delimiter;
  std::string key = "{{%s}}";
  std::string folder;
  std::string mailbox;
  std::uint64_t limit = 0;  ///< 0: none.
  bool rawHtml = false;
  bool force = false;
  bool dryRun = false;
};

std::unique_ptr<MergeTarget> targetOf(const MergeOptions& options) {
  return options.mailbox.empty() ? folderTarget(options.folder, options.force)
                                 : mailboxTarget(options.mailbox, options.force);
}

/// The template, and the columns that add to it.
struct Letter {
  MergeTemplate form;
  RowFiles files;

  std::optional<RowProblem> problemOf(const CsvRow& row) const {
    auto problem = form.problemOf(row);
    return problem ? problem : files.problemOf(row);
  }
};

/// Checks the template against the columns of the table and prepares it.
Exit prepare(const MergeOptions& options, const CsvTable& table, Letter& letter) {
  MergeTemplate& form = letter.form;
  if (const auto unknown = letter.files.setColumns(table, options.attachFields))
    return usageError("--attach-field", "no column '" + *unknown + "'");
  if (options.toField)
    if (const auto problem = form.setRecipient(table, *options.toField))
      return usageError("--to-field", *problem);
  if (const auto unknown = form.unknownPlaceholder(table)) {
    reportError(options.file, *unknown);
    return Exit::unreadable;
  }
  if (form.hasPlaceholdersInAttachedMessages(table))
    reportError(options.file, "warning: placeholders in attached messages are not replaced");
  if (!form.prepare(table, options.rawHtml)) {
    reportError(options.file, "not enough memory");
    return Exit::unreadable;
  }
  if (form.hasPlaceholdersInPages(table))
    reportError(options.file,
                "warning: placeholders in scripts, styles and comments of HTML are not replaced");
  return Exit::fine;
}

/// Reads the next row and checks its addresses and files. False at the end, or after reporting an
/// error, which then is `result`.
bool nextGoodRow(CsvTable& table, const Letter& letter, CsvRow& row, Exit& result) {
  if (!table.next(row)) {
    if (table.failed()) result = Exit::unreadable;
    return false;
  }
  const auto problem = letter.problemOf(row);
  if (!problem) return true;
  table.reportErrorAt(problem->line, problem->what);
  result = Exit::unreadable;
  return false;
}

/// Checks the whole table first: if any row is wrong, nothing is written.
Exit countRows(CsvTable& table, const Letter& letter, std::uint64_t& rows) {
  Exit result = Exit::fine;
  CsvRow row;
  for (rows = 0; nextGoodRow(table, letter, row, result);) ++rows;
  if (result != Exit::fine || rows > 0) return result;
  table.reportErrorAt(0, "no rows after the header");
  return Exit::negative;
}

/// Writes a message for each row. Fails when there are fewer rows now, or an invalid one.
Exit writeMessages(CsvTable& table, const Letter& letter, std::uint64_t messages, MergeTarget& target) {
  ProgressBar bar(table.size(), "rows");
  Exit result = Exit::fine;
  CsvRow row;
  for (std::uint64_t done = 0; done < messages; ++done) {
    if (!nextGoodRow(table, letter, row, result)) {
      if (result == Exit::fine) table.reportErrorAt(0, "it became shorter while it was read");
      return Exit::unreadable;
    }
    const EmailPtr email = letter.form.fill(row);
    if (!email) reportError("not enough memory");
    if (!email || !letter.files.attachTo(*email, row) || !target.put(*email)) return Exit::unreadable;
    bar.show(done + 1, table.position());
  }
  return Exit::fine;
}

Exit report(std::uint64_t messages) {
  std::cout << messages << (messages == 1 ? " message\n" : " messages\n");
  return finishStandardOutput();
}

Exit merge(const MergeOptions& options, const PlaceholderForm& placeholderForm) {
  std::optional<Message> message = loadMessageToWrite(options.file);
  if (!message) return Exit::unreadable;
  const Exit limits = reportLimits(options.file, message->limits());
  if (isSigned(*message->root))
    reportError(options.file, "warning: the message is signed, and its signature may no longer verify");
  std::optional<CsvTable> table = CsvTable::open(options.data, options.form);
  if (!table) return Exit::unreadable;
  Letter letter{MergeTemplate(std::move(*message), placeholderForm), {}};
  if (const Exit result = prepare(options, *table, letter); result != Exit::fine) return result;
  std::uint64_t messages = 0;
  if (const Exit result = countRows(*table, letter, messages); result != Exit::fine) return result;
  if (options.limit > 0) messages = std::min(messages, options.limit);
  if (options.dryRun) return worse(limits, report(messages));

  const std::unique_ptr<MergeTarget> target = targetOf(options);
  if (!table->rewind() || !target->open(messages)) return Exit::unreadable;
  const Exit written = writeMessages(*table, letter, messages, *target);
  if (written != Exit::fine) return written;
  return target->commit() ? worse(limits, report(messages)) : Exit::unreadable;
}

std::string checkFileName(const std::string& name) {
  if (name == "-") return "cannot be standard output";
  return checkNameGiven(name);
}

void addDestinations(Verb verb, MergeOptions& options) {
  const Option folder =
      verb.addText("--dir", options.folder, "Folder for files 000001.eml and so on, created if missing")
          .kind(kFolder)
          .check(checkFileName);
  verb.addText("--mbox", options.mailbox, "Mailbox file (mboxrd), written whole or not at all")
      .kind(kFile)
      .check(checkFileName)
      .excludes(folder);
  verb.addFlag("--force", options.force, "Overwrite existing files");
  verb.addNumber("--limit", options.limit, "Maximum number of messages, from the first row", /*least=*/1,
                 std::numeric_limits<std::int64_t>::max());
  verb.addFlag("--dry-run", options.dryRun, "Check everything and write nothing");
}

void checkOptions(const MergeOptions& options) {
  if (options.folder.empty() && options.mailbox.empty() && !options.dryRun)
    refuseUsage("--dir, --mbox", "one of them is required");
  if (options.file == "-" && options.data == "-")
    refuseUsage("-", "standard input can be only one of the files");
}

}  // namespace

void addMerge(Verb app, Action& action) {
  auto options = std::make_shared<MergeOptions>();
  const Verb verb = app.addVerb("merge", "Make a message for each row of a table");
  verb.addText("TEMPLATE", options->file, "Message with placeholders such as {{name}}; - is standard input")
      .required();
  verb.addText("--data", options->data,
               "Table with column names in the first row, as spreadsheets save it (CSV); - is standard input")
      .kind(kFile)
      .required();
  verb.addText("--delimiter", options->delimiter,
               "Character between fields, or tab (default: comma, semicolon or tab, as the table shows)")
      .check([](const std::string& name) {
        return delimiterOf(name) ? std::string() : "'" + name + "': must be one character or tab";
      });
  verb.addText("--charset", options->form.charset,
               "Charset of the table (default: utf-8, utf-16 or windows-1252, as the table shows)")
      .check([](const std::string& name) {
        return codePageOfCharset(name) > 0 ? std::string() : "'" + name + "': unknown charset";
      });
  verb.addText(
      "--to-field", options->toField,
      "Recipient of each message: a column with an address or 'Name <address>', or a pattern such as "
      "'{{name}} <{{email}}>'");
  verb.addRepeated("--attach-field", options->attachFields,
                   "Column that names a file to attach, FILE or FILE:TYPE; an empty cell attaches nothing");
  verb.addText("--key", options->key, "Pattern of a placeholder, with %s for the column (default: {{%s}})");
  verb.addFlag("--raw-html", options->rawHtml, "Insert values into HTML without escaping");
  addDestinations(verb, *options);
  verb.setFooter(
      "Placeholders are replaced in text bodies, header fields, names and addresses; in HTML not in\n"
      "scripts, styles and comments, unless --raw-html is given. Every message gets\n"
      "its own Message-ID and Date. Attached messages are not changed. Bcc is kept for the program\n"
      "that sends. The whole table is checked first; nothing is written when any row is wrong.\n"
      "\n"
      "Example:\n  mailtree merge letter.eml --data people.csv --to-field email --dir out");
  verb.whenChosen([options, &action] {
    checkOptions(*options);
    if (!options->delimiter.empty()) options->form.delimiter = delimiterOf(options->delimiter);
    const auto form = placeholderFormOf(options->key);
    if (!form) refuseUsage("--key", "must have exactly one %s with text on both sides");
    action = [options, form = *form] { return merge(*options, form); };
  });
}

}  // namespace mailtree::cli
