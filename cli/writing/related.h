// cli/writing/related.h - files that the HTML body shows, such as images.
//
// The HTML refers to a file as "cid:logo.png"; in the message these references use the file's Content-ID. A
// saved web page, which refers to it as "logo.png", finds it by its Content-Location.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/support/exit_codes.h"
#include "mailtree/base/DataBuffer.h"
#include "mailtree/message/Message.h"

namespace mailtree::cli {

class Verb;

struct InlineOptions {
  std::vector<std::string> files;  ///< FILE or FILE=CID
  std::vector<std::string> locations;

  bool any() const { return !files.empty() || !locations.empty(); }
};

void addInlineOptions(Verb verb, InlineOptions& options);

/// A file read and ready to be added.
struct InlineFile {
  std::string name;
  std::string contentId;  ///< Without angle brackets; generated when empty.
  DataBuffer bytes;
  bool byLocation = false;
};

/// usage or unreadable after reporting an error.
Exit readInlineFiles(const InlineOptions& options, std::vector<InlineFile>& files);

/// Whether each "cid:" reference of the HTML names one of the files; usage after reporting one that does not.
Exit checkReferences(const std::optional<std::string>& html, const std::vector<InlineFile>& files);

/// Adds the files for the HTML, and warns of those that it does not refer to.
Result<void> putInlineFiles(mailtree::Message& message, const std::vector<InlineFile>& files);

}  // namespace mailtree::cli
