// mime/html/HtmlEscape.h - plain text inside HTML.
#pragma once

#include <string>
#include <string_view>

namespace mailtree {

/// Escapes text for HTML content and quoted attributes.
std::string escapeHtml(std::string_view text);

}  // namespace mailtree
