// Loading and writing whole messages: what a program that handles mail does all day.
#include <benchmark/benchmark.h>

#include "bench/messages.h"
#include "mailtree/email/Email2.h"

namespace mailtree::bench {
namespace {

EmailPtr load(const std::string& message) {
  const RefPtr<_svEmailCommon> common(new _svEmailCommon);
  SystemCerts certs;
  LogNull log;
  return EmailPtr(Email2::createFromMimeText2a(*common, message.data(), static_cast<int>(message.size()),
                                               certs, log, false));
}

/// Subject, sender, recipients and date, as every reader of mail asks for them.
std::size_t readFacts(Email2& root) {
  LogNull log;
  StringBuffer text;
  root.getSubjectUtf8(text, log);
  std::size_t sum = text.getSize() + root.m_fromAddr.m_name.view().size() + root.m_date.m_year;
  for (int i = 0; i < root.m_toAddrs.getSize(); ++i)
    sum += root.m_toAddrs.at<_svEmailAddress>(i)->m_name.view().size();
  return sum;
}

void count(benchmark::State& state, std::size_t bytes, std::size_t messages) {
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes * state.iterations()));
  state.SetItemsProcessed(static_cast<std::int64_t>(messages * state.iterations()));
}

void loadSet(benchmark::State& state, const MessageSet& set) {
  for ([[maybe_unused]] const auto& _ : state)
    for (const std::string& message : set.messages) benchmark::DoNotOptimize(readFacts(*load(message)));
  count(state, set.bytes(), set.messages.size());
}

/// Drops everything: what remains is the cost of writing.
class NullOutput final : public _svOutput {
 protected:
  bool put(std::string_view bytes, LogBase&) override {
    benchmark::DoNotOptimize(bytes.data());
    return true;
  }
};

void writeSet(benchmark::State& state, const MessageSet& set) {
  std::vector<EmailPtr> trees;
  for (const std::string& message : set.messages) trees.push_back(load(message));
  LogNull log;
  StringBuffer unused;
  for ([[maybe_unused]] const auto& _ : state)
    for (const EmailPtr& tree : trees) {
      NullOutput sink;
      ProgressContext progress(nullptr);
      tree->assembleMimeBody2(unused, &sink, false, nullptr, progress, log, 0, false, true);
    }
  count(state, set.bytes(), set.messages.size());
}

using Generator = std::string (*)(int);

void growth(benchmark::State& state, Generator generate) {
  const std::string message = generate(static_cast<int>(state.range(0)));
  for ([[maybe_unused]] const auto& _ : state) benchmark::DoNotOptimize(readFacts(*load(message)));
  count(state, message.size(), 1);
}

const bool kRegistered = [] {
  for (const MessageSet& set : allSets()) {
    benchmark::RegisterBenchmark((std::string("load/") + set.name + "/mailtree").c_str(), loadSet,
                                 std::cref(set));
    benchmark::RegisterBenchmark((std::string("write/") + set.name).c_str(), writeSet, std::cref(set));
  }
  return true;
}();

BENCHMARK_CAPTURE(growth, parts, manyParts)->Arg(100)->Arg(1'000)->Arg(10'000);
BENCHMARK_CAPTURE(growth, levels, deep)->Arg(1)->Arg(10)->Arg(30)->Arg(90);
BENCHMARK_CAPTURE(growth, fields, manyFields)->Arg(10)->Arg(100)->Arg(1'000)->Arg(9'000);
BENCHMARK_CAPTURE(growth, addresses, manyAddresses)->Arg(10)->Arg(100)->Arg(1'000)->Arg(10'000);

}  // namespace
}  // namespace mailtree::bench
