#include "mailtree/mime/charset/FoldedText.h"

#include <unicode/unorm2.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <vector>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"

namespace mailtree {
namespace {

/// Combining marks that are accents, and the vowel points of Hebrew and Arabic, which most writers leave out.
/// Marks of other scripts are letters or parts of them.
bool isAccent(char16_t c) noexcept {
  return (c >= 0x300 && c <= 0x36F) || (c >= 0x591 && c <= 0x5C7 && c != 0x5BE) || (c >= 0x64B && c <= 0x65F);
}

/// Appends one character in its folded form.
void appendByIcu(std::string& out, char32_t c) {
  struct Normalizers {
    UErrorCode error = U_ZERO_ERROR;
    const UNormalizer2* fold = unorm2_getNFKCCasefoldInstance(&error);
    const UNormalizer2* decompose = unorm2_getNFDInstance(&error);
  };
  static const Normalizers kNormalizers;
  std::string character;
  appendUtf8(character, c);
  const std::u16string source = utf8ToUtf16(character);
  std::array<UChar, 64> folded{}, parts{};
  UErrorCode error = kNormalizers.error;
  std::int32_t size =
      unorm2_normalize(kNormalizers.fold, source.data(), static_cast<std::int32_t>(source.size()),
                       folded.data(), folded.size(), &error);
  // Syllables of Hangul have letters in them, not accents.
  const bool isHangul = c >= 0xAC00 && c <= 0xD7A3;
  if (!isHangul)
    size = unorm2_normalize(kNormalizers.decompose, folded.data(), size, parts.data(), parts.size(), &error);
  if (U_FAILURE(error)) {
    out += character;
    return;
  }
  std::u16string kept;
  for (const UChar unit :
       std::u16string_view(isHangul ? folded.data() : parts.data(), static_cast<std::size_t>(size)))
    if (!isAccent(unit)) kept += unit;
  appendUtf16AsUtf8(out, {reinterpret_cast<const char*>(kept.data()), kept.size() * sizeof(UChar)},
                    std::endian::native == std::endian::big);
}

/// The folded forms of the characters below a limit, which are most of those that have one.
class FoldedForms {
 public:
  static constexpr char32_t kFirst = 0x80, kEnd = 0x2500;

  FoldedForms() {
    m_begins.reserve(kEnd - kFirst + 1);
    for (char32_t c = kFirst; c < kEnd; ++c) {
      m_begins.push_back(static_cast<std::uint32_t>(m_text.size()));
      appendByIcu(m_text, c);
    }
    m_begins.push_back(static_cast<std::uint32_t>(m_text.size()));
  }
  std::string_view of(char32_t c) const noexcept {
    const std::uint32_t begin = m_begins[c - kFirst], end = m_begins[c - kFirst + 1];
    return std::string_view(m_text).substr(begin, end - begin);
  }

 private:
  std::string m_text;
  std::vector<std::uint32_t> m_begins;
};

/// Ideographs and syllables, which are what they are in any form.
bool hasOneForm(char32_t c) noexcept { return (c >= 0x3041 && c < 0x3130) || (c >= 0x4E00 && c < 0xA000); }

void appendFolded(std::string& out, char32_t c) {
  static const FoldedForms kForms;
  if (c >= FoldedForms::kFirst && c < FoldedForms::kEnd)
    out += kForms.of(c);
  else if (hasOneForm(c))
    appendUtf8(out, c);
  else
    appendByIcu(out, c);
}

std::size_t asciiSize(std::string_view text) noexcept {
  constexpr std::uint64_t kHighBits = 0x8080808080808080;
  std::size_t at = 0;
  for (std::uint64_t chars = 0; at + sizeof chars <= text.size(); at += sizeof chars) {
    std::memcpy(&chars, text.data() + at, sizeof chars);
    if (chars & kHighBits) break;
  }
  while (at < text.size() && !is8bit(text[at])) ++at;
  return at;
}

void appendLowerCase(std::string& out, std::string_view ascii) {
  const std::size_t before = out.size();
  out.append(ascii);
  char* const to = out.data() + before;
  std::size_t at = 0;
  for (std::uint64_t chars = 0; at + sizeof chars <= ascii.size(); at += sizeof chars) {
    std::memcpy(&chars, to + at, sizeof chars);
    chars = toLowerAscii8(chars);
    std::memcpy(to + at, &chars, sizeof chars);
  }
  for (; at < ascii.size(); ++at) to[at] = toLowerAscii(to[at]);
}

}  // namespace

void appendFolded(std::string& out, std::string_view utf8) {
  for (std::size_t at = 0; at < utf8.size();) {
    const std::size_t size = asciiSize(utf8.substr(at));
    appendLowerCase(out, utf8.substr(at, size));
    at += size;
    while (at < utf8.size() && is8bit(utf8[at])) appendFolded(out, nextCodePoint(utf8, at));
  }
}

std::string foldedText(std::string_view utf8) {
  std::string out;
  appendFolded(out, utf8);
  return out;
}

}  // namespace mailtree
