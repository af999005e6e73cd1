// fuzz/tape.h - the bytes of an input that select the operations.
#pragma once

#include <iterator>
#include <string>
#include <string_view>

namespace mailtree::fuzz {

/// Read once from front to back; zeros past the end.
class Tape {
 public:
  explicit Tape(std::string_view bytes) : m_rest(bytes) {}
  bool isAtEnd() const { return m_rest.empty(); }

  unsigned char byte() {
    if (m_rest.empty()) return 0;
    const auto value = static_cast<unsigned char>(m_rest.front());
    m_rest.remove_prefix(1);
    return value;
  }

  int index() { return static_cast<signed char>(byte()) % 6; }

  template <class List>
  auto pick(const List& list) {
    return list[byte() % std::size(list)];
  }

  /// A length and as many bytes; the highest lengths repeat them to make long lines.
  std::string text() {
    const std::size_t length = byte();
    const std::string_view piece = m_rest.substr(0, length % 128);
    m_rest.remove_prefix(piece.size());
    std::string out;
    for (int i = 0; i < (length < 248 ? 1 : 40); ++i) out += piece;
    return out;
  }

 private:
  std::string_view m_rest;
};

}  // namespace mailtree::fuzz
