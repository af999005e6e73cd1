// mime/html/HtmlEscape.h - plain text inside HTML.
#pragma once

#include <string>
#include <string_view>

#include "mailtree/base/Export.h"

namespace mailtree {

/// Escapes text for HTML content and quoted attributes.
MAILTREE_API std::string escapeHtml(std::string_view text);

}  // namespace mailtree
