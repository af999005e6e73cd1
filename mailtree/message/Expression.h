// message/Expression.h - which messages somebody looks for: from:anna and (size:>1M or has:attachment).
//
//   Tests      from: to: cc: bcc: subject: body: list:    the text occurs there
//              header NAME:TEXT                           in a field of that name; "header NAME:" is any text
//              WORD or "SEVERAL WORDS"                    in the subject or the text that a reader sees
//              date:2026, date:2026-01..2026-03-15        sent then (UTC); either end may be left out
//              size:>1M, size:10k..20k                    bytes; k, M and G are powers of 1000
//              type:application/pdf, type:image           the media type of a part, "*" for anything
//              file:*.xlsx, file:report                   the name of a file; without "*" a part of it
//              has:attachment has:calendar
//              is:signed is:valid is:encrypted is:repaired is:report is:unread
//   Joined     by and (which may be left out), or, not and brackets; "not" binds closest, then "and".
//   Text       Decoded on both sides; neither letter case nor accents count.
//   Cost       Cheap tests first, and only what they need is read: tests of the header touch no body.
#pragma once

#include <memory>
#include <string_view>

#include "mailtree/base/Export.h"
#include "mailtree/base/Result.h"

namespace mailtree {

class LazyMessage;

class MAILTREE_API Expression {
 public:
  /// badValue with the column (from 1) and what is wrong there: "column 6: a value is missing after from:".
  static Result<Expression> parse(std::string_view text);

  /// Any number of threads may ask, each about its own message.
  bool matches(LazyMessage& message) const;

 private:
  struct Node;
  class Parser;
  explicit Expression(std::shared_ptr<const Node> root) : m_root(std::move(root)) {}

  std::shared_ptr<const Node> m_root;
};

}  // namespace mailtree
