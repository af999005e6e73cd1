// mime/AttachmentRules.h - the one home of the decision "is this part an attachment".
//
// Works on plain texts, so that the parse tree and the email tree decide alike.
#pragma once

#include <string_view>

namespace mailtree {

/// What the decision looks at.
struct PartTraits {
  std::string_view type = {};          ///< Media type, lower case; may be empty.
  std::string_view name = {};          ///< name parameter of the Content-Type.
  std::string_view disposition = {};   ///< Content-Disposition, such as "attachment".
  std::string_view dispFilename = {};  ///< filename parameter of the Content-Disposition.
  std::string_view transferEncoding = {};
  bool hasMessageClass = false;  ///< A Content-Class field matching "*content-classes:message*".
};

struct AttachmentVerdict {
  bool isAttachment;
  const char* reason;  ///< Why, in the words of the log.
};

/// Decides, for a part whose parent is a mixed enclosure (`inMixed`) or not. The first rule that
/// applies wins.
AttachmentVerdict judgeAttachment(const PartTraits& part, bool inMixed) noexcept;

struct StrictVerdict {
  bool isStrict;
  const char* reason;  ///< Null where there is nothing to say.
};

/// The narrower test: application types and whatever says "attachment". A name that looks like a URL with a
/// query marks a web resource, not a file.
StrictVerdict judgeStrictAttachment(const PartTraits& part) noexcept;

/// Whether a text body is stored as utf-8 and converted on output: a text leaf that is no attachment. An
/// attached text file keeps its bytes.
bool isConvertibleText(const PartTraits& part) noexcept;

}  // namespace mailtree
