// message/displayed.h - which parts of a message a reader sees, and which are files (RFC 8621, 4.1.4).
//
// Where that algorithm leaves things open, or loses something, this is what good mail programs do:
//   alternatives  The one that can be shown best, as text and as HTML; a blank one only when there is no
//                 other. An alternative of several parts is taken as a whole.
//   related       The root: the "start" parameter, else the first, else the first that has a text.
//   signed        The content; the signature is neither shown nor a file.
//   digest        The messages are shown, too. Anywhere else a message is a file.
//   report        The first part with a text. The other ones are for programs.
//   other text    Subtypes other than plain and HTML are shown when there is no other text.
//   multipart     Any unknown kind is read as mixed; one without parts is a text.
//   mixed         Plain text and HTML beside each other are two texts, although loading joined them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mailtree/message/outline.h"

namespace mailtree {

struct Displayed {
  /// Rows that readers of plain text, and of HTML, see, in order: texts, pictures, sound, messages of a
  /// digest.
  std::vector<int> textBody, htmlBody;
  std::vector<int> inlineItems;  ///< Rows of what the HTML refers to by Content-ID or location.
  /// Rows of the files: those of Outline::attachments first, then all other leaves in document order, but for
  /// texts shown, inline items, signatures, and the alternatives not shown of a text. Pictures that are shown
  /// among texts are files, too.
  std::vector<int> attachments;
  int notShown = 0;  ///< Inline items and alternatives that are not files: who reads text does not see them.
};

Displayed displayedIn(const Outline& outline);

/// Whether a row is read as text: text of any subtype, or a multipart that has no parts.
bool isReadAsText(const PartRow& row);
/// Whether a row is HTML, or is text that counts as plain.
bool isHtml(const PartRow& row);
bool isPlain(const PartRow& row);

/// For each part, whether the HTML refers to it by Content-ID or location, found in one search.
std::vector<bool> referencedIn(std::string_view html, const std::vector<const Email2*>& parts);

/// The Content-ID without brackets and blanks; empty when there is none.
std::string contentIdOf(const Email2& part);
/// The Content-Location, which may be folded anywhere (RFC 2557, 4.4); empty when there is none.
std::string contentLocationOf(const Email2& part);

}  // namespace mailtree
