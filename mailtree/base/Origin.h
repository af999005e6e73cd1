// base/Origin.h - what a part of a message is known by.
#pragma once

#include <cstdint>

namespace mailtree {

/// Where a part begins in the text it was parsed from. No two parts of a message begin at the same place, and a part
/// keeps its origin when it is moved; what loading or a program adds has none.
using Origin = std::uint64_t;
inline constexpr Origin kNoOrigin = ~Origin{0};

}  // namespace mailtree
