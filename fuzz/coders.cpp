// Transfer encodings and charsets: encoding round-trips, vector and portable code agree,
// any bytes can be converted.
#include <string>
#include <vector>

#include "fuzz/target.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/charset/UnicodeInfo.h"
#include "mailtree/mime/coding/Base64.h"
#include "mailtree/mime/coding/ContentCoding.h"
#include "mailtree/mime/coding/Uu.h"

using namespace mailtree;

namespace {

constexpr int kCodePages[] = {kCpUtf8, 20127, 28591, 1252,  1251,  20866, 874,   932,  936,
                              949,     950,   54936, 50220, 50225, 51932, 52936, 1200, 1201};

void transferEncodings(std::string_view bytes) {
  StringBuffer text;
  DataBuffer back;
  ContentCoding::encodeBase64(bytes.data(), bytes.size(), text);
  fuzz::require(text.getSize() == ContentCoding::computeBase64Size(bytes.size(), 76),
                "the base64 size is computed correctly");
  ContentCoding::decodeBase64ToDb(text, back);
  fuzz::require(back.view() == bytes, "base64 round-trips");
  text.clear();
  back.clear();
  ContentCoding::encodeQuotedPrintable(bytes.data(), bytes.size(), text);
  ContentCoding::decodeQuotedPrintableToDb(text, back);
  fuzz::require(back.view() == bytes, "quoted-printable round-trips");
}

void decoders(std::string_view text) {
  std::vector<std::uint8_t> fast(base64::decodedCapacity(text.size())), portable(fast.size());
  fast.resize(base64::decode(text, fast.data()));
  portable.resize(base64::decodePortable(text, portable.data()));
  fuzz::require(fast == portable, "vector and portable base64 agree");
  DataBuffer out;
  ContentCoding::decodeQuotedPrintableToDb(text, out);
  ExtPtrArray files;
  ExtPtrArraySb names;
  Uu::uu_decodeMultipleDb(text, files, names);
  files.removeAllObjects();
}

void charsets(std::string_view bytes) {
  LogNull log;
  for (const int codePage : kCodePages) {
    DataBuffer utf8, back;
    const bool right = EncodingConvert::EncConvert(codePage, kCpUtf8, bytes.data(), bytes.size(), utf8, log);
    fuzz::require(isValidUtf8(utf8.view()), "conversion to utf-8 gives utf-8");
    if (right) EncodingConvert::EncConvert(kCpUtf8, codePage, utf8.getData2(), utf8.getSize(), back, log);
  }
  DataBuffer text;
  const DecodedText decoded = receivedTextToUtf8("utf-8", bytes, text);
  if (decoded.converted) fuzz::require(isValidUtf8(text.view()), "converted text is utf-8");
}

void suggestedCharsets(std::string_view bytes) {
  LogNull log;
  UnicodeInfo info;
  info.ExamineUnicode(bytes);
  for (const char* preferred : {"", "koi8-r", "iso-2022-jp", "gb2312", "windows-1258", "utf-16"}) {
    _svCharset charset;
    info.suggestCharset(charset, preferred, bytes, log);
    const int codePage = charset.getCodePage();
    if (codePage == 0 || codePage == kCpUtf8) continue;
    std::string encoded, back;
    fuzz::require(encodeFromUtf8(codePage, bytes, encoded), "a suggested charset can encode the text");
    fuzz::require(decodeToUtf8(codePage, encoded, back) && back == bytes,
                  "a suggested charset round-trips the text");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes = fuzz::textOf(data, size);
  transferEncodings(bytes);
  decoders(bytes);
  charsets(bytes);
  suggestedCharsets(bytes);
  return 0;
}
