#include "mailtree/crypto/Pem.h"

#include <openssl/evp.h>

#include <limits>

#include "mailtree/crypto/internal.h"

namespace mailtree {
namespace {

constexpr std::string_view kBegin = "-----BEGIN ";
constexpr std::string_view kEnd = "-----END ";
constexpr std::string_view kDashes = "-----";

/// The name in the marker line at the beginning of `text`; nothing when the line is not terminated as one.
std::optional<std::string_view> nameIn(std::string_view text, std::string_view mark) noexcept {
  const std::string_view line = text.substr(0, text.find_first_of("\r\n"));
  const std::size_t end = line.find(kDashes, mark.size());
  if (end == std::string_view::npos) return std::nullopt;
  return line.substr(mark.size(), end - mark.size());
}

}  // namespace

bool PemReader::looksLikePem(std::string_view bytes) noexcept { return contains(bytes, kBegin); }

std::optional<PemBlock> PemReader::next() noexcept {
  for (;;) {
    // Searches backwards from the end line: a begin line without an end line does not cause a second search.
    const std::size_t end = m_rest.find(kEnd);
    if (end == std::string_view::npos) return std::nullopt;
    const std::size_t begin = m_rest.substr(0, end).rfind(kBegin);
    const std::string_view tail = m_rest.substr(end);
    const std::string_view head = begin == std::string_view::npos ? std::string_view() : m_rest.substr(begin);
    m_rest = tail.substr(kEnd.size());
    if (head.empty()) continue;
    const auto name = nameIn(head, kBegin);
    if (!name || name != nameIn(tail, kEnd)) continue;
    const std::size_t headSize = kBegin.size() + name->size() + kDashes.size();
    const std::size_t bodyEnd = end - begin;
    return PemBlock{*name, head.substr(headSize, bodyEnd - headSize),
                    head.substr(0, bodyEnd + kEnd.size() + name->size() + kDashes.size())};
  }
}

bool decodePemBody(const PemBlock& block, DataBuffer& der) {
  der.clear();
  if (block.body.size() > std::numeric_limits<int>::max()) return false;
  const QuietErrors quiet;
  const Handle<EVP_ENCODE_CTX, EVP_ENCODE_CTX_free> decoder(EVP_ENCODE_CTX_new());
  unsigned char* const bytes = der.appendUninitialized(block.body.size());
  if (!decoder || !bytes) return false;
  EVP_DecodeInit(decoder.get());
  int size = 0, rest = 0;
  const auto* const text = reinterpret_cast<const unsigned char*>(block.body.data());
  const int state = EVP_DecodeUpdate(decoder.get(), bytes, &size, text, static_cast<int>(block.body.size()));
  if (state < 0 || EVP_DecodeFinal(decoder.get(), bytes + size, &rest) < 0) {
    wipe(der);
    return false;
  }
  der.shorten(der.getSize() - static_cast<std::size_t>(size) - static_cast<std::size_t>(rest));
  return !der.isEmpty();
}

}  // namespace mailtree
