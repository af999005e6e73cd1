// email/transform/reply_head.h - the line above the message that a reply or a forwarded message quotes.
#pragma once

namespace mailtree {

inline constexpr const char* kPlainReplyHead = "-----Original Message-----\r\n";
inline constexpr const char* kHtmlReplyHead = "<p>-----Original Message-----<br>";

}  // namespace mailtree
