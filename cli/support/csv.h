// cli/support/csv.h - tables of comma-separated values (RFC 4180), read row by row.
//
//   Input      As spreadsheets write it: comma, semicolon or tab between fields; utf-8, utf-16 or
//   windows-1252,
//              or another charset when it is named; any line breaks; quoted fields with delimiters, doubled
//              quotes and line breaks. Empty lines are skipped. Malformed input is rejected.
//   Memory     One row at a time, whatever the file's size. A pipe is first copied to a temporary file, and
//              so is the text of a table that is not in utf-8.
//   Failure    An error message with the file and the line.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Output.h"

namespace mailtree::cli {

/// One row; reading the next one reuses its memory.
class CsvRow {
 public:
  std::size_t size() const noexcept { return m_fields.size(); }
  /// A field; null-terminated.
  std::string_view operator[](std::size_t index) const noexcept;
  /// Line on which the row, or one of its fields, begins; counted from 1.
  std::size_t line() const noexcept { return m_fields.empty() ? 0 : m_fields.front().line; }
  std::size_t lineOf(std::size_t index) const noexcept { return m_fields[index].line; }

 private:
  friend class CsvReader;
  struct Field {
    std::size_t offset;
    std::size_t size;
    std::size_t line;
  };
  std::string m_text;
  std::vector<Field> m_fields;
};

struct CsvProblem {
  std::size_t line;  ///< 0 when it concerns no particular line.
  std::string what;
};

/// Reads rows from an open file, starting at its current position.
class CsvReader {
 public:
  CsvReader(int descriptor, char delimiter);
  /// False at the end and on a problem.
  bool next(CsvRow& row);
  const std::optional<CsvProblem>& problem() const noexcept { return m_problem; }
  std::uint64_t bytesRead() const noexcept { return m_blockBegin + m_at; }

 private:
  static constexpr int kEnd = -1;

  int peek() { return m_at < m_size || fill() ? static_cast<unsigned char>(m_block[m_at]) : kEnd; }
  int take();
  bool fill();
  bool fail(std::size_t line, std::string what);
  void skipEmptyLines();
  void skipByteOrderMark();
  void takeLineBreak();
  bool readField(CsvRow& row);
  bool readBare(CsvRow& row);
  bool readQuoted(CsvRow& row, std::size_t line);
  bool append(CsvRow& row, int c);
  bool finishField(CsvRow& row);
  bool endsField(int c) const noexcept { return c == kEnd || c == m_delimiter || c == '\r' || c == '\n'; }

  int m_descriptor;
  char m_delimiter;
  std::unique_ptr<char[]> m_block;
  std::size_t m_at = 0, m_size = 0;
  std::uint64_t m_blockBegin = 0;
  std::size_t m_line = 1;
  std::optional<CsvProblem> m_problem;
};

/// What is known about a table; what is not is found out.
struct CsvForm {
  std::optional<char> delimiter;
  std::string charset;
};

/// The delimiter that a user named: one character, or "tab".
std::optional<char> delimiterOf(const std::string& name);

/// A file with a header row; it can be rewound.
class CsvTable {
 public:
  /// Opens a file, or standard input for "-", and reads the header row, whose names are unique and not empty.
  /// Reports an error and returns nothing on failure.
  static std::optional<CsvTable> open(const std::string& path, const CsvForm& form);

  const std::vector<std::string>& columns() const noexcept { return m_columns; }
  std::optional<std::size_t> columnOf(std::string_view name) const;
  /// Reads the next row, which has one field per column. False at the end, and after reporting an error.
  bool next(CsvRow& row);
  bool failed() const noexcept { return m_failed; }
  /// Goes back to the first row after the header. False after reporting an error.
  bool rewind();
  /// Reports an error on a line.
  void reportErrorAt(std::size_t line, std::string_view problem) const;

  std::uint64_t size() const noexcept { return m_size; }
  std::uint64_t position() const noexcept { return m_reader->bytesRead(); }

 private:
  CsvTable(std::string path, FilePtr file) : m_path(std::move(path)), m_file(std::move(file)) {}
  bool decode(const std::string& charset);
  bool replaceBy(std::string_view text);
  char findDelimiter();
  bool measure();
  bool goToBegin();
  bool readHeader();
  bool fail(std::size_t line, std::string_view problem);

  std::string m_path;
  FilePtr m_file;
  std::int64_t m_begin = 0;  ///< Offset of the table in the file.
  std::uint64_t m_size = 0;
  char m_delimiter = ',';
  std::optional<CsvReader> m_reader;
  std::vector<std::string> m_columns;
  std::map<std::string, std::size_t, std::less<>> m_places;  ///< Column indexes by name.
  bool m_failed = false;
};

}  // namespace mailtree::cli
