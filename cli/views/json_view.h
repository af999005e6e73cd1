// cli/views/json_view.h - a message as one line of JSON, for programs.
#pragma once

#include <string>
#include <vector>

#include "cli/message/input.h"
#include "mailtree/message/outline.h"

namespace mailtree::cli {

struct JsonOptions {
  bool headers = false;  ///< Include every header field of the message.
  bool body = false;     ///< Include the text, and the HTML, that a reader sees.
};

/// One JSON object on one line, without a line break: utf-8, with control characters escaped.
std::string jsonOf(const std::string& file, mailtree::Message& message, const JsonOptions& options);

/// The attachments in the same form, each with its number and the reason it counts as one, if there is any
/// beyond that it is not part of the text.
std::string attachmentsJsonOf(const std::string& file, const Outline& outline, const std::vector<int>& files,
                              LimitSet limits);

/// The related items in the same form, each with its number and its Content-Location.
std::string relatedJsonOf(const std::string& file, const Message& message, const Outline& outline,
                          const std::vector<int>& items);

}  // namespace mailtree::cli
