// cli/views/problems_json.h - what is wrong with a message, in the words of all output.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mailtree/message/Message.h"

namespace mailtree::cli {

std::string_view nameOf(Problem::Kind kind) noexcept;
std::string_view nameOf(Problem::Severity severity) noexcept;

/// A JSON list.
std::string problemsOf(const std::vector<Problem>& problems);

}  // namespace mailtree::cli
