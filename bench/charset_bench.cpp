// bench/charset_bench.cpp - conversion to utf-8, compared with ICU and iconv, and
// validation, compared with ICU.
//
// All sides write to memory already in use, with converters already opened. Rates are
// in bytes of the code page.
#include <benchmark/benchmark.h>
#include <iconv.h>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "bench/texts.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/charset/Charset.h"

namespace mailtree::bench {
namespace {

void rate(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

std::string inCodePage(const LanguageText& text) {
  std::string bytes;
  encodeFromUtf8(text.language->codePage, text.utf8, bytes);
  return bytes;
}

void decode(benchmark::State& state, const LanguageText& text) {
  const std::string bytes = inCodePage(text);
  DataBuffer out;
  for (auto _ : state) {
    out.shorten(out.getSize());
    if (!decodeToUtf8(text.language->codePage, bytes, out)) return state.SkipWithError("not decoded");
    benchmark::DoNotOptimize(out.getData2());
  }
  if (out.view() != text.utf8) state.SkipWithError("decoded to something else");
  rate(state, bytes.size());
}

void encode(benchmark::State& state, const LanguageText& text) {
  std::string out;
  for (auto _ : state) {
    out.clear();
    if (!encodeFromUtf8(text.language->codePage, text.utf8, out)) return state.SkipWithError("not encoded");
    benchmark::DoNotOptimize(out.data());
  }
  rate(state, out.size());
}

struct CloseConverter {
  void operator()(UConverter* converter) const noexcept { ucnv_close(converter); }
};
using Converter = std::unique_ptr<UConverter, CloseConverter>;

Converter open(const char* name) {
  UErrorCode error = U_ZERO_ERROR;
  Converter converter(ucnv_open(name, &error));
  return U_SUCCESS(error) ? std::move(converter) : nullptr;
}

/// A method of ICU to convert bytes to utf-8. Returns the size of the output, negative on failure.
using IcuMethod = std::int32_t (*)(UConverter* from, const std::string& bytes, std::vector<UChar>& between,
                                   std::string& out);

std::int32_t sizeOf(const std::string& bytes) { return static_cast<std::int32_t>(bytes.size()); }

std::int32_t throughUtf16(UConverter* from, const std::string& bytes, std::vector<UChar>& between,
                          std::string& out) {
  UErrorCode error = U_ZERO_ERROR;
  ucnv_resetToUnicode(from);
  UChar* units = between.data();
  const char* source = bytes.data();
  ucnv_toUnicode(from, &units, between.data() + between.size(), &source, source + bytes.size(), nullptr, true,
                 &error);
  std::int32_t size = 0;
  u_strToUTF8(out.data(), sizeOf(out), &size, between.data(),
              static_cast<std::int32_t>(units - between.data()), &error);
  return U_SUCCESS(error) ? size : -1;
}

std::int32_t direct(UConverter* from, const std::string& bytes, std::vector<UChar>&, std::string& out) {
  UErrorCode error = U_ZERO_ERROR;
  const std::int32_t size =
      ucnv_toAlgorithmic(UCNV_UTF8, from, out.data(), sizeOf(out), bytes.data(), sizeOf(bytes), &error);
  return U_SUCCESS(error) ? size : -1;
}

void decodeWithIcu(benchmark::State& state, const LanguageText& text, IcuMethod convert) {
  const std::string bytes = inCodePage(text);
  const Converter from = open(text.language->icuName);
  if (!from) return state.SkipWithError("no such converter");
  std::vector<UChar> between(2 * text.utf8.size());
  std::string out(2 * text.utf8.size(), '\0');
  std::int32_t size = 0;
  for (auto _ : state) {
    size = convert(from.get(), bytes, between, out);
    benchmark::ClobberMemory();
  }
  if (size != sizeOf(text.utf8) || !out.starts_with(text.utf8))
    state.SkipWithError("decoded to something else");
  rate(state, bytes.size());
}

void decodeWithIconv(benchmark::State& state, const LanguageText& text) {
  std::string bytes = inCodePage(text);
  const iconv_t converter = iconv_open("UTF-8", text.language->iconvName);
  if (converter == reinterpret_cast<iconv_t>(-1)) return state.SkipWithError("no such converter");
  std::string out(2 * text.utf8.size(), '\0');
  std::size_t written = 0;
  for (auto _ : state) {
    char *from = bytes.data(), *to = out.data();
    std::size_t left = bytes.size(), room = out.size();
    iconv(converter, nullptr, nullptr, nullptr, nullptr);
    iconv(converter, &from, &left, &to, &room);
    written = out.size() - room;
    benchmark::ClobberMemory();
  }
  iconv_close(converter);
  if (out.compare(0, written, text.utf8) != 0) state.SkipWithError("decoded to something else");
  rate(state, bytes.size());
}

void validate(benchmark::State& state, const std::string& utf8) {
  for (auto _ : state) benchmark::DoNotOptimize(isValidUtf8(utf8));
  rate(state, utf8.size());
}

/// The fastest method of ICU: reading character by character with its own macro.
void validateByMacro(benchmark::State& state, const std::string& utf8) {
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(utf8.data());
  for (auto _ : state) {
    UChar32 worst = 0;
    for (std::int32_t i = 0; i < sizeOf(utf8);) {
      UChar32 c;
      U8_NEXT(bytes, i, sizeOf(utf8), c);
      worst = std::min(worst, c);
    }
    benchmark::DoNotOptimize(worst);
  }
  rate(state, utf8.size());
}

/// Preflighting: ICU counts and validates without writing.
void validateByCounting(benchmark::State& state, const std::string& utf8) {
  for (auto _ : state) {
    UErrorCode error = U_ZERO_ERROR;
    std::int32_t size = 0;
    u_strFromUTF8(nullptr, 0, &size, utf8.data(), sizeOf(utf8), &error);
    benchmark::DoNotOptimize(size);
  }
  rate(state, utf8.size());
}

struct Sentence {
  const char* name;
  std::string_view text;
};
constexpr Sentence kSentences[] = {
    {"ascii", "Plain words, nothing else in them.\r\n"},
    {"german", "Viele Grüße aus Köln an den Müller in Österreich.\r\n"},
    {"russian", "Съешь ещё этих мягких французских булок, да выпей чаю.\r\n"},
    {"japanese", "これは日本語の文章です。文字コードを変えてみます。\r\n"},
    {"emoji", "\xF0\x9F\x98\x80\xF0\x9F\x91\x8D\xF0\x9F\x8E\x89"},
};

void registerConversions() {
  using benchmark::RegisterBenchmark;
  static const auto texts = languageTexts();
  for (const LanguageText& text : texts) {
    const std::string decoding = "decode/" + text.name;
    RegisterBenchmark((decoding + "/mailtree").c_str(), decode, text);
    RegisterBenchmark((decoding + "/icu").c_str(), decodeWithIcu, text, throughUtf16);
    RegisterBenchmark((decoding + "/icu_direct").c_str(), decodeWithIcu, text, direct);
    RegisterBenchmark((decoding + "/iconv").c_str(), decodeWithIconv, text);
    RegisterBenchmark(("encode/" + text.name + "/mailtree").c_str(), encode, text);
  }
}

const bool kRegistered = [] {
  using benchmark::RegisterBenchmark;
  registerConversions();
  for (const Sentence& sentence : kSentences) {
    const std::string name = std::string("validate/utf8_") + sentence.name;
    const std::string text = repeated(sentence.text, 1 << 16);
    RegisterBenchmark((name + "/mailtree").c_str(), validate, text);
    RegisterBenchmark((name + "/icu").c_str(), validateByMacro, text);
    RegisterBenchmark((name + "/icu_preflight").c_str(), validateByCounting, text);
  }
  return true;
}();

}  // namespace
}  // namespace mailtree::bench
