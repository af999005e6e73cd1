#include "cli/views/text_view.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <ostream>

#include "cli/views/layers.h"
#include "cli/views/security_badges.h"
#include "mailtree/base/Utf.h"
#include "mailtree/message/displayed_text.h"
#include "mailtree/message/field_forms.h"
#include "mailtree/secure/displayed_fields.h"

namespace mailtree::cli {
namespace {

constexpr std::size_t kLabelWidth = 9;
constexpr std::size_t kMaxTextLines = 12;
constexpr std::size_t kMaxLineWidth = 100;
constexpr std::size_t kMaxLineBytes = 8 * kMaxLineWidth;  ///< Longer lines are not measured beyond this.
constexpr std::size_t kMaxAddressesShown = 10;

struct Drawing {
  const char *child, *lastChild, *below, *blank;
};
constexpr Drawing kLines = {"├─ ", "└─ ", "│  ", "   "};
constexpr Drawing kAscii = {"|- ", "`- ", "|  ", "   "};

/// Lines are broken without a terminal too: a pager would continue a long line at the left edge, and the
/// continuation, which is text of the message, could pass for our output.
std::size_t columnsOf(const Style& style) {
  constexpr std::size_t kUsual = 80;
  return style.columns == 0 ? kUsual : style.columns;
}

void writeField(std::ostream& out, const Style& style, std::string_view label, std::string_view value) {
  if (value.empty()) return;
  std::string head = std::string(label) + ":";
  head.resize(std::max(kLabelWidth, head.size() + 1), ' ');
  writeLine(out, columnsOf(style), style.paint(Ink::faint, head), std::string(head.size(), ' '), value);
}

std::string displayList(const Email2& root, std::string_view field) {
  const std::vector<Address> addresses = addressesIn(root.m_header, field);
  const std::size_t count = addresses.size();
  std::string text;
  for (std::size_t i = 0; i < std::min(count, kMaxAddressesShown); ++i) {
    if (i) text += ", ";
    text += addresses[i].text();
  }
  if (count > kMaxAddressesShown) text += " and " + std::to_string(count - kMaxAddressesShown) + " more";
  return text;
}

/// The date in the local time zone, with its offset.
std::string localDate(const Email2& root) {
  const std::optional<SorvikSysTime> date = dateOf(root);
  if (!date) return {};
  const auto seconds = static_cast<std::time_t>(date->toUnixTime());
  std::tm local{};
  if (!localtime_r(&seconds, &local)) return {};
  std::array<char, 64> text{};
  std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S %z", &local);
  return text.data();
}

void writeSummary(std::ostream& out, const Email2& root, const Style& style) {
  if (const std::optional<_svEmailAddress> sender = senderOf(root))
    writeField(out, style, "From", displayForm(*sender));
  writeField(out, style, "To", displayList(root, "To"));
  writeField(out, style, "Cc", displayList(root, "Cc"));
  writeField(out, style, "Date", localDate(root));
  writeField(out, style, "Subject", decodedField(root, "Subject").value_or(std::string()));
}

void writeAllFields(std::ostream& out, const Email2& root, const Style& style) {
  const std::string said = style.paint(Ink::faint, kMessageLinePrefix),
                    indent = std::string(kMessageLinePrefix) + "    ";
  for (int i = 0; i < root.m_header.getNumFields(); ++i)
    writeLine(out, columnsOf(style), said, indent,
              std::string(root.m_header.fieldName(i)) + ": " + root.m_header.decodedValue(i));
}

/// Writes one line per layer, and one for each displayed field that differs inside. With all header fields
/// shown, "Signed: no" is written too, because one of those fields could claim otherwise.
void writeSecurity(std::ostream& out, const Security& security, const TextOptions& options) {
  const Style& style = options.style;
  if (!security.layers.empty() || options.headers) out << '\n';
  if (!security.isSigned() && options.headers) writeField(out, style, "Signed", "no");
  for (const SecurityLayer& layer : security.layers) {
    const LayerSummary summary = summaryOf(layer, security);
    std::string text = summary.text;
    if (const std::string signer = nameOfSigner(layer, security); !signer.empty())
      text += "; signer " + signer;
    writeField(out, style, layer.isSigned() ? "Signed" : "Layer", text);
  }
  for (const FieldDifference& field : security.differences)
    if (isDisplayedField(field.name))
      writeField(out, style, "Inside", field.name + (field.inside.empty() ? ": none" : ": " + field.inside));
}

/// The branches drawn to the left of a row: one column for each ancestor, with a line
/// where that one has later siblings. Rows must come depth-first.
class Branches {
 public:
  explicit Branches(const Drawing& drawing) : m_drawing(drawing) {}

