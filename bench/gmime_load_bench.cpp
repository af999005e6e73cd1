// Loading and writing with GMime, in the same process.
#include <benchmark/benchmark.h>
#include <gmime/gmime.h>

#include <functional>
#include <vector>

#include "bench/gmime_stream.h"
#include "bench/loading.h"
#include "bench/messages.h"

namespace mailtree::bench {
namespace {

void count(benchmark::State& state, const MessageSet& set) {
  state.SetBytesProcessed(static_cast<std::int64_t>(set.bytes() * state.iterations()));
  state.SetItemsProcessed(static_cast<std::int64_t>(set.messages.size() * state.iterations()));
}

void loadSet(benchmark::State& state, const MessageSet& set) {
  for ([[maybe_unused]] const auto& _ : state)
    for (const std::string& message : set.messages) benchmark::DoNotOptimize(loadWithGmime(message));
  count(state, set);
}

GMimeMessage* parse(const std::string& bytes) {
  GMimeStream* stream = lend(bytes);
  GMimeParser* parser = g_mime_parser_new_with_stream(stream);
  g_object_unref(stream);
  GMimeMessage* message = g_mime_parser_construct_message(parser, nullptr);
  g_object_unref(parser);
  return message;
}

void writeSet(benchmark::State& state, const MessageSet& set) {
  g_mime_init();
  std::vector<GMimeMessage*> trees;
  for (const std::string& message : set.messages) trees.push_back(parse(message));
  for ([[maybe_unused]] const auto& _ : state)
    for (GMimeMessage* tree : trees) {
      GMimeStream* out = g_mime_stream_mem_new();
      g_mime_object_write_to_stream(GMIME_OBJECT(tree), nullptr, out);
      benchmark::DoNotOptimize(g_mime_stream_length(out));
      g_object_unref(out);
    }
  for (GMimeMessage* tree : trees) g_object_unref(tree);
  count(state, set);
}

const bool kRegistered = [] {
  for (const MessageSet& set : allSets()) {
    const std::string name = std::string("/") + set.name + "/gmime";
    benchmark::RegisterBenchmark(("load" + name).c_str(), loadSet, std::cref(set));
    benchmark::RegisterBenchmark(("write" + name).c_str(), writeSet, std::cref(set));
  }
  return true;
}();

}  // namespace
}  // namespace mailtree::bench
