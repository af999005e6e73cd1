#include "mailtree/base/LargeMemory.h"

#include <cerrno>
#include <memory>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace mailtree {

void preferHugePages([[maybe_unused]] void* block, [[maybe_unused]] std::size_t size) noexcept {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
  constexpr std::size_t kHugePage = std::size_t{2} << 20;
  // Below that the call costs more than it saves: memory that was used before has its pages already.
  constexpr std::size_t kLeast = std::size_t{8} << 20;
  if (size < kLeast) return;
  std::size_t left = size;
  void* const begin = std::align(kHugePage, kHugePage, block, left);
  const int before = errno;
  madvise(begin, left / kHugePage * kHugePage, MADV_HUGEPAGE);  // only a hint: failure changes nothing
  errno = before;
#endif
}

}  // namespace mailtree
