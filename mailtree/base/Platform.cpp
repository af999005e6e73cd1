#include "mailtree/base/Platform.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <random>
#include <system_error>
#include <thread>

#include "mailtree/base/Log.h"
#include "mailtree/base/internal.h"

#if defined(__linux__)
#include <sys/random.h>
#endif

namespace mailtree {
namespace {

constexpr int kUsAsciiCodePage = 20127;
constexpr unsigned kIdRandomBytes = 16;

std::atomic<unsigned> corruptObjects{0};

/// A counter of this process.
std::uint32_t nextSerial() noexcept {
  static std::atomic<std::uint32_t> serial{0};
  return serial.fetch_add(1, std::memory_order_relaxed);
}

/// Fills bytes by getrandom(); returns the number filled.
std::size_t fillFromKernel([[maybe_unused]] unsigned char* bytes,
                           [[maybe_unused]] std::size_t size) noexcept {
  std::size_t done = 0;
#if defined(__linux__)
  while (done < size) {
    const ssize_t got = getrandom(bytes + done, size - done, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    done += static_cast<std::size_t>(got);
  }
#endif
  return done;
}

/// Fills bytes from the standard library's device; returns how many.
std::size_t fillFromDevice(unsigned char* bytes, std::size_t size) noexcept {
  std::size_t done = 0;
  neverThrow(false, [&] {
    std::random_device device;
    for (; done < size; ++done) bytes[done] = static_cast<unsigned char>(device());
    return true;
  });
  return done;
}

void appendSerial(StringBuffer& out) {
  const std::uint32_t serial = nextSerial();
  const unsigned char bytes[] = {static_cast<unsigned char>(serial >> 24),
                                 static_cast<unsigned char>(serial >> 16),
                                 static_cast<unsigned char>(serial >> 8), static_cast<unsigned char>(serial)};
  out.appendHexDataNoWS(bytes, sizeof bytes);
}

}  // namespace

void Psdk::getComputerName(StringBuffer& out) {
  char name[256] = {};
  if (gethostname(name, sizeof name - 1) == 0) out.append(name);
}

std::uint32_t Psdk::getTickCount() {
  const auto ticks = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(ticks).count());
}

void Psdk::sleepMs(unsigned milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void Psdk::generateBoundary(StringBuffer& out, LogBase& log) {
  out.setString("----=_");
  if (UniqueIdSource::genUniqueId(out)) return;
  // Still unique in this process, and unlikely in another one.
  log.logError("No randomness for a boundary");
  const auto now = std::chrono::system_clock::now().time_since_epoch().count();
  out.appendHexDataNoWS(&now, sizeof now);
  appendSerial(out);
}

int Psdk::getAnsiCodePage() { return kUsAsciiCodePage; }

void Psdk::corruptObjectFound(const void*) noexcept {
  corruptObjects.fetch_add(1, std::memory_order_relaxed);
}

void Psdk::badObjectFound(const void* object) noexcept { corruptObjectFound(object); }

unsigned Psdk::corruptObjectsSeen() noexcept { return corruptObjects.load(std::memory_order_relaxed); }

bool RandomSource::genRandomBytes(unsigned count, DataBuffer& out) {
  unsigned char* const bytes = out.appendUninitialized(count);
  if (!bytes) return false;
  std::size_t done = fillFromKernel(bytes, count);
  if (done < count)
    done += fillFromDevice(bytes + done, count - done);  // last, because opening the device is slow
  out.shorten(count - done);
  return done == count;
}

bool UniqueIdSource::genUniqueId(StringBuffer& out) {
  DataBuffer random;
  if (!RandomSource::genRandomBytes(kIdRandomBytes, random)) return false;
  appendSerial(out);
  return random.toHexString(out);
}

bool FileSys::fileExistsUtf8(const char* path) {
  return neverThrow(false, [&] {
    std::error_code error;
    return std::filesystem::exists(viewOf(path), error);
  });
}

void logHostError(LogBase& log, const char* path, int error) {
  neverThrow(false, [&] {
    log.LogDataSb("path", viewOf(path));
    log.logError(std::generic_category().message(error));
    return true;
  });
}

}  // namespace mailtree
