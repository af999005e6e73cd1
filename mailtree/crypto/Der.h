// crypto/Der.h - ASN.1 encodings (X.690): reads BER, writes DER.
#pragma once

#include <cstddef>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace mailtree {

/// Identifier octets, class and constructed bit included.
inline constexpr unsigned char kDerInteger = 0x02;
inline constexpr unsigned char kDerOctetString = 0x04;
inline constexpr unsigned char kDerObjectId = 0x06;
inline constexpr unsigned char kDerSequence = 0x30;
inline constexpr unsigned char kDerSet = 0x31;
inline constexpr unsigned char kDerConstructed = 0x20;
/// Context-specific, constructed [n]; without kDerConstructed: primitive.
constexpr unsigned char derContext(unsigned n) noexcept { return static_cast<unsigned char>(0xA0 | n); }

/// One element, borrowed from the bytes it was read from.
struct DerElement {
  unsigned char tag = 0;
  std::string_view whole;    ///< Header, content, and the end-of-contents octets of an indefinite length.
  std::string_view content;  ///< Without the end-of-contents octets.

  bool isConstructed() const noexcept { return (tag & kDerConstructed) != 0; }
};

/// Reads consecutive elements. Linear in the bytes and without recursion at any nesting. Tags above 30, which
/// take more than one octet, count as malformed.
class DerReader {
 public:
  explicit DerReader(std::string_view bytes) noexcept : m_rest(bytes) {}

  bool atEnd() const noexcept { return m_rest.empty(); }
  /// The unread bytes.
  std::string_view rest() const noexcept { return m_rest; }
  /// Nullopt at the end, and for an element that is malformed or truncated.
  std::optional<DerElement> next() noexcept;
  /// The next element when it has this tag; otherwise nullopt, and nothing is read.
  std::optional<DerElement> nextIf(unsigned char tag) noexcept;

 private:
  std::string_view m_rest;
};

/// Writes from the end to the beginning, because then every length is known when it is written. Without a
/// buffer it only counts: the first run measures for the second.
class DerBackwardWriter {
 public:
  DerBackwardWriter() noexcept = default;
  /// Fills exactly `size` bytes, the number counted by the same calls before.
  DerBackwardWriter(unsigned char* begin, std::size_t size) noexcept : m_end(begin + size) {}

  std::size_t size() const noexcept { return m_size; }
  /// Reserves `size` bytes; returns where they begin, null while counting.
  unsigned char* leave(std::size_t size) noexcept {
    m_size += size;
    return m_end ? m_end - m_size : nullptr;
  }
  void put(std::string_view bytes) noexcept {
    unsigned char* const at = leave(bytes.size());
    if (at && !bytes.empty()) std::memcpy(at, bytes.data(), bytes.size());
  }
  /// Writes the header of an element that contains everything written since size() was `mark`.
  void wrap(unsigned char tag, std::size_t mark) noexcept;

 private:
  unsigned char* m_end = nullptr;
  std::size_t m_size = 0;
};

/// The output of `build`, which is run twice.
template <class Build>
std::string derOf(Build&& build) {
  DerBackwardWriter counter;
  build(counter);
  std::string der(counter.size(), '\0');
  DerBackwardWriter writer(reinterpret_cast<unsigned char*>(der.data()), der.size());
  build(writer);
  return der;
}

}  // namespace mailtree
