// cli/views/jmap_view.h - a message as the Email object of JMAP (RFC 8621, 4.1).
#pragma once

#include <string>
#include <vector>

#include "mailtree/message/Message.h"

namespace mailtree::cli {

struct JmapOptions {
  std::string file = {};                     ///< Named when there are several; not of RFC 8621.
  bool headers = false;                      ///< Include the header fields of every part.
  std::vector<std::string> properties = {};  ///< Header fields in a form: "header:List-Post:asURLs".
};

/// One JSON object on one line, without a line break. What a server knows of a message (id, blobId, keywords,
/// ...) is left out, and the id of a part is its number in show.
std::string jmapOf(mailtree::Message& message, const JmapOptions& options);

}  // namespace mailtree::cli
