// bench/texts.h - the texts that the coders and the charsets work on, the same bytes on every run.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace mailtree::bench {

/// As much of `text`, again and again, as makes up `size` bytes.
std::string repeated(std::string_view text, std::size_t size);

std::string randomBytes(std::size_t size);

/// What is written in quoted-printable.
struct Prose {
  const char* name;
  std::string_view text;
};
inline constexpr std::size_t kProseSize = 1 << 18;
extern const std::array<Prose, 4> kProse;

/// What people write in a code page, in utf-8, and how other libraries call that code page.
struct Language {
  const char* name;
  int codePage;
  const char* icuName;
  const char* iconvName;
  std::string_view sentence;
};
extern const std::array<Language, 15> kLanguages;

/// A text in one language: its sentences alone, or as a page holds them, with markup around each.
struct LanguageText {
  std::string name;  ///< Of the charset, "-page" behind it when there is markup.
  const Language* language;
  std::string utf8;
};
/// Both texts of every language, 64 kB each: what a long mail has.
std::array<LanguageText, 2 * kLanguages.size()> languageTexts();

}  // namespace mailtree::bench
