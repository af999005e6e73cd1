#include "mailtree/mime/html/HtmlReferences.h"

#include <algorithm>
#include <iterator>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"

namespace mailtree {
namespace {

struct ReferenceRow {
  std::string_view name;
  char32_t codePoint;
  bool semicolonOptional = false;
};

constexpr ReferenceRow kNamed[] = {
    {"amp", '&', true}, {"lt", '<', true}, {"gt", '>', true}, {"quot", '"', true}, {"nbsp", 0xA0, true},
    {"AMP", '&', true}, {"LT", '<', true}, {"GT", '>', true}, {"QUOT", '"', true}, {"apos", '\''},
    {"colon", ':'},     {"sol", '/'},      {"period", '.'},   {"quest", '?'},      {"equals", '='},
    {"num", '#'},       {"percnt", '%'},   {"commat", '@'},   {"plus", '+'},       {"comma", ','},
    {"semi", ';'},      {"excl", '!'},     {"lowbar", '_'},   {"ast", '*'},        {"lpar", '('},
    {"rpar", ')'},      {"lsqb", '['},     {"rsqb", ']'},     {"lcub", '{'},       {"rcub", '}'},
    {"bsol", '\\'},     {"verbar", '|'},   {"dollar", '$'},   {"grave", '`'},      {"Hat", '^'},
    {"Tab", '\t'},      {"NewLine", '\n'},
};

constexpr char32_t kBeyondUnicode = 0x110000;

// References to the C1 controls mean the windows-1252 characters.
char32_t windows1252Character(char32_t number) noexcept {
  // 0x80 to 0x9F; 0 where windows-1252 is undefined.
  constexpr char16_t kWindows[] = {0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                   0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,
                                   0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                   0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};
  if (number >= 0x80 && number < 0xA0 && kWindows[number - 0x80]) return kWindows[number - 0x80];
  const bool isSurrogate = number >= 0xD800 && number < 0xE000;
  return number == 0 || isSurrogate || number >= kBeyondUnicode ? kReplacementCharacter : number;
}

// The length of the named reference at the start of a text; 0 when it is unknown.
std::size_t readNamedReference(std::string_view text, char32_t& codePoint) noexcept {
  std::size_t end = 1;
  while (end < text.size() && isAlnumAscii(text[end])) ++end;
  const std::string_view name = text.substr(1, end - 1);
  const auto* const row = std::find_if(std::begin(kNamed), std::end(kNamed),
                                       [name](const ReferenceRow& each) { return each.name == name; });
  if (row == std::end(kNamed)) return 0;
  const bool hasSemicolon = end < text.size() && text[end] == ';';
  // "?a=1&lt=2" is not a reference: browsers treat attributes so.
  const bool mayEndHere = row->semicolonOptional && (end == text.size() || text[end] != '=');
  if (!hasSemicolon && !mayEndHere) return 0;
  codePoint = row->codePoint;
  return end + (hasSemicolon ? 1 : 0);
}

}  // namespace

std::size_t readNumericReference(std::string_view text, char32_t& codePoint) noexcept {
  if (!text.starts_with("&#")) return 0;
  const bool isHex = text.size() > 2 && toLowerAscii(text[2]) == 'x';
  const std::size_t digits = isHex ? 3 : 2;
  std::size_t at = digits;
  char32_t number = 0;
  for (; at < text.size(); ++at) {
    const int value = isHex || isDigitAscii(text[at]) ? hexValue(text[at]) : -1;
    if (value < 0) break;
    number = std::min<char32_t>(kBeyondUnicode, number * (isHex ? 16 : 10) + static_cast<char32_t>(value));
  }
  if (at == digits) return 0;
  codePoint = windows1252Character(number);
  return at + (at < text.size() && text[at] == ';' ? 1 : 0);
}

std::string decodeReferences(std::string_view value) {
  std::string out;
  out.reserve(value.size());
  while (!value.empty()) {
    const std::size_t plain = std::min(value.find('&'), value.size());
    out.append(value.substr(0, plain));
    value.remove_prefix(plain);
    if (value.empty()) break;
    char32_t codePoint = '&';
    std::size_t length = readNumericReference(value, codePoint);
    if (length == 0) length = readNamedReference(value, codePoint);
    appendUtf8(out, codePoint);
    value.remove_prefix(std::max<std::size_t>(1, length));
  }
  return out;
}

}  // namespace mailtree
