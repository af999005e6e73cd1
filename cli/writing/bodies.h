// cli/writing/bodies.h - the text bodies of a message being written.
//
//   Input    Files are in the charset that the user names; else utf-8, or utf-16 or utf-32 with a byte order
//            mark. Text that does not decode is rejected: wrong letters are worse than no mail.
//   Output   Lines end in CRLF, the last one too.
#pragma once

#include <optional>
#include <string>

#include "cli/support/exit_codes.h"
#include "mailtree/message/Message.h"

namespace mailtree::cli {

class Verb;

struct BodyOptions {
  std::optional<std::string> text, textFile, html, htmlFile, textCharset, signatureFile;
  bool makesText = false;  ///< Make the plain text from the HTML when there is none.

  bool any() const { return text || textFile || html || htmlFile; }
  /// Number of options that read standard input.
  int countOfStandardInput() const { return (textFile == "-") + (htmlFile == "-") + (signatureFile == "-"); }
};

void addBodyOptions(Verb verb, BodyOptions& options);

/// Adds only the options for plain text.
void addTextOptions(Verb verb, BodyOptions& options);

/// Texts ready to be added: utf-8, CRLF.
struct Bodies {
  std::optional<std::string> plain, html;
};

/// Reads the texts, with the signature below each. usage or unreadable after reporting an error.
Exit readBodies(const BodyOptions& options, Bodies& bodies);

/// Sets the texts that there are.
Result<void> putBodies(mailtree::Message& message, const Bodies& bodies);

}  // namespace mailtree::cli
