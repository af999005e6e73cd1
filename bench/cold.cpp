// bench/cold.cpp - loading mail that is not in the caches.
//
//   mailtree_cold [SET...]
//
// In real use no message is loaded twice. Every set is larger than the caches, and each library loads it once
// per round, alternating. Prints JSON in the format of Google Benchmark.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "bench/loading.h"
#include "bench/messages.h"

namespace mailtree::bench {
namespace {

constexpr int kRounds = 7;

struct Peer {
  const char* name;
  std::size_t (*load)(const std::string& message);
};
constexpr Peer kPeers[] = {
    {"mailtree", loadWithMailtree},
#ifdef MAILTREE_BENCH_GMIME
    {"gmime", loadWithGmime},
#endif
};

/// CPU time of this process.
double processorSeconds() {
  timespec time{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

volatile std::size_t result;  ///< Keeps the compiler from removing the work.

double walk(const Peer& peer, const MessageSet& set) {
  std::size_t sum = 0;
  const double begin = processorSeconds();
  for (const std::string& message : set.messages) sum += peer.load(message);
  const double seconds = processorSeconds() - begin;
  result = sum;
  return seconds;
}

void print(const Peer& peer, const MessageSet& set, double seconds) {
  static const char* separator = "";
  std::printf(
      "%s\n{\"name\": \"cold/%s/%s\", \"run_name\": \"cold/%s/%s\", \"run_type\": \"iteration\", "
      "\"cpu_time\": %.0f, \"bytes_per_second\": %.0f, \"items_per_second\": %.1f}",
      separator, set.name, peer.name, set.name, peer.name, seconds * 1e9,
      static_cast<double>(set.bytes()) / seconds, static_cast<double>(set.messages.size()) / seconds);
  separator = ",";
}

void measure(const ColdSet& cold) {
  std::fprintf(stderr, "bench: making %s ...", cold.name);
  const MessageSet set = cold.make(cold.name);
  std::fprintf(stderr, " %zu messages, %zu MB\n", set.messages.size(), set.bytes() >> 20);
  for (int round = 0; round < kRounds; ++round)
    for (const Peer& peer : kPeers) print(peer, set, walk(peer, set));
}

}  // namespace
}  // namespace mailtree::bench

int main(int argc, char** argv) {
  using namespace mailtree::bench;
  const auto isWanted = [&](const char* name) {
    return argc < 2 ||
           std::any_of(argv + 1, argv + argc, [&](const char* it) { return !std::strcmp(it, name); });
  };
  std::printf("{\"benchmarks\": [");
  for (const ColdSet& set : coldSets())
    if (isWanted(set.name)) measure(set);
  std::printf("]}\n");
}
