// base/Stdio.h - formatting into a fixed buffer, and null-safe searches in C strings.
#pragma once

#include <cstdint>

#include "mailtree/base/Export.h"

namespace mailtree {

/// One argument of a format: a number or a C string.
struct FormatArgument {
  enum class Kind { Signed, Unsigned, Text };
  FormatArgument(int value) : kind(Kind::Signed), number(value) {}
  FormatArgument(long value) : kind(Kind::Signed), number(value) {}
  FormatArgument(unsigned value) : kind(Kind::Unsigned), number(value) {}
  FormatArgument(std::uint16_t value) : kind(Kind::Unsigned), number(value) {}
  FormatArgument(std::int16_t value) : kind(Kind::Signed), number(value) {}
  FormatArgument(const char* value) : kind(Kind::Text), text(value) {}

  Kind kind;
  std::int64_t number = 0;
  const char* text = nullptr;
};

class MAILTREE_API _svStdio {
 public:
  /// Formats like the standard functions, with %d %u %x %X %c %s %% and their width flags, plus %w for a
  /// 16-bit field of a date record. At most `size` bytes are written, including the terminating null.
  /// @return bytes written without the null, -1 when the text did not fit or
  ///   arguments are missing or do not match.
  static int _svSprintf2(char* out, unsigned size, const char* format, FormatArgument a, FormatArgument b);
  static int _svSprintf6(char* out, unsigned size, const char* format, FormatArgument a, FormatArgument b,
                         FormatArgument c, FormatArgument d, FormatArgument e, FormatArgument f);
};

/// First occurrence of a character; null when absent or text is null.
MAILTREE_API const char* svStrChr(const char* text, char c);
/// First occurrence of a substring; null when absent or either is null.
MAILTREE_API const char* svStrStr(const char* text, const char* wanted);
/// Last occurrence of a character; null when absent or text is null.
MAILTREE_API const char* svStrrChr(const char* text, char c);

}  // namespace mailtree
