// base/LargeMemory.h - large blocks of memory, of which every page is written soon.
#pragma once

#include <cstddef>

namespace mailtree {

/// Asks for huge pages where the system has them on request: a page of 2 MB is provided at once, where 512 of
/// 4 kB take longer than writing them. Small blocks stay as they are.
void preferHugePages(void* block, std::size_t size) noexcept;

}  // namespace mailtree
