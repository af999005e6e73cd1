#include "mailtree/mime/charset/Charset.h"

namespace mailtree {

void _svCharset::setByCodePage(int codePage) {
  if (codePage < 1) return clear();
  m_codePage = codePage;
  m_name.setString(charsetNameOf(codePage));
}

void _svCharset::setByName(std::string_view name) {
  // The name may be this charset's own.
  const int codePage = codePageOfCharset(name);
  m_name.setString(name);
  m_codePage = codePage;
}

void _svCharset::copy(const _svCharset& other) { *this = other; }

bool _svCharset::equals(const _svCharset& other) const noexcept {
  if (m_codePage != other.m_codePage) return false;
  return m_codePage != 0 || m_name.equalsIgnoreCase(other.m_name);
}

void _svCharset::clear() noexcept {
  m_codePage = 0;
  m_name.clear();
}

}  // namespace mailtree
