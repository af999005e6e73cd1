// The same work on both floors: through Message, and through Email2 underneath.
#include <benchmark/benchmark.h>

#include "bench/messages.h"
#include "mailtree/email/Email2.h"
#include "mailtree/mailtree.h"

namespace mailtree::bench {
namespace {

const std::string kText(2'000, 't'), kHtml = "<p>" + std::string(4'000, 'h') + "</p>", kFile(100'000, 'f');

void setBody(Email2& mail, const char* type, const std::string& utf8, LogBase& log) {
  DataBuffer body;
  body.append(utf8);
  StringBuffer contentType(type);
  mail.addAlternativeBody(body, true, contentType, nullptr, log);
}

void composeWithEmail2(benchmark::State& state) {
  LogNull log;
  for ([[maybe_unused]] const auto& _ : state) {
    Email2 mail;
    mail.setHeaderField("Subject", "Grüße aus dem Büro", log);
    mail.setFromFullUtf8("Jörg Müller <joerg@example.org>", log);
    mail.addMultipleRecip(1, "ann@example.net, Bob <bob@example.net>", log);
    setBody(mail, "text/plain", kText, log);
    setBody(mail, "text/html", kHtml, log);
    DataBuffer bytes;
    bytes.borrowData(kFile.data(), kFile.size());
    StringBuffer type, mime;
    mail.addDataAttachmentUtf8("report.pdf", nullptr, 0, bytes, type, log);
    ProgressContext progress(nullptr);
    mail.assembleMimeBody2(mime, nullptr, false, "SVX-", progress, log, 0, false, true);
    benchmark::DoNotOptimize(mime.getString());
  }
}

void composeWithMessage(benchmark::State& state) {
  for ([[maybe_unused]] const auto& _ : state) {
    Message mail;
    const bool isDone = mail.setSubject("Grüße aus dem Büro") &&
                        mail.setFrom("Jörg Müller <joerg@example.org>") &&
                        mail.setTo("ann@example.net, Bob <bob@example.net>") && mail.setText(kText) &&
                        mail.setHtml(kHtml) && mail.attach("report.pdf", kFile);
    if (!isDone) return state.SkipWithError("not composed");
    benchmark::DoNotOptimize(mail.toString().value().data());
  }
}

/// A set, and what is read of it: the text that is there, so that neither floor has to make one from HTML.
struct Reading {
  MessageSet (*set)();
  bool (Email2::*bodyOfTree)(const Email2& root, StringBuffer& out, LogBase& log);
  std::string (Message::*bodyOfMessage)() const;
};

constexpr Reading kTexts = {+[] { return shortText(1000); }, &Email2::getPlainTextBodyUtf8, &Message::text};
constexpr Reading kPages = {htmlQuotedPrintable, &Email2::getHtmlBodyUtf8, &Message::html};

void summarizeWithEmail2(benchmark::State& state, const Reading& reading) {
  const MessageSet set = reading.set();
  LogNull log;
  for ([[maybe_unused]] const auto& _ : state)
    for (const std::string& message : set.messages) {
      RefPtr<_svEmailCommon> common(new _svEmailCommon);
      SystemCerts certs;
      DataBuffer bytes;
      if (!bytes.append(std::string_view(message))) return state.SkipWithError("not enough memory");
      const EmailPtr mail(Email2::createFromMimeDb(*common, bytes, /*discardInput=*/false, /*unwrap=*/true,
                                                   certs, log, false));
      StringBuffer from, subject, body;
      SorvikSysTime date;
      mail->getFromFullUtf8(from, log);
      for (int i = 0; i < mail->getNumRecipients(1); ++i) {
        StringBuffer to;
        mail->getRecipientFullUtf8(1, i, to, log);
        benchmark::DoNotOptimize(to.getString());
      }
      mail->getSubjectUtf8(subject, log);
      mail->getDate(date);
      (*mail.*reading.bodyOfTree)(*mail, body, log);
      body.replaceAllOccurances("\r\n", "\n");  // as Message gives it
      benchmark::DoNotOptimize(body.getString());
    }
}

void summarizeWithMessage(benchmark::State& state, const Reading& reading) {
  const MessageSet set = reading.set();
  for ([[maybe_unused]] const auto& _ : state)
    for (const std::string& message : set.messages) {
      const Result<Message> mail = Message::parse(message);
      if (!mail) return state.SkipWithError("not enough memory");
      benchmark::DoNotOptimize(mail->from().address.size() + mail->to().size() + mail->subject().size() +
                               static_cast<std::size_t>(mail->date().has_value()));
      benchmark::DoNotOptimize((*mail.*reading.bodyOfMessage)().data());
    }
}

BENCHMARK(composeWithEmail2)->Name("message/compose/Email2");
BENCHMARK(composeWithMessage)->Name("message/compose/Message");
BENCHMARK_CAPTURE(summarizeWithEmail2, text, kTexts)->Name("message/summary text/Email2");
BENCHMARK_CAPTURE(summarizeWithMessage, text, kTexts)->Name("message/summary text/Message");
BENCHMARK_CAPTURE(summarizeWithEmail2, html, kPages)->Name("message/summary html/Email2");
BENCHMARK_CAPTURE(summarizeWithMessage, html, kPages)->Name("message/summary html/Message");

}  // namespace
}  // namespace mailtree::bench
