// email/internal.h - what the files of email/ share and nobody else sees.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "mailtree/base/DataBuffer.h"
#include "mailtree/email/Email2.h"
#include "mailtree/email/tree_walk.h"

namespace mailtree {

/// Content of a multipart/signed child as it was received. A signature covers these bytes, so they are
/// written as they stand for as long as the tree below still says the same; that is found out by comparing
/// fingerprints, not by trusting setters.
struct ReceivedContent {
  DataBuffer bytes;
  StringBuffer text;  ///< What the bytes are borrowed from, if they are.
  std::array<std::uint64_t, 2> fingerprint = {0, 0};
};

/// Digest over everything output reads of a subtree: header lists, bodies, parsed members, order of children.
std::array<std::uint64_t, 2> contentFingerprint(const Email2& node);

/// Keeps the bytes as which a complete subtree was received. The subtree must not be changed before.
void keepReceivedContent(Email2& node, DataBuffer&& bytes);
/// The same for a text that the subtree was loaded from, without a copy.
void keepReceivedContent(Email2& node, StringBuffer&& text);
/// The bytes as which a subtree was received, for as long as it says the same as then; null otherwise.
/// Borrowed.
const DataBuffer* unchangedReceivedContent(const Email2& node);

/// Loads a text that output wrote: nothing is mended or reshaped, no layer taken off, and nothing of the shared
/// settings changes. Null when memory ran out.
EmailPtr loadWrittenContent(_svEmailCommon& common, std::string_view text, LogBase& log);

/// Exact-length, case-insensitive test of a media type; the first letter and the length are looked at before
/// anything else, because this runs for every node of every walk.
constexpr bool isType(std::string_view type, std::string_view wanted) noexcept {
  return type.size() == wanted.size() && toLowerAscii(type[0]) == wanted[0] && equalsNoCase(type, wanted);
}

/// A copy of an argument that may point into the node which is about to change. Empty when memory ran out.
inline StringBuffer copyOf(std::string_view text) noexcept {
  StringBuffer copy;
  copy.setString(text);
  return copy;
}
inline StringBuffer copyOf(const char* text) noexcept { return copyOf(viewOf(text)); }
inline StringBuffer copyOf(const StringBuffer& text) noexcept { return copyOf(text.view()); }

/// A copy that cannot end its field.
inline StringBuffer oneLine(std::string_view value) noexcept {
  StringBuffer line = copyOf(value);
  for (const char c : {'\r', '\n'}) line.removeCharOccurances(c);
  return line;
}
inline StringBuffer oneLine(const char* value) noexcept { return oneLine(viewOf(value)); }

/// The charset that the Content-Type field of a part names; without code page when it names none.
_svCharset labelledCharset(const Email2& node);
/// Makes the Content-Type field of a part name a code page, whatever the email's charset is.
void labelCodePage(Email2& node, int codePage, LogBase& log);
inline void labelUtf8(Email2& node, LogBase& log) { labelCodePage(node, kCpUtf8, log); }
/// Makes the label of a convertible text, if it was received, one of our own once the text is another: output may
/// then name a charset that holds it.
void ownLabel(Email2& node, LogBase& log);

/// Stores a text as a part's body, taking it. One that counts as a file of its own is written as it stands, so it
/// is brought to the charset that its label names, or the label changes.
void storeText(Email2& part, DataBuffer& utf8, LogBase& log);

/// Longer lines do not travel unencoded: SMTP allows 998 bytes (RFC 5321, 4.5.3.1.6), and some leave room.
inline constexpr std::size_t kMaxLine7bit = 990;

/// Whether a body travels in base64 or quoted-printable.
inline bool isEncoded(const Email2& node) noexcept {
  return node.m_transferEncoding.equalsIgnoreCase("base64") ||
         node.m_transferEncoding.equalsIgnoreCase("quoted-printable");
}

inline constexpr int kAlternative = static_cast<int>(EnclosureKind::alternative);

/// Whether a body is written as it stands and promised to be 7-bit.
inline bool promises7bit(const Email2& node) noexcept {
  return node.m_transferEncoding.isEmpty() || node.m_transferEncoding.equalsIgnoreCase("7bit");
}

/// Turns the bytes of a multipart that could not be split into a part of its own, under a fresh boundary: what has
/// parts is written without its body. Text is brought to utf-8.
/// @return the part, borrowed; null when the node is no such multipart.
Email2* keepBytesAsPart(Email2& node, LogBase& log);

/// Decodes encoded words in a file name, as some senders put them where no encoded word belongs.
void decodeFilename(StringBuffer& name, LogBase& log);

/// Sets the member and its field in one place. Null empties the one and removes the other.
void setTransferEncoding(Email2& node, const char* encoding, LogBase& log);

}  // namespace mailtree
