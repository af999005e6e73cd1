#include "mailtree/mime/coding/Base64.h"

#include <algorithm>
#include <cstring>

#include "mailtree/base/Ascii.h"
#include "mailtree/mime/coding/Base64Internal.h"

namespace mailtree::base64 {
namespace {

constexpr std::uint32_t kBadQuad = 0x80000000;

/// The bits a digit adds to the 24 bits of its group, by its position. The first byte is the lowest, so the
/// bytes can be stored directly on a little-endian host.
using QuadTable = std::array<std::array<std::uint32_t, 256>, 4>;

constexpr QuadTable kQuads = [] {
  QuadTable tables{};
  for (unsigned place = 0; place < 4; ++place) {
    for (unsigned c = 0; c < 256; ++c) {
      const std::uint32_t value = kDigitValues[c];
      const std::uint32_t bits = value << (18 - 6 * place);
      tables[place][c] =
          value == kNoDigit ? kBadQuad : (bits >> 16 & 0xFF) | (bits & 0xFF00) | (bits & 0xFF) << 16;
    }
  }
  return tables;
}();

std::uint32_t quadAt(const char* p) noexcept {
  const auto look = [p](unsigned place) { return kQuads[place][static_cast<unsigned char>(p[place])]; };
  return look(0) | look(1) | look(2) | look(3);
}

void encodeTriple(const std::uint8_t* in, char* out) noexcept {
  const std::uint32_t bits = std::uint32_t{in[0]} << 16 | std::uint32_t{in[1]} << 8 | in[2];
  for (unsigned place = 0; place < 4; ++place) out[place] = kDigits[bits >> (18 - 6 * place) & 0x3F];
}

/// Encodes a run without line breaks, padding at its end; returns the end of the output.
char* encodeRun(const std::uint8_t* data, std::size_t size, char* out) noexcept {
  for (; size >= 3; data += 3, size -= 3, out += 4) encodeTriple(data, out);
  if (size == 0) return out;

  const std::uint8_t last[3] = {data[0], size == 2 ? data[1] : std::uint8_t{0}, 0};
  encodeTriple(last, out);
  out[3] = '=';
  if (size == 1) out[2] = '=';
  return out + 4;
}

/// Whether a line is clear text rather than damaged base64: it has words, or hardly any digits.
bool isClearText(std::string_view line) noexcept {
  const auto isStray = [](char c) { return digitValue(c) == kNoDigit && c != '='; };
  const std::string_view text = trim(line);
  const auto nonDigits = static_cast<std::size_t>(std::count_if(text.begin(), text.end(), isStray));
  return 2 * nonDigits > text.size() || (nonDigits > 0 && text.find(' ') != std::string_view::npos);
}

/// Where decoding continues after the padding at p. Mailing lists append their footers in clear text: when
/// the padding ends its line and the next line is clear text, the rest is ignored.
const char* afterPadding(const char* p, const char* end) noexcept {
  constexpr std::ptrdiff_t kEnough = 256;
  const char* at = p;
  while (at < end && (*at == '=' || *at == ' ' || *at == '\t')) ++at;
  if (at == end || (*at != '\r' && *at != '\n')) return p;
  while (at < end && isSpaceAscii(*at)) ++at;
  const std::string_view rest(at, static_cast<std::size_t>(std::min(kEnough, end - at)));
  return isClearText(rest.substr(0, rest.find_first_of("\r\n"))) ? end : p;
}

}  // namespace

void decodeGroup(const char*& p, const char* end, std::uint8_t*& out) noexcept {
  std::uint32_t bits = 0;
  unsigned digits = 0;
  while (p < end && digits < 4) {
    const char c = *p++;
    const std::uint8_t value = digitValue(c);
    if (value != kNoDigit) {
      bits = bits << 6 | value;
      ++digits;
    } else if (c == '=' && digits) {
      p = afterPadding(p, end);
      break;
    }
  }
  // A single digit does not make a byte.
  if (digits < 2) return;
  bits <<= 6 * (4 - digits);
  for (unsigned i = 0; i + 1 < digits; ++i) *out++ = static_cast<std::uint8_t>(bits >> (16 - 8 * i));
}

std::size_t decodePortable(std::string_view text, std::uint8_t* out) noexcept {
  const std::uint8_t* const begin = out;
  const char* p = text.data();
  const char* const end = p + text.size();
  while (p < end) {
    while (end - p >= 4) {
      const std::uint32_t quad = quadAt(p);
      if (quad & kBadQuad) break;
      out[0] = static_cast<std::uint8_t>(quad);
      out[1] = static_cast<std::uint8_t>(quad >> 8);
      out[2] = static_cast<std::uint8_t>(quad >> 16);
      p += 4;
      out += 3;
    }
    decodeGroup(p, end, out);
  }
  return static_cast<std::size_t>(out - begin);
}

std::size_t encodedSize(std::size_t size, std::size_t lineLength) noexcept {
  const std::size_t digits = (size + 2) / 3 * 4;
  if (lineLength == 0) return digits;
  return digits + 2 * ((digits + lineLength - 1) / lineLength);
}

std::size_t encodePortable(const std::uint8_t* data, std::size_t size, char* out,
                           std::size_t lineLength) noexcept {
  const char* const begin = out;
  if (lineLength == 0) return static_cast<std::size_t>(encodeRun(data, size, out) - begin);

  const std::size_t bytesPerLine = lineLength / 4 * 3;
  while (size) {
    const std::size_t n = std::min(size, bytesPerLine);
    out = encodeRun(data, n, out);
    *out++ = '\r';
    *out++ = '\n';
    data += n;
    size -= n;
  }
  return static_cast<std::size_t>(out - begin);
}

#if MAILTREE_HAS_AVX2_PATH

std::size_t decode(std::string_view text, std::uint8_t* out) noexcept {
  if (hasAvx512()) return decodeAvx512(text, out);
  return hasAvx2() ? decodeAvx2(text, out) : decodePortable(text, out);
}

std::size_t encode(const std::uint8_t* data, std::size_t size, char* out, std::size_t lineLength) noexcept {
  if (hasAvx512()) return encodeAvx512(data, size, out, lineLength);
  return hasAvx2() ? encodeAvx2(data, size, out, lineLength) : encodePortable(data, size, out, lineLength);
}

#else

std::size_t decode(std::string_view text, std::uint8_t* out) noexcept { return decodePortable(text, out); }

std::size_t encode(const std::uint8_t* data, std::size_t size, char* out, std::size_t lineLength) noexcept {
  return encodePortable(data, size, out, lineLength);
}

#endif

}  // namespace mailtree::base64
