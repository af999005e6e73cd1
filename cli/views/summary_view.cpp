#include "cli/views/summary_view.h"

#include <algorithm>
#include <iterator>
#include <ostream>

#include "cli/support/json_text.h"
#include "cli/support/terminal.h"
#include "mailtree/base/Ascii.h"
#include "mailtree/message/times.h"
#include "mailtree/mime/header/MimeHeader.h"

namespace mailtree::cli {

struct SummaryKind {
  std::string_view name;
  std::string (*groupOf)(LazyMessage& message);
  bool isInOrder;  ///< Of its groups, not of their sizes.
};

namespace {

std::string senderOf(LazyMessage& message) {
  const Address from = message.from();
  return lowerCase(from.address.empty() ? from.name : from.address);
}

std::string domainOf(LazyMessage& message) {
  const std::string sender = senderOf(message);
  const std::size_t at = sender.rfind('@');
  return at == std::string::npos ? std::string() : sender.substr(at + 1);
}

std::string monthOf(LazyMessage& message) {
  const std::optional<Date> date = message.date();
  return date ? timeText(date->time).substr(0, 7) : std::string();
}

std::string typeOf(LazyMessage& message) {
  std::string scratch;
  const MimeHeader& fields = message.header();
  const std::string_view value = fields.unfoldedValue(fields.findField("Content-Type"), scratch);
  const std::string_view type = trim(value.substr(0, value.find(';')));
  return type.empty() ? "text/plain" : lowerCase(type);
}

constexpr SummaryKind kKinds[] = {{"sender", senderOf, false},
                                  {"domain", domainOf, false},
                                  {"month", monthOf, true},
                                  {"type", typeOf, false}};

/// A bar of a length in eighths of a column.
std::string barOf(double part, std::size_t columns) {
  constexpr const char* kEighths[] = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
  const auto eighths = static_cast<std::size_t>(part * static_cast<double>(columns) * 8);
  std::string bar;
  for (std::size_t i = 0; i < eighths / 8; ++i) bar += "█";
  return bar + kEighths[eighths % 8];
}

}  // namespace

std::vector<std::string> Summary::kinds() {
  std::vector<std::string> names;
  for (const SummaryKind& kind : kKinds) names.emplace_back(kind.name);
  return names;
}

Summary::Summary(std::string_view kind)
    : m_kind(std::ranges::find_if(kKinds, [&](const SummaryKind& k) { return equalsNoCase(k.name, kind); })) {
}

std::string Summary::groupOf(LazyMessage& message) const { return m_kind->groupOf(message); }

void Summary::add(const std::string& group, std::uint64_t bytes) {
  Group& found = m_groups[group];
  ++found.messages;
  found.bytes += bytes;
}

void Summary::write(std::ostream& out, const ListStyle& style) const {
  constexpr std::size_t kMessages = 8, kBytes = 7, kWidestName = 40, kGaps = 6, kShortestBar = 4;
  std::vector<const std::pair<const std::string, Group>*> groups;
  std::size_t nameWidth = 1;
  std::uint64_t most = 1;
  for (const auto& group : m_groups) {
    groups.push_back(&group);
    nameWidth = std::max(nameWidth, std::min(displayWidth(singleSpaced(group.first)), kWidestName));
    most = std::max(most, group.second.messages);
  }
  std::ranges::sort(groups, [this](const auto* a, const auto* b) {
    if (!m_kind->isInOrder && a->second.messages != b->second.messages)
      return a->second.messages > b->second.messages;
    return a->first < b->first;
  });
  if (style.form == ListForm::csv) out << m_kind->name << ",messages,bytes\n";
  for (const auto* const group : groups) {
    const auto& [name, sums] = *group;
    if (style.form == ListForm::json) {
      out << ObjectText()
                 .add("schema", kSchema)
                 .add("summary", m_kind->name)
                 .addOrNull("group", name)
                 .add("messages", sums.messages)
                 .add("bytes", sums.bytes)
                 .closed()
          << '\n';
      continue;
    }
    if (style.form == ListForm::csv) {
      out << csvField(name) << ',' << sums.messages << ',' << sums.bytes << '\n';
      continue;
    }
    const std::string shown = name.empty() ? "-" : singleSpaced(name), count = std::to_string(sums.messages),
                      size = humanSize(sums.bytes);
    const std::string_view fitting = style.columns ? fitWidth(shown, nameWidth) : std::string_view(shown);
    std::string line(kMessages - std::min(count.size(), kMessages), ' ');
    line.append(count).append("  ").append(kBytes - std::min(size.size(), kBytes), ' ').append(size);
    line.append("  ").append(fitting);
    const std::size_t taken = kMessages + kBytes + nameWidth + kGaps;
    if (style.columns >= taken + kShortestBar)
      line += std::string(nameWidth - displayWidth(fitting) + 2, ' ') +
              barOf(static_cast<double>(sums.messages) / static_cast<double>(most), style.columns - taken);
    out << line << '\n';
  }
}

}  // namespace mailtree::cli
