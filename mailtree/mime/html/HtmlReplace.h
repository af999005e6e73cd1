// mime/html/HtmlReplace.h - replaces words in a page, where a reader sees them or a link uses them.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace mailtree {

/// What a piece of a page becomes; nothing when it stays. New text must be escaped for HTML.
using HtmlPieceChange = std::function<std::optional<std::string>(std::string_view piece)>;

/// Offers each piece of text (titles included) and each attribute value for a change. Tags, comments, scripts
/// and styles are left alone, and so are attributes that hold a script, a style or a page: a value escaped
/// for HTML is not harmless there. A value without quotes gets them when it changes. Linear on any input.
/// @return the changed page; nothing when no piece changed.
std::optional<std::string> changeHtmlPieces(std::string_view html, const HtmlPieceChange& change);

}  // namespace mailtree
