#include "mailtree/mime/charset/ComposedText.h"

#include <unicode/uchar.h>
#include <unicode/unorm2.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <string_view>

#include "mailtree/base/Utf.h"

namespace mailtree {
namespace {

/// Nothing below U+0300, the first combining mark, is composed with anything.
bool mayNeedComposing(std::string_view utf8) noexcept {
  constexpr unsigned char kFirstLead = 0xCC;
  return std::ranges::any_of(utf8, [](char c) { return static_cast<unsigned char>(c) >= kFirstLead; });
}

/// Whether more marks follow each other than any writing has (UAX 15, 13). Putting them in order takes time
/// that grows with the square of their number.
bool hasLongRunOfMarks(std::u16string_view text) noexcept {
  constexpr int kMostMarks = 30;
  int marks = 0;
  for (std::size_t at = 0; at < text.size() && marks <= kMostMarks;) {
    char32_t c = 0;
    U16_NEXT(text.data(), at, text.size(), c);
    // Some characters that are no marks are decomposed into marks.
    const bool isMark =
        u_getIntPropertyValue(static_cast<UChar32>(c), UCHAR_LEAD_CANONICAL_COMBINING_CLASS) != 0;
    marks = isMark ? marks + 1 : 0;
  }
  return marks > kMostMarks;
}

}  // namespace

std::string composedText(std::string text) {
  constexpr std::size_t kLongest = std::size_t{1} << 28;  // ICU counts in 32 bits
  if (text.size() > kLongest || !mayNeedComposing(text)) return text;
  UErrorCode error = U_ZERO_ERROR;
  const UNormalizer2* const form = unorm2_getNFCInstance(&error);
  const std::u16string source = utf8ToUtf16(text);
  if (hasLongRunOfMarks(source)) return text;
  const auto size = static_cast<std::int32_t>(source.size());
  if (unorm2_quickCheck(form, source.data(), size, &error) == UNORM_YES || U_FAILURE(error)) return text;
  constexpr std::size_t kMostGrowth = 3;  // UAX 15, 12: of a text in utf-16
  std::u16string composed(kMostGrowth * source.size(), u'\0');
  const std::int32_t composedSize = unorm2_normalize(form, source.data(), size, composed.data(),
                                                     static_cast<std::int32_t>(composed.size()), &error);
  if (U_FAILURE(error)) return text;
  std::string out;
  appendUtf16AsUtf8(out,
                    {reinterpret_cast<const char*>(composed.data()),
                     static_cast<std::size_t>(composedSize) * sizeof(UChar)},
                    std::endian::native == std::endian::big);
  return out;
}

}  // namespace mailtree
