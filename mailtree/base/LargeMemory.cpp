#include "mailtree/base/LargeMemory.h"

#include <cerrno>
#include <cstdint>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace mailtree {

void preferHugePages([[maybe_unused]] void* block, [[maybe_unused]] std::size_t size) noexcept {
#if defined(__linux__) && defined(MADV_HUGEPAGE)
  constexpr std::uintptr_t kHugePage = std::uintptr_t{2} << 20;
  // Below that the call costs more than it saves: memory that was used before has its pages already.
  constexpr std::size_t kLeast = std::size_t{8} << 20;
  if (size < kLeast) return;
  const auto begin = (reinterpret_cast<std::uintptr_t>(block) + kHugePage - 1) / kHugePage * kHugePage;
  const auto end = (reinterpret_cast<std::uintptr_t>(block) + size) / kHugePage * kHugePage;
  const int before = errno;
  madvise(reinterpret_cast<void*>(begin), end - begin,
          MADV_HUGEPAGE);  // only a hint: failure changes nothing
  errno = before;
#endif
}

}  // namespace mailtree
