// cli/message/outline.h - a message as numbered rows: what both the text and the JSON view are drawn from.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/email/Email2.h"

namespace mailtree::cli {

/// One node of the tree, numbered depth-first from 0.
struct PartRow {
  Email2* node;
  int depth;
  int parent;  ///< Row of the parent, -1 at the root.
  bool isLastChild;
  bool isBody = false;
  bool isAttachment = false;
  std::string reason;       ///< Why it is an attachment.
  std::string contentType;  ///< text/plain where the node names none.
  std::string charset;      ///< As its Content-Type field says; empty when it does not.
  std::string filename;     ///< Of the disposition, else the name parameter; empty when neither.

  bool isLeaf() const { return node->getNumParts() == 0; }
  bool isText() const { return isLeaf() && contentType.starts_with("text/"); }
};

/// Rows in depth-first order, with bodies and attachments marked.
struct Outline {
  std::vector<PartRow> rows;
  std::vector<int> attachments;  ///< Rows, in the order in which attachments are numbered.
  int plainText = -1;            ///< Row of the plain-text body, -1 when there is none.
  int html = -1;

  const PartRow& row(int id) const { return rows[static_cast<std::size_t>(id)]; }
};

Outline outlineOf(Email2& root);

/// Rows of the related items, in the order in which they are numbered.
std::vector<int> relatedItemsOf(Email2& root, const Outline& outline);

/// The text of a message that says nothing of its type, which is plain then (RFC 2045, 5.2): the message itself, or
/// the first such part of a multipart/mixed in which no plain text is found. Borrowed; null when there is none.
Email2* untypedBody(Email2& root);

/// The text of a text part in utf-8: stored text as it is; an attached file, which keeps its bytes, by its
/// own label, else by detection. What is damaged is U+FFFD; bytes that nothing explains stay.
std::string textOf(const PartRow& row);

/// The date of the message in GMT; nothing when no date field was usable.
std::optional<SorvikSysTime> dateOf(const Email2& root);

/// Appends the entries of every field of a name: addresses, and names without one, whose address is empty.
void entriesOf(const MimeHeader& header, std::string_view field, ExtPtrArray& entries);

/// The sender: the parsed From, else the first address of the field as it stands, which old mail writes without
/// "@", else the first name in it; nothing when there is none.
std::optional<_svEmailAddress> senderOf(const Email2& root);
/// The same from the field alone.
std::optional<_svEmailAddress> senderIn(const MimeHeader& header);

/// "Name <address>" in utf-8, or what there is of it.
std::string displayForm(const _svEmailAddress& address);

/// A decoded header field; nothing when it is absent.
std::optional<std::string> fieldOf(const Email2& root, const char* name);

}  // namespace mailtree::cli
