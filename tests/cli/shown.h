// tests/cli/shown.h - messages as the command reports them to programs.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "tests/cli/command.h"

namespace mailtree::cli_test {

/// "multipart/mixed(text/plain,image/png)"
inline std::string shapeOf(const nlohmann::json& node) {
  std::string text = node["content_type"];
  if (node["parts"].empty()) return text;
  text += '(';
  for (const nlohmann::json& part : node["parts"]) text += (text.back() == '(' ? "" : ",") + shapeOf(part);
  return text + ')';
}

/// What `show --json` says of a message; what it complains about when it fails.
inline nlohmann::json shown(const std::string& file) {
  const Result result = mailtree("show --json " + file);
  return result.status == 0 ? nlohmann::json::parse(result.out) : nlohmann::json(result.err);
}

}  // namespace mailtree::cli_test
