// cli/support/text_charset.h - text files in any charset.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace mailtree::cli {

/// The charset of an input file.
struct TextCharset {
  int codePage = 0;                     ///< 0: utf-8, unless a byte order mark says otherwise.
  bool isByteOrderUnspecified = false;  ///< The name fits both byte orders; little-endian without a mark.
};

/// The code page is not positive when the name is unknown.
TextCharset charsetOf(const std::string& name);

/// The code page of a byte order mark at the beginning that is allowed in the charset; 0 without one.
int markedCodePage(std::string_view bytes, TextCharset charset);

/// Decodes the bytes of a file, without a byte order mark, to utf-8. Returns the problem, or nothing.
/// @param option  the option that specifies the charset, for the error message.
std::optional<std::string> decodeText(std::string_view bytes, TextCharset charset, const std::string& option,
                                      std::string& out);

}  // namespace mailtree::cli
