// cli/support/html_text.h - plain text inside HTML.
#pragma once

#include <string>
#include <string_view>

namespace mailtree::cli {

/// Escapes text for HTML content and quoted attributes.
std::string htmlText(std::string_view text);

}  // namespace mailtree::cli
