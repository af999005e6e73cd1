// mime/MimeParser.h - parses bytes into a tree of entities, in one pass (RFC 2045, 2046).
//
//   Boundaries  Matched as whole lines against the stack of open boundaries, the innermost
//               first. An unterminated inner part ends at the next enclosing boundary. White
//               space after a boundary is allowed.
//   Tolerance   Missing closing boundaries, missing or unquoted boundary parameters, bare CR or LF, a leading
//               mbox "From " line, a byte order mark, a missing empty line, NUL bytes: nothing fails, nothing
//               but preamble and epilogue is dropped.
//   Limits      mime/Limits.h. The rest beyond a limit is body of the enclosing part.
#pragma once

#include <string_view>
#include <vector>

#include "mailtree/mime/MimeMessage2.h"

namespace mailtree {

class LogBase;

class MimeParser {
 public:
  /// Fills the empty entity `root`; the text need not outlive the call.
  /// @param parts   parts allowed; the parts used are subtracted from it.
  /// @param places  receives the place of each entity, for reports about the text; null: not needed.
  static void parse(std::string_view text, MimeMessage2& root, int& parts, LogBase& log,
                    std::vector<EntityPlace>* places = nullptr);
  /// The same for an entity found inside another one at that level (the message is level 1). A byte order
  /// mark or mbox line before it is content, and an empty line at its beginning ends its header.
  /// @param origin  of the entity; those of its parts count on from there.
  static void parseContent(std::string_view text, MimeMessage2& entity, int level, Origin origin, int& parts,
                           LogBase& log);
  /// The text without a leading byte order mark and mbox separator lines.
  static std::string_view skipPrologue(std::string_view text) noexcept;

 private:
  class Pass;  ///< One pass over one text.
  static void finish(MimeMessage2& root, LimitSet limits, LogBase& log);
};

}  // namespace mailtree
