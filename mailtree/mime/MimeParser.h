// mime/MimeParser.h - bytes to a tree of entities, in one pass (RFC 2045, 2046).
//
//   Boundaries  Matched as whole lines against the stack of open boundaries, the innermost first; an inner
//               part that never closes ends where an enclosing boundary stands. White space after a boundary
//               is allowed.
//   Tolerance   Missing closing boundaries, missing or unquoted boundary parameters, bare CR or LF, a leading
//               mbox "From " line, a byte order mark, a missing empty line, NUL bytes: nothing fails, nothing
//               but preamble and epilogue is dropped.
//   Limits      mime/Limits.h. Beyond one the rest is the body of the part in which it stands.
#pragma once

#include <string_view>

#include "mailtree/mime/MimeMessage2.h"

namespace mailtree {

class LogBase;

class MimeParser {
 public:
  /// Fills the empty entity `root`; the text must live until parse returns, not longer.
  /// @param parts  how many the message may have; what is left is given back.
  static void parse(std::string_view text, MimeMessage2& root, int& parts, LogBase& log);
  /// The same for an entity found inside another one at that level, the message being at 1: a byte order mark or
  /// an mbox line before it is none, and an empty line at its beginning ends its header.
  /// @param origin  of the entity; those of its parts count on from there.
  static void parseContent(std::string_view text, MimeMessage2& entity, int level, Origin origin, int& parts,
                           LogBase& log);
  /// The text without a byte order mark and the separator lines of a mailbox file, which are no part of the message.
  static std::string_view skipPrologue(std::string_view text) noexcept;

 private:
  class Run;  ///< One pass over one text.
  static void finish(MimeMessage2& root, LimitSet limits, LogBase& log);
};

}  // namespace mailtree
