// cli/views/list_view.h - one line for each message: as a table, as JSON, as CSV.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/message/LazyMessage.h"

namespace mailtree::cli {

struct ListField;

enum class ListForm {
  table,  ///< For people, as wide as the terminal.
  plain,  ///< Chosen fields with tabs between.
  json,
  csv,
};

/// How messages are listed. Any number of threads may use it.
struct ListStyle {
  ListForm form = ListForm::table;
  std::vector<const ListField*> fields;  ///< Ignored for a table.
  std::size_t columns = 0;               ///< The width of the terminal; 0: lines are not cut.
  bool hasNames = false;                 ///< In a table: names of messages instead of their numbers.
};

/// The letters in a table and what they mean, for help.
std::string listLetters();
/// The names of all fields, for help.
std::string listFieldNames();
/// The field of each name, ignoring case; a null pointer for one that does not exist.
std::vector<const ListField*> listFieldsNamed(const std::vector<std::string>& names);
/// All of them.
std::vector<const ListField*> allListFields();

/// A line without its end, cut where the indentation of a thread goes.
struct ListLine {
  std::string begin, rest;
};

ListLine lineOf(LazyMessage& message, const ListStyle& style);
/// The whole line with its end. In a table the subject is indented by `depth`; JSON has it as a member.
/// @param thread  a number from 1; 0: without threads.
std::string textOf(const ListLine& line, const ListStyle& style, std::uint64_t thread = 0,
                   std::size_t depth = 0);
/// The first line of CSV; empty for other forms.
std::string titleOf(const ListStyle& style);

/// A value as a field of CSV (RFC 4180).
std::string csvField(std::string_view value);

}  // namespace mailtree::cli
