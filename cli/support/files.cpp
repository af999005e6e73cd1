#include "cli/support/files.h"

#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "cli/support/errors.h"
#include "mailtree/base/Log.h"

namespace mailtree::cli {
namespace {

constexpr std::size_t kReadChunk = std::size_t{64} * 1024;

/// The open descriptor is read: opening /dev/stdin instead would start a file from its beginning, and fails
/// for sockets and for files that only the opener may read. 0 or an errno.
int readStandardInput(DataBuffer& bytes) {
  for (;;) {
    unsigned char* const room = bytes.appendUninitialized(kReadChunk);
    if (!room) return ENOMEM;
    const ssize_t count = ::read(STDIN_FILENO, room, kReadChunk);
    const int error = count < 0 ? errno : 0;
    bytes.shorten(kReadChunk - static_cast<std::size_t>(count < 0 ? 0 : count));
    if (error == EINTR) continue;
    if (count <= 0) return error;
  }
}

}  // namespace

bool readFile(const std::string& path, DataBuffer& bytes) {
  if (path == "-") {
    const int error = readStandardInput(bytes);
    if (error) reportError(path, std::generic_category().message(error));
    return error == 0;
  }
  LogMemory log;
  if (bytes.loadFileUtf8(path.c_str(), log)) return true;
  reportError(path, lastError(log, "cannot be read"));
  return false;
}

}  // namespace mailtree::cli
