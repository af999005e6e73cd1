// mime/PopText.cpp - text as POP3 transports it (RFC 1939, section 3): a dot at the beginning of a line is
// doubled.
#include <cstring>

#include "mailtree/base/DataBuffer.h"

namespace mailtree {
namespace {

/// Position of the second dot of the next line after `from` that begins with two; the text's
/// size when there is none.
std::size_t nextDoubledDot(std::string_view text, std::size_t from) noexcept {
  const std::size_t found = text.find("\n..", from);
  return found == std::string_view::npos ? text.size() : found + 2;
}

}  // namespace

void DataBuffer::processRawPopMime() {
  std::size_t dot = view().starts_with("..") ? 1 : nextDoubledDot(view(), 0);
  if (dot == m_size || !own(m_size)) return;

  // The text between two dropped dots moves down, once.
  std::size_t written = dot;
  while (dot < m_size) {
    const std::size_t kept = dot + 1;
    dot = nextDoubledDot(view(), kept);
    std::memmove(m_data + written, m_data + kept, dot - kept);
    written += dot - kept;
  }
  m_size = written;
}

}  // namespace mailtree
