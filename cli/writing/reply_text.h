// cli/writing/reply_text.h - adding a user's text before the quoted text of a reply.
#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>

#include "mailtree/email/Email2.h"

namespace mailtree::cli {

/// Remembers the bodies of a message before it becomes a reply. Bodies that have changed and begin with a
/// reply header afterwards are the quoted ones.
class QuotedTexts {
 public:
  explicit QuotedTexts(Email2& email);

  /// Puts the text before each quoted body, escaped for HTML. Chooses charset and encoding again.
  /// @return false when nothing is quoted or memory ran out.
  bool prependText(const std::string& text, LogBase& log) const;

 private:
  bool hasNewSize(const Email2& node) const;

  Email2& m_email;
  std::unordered_map<const Email2*, std::size_t> m_sizes;
};

}  // namespace mailtree::cli
