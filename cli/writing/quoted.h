// cli/writing/quoted.h - a user's text in front of what an answer quotes.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>

#include "mailtree/email/Email2.h"

namespace mailtree::cli {

/// The bodies of a message as they were before it was made an answer. Those that begin with another head
/// afterwards are the quoted ones, whichever of its texts they are.
class QuotedTexts {
 public:
  explicit QuotedTexts(Email2& email);

  /// Puts a text in front of each quoted body: as it is before plain text, escaped before HTML. Charset and encoding
  /// are chosen again.
  /// @return false when nothing is quoted, or memory ran out.
  bool putInFront(const std::string& text, LogBase& log) const;

 private:
  bool isChanged(const Email2& node) const;

  Email2& m_email;
  std::unordered_map<const Email2*, std::size_t> m_sizes;
};

}  // namespace mailtree::cli
