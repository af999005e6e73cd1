// mime/charset/WrittenCharset.h - the charset that a text is really written in, where that is not the one asked for.
#pragma once

#include <string_view>

namespace mailtree {

inline constexpr int kCpChinese = 936;  ///< Simplified Chinese: gb2312 by its name, gbk by its bytes.
inline constexpr int kCpGb18030 = 54936;

/// The code page that a text is written in which is to go in `codePage` under its name. The name of 936 is that of
/// the small set gb2312: what this does not hold goes in gb18030. All others stay.
int codePageToWrite(int codePage, std::string_view utf8) noexcept;

}  // namespace mailtree
