// tests/email/cases.h - tables of cases as text, and what several tests ask of a node or a log.
#pragma once

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/email/Email2.h"

namespace mailtree {

/// The lines of a text, each as N cells that stand between "|" and are trimmed. In a cell \n is a line feed, \r a
/// carriage return and \xNN a byte.
template <std::size_t N>
std::vector<std::array<std::string, N>> rowsOf(std::string_view table) {
  std::vector<std::array<std::string, N>> rows;
  while (!trim(table).empty()) {
    table = trim(table);
    std::string_view line = table.substr(0, table.find('\n'));
    table.remove_prefix(line.size());
    for (std::string& cell : rows.emplace_back()) {
      std::string_view text = trim(line.substr(0, line.find('|')));
      line.remove_prefix(std::min(line.find('|'), line.size() - 1) + 1);
      for (; !text.empty(); text.remove_prefix(1)) {
        const std::size_t escaped =
            text[0] == '\\' && text.size() > 1 ? std::string_view("nrx").find(text[1]) : 3;
        cell += escaped < 2 ? "\n\r"[escaped] : text[0];
        if (escaped == 2)
          cell.back() = static_cast<char>(std::stoi(std::string(text.substr(2, 2)), nullptr, 16));
        if (escaped < 3) text.remove_prefix(escaped == 2 ? 3 : 1);
      }
    }
  }
  return rows;
}

/// A node without any field.
inline EmailPtr bareNode() { return EmailPtr(Email2::createNewObject00()); }

/// The fields of a node in order, decoded, as "Name: value" lines.
inline std::string fieldLines(const Email2& node) {
  LogNull quiet;
  std::string lines;
  StringBuffer name, value;
  for (int i = 0; i < node.getNumHeaderFields(); ++i) {
    node.getHeaderFieldName(i, name, quiet);
    node.getHeaderFieldValue(i, value, quiet);
    lines.append(name.view()).append(": ").append(value.view()).append("\n");
  }
  return lines;
}

/// What a log says beside its contexts, each entry as "tag=text|" or "text|".
inline std::string said(const LogMemory& log) {
  std::string entries;
  for (const LogEntry& entry : log.entries())
    if (entry.kind != LogEntry::Kind::ContextOpen && entry.kind != LogEntry::Kind::ContextClose)
      entries += entry.tag + (entry.tag.empty() ? "" : "=") + entry.text + "|";
  return entries;
}

}  // namespace mailtree
