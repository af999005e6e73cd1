// tests/interop/messages.h - composed messages and what any reader must see in them.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace mailtree::interop {

/// What is expected, and what a reader reports, has one form:
///
///   subject, from, to   decoded
///   text, html          decoded body with CRLF, or null without one
///   charset             label of the text, or of the html where there is no text
///   files               every other leaf: name (file name), title (name parameter), type, charset, id, hex
///   (bytes) messages            every attached message, with LF defects             what the reader
///   complains about
struct Composed {
  std::string name;
  std::string bytes;
  nlohmann::json expected;
};

const std::vector<Composed>& composedMessages();

/// Holds what a reader saw against what was put in, and names the message where they differ.
void expectSeen(const Composed& message, const nlohmann::json& seen);

std::string hexOf(std::string_view bytes);

}  // namespace mailtree::interop
