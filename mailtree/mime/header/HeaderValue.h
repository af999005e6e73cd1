// mime/header/HeaderValue.h - renders a utf-8 value as header text, field by field.
//
//   Grammar    A parser treats an encoded word differently from its text. Where one is allowed
//              depends on the field: anywhere in a Subject, in the display names of an address list,
//              nowhere in a parameter or a Message-ID.
#pragma once

#include <string>
#include <string_view>

namespace mailtree {

/// The grammar of a field's value.
enum class FieldGrammar {
  unstructured,  ///< Free text, and every unknown field.
  addresses,     ///< An address list.
  parameters,    ///< Content-Type, Content-Disposition.
  identifiers,   ///< Message identifiers and bare addresses: never decoded, so never encoded.
  structured     ///< Dates, tokens, and phrases or comments around them.
};

/// The grammar of a field, by its name (case is ignored).
FieldGrammar grammarOf(std::string_view fieldName) noexcept;

struct RenderedValue {
  std::string text;      ///< On one line, unfolded.
  bool complete = true;  ///< False: encoding would lose something, and `text` is the unchanged value.
};

/// Renders a utf-8 value, which may contain encoded words, for one field. Reading the result gives the same
/// as reading the value. ASCII in fields other than free text is not changed.
RenderedValue renderHeaderValue(std::string_view fieldName, std::string_view utf8, int codePage);

/// The same for a Content-Disposition of the form `type; filename="..."` with an unescaped name: it ends at
/// the last double quote.
RenderedValue renderRawFilename(std::string_view value, int codePage);

}  // namespace mailtree
