// bench/coders_bench.cpp - the transfer encodings, beside memcpy of the same bytes in the same run.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "mailtree/mime/Base64.h"
#include "mailtree/mime/ContentCoding.h"
#include "mailtree/mime/QuotedPrintable.h"

namespace {

using namespace mailtree;

constexpr std::size_t kSize = 1 << 20;

std::string randomBytes(std::size_t size) {
  std::mt19937 random(1);
  std::string bytes(size, '\0');
  for (char& c : bytes) c = static_cast<char>(random());
  return bytes;
}

std::string repeated(std::string_view text) {
  std::string all;
  while (all.size() < kSize) all += text;
  return all;
}

std::string base64Text(std::size_t lineLength) {
  const std::string bytes = randomBytes(kSize);
  std::string text(base64::encodedSize(bytes.size(), lineLength), '\0');
  base64::encode(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), text.data(), lineLength);
  return text;
}

std::string qpText(std::string_view text) {
  StringBuffer out;
  const std::string bytes = repeated(text);
  ContentCoding::encodeQuotedPrintable(bytes.data(), bytes.size(), out);
  return out.extractString();
}

constexpr std::string_view kHtml =
    "<p style=\"margin:0 0 1em\">A paragraph of a newsletter, with the usual attributes and some "
    "caf\xC3\xA9.</p>\r\n";
constexpr std::string_view kEnglish =
    "Plain lines as people write them, all of it ASCII and none of it long.\r\n";
constexpr std::string_view kRussian =
    "\xD0\x9E\xD0\xB1\xD1\x8B\xD1\x87\xD0\xBD\xD1\x8B\xD0\xB9 \xD1\x82\xD0\xB5\xD0\xBA\xD1\x81\xD1\x82, "
    "\xD0\xB2 \xD1\x83\xD1\x82\xD1\x84-8.\r\n";

void rate(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

void copyMemory(benchmark::State& state) {
  const std::string from = randomBytes(kSize);
  std::vector<char> to(kSize);
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), kSize);
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
  rate(state, kSize);
}
BENCHMARK(copyMemory);

using Decode = std::size_t (*)(std::string_view, std::uint8_t*) noexcept;

void decodeText(benchmark::State& state, Decode decode, const std::string& text) {
  std::vector<std::uint8_t> out(base64::decodedCapacity(text.size()) + text.size());
  for (auto _ : state) {
    benchmark::DoNotOptimize(decode(text, out.data()));
    benchmark::ClobberMemory();
  }
  rate(state, text.size());
}
BENCHMARK_CAPTURE(decodeText, base64_lines_of_76, base64::decode, base64Text(76));
BENCHMARK_CAPTURE(decodeText, base64_one_line, base64::decode, base64Text(0));
BENCHMARK_CAPTURE(decodeText, base64_portable, base64::decodePortable, base64Text(76));
BENCHMARK_CAPTURE(decodeText, qp_html, quotedPrintable::decode, qpText(kHtml));
BENCHMARK_CAPTURE(decodeText, qp_english, quotedPrintable::decode, qpText(kEnglish));
BENCHMARK_CAPTURE(decodeText, qp_russian, quotedPrintable::decode, qpText(kRussian));
BENCHMARK_CAPTURE(decodeText, qp_nothing_but_escapes, quotedPrintable::decode, qpText("\xE3\x81\x82"));

using Encode = std::size_t (*)(const std::uint8_t*, std::size_t, char*, std::size_t) noexcept;

void encodeBase64(benchmark::State& state, Encode encode) {
  const std::string bytes = randomBytes(kSize);
  std::vector<char> out(base64::encodedSize(bytes.size(), 76));
  for (auto _ : state) {
    encode(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), out.data(), 76);
    benchmark::ClobberMemory();
  }
  rate(state, out.size());
}
BENCHMARK_CAPTURE(encodeBase64, widest, base64::encode);
BENCHMARK_CAPTURE(encodeBase64, portable, base64::encodePortable);

void encodeQuotedPrintable(benchmark::State& state, const std::string& bytes) {
  StringBuffer out;
  for (auto _ : state) {
    out.weakClear();
    ContentCoding::encodeQuotedPrintable(bytes.data(), bytes.size(), out);
    benchmark::ClobberMemory();
  }
  rate(state, bytes.size());
}
BENCHMARK_CAPTURE(encodeQuotedPrintable, html, repeated(kHtml));
BENCHMARK_CAPTURE(encodeQuotedPrintable, english, repeated(kEnglish));
BENCHMARK_CAPTURE(encodeQuotedPrintable, russian, repeated(kRussian));
BENCHMARK_CAPTURE(encodeQuotedPrintable, nothing_but_escapes, repeated("\xE3\x81\x82"));

}  // namespace
