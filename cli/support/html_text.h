// cli/support/html_text.h - plain text inside HTML.
#pragma once

#include <string>
#include <string_view>

namespace mailtree::cli {

/// The text as HTML shows it, in content and in quoted attributes.
std::string htmlText(std::string_view text);

}  // namespace mailtree::cli
