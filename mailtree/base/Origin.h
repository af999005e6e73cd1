// base/Origin.h - identifies a part of a message.
#pragma once

#include <cstdint>

namespace mailtree {

/// Where a part begins in the text it was parsed from. Different for all parts of a message, and kept when a
/// part is moved; parts that loading or a program adds have none.
using Origin = std::uint64_t;
inline constexpr Origin kNoOrigin = ~Origin{0};

}  // namespace mailtree
