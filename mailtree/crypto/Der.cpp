#include "mailtree/crypto/Der.h"

namespace mailtree {
namespace {

constexpr std::string_view kEndMark("\0\0", 2);
constexpr unsigned char kTagNumberMask = 0x1F;
constexpr unsigned char kIndefinite = 0x80;

struct Header {
  unsigned char tag = 0;
  bool isIndefinite = false;
  std::size_t size = 0;    ///< Of the header.
  std::size_t length = 0;  ///< Of the content; 0 when it is indefinite.
};

unsigned char octetAt(std::string_view bytes, std::size_t at) noexcept {
  return static_cast<unsigned char>(bytes[at]);
}

/// The header at the beginning; a definite content is known to be complete.
std::optional<Header> readHeader(std::string_view bytes) noexcept {
  if (bytes.size() < 2) return {};
  Header header;
  header.tag = octetAt(bytes, 0);
  if ((header.tag & kTagNumberMask) == kTagNumberMask) return {};
  const unsigned char first = octetAt(bytes, 1);
  header.size = 2;
  if (first == kIndefinite) {
    if (!(header.tag & kDerConstructed)) return {};
    header.isIndefinite = true;
    return header;
  }
  header.length = first;
  if (first > kIndefinite) {
    const std::size_t octets = first & 0x7F;
    if (octets > sizeof(std::size_t) || bytes.size() - 2 < octets) return {};
    header.size += octets;
    header.length = 0;
    for (std::size_t i = 2; i < header.size; ++i) header.length = header.length << 8 | octetAt(bytes, i);
  }
  if (header.length > bytes.size() - header.size) return {};
  return header;
}

/// Position of the end-of-contents octets of an indefinite content that begins at `at`. Counts the open
/// elements instead of recursing.
std::optional<std::size_t> findEndMark(std::string_view bytes, std::size_t at) noexcept {
  for (std::size_t open = 1; at < bytes.size();) {
    const std::string_view rest = bytes.substr(at);
    if (rest.starts_with(kEndMark)) {
      if (--open == 0) return at;
      at += kEndMark.size();
      continue;
    }
    const auto header = readHeader(rest);
    if (!header) return {};
    if (header->isIndefinite) ++open;
    at += header->size + header->length;
  }
  return {};
}

}  // namespace

std::optional<DerElement> DerReader::next() noexcept {
  const auto header = readHeader(m_rest);
  if (!header) return {};
  std::size_t contentSize = header->length;
  std::size_t wholeSize = header->size + contentSize;
  if (header->isIndefinite) {
    const auto end = findEndMark(m_rest, header->size);
    if (!end) return {};
    contentSize = *end - header->size;
    wholeSize = *end + kEndMark.size();
  }
  const DerElement element{header->tag, m_rest.substr(0, wholeSize),
                           m_rest.substr(header->size, contentSize)};
  m_rest.remove_prefix(wholeSize);
  return element;
}

std::optional<DerElement> DerReader::nextIf(unsigned char tag) noexcept {
  if (m_rest.empty() || octetAt(m_rest, 0) != tag) return {};
  return next();
}

void DerBackwardWriter::wrap(unsigned char tag, std::size_t mark) noexcept {
  std::size_t length = m_size - mark;
  const bool isShort = length < kIndefinite;
  unsigned octets = 0;
  do {
    const char octet = static_cast<char>(length & 0xFF);
    put({&octet, 1});
    ++octets;
    length >>= 8;
  } while (length);
  const char header[] = {static_cast<char>(tag), static_cast<char>(kIndefinite | octets)};
  put({header, isShort ? std::size_t{1} : sizeof header});
}

}  // namespace mailtree
