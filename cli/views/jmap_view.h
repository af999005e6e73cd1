// cli/views/jmap_view.h - a message as the Email object of JMAP (RFC 8621, 4.1).
#pragma once

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/message/Message.h"

namespace mailtree::cli {

struct JmapOptions {
  std::string file = {};                     ///< Included when there are several; not part of RFC 8621.
  bool headers = false;                      ///< Include the header fields of every part.
  std::vector<std::string> properties = {};  ///< Header properties, such as "header:List-Post:asURLs".
  std::vector<std::string> members = {};     ///< Only these, and `properties`; empty: all.
  /// Takes the content of an attachment and returns its blobId. Without it no blobId is written.
  std::function<std::string(std::string_view)> keep = {};

  bool wants(std::string_view member) const {
    return members.empty() || std::ranges::find(members, member) != members.end();
  }
};

/// One JSON object on one line, without a line break. What only a server knows (id, blobId, keywords, ...) is
/// left out, and the id of a part is its number in show.
std::string jmapOf(mailtree::Message& message, const JmapOptions& options);
/// The same, with further members after the name of the file.
/// @param own  a JSON object that holds them; may be empty.
std::string jmapOf(mailtree::Message& message, const JmapOptions& options, std::string_view own);
/// Whether there is such a member of an Email object.
bool isJmapMember(std::string_view name);

}  // namespace mailtree::cli
