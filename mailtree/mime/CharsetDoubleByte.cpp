// mime/CharsetDoubleByte.cpp - the East Asian charsets of one and two bytes, by table.
//
// A table is made of ICU's mappings when its code page is first met; after that a text costs a look-up per character. What
// does not fit into two bytes in and three out is asked of ICU each time: it is rare in mail.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/CharsetInternal.h"

namespace mailtree {
namespace {

constexpr unsigned byteOf(char c) noexcept { return static_cast<unsigned char>(c); }

enum class LongForm {
  none,
  threeAfter8F,     ///< 8F and two bytes: the supplementary set of euc-jp.
  fourWithFigures,  ///< gb18030: the second byte is a figure.
};

/// Where the characters of a family come from.
struct Family {
  const char* converter;
  const char* fallback;  ///< Has what `converter` has not, or has for private use only. May be null.
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

/// Read as the web reads them: each as the largest charset of its kind.
constexpr FamilyRow kFamilyOf[] = {
    {932, shiftJis}, {936, chinese},  {949, korean},      {950, big5},      {951, hongKong}, {20932, eucJp},
    {20936, chinese}, {20949, korean}, {kCpEucJp, eucJp}, {51936, chinese}, {51949, korean}, {54936, chinese},
};

const FamilyRow* familyRow(int codePage) noexcept {
  const auto* const found = std::find_if(std::begin(kFamilyOf), std::end(kFamilyOf),
                                         [codePage](const auto& row) { return row.codePage == codePage; });
  return found == std::end(kFamilyOf) ? nullptr : found;
}

constexpr PackedUtf8 kLead = 0;                  ///< Of a single byte: it begins a longer form.
constexpr PackedUtf8 kAskIcu = kPackedDamage;    ///< Of a pair: no character, or one that does not fit here.

struct Table {
  std::array<PackedUtf8, 256> single;
  std::array<std::array<PackedUtf8, 256>, 128> pair;  ///< By lead byte without its top bit, and trail byte.
};

constexpr bool isPrivateUse(std::u16string_view units) noexcept {
  return units.size() == 1 && units[0] >= 0xE000 && units[0] <= 0xF8FF;
}

bool isOneCharacter(std::u16string_view units) noexcept {
  return units.size() == 1 && units[0] != kReplacementCharacter && (units[0] < 0xD800 || units[0] > 0xDFFF);
}

/// Fills one row of pairs where it has nothing better yet. The pairs go through the converter in one text, a line each.
void fillRow(const char* converter, unsigned lead, bool privateUseToo, std::array<PackedUtf8, 256>& row) {
  std::string text;
  for (unsigned trail = 0x21; trail < 0xFF; ++trail) {
    text += static_cast<char>(lead);
    text += static_cast<char>(trail);
    text += '\n';
  }
  std::string lines;
  ByteSink sink(lines);
  decodeWithIcu(converter, text, sink);
  const std::u16string units = utf8ToUtf16(lines);
  std::size_t begin = 0;
  for (unsigned trail = 0x21; trail < 0xFF; ++trail) {
    const std::size_t end = std::min(units.find(u'\n', begin), units.size());
    const std::u16string_view one = std::u16string_view(units).substr(begin, end - begin);
    if (row[trail] == kAskIcu && isOneCharacter(one) && (privateUseToo || !isPrivateUse(one))) row[trail] = packUtf8(one[0]);
    begin = std::min(end + 1, units.size());
  }
}

/// A byte on its own, asked of the family's converters.
PackedUtf8 singleOf(const Family& family, unsigned byte) {
  const char c = static_cast<char>(byte);
  for (const char* const converter : {family.converter, family.fallback}) {
    if (!converter) continue;
    const std::u16string units = decodeFewWithIcu(converter, std::string_view(&c, 1));
    // ICU hands on some undefined bytes as C1 controls or for private use.
    if (isOneCharacter(units) && units[0] >= 0xA0 && !isPrivateUse(units)) return packUtf8(units[0]);
  }
  return kLead;
}

std::unique_ptr<const Table> makeTable(const Family& family) {
  auto table = std::make_unique<Table>();
  for (unsigned i = 0; i < 0x80; ++i) table->single[i] = packUtf8(static_cast<char16_t>(i));
  for (unsigned lead = 0x80; lead < 0x100; ++lead) {
    table->single[lead] = singleOf(family, lead);
    auto& row = table->pair[lead - 0x80];
    row.fill(kAskIcu);
    if (table->single[lead] != kLead) continue;
    fillRow(family.converter, lead, /*privateUseToo=*/!family.fallback, row);
    if (!family.fallback) continue;
    fillRow(family.fallback, lead, /*privateUseToo=*/false, row);
    fillRow(family.converter, lead, /*privateUseToo=*/true, row);
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

/// How many bytes the form at p has, its first one being a lead byte; more than `left` when it is cut off.
std::size_t formSize(LongForm form, const char* p, std::size_t left) noexcept {
  if (form == LongForm::threeAfter8F && byteOf(p[0]) == 0x8F) return 3;
  return form == LongForm::fourWithFigures && left >= 2 && isDigitAscii(p[1]) ? 4 : 2;
}

/// Decodes the form at p, which no table holds, and moves p. False when it means nothing.
bool decodeRare(const Family& family, const char*& p, const char* end, ByteSink& out) {
  const std::size_t left = static_cast<std::size_t>(end - p);
  const std::size_t size = formSize(family.longForm, p, left);
  if (size <= left) {
    for (const char* const converter : {family.converter, family.fallback}) {
      const std::u16string units = converter ? decodeFewWithIcu(converter, std::string_view(p, size)) : std::u16string();
      // A pair that ICU reads as two characters of a byte each is no pair.
      if (units.empty() || units.back() < 0x80 || units.front() < 0xA0) continue;
      std::string utf8;
      for (std::size_t i = 0; i < units.size(); ++i) {
        const bool pair = units[i] >= 0xD800 && units[i] < 0xDC00 && i + 1 < units.size();
        const char32_t c = pair ? 0x10000 + ((units[i] & 0x3FFU) << 10 | (units[i + 1] & 0x3FFU)) : units[i];
        i += pair;
        appendUtf8(utf8, c);
      }
      out.append(utf8);
      p += size;
      return true;
    }
  }
  // An ASCII byte behind a stray lead byte is itself, so that no line break or "<" is swallowed.
  p += left >= 2 && byteOf(p[1]) >= 0x80 ? 2 : 1;
  out.append(kReplacementUtf8);
  return false;
}

/// Decodes what the table holds, up to the room in `to`, and moves both pointers.
void decodeByTable(const Table& table, const char*& p, const char* end, const char* stop, char*& to) noexcept {
  while (p < stop) {
    std::uint64_t word;
    if (end - p >= 8) {
      std::memcpy(&word, p, 8);
      if ((word & 0x8080808080808080) == 0) {
        std::memcpy(to, &word, 8);
        p += 8;
        to += 8;
        continue;
      }
    }
    const unsigned lead = byteOf(*p);
    if (const PackedUtf8 single = table.single[lead]; single != kLead) {
      to = storePacked(single, to);
      ++p;
      continue;
    }
    if (end - p < 2) return;
    const PackedUtf8 pair = table.pair[lead & 0x7F][byteOf(p[1])];
    if (pair == kAskIcu) return;
    to = storePacked(pair, to);
    p += 2;
  }
}

/// Bytes whose room is asked for in one go; each takes three at most.
constexpr std::ptrdiff_t kChunk = 16 * 1024;

}  // namespace

bool isDoubleByte(int codePage) noexcept { return familyRow(codePage) != nullptr; }

bool decodeDoubleByte(int codePage, std::string_view bytes, ByteSink& out) {
  const FamilyIndex index = familyRow(codePage)->family;
  const Table& table = tableOf(index);
  const char* p = bytes.data();
  const char* const end = p + bytes.size();
  bool whole = true;
  while (p < end) {
    const char* const stop = p + std::min(end - p, kChunk);
    const std::size_t capacity = static_cast<std::size_t>(stop - p) * 3 + 8;
    char* const begin = out.grow(capacity);
    char* to = begin;
    decodeByTable(table, p, end, stop, to);
    out.shrink(capacity - static_cast<std::size_t>(to - begin));
    if (p < stop) whole &= decodeRare(kFamilies[index], p, end, out);
  }
  return whole;
}

}  // namespace mailtree
