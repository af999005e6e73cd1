// bench/coders_bench.cpp - transfer encodings: base64 compared with memcpy, quoted-printable with GMime
// (gmime_coders_bench.cpp).
//
// memcpy copies as many bytes as the longer side, the text, has. 64 kB fit into the second-level cache, 1 MB
// into the third, 16 MB into none.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "bench/texts.h"
#include "mailtree/mime/coding/Base64.h"
#include "mailtree/mime/coding/ContentCoding.h"
#include "mailtree/mime/coding/QuotedPrintable.h"

namespace mailtree::bench {
namespace {

/// Cycles per second of the busy processor, whose own counter runs at another speed: each addition waits a
/// cycle for the one before.
double clockRate() {
  constexpr std::uint64_t kAdditions = 20'000'000;
  using Clock = std::chrono::steady_clock;
  std::chrono::duration<double> least = std::chrono::hours(1);
  for (int round = 0; round < 5; ++round) {
    const auto start = Clock::now();
    std::uint64_t sum = 0;
    for (std::uint64_t i = 0; i < kAdditions; ++i) {
      sum += i;
#if defined(__GNUC__)
      asm volatile("" : "+r"(sum));  // or the loop would be replaced by its result
#else
      benchmark::DoNotOptimize(sum);
#endif
    }
    least = std::min<std::chrono::duration<double>>(least, Clock::now() - start);
  }
  return kAdditions / least.count();
}

void rate(benchmark::State& state, std::size_t bytes) {
  static const double kClockRate = clockRate();
  const auto all = state.iterations() * static_cast<std::int64_t>(bytes);
  state.SetBytesProcessed(all);
  state.counters["bytes_per_cycle"] =
      benchmark::Counter(static_cast<double>(all) / kClockRate, benchmark::Counter::kIsRate);
}

const std::uint8_t* unsignedOf(const std::string& bytes) {
  return reinterpret_cast<const std::uint8_t*>(bytes.data());
}

std::string base64Text(std::size_t size, std::size_t lineLength) {
  const std::string bytes = randomBytes(size / 4 * 3);
  std::string text(base64::encodedSize(bytes.size(), lineLength), '\0');
  base64::encode(unsignedOf(bytes), bytes.size(), text.data(), lineLength);
  return text;
}

void copyMemory(benchmark::State& state, std::size_t size, std::size_t lineLength) {
  const std::string from = base64Text(size, lineLength);
  std::vector<char> to(from.size());
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), from.size());
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
  rate(state, from.size());
}

using Decode = std::size_t (*)(std::string_view, std::uint8_t*) noexcept;

void decodeBase64(benchmark::State& state, Decode decode, std::size_t size, std::size_t lineLength) {
  const std::string text = base64Text(size, lineLength);
  std::vector<std::uint8_t> out(base64::decodedCapacity(text.size()));
  for (auto _ : state) {
    benchmark::DoNotOptimize(decode(text, out.data()));
    benchmark::ClobberMemory();
  }
  rate(state, text.size());
}

using Encode = std::size_t (*)(const std::uint8_t*, std::size_t, char*, std::size_t) noexcept;

void encodeBase64(benchmark::State& state, Encode encode, std::size_t size, std::size_t lineLength) {
  const std::string bytes = randomBytes(size / 4 * 3);
  std::vector<char> out(base64::encodedSize(bytes.size(), lineLength));
  for (auto _ : state) {
    encode(unsignedOf(bytes), bytes.size(), out.data(), lineLength);
    benchmark::ClobberMemory();
  }
  rate(state, out.size());
}

void decodeQuotedPrintable(benchmark::State& state, const Prose& prose) {
  StringBuffer encoded;
  const std::string bytes = repeated(prose.text, kProseSize);
  ContentCoding::encodeQuotedPrintable(bytes.data(), bytes.size(), encoded);
  const std::string text = encoded.extractString();
  std::vector<std::uint8_t> out(text.size());
  for (auto _ : state) {
    benchmark::DoNotOptimize(quotedPrintable::decode(text, out.data()));
    benchmark::ClobberMemory();
  }
  rate(state, text.size());
}

void encodeQuotedPrintable(benchmark::State& state, const Prose& prose) {
  const std::string bytes = repeated(prose.text, kProseSize);
  StringBuffer out;
  for (auto _ : state) {
    out.weakClear();
    ContentCoding::encodeQuotedPrintable(bytes.data(), bytes.size(), out);
    benchmark::ClobberMemory();
  }
  rate(state, bytes.size());
}

struct Shape {
  const char* name;
  std::size_t size, lineLength;
};
constexpr Shape kShapes[] = {
    {"lines_64kB", 1 << 16, 76}, {"lines_1MB", 1 << 20, 76}, {"lines_16MB", 1 << 24, 76},
    {"line_64kB", 1 << 16, 0},   {"line_1MB", 1 << 20, 0},   {"line_16MB", 1 << 24, 0},
};

const bool kRegistered = [] {
  using benchmark::RegisterBenchmark;
  for (const auto& [name, size, lineLength] : kShapes) {
    const std::string decoding = std::string("coder/base64_decode_") + name;
    RegisterBenchmark((decoding + "/mailtree").c_str(), decodeBase64, base64::decode, size, lineLength);
    RegisterBenchmark((decoding + "/portable").c_str(), decodeBase64, base64::decodePortable, size,
                      lineLength);
    RegisterBenchmark((decoding + "/memcpy").c_str(), copyMemory, size, lineLength);
    const std::string encoding = std::string("coder/base64_encode_") + name;
    RegisterBenchmark((encoding + "/mailtree").c_str(), encodeBase64, base64::encode, size, lineLength);
    RegisterBenchmark((encoding + "/portable").c_str(), encodeBase64, base64::encodePortable, size,
                      lineLength);
    RegisterBenchmark((encoding + "/memcpy").c_str(), copyMemory, size, lineLength);
  }
  for (const Prose& prose : kProse) {
    const std::string name = prose.name;
    RegisterBenchmark(("coder/qp_decode_" + name + "/mailtree").c_str(), decodeQuotedPrintable, prose);
    RegisterBenchmark(("coder/qp_encode_" + name + "/mailtree").c_str(), encodeQuotedPrintable, prose);
  }
  return true;
}();

}  // namespace
}  // namespace mailtree::bench
