// Loading and writing whole messages.
#include <benchmark/benchmark.h>

#include "bench/loading.h"
#include "bench/messages.h"

namespace mailtree::bench {
namespace {

void count(benchmark::State& state, std::size_t bytes, std::size_t messages) {
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes * state.iterations()));
  state.SetItemsProcessed(static_cast<std::int64_t>(messages * state.iterations()));
}

void loadSet(benchmark::State& state, const MessageSet& set) {
  for ([[maybe_unused]] const auto& _ : state)
    for (const std::string& message : set.messages) benchmark::DoNotOptimize(loadWithMailtree(message));
  count(state, set.bytes(), set.messages.size());
}

/// To memory, each message to new memory.
void writeSet(benchmark::State& state, const MessageSet& set) {
  std::vector<EmailPtr> trees;
  for (const std::string& message : set.messages) trees.push_back(load(message));
  LogNull log;
  for ([[maybe_unused]] const auto& _ : state)
    for (const EmailPtr& tree : trees) {
      StringBuffer mime;
      ProgressContext progress(nullptr);
      tree->assembleMimeBody2(mime, nullptr, false, nullptr, progress, log, 0, false, true);
      benchmark::DoNotOptimize(mime.getString());
    }
  count(state, set.bytes(), set.messages.size());
}

/// How time grows with the number of units in a message; the rate is in units per second.
void growth(benchmark::State& state, std::string (*generate)(int)) {
  const std::string message = generate(static_cast<int>(state.range(0)));
  for ([[maybe_unused]] const auto& _ : state) {
    const std::size_t checksum = loadWithMailtree(message);
    if (checksum == 0) return state.SkipWithError("not enough memory");
    benchmark::DoNotOptimize(checksum);
  }
  count(state, message.size(), static_cast<std::size_t>(state.range(0)));
}

/// Every thread loads its own mail.
void loadInThreads(benchmark::State& state, const MessageSet& set) {
  const MessageSet own = set;
  loadSet(state, own);
}

void registerSet(const MessageSet& set) {
  const std::string name = set.name;
  benchmark::RegisterBenchmark(("load/" + name + "/mailtree").c_str(), loadSet, std::cref(set));
  benchmark::RegisterBenchmark(("write/" + name + "/mailtree").c_str(), writeSet, std::cref(set));
  benchmark::RegisterBenchmark(("threads/" + name).c_str(), loadInThreads, std::cref(set))
      ->Threads(1)
      ->Threads(2)
      ->UseRealTime();
}

const bool kRegistered = [] {
  for (const MessageSet& set : allSets()) registerSet(set);
  return true;
}();

// The last value of parts, levels and fields is their limit.
BENCHMARK_CAPTURE(growth, parts, manyParts)
    ->Name("growth/parts")
    ->Arg(100)
    ->Arg(1'000)
    ->Arg(10'000)
    ->Arg(50'000);
BENCHMARK_CAPTURE(growth, levels, deep)->Name("growth/levels")->Arg(1)->Arg(3)->Arg(10)->Arg(30)->Arg(100);
BENCHMARK_CAPTURE(growth, fields, manyFields)->Name("growth/fields")->RangeMultiplier(10)->Range(10, 10'000);
BENCHMARK_CAPTURE(growth, addresses, manyAddresses)
    ->Name("growth/addresses")
    ->RangeMultiplier(10)
    ->Range(10, 10'000);
BENCHMARK_CAPTURE(growth, text, longText)
    ->Name("growth/text_bytes")
    ->RangeMultiplier(10)
    ->Range(1'000, 1'000'000'000);
BENCHMARK_CAPTURE(growth, file, largeFile)
    ->Name("growth/file_bytes")
    ->RangeMultiplier(10)
    ->Range(1'000, 1'000'000'000);

}  // namespace
}  // namespace mailtree::bench
