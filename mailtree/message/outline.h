// message/outline.h - a message as numbered rows, the source of both the text and the JSON view.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/email/Email2.h"

namespace mailtree {

/// Whether a part of this type is a whole message (RFC 2046, 5.2.1; RFC 6532, 3.7).
inline bool isMessageType(std::string_view type) noexcept {
  return equalsNoCase(type, "message/rfc822") || equalsNoCase(type, "message/global");
}

/// One node of the tree, numbered depth-first from 0.
struct PartRow {
  Email2* node;
  int depth;
  int parent;  ///< Row of the parent, -1 at the root.
  int index;   ///< Among the children of the parent, from 0.
  bool isLastChild;
  bool isBody = false;
  bool isAttachment = false;
  std::string reason = {};       ///< Why it is an attachment.
  std::string contentType = {};  ///< text/plain where the node has none.
  std::string filename = {};     ///< From the disposition, else the name parameter, else empty.
  std::size_t firstChild = 0;    ///< Position in Outline::children.

  bool isLeaf() const { return node->getNumParts() == 0; }
  bool isText() const { return isLeaf() && contentType.starts_with("text/"); }
  bool isMessage() const { return isLeaf() && isMessageType(contentType); }
};

/// All rows in depth-first order, with bodies and attachments marked.
struct Outline {
  std::vector<PartRow> rows;
  std::vector<int> attachments;  ///< Rows, in attachment order.
  int plainText = -1;            ///< Row of the plain-text body, -1 when there is none.
  int html = -1;
  std::vector<int> children;  ///< Rows of the children of each row, together and in order.

  const PartRow& row(int id) const { return rows[static_cast<std::size_t>(id)]; }
  std::span<const int> childrenOf(const PartRow& row) const {
    return std::span(children).subspan(row.firstChild, static_cast<std::size_t>(row.node->getNumParts()));
  }
};

Outline outlineOf(Email2& root);

/// Rows of the related items, in item order.
std::vector<int> relatedItemsOf(Email2& root, const Outline& outline);

/// The text of a message without a Content-Type, plain by default (RFC 2045, 5.2): the message itself, or the
/// first such part of a multipart/mixed without another plain-text body. Borrowed; null when there is none.
Email2* untypedBody(Email2& root);

/// The charset in the Content-Type field of a part; empty when not given.
std::string charsetOf(const PartRow& row);

/// The name of a part as the message gives it, not yet safe to use: its file name or location, else the
/// subject of an attached message with ".eml". May be empty.
std::string givenFileName(const PartRow& row);

/// The text of a text part in utf-8. Attached files, stored as bytes, are decoded by their charset parameter,
/// else by detection. Malformed text becomes U+FFFD; bytes in an unknown charset stay.
struct ReadText {
  std::string text;
  bool isUtf8;
};
ReadText readTextOf(const PartRow& row);
/// The same, borrowed from the part that holds it in utf-8; nothing where it has to be decoded.
std::optional<std::string_view> storedTextOf(const PartRow& row);
std::string textOf(const PartRow& row);

/// The date of the message in GMT; nothing when no date field is usable.
std::optional<SorvikSysTime> dateOf(const Email2& root);

/// Appends the entries of every field with this name: addresses, and display names without an address.
void entriesOf(const MimeHeader& header, std::string_view field, ExtPtrArray& entries);

/// The sender: the parsed From, else the first address in the raw field (old messages may lack "@"), else its
/// first display name; nothing when there is none.
std::optional<_svEmailAddress> senderOf(const Email2& root);
/// The same from the header field only.
std::optional<_svEmailAddress> senderIn(const MimeHeader& header);

/// "Name <address>" in utf-8, or the one that is present.
std::string displayForm(const _svEmailAddress& address);

/// A decoded header field; nothing when it is missing.
std::optional<std::string> decodedField(const Email2& root, const char* name);

}  // namespace mailtree
