// mime/charset/CharsetDoubleByte.cpp - the East Asian charsets of one and two bytes, by table.
//
// A table is built from ICU's mappings when its code page is first used; after that a text costs a look-up
// per character. Characters of more than two bytes, or more than three in utf-8, are converted by ICU each
// time: they are rare in mail.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/charset/CharsetInternal.h"

namespace mailtree {
namespace {

constexpr unsigned byteOf(char c) noexcept { return static_cast<unsigned char>(c); }

enum class LongForm {
  none,
  threeAfter8F,     ///< 8F and two bytes: the supplementary set of euc-jp.
  fourWithFigures,  ///< gb18030: the second byte is an ASCII digit.
};

/// The source of a family's characters.
struct Family {
  const char* converter;
  const char* fallback;  ///< For characters that `converter` lacks or maps to private use. May be null.
  LongForm longForm;
};

enum FamilyIndex { shiftJis, eucJp, chinese, korean, big5, hongKong, familyCount };

constexpr Family kFamilies[familyCount] = {
    {"ibm-943_P15A-2003", nullptr, LongForm::none},
    {"EUC-JP", nullptr, LongForm::threeAfter8F},
    {"gb18030", "windows-936-2000", LongForm::fourWithFigures},
    {"windows-949-2000", nullptr, LongForm::none},
    {"windows-950-2000", "ibm-1375_P100-2008", LongForm::none},
    {"ibm-1375_P100-2008", "windows-950-2000", LongForm::none},
};

struct FamilyRow {
  int codePage;
  FamilyIndex family;
};

/// Decoded as on the web: each as the largest charset of its kind.
constexpr FamilyRow kFamilyOf[] = {
    {932, shiftJis},  {936, chinese},  {949, korean},     {950, big5},      {951, hongKong}, {20932, eucJp},
    {20936, chinese}, {20949, korean}, {kCpEucJp, eucJp}, {51936, chinese}, {51949, korean}, {54936, chinese},
};

const FamilyRow* familyRow(int codePage) noexcept {
  const auto* const found = std::find_if(std::begin(kFamilyOf), std::end(kFamilyOf),
                                         [codePage](const auto& row) { return row.codePage == codePage; });
  return found == std::end(kFamilyOf) ? nullptr : found;
}

constexpr PackedUtf8 kLead = 0;                        ///< Of a single byte: it begins a longer form.
constexpr PackedUtf8 kUndefined = kPackedReplacement;  ///< Of a pair: no character.
constexpr PackedUtf8 kUseIcu =
    kPackedDamage;  ///< Of a pair: a longer form, or a character that does not fit.

struct Table {
  std::array<PackedUtf8, 256> single;
  std::array<std::array<PackedUtf8, 256>, 128> pair;  ///< By lead byte without its top bit, and trail byte.

