// email/transform/reply_head.h - the first line of the reply header, above the message that a reply or a
// forwarded message quotes.
#pragma once

namespace mailtree {

inline constexpr const char* kPlainReplyHead = "-----Original Message-----\r\n";
inline constexpr const char* kHtmlReplyHead = "<p>-----Original Message-----<br>";

}  // namespace mailtree
