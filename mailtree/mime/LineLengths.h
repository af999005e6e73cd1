// mime/LineLengths.h - how long the lines of a message may be, without their line break.
#pragma once

#include <cstddef>

namespace mailtree {

/// Where header lines are folded when they can be (RFC 5322, 2.1.1).
inline constexpr std::size_t kPreferredLine = 78;
/// No line may be longer (RFC 5322, 2.1.1; RFC 5321, 4.5.3.1.6).
inline constexpr std::size_t kLongestLine = 998;
/// The longest line on which an encoded word may be (RFC 2047, 2).
inline constexpr std::size_t kMaxLineWithWord = 76;

}  // namespace mailtree
