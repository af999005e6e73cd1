// message/outline.h - a message as numbered rows, the source of both the text and the JSON view.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/email/Email2.h"

namespace mailtree {

/// One node of the tree, numbered depth-first from 0.
struct PartRow {
  Email2* node;
  int depth;
  int parent;  ///< Row of the parent, -1 at the root.
  bool isLastChild;
  bool isBody = false;
  bool isAttachment = false;
  std::string reason;       ///< Why it is an attachment.
  std::string contentType;  ///< text/plain where the node has none.
  std::string charset;      ///< From its Content-Type field; empty when not given.
  std::string filename;     ///< From the disposition, else the name parameter, else empty.

  bool isLeaf() const { return node->getNumParts() == 0; }
  bool isText() const { return isLeaf() && contentType.starts_with("text/"); }
};

/// All rows in depth-first order, with bodies and attachments marked.
struct Outline {
  std::vector<PartRow> rows;
  std::vector<int> attachments;  ///< Rows, in attachment order.
  int plainText = -1;            ///< Row of the plain-text body, -1 when there is none.
  int html = -1;

  const PartRow& row(int id) const { return rows[static_cast<std::size_t>(id)]; }
};

Outline outlineOf(Email2& root);

/// Rows of the related items, in item order.
std::vector<int> relatedItemsOf(Email2& root, const Outline& outline);

/// The text of a message without a Content-Type, plain by default (RFC 2045, 5.2): the message itself, or the
/// first such part of a multipart/mixed without another plain-text body. Borrowed; null when there is none.
Email2* untypedBody(Email2& root);

/// The text of a text part in utf-8. Attached files, stored as bytes, are decoded by their charset parameter,
/// else by detection. Malformed text becomes U+FFFD; bytes in an unknown charset stay.
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
std::optional<std::string> fieldOf(const Email2& root, const char* name);

}  // namespace mailtree
