// mime/html/HtmlElements.h - what the elements of HTML mean for plain text; not included outside mime/html/.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace mailtree {

/// What becomes of an element's content.
enum class Role : unsigned char {
  text,       ///< Goes on in the line.
  block,      ///< On lines of its own.
  paragraph,  ///< With empty lines around it.
  link,
  image,
  lineBreak,
  rule,
  list,
  orderedList,
  item,
  term,
  definition,
  quotation,
  mark,  ///< Text in quotation marks.
  preformatted,
  table,
  rowGroup,
  row,
  cell,
  caption,
  hidden,
  ignored,  ///< Its tags mean nothing: html, body.
  nothing,  ///< Has no content.
};

struct Element {
  std::uint8_t id = 0;  ///< Below kElementIds; elements of unknown names may share one.
  Role role = Role::text;
};
inline constexpr std::size_t kElementIds = 160;

Element elementOf(std::string_view name) noexcept;

}  // namespace mailtree
