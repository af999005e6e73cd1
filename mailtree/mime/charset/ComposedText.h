// mime/charset/ComposedText.h - text as programs compare it byte by byte: a letter and its accents are one
// character where there is one.
#pragma once

#include <string>

namespace mailtree {

/// The text, which is utf-8, in Normalization Form C of Unicode (UAX 15). Unchanged when it is that already,
/// or when more marks follow a letter than any writing has.
std::string composedText(std::string text);

}  // namespace mailtree
