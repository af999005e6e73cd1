#include "mailtree/mime/coding/Uu.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <tuple>

#include "mailtree/base/Ascii.h"

namespace mailtree {
namespace {

constexpr std::string_view kEnd = "end";

/// The length is a 6-bit number, so a line encodes at most 63 bytes in 84 characters.
constexpr std::size_t kMaxLineChars = 84;
/// Extra characters of a line: some encoders add a checksum, or an additional group.
constexpr std::size_t kMaxTrailer = 4;

/// Bytes of a line of data: six bits counted from the space, with "`" as a second zero.
constexpr bool isUuChar(char c) noexcept { return c >= ' ' && c <= '`'; }
constexpr unsigned uuValue(char c) noexcept { return (static_cast<unsigned char>(c) - 32u) & 63u; }

std::string_view trimTrailing(std::string_view text, std::string_view chars) noexcept {
  const std::size_t last = text.find_last_not_of(chars);
  return last == std::string_view::npos ? std::string_view() : text.substr(0, last + 1);
}

/// Without trailing zeros: lines lose trailing blanks in transport.
std::string_view withoutZeros(std::string_view line) noexcept { return trimTrailing(line, " \t`"); }

/// Number of bytes that a line of data, without its zeros, encodes; -1 when it is not one.
int dataLength(std::string_view line) noexcept {
  for (const char c : line)
    if (!isUuChar(c)) return -1;
  if (line.empty()) return 0;
  const unsigned length = uuValue(line[0]);
  const std::size_t needed = std::size_t{(length + 2) / 3} * 4;
  return line.size() - 1 <= needed + kMaxTrailer ? static_cast<int>(length) : -1;
}

bool decodeLine(std::string_view line, int length, DataBuffer& out) {
  std::array<char, kMaxLineChars> chars;
  chars.fill('`');
  const std::string_view data = line.substr(1, kMaxLineChars);
  std::memcpy(chars.data(), data.data(), data.size());

  std::array<unsigned char, kMaxLineChars / 4 * 3> bytes;
  const std::size_t size = static_cast<std::size_t>(length);
  for (std::size_t group = 0; group * 3 < size; ++group) {
    const char* const c = &chars[group * 4];
    const unsigned bits = uuValue(c[0]) << 18 | uuValue(c[1]) << 12 | uuValue(c[2]) << 6 | uuValue(c[3]);
    bytes[group * 3] = static_cast<unsigned char>(bits >> 16);
    bytes[group * 3 + 1] = static_cast<unsigned char>(bits >> 8);
    bytes[group * 3 + 2] = static_cast<unsigned char>(bits);
  }
  return out.append(bytes.data(), size);
}

/// Whether a line is "begin", three or four octal digits, a blank and a name, which may be empty.
bool readBegin(std::string_view line, std::string_view& name) noexcept {
  constexpr std::string_view kBegin = "begin ";
  if (!line.starts_with(kBegin)) return false;
  line.remove_prefix(kBegin.size());
  const std::size_t digits = std::min(line.find_first_not_of("01234567"), line.size());
  if (digits < 3 || digits > 4 || digits == line.size() || !isBlankAscii(line[digits])) return false;
  name = trim(line.substr(digits));
  return true;
}

/// Reads the blocks of a text one after the other. Every byte is examined a fixed number of times.
class BlockReader {
 public:
  explicit BlockReader(std::string_view text) : m_text(text) {}

  /// Appends the bytes of the next block; false, with `out` unchanged, when there is none or memory ran out.
  bool next(DataBuffer& out, std::string_view& name) {
    const std::size_t size = out.getSize();
    const std::size_t searchedFrom = m_at;
    while (findBegin(name)) {
      const std::size_t begin = m_beginLine;
      if (readData(out)) {
        m_textPrecedes = !trim(m_text.substr(searchedFrom, begin - searchedFrom)).empty();
        return true;
      }
      out.shorten(out.getSize() - size);
    }
    return false;
  }

  // Of the last block: whether text precedes it since the previous one, where it begins, what follows.
  bool textPrecedes() const noexcept { return m_textPrecedes; }
  std::size_t blockBegin() const noexcept { return m_beginLine; }
  std::string_view rest() const noexcept { return m_text.substr(m_at); }

 private:
  /// Moves after the next "begin MODE NAME" line.
  bool findBegin(std::string_view& name) noexcept {
    while (m_at < m_text.size()) {
      m_beginLine = m_at;
      if (readBegin(readLine(), name)) return true;
    }
    return false;
  }

  /// Reads up to a line break of any kind and moves after it.
  std::string_view readLine() noexcept {
    std::size_t end = m_at;
    while (end < m_text.size() && m_text[end] != '\n' && m_text[end] != '\r') ++end;
    const std::string_view line = m_text.substr(m_at, end - m_at);
    m_at = end;
    if (m_at < m_text.size() && m_text[m_at++] == '\r' && m_at < m_text.size() && m_text[m_at] == '\n')
      ++m_at;
    return line;
  }

  /// Stops after "end", or before the first line that is not data. False when what was read is not a block.
  bool readData(DataBuffer& out) {
    bool hasData = false;
    bool isClosed = false;  // a real line of length zero, not one that lost its blanks
    while (m_at < m_text.size()) {
      const std::size_t lineStart = m_at;
      const std::string_view received = readLine();
      if (trimTrailing(received, " \t") == kEnd) return true;
      const std::string_view line = withoutZeros(received);
      const int length = dataLength(line);
      if (length < 0 || (isClosed && length > 0)) {
        m_at = lineStart;
        return hasData;
      }
      isClosed = isClosed || received.starts_with('`');
      if (length == 0) continue;
      if (!decodeLine(line, length, out)) return false;
      hasData = true;
    }
    return hasData;
  }

  std::string_view m_text;
  std::size_t m_at = 0;
  std::size_t m_beginLine = 0;
  bool m_textPrecedes = false;
};

}  // namespace

bool isUuTransferEncoding(std::string_view encoding) noexcept {
  constexpr std::string_view kNames[] = {"x-uuencode", "x-uue", "uuencode", "uue"};
  return std::ranges::any_of(kNames, [&](std::string_view name) { return equalsNoCase(encoding, name); });
}

bool Uu::uu_decode(std::string_view text, DataBuffer& out) {
  std::string_view name;
  if (!BlockReader(text).next(out, name)) return false;
  m_filename.setString(name);
  return true;
}

int Uu::uu_decodeMultipleDb(std::string_view text, ExtPtrArray& data, ExtPtrArraySb& names,
                            UuSurroundings* around, int most) {
  return neverThrow(0, [&] {
    BlockReader blocks(text);
    UuSurroundings found;
    std::string_view afterLast;
    int count = 0;
    std::string_view name;
    for (auto block = std::make_unique<DataBuffer>(); count <= most && blocks.next(*block, name);
         block = std::make_unique<DataBuffer>()) {
      if (!names.appendString(name) || !data.appendObject(block.get())) break;
      std::ignore = block.release();  // now owned by the list
      if (count++ == 0)
        found.firstBlock = blocks.blockBegin();
      else
        found.textFollows = found.textFollows || blocks.textPrecedes();
      afterLast = blocks.rest();
    }
    found.textFollows = found.textFollows || !trim(afterLast).empty();
    if (around) *around = found;
    return count;
  });
}

}  // namespace mailtree
