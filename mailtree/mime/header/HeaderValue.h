// mime/header/HeaderValue.h - from a utf-8 value to what a header line may hold, field by field.
//
//   Grammar    An encoded word means something else to a parser than the text in it, so where one may stand
//              depends on the field: anywhere in a Subject, in the display names of an address list, nowhere
//              in a parameter or a Message-ID.
#pragma once

#include <string>
#include <string_view>

namespace mailtree {

/// The grammar of a field's value.
enum class FieldGrammar {
  unstructured,  ///< Free text, and every field nobody knows.
  addresses,     ///< An address list.
  parameters,    ///< Content-Type, Content-Disposition.
  identifiers,   ///< Message identifiers and bare addresses: never decoded, so never encoded.
  structured     ///< Dates, tokens, and phrases or comments around them.
};

/// By the field's name, ignoring case.
FieldGrammar grammarOf(std::string_view fieldName) noexcept;

struct RenderedValue {
  std::string text;      ///< On one line, unfolded.
  bool complete = true;  ///< False: encoding would have lost something, and `text` is the value as it was.
};

/// Renders a utf-8 value, which may hold encoded words already, for one field. Reading the result gives what
/// reading the value gives. ASCII in fields that are not free text passes as it stands.
RenderedValue renderHeaderValue(std::string_view fieldName, std::string_view utf8, int codePage);

/// The same for a Content-Disposition of the form `type; filename="..."` in which the name is not escaped,
/// whatever it holds: it ends at the last double quote.
RenderedValue renderRawFilename(std::string_view value, int codePage);

}  // namespace mailtree
