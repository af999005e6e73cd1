// mime/AttachmentRules.h - decides from the fields of a part whether it is an attachment.
//
// Works on plain strings, so the parse tree and the email tree share the rules.
#pragma once

#include <string_view>

#include "mailtree/base/Export.h"

namespace mailtree {

/// The input of the decision.
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
  const char* reason;  ///< The reason, as logged.
};

/// Decides for a part whose parent is a mixed enclosure (`inMixed`) or not. The first matching rule wins.
MAILTREE_API AttachmentVerdict judgeAttachment(const PartTraits& part, bool inMixed) noexcept;

struct StrictVerdict {
  bool isStrict;
  const char* reason;  ///< Null when there is no reason to log.
};

/// The narrower test: application types and dispositions that contain "attachment". A name that looks like a
/// URL with a query marks a web resource, not a file.
MAILTREE_API StrictVerdict judgeStrictAttachment(const PartTraits& part) noexcept;

/// Whether a text body is stored in utf-8 and converted on output: true for a text leaf that is not an
/// attachment. An attached text file keeps its bytes.
MAILTREE_API bool isConvertibleText(const PartTraits& part) noexcept;

}  // namespace mailtree
