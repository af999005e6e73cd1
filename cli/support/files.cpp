#include "cli/support/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iostream>
#include <system_error>

#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "mailtree/base/Log.h"

namespace mailtree::cli {
namespace {

constexpr std::size_t kReadChunk = std::size_t{64} * 1024;

using IsEnough = std::function<bool(std::string_view)>;

/// 0 or an errno.
int readDescriptor(int descriptor, DataBuffer& bytes, const IsEnough& isEnough) {
  while (!isEnough(bytes.view())) {
    unsigned char* const room = bytes.appendUninitialized(kReadChunk);
    if (!room) return ENOMEM;
    const ssize_t count = ::read(descriptor, room, kReadChunk);
    const int error = count < 0 ? errno : 0;
    bytes.shorten(kReadChunk - static_cast<std::size_t>(count < 0 ? 0 : count));
    if (error == EINTR) continue;
    if (count <= 0) return error;
  }
  return 0;
}

bool isNeverEnough(std::string_view) { return false; }

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
  if (path == "-") return readFileUntil(path, bytes, isNeverEnough);
  LogMemory log;
  if (bytes.loadFileUtf8(path.c_str(), log)) return true;
  reportError(path, lastError(log, "cannot be read"));
  return false;
}

/// The open descriptor of standard input is read: opening /dev/stdin instead would start a file from its
/// beginning, and fails for sockets and for files that only the opener may read.
bool readFileUntil(const std::string& path, DataBuffer& bytes, const IsEnough& isEnough) {
  errno = 0;
  const bool isStandardInput = path == "-";
  const int descriptor = isStandardInput ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const int error = descriptor < 0 ? errno : readDescriptor(descriptor, bytes, isEnough);
  if (!isStandardInput && descriptor >= 0) ::close(descriptor);
  if (error) reportError(path, std::generic_category().message(error));
  return error == 0;
}

void addMessageFiles(CLI::App& verb, std::vector<std::string>& paths) {
  addTexts(verb, "FILE", paths, "Messages, or folders of them; - is standard input")->required();
}

Exit forEachFile(const std::vector<std::string>& paths, bool hasTitles,
                 const std::function<Exit(const std::string&)>& work, const char* single,
                 const Style& style) {
  Exit result = Exit::fine;
  std::vector<std::string> files;
  for (const std::string& path : paths) result = worse(result, appendFiles(path, files));
  if (single && files.size() > 1) return usageError(single, "takes one message");
  bool isFirst = true;
  for (const std::string& file : files) {
    if (hasTitles && files.size() > 1)
      std::cout << (isFirst ? "" : "\n") << style.paint(Ink::bold, "== " + printable(file) + " ==") << '\n';
    isFirst = false;
    result = worse(result, work(file));
  }
  return worse(result, finishStandardOutput());
}

}  // namespace mailtree::cli
