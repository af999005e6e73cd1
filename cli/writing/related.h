// cli/writing/related.h - files that the HTML of a message shows, such as images.
//
// The HTML names a file as "cid:logo.png"; in the message these references name the Content-ID that the file got.
// A page saved from the web, which names it "logo.png", finds it by its location.
#pragma once

#include <string>
#include <vector>

#include "cli/support/exit_codes.h"
#include "mailtree/email/Email2.h"

namespace CLI {
class App;
}

namespace mailtree::cli {

struct InlineOptions {
  std::vector<std::string> files;  ///< FILE or FILE=CID
  std::vector<std::string> locations;

  bool any() const { return !files.empty() || !locations.empty(); }
};

void addInlineOptions(CLI::App& verb, InlineOptions& options);

/// A file read and ready to be shown.
struct InlineFile {
  std::string name;
  std::string type;
  std::string contentId;  ///< Without brackets; empty: to be generated.
  DataBuffer bytes;
  bool byLocation = false;
};

/// usage or unreadable after a complaint.
Exit readInlineFiles(const InlineOptions& options, std::vector<InlineFile>& files);

/// Puts the files beside the HTML body, which must be there, and points its references at them. Warns of a file
/// that it does not refer to. False when memory ran out.
bool putInlineFiles(Email2& email, const std::vector<InlineFile>& files, LogBase& log);

}  // namespace mailtree::cli
