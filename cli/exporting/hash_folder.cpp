#include "cli/exporting/hash_folder.h"

#include <filesystem>
#include <system_error>

#include "cli/exporting/whole_file.h"
#include "mailtree/crypto/Digest.h"

namespace mailtree::cli {

namespace fs = std::filesystem;

Result<void> HashFolder::open() {
  std::error_code error;
  fs::create_directories(m_folder, error);
  if (error) return Error{ErrorCode::unwritable, error.message(), m_folder};
  return {};
}

std::string HashFolder::add(std::string_view bytes) {
  std::string hash = sha256Hex(bytes);
  const std::string folder = m_folder + "/" + hash.substr(0, 2), path = folder + "/" + hash;
  std::error_code failed;
  if (fs::file_size(path, failed) == bytes.size() && !failed) return hash;
  fs::create_directory(folder, failed);
  if (writeWhole(path, bytes)) return hash;
  m_hasFailed = true;
  return {};
}

Result<void> HashFolder::flush() { return synchronize(m_folder); }

}  // namespace mailtree::cli
