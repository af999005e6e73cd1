// mime/charset/FoldedText.h - text as people compare it when they search: neither letter case nor accents
// count.
#pragma once

#include <string>
#include <string_view>

namespace mailtree {

/// Appends utf-8 in lower case (Unicode case folding, compatibility forms replaced), without accents and
/// vowel points: "Ｓtraße É" becomes "strasse e". Characters that only look like a letter with an accent,
/// such as those of Indic and Japanese scripts, stay whole.
void appendFolded(std::string& out, std::string_view utf8);
std::string foldedText(std::string_view utf8);

}  // namespace mailtree
