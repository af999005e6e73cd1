// email/internal.h - helpers shared within email/.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "mailtree/base/DataBuffer.h"
#include "mailtree/email/Email2.h"
#include "mailtree/email/tree_walk.h"
#include "mailtree/mime/LineLengths.h"

namespace mailtree {

/// Received bytes of a multipart/signed child. A signature covers these bytes, so they are written unchanged
/// as long as the tree below has not changed. Changes are detected by comparing fingerprints, because setters
/// are not tracked.
struct ReceivedContent {
  DataBuffer bytes;
  StringBuffer text;  ///< Owns borrowed bytes.
  std::array<std::uint64_t, 2> fingerprint = {0, 0};
};

/// Digest of everything that output reads from a subtree: header lists, bodies, parsed members,
/// order of children.
std::array<std::uint64_t, 2> contentFingerprint(const Email2& node);

/// Stores the bytes from which a complete subtree was loaded. The subtree must not have changed yet.
void storeReceivedContent(Email2& node, DataBuffer&& bytes);
/// The same, taking over the text instead of copying it.
void storeReceivedContent(Email2& node, StringBuffer&& text);
/// The received bytes of a subtree while it is unchanged, else null. Borrowed.
const DataBuffer* unchangedReceivedContent(const Email2& node);

/// Makes nodes of a parse tree, which is taken apart on the way: a part is deleted when its node is complete.
/// Null when memory ran out.
EmailPtr consumeEntity(_svEmailCommon& common, MimeMessage2& entity, bool unwrap, SystemCerts& certs,
                       LogBase& log);

/// Loads a text that output wrote: no repairs, no normalization, no layer unwrapped, shared settings
/// unchanged. Null when memory ran out.
EmailPtr loadWrittenContent(_svEmailCommon& common, std::string_view text, LogBase& log);

/// Exact-length, case-insensitive test of a media type. Length and first letter are compared first, because
/// this runs for every node of every walk.
constexpr bool isType(std::string_view type, std::string_view wanted) noexcept {
  return type.size() == wanted.size() && toLowerAscii(type[0]) == wanted[0] && equalsNoCase(type, wanted);
}

/// A copy of an argument that may point into the node about to change. Empty when memory ran out.
inline StringBuffer copyOf(std::string_view text) noexcept {
  StringBuffer copy;
  copy.setString(text);
  return copy;
}
inline StringBuffer copyOf(const char* text) noexcept { return copyOf(viewOf(text)); }
inline StringBuffer copyOf(const StringBuffer& text) noexcept { return copyOf(text.view()); }

/// A copy without line breaks, which would end a header field.
inline StringBuffer oneLine(std::string_view value) noexcept {
  StringBuffer line = copyOf(value);
  for (const char c : {'\r', '\n'}) line.removeCharOccurances(c);
  return line;
}
inline StringBuffer oneLine(const char* value) noexcept { return oneLine(viewOf(value)); }

/// The charset in the Content-Type field of a part; code page 0 when there is none.
_svCharset labelledCharset(const Email2& node);
/// Writes a code page into the Content-Type field of a part, whatever the email's charset is.
void labelCodePage(Email2& node, int codePage, LogBase& log);
inline void labelUtf8(Email2& node, LogBase& log) { labelCodePage(node, kCpUtf8, log); }
/// Replaces the received charset label of a convertible text when its new text does not fit, so that output
/// may choose another charset.
void refreshCharsetLabel(Email2& node, LogBase& log);

/// Moves a text into a part's body. A text file is written as stored, so its text is converted to the charset
/// of its label, or the label changes.
void storeText(Email2& part, DataBuffer& utf8, LogBase& log);

/// Whether a body is encoded in base64 or quoted-printable.
inline bool isEncoded(const Email2& node) noexcept {
  return node.m_transferEncoding.equalsIgnoreCase("base64") ||
         node.m_transferEncoding.equalsIgnoreCase("quoted-printable");
}

inline constexpr int kAlternative = static_cast<int>(EnclosureKind::alternative);

/// Whether a body is written unencoded and declared as 7bit.
inline bool isDeclared7bit(const Email2& node) noexcept {
  return node.m_transferEncoding.isEmpty() || node.m_transferEncoding.equalsIgnoreCase("7bit");
}

/// Moves the bytes of a multipart that could not be split into a new part, with a new boundary, because a
/// node with parts is written without its body. Text is converted to utf-8.
/// @return the part, borrowed; null when the node is not such a multipart.
Email2* moveUnsplitBytesToPart(Email2& node, LogBase& log);

/// Decodes encoded words in a file name, where some senders wrongly put them.
void decodeFilename(StringBuffer& name, LogBase& log);

/// Sets the member and its header field. Null clears the member and removes the field.
void setTransferEncoding(Email2& node, const char* encoding, LogBase& log);

}  // namespace mailtree
