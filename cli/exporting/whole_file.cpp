#include "cli/exporting/whole_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <system_error>

#include "cli/support/errors.h"

namespace mailtree::cli {
namespace {

/// A name that no process of any host has: several may write to the same folder.
std::string temporaryName() {
  static const std::uint64_t seed = std::uint64_t{std::random_device()()} << 32 | std::random_device()();
  static std::atomic<unsigned> number = 0;
  return ".mailtree-" + std::to_string(seed) + "-" + std::to_string(number++) + ".tmp";
}

/// 0 or an errno.
int writeNew(const std::string& path, std::string_view bytes) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (file < 0) return errno;
  int error = 0;
  while (error == 0 && !bytes.empty()) {
    const ssize_t count = ::write(file, bytes.data(), bytes.size());
    if (count < 0 && errno != EINTR) error = errno;
    if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  if (::close(file) != 0 && error == 0) error = errno;
  return error;
}

}  // namespace

bool writeWhole(const std::string& path, std::string_view bytes) {
  const std::string folder = std::filesystem::path(path).parent_path().string();
  const std::string temporary = (folder.empty() ? "." : folder) + "/" + temporaryName();
  int error = writeNew(temporary, bytes);
  if (error == 0 && ::rename(temporary.c_str(), path.c_str()) != 0) error = errno;
  if (error == 0) return true;
  ::unlink(temporary.c_str());
  reportError(path, std::generic_category().message(error));
  return false;
}

Result<void> synchronize(const std::string& folder) {
  const int file = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const bool done = file >= 0 && ::syncfs(file) == 0;
  const int error = errno;
  if (file >= 0) ::close(file);
  if (!done) return Error{ErrorCode::unwritable, std::generic_category().message(error), folder};
  return {};
}

}  // namespace mailtree::cli
