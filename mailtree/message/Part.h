// message/Part.h - one part of a message: a text, a file, or an enclosure of other parts.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Export.h"
#include "mailtree/message/Values.h"

namespace mailtree {

class Email2;
class Message;
struct MessageState;

/// A view of a part, as cheap to copy as a pointer. Valid until its message is changed or destroyed.
class MAILTREE_API Part {
 public:
  /// "1" is the message itself, "1.2" its second part, "1.2.1" the first part of that.
  std::string id() const;
  /// The number that the command shows: from 0, depth-first.
  int number() const noexcept { return m_row; }

  std::string type() const;  ///< Media type in lower case; "text/plain" when none is given.
  std::string name() const;  ///< Decoded file name, without folders; empty when none is given.
  /// A name to save it under, safe on any system and never empty: name(), else the subject of an attached
  /// message with ".eml", else "attachment" and the usual extension of the type.
  std::string fileName() const;
  std::string disposition() const;  ///< "inline", "attachment", ... (RFC 2183); empty when none is given.
  std::string contentId() const;    ///< Without angle brackets.
  std::string location() const;     ///< Content-Location.
  std::string charset() const;      ///< As labelled; empty when not.
  std::string encoding() const;     ///< Content-Transfer-Encoding in lower case; empty when none is given.

  bool isText() const;       ///< A leaf with a text type.
  bool isMultipart() const;  ///< An enclosure of other parts.
  bool isMessage() const;    ///< message/rfc822 or message/global.

  /// The content, decoded from its transfer encoding. A text that is shown is in utf-8, a file has the bytes
  /// that were sent. Borrowed; empty for a multipart.
  std::string_view bytes() const;
  std::size_t size() const { return bytes().size(); }
  /// The content of a text as utf-8, with U+FFFD for what cannot be decoded, LF as line breaks and, for
  /// format=flowed, its lines joined (RFC 3676). HTML stays HTML. Empty for anything else.
  std::string text() const;
  std::string sha256() const;  ///< Of bytes(), in hexadecimal.

  /// Writes bytes() to a new file in a folder, whole or not at all, and returns its path. It is called
  /// fileName(), or "name (2).ext" and so on where there is such a file: nothing is overwritten.
  Result<std::string> saveIn(const std::string& folder) const;

  std::vector<Header> headers() const;                             ///< All its fields, in order.
  std::optional<std::string> header(std::string_view name) const;  ///< The first field of that name.
  std::vector<Part> parts() const;                                 ///< Its children, in order.
  /// The message in an attached message. badValue for any other part.
  Result<Message> message() const;

  /// The node, borrowed.
  const Email2& email2() const;
  bool operator==(const Part&) const = default;

 private:
  friend class Message;
  friend struct MessageState;
  Part(MessageState& state, int row) : m_state(&state), m_row(row) {}

  MessageState* m_state;
  int m_row;
};

}  // namespace mailtree
