#include "mailtree/mime/charset/UnicodeInfo.h"

#include <algorithm>
#include <iterator>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/Log.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/charset/CharsetInternal.h"

namespace mailtree {
namespace {

using Scripts = std::uint32_t;

constexpr Scripts kCommon = 0;  // Of no script, or of each.
constexpr Scripts kLatin = 1 << 0;
constexpr Scripts kGreek = 1 << 1;
constexpr Scripts kCyrillic = 1 << 2;
constexpr Scripts kHebrew = 1 << 3;
constexpr Scripts kArabic = 1 << 4;
constexpr Scripts kThai = 1 << 5;
constexpr Scripts kHan = 1 << 6;
constexpr Scripts kKana = 1 << 7;
constexpr Scripts kHangul = 1 << 8;
constexpr Scripts kBopomofo = 1 << 9;
constexpr Scripts kOther = 1 << 10;  // Only Unicode has it.
constexpr Scripts kSymbol = 1 << 11;
constexpr Scripts kEmoji = 1 << 12;
constexpr Scripts kMalformed = 1 << 13;

struct RangeRow {
  char32_t first;  // Up to the next row.
  Scripts script;
};

constexpr RangeRow kRanges[] =
    {
        {0x0000, kCommon},   {0x00AA, kLatin},                        // feminine ordinal
        {0x00AB, kCommon},   {0x00BA, kLatin},                        // masculine ordinal
        {0x00BB, kCommon},   {0x00C0, kLatin},    {0x00D7, kCommon},  // multiplication sign
        {0x00D8, kLatin},    {0x00F7, kCommon},                       // division sign
        {0x00F8, kLatin},    {0x02B0, kCommon},                       // modifier letters, combining marks
        {0x0370, kGreek},    {0x0400, kCyrillic}, {0x0530, kOther},   // Armenian
        {0x0590, kHebrew},   {0x0600, kArabic},   {0x0700, kOther},   // Syriac
        {0x0750, kArabic},   {0x0780, kOther},    {0x0870, kArabic},
        {0x0900, kOther},                                            // Indic
        {0x0E00, kThai},     {0x0E80, kOther},                       // Lao, Tibetan, Myanmar, Georgian
        {0x1100, kHangul},   {0x1200, kOther},                       // Ethiopic and on
        {0x1C80, kCyrillic}, {0x1C90, kOther},    {0x1D00, kLatin},  // phonetic extensions
        {0x1DC0, kCommon},   {0x1E00, kLatin},    {0x1F00, kGreek},
        {0x2000, kCommon},                       // punctuation, super- and subscripts, currency
        {0x20D0, kSymbol},                       // marks around symbols
        {0x2116, kCommon},                       // numero sign
        {0x2117, kSymbol},   {0x2122, kCommon},  // trade mark
        {0x2123, kSymbol},                       // letterlike, arrows, mathematics, boxes, dingbats
        {0x2800, kOther},                        // Braille
        {0x2900, kSymbol},   {0x2C00, kOther},    {0x2C60, kLatin},
        {0x2C80, kOther},    {0x2DE0, kCyrillic}, {0x2E00, kCommon},  // punctuation
        {0x2E80, kHan},                                               // radicals
        {0x3000, kCommon},                                            // ideographic space, corner brackets
        {0x3005, kHan},      {0x3008, kCommon},   {0x3021, kHan},
        {0x302A, kCommon},   {0x3040, kKana},     {0x3100, kBopomofo},
        {0x3130, kHangul},   {0x3190, kHan},      {0x31A0, kBopomofo},
        {0x31C0, kHan},      {0x31F0, kKana},     {0x3200, kCommon},  // enclosed and squared words
        {0x3400, kHan},      {0x4DC0, kSymbol},                       // hexagrams
        {0x4E00, kHan},      {0xA000, kOther},    {0xA640, kCyrillic},
        {0xA6A0, kOther},    {0xA720, kLatin},    {0xA800, kOther},
        {0xA960, kHangul},   {0xA980, kOther},    {0xAB30, kLatin},
        {0xAB70, kOther},    {0xAC00, kHangul},   {0xD800, kOther},  // private use
        {0xF900, kHan},      {0xFB00, kLatin},                       // ligatures
        {0xFB13, kOther},    {0xFB1D, kHebrew},   {0xFB50, kArabic},
        {0xFE00, kCommon},                                            // variation selectors
        {0xFE0F, kEmoji},                                             // the one that selects emoji style
        {0xFE10, kCommon},   {0xFE70, kArabic},   {0xFEFF, kCommon},  // byte-order mark, full-width ASCII
        {0xFF65, kKana},                                              // half-width
        {0xFFA0, kHangul},   {0xFFE0, kCommon},   {0xFFF0, kOther},
        {0xFFFC, kSymbol},   {0x10000, kOther},   {0x1AFF0, kKana},
        {0x1B170, kOther},   {0x1D000, kSymbol},  // music, mathematical letters
        {0x1D800, kOther},   {0x1F000, kEmoji},   // game pieces, flags, pictures
        {0x1FB00, kSymbol},  {0x20000, kHan},     {0x323B0, kOther},
};

constexpr bool rangesAreInOrder() {
  for (std::size_t i = 1; i < std::size(kRanges); ++i)
    if (kRanges[i - 1].first >= kRanges[i].first) return false;
  return kRanges[0].first == 0;
}
static_assert(rangesAreInOrder(), "kRanges is searched by halves and covers everything");

// The row of a code point. Texts stay in one range for long: the last row found is tried first.
const RangeRow* rowOf(char32_t c, const RangeRow* hint) noexcept {
  const RangeRow* const end = std::end(kRanges);
  if (c >= hint->first && (hint + 1 == end || c < (hint + 1)->first)) return hint;
  return std::upper_bound(std::begin(kRanges), end, c,
                          [](char32_t value, const RangeRow& row) { return value < row.first; }) -
         1;
}

// Traditional charsets of one script, or of languages that share one.
struct Family {
  Scripts scripts;
  int siblings[4];  // Suggested, the best supported one first. 0: none.
  int others[6];    // Not suggested, but as a preference they name the family.
};

constexpr Family kFamilies[] = {
    {kLatin, {1252, 28605}, {kCpLatin1, 850, 858, 437, 10000}},  // West European
    {kLatin, {1250, kCpLatin2, 28606}, {852, 10029}},            // Central European
    {kLatin, {1254, 28599}, {857, 10081, 28593}},                // Turkish
    {kLatin, {1257, 28603, 28594, 28600}, {775}},                // Baltic, Nordic
    {kLatin, {1258}, {}},                                        // Vietnamese
    {kGreek, {1253, 28597}, {737, 869, 10006}},
    {kCyrillic, {1251, 20866, 21866, 28595}, {855, 866, 10007}},
    {kHebrew, {1255, 38598}, {862, 28598}},
    {kArabic, {1256, 28596}, {864}},
    {kThai, {874}, {}},
    {kHan | kKana, {kCpIso2022Jp, 932, kCpEucJp}, {kCpIso2022JpKana, kCpIso2022JpShift, 20932}},
    {kHan | kHangul, {51949, 949}, {20949, kCpIso2022Kr}},
    {kHan | kBopomofo, {936, 54936}, {20936, 50227, 51936, kCpHz}},  // simplified Chinese
    {kHan | kBopomofo, {950, 951}, {51950}},                         // traditional Chinese
};

bool hasMember(const Family& family, int codePage) noexcept {
  const auto has = [codePage](const auto& codePages) {
    return std::find(std::begin(codePages), std::end(codePages), codePage) != std::end(codePages);
  };
  return codePage > 0 && (has(family.siblings) || has(family.others));
}

bool represents(int codePage, std::string_view utf8, LogBase& log) {
  DataBuffer scratch;
  return EncodingConvert::EncConvert(kCpUtf8, codePage, utf8.data(), utf8.size(), scratch, log);
}

// The code page of a preferred charset if mail can be written in it, else 0.
int usableCodePage(const char* preferred) noexcept {
  const int codePage = codePageOfCharset(viewOf(preferred));
  return isMailCodePage(codePage) ? codePage : 0;
}

// A sibling of the preferred charset that can represent the text; 0 when there is none.
int siblingFor(int preferred, Scripts scripts, std::string_view utf8, LogBase& log) {
  for (const Family& family : kFamilies) {
    const bool isOfFamily = (scripts & ~family.scripts) == 0;
    if (!isOfFamily || !hasMember(family, preferred)) continue;
    for (const int sibling : family.siblings)
      if (sibling != 0 && sibling != preferred && represents(sibling, utf8, log)) return sibling;
  }
  return 0;
}

int suggestedCodePage(int preferred, Scripts scripts, std::string_view utf8, LogBase& log) {
  if (preferred != 0 && represents(preferred, utf8, log)) return preferred;
  const bool isLatin = (scripts & ~kLatin) == 0;
  if (isLatin && (represents(kCpLatin1, utf8, log) || represents(kCpLatin2, utf8, log))) return 0;
  // Text of ASCII letters is Latin, whatever quotes and dashes it contains.
  const int sibling = siblingFor(preferred, scripts == kCommon ? kLatin : scripts, utf8, log);
  return sibling != 0 ? sibling : kCpUtf8;
}

}  // namespace

void UnicodeInfo::ExamineUnicode(std::string_view utf8) {
  m_scripts = isValidUtf8(utf8) ? kCommon : kMalformed;
  const RangeRow* row = kRanges;
  for (std::size_t at = 0; at < utf8.size();) {
    if (!is8bit(utf8[at])) {
      ++at;
      continue;
    }
    row = rowOf(nextCodePoint(utf8, at), row);
    m_scripts |= row->script;
  }
}

void UnicodeInfo::suggestCharset(_svCharset& suggestion, const char* preferred, std::string_view utf8,
                                 LogBase& log) const {
  // If memory runs out during a trial, utf-8 is always correct.
  suggestion.setByCodePage(neverThrow(
      kCpUtf8, [&] { return suggestedCodePage(usableCodePage(preferred), m_scripts, utf8, log); }));
}

}  // namespace mailtree
