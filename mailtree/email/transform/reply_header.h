// email/transform/reply_header.h - the first line of the reply header, above the message that a reply or a
// forwarded message quotes.
#pragma once

namespace mailtree {

inline constexpr const char* kPlainReplyHeader = "-----Original Message-----\r\n";
inline constexpr const char* kHtmlReplyHeader = "<p>-----Original Message-----<br>";

}  // namespace mailtree
