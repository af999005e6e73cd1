// Loading what needs repair: text without charset label, uuencoded files in a text.
#include <benchmark/benchmark.h>

#include "bench/messages.h"
#include "mailtree/email/Email2.h"

namespace mailtree::bench {
namespace {

void load(benchmark::State& state, const std::string& message) {
  LogNull log;
  SystemCerts certs;
  for ([[maybe_unused]] const auto& _ : state) {
    const RefPtr<_svEmailCommon> common(new _svEmailCommon);
    const EmailPtr mail(Email2::createFromMimeText2a(*common, message.data(),
                                                     static_cast<int>(message.size()), certs, log, false));
    benchmark::DoNotOptimize(mail.get());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(message.size()) * state.iterations());
}

BENCHMARK_CAPTURE(load, unlabelled_utf8, unlabelled("", "Съешь ещё этих мягких булок, да выпей чаю.\r\n"))
    ->Name("repair/unlabelled_utf8/mailtree");
BENCHMARK_CAPTURE(load, unlabelled_latin1,
                  unlabelled("",
                             "Viele Gr\xFC\xDF"
                             "e aus K\xF6ln an alle.\r\n"))
    ->Name("repair/unlabelled_latin1/mailtree");
BENCHMARK_CAPTURE(
    load, unlabelled_cp1251,
    unlabelled("Subject: \xD1\xFA\xE5\xF8\xFC \xE5\xF9\xB8 \xFD\xF2\xE8\xF5 \xE1\xF3\xEB\xEE\xEA\r\n",
               "\xD1\xFA\xE5\xF8\xFC \xE5\xF9\xB8 \xFD\xF2\xE8\xF5 \xE1\xF3\xEB\xEE\xEA.\r\n"))
    ->Name("repair/unlabelled_cp1251_by_header/mailtree");
BENCHMARK_CAPTURE(load, uuencoded, uuencodedFile(5'000'000))->Name("repair/uuencoded_5MB/mailtree");

}  // namespace
}  // namespace mailtree::bench
