#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "mailtree/base/Output.h"
#include "mailtree/base/Platform.h"
#include "mailtree/base/internal.h"

namespace mailtree {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kBufferSize = std::size_t{64} * 1024;
constexpr int kNameAttempts = 8;

int lastError() noexcept { return errno ? errno : EIO; }

/// Names of streams that are open already. They may lead to a regular file, which must not be replaced under
/// the process that opened it.
bool namesOpenStream(std::string_view path) noexcept {
  static constexpr std::array<std::string_view, 4> kPrefixes = {"/dev/stdout", "/dev/stderr", "/dev/fd/",
                                                                "/proc/"};
  return std::any_of(kPrefixes.begin(), kPrefixes.end(),
                     [&](std::string_view p) { return path.starts_with(p); });
}

/// 0 when this process may write to an existing file, else the errno. A folder that lets us replace a file
/// does not mean that its owner does.
int mayWrite(const fs::path& file) noexcept {
  errno = 0;
  return FilePtr(std::fopen(file.c_str(), "r+be")) ? 0 : lastError();
}

/// A fresh name in the folder of `target`. Short, whatever the target is called, so that it always fits.
std::string nameBeside(const fs::path& target) {
  StringBuffer name(".mailtree-");
  UniqueIdSource::genUniqueId(name);
  name.append(".tmp");
  return (target.parent_path() / name.getString()).string();
}

}  // namespace

FileOutput::~FileOutput() { discard(); }

bool FileOutput::open(const char* path, LogBase& log, Existing existing) {
  const LogContextExitor context(log, "openOutputFile", log.m_verboseLogging);
  discard();
  const int error = neverThrow(ENOMEM, [&] { return start(viewOf(path), existing); });
  if (error == 0) return true;
  discard();
  setFailed();
  logHostError(log, path, error);
  return false;
}

/// Opens the stream that bytes go to; 0 or an errno.
int FileOutput::start(std::string_view path, Existing existing) {
  m_path = path;
  m_buffer = std::make_unique<char[]>(kBufferSize);
  if (existing == Existing::refuse) return startNew();

  const fs::path named(m_path);
  const bool follows = existing == Existing::replace;
  std::error_code error;
  const fs::file_status status = follows ? fs::status(named, error) : fs::symlink_status(named, error);
  if (!fs::exists(status) || fs::is_symlink(status))
    return named.has_filename() ? startBeside(std::string(path)) : ENOENT;
  if (!fs::is_regular_file(status) || namesOpenStream(path))
    return follows ? openStream(m_path, "abe") : fs::is_directory(status) ? EISDIR : EEXIST;

  const fs::path target = follows ? fs::canonical(named, error) : named;
  if (error) return error.value();
  if (const int refused = mayWrite(target)) return refused;
  if (const int failed = startBeside(target.string())) return failed;
  fs::permissions(m_temporaryPath, status.permissions() & fs::perms::all, error);
  return error.value();
}

/// The file is its own temporary: removed when it was not finished.
int FileOutput::startNew() {
  if (const int failed = openStream(m_path, "wbxe")) return failed;
  m_temporaryPath = m_path;
  return 0;
}

int FileOutput::startBeside(const std::string& target) {
  for (int attempt = 0; attempt < kNameAttempts; ++attempt) {
    std::string name = nameBeside(target);
    const int failed = openStream(name, "wbxe");
    if (failed == EEXIST) continue;
    if (failed) return failed;
    m_temporaryPath = std::move(name);
    m_path = target;
    return 0;
  }
  return EEXIST;
}

int FileOutput::openStream(const std::string& name, const char* mode) {
  errno = 0;
  m_file.reset(std::fopen(name.c_str(), mode));
  if (!m_file) return lastError();
  std::setvbuf(m_file.get(), m_buffer.get(), _IOFBF, kBufferSize);
  return 0;
}

bool FileOutput::put(std::string_view bytes, LogBase& log) {
  errno = 0;
  if (m_file && std::fwrite(bytes.data(), 1, bytes.size(), m_file.get()) == bytes.size()) return true;
  logHostError(log, m_path.c_str(), m_file ? lastError() : EBADF);
  return false;
}

bool FileOutput::commit(LogBase& log) {
  const LogContextExitor context(log, "commitOutputFile", log.m_verboseLogging);
  if (failed()) {  // the write that failed said why
    discard();
    return false;
  }
  const int error = m_file ? finish() : EBADF;
  if (error == 0) return true;
  discard();
  setFailed();
  logHostError(log, m_path.c_str(), error);
  return false;
}

/// Closes the stream and gives the file its name; 0 or an errno.
int FileOutput::finish() noexcept {
  errno = 0;
  if (std::fclose(m_file.release()) != 0) return lastError();
  if (!m_temporaryPath.empty() && m_temporaryPath != m_path &&
      std::rename(m_temporaryPath.c_str(), m_path.c_str()) != 0)
    return lastError();
  m_temporaryPath.clear();
  return 0;
}

void FileOutput::discard() noexcept {
  m_file.reset();
  if (!m_temporaryPath.empty()) std::remove(m_temporaryPath.c_str());
  m_temporaryPath.clear();
}

}  // namespace mailtree
