// cli/views/problems_json.h - what is wrong with a message, in the words of all output.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mailtree/message/Message.h"

namespace mailtree::cli {

std::string_view nameOf(Problem::Kind kind) noexcept;
std::string_view nameOf(Problem::Severity severity) noexcept;

/// Appends a JSON list.
void appendProblems(std::string& out, const std::vector<Problem>& problems);

}  // namespace mailtree::cli
