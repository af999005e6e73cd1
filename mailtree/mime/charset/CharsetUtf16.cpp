#include <algorithm>
#include <cstring>

#include "mailtree/base/Utf.h"
#include "mailtree/mime/charset/CharsetInternal.h"

namespace mailtree {
namespace {

constexpr unsigned byteOf(char c) noexcept { return static_cast<unsigned char>(c); }

char16_t unitAt(const char* p, bool bigEndian) noexcept {
  return static_cast<char16_t>(bigEndian ? byteOf(p[0]) << 8 | byteOf(p[1])
                                         : byteOf(p[1]) << 8 | byteOf(p[0]));
}

constexpr bool isLead(char16_t unit) noexcept { return (unit & 0xFC00) == 0xD800; }
constexpr bool isTrail(char16_t unit) noexcept { return (unit & 0xFC00) == 0xDC00; }

char* storePair(char16_t lead, char16_t trail, char* to) noexcept {
  const std::uint32_t c = 0x10000U + ((lead & 0x3FFU) << 10 | (trail & 0x3FFU));
  *to++ = static_cast<char>(0xF0 | c >> 18);
  *to++ = static_cast<char>(0x80 | (c >> 12 & 0x3F));
  *to++ = static_cast<char>(0x80 | (c >> 6 & 0x3F));
  *to++ = static_cast<char>(0x80 | (c & 0x3F));
  return to;
}

/// Bytes decoded with one allocation. Reserving for the whole text would claim three times the
/// size of single-byte text.
constexpr std::size_t kChunk = std::size_t{16} * 1024;

}  // namespace

bool decodeUtf16(std::string_view bytes, bool bigEndian, ByteSink& out) {
  const char* p = bytes.data();
  const char* const end = p + bytes.size() / 2 * 2;
  bool isValid = bytes.size() % 2 == 0;
  while (p < end) {
    const char* const stop = p + std::min<std::ptrdiff_t>(end - p, kChunk);
    // Three bytes for two, the last store writes four, and a surrogate pair may extend beyond the chunk.
    const std::size_t capacity = static_cast<std::size_t>(stop - p) / 2 * 3 + 4;
    char* const begin = out.grow(capacity);
    char* to = begin;
    while (p < stop) {
      const char16_t unit = unitAt(p, bigEndian);
      p += 2;
      if (!isLead(unit) && !isTrail(unit)) {
        to = storePacked(packUtf8(unit), to);
      } else if (isLead(unit) && p < end && isTrail(unitAt(p, bigEndian))) {
        to = storePair(unit, unitAt(p, bigEndian), to);
        p += 2;
      } else {
        to = storePacked(kPackedReplacement, to);
        isValid = false;
      }
    }
    out.shrink(capacity - static_cast<std::size_t>(to - begin));
  }
  if (bytes.size() % 2) out.append(kReplacementUtf8);
  return isValid;
}

bool encodeUtf16(std::string_view utf8, bool bigEndian, ByteSink& out) {
  const std::u16string units = utf8ToUtf16(utf8);
  char* to = out.grow(units.size() * 2);
  for (const char16_t unit : units) {
    *to++ = static_cast<char>(bigEndian ? unit >> 8 : unit & 0xFF);
    *to++ = static_cast<char>(bigEndian ? unit & 0xFF : unit >> 8);
  }
  return isValidUtf8(utf8);
}

}  // namespace mailtree
