// cli/attachments.cpp - mailtree attachments: what is attached to a message, as a table or as JSON.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <iostream>
#include <memory>

#include "cli/arguments.h"
#include "cli/commands.h"
#include "cli/input.h"
#include "cli/views/json_view.h"
#include "cli/views/terminal.h"

namespace mailtree::cli {
namespace {

struct AttachmentsOptions {
  std::string file;
  bool json = false;
  bool verbose = false;
};

/// A wider cell pushes what follows out of its column.
constexpr std::size_t kMaxColumnWidth = 40;

struct Column {
  const char* title;
  bool rightAligned;
};
constexpr std::array<Column, 6> kColumns = {
    {{"No", true}, {"Part", true}, {"Name", false}, {"Type", false}, {"Size", true}, {"Reason", false}}};

/// One text for each column; the last only when it is shown.
using Cells = std::vector<std::string>;

Cells titles(bool verbose) {
  Cells cells;
  for (const Column& column : kColumns) cells.emplace_back(column.title);
  if (!verbose) cells.pop_back();
  return cells;
}

Cells cellsOf(const PartRow& row, std::size_t number, int id, bool verbose) {
  Cells cells = {std::to_string(number), std::to_string(id),
                 row.filename.empty() ? "-" : printable(row.filename), printable(row.contentType),
                 humanSize(row.node->m_body.getSize())};
  if (verbose) cells.push_back(printable(row.reason));
  return cells;
}

std::vector<std::size_t> widthsOf(const std::vector<Cells>& table) {
  std::vector<std::size_t> widths(kColumns.size());
  for (const Cells& cells : table)
    for (std::size_t i = 0; i < cells.size(); ++i)
      widths[i] = std::max(widths[i], std::min(displayWidth(cells[i]), kMaxColumnWidth));
  return widths;
}

void writeLine(const Cells& cells, const std::vector<std::size_t>& widths) {
  std::string line;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const std::string padding(widths[i] - std::min(displayWidth(cells[i]), widths[i]), ' ');
    if (i > 0) line += "  ";
    line += kColumns[i].rightAligned ? padding + cells[i] : cells[i] + padding;
  }
  std::cout << trimRight(line) << '\n';
}

void writeTable(const Outline& outline, bool verbose) {
  std::vector<Cells> table = {titles(verbose)};
  for (std::size_t number = 0; number < outline.attachments.size(); ++number) {
    const int id = outline.attachments[number];
    table.push_back(cellsOf(outline.row(id), number, id, verbose));
  }
  const std::vector<std::size_t> widths = widthsOf(table);
  for (const Cells& cells : table) writeLine(cells, widths);
}

Exit attachments(const AttachmentsOptions& options) {
  std::optional<Message> message = loadMessage(options.file);
  if (!message) return Exit::unreadable;
  const Outline outline = outlineOf(*message->root);
  const bool none = outline.attachments.empty();
  if (options.json)
    std::cout << attachmentsJsonOf(options.file, *message, outline) << '\n';
  else if (!none)
    writeTable(outline, options.verbose);
  const Exit result =
      graver(none ? Exit::negative : Exit::fine, reportLimits(options.file, message->limits()));
  return graver(result, finishStandardOutput());
}

}  // namespace

void addAttachments(CLI::App& app, Action& action) {
  auto options = std::make_shared<AttachmentsOptions>();
  CLI::App* verb =
      app.add_subcommand("attachments", "List the attachments of a message; status 1 when there are none");
  addText(*verb, "FILE", options->file, "Message; - is standard input")->required();
  verb->add_flag("--json", options->json, "One JSON object on one line");
  verb->add_flag("-v,--verbose", options->verbose, "Also the reason why each counts as one");
  verb->footer(
      "\"No\" is what extract takes as --attachment, \"Part\" what show draws and extract takes as --part.\n"
      "Attached messages are parts, not attachments.\n\n"
      "Example:\n  mailtree attachments samples/attachments.eml\n"
      "  mailtree attachments --json mail.eml | jq '.attachments[].filename'");
  verb->callback([options, &action] { action = [options] { return attachments(*options); }; });
}

}  // namespace mailtree::cli
