#include "cli/support/csv.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "cli/support/errors.h"
#include "cli/support/text_charset.h"
#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/charset/Charset.h"

namespace mailtree::cli {
namespace {

constexpr int kWindows1252 = 1252;
constexpr std::size_t kBlock = std::size_t{128} * 1024;
/// Without a limit, an unterminated quote would read the rest of the file into memory.
constexpr std::size_t kMaxRow = std::size_t{16} << 20;

std::string textOfError(int error) { return std::generic_category().message(error); }

/// Reads what is available, at most `size` bytes; -1 with errno set.
ssize_t readSome(int descriptor, char* bytes, std::size_t size) {
  for (;;) {
    const ssize_t count = ::read(descriptor, bytes, size);
    if (count >= 0 || errno != EINTR) return count;
  }
}

bool isRegularFile(int descriptor) {
  struct stat status;
  return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

/// Copies everything from the descriptor to a temporary file and rewinds it; null with errno set on failure.
FilePtr spool(int descriptor) {
  FilePtr copy(std::tmpfile());
  const auto block = std::make_unique<char[]>(kBlock);
  while (copy) {
    const ssize_t count = readSome(descriptor, block.get(), kBlock);
    if (count < 0) return nullptr;
    if (count == 0) break;
    const auto size = static_cast<std::size_t>(count);
    if (std::fwrite(block.get(), 1, size, copy.get()) != size) return nullptr;
  }
  if (copy && std::fflush(copy.get()) != 0) return nullptr;
  if (copy) std::rewind(copy.get());
  return copy;
}

FilePtr openStream(const std::string& path) {
  errno = 0;
  if (path != "-") return FilePtr(std::fopen(path.c_str(), "rbe"));
  const int own = ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
  return FilePtr(own < 0 ? nullptr : ::fdopen(own, "rb"));
}

FilePtr openRewindable(const std::string& path) {
  FilePtr file = openStream(path);
  if (!file || isRegularFile(::fileno(file.get()))) return file;
  return spool(::fileno(file.get()));
}

bool readAll(int descriptor, std::string& bytes) {
  const auto block = std::make_unique<char[]>(kBlock);
  for (ssize_t count; (count = readSome(descriptor, block.get(), kBlock)) != 0;) {
    if (count < 0) return false;
    bytes.append(block.get(), static_cast<std::size_t>(count));
  }
  return true;
}

/// Looks for the patterns of utf-8 in bytes that come in blocks.
class Utf8Search {
 public:
  void add(std::string_view bytes) {
    for (const char c : bytes) {
      const auto byte = static_cast<unsigned char>(c);
      const bool continues = (byte & 0xC0) == 0x80;
      m_isBroken |= continues != (m_missing > 0);
      m_found |= continues && m_missing == 1;
      m_missing = continues && m_missing > 0 ? m_missing - 1
                  : byte >= 0xF0             ? 3
                  : byte >= 0xE0             ? 2
                                             : byte >= 0xC0;
    }
  }
  /// Whether no character beyond ASCII is in utf-8. A single wrong byte in utf-8 is an error, not another
  /// charset.
  bool isOther() const { return (m_isBroken || m_missing > 0) && !m_found; }

 private:
  int m_missing = 0;  ///< Bytes of the current character.
  bool m_found = false, m_isBroken = false;
};

/// The code page of ASCII in utf-16 without a byte order mark; 0 when it is something else.
int codePageByZeros(std::string_view bytes) {
  if (bytes.size() < 4) return 0;
  const bool even = !bytes[0] && !bytes[2], odd = !bytes[1] && !bytes[3];
  if (even == odd) return 0;
  return even ? kCpUtf16BE : kCpUtf16LE;
}

/// The code page of a table: by its byte order mark, as utf-16, as utf-8, else as windows-1252.
int codePageOfTable(int descriptor) {
  const auto block = std::make_unique<char[]>(kBlock);
  Utf8Search search;
  bool isFirst = true;
  for (ssize_t count; (count = readSome(descriptor, block.get(), kBlock)) > 0; isFirst = false) {
    const std::string_view bytes(block.get(), static_cast<std::size_t>(count));
    const int marked = isFirst ? markedCodePage(bytes, {}) : 0;
    const int known = isFirst && marked == 0 ? codePageByZeros(bytes) : marked;
    if (known != 0) return known;
    search.add(bytes);
  }
  return search.isOther() ? kWindows1252 : kCpUtf8;
}

std::string countOf(std::size_t number, const char* noun) {
  return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

}  // namespace

// Rows

std::string_view CsvRow::operator[](std::size_t index) const noexcept {
  const Field& field = m_fields[index];
  return std::string_view(m_text).substr(field.offset, field.size);
}

// Reading

CsvReader::CsvReader(int descriptor, char delimiter)
    : m_descriptor(descriptor),
      m_delimiter(delimiter),
      m_block(std::make_unique_for_overwrite<char[]>(kBlock)) {
  skipByteOrderMark();
}

bool CsvReader::fill() {
  if (m_problem) return false;
  m_blockBegin += m_size;
  m_at = m_size = 0;
  const ssize_t count = readSome(m_descriptor, m_block.get(), kBlock);
  if (count < 0) return fail(0, textOfError(errno));
  m_size = static_cast<std::size_t>(count);
  return m_size > 0;
}

int CsvReader::take() {
  const int c = peek();
  if (c != kEnd) ++m_at;
  return c;
}

bool CsvReader::fail(std::size_t line, std::string what) {
  if (!m_problem) m_problem = {line, std::move(what)};
  return false;
}

/// A first block shorter than the mark is the whole file.
void CsvReader::skipByteOrderMark() {
  constexpr std::string_view kMark = "\xEF\xBB\xBF";
  if (fill() && std::string_view(m_block.get(), m_size).starts_with(kMark)) m_at = kMark.size();
}

void CsvReader::takeLineBreak() {
  if (take() == '\r' && peek() == '\n') take();
  ++m_line;
}

void CsvReader::skipEmptyLines() {
  while (peek() == '\r' || peek() == '\n') takeLineBreak();
}

bool CsvReader::next(CsvRow& row) {
  row.m_text.clear();
  row.m_fields.clear();
  skipEmptyLines();
  if (peek() == kEnd) return false;
  for (;;) {
    if (!readField(row) || !finishField(row)) return false;
    if (peek() != m_delimiter) break;
    take();
  }
  if (peek() != kEnd) takeLineBreak();
  return !m_problem;
}

bool CsvReader::readField(CsvRow& row) {
  const std::size_t line = m_line;
  row.m_fields.push_back({row.m_text.size(), 0, line});
  if (peek() != '"') return readBare(row);
  take();
  return readQuoted(row, line);
}

bool CsvReader::readBare(CsvRow& row) {
  while (!endsField(peek())) {
    if (peek() == '"') return fail(m_line, "quote inside an unquoted field");
    if (!append(row, take())) return false;
  }
  return true;
}

/// Reads from after the opening quote, on line `line`, to the closing one.
bool CsvReader::readQuoted(CsvRow& row, std::size_t line) {
  for (;;) {
    const int c = take();
    if (c == kEnd) return fail(line, "unterminated quote");
    if (c == '"' && peek() != '"') break;
    if (c == '"') take();
    if (c == '\n' || (c == '\r' && peek() != '\n')) ++m_line;
    if (!append(row, c)) return false;
  }
  return endsField(peek()) || fail(m_line, "text after a closing quote");
}

bool CsvReader::append(CsvRow& row, int c) {
  if (row.m_text.size() >= kMaxRow)
    return fail(row.line(), "the row is longer than 16 MiB; is there an unterminated quote?");
  row.m_text += static_cast<char>(c);
  return true;
}

bool CsvReader::finishField(CsvRow& row) {
  CsvRow::Field& field = row.m_fields.back();
  field.size = row.m_text.size() - field.offset;
  const std::string_view text = row[row.size() - 1];
  if (text.find('\0') != std::string_view::npos) return fail(field.line, "contains a NUL byte");
  if (!isValidUtf8(text)) return fail(field.line, "is not valid utf-8");
  row.m_text += '\0';
  return true;
}

// Tables

std::optional<char> delimiterOf(const std::string& name) {
  if (equalsNoCase(name, "tab") || name == "\\t") return '\t';
  const bool isUsable =
      name.size() == 1 && name[0] != '"' && (name[0] == '\t' || (name[0] >= ' ' && name[0] < '\x7F'));
  return isUsable ? std::optional(name[0]) : std::nullopt;
}

std::optional<CsvTable> CsvTable::open(const std::string& path, const CsvForm& form) {
  FilePtr file = openRewindable(path);
  if (!file) {
    reportError(path, textOfError(errno));
    return std::nullopt;
  }
  CsvTable table(path, std::move(file));
  if (!table.measure() || !table.decode(form.charset)) return std::nullopt;
  table.m_delimiter = form.delimiter ? *form.delimiter : table.findDelimiter();
  if (!table.goToBegin() || !table.readHeader()) return std::nullopt;
  return table;
}

/// Replaces a table that is not in utf-8 by one that is.
bool CsvTable::decode(const std::string& charset) {
  TextCharset known = charsetOf(charset);
  if (charset.empty()) known.codePage = codePageOfTable(::fileno(m_file.get()));
  if (known.codePage == kCpUtf8) return true;
  std::string bytes, text;
  if (!goToBegin() || !readAll(::fileno(m_file.get()), bytes)) return fail(0, textOfError(errno));
  if (const auto problem = decodeText(bytes, known, "--charset", text))
    return fail(0,
                charset.empty() ? "the text is in an unknown charset; specify it with --charset" : *problem);
  return replaceBy(text);
}

bool CsvTable::replaceBy(std::string_view text) {
  FilePtr copy(std::tmpfile());
  if (!copy || std::fwrite(text.data(), 1, text.size(), copy.get()) != text.size() ||
      std::fflush(copy.get()) != 0)
    return fail(0, textOfError(errno));
  std::rewind(copy.get());
  m_file = std::move(copy);
  return measure();
}

/// The delimiter that divides the header into the most columns; better one that divides the first row alike.
char CsvTable::findDelimiter() {
  char found = ',';
  std::pair<bool, std::size_t> most;
  for (const char candidate : {',', ';', '\t'}) {
    if (!goToBegin()) break;
    CsvReader reader(::fileno(m_file.get()), candidate);
    CsvRow header, first;
    if (!reader.next(header) || header.size() < 2) continue;
    const bool isAlike = reader.next(first) ? first.size() == header.size() : !reader.problem();
    if (std::pair(isAlike, header.size()) <= most) continue;
    most = {isAlike, header.size()};
    found = candidate;
  }
  return found;
}

bool CsvTable::goToBegin() {
  return ::lseek(::fileno(m_file.get()), m_begin, SEEK_SET) >= 0 || fail(0, textOfError(errno));
}

bool CsvTable::measure() {
  const int descriptor = ::fileno(m_file.get());
  struct stat status;
  m_begin = ::lseek(descriptor, 0, SEEK_CUR);
  if (m_begin < 0 || ::fstat(descriptor, &status) != 0) return fail(0, textOfError(errno));
  m_size = static_cast<std::uint64_t>(std::max<std::int64_t>(status.st_size - m_begin, 0));
  return true;
}

bool CsvTable::rewind() {
  if (!goToBegin()) return false;
  m_columns.clear();
  m_places.clear();
  return readHeader();
}

bool CsvTable::readHeader() {
  m_reader.emplace(::fileno(m_file.get()), m_delimiter);
  CsvRow row;
  if (!m_reader->next(row)) {
    if (const auto& problem = m_reader->problem()) return fail(problem->line, problem->what);
    return fail(0, "missing header row");
  }
  for (std::size_t i = 0; i < row.size(); ++i) {
    const std::string_view name = row[i];
    if (name.empty()) return fail(row.lineOf(i), "column " + std::to_string(i + 1) + " has no name");
    if (!m_places.emplace(name, i).second)
      return fail(row.lineOf(i), "duplicate column '" + std::string(name) + "'");
    m_columns.emplace_back(name);
  }
  return true;
}

std::optional<std::size_t> CsvTable::columnOf(std::string_view name) const {
  const auto found = m_places.find(name);
  if (found == m_places.end()) return std::nullopt;
  return found->second;
}

bool CsvTable::next(CsvRow& row) {
  if (!m_reader->next(row)) {
    if (const auto& problem = m_reader->problem()) return fail(problem->line, problem->what);
    return false;
  }
  if (row.size() == m_columns.size()) return true;
  return fail(row.line(),
              countOf(row.size(), "field") + " instead of the header's " + std::to_string(m_columns.size()));
}

void CsvTable::reportErrorAt(std::size_t line, std::string_view problem) const {
  reportError(m_path, (line ? "line " + std::to_string(line) + ": " : std::string()).append(problem));
}

bool CsvTable::fail(std::size_t line, std::string_view problem) {
  reportErrorAt(line, problem);
  m_failed = true;
  return false;
}

}  // namespace mailtree::cli
