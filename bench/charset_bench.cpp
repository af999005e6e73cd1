// bench/charset_bench.cpp - conversion to and from utf-8, per code page, in bytes of the code page.
#include <benchmark/benchmark.h>

#include <string>

#include "mailtree/mime/Charset.h"

namespace {

using namespace mailtree;

constexpr std::size_t kSize = 1 << 20;

/// What people write in a code page, in utf-8.
struct Language {
  int codePage;
  const char* text;
};

constexpr Language kLanguages[] = {
    {20127, "Plain words, nothing else in them.\r\n"},
    {28591, "Smørrebrød à la carte, déjà vu, und viele Grüße aus Köln an den Müller.\r\n"},
    {1252, "Smørrebrød “à la carte” – 20 €, déjà vu, und viele Grüße an alle.\r\n"},
    {1250, "Příliš žluťoučký kůň úpěl ďábelské ódy.\r\n"},
    {1251, "Съешь ещё этих мягких французских булок, да выпей чаю.\r\n"},
    {20866, "Съешь ещё этих мягких французских булок, да выпей чаю.\r\n"},
    {1253, "Ξεσκεπάζω τήν ψυχοφθόρα βδελυγμία.\r\n"},
    {932, "これは日本語の文章です。文字コードを変えてみます。\r\n"},
    {51932, "これは日本語の文章です。文字コードを変えてみます。\r\n"},
    {50220, "これは日本語の文章です。文字コードを変えてみます。\r\n"},
    {936, "这是一段普通的中文文字，用来测试字符编码的转换。\r\n"},
    {950, "這是一段普通的中文文字，用來測試字元編碼的轉換。\r\n"},
    {949, "이것은 문자 인코딩을 바꾸는 시험을 위한 문장입니다.\r\n"},
    {1200, "Two bytes for each, und viele Grüße.\r\n"},
};

struct Text {
  std::string utf8, bytes;
};

Text textOf(const Language& language) {
  Text text;
  while (text.utf8.size() < kSize) text.utf8 += language.text;
  encodeFromUtf8(language.codePage, text.utf8, text.bytes);
  return text;
}

void decode(benchmark::State& state, const Language& language) {
  const Text text = textOf(language);
  for (auto _ : state) {
    DataBuffer out;
    if (!decodeToUtf8(language.codePage, text.bytes, out)) return state.SkipWithError("text was not decoded");
    benchmark::DoNotOptimize(out.getData2());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.bytes.size()));
}

void encode(benchmark::State& state, const Language& language) {
  const Text text = textOf(language);
  for (auto _ : state) {
    std::string out;
    if (!encodeFromUtf8(language.codePage, text.utf8, out))
      return state.SkipWithError("text was not encoded");
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.bytes.size()));
}

const bool kRegistered = [] {
  for (const Language& language : kLanguages) {
    const std::string name(charsetNameOf(language.codePage));
    benchmark::RegisterBenchmark(("decode/" + name).c_str(), decode, language);
    benchmark::RegisterBenchmark(("encode/" + name).c_str(), encode, language);
  }
  return true;
}();

}  // namespace
