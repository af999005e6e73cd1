// Composing a message and writing it.
#include <benchmark/benchmark.h>

#include "bench/messages.h"
#include "mailtree/email/Email2.h"

namespace mailtree::bench {
namespace {

void setBody(Email2& mail, const char* type, const std::string& utf8, LogBase& log) {
  DataBuffer body;
  body.append(utf8);
  StringBuffer contentType(type);
  mail.addAlternativeBody(body, true, contentType, nullptr, log);
}

void addImage(Email2& mail, const Draft::File& image, LogBase& log) {
  DataBuffer bytes;
  bytes.borrowData(image.bytes.data(), image.bytes.size());
  EmailPtr item(Email2::createRelatedFromDataUtf8(*mail.m_common, image.name, image.type, bytes, log));
  item->setHeaderField("Content-ID", ("<" + std::string(image.name) + ">").c_str(), log);
  mail.addRelatedContent(item.release(), log);
}

EmailPtr compose(const Draft& draft, LogBase& log) {
  EmailPtr mail(new Email2);
  mail->setHeaderField("Subject", "Grüße aus dem Büro", log);
  mail->setFromFullUtf8("Jörg Müller <joerg@example.org>", log);
  mail->addMultipleRecip(1, "ann@example.net, Bob <bob@example.net>", log);
  setBody(*mail, "text/plain", draft.text, log);
  setBody(*mail, "text/html", draft.html, log);
  for (const Draft::File& image : draft.images) addImage(*mail, image, log);
  StringBuffer type;
  for (const Draft::File& file : draft.files) {
    DataBuffer bytes;
    bytes.borrowData(file.bytes.data(), file.bytes.size());
    mail->addDataAttachmentUtf8(file.name, file.type, 0, bytes, type, log);
  }
  return mail;
}

void composeAndWrite(benchmark::State& state) {
  LogNull log;
  for ([[maybe_unused]] const auto& _ : state) {
    const EmailPtr mail = compose(draft(), log);
    StringBuffer mime;
    ProgressContext progress(nullptr);
    mail->assembleMimeBody2(mime, nullptr, false, "SVX-", progress, log, 0, false, true);
    benchmark::DoNotOptimize(mime.getString());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(draft().bytes()) * state.iterations());
}

BENCHMARK(composeAndWrite)->Name("compose/message_5MB/mailtree");

}  // namespace
}  // namespace mailtree::bench