  std::string of(const PartRow& row) {
    if (row.parent < 0) return {};
    const auto depth = static_cast<std::size_t>(row.depth);
    m_columns.resize(depth);  // one per ancestor, starting below the root
    std::string branch = depth > 1 ? m_columns[depth - 2] : std::string();
    m_columns.back() = branch + (row.isLastChild ? m_drawing.blank : m_drawing.below);
    return branch + (row.isLastChild ? m_drawing.lastChild : m_drawing.child);
  }

 private:
  const Drawing& m_drawing;
  std::vector<std::string> m_columns;
};

std::string repairsOf(const Email2& node, bool verbose) {
  if (node.m_repairs.isEmpty()) return {};
  if (!verbose) return "repaired";
  std::string text = "repaired:";
  for (const RepairName& row : kRepairNames) {
    if (!node.m_repairs.has(row.repair)) continue;
    text.append(text.ends_with(':') ? " " : ", ").append(row.name);
    if (row.repair == Repair::damagedText)
      text += " (" + std::to_string(node.m_repairs.damagedSequences()) + ")";
  }
  return text;
}

void addBadge(std::string& line, const Style& style, Ink ink, const std::string& text) {
  if (!text.empty()) line += "  " + style.paint(ink, "[" + text + "]");
}

/// What a part is for a reader.
struct Role {
  bool isBody = false, isFile = false;
};

std::vector<Role> rolesOf(const Outline& outline, const Displayed& display) {
  std::vector<Role> roles(outline.rows.size());
  for (const auto* const shown : {&display.textBody, &display.htmlBody})
    for (const int id : *shown) roles[static_cast<std::size_t>(id)].isBody = isReadAsText(outline.row(id));
  for (const int id : display.attachments) roles[static_cast<std::size_t>(id)].isFile = true;
  return roles;
}

std::string badgesOf(const PartRow& row, Role role, const TextOptions& options) {
  std::string line;
  const Style& style = options.style;
  if (role.isBody) addBadge(line, style, Ink::body, "body");
  if (role.isFile)
    addBadge(line, style, Ink::attachment,
             options.verbose && !row.reason.empty() ? "attachment: " + row.reason : "attachment");
  if (row.node->m_disposition.equalsIgnoreCase("inline")) addBadge(line, style, Ink::faint, "inline");
  addBadge(line, style, Ink::warning, repairsOf(*row.node, options.verbose));
  return line;
}

std::string detailsOf(const PartRow& row) {
  std::string line;
  const auto add = [&line](std::string_view text) {
    if (!text.empty()) line.append("  ").append(text);
  };
  const auto addWord = [&add](std::string_view text) {
    if (!text.empty()) add(wordOrQuoted(text));
  };
  addWord(charsetOf(row));
  addWord(row.node->m_transferEncoding);
  if (row.isLeaf()) add(humanSize(row.node->m_body.getSize()));
  return line;
}

std::string securityOf(const std::vector<LayerSummary>& badges, const Style& style) {
  std::string line;
  for (const LayerSummary& badge : badges)
    addBadge(line, style, badge.isFaultless ? Ink::body : Ink::warning, badge.text);
  return line;
}

std::string allBadgesOf(const PartRow& row, Role role, const std::vector<LayerSummary>& layers,
                        const TextOptions& options) {
  return badgesOf(row, role, options) + securityOf(layers, options.style);
}

/// The file name in quotes, shortened in the middle when it does not fit.
std::string nameOf(const PartRow& row, std::size_t room) {
  if (row.filename.empty()) return {};
  const std::string whole = inQuotes(row.filename);
  if (maxDisplayWidth(whole) <= room) return "  " + whole;
  constexpr std::size_t kEnd = 8, kFewest = 24;
  std::size_t end = row.filename.size() - std::min(kEnd, row.filename.size());
  end = utf8PrefixLength(row.filename, end);
  const std::string extension = "..." + inQuotes(row.filename.substr(end)).substr(1);
  const std::size_t taken = maxDisplayWidth(extension);
  return "  " + std::string(fitMaxWidth(whole, std::max(room, kFewest + taken) - taken)) + extension;
}

void writeTree(std::ostream& out, const Outline& outline, const Displayed& display, const Security& security,
               const TextOptions& options) {
  const std::vector<Role> roles = rolesOf(outline, display);
  const auto layers = securityBadgesOf(outline, security);
  const Style& style = options.style;
  Branches branches(style.lines ? kLines : kAscii);
  for (std::size_t id = 0; id < outline.rows.size(); ++id) {
    const PartRow& row = outline.rows[id];
    const std::string branch = branches.of(row) + std::to_string(id);
    const std::string type = wordOrQuoted(row.contentType), details = detailsOf(row);
    const std::size_t taken =
        displayWidth(branch) + displayWidth(type) + displayWidth(details) +
        displayWidth(allBadgesOf(row, roles[id], layers[id], {{}, false, options.verbose}));
    constexpr std::size_t kBlanks = 3;  // after the number, before the name
    const std::size_t room =
        style.columns == 0 ? std::string::npos : style.columns - std::min(taken + kBlanks, style.columns);
    out << style.paint(Ink::faint, branch) << ' ' << style.paint(Ink::type, type) << details
        << nameOf(row, room) << allBadgesOf(row, roles[id], layers[id], options) << '\n';
  }
}

void writeFirstLines(std::ostream& out, std::string_view text, const Style& style) {
  constexpr std::string_view kCut = "...";
  const std::string said = style.paint(Ink::faint, trimRight(kMessageLinePrefix));
  const std::size_t room =
      style.columns == 0 ? std::string::npos : style.columns - kMessageLinePrefix.size() - kCut.size();
  text = trimRight(text);
  for (std::size_t lines = 0; !text.empty(); ++lines) {
    if (lines == kMaxTextLines) {
      out << said << ' ' << kCut << '\n';
      return;
    }
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view whole = trimRight(text.substr(0, end));
    const std::string_view measured = whole.substr(0, utf8PrefixLength(whole, kMaxLineBytes));
    const std::string line = printable(measured);
    const std::string_view shown = fitMaxWidth(fitWidth(line, kMaxLineWidth), room);
    const bool isCut = measured.size() < whole.size() || shown.size() < line.size();
    out << said << (shown.empty() ? "" : " ") << shown << (isCut ? kCut : "") << '\n';
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

}  // namespace

void writeText(std::ostream& out, mailtree::Message& message, const TextOptions& options) {
  Email2& root = message.email2();
  const Security& security = message.security();
  const Outline outline = outlineOf(root);
  const Displayed display = displayedIn(outline);
  if (options.headers)
    writeAllFields(out, root, options.style);
  else
    writeSummary(out, root, options.style);
  writeSecurity(out, security, options);
  out << '\n';
  writeTree(out, outline, display, security, options);
  const std::string text = displayedText(outline, display, &root.m_common->m_budget);
  if (!trim(text).empty()) {
    out << '\n';
    writeFirstLines(out, text, options.style);
  }
  if (display.notShown > 0)
    out << '\n' << display.notShown << (display.notShown == 1 ? " part" : " parts") << " not shown\n";
}

}  // namespace mailtree::cli
