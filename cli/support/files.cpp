#include "cli/support/files.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "cli/support/errors.h"
#include "mailtree/base/Log.h"

namespace mailtree::cli {
namespace {

constexpr std::size_t kReadChunk = std::size_t{64} * 1024;

/// Reads the open descriptor to its end; returns 0 or an errno. Opening /dev/stdin instead would start a file
/// from its beginning, and fails for sockets and for files that only the opener may read.
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

Exit appendFiles(const std::string& path, std::vector<std::string>& files) {
  namespace fs = std::filesystem;
  std::error_code error, ignored;
  if (path == "-" || !fs::is_directory(path, ignored)) {
    files.push_back(path);
    return Exit::fine;
  }
  const auto before = static_cast<std::ptrdiff_t>(files.size());
  for (fs::directory_iterator entry(path, error), end; !error && entry != end; entry.increment(error)) {
    const fs::file_type type = entry->status(ignored).type();
    // A dangling link is reported when it is read.
    const bool isFile =
        type == fs::file_type::regular || type == fs::file_type::not_found || type == fs::file_type::none;
    if (isFile && !entry->path().filename().string().starts_with('.'))
      files.push_back(entry->path().string());
  }
  if (!error && static_cast<std::ptrdiff_t>(files.size()) == before)
    reportError(path, "contains no files; subfolders are not searched");
  std::sort(files.begin() + before, files.end());
  if (!error) return Exit::fine;
  reportError(path, error.message());
  return Exit::unreadable;
}

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
