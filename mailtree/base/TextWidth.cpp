#include "mailtree/base/TextWidth.h"

#include "mailtree/base/Utf.h"

namespace mailtree {
namespace {

struct Range {
  char32_t first, last;
};

template <std::size_t N>
bool isIn(char32_t c, const Range (&ranges)[N]) noexcept {
  for (const Range& range : ranges)
    if (c >= range.first && c <= range.last) return true;
  return false;
}

constexpr Range kCombining[] = {{0x0300, 0x036F}, {0x0483, 0x0489}, {0x0591, 0x05BD}, {0x0610, 0x061A},
                                {0x064B, 0x065F}, {0x0E31, 0x0E31}, {0x0E34, 0x0E3A}, {0x0E47, 0x0E4E},
                                {0x1AB0, 0x1AFF}, {0x1DC0, 0x1DFF}, {0x200C, 0x200D}, {0x20D0, 0x20FF},
                                {0x3099, 0x309A}, {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F}};

constexpr Range kWide[] = {{0x1100, 0x115F},   {0x2E80, 0x303E},   {0x3041, 0x33FF},  {0x3400, 0x4DBF},
                           {0x4E00, 0x9FFF},   {0xA000, 0xA4CF},   {0xAC00, 0xD7A3},  {0xF900, 0xFAFF},
                           {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},   {0xFFE0, 0xFFE6},  {0x1F300, 0x1F64F},
                           {0x1F680, 0x1F6FF}, {0x1F900, 0x1FAFF}, {0x20000, 0x3FFFD}};

std::size_t columnsOf(char32_t c) noexcept {
  if (c < 0x300) return 1;
  if (isIn(c, kCombining)) return 0;
  return isIn(c, kWide) ? 2 : 1;
}

/// Upper bound for any terminal.
std::size_t maxColumnsOf(char32_t c) noexcept { return c < 0x1100 ? 1 : 2; }

/// nextCodePoint(), which need not be called for ASCII.
char32_t next(std::string_view utf8, std::size_t& at) noexcept {
  const auto first = static_cast<unsigned char>(utf8[at]);
  if (first >= 0x80) return nextCodePoint(utf8, at);
  ++at;
  return first;
}

/// The width of a text whose characters `columnsOfOne` measures.
template <class Measure>
std::size_t widthOf(std::string_view utf8, Measure columnsOfOne) noexcept {
  std::size_t width = 0;
  for (std::size_t at = 0; at < utf8.size();) width += columnsOfOne(next(utf8, at));
  return width;
}

/// The longest prefix that fits.
template <class Measure>
std::string_view fit(std::string_view utf8, std::size_t columns, Measure columnsOfOne) noexcept {
  constexpr std::size_t kWidestOfByte = 2;
  if (columns / kWidestOfByte >= utf8.size()) return utf8;
  std::size_t width = 0;
  for (std::size_t at = 0; at < utf8.size();) {
    const std::size_t begin = at;
    width += columnsOfOne(next(utf8, at));
    if (width > columns) return utf8.substr(0, begin);
  }
  return utf8;
}

}  // namespace

std::size_t displayWidth(std::string_view utf8) noexcept { return widthOf(utf8, columnsOf); }

std::string_view fitWidth(std::string_view utf8, std::size_t columns) noexcept {
  return fit(utf8, columns, columnsOf);
}

std::size_t maxDisplayWidth(std::string_view utf8) noexcept { return widthOf(utf8, maxColumnsOf); }

std::string_view fitMaxWidth(std::string_view utf8, std::size_t columns) noexcept {
  return fit(utf8, columns, maxColumnsOf);
}

}  // namespace mailtree
