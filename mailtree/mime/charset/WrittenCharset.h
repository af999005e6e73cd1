// mime/charset/WrittenCharset.h - the charset a text is actually written in, when the
// requested one cannot hold it.
#pragma once

#include <string_view>

namespace mailtree {

inline constexpr int kCpChinese = 936;  ///< Simplified Chinese: gb2312 by its name, gbk by its bytes.
inline constexpr int kCpGb18030 = 54936;

/// The code page used for a text that is to be written in `codePage` under the name of that code page. The
/// name of 936 is gb2312, a small set: text beyond it uses gb18030. All others are unchanged.
int codePageToWrite(int codePage, std::string_view utf8) noexcept;

}  // namespace mailtree
