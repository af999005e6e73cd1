// email/transform/original_message_header.h - the header above the message that a reply or a forwarded
// message quotes.
#pragma once

#include <string>

namespace mailtree {

inline constexpr const char* kPlainReplyHeader = "-----Original Message-----\r\n";
inline constexpr const char* kHtmlReplyHeader = "<p>-----Original Message-----<br>";

/// What it says about the quoted message. Without `to` or `cc` their lines are missing.
struct QuotedFields {
  std::string from, sent, to, cc, subject;
};

std::string plainReplyHeader(const QuotedFields& fields);
/// @param fields  inserted as they are: HTML.
std::string htmlReplyHeader(const QuotedFields& fields);

}  // namespace mailtree
