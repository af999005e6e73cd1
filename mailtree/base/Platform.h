// base/Platform.h - services of the host: name, clock ticks, randomness, files.
//
// Everything here may be called from several threads at once.
#pragma once

#include <cstdint>

#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/Export.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

class LogBase;

class MAILTREE_API Psdk {
 public:
  /// Appends the full host name, including any domain; nothing when it is unknown.
  static void getComputerName(StringBuffer& out);
  /// Milliseconds since a fixed time; wraps around.
  static std::uint32_t getTickCount();
  static void sleepMs(unsigned milliseconds);
  /// Replaces `out` with a new multipart boundary: unique, at most 60 bytes, of letters, digits, "_", "=" and
  /// "-", with a "=_" in it, which cannot occur in quoted-printable text.
  static void generateBoundary(StringBuffer& out, LogBase& log);
  /// The host's ANSI code page: always 20127 (US-ASCII), whatever the locale.
  static int getAnsiCodePage();
  /// Records an operation on an object whose liveness marker is wrong; `object` may be null. Only
  /// counts and returns.
  static void corruptObjectFound(const void* object) noexcept;
  static void badObjectFound(const void* object) noexcept;
  /// How often the two functions above were called in this process.
  static unsigned corruptObjectsSeen() noexcept;
};

class MAILTREE_API RandomSource {
 public:
  /// Appends `count` bytes from the host's cryptographic random source; false, with fewer
  /// bytes, when that failed.
  static bool genRandomBytes(unsigned count, DataBuffer& out);
};

class MAILTREE_API UniqueIdSource {
 public:
  /// Appends a string unique within the process and across runs, of letters and digits; false if the
  /// random source fails.
  static bool genUniqueId(StringBuffer& out);
};

class MAILTREE_API FileSys {
 public:
  /// Whether a file or folder of that name exists.
  static bool fileExistsUtf8(const char* path);
};

}  // namespace mailtree
