// email/model/transfer_encoding.cpp - the transfer encoding of a part: set, and chosen for a charset.
#include "mailtree/email/Email2.h"
#include "mailtree/email/internal.h"

namespace mailtree {
namespace {

constexpr const char* kField = "Content-Transfer-Encoding";

struct CodePageRange {
  int first;
  int last;
  const char* encoding;
};

/// Transfer encodings by code page. All others use quoted-printable.
constexpr CodePageRange kEncodings[] = {
    {20127, 20127, "7bit"},
    {50220, 54936, "base64"},
    {932, 950, "base64"},
};

const char* encodingForCodePage(int codePage) noexcept {
  for (const CodePageRange& range : kEncodings)
    if (codePage >= range.first && codePage <= range.last) return range.encoding;
  return "quoted-printable";
}

/// Whether a transfer encoding set for the message's text also applies to this part. EDIFACT is text with an
/// application type (RFC 1767).
bool usesTextEncoding(const Email2& node) {
  const std::string_view type = node.m_contentType.m_type;
  return beginsWithNoCase(type, "text/") || containsNoCase(type, "edifact");
}

}  // namespace

void setTransferEncoding(Email2& node, const char* encoding, LogBase& log) {
  const StringBuffer given = copyOf(encoding);
  node.m_transferEncoding.setString(trim(given));
  // Emptying only the first field would leave a duplicate in force.
  if (node.m_transferEncoding.isEmpty()) node.m_header.removeMimeField(kField, /*all=*/true);
  node.m_header.replaceMimeFieldUtf8(kField, encoding ? given.getString() : nullptr, log);
}

void Email2::setContentEncodingNonRecursive(const char* encoding, LogBase& log) {
  if (isLive()) setTransferEncoding(*this, encoding, log);
}

void Email2::setContentEncodingRecursive(const char* encoding, LogBase& log) {
  if (!isLive()) return;
  const StringBuffer given = copyOf(encoding);
  // Deliberate: even when this node is not text and keeps its field, it stores the encoding, as documented.
  m_transferEncoding.setString(trim(given));
  setContentEncodingInner(given.getString(), log);
}

void Email2::setContentEncodingInner(const char* encoding, LogBase& log) {
  const StringBuffer given = copyOf(encoding);
  neverThrow(Walk::stop, [&] {
    return walkTree(*this, [&](Email2& node) {
      if (usesTextEncoding(node)) setTransferEncoding(node, given.getString(), log);
      return Walk::descend;
    });
  });
}

void Email2::setEncodingViaCodePage(int codePage, int, LogBase& log) {
  if (isLive()) setTransferEncoding(*this, encodingForCodePage(codePage), log);
}

}  // namespace mailtree
