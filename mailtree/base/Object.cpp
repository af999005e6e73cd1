#include "mailtree/base/Object.h"

namespace mailtree {

std::uint64_t& abandonedCount() noexcept {
  static thread_local constinit std::uint64_t count = 0;
  return count;
}

}  // namespace mailtree
