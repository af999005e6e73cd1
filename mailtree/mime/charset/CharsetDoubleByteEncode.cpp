// mime/charset/CharsetDoubleByteEncode.cpp - encodes the East Asian charsets of one and two bytes, by table.
//
// A table is made of pages of 64 characters, which ICU encodes when the first of them is needed: a short
// text uses few of them. Characters of other sizes, and those that the charset lacks, are left to ICU each
// time. Charsets in which two characters may share one code are left out, because a table looks at one at a
// time.
#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <string>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/charset/CharsetInternal.h"

namespace mailtree {
namespace {

constexpr std::size_t kPageSize = 64;

/// The bytes of each character as one number, 0 where the table has none.
using Page = std::array<std::uint16_t, kPageSize>;

std::uint16_t entryOf(char32_t character, std::string_view bytes) noexcept {
  const auto at = [bytes](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  const bool isReplaced = bytes == "?" && character != U'?';
  if (bytes.size() == 1 && !isReplaced) return at(0);
  return bytes.size() == 2 ? static_cast<std::uint16_t>(at(0) << 8 | at(1)) : std::uint16_t{0};
}

/// The characters are encoded in one text, a line each. No code has a line feed in it.
std::unique_ptr<const Page> makePage(const char* converter, char32_t first) {
  std::string lines;
  for (char32_t c = first; c < first + kPageSize; ++c) {
    appendUtf8(lines, c);
    lines += '\n';
  }
  std::string encoded;
  ByteSink sink(encoded);
  encodeWithIcu(converter, lines, sink);

  auto page = std::make_unique<Page>();
  std::string_view rest = encoded;
  for (char32_t c = first; c < first + kPageSize; ++c) {
    const std::size_t end = std::min(rest.find('\n', c == U'\n' ? 1 : 0), rest.size());
    (*page)[c - first] = entryOf(c, rest.substr(0, end));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return page;
}

/// The pages of one code page. All threads share them.
class Table {
 public:
  constexpr explicit Table(int codePage) noexcept : m_codePage(codePage) {}
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;
  ~Table() {
    for (const auto& page : m_pages) delete page.load(std::memory_order_relaxed);
  }

  int codePage() const noexcept { return m_codePage; }

  std::uint16_t find(char32_t character) {
    const Page* page = m_pages[character / kPageSize].load(std::memory_order_acquire);
    if (!page) page = add(character / kPageSize);
    return (*page)[character % kPageSize];
  }

 private:
  /// When two threads make the same page, that of the first is kept.
  const Page* add(std::size_t number) {
    auto fresh = makePage(icuConverterOf(m_codePage), static_cast<char32_t>(number * kPageSize));
    const Page* present = nullptr;
    if (m_pages[number].compare_exchange_strong(present, fresh.get(), std::memory_order_acq_rel))
      return fresh.release();
    return present;
  }

  int m_codePage;
  std::array<std::atomic<const Page*>, 0x10000 / kPageSize> m_pages{};
};

Table* tableFor(int codePage) noexcept {
  static Table tables[] = {Table(932),   Table(936),      Table(949),   Table(20932), Table(20936),
                           Table(20949), Table(kCpEucJp), Table(51936), Table(51949), Table(54936)};
  for (Table& table : tables)
    if (table.codePage() == codePage) return &table;
  return nullptr;
}

/// Encodes one well-formed text through a small buffer.
class Encoder {
 public:
  Encoder(Table& table, std::string_view utf8, ByteSink& out) noexcept
      : m_table(table), m_p(utf8.data()), m_end(m_p + utf8.size()), m_out(out) {}

  /// False when some character has no code.
  bool run() {
    while (m_p < m_end) {
      const bool isFull = encodeByTable();
      if (m_p < m_end && !isFull) encodeRare();
    }
    return m_isComplete;
  }

 private:
  static constexpr std::size_t kRoom = 4096;
  static constexpr std::size_t kWord = 8;
  /// ICU gets so many bytes at a time, because each call of it costs more than some characters.
  static constexpr std::ptrdiff_t kRarePiece = 256;

  /// Encodes while table and buffer suffice. @return whether the buffer was full.
  bool encodeByTable() {
    const char* p = m_p;
    char* to = m_buffer.data();
    const char* const full = m_buffer.data() + kRoom - kWord;
    while (p < m_end && to <= full) {
      if (!is8bit(*p)) {
        if (!copyAsciiWord(p, to)) *to++ = *p++;
        continue;
      }
      std::size_t size = 0;
      const std::uint16_t code = codeOf(p, size);
      if (code == 0) break;
      if (code > 0xFF) *to++ = static_cast<char>(code >> 8);
      *to++ = static_cast<char>(code & 0xFF);
      p += size;
    }
    m_p = p;
    m_out.append(std::string_view(m_buffer.data(), static_cast<std::size_t>(to - m_buffer.data())));
    return to > full;
  }

  bool copyAsciiWord(const char*& p, char*& to) const noexcept {
    std::uint64_t word = ~std::uint64_t{0};
    if (m_end - p >= static_cast<std::ptrdiff_t>(kWord)) std::memcpy(&word, p, kWord);
    if (word & 0x8080808080808080) return false;
    std::memcpy(to, &word, kWord);
    p += kWord;
    to += kWord;
    return true;
  }

  std::uint16_t codeOf(const char* p, std::size_t& size) {
    const auto bits = [p](int i) { return static_cast<unsigned char>(p[i]) & 0x3FU; };
    const unsigned lead = static_cast<unsigned char>(*p);
    if (lead >= 0xF0) return 0;
    size = lead < 0xE0 ? 2 : 3;
    return m_table.find(size == 2 ? (lead & 0x1F) << 6 | bits(1)
                                  : (lead & 0x0F) << 12 | bits(1) << 6 | bits(2));
  }

  void encodeRare() {
    const auto isTrail = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; };
    const char* stop = m_p + std::min(kRarePiece, m_end - m_p);
    while (stop < m_end && isTrail(*stop)) ++stop;
    const std::string_view piece(m_p, static_cast<std::size_t>(stop - m_p));
    if (!encodeWithIcu(icuConverterOf(m_table.codePage()), piece, m_out)) m_isComplete = false;
    m_p = stop;
  }

  Table& m_table;
  const char* m_p;
  const char* m_end;
  ByteSink& m_out;
  bool m_isComplete = true;
  std::array<char, kRoom> m_buffer;
};

}  // namespace

bool encodeWithTable(int codePage, std::string_view utf8, ByteSink& out) {
  Table* const table = isValidUtf8(utf8) ? tableFor(codePage) : nullptr;
  return table ? Encoder(*table, utf8, out).run() : encodeWithIcu(icuConverterOf(codePage), utf8, out);
}

}  // namespace mailtree
