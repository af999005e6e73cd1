// email/output/encoded_words.cpp - single encoded words (RFC 2047), and a header written with them.

#include <memory>
#include <tuple>

#include "mailtree/email/Email2.h"
#include "mailtree/mime/coding/ContentCoding.h"

namespace mailtree {
namespace {

using Encoder = char* (*)(const void* data, std::size_t size, std::size_t* outLength);

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

void appendWord(std::string_view bytes, std::string_view charset, std::string_view mark, Encoder encode,
                StringBuffer& out) {
  if (equalsNoCase(charset, "utf-8") && bytes.starts_with(kByteOrderMark))
    bytes.remove_prefix(kByteOrderMark.size());
  if (bytes.empty()) return;
  std::size_t size = 0;
  const std::unique_ptr<char[]> payload(encode(bytes.data(), bytes.size(), &size));
  if (!payload) return;
  std::string word;
  word.append("=?").append(charset).append(mark).append(payload.get(), size).append("?=");
  out.append(std::string_view(word));
}

std::string_view bytesOf(const unsigned char* data, long length) noexcept {
  if (!data || length <= 0) return {};
  return {reinterpret_cast<const char*>(data), static_cast<std::size_t>(length)};
}

}  // namespace

void Email2::bEncodeData(const unsigned char* data, long length, const char* charset, StringBuffer& out) {
  if (!charset) return;
  std::ignore = neverThrow(false, [&] {
    appendWord(bytesOf(data, length), charset, "?B?", ContentCoding::B_Encode, out);
    return true;
  });
}

// Deliberate: an empty charset counts as utf-8 here and stays empty in bEncodeData.
void Email2::qEncodeData(const unsigned char* data, long length, const char* charset, StringBuffer& out) {
  if (!charset) return;
  std::ignore = neverThrow(false, [&] {
    appendWord(bytesOf(data, length), *charset ? charset : "utf-8", "?Q?", ContentCoding::Q_EncodeCommaToo,
               out);
    return true;
  });
}

void Email2::getQBEncodedMimeHeader(StringBuffer& out, LogBase& log, bool) const {
  // All fields are written, even those that a body part would omit.
  if (isLive()) m_header.getMimeHeader(out, nullptr, emailCodePage(), /*isTop=*/true, log);
}

}  // namespace mailtree