  PackedUtf8 pairAt(const char* p) const noexcept { return pair[byteOf(p[0]) & 0x7F][byteOf(p[1])]; }
};

constexpr bool isSurrogate(char16_t c) noexcept { return (c & 0xF800) == 0xD800; }
constexpr bool isPrivateUse(char16_t c) noexcept { return c >= 0xE000 && c <= 0xF8FF; }

/// Whether the converter read a form as one character, not as an invalid byte followed by another character.
/// ICU passes some undefined bytes through as C1 controls.
bool isCharacter(std::u16string_view units) noexcept {
  return !units.empty() && std::all_of(units.begin(), units.end(),
                                       [](char16_t c) { return c >= 0xA0 && c != kReplacementCharacter; });
}

/// The table entry of a character.
PackedUtf8 entryOf(std::u16string_view units) noexcept {
  return units.size() == 1 && !isSurrogate(units[0]) ? packUtf8(units[0]) : kUseIcu;
}

constexpr unsigned kFirstTrail = 0x30, kLastTrail = 0xFE;

/// Fills the empty pairs of one row. The pairs are converted in one text, a line each.
void fillRow(const char* converter, unsigned lead, bool allowPrivateUse, std::array<PackedUtf8, 256>& row) {
  std::string text;
  for (unsigned trail = kFirstTrail; trail <= kLastTrail; ++trail) {
    text += static_cast<char>(lead);
    text += static_cast<char>(trail);
    text += '\n';
  }
  std::string lines;
  ByteSink sink(lines);
  decodeWithIcu(converter, text, sink);
  const std::u16string units = utf8ToUtf16(lines);
  std::u16string_view rest = units;
  for (unsigned trail = kFirstTrail; trail <= kLastTrail; ++trail) {
    const std::size_t end = std::min(rest.find(u'\n'), rest.size());
    const std::u16string_view one = rest.substr(0, end);
    const bool wanted = isCharacter(one) && (!isPrivateUse(one[0]) || (allowPrivateUse && one.size() == 1));
    if (row[trail] == kUndefined && wanted) row[trail] = entryOf(one);
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
}

/// Marks the pairs that begin a form of three or four bytes.
void markLongForms(LongForm form, unsigned lead, std::array<PackedUtf8, 256>& row) {
  if (form == LongForm::threeAfter8F && lead == 0x8F) row.fill(kUseIcu);
  if (form == LongForm::fourWithFigures) std::fill(row.begin() + '0', row.begin() + '9' + 1, kUseIcu);
}

/// The entry of a single byte, from the family's converters.
PackedUtf8 singleOf(const Family& family, unsigned byte) {
  const char c = static_cast<char>(byte);
  for (const char* const converter : {family.converter, family.fallback}) {
    if (!converter) continue;
    const std::u16string units = decodeShortWithIcu(converter, std::string_view(&c, 1));
    if (isCharacter(units) && !isPrivateUse(units[0])) return entryOf(units);
  }
  return kLead;
}

std::unique_ptr<const Table> makeTable(const Family& family) {
  auto table = std::make_unique<Table>();
  for (unsigned i = 0; i < 0x80; ++i) table->single[i] = packUtf8(static_cast<char16_t>(i));
  for (unsigned lead = 0x80; lead < 0x100; ++lead) {
    table->single[lead] = singleOf(family, lead);
    auto& row = table->pair[lead - 0x80];
    row.fill(kUndefined);
    if (table->single[lead] != kLead) continue;
    markLongForms(family.longForm, lead, row);
    fillRow(family.converter, lead, /*allowPrivateUse=*/!family.fallback, row);
    if (!family.fallback) continue;
    fillRow(family.fallback, lead, /*allowPrivateUse=*/false, row);
    fillRow(family.converter, lead, /*allowPrivateUse=*/true, row);
  }
  return table;
}

template <FamilyIndex Index>
const Table& tableOf() {
  static const std::unique_ptr<const Table> table = makeTable(kFamilies[Index]);
  return *table;
}

const Table& tableOf(FamilyIndex family) {
  switch (family) {
    case shiftJis: return tableOf<shiftJis>();
    case eucJp: return tableOf<eucJp>();
    case chinese: return tableOf<chinese>();
    case korean: return tableOf<korean>();
    case big5: return tableOf<big5>();
    default: return tableOf<hongKong>();
  }
}

/// The size of the form at p; 0 when the bytes cannot be one.
std::size_t formSize(LongForm form, const char* p, std::size_t left) noexcept {
  if (form == LongForm::threeAfter8F && byteOf(p[0]) == 0x8F)
    return left >= 3 && byteOf(p[1]) >= 0xA1 && byteOf(p[2]) >= 0xA1 ? 3 : 0;
  if (form != LongForm::fourWithFigures || left < 2 || !isDigitAscii(p[1])) return left < 2 ? 0 : 2;
  return left >= 4 && byteOf(p[2]) >= 0x81 && isDigitAscii(p[3]) ? 4 : 0;
}

std::string utf8Of(std::u16string_view units) {
  std::string bytes;
  for (const char16_t unit : units) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  std::string utf8;
  appendUtf16AsUtf8(utf8, bytes, /*bigEndian=*/false);
  return utf8;
}

/// U+FFFD in gb18030, the only character that ICU's result does not distinguish from invalid bytes.
constexpr std::string_view kReplacementForm = "\x84\x31\xA4\x37";

/// A form that no table holds, from the family's converters; empty when it is invalid.
std::string rareCharacter(const Family& family, std::string_view bytes) {
  if (family.longForm == LongForm::fourWithFigures && bytes == kReplacementForm) return "\xEF\xBF\xBD";
  for (const char* const converter : {family.converter, family.fallback}) {
    if (!converter) continue;
    const std::u16string units = decodeShortWithIcu(converter, bytes);
    if (isCharacter(units)) return utf8Of(units);
  }
  return {};
}

/// Decodes one text through a small buffer.
class Decoder {
 public:
  Decoder(FamilyIndex family, std::string_view bytes, ByteSink& out)
      : m_family(kFamilies[family]),
        m_table(tableOf(family)),
        m_p(bytes.data()),
        m_end(m_p + bytes.size()),
        m_out(out) {}

  /// False when some byte was invalid.
  bool run() {
    while (m_p < m_end) {
      decodeByTable();
      const bool isFull = m_used > kRoom - kMaxPerStep;
      flush();
      if (m_p < m_end && !isFull) decodeRare();
    }
    flush();
    return m_whole;
  }

 private:
  static constexpr std::size_t kRoom = 8192;
  static constexpr std::size_t kMaxPerStep = 16;

  /// Decodes while table and buffer suffice. Uses locals, because the stored bytes could alias any member.
  void decodeByTable() noexcept {
    const Table& table = m_table;
    const char* p = m_p;
    const char* const end = m_end;
    char* to = m_buffer.data() + m_used;
    const char* const full = m_buffer.data() + kRoom - kMaxPerStep;
    while (p < end && to <= full) {
      if (!is8bit(*p)) {
        if (!copyAsciiWord(p, end, to)) *to++ = *p++;
        continue;
      }
      if (takeFourPairs(table, p, end, to)) continue;
      PackedUtf8 c = table.single[byteOf(*p)];
      std::ptrdiff_t size = 1;
      if (c == kLead) {
        if (end - p < 2) break;
        c = table.pairAt(p);
        if (c & kPackedDamage) break;
        size = 2;
      }
      p += size;
      to = storePacked(c, to);
    }
    m_p = p;
    m_used = static_cast<std::size_t>(to - m_buffer.data());
  }

  static bool copyAsciiWord(const char*& p, const char* end, char*& to) noexcept {
    std::uint64_t word = ~std::uint64_t{0};
    if (end - p >= 8) std::memcpy(&word, p, 8);
    if (word & 0x8080808080808080) return false;
    std::memcpy(to, &word, 8);
    p += 8;
    to += 8;
    return true;
  }

  /// Decodes four two-byte characters of the table. Rows of single-byte characters have none.
  static bool takeFourPairs(const Table& table, const char*& p, const char* end, char*& to) noexcept {
    if (end - p < 8 || !(is8bit(p[0]) && is8bit(p[2]) && is8bit(p[4]) && is8bit(p[6]))) return false;
    const PackedUtf8 pairs[] = {table.pairAt(p), table.pairAt(p + 2), table.pairAt(p + 4),
                                table.pairAt(p + 6)};
    if ((pairs[0] | pairs[1] | pairs[2] | pairs[3]) & kPackedDamage) return false;
    for (const PackedUtf8 c : pairs) to = storePacked(c, to);
    p += 8;
    return true;
  }

  void decodeRare() {
    const std::size_t left = static_cast<std::size_t>(m_end - m_p);
    const std::size_t size = formSize(m_family.longForm, m_p, left);
    const bool defined = size && m_table.pair[byteOf(*m_p) & 0x7F][byteOf(m_p[1])] != kUndefined;
    if (defined) {
      const std::string utf8 = rareCharacter(m_family, std::string_view(m_p, size));
      if (!utf8.empty()) {
        m_out.append(utf8);
        m_p += size;
        return;
      }
    }
    // An ASCII byte after a stray lead byte is kept, so no line break or "<" is swallowed.
    m_p += left >= 2 && byteOf(m_p[1]) >= 0x80 ? 2 : 1;
    m_out.append(kReplacementUtf8);
    m_whole = false;
  }

  void flush() {
    m_out.append(std::string_view(m_buffer.data(), m_used));
    m_used = 0;
  }

  const Family& m_family;
  const Table& m_table;
  const char* m_p;
  const char* m_end;
  ByteSink& m_out;
  bool m_whole = true;
  std::size_t m_used = 0;
  std::array<char, kRoom> m_buffer;
};

}  // namespace

bool isDoubleByte(int codePage) noexcept { return familyRow(codePage) != nullptr; }

bool decodeDoubleByte(int codePage, std::string_view bytes, ByteSink& out) {
  return Decoder(familyRow(codePage)->family, bytes, out).run();
}

}  // namespace mailtree
