// mime/html/HtmlText.h - an HTML page as plain text, for mail that has nothing else and for answers.
#pragma once

#include <string>
#include <string_view>

namespace mailtree {

/// The text of a page as a person reads it. utf-8 in and out, lines end in LF and are not wrapped.
///
///   - Paragraphs and headings have empty lines around them, never more than one; list items have "* " or a
///     number, quotations "> ". Beyond a certain depth, further ones are not indented.
///   - Tables for the layout read as lines. Small ones become columns where these fit: those that are marked
///     as data are broken to fit.
///   - A link is its text and a number, and the addresses follow at the end; no number when the text is the
///     address. Scripts and other addresses that mean nothing outside the page are left out.
///   - Images are their alternative text. Scripts, styles, comments and what the attributes of an element
///   hide
///     are left out, such as the preview line of a newsletter.
///
/// Any bytes are a page; linear on any input, and not recursive.
std::string textOfHtml(std::string_view html);

}  // namespace mailtree
