// base/Platform.h - what the library asks of its host: name, clock ticks, randomness, files.
//
// Everything here is safe to call from several threads at once.
#pragma once

#include <cstdint>

#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

class LogBase;

class Psdk {
 public:
  /// Appends the host's name (the part before the first dot is not cut off); nothing when it has none.
  static void getComputerName(StringBuffer& out);
  /// Milliseconds since some fixed moment; wraps.
  static std::uint32_t getTickCount();
  static void sleepMs(unsigned milliseconds);
  /// Replaces `out` by a fresh multipart boundary: unique, at most 60 bytes, of letters, digits, "_", "=" and
  /// "-", with a "=_" in it, which no quoted-printable text can hold.
  static void generateBoundary(StringBuffer& out, LogBase& log);
  /// The host's ANSI code page: 20127 on a host that has none, which is every one but Windows; never the
  /// locale's.
  static int getAnsiCodePage();
  /// Takes note of an operation on an object whose marker is wrong; `object` may be null. Only counts and
  /// returns.
  static void corruptObjectFound(const void* object) noexcept;
  static void badObjectFound(const void* object) noexcept;
  /// How often the two above were called in this process.
  static unsigned corruptObjectsSeen() noexcept;
};

class RandomSource {
 public:
  /// Appends `count` bytes from the host's cryptographic random source; fewer only when it failed.
  static bool genRandomBytes(unsigned count, DataBuffer& out);
};

class UniqueIdSource {
 public:
  /// Appends a string unique within the process and across runs, of letters and digits; false without
  /// randomness.
  static bool genUniqueId(StringBuffer& out);
};

class FileSys {
 public:
  /// Whether a file or folder of that name exists.
  static bool fileExistsUtf8(const char* path);
};

}  // namespace mailtree
