// tests/email/cases.h - tables of cases as text, and what several tests ask of a node or a log.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/support/dead_node.h"
#include "tests/support/fields.h"
#include "tests/support/messages.h"
#include "tests/support/node_path.h"
#include "tests/support/tree_notation.h"

namespace mailtree {

inline LogNull quiet;

/// The text of a cell: \n is a line feed, \r a carriage return and \xNN a byte.
inline std::string cellOf(std::string_view text) {
  std::string cell;
  for (; !text.empty(); text.remove_prefix(1)) {
    const char next = text.size() > 1 && text[0] == '\\' ? text[1] : '\0';
    if (next == 'x') {
      cell += static_cast<char>(std::stoi(std::string(text.substr(2, 2)), nullptr, 16));
      text.remove_prefix(3);
    } else if (next == 'n' || next == 'r') {
      cell += next == 'n' ? '\n' : '\r';
      text.remove_prefix(1);
    } else {
      cell += text[0];
    }
  }
  return cell;
}

/// The rows of a table, on lines of their own or separated by "||". A row is N cells between
/// "|"; those at its end may be left out.
template <std::size_t N>
std::vector<std::array<std::string, N>> rowsOf(std::string_view table) {
  std::vector<std::array<std::string, N>> rows;
  while (!trim(table).empty()) {
    table = trim(table);
    std::string_view row = table.substr(0, std::min(table.find('\n'), table.find("||")));
    table.remove_prefix(row.size() + (table.substr(row.size()).starts_with("||") ? 2 : 0));
    for (std::string& cell : rows.emplace_back()) {
      const std::string_view text = row.substr(0, row.find('|'));
      cell = cellOf(trim(text));
      row.remove_prefix(std::min(text.size() + 1, row.size()));
    }
  }
  return rows;
}

/// A node without any field.
inline EmailPtr bareNode() { return EmailPtr(Email2::createNewObject00()); }

/// The fields of a node in order, decoded, as "Name: value" lines.
inline std::string fieldLines(const Email2& node) {
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
