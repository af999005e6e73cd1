// cli/writing/bodies.h - the texts of a message that is being written.
//
//   Read     Files are in the charset that the user names; else utf-8, or utf-16 or utf-32 with its byte-order
//            mark. A text that is none of it is refused: mail with the wrong letters in it is worse than none.
//   Written  Lines end in CRLF. A text from the command line is ended like a line, a file stays as it is.
#pragma once

#include <optional>
#include <string>

#include "cli/support/exit_codes.h"
#include "mailtree/email/Email2.h"

namespace CLI {
class App;
}

namespace mailtree::cli {

struct BodyOptions {
  std::optional<std::string> text, textFile, html, htmlFile, textCharset;

  bool any() const { return text || textFile || html || htmlFile; }
  /// How often standard input is one of the files.
  int countOfStandardInput() const { return (textFile == "-") + (htmlFile == "-"); }
};

void addBodyOptions(CLI::App& verb, BodyOptions& options);

/// The options for a plain text alone.
void addTextOptions(CLI::App& verb, BodyOptions& options);

/// Texts ready for a message: utf-8, CRLF.
struct Bodies {
  std::optional<std::string> plain, html;
};

/// usage or unreadable after a complaint.
Exit readBodies(const BodyOptions& options, Bodies& bodies);

/// Lets a new message prefer a charset: the texts are written in it, or in utf-8 when they do not fit.
void preferCharset(Email2& email, const std::string& name, const Bodies& bodies);
/// Puts the texts where they belong; what is there of the same kind is replaced, anything else stays.
bool putBodies(Email2& email, const Bodies& bodies, LogBase& log);
/// Whether a reader gets the texts that were put in. Some enclosures, such as a digest, have no place for a text.
bool bodiesReadBack(Email2& email, const Bodies& bodies, LogBase& log);

}  // namespace mailtree::cli
