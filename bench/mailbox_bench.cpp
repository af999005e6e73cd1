// A mailbox of short mails: loading each message, and what list and find need of it, on one and two threads.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>

#include "bench/loading.h"
#include "bench/messages.h"
#include "mailtree/message/Expression.h"
#include "mailtree/message/LazyMessage.h"
#include "mailtree/message/MessageStream.h"
#include "mailtree/store/MailWriter.h"

namespace mailtree::bench {
namespace {

/// An mbox of 60 MB, removed at the end.
class Mailbox {
 public:
  Mailbox() {
    const Result<MailWriterPtr> writer = openMboxWriter(m_path);
    for (const std::string& message : shortText(20'000).messages)
      if (!writer || !(*writer)->add(message)) std::abort();
    if (!(*writer)->flush()) std::abort();
  }
  Mailbox(const Mailbox&) = delete;
  Mailbox& operator=(const Mailbox&) = delete;
  ~Mailbox() { std::filesystem::remove(m_path); }
  const std::string& path() const noexcept { return m_path; }

 private:
  std::string m_path =
      std::filesystem::temp_directory_path() / ("mailtree-bench-" + std::to_string(::getpid()));
};

template <class Make>
void stream(benchmark::State& state, const Make& make) {
  static const Mailbox mailbox;
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& _ : state)
    streamMessages(feedOf({mailbox.path()}), make,
                   [&count](SourceMessage&, std::size_t checksum) {
                     benchmark::DoNotOptimize(checksum);
                     return ++count > 0;
                   },
                   {.threads = static_cast<unsigned>(state.range(0))});
  state.SetItemsProcessed(static_cast<std::int64_t>(count));
  state.SetBytesProcessed(
      static_cast<std::int64_t>(std::filesystem::file_size(mailbox.path()) * state.iterations()));
}

void split(benchmark::State& state) {
  stream(state, [](SourceMessage& message) { return message.bytes.size(); });
}

void load(benchmark::State& state) {
  stream(state, [](SourceMessage& message) { return loadWithMailtree(message.bytes); });
}

/// The facts in a line of list.
void list(benchmark::State& state) {
  stream(state, [lazy = LazyMessage()](SourceMessage& message) mutable {
    lazy.assign(message);
    const std::size_t texts = lazy.from().address.size() + lazy.subject().size() + (lazy.date() ? 1 : 0);
    return texts + lazy.attachmentCount() + lazy.isSigned() + lazy.isEncrypted() + lazy.isRepaired();
  });
}

void find(benchmark::State& state, const char* text) {
  const Result<Expression> expression = Expression::parse(text);
  stream(state, [&, lazy = LazyMessage()](SourceMessage& message) mutable {
    lazy.assign(message);
    return std::size_t{expression->matches(lazy)};
  });
}

BENCHMARK(split)->Name("mailbox/split")->Arg(1)->Arg(2)->UseRealTime();
BENCHMARK(load)->Name("mailbox/load")->Arg(1)->Arg(2)->UseRealTime();
BENCHMARK(list)->Name("mailbox/list")->Arg(1)->Arg(2)->UseRealTime();
BENCHMARK_CAPTURE(find, subject, "subject:zebra")
    ->Name("mailbox/find_subject")
    ->Arg(1)
    ->Arg(2)
    ->UseRealTime();
BENCHMARK_CAPTURE(find, date, "date:2026-03")->Name("mailbox/find_date")->Arg(1)->Arg(2)->UseRealTime();
BENCHMARK_CAPTURE(find, text, "zebra")->Name("mailbox/find_text")->Arg(1)->Arg(2)->UseRealTime();

}  // namespace
}  // namespace mailtree::bench
