// mime/html/HtmlFrame.h - puts HTML around the content of a page, as an answer does that quotes it.
#pragma once

#include <string>
#include <string_view>

namespace mailtree {

/// One complete page with one head: `before`, the content of the body, and `after`, all inside the body.
/// @param html  a page, or several in a row, with text between them; it may be incomplete or malformed. Their
///              heads are joined, and the first body's attributes count for all.
/// End tags of quotations that were not begun are left out, because one would end a quotation begun in
/// `before`. Linear on any input.
std::string frameHtml(std::string_view html, std::string_view before, std::string_view after);

}  // namespace mailtree
