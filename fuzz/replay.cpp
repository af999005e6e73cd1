// Runs a target over files without libFuzzer, so the seeds run as ordinary tests with any compiler.
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz/target.h"

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    std::ifstream file(argv[i], std::ios::binary);
    if (!file) {
      std::fprintf(stderr, "cannot read %s\n", argv[i]);
      return 1;
    }
    const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  }
  std::printf("%d files replayed\n", argc - 1);
  return argc > 1 ? 0 : 1;
}
