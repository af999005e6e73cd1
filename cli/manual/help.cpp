#include "cli/manual/help.h"

#include <algorithm>
#include <iostream>
#include <sstream>

#include "cli/support/errors.h"
#include "cli/support/terminal.h"

namespace mailtree::cli {
namespace {

constexpr std::size_t kUsualColumns = 80;
/// Names up to this width have their description next to them.
constexpr std::size_t kWidestName = 24;
constexpr std::string_view kIndent = "  ", kGap = "  ";

struct Entry {
  std::string name, description;
};

/// "-o, --output FILE"
Entry entryOf(const OptionFacts& option) {
  std::string name;
  for (const std::string& spelling : option.names) name += (name.empty() ? "" : ", ") + spelling;
  if (!option.isPositional && !option.value.empty()) name += " " + option.value;
  if (option.isRepeatable) name += "...";
  return {name, option.fullDescription()};
}

std::vector<Entry> entriesOf(const std::vector<OptionFacts>& options) {
  std::vector<Entry> entries;
  entries.reserve(options.size());
  for (const OptionFacts& option : options) entries.push_back(entryOf(option));
  return entries;
}

/// Writes the parts of a help text; all entries have their descriptions in the same column.
class HelpWriter {
 public:
  HelpWriter(std::ostream& out, std::size_t columns) : m_out(out), m_columns(columns) {}

  void paragraph(std::string_view text) { writeLine(m_out, m_columns, "", "", text); }
  void indented(std::string_view text) { writeLine(m_out, m_columns, "", "    ", text); }

  void section(const std::string& title, const std::vector<Entry>& entries) {
    if (entries.empty()) return;
    m_out << '\n' << title << ":\n";
    for (const Entry& entry : entries) write(entry);
  }

  /// Lines of shell: a break needs a backslash, and never comes inside quotes.
  void example(std::string_view line) {
    std::string prefix(kIndent);
    for (std::size_t end = breakOf(line, prefix); end != std::string_view::npos;
         end = breakOf(line, prefix)) {
      m_out << prefix << line.substr(0, end) << " \\\n";
      line.remove_prefix(end + 1);
      prefix = std::string(kIndent) + "    ";
    }
    m_out << prefix << line << '\n';
  }

 private:
  void write(const Entry& entry) {
    const std::string indent(descriptionColumn(), ' ');
    std::string prefix = std::string(kIndent) + entry.name;
    if (displayWidth(prefix) + kGap.size() > indent.size()) {
      writeLine(m_out, m_columns, "", "    ", prefix);
      prefix.clear();
    }
    prefix.resize(prefix.size() + indent.size() - displayWidth(prefix), ' ');
    writeLine(m_out, m_columns, prefix, indent, entry.description);
  }

  /// Narrower on narrow terminals.
  std::size_t descriptionColumn() const {
    return std::min(kIndent.size() + kWidestName + kGap.size(), m_columns * 2 / 5);
  }

  /// The last blank outside quotes at which a line that is too long can be broken.
  std::size_t breakOf(std::string_view line, std::string_view prefix) const {
    constexpr std::string_view kContinued = " \\";
    std::size_t found = std::string_view::npos;
    if (prefix.size() + displayWidth(line) <= m_columns) return found;
    char quote = 0;
    for (std::size_t at = 0; at < line.size(); ++at) {
      if (quote == 0 && line[at] == ' ' && at > 0) {
        if (prefix.size() + displayWidth(line.substr(0, at)) + kContinued.size() > m_columns) break;
        found = at;
      }
      if (quote == 0 && (line[at] == '\'' || line[at] == '"'))
        quote = line[at];
      else if (line[at] == quote)
        quote = 0;
    }
    return found;
  }

  std::ostream& m_out;
  std::size_t m_columns;
};

}  // namespace

std::string helpText(const VerbFacts& verb, std::size_t columns) {
  std::ostringstream out;
  HelpWriter writer(out, columns);
  writer.paragraph(verb.summary);
  out << '\n';
  writer.indented("Usage: " + verb.usage());
  writer.section("Arguments", entriesOf(verb.arguments));
  for (const OptionGroup& group : verb.groups) writer.section(group.title, entriesOf(group.options));
  std::vector<Entry> verbs;
  for (const VerbFacts& inner : verb.verbs) verbs.push_back({inner.path.back(), inner.summary});
  writer.section("Verbs", verbs);
  for (const std::string& paragraph : verb.paragraphs) {
    out << '\n';
    writer.paragraph(paragraph);
  }
  if (!verb.examples.empty()) out << "\nExample:\n";
  for (const std::string& example : verb.examples) writer.example(example);
  return out.str();
}

Exit printHelp(const CLI::App& verb) {
  const std::size_t columns = standardOutputColumns();
  std::cout << helpText(factsOf(verb), columns == 0 ? kUsualColumns : columns);
  return finishStandardOutput();
}

}  // namespace mailtree::cli
