#include "mailtree/mime/coding/ContentCoding.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>

#include "mailtree/mime/coding/Base64.h"
#include "mailtree/mime/coding/EncodedWord.h"
#include "mailtree/mime/coding/QuotedPrintable.h"

namespace mailtree {
namespace {

constexpr std::size_t kLineLength = 76;
constexpr std::size_t kBytesPerLine = kLineLength / 4 * 3;

/// Lines encoded at a time: their output stays in the first-level cache.
constexpr std::size_t kChunkLines = 192;
constexpr std::size_t kChunkBytes = kChunkLines * kBytesPerLine;
using EncodedChunk = std::array<char, kChunkLines*(kLineLength + 2)>;

std::string_view bytesOf(const void* data, std::size_t size) noexcept {
  return data ? std::string_view(static_cast<const char*>(data), size) : std::string_view();
}

const std::uint8_t* unsignedOf(std::string_view bytes) noexcept {
  return reinterpret_cast<const std::uint8_t*>(bytes.data());
}

/// Encodes chunk by chunk; `take` gets each and returns whether to continue.
template <class Take>
bool encodeBase64Chunks(std::string_view data, Take&& take) {
  EncodedChunk chunk;
  while (!data.empty()) {
    const std::string_view piece = data.substr(0, kChunkBytes);
    const std::size_t n = base64::encode(unsignedOf(piece), piece.size(), chunk.data(), kLineLength);
    if (!take(std::string_view(chunk.data(), n))) return false;
    data.remove_prefix(piece.size());
  }
  return true;
}

enum class Base64Char : std::uint8_t { stranger, digit, padding };

constexpr std::array<Base64Char, 256> kBase64Chars = [] {
  std::array<Base64Char, 256> kinds{};
  for (unsigned c = 0; c < 256; ++c) {
    const char ascii = static_cast<char>(c);
    if (isAlnumAscii(ascii) || ascii == '+' || ascii == '/') kinds[c] = Base64Char::digit;
    if (isSpaceAscii(ascii) || ascii == '=') kinds[c] = Base64Char::padding;
  }
  return kinds;
}();

/// Characters allowed unescaped in a Q payload in a display name (RFC 2047, 5 (3)).
constexpr bool isPhraseLiteral(char c) noexcept {
  return isAlnumAscii(c) || c == '!' || c == '*' || c == '+' || c == '-' || c == '/';
}

/// A null-terminated array of `size` characters, null when memory ran out.
char* newText(std::size_t size) noexcept {
  char* const text = new (std::nothrow) char[size + 1];
  if (text) text[size] = '\0';
  return text;
}

}  // namespace

bool ContentCoding::encodeBase64(const void* data, std::size_t size, StringBuffer& out) {
  const std::string_view bytes = bytesOf(data, size);
  return neverThrow(false, [&] {
    std::string& text = out.text();
    text.reserve(text.size() + base64::encodedSize(bytes.size(), kLineLength));
    return encodeBase64Chunks(bytes, [&text](std::string_view chunk) {
      text.append(chunk);
      return true;
    });
  });
}

bool ContentCoding::decodeBase64ToDb(std::string_view text, DataBuffer& out) {
  if (text.empty()) return true;
  const std::size_t capacity = base64::decodedCapacity(text.size());
  std::uint8_t* const to = out.appendUninitialized(capacity);
  if (!to) return false;
  out.shorten(capacity - base64::decode(text, to));
  return true;
}

bool ContentCoding::isBase64(std::string_view text) noexcept {
  bool anyDigit = false;
  for (const char c : text) {
    const Base64Char kind = kBase64Chars[static_cast<unsigned char>(c)];
    if (kind == Base64Char::stranger) return false;
    anyDigit |= kind == Base64Char::digit;
  }
  return anyDigit;
}

std::size_t ContentCoding::computeBase64Size(std::size_t n, std::size_t lineLength) noexcept {
  return base64::encodedSize(n, lineLength);
}

bool ContentCoding::encodeQuotedPrintable(const void* data, std::size_t size, StringBuffer& out) {
  const std::string_view bytes = bytesOf(data, size);
  return neverThrow(false, [&] {
    std::string& text = out.text();
    text.reserve(text.size() + bytes.size() + bytes.size() / 16);
    quotedPrintable::Encoder().encode(bytes, /*last=*/true, text);
    return true;
  });
}

bool ContentCoding::decodeQuotedPrintableToDb(std::string_view text, DataBuffer& out) {
  if (text.empty()) return true;
  std::uint8_t* const to = out.appendUninitialized(text.size());
  if (!to) return false;
  out.shorten(text.size() - quotedPrintable::decode(text, to));
  return true;
}

bool ContentCoding::encodeBase64ToOutput(const void* data, std::size_t size, _svOutput& out,
                                         ProgressContext& progress, LogBase& log) {
  return neverThrow(false, [&] {
    return encodeBase64Chunks(bytesOf(data, size),
                              [&](std::string_view chunk) { return out.write(chunk, progress, log); });
  });
}

bool ContentCoding::encodeQpToOutput(const void* data, std::size_t size, _svOutput& out,
                                     ProgressContext& progress, LogBase& log) {
  return neverThrow(false, [&] {
    std::string_view bytes = bytesOf(data, size);
    quotedPrintable::Encoder encoder;
    std::string chunk;
    while (!bytes.empty()) {
      const std::string_view piece = bytes.substr(0, kChunkBytes);
      bytes.remove_prefix(piece.size());
      chunk.clear();
      encoder.encode(piece, /*last=*/bytes.empty(), chunk);
      if (!out.write(chunk, progress, log)) return false;
    }
    return true;
  });
}

char* ContentCoding::B_Encode(const void* data, std::size_t size, std::size_t* outLength) {
  const std::string_view bytes = bytesOf(data, size);
  const std::size_t length = base64::encodedSize(bytes.size(), 0);
  char* const text = newText(length);
  if (text) base64::encode(unsignedOf(bytes), bytes.size(), text, 0);
  if (outLength) *outLength = text ? length : 0;
  return text;
}

char* ContentCoding::Q_EncodeCommaToo(const void* data, std::size_t size, std::size_t* outLength) {
  const std::string_view bytes = bytesOf(data, size);
  std::size_t length = 0;
  for (const char c : bytes) length += isPhraseLiteral(c) || c == ' ' ? 1 : 3;
  if (outLength) *outLength = 0;
  char* const text = newText(length);
  if (!text) return nullptr;

  char* to = text;
  for (const char c : bytes) {
    const unsigned byte = static_cast<unsigned char>(c);
    if (isPhraseLiteral(c) || c == ' ') {
      *to++ = c == ' ' ? '_' : c;
      continue;
    }
    *to++ = '=';
    *to++ = "0123456789ABCDEF"[byte >> 4];
    *to++ = "0123456789ABCDEF"[byte & 15];
  }
  if (outLength) *outLength = length;
  return text;
}

void ContentCoding::QB_DecodeToUtf8(StringBuffer& value, LogBase& log) {
  if (!mayHoldEncodedWord(value)) return;
  const bool done = neverThrow(false, [&] {
    value.text() = decodeEncodedWords(value);
    return true;
  });
  if (!done) log.logError("Out of memory while decoding encoded words.");
}

}  // namespace mailtree
