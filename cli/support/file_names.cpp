#include "cli/support/file_names.h"

#include <system_error>
#include <utility>

#include "mailtree/base/Ascii.h"

namespace mailtree::cli {

namespace fs = std::filesystem;

UniqueFileNames::UniqueFileNames(fs::path folder, bool mayOverwrite)
    : m_folder(std::move(folder)), m_mayOverwrite(mayOverwrite) {}

std::string UniqueFileNames::pick(std::string_view name) {
  unsigned& number = m_lastNumber[lowerCase(name)];
  std::string candidate;
  do candidate = numberedFileName(name, ++number);
  while (isTaken(candidate));
  m_given.insert(lowerCase(candidate));
  return (m_folder / candidate).string();
}

bool UniqueFileNames::isTaken(const std::string& name) const {
  if (m_given.contains(lowerCase(name))) return true;
  std::error_code ignored;
  return !m_mayOverwrite && fs::exists(fs::symlink_status(m_folder / name, ignored));
}

}  // namespace mailtree::cli
