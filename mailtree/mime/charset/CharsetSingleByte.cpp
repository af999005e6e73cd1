#include <algorithm>
#include <cstring>
#include <iterator>

#include "mailtree/base/Utf.h"
#include "mailtree/mime/charset/CharsetInternal.h"

namespace mailtree {
namespace {

constexpr std::size_t kWord = sizeof(std::uint64_t);

std::uint64_t loadWord(const char* p) noexcept {
  std::uint64_t word;
  std::memcpy(&word, p, kWord);
  return word;
}

constexpr bool isAsciiWord(std::uint64_t word) noexcept { return (word & 0x8080808080808080) == 0; }

constexpr unsigned byteOf(char c) noexcept { return static_cast<unsigned char>(c); }

/// Copies ASCII, sixteen bytes at a time, and moves both pointers; stops before the
/// first sixteen that contain another byte.
void copyAscii(const char*& p, const char* end, char*& to) noexcept {
  for (; end - p >= 16; p += 16, to += 16) {
    const std::uint64_t first = loadWord(p), second = loadWord(p + kWord);
    if (!isAsciiWord(first | second)) return;
    std::memcpy(to, &first, kWord);
    std::memcpy(to + kWord, &second, kWord);
  }
}

}  // namespace

const SingleByteCodec* singleByteCodec(int codePage) noexcept {
  const auto* const found =
      std::lower_bound(std::begin(kSingleByteCodecs), std::end(kSingleByteCodecs), codePage,
                       [](const auto& codec, int wanted) { return codec.codePage < wanted; });
  return found != std::end(kSingleByteCodecs) && found->codePage == codePage ? found : nullptr;
}

std::size_t count8bitPortable(std::string_view bytes) noexcept {
  constexpr std::uint64_t kOnes = 0x0101010101010101;
  std::size_t count = 0;
  std::size_t i = 0;
  for (; bytes.size() - i >= kWord; i += kWord)
    count += (loadWord(bytes.data() + i) >> 7 & kOnes) * kOnes >> 56;
  for (; i < bytes.size(); ++i) count += byteOf(bytes[i]) >> 7;
  return count;
}

char* decodeSingleBytePortable(const SingleByteCodec& codec, std::string_view bytes, char* to,
                               bool& isValid) noexcept {
  const char* p = bytes.data();
  const char* const end = p + bytes.size();
  PackedUtf8 seen = 0;
  while (p < end) {
    copyAscii(p, end, to);
    const char* const stop = p + std::min<std::ptrdiff_t>(end - p, 16);
    for (; p < stop; ++p) {
      const PackedUtf8 c = codec.utf8[byteOf(*p)];
      seen |= c;
      to = storePacked(c, to);
    }
  }
  isValid &= (seen & kPackedDamage) == 0;
  return to;
}

namespace {

#if MAILTREE_HAS_AVX2_PATH

std::size_t count8bit(std::string_view bytes) noexcept {
  return hasAvx2() ? count8bitAvx2(bytes) : count8bitPortable(bytes);
}

char* decodeAll(const SingleByteCodec& codec, std::string_view bytes, char* to, bool& isValid) noexcept {
  return hasAvx2() ? decodeSingleByteAvx2(codec, bytes, to, isValid)
                   : decodeSingleBytePortable(codec, bytes, to, isValid);
}

#else

std::size_t count8bit(std::string_view bytes) noexcept { return count8bitPortable(bytes); }

char* decodeAll(const SingleByteCodec& codec, std::string_view bytes, char* to, bool& isValid) noexcept {
  return decodeSingleBytePortable(codec, bytes, to, isValid);
}

#endif

}  // namespace

bool decodeSingleByte(const SingleByteCodec& codec, std::string_view bytes, ByteSink& out) {
  // A character has at most three bytes, and each store is rounded up.
  const std::size_t capacity = bytes.size() + 2 * count8bit(bytes) + kSingleByteMargin;
  char* const begin = out.grow(capacity);
  bool isValid = true;
  const char* const end = decodeAll(codec, bytes, begin, isValid);
  out.shrink(capacity - static_cast<std::size_t>(end - begin));
  return isValid;
}

namespace {

/// The byte of the well-formed character of two or three bytes at p; 0 when it is malformed or has no byte.
std::uint8_t byteOfCharacter(const SingleByteCodec& codec, const char* p, std::size_t left,
                             std::size_t& size) noexcept {
  const auto isTrail = [](char c) { return (byteOf(c) & 0xC0) == 0x80; };
  const unsigned lead = byteOf(p[0]);
  // utf-8 has six bits in every byte after the first, so the bytes before the last select the
  // block of 64 code points.
  if (lead >= 0xC2 && lead < 0xE0 && left >= 2 && isTrail(p[1])) {
    size = 2;
    return codec.bytes[codec.block[lead & 0x1F] * 64U + (byteOf(p[1]) & 0x3F)];
  }
  if ((lead & 0xF0) == 0xE0 && left >= 3 && isTrail(p[1]) && isTrail(p[2])) {
    const unsigned block = (lead & 0x0F) << 6 | (byteOf(p[1]) & 0x3F);
    size = 3;
    return block < 0x20 ? std::uint8_t{0} : codec.bytes[codec.block[block] * 64U + (byteOf(p[2]) & 0x3F)];
  }
  return 0;
}

}  // namespace

bool encodeSingleByte(const SingleByteCodec& codec, std::string_view utf8, ByteSink& out) {
  char* const begin = out.grow(utf8.size());
  char* to = begin;
  const char* p = utf8.data();
  const char* const end = p + utf8.size();
  bool isComplete = true;
  while (p < end) {
    copyAscii(p, end, to);
    // Looks for long runs of ASCII again after a while, not after every character.
    const char* const stop = p + std::min<std::ptrdiff_t>(end - p, 16);
    while (p < stop) {
      if (byteOf(*p) < 0x80) {
        *to++ = *p++;
        continue;
      }
      std::size_t size = 0;
      const std::uint8_t byte = byteOfCharacter(codec, p, static_cast<std::size_t>(end - p), size);
      if (byte) {
        *to++ = static_cast<char>(byte);
      } else {
        size = 0;
        nextCodePoint(std::string_view(p, static_cast<std::size_t>(end - p)), size);
        *to++ = '?';
        isComplete = false;
      }
      p += size;
    }
  }
  out.shrink(utf8.size() - static_cast<std::size_t>(to - begin));
  return isComplete;
}

}  // namespace mailtree
