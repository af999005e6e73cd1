// A message as XML. Copying the text is the lower bound.
#include <benchmark/benchmark.h>

#include "bench/messages.h"
#include "mailtree/email/Email2.h"

namespace mailtree::bench {
namespace {

constexpr std::size_t kSize = 10'000'000;
constexpr const char* kLine = "Ein Gruß aus dem Büro, wie jeden Tag, & mehr <hier>.\r\n";

/// A new message with a body of that type.
EmailPtr messageOf(const char* type, const std::string& bytes, bool isText, LogBase& log) {
  EmailPtr mail(new Email2);
  DataBuffer body;
  body.append(bytes);
  StringBuffer contentType(type);
  mail->setBody(body, isText, contentType, nullptr, log);
  return mail;
}

std::string repeated(const std::string& piece) {
  std::string text;
  text.reserve(kSize + piece.size());
  while (text.size() < kSize) text += piece;
  return text;
}

void render(benchmark::State& state, const EmailPtr& mail, LogBase& log) {
  StringBuffer xml;
  for ([[maybe_unused]] const auto& _ : state) {
    mail->getEmailXml(/*compact=*/true, xml, log);
    benchmark::DoNotOptimize(xml.getString());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(xml.getSize()) * state.iterations());
}

void xmlOfText(benchmark::State& state) {
  LogNull log;
  render(state, messageOf("text/plain", repeated(kLine), true, log), log);
}

void xmlOfFile(benchmark::State& state) {
  LogNull log;
  render(state, messageOf("application/octet-stream", repeated(draft().files.at(0).bytes), false, log), log);
}

void copy(benchmark::State& state) {
  const std::string text = repeated(kLine);
  for ([[maybe_unused]] const auto& _ : state) {
    std::string copied(text);
    benchmark::DoNotOptimize(copied.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(text.size()) * state.iterations());
}

BENCHMARK(xmlOfText)->Name("xml/text_10MB/mailtree");
BENCHMARK(xmlOfFile)->Name("xml/file_10MB/mailtree");
BENCHMARK(copy)->Name("xml/text_10MB/copy");

}  // namespace
}  // namespace mailtree::bench
