#include "mailtree/crypto/DataSource.h"

#include <utility>

namespace mailtree {

void _svMemoryDataSource::initializeMemSource(const char* bytes, unsigned size) noexcept {
  m_owned.strongClear();
  m_rest = bytes ? std::string_view(bytes, size) : std::string_view();
}

void _svMemoryDataSource::takeStringBuffer(StringBuffer& text) {
  m_owned.strongClear();
  m_owned.text() = text.extractString();
  m_rest = m_owned.view();
}

std::optional<std::string_view> _svMemoryDataSource::next() {
  return std::exchange(m_rest, std::string_view());
}

}  // namespace mailtree
