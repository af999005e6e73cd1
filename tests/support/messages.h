// tests/support/messages.h - messages in, messages out, in one line.
#pragma once

#include <string>
#include <string_view>

#include "mailtree/email/Email2.h"

namespace mailtree {

/// What the writing operation can be asked for beyond the plain case.
struct WriteForm {
  bool dotStuff = false;
  const char* omitPrefix = nullptr;
  bool qpFor8bit = false;
  bool isTop = true;
};

/// Loads a message the way a program that holds it as text does.
EmailPtr load(std::string_view message);
/// Loads it the way a POP3 client does.
EmailPtr loadPop3(std::string_view message);

/// The node as text; a failure gives "FAILED".
std::string write(Email2& node, const WriteForm& options = {});
/// The same through a sink.
std::string writeToSink(Email2& node, const WriteForm& options = {});

/// The same with LF turned into CRLF: messages in tests are written with LF.
std::string crlf(std::string_view text);

/// The value of a field, or "(absent)".
std::string field(const Email2& node, const char* name);

}  // namespace mailtree
