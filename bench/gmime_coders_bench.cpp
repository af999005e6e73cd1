// The transfer encodings of GMime on the same texts, in the same process.
#include <benchmark/benchmark.h>
#include <gmime/gmime.h>

#include <string>
#include <vector>

#include "bench/texts.h"
#include "mailtree/mime/coding/ContentCoding.h"

namespace mailtree::bench {
namespace {

std::size_t run(GMimeEncoding& coder, const std::string& from, std::vector<char>& to) {
  g_mime_encoding_reset(&coder);
  return g_mime_encoding_flush(&coder, from.data(), from.size(), to.data());
}

void repeat(benchmark::State& state, GMimeEncoding& coder, const std::string& from, std::size_t rated) {
  std::vector<char> to(g_mime_encoding_outlen(&coder, from.size()));
  for (auto _ : state) {
    benchmark::DoNotOptimize(run(coder, from, to));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(rated));
}

void decode(benchmark::State& state, const Prose& prose) {
  const std::string bytes = repeated(prose.text, kProseSize);
  StringBuffer text;
  ContentCoding::encodeQuotedPrintable(bytes.data(), bytes.size(), text);
  GMimeEncoding decoder;
  g_mime_encoding_init_decode(&decoder, GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE);
  const std::string encoded = text.extractString();
  repeat(state, decoder, encoded, encoded.size());
}

/// GMime escapes the CR of a text, so its input has LF line breaks. The rate is that
/// of the same text with CRLF.
void encode(benchmark::State& state, const Prose& prose) {
  const std::string bytes = repeated(prose.text, kProseSize);
  std::string lines;
  for (const char c : bytes)
    if (c != '\r') lines += c;
  GMimeEncoding encoder;
  g_mime_encoding_init_encode(&encoder, GMIME_CONTENT_ENCODING_QUOTEDPRINTABLE);
  repeat(state, encoder, lines, bytes.size());
}

const bool kRegistered = [] {
  for (const Prose& prose : kProse) {
    const std::string name = prose.name;
    benchmark::RegisterBenchmark(("coder/qp_decode_" + name + "/gmime").c_str(), decode, prose);
    benchmark::RegisterBenchmark(("coder/qp_encode_" + name + "/gmime").c_str(), encode, prose);
  }
  return true;
}();

}  // namespace
}  // namespace mailtree::bench
