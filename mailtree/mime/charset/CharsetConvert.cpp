#include "mailtree/base/Log.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/charset/CharsetInternal.h"
#include "mailtree/mime/charset/WrittenCharset.h"

namespace mailtree {
namespace {

bool decodeUtf8(std::string_view bytes, ByteSink& out) {
  if (isValidUtf8(bytes)) {
    out.append(bytes);
    return true;
  }
  std::string repaired;
  repaired.reserve(bytes.size() + bytes.size() / 4);
  for (std::size_t i = 0; i < bytes.size();) appendUtf8(repaired, nextCodePoint(bytes, i));
  out.append(repaired);
  return false;
}

bool isKnown(int codePage) noexcept {
  return codePage == kCpUtf8 || codePage == kCpUtf16LE || codePage == kCpUtf16BE ||
         singleByteCodec(codePage) || isIso2022Jp(codePage) || icuConverterOf(codePage);
}

/// The code page must be known.
bool decode(int codePage, std::string_view bytes, ByteSink& out) {
  if (codePage == kCpUtf8) return decodeUtf8(bytes, out);
  if (codePage == kCpUtf16LE || codePage == kCpUtf16BE)
    return decodeUtf16(bytes, codePage == kCpUtf16BE, out);
  if (const SingleByteCodec* const codec = singleByteCodec(codePage))
    return decodeSingleByte(*codec, bytes, out);
  if (isDoubleByte(codePage)) return decodeDoubleByte(codePage, bytes, out);
  if (isIso2022Jp(codePage)) return decodeIso2022Jp(bytes, out);
  return decodeWithIcu(icuConverterOf(codePage), bytes, out);
}

/// The code page must be known.
bool encode(int codePage, std::string_view utf8, ByteSink& out) {
  if (codePage == kCpUtf8) return decodeUtf8(utf8, out);
  if (codePage == kCpUtf16LE || codePage == kCpUtf16BE) return encodeUtf16(utf8, codePage == kCpUtf16BE, out);
  if (const SingleByteCodec* const codec = singleByteCodec(codePage))
    return encodeSingleByte(*codec, utf8, out);
  if (isIso2022Jp(codePage)) return encodeIso2022Jp(utf8, out);
  return encodeWithTable(codePage, utf8, out);
}

/// Converts by way of utf-8. Two different code pages share the same bytes only when both are utf-8.
bool convert(int from, int to, std::string_view bytes, DataBuffer& out) {
  ByteSink sink(out);
  if (to == kCpUtf8) return decode(from, bytes, sink);
  if (from == kCpUtf8) return encode(to, bytes, sink);

  std::string utf8;
  ByteSink between(utf8);
  const bool decoded = decode(from, bytes, between);
  if (from != to) return encode(to, utf8, sink) && decoded;
  sink.append(bytes);
  return decoded;
}

/// Runs a conversion that appends; an exception becomes false.
template <class Run>
bool converting(int codePage, Run&& run) noexcept {
  return isKnown(codePage) && neverThrow(false, std::forward<Run>(run));
}

}  // namespace

bool isMultibyte(int codePage) noexcept { return isKnown(codePage) && !singleByteCodec(codePage); }

bool keepsAscii(int codePage) noexcept { return isAsciiCompatible(codePage) && isKnown(codePage); }

bool hasWideUnits(int codePage) noexcept {
  return codePage == kCpUtf16LE || codePage == kCpUtf16BE || codePage == kCpUtf32LE || codePage == kCpUtf32BE;
}

bool isMailCodePage(int codePage) noexcept {
  return codePage > 0 && codePage != kCpUtf7 && !hasWideUnits(codePage);
}

int codePageToWrite(int codePage, std::string_view utf8) noexcept {
  constexpr int kStrictGb2312 = 20936;
  std::string scratch;
  const bool isHeld = codePage != kCpChinese || isAscii(utf8) || encodeFromUtf8(kStrictGb2312, utf8, scratch);
  return isHeld ? codePage : kCpGb18030;
}

bool isAsciiCompatible(int codePage) noexcept {
  switch (codePage) {
    case kCpUtf7:
    case kCpHz:
    case kCpIso2022Kr:
    case 50227: return false;
    default: return !hasWideUnits(codePage) && !isIso2022Jp(codePage);
  }
}

bool EncodingConvert::EncConvert(int fromCodePage, int toCodePage, const void* bytes, std::size_t size,
                                 DataBuffer& out, LogBase& log) {
  const std::string_view input(static_cast<const char*>(bytes), bytes ? size : 0);
  const bool known = isKnown(fromCodePage) && isKnown(toCodePage);
  // The input may be in `out`.
  DataBuffer result;
  const bool isComplete = neverThrow(false, [&] {
    return known ? convert(fromCodePage, toCodePage, input, result) : result.append(input) && false;
  });
  if (!known) {
    log.logError("Unknown code page.");
    log.LogDataLong("fromCodePage", fromCodePage);
    log.LogDataLong("toCodePage", toCodePage);
  }
  out.takeData(result);
  return isComplete;
}

bool decodeToUtf8(int codePage, std::string_view bytes, DataBuffer& out) {
  return converting(codePage, [&] {
    ByteSink sink(out);
    return decode(codePage, bytes, sink);
  });
}

bool decodeToUtf8(int codePage, std::string_view bytes, std::string& out) {
  return converting(codePage, [&] {
    ByteSink sink(out);
    return decode(codePage, bytes, sink);
  });
}

bool encodeFromUtf8(int codePage, std::string_view utf8, std::string& out) {
  return converting(codePage, [&] {
    ByteSink sink(out);
    return encode(codePage, utf8, sink);
  });
}

bool StringBuffer::convertEncoding(int fromCodePage, int toCodePage, LogBase& log) {
  DataBuffer converted;
  const bool isComplete =
      EncodingConvert::EncConvert(fromCodePage, toCodePage, m_text.data(), m_text.size(), converted, log);
  return setString(converted.view()) && isComplete;
}

}  // namespace mailtree
