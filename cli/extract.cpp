// cli/extract.cpp - mailtree extract: parts of a message into files.
#include <algorithm>
#include <memory>
#include <numeric>

#include "cli/commands.h"
#include "cli/message/each_message.h"
#include "cli/message/folders.h"
#include "cli/message/output.h"
#include "cli/secure/keys.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/saving.h"
#include "mailtree/message/displayed.h"
#include "mailtree/mime/header/ContentTypeTable.h"

namespace mailtree::cli {
namespace {

struct ExtractOptions {
  SourceArguments sources;
  std::string folder = ".";
  std::string output;
  std::optional<std::size_t> part;
  std::optional<std::size_t> attachment;
  bool all = false;
  bool force = false;
  bool dryRun = false;
  KeyOptions keys;
};

std::vector<int> leavesOf(const Outline& outline) {
  std::vector<int> ids(outline.rows.size());
  std::iota(ids.begin(), ids.end(), 0);
  std::erase_if(ids, [&](int id) { return !outline.row(id).isLeaf(); });
  return ids;
}

/// Empty when there is no such part, or when it is a multipart, which has no content of its own.
std::vector<int> selectedParts(const Outline& outline, const Displayed& display,
                               const ExtractOptions& options) {
  if (options.all) return leavesOf(outline);
  if (options.part) {
    if (*options.part >= outline.rows.size() || !outline.rows[*options.part].isLeaf()) return {};
    return {static_cast<int>(*options.part)};
  }
  if (!options.attachment) return display.attachments;
  if (*options.attachment >= display.attachments.size()) return {};
  return {display.attachments[*options.attachment]};
}

std::string missingPartProblem(const ExtractOptions& options) {
  if (options.part) return "no part " + std::to_string(*options.part) + " with content";
  if (options.attachment) return "no attachment " + std::to_string(*options.attachment);
  return "no attachments; use --all or --part for other parts";
}

std::string fileNameOf(const PartRow& row, int id) {
  const std::string_view extension = extensionOfContentType(row.contentType);
  const std::string otherwise =
      "part-" + std::to_string(id) + "." + std::string(extension.empty() ? "dat" : extension);
  return safeFileName(givenFileName(row), otherwise);
}

/// Attached files keep their bytes; a body is text, and text is utf-8.
std::string_view contentOf(const PartRow& row, std::string& scratch) {
  if (row.isAttachment || !row.isBody) return row.node->m_body.view();
  scratch = textOf(row);
  return scratch;
}

/// Continues after a file that cannot be written.
Exit writeToFolder(const Outline& outline, const std::vector<int>& ids, const ExtractOptions& options,
                   Readers readers, MessageFolders& folders) {
  if (!options.dryRun && !makeFolder(folders.folder())) return Exit::unreadable;
  std::string scratch;
  Exit result = Exit::fine;
  for (const int id : ids) {
    const PartRow& row = outline.row(id);
    const std::string path = folders.pick(fileNameOf(row, id));
    if (options.dryRun || saveFile(path, contentOf(row, scratch),
                                   options.force ? Existing::replaceEntry : Existing::refuse, readers))
      printPath(path);
    else
      result = Exit::unreadable;
  }
  return result;
}

Exit extract(Input& input, const ExtractOptions& options, const Keys& keys, MessageFolders& folders) {
  std::optional<mailtree::Message> message = openMessage(input, keys.all);
  if (!message) return Exit::unreadable;
  const Exit result = reportLimits(input.name, limitsIn(*message));
  const Readers readers = readersOf(*message);
  const Outline outline = outlineOf(message->email2());
  const std::vector<int> ids = selectedParts(outline, displayedIn(outline), options);
  if (ids.empty()) {
    reportError(input.name, missingPartProblem(options));
    return worse(result, Exit::negative);
  }
  folders.begin(input);
  if (options.output.empty()) return worse(result, writeToFolder(outline, ids, options, readers, folders));
  std::string scratch;
  const std::string_view content = contentOf(outline.row(ids.front()), scratch);
  return worse(result, saveToOutput(content, {options.output, options.force}, readers));
}

Exit extractAll(const ExtractOptions& options) {
  Keys keys;
  if (const Exit failed = readKeys(options.keys, keys); failed != Exit::fine) return failed;
  MessageFolders folders(options.folder, options.force);
  return forEachMessage(options.sources,
                        {.needsAll = false, .single = options.output.empty() ? nullptr : "--output"},
                        [&](Input& input) { return extract(input, options, keys, folders); });
}

void addSelectors(Verb verb, ExtractOptions& options) {
  const Option part =
      verb.addNumber("--part", options.part, "Only the part with this number in the output of show");
  const Option attachment = verb.addNumber("--attachment", options.attachment,
                                           "Only the attachment with this number, counted from 0");
  const Option all = verb.addFlag("--all", options.all, "Every part except multiparts, including bodies");
  attachment.excludes(part);
  all.excludes(part).excludes(attachment);
}

void addDestinations(Verb verb, ExtractOptions& options) {
  const Option folder = verb.addText("--dir", options.folder,
                                     "Folder to write to, created if missing (default: current folder)")
                            .kind(kFolder)
                            .check(checkNameGiven);
  const Option dryRun =
      verb.addFlag("--dry-run", options.dryRun, "Write nothing, print the names that would be used");
  verb.addText("-o,--output", options.output,
               "With --part or --attachment: file to write; - is standard output")
      .kind(kFile)
      .check(checkNameGiven)
      .excludes(folder)
      .excludes(dryRun);
  verb.addFlag("--force", options.force, "Overwrite existing files");
}

}  // namespace

void addExtract(Verb app, Action& action) {
  auto options = std::make_shared<ExtractOptions>();
  const Verb verb = app.addVerb(
      "extract",
      "Write the attachments of a message, or other parts, to files; status 1 when there are none");
  addSources(verb, options->sources);
  addSelectors(verb, *options);
  addDestinations(verb, *options);
  addReadingKeyOptions(verb, options->keys);
  verb.setFooter(
      "Attached files and messages are written byte for byte, bodies as utf-8 text.\n"
      "File names from the message are made safe; a name already in use gets a number. Every name is "
      "printed.\n"
      "Each message of a mailbox or folder gets a folder of its own, such as box.mbox#12.\n\n"
      "Example:\n  mailtree extract mail.eml --dir attached\n"
      "  mailtree extract mail.eml --attachment 0 -o - | file -");
  verb.whenChosen([options, &action] {
    if (!options->output.empty() && !options->part && !options->attachment)
      refuseUsage("--output", "requires --part or --attachment");
    action = [options] { return extractAll(*options); };
  });
}

}  // namespace mailtree::cli
