// mime/LineLengths.h - maximum lengths of message lines, without their line breaks.
#pragma once

#include <cstddef>

namespace mailtree {

/// Header lines are folded at this length if possible (RFC 5322, 2.1.1).
inline constexpr std::size_t kPreferredLine = 78;
/// No line may be longer (RFC 5322, 2.1.1; RFC 5321, 4.5.3.1.6).
inline constexpr std::size_t kLongestLine = 998;
/// The longest line on which an encoded word may be (RFC 2047, 2).
inline constexpr std::size_t kMaxLineWithWord = 76;
/// Longer lines must be encoded: SMTP allows 998 bytes (RFC 5321, 4.5.3.1.6); the limit leaves some room.
inline constexpr std::size_t kMaxLine7bit = 990;

}  // namespace mailtree
