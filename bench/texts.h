// bench/texts.h - texts for coders and charsets, the same bytes on every run.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace mailtree::bench {

/// `text` repeated until it has at least `size` bytes.
std::string repeated(std::string_view text, std::size_t size);

std::string randomBytes(std::size_t size);

/// A text to encode in quoted-printable.
struct Prose {
  const char* name;
  std::string_view text;
};
inline constexpr std::size_t kProseSize = 1 << 18;
extern const std::array<Prose, 4> kProse;

/// A sentence typical for a code page, in utf-8, and the names of the code page in other libraries.
struct Language {
  const char* name;
  int codePage;
  const char* icuName;
  const char* iconvName;
  std::string_view sentence;
};
extern const std::array<Language, 15> kLanguages;

/// A text in one language, plain or as an HTML page.
struct LanguageText {
  std::string name;  ///< Name of the charset, followed by "-page" for HTML.
  const Language* language;
  std::string utf8;
};
/// Both texts of every language, 64 kB each.
std::array<LanguageText, 2 * kLanguages.size()> languageTexts();

}  // namespace mailtree::bench
