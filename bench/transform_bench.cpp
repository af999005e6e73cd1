// Copies of a newsletter and replies to a long page. `copied` is the number of bytes that a copy owns.
#include <benchmark/benchmark.h>

#include <memory>

#include "bench/loading.h"
#include "bench/messages.h"
#include "mailtree/email/Email2.h"

namespace mailtree::bench {
namespace {

constexpr std::size_t kTextBytes = 40'000;
constexpr std::size_t kImageBytes = 80'000;
constexpr std::size_t kPageBytes = 1'000'000;

std::string repeated(std::string_view sentence, std::size_t size) {
  std::string text;
  while (text.size() < size) text += sentence;
  return text;
}

void addText(Email2& mail, const char* type, const std::string& utf8, LogBase& log) {
  DataBuffer body;
  body.append(utf8);
  StringBuffer contentType(type);
  mail.addAlternativeBody(body, true, contentType, nullptr, log);
}

/// A text, the same as HTML, and two images: 200 kB.
EmailPtr newsletter() {
  LogNull log;
  EmailPtr mail(new Email2);
  mail->setHeaderField("Subject", "Für {{name}}", log);
  mail->setFromFullUtf8("News <news@example.org>", log);
  mail->addRecipient(1, "{{name}}", "reader@example.org", log);
  const std::string greeting = "Dear {{name}}, ";
  addText(*mail, "text/plain",
          greeting + repeated("what is new this week, in a few lines.\n", kTextBytes / 2), log);
  addText(*mail, "text/html", greeting + repeated("<p>What is new this week.</p>\n", kTextBytes), log);
  DataBuffer image;
  image.append(repeated("\x89PNG\r\n\x1A\n not quite", kImageBytes));
  StringBuffer type;
  for (const char* name : {"a.png", "b.png"})
    mail->addDataAttachmentUtf8(name, "image/png", 0, image, type, log);
  return mail;
}

std::size_t ownedBytes(const Email2& node) {
  std::size_t size = node.m_body.heapUsage() + node.m_header.heapUsage();
  for (int i = 0; i < node.getNumParts(); ++i) size += ownedBytes(*node.getPart(i));
  return size;
}

template <class Copy>
void copyEach(benchmark::State& state, Copy&& copy) {
  const EmailPtr mail = newsletter();
  std::size_t copied = 0;
  for ([[maybe_unused]] const auto& _ : state) {
    const EmailPtr made(copy(*mail));
    benchmark::DoNotOptimize(made.get());
    state.PauseTiming();
    copied = ownedBytes(*made);
    state.ResumeTiming();
  }
  state.counters["copied"] = static_cast<double>(copied);
  state.SetItemsProcessed(state.iterations());
}

void cloneNewsletter(benchmark::State& state) {
  LogNull log;
  copyEach(state, [&](Email2& mail) { return mail.clone_v3(state.range(0) != 0, log); });
}

/// What cloning saves.
void loadNewsletter(benchmark::State& state) {
  LogNull log;
  StringBuffer mime;
  ProgressContext progress(nullptr);
  newsletter()->assembleMimeBody2(mime, nullptr, false, nullptr, progress, log, 0, false, true);
  const std::string message(mime.view());
  for ([[maybe_unused]] const auto& _ : state) {
    const EmailPtr mail = load(message);
    benchmark::DoNotOptimize(mail.get());
  }
  state.SetItemsProcessed(state.iterations());
}

void replaceInNewsletter(benchmark::State& state) {
  LogNull log;
  ExtPtrArray pairs;
  pairs.appendObject(new StringPair("{{name}}", "Jörg Müller"));
  copyEach(state, [&](Email2& mail) { return mail.cloneAndReplace_v3(state.range(0) != 0, pairs, log); });
}

/// Includes cloning the message that is replied to.
void replyToPage(benchmark::State& state) {
  LogNull log;
  Email2 mail;
  mail.setFromFullUtf8("Anna <anna@example.org>", log);
  const std::string html = "<html><body>" + repeated("<p>Größe und Maß.</p>\n", kPageBytes);
  addText(mail, "text/html", html, log);
  for ([[maybe_unused]] const auto& _ : state) {
    const EmailPtr reply(mail.clone_v3(/*shareImageData=*/false, log));
    reply->convertToReply(log);
    benchmark::DoNotOptimize(reply->m_body.getData2());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * html.size()));
}

BENCHMARK(replyToPage)->Name("reply/html_1MB/mailtree");
BENCHMARK(cloneNewsletter)->Name("clone/newsletter_200kB/mailtree")->ArgName("share")->Arg(0)->Arg(1);
BENCHMARK(loadNewsletter)->Name("clone/newsletter_200kB/load")->ArgName("share")->Arg(0)->Arg(1);
BENCHMARK(replaceInNewsletter)->Name("merge/newsletter_200kB/mailtree")->ArgName("share")->Arg(0)->Arg(1);

}  // namespace
}  // namespace mailtree::bench
