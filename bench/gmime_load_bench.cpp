// Loading with GMime, in the same process.
#include <benchmark/benchmark.h>

#include <functional>

#include "bench/loading.h"
#include "bench/messages.h"

namespace mailtree::bench {
namespace {

void loadSet(benchmark::State& state, const MessageSet& set) {
  for ([[maybe_unused]] const auto& _ : state)
    for (const std::string& message : set.messages) benchmark::DoNotOptimize(loadWithGmime(message));
  state.SetBytesProcessed(static_cast<std::int64_t>(set.bytes() * state.iterations()));
  state.SetItemsProcessed(static_cast<std::int64_t>(set.messages.size() * state.iterations()));
}

const bool kRegistered = [] {
  for (const MessageSet& set : allSets())
    benchmark::RegisterBenchmark((std::string("load/") + set.name + "/gmime").c_str(), loadSet,
                                 std::cref(set));
  return true;
}();

}  // namespace
}  // namespace mailtree::bench
