#include "mailtree/message/answer_subject.h"

#include <algorithm>

#include "mailtree/base/Ascii.h"

namespace mailtree {
namespace {

/// What programs put before the subject of replies and forwarded messages, in their users' languages.
constexpr std::string_view kMarks[] = {
    "re",   "fw",          "fwd",                                                  // everywhere
    "aw",   "antwort",     "wg",                                                   // German
    "antw", "doorst",                                                              // Dutch
    "sv",   "vs",          "vb",    "vl",         "svar",                          // Nordic
    "r",    "rif",         "i",                                                    // Italian
    "res",  "enc",                                                                 // Portuguese
    "rv",                                                                          // Spanish
    "réf",  "rép",         "tr",    "RÉF",        "RÉP",                           // French
    "odp",  "pd",          "odg",   "prosl",                                       // Polish, Czech, Croatian
    "ats",  "atb",         "yml",                                                  // Lithuanian, Welsh
    "ynt",  "ilt",         "İLT",                                                  // Turkish
    "vá",   "Vá",          "VÁ",    "továbbítás",                                  // Hungarian
    "bls",  "trs",                                                                 // Indonesian
    "отв",  "Отв",         "ОТВ",   "на",         "НА",                            // Russian, Bulgarian
    "απ",   "Απ",          "ΑΠ",    "σχετ",       "Σχετ", "ΣΧΕΤ", "ΠΡΘ",           // Greek
    "השב",  "תגובה",       "תשובה", "הועבר",      "רד",                            // Hebrew
    "رد",   "إعادة توجيه",                                                         // Arabic
    "回复", "回復",        "回覆",  "答复",       "答覆", "转发", "轉寄", "轉發",  // Chinese
    "返信", "転送",                                                                // Japanese
    "답장", "회신",        "전달",                                                 // Korean
};

constexpr std::string_view kBlanks[] = {" ", "\t", "\u00A0", "\u3000"};
constexpr std::string_view kColons[] = {":", "："};

template <std::size_t N>
bool takeOneOf(const std::string_view (&wanted)[N], std::string_view& text) {
  for (const std::string_view each : wanted) {
    if (!text.starts_with(each)) continue;
    text.remove_prefix(each.size());
    return true;
  }
  return false;
}

std::string_view withoutBlanks(std::string_view text) {
  while (takeOneOf(kBlanks, text)) continue;
  return text;
}

/// Removes the number of answers: "[2]", "(2)", "^2" or "*2".
std::string_view withoutCount(std::string_view text) {
  if (text.empty() || !contains("[(^*", text.substr(0, 1))) return text;
  const char end = text[0] == '[' ? ']' : text[0] == '(' ? ')' : '\0';
  std::size_t at = 1;
  while (at < text.size() && isDigitAscii(text[at])) ++at;
  if (at == 1) return text;
  if (end == '\0') return text.substr(at);
  return at < text.size() && text[at] == end ? text.substr(at + 1) : text;
}

/// The text after a mark and its colon; the same text when it does not begin with one.
std::string_view afterMark(std::string_view text) {
  for (const std::string_view mark : kMarks) {
    if (!beginsWithNoCase(text, mark)) continue;
    std::string_view rest = withoutBlanks(withoutCount(withoutBlanks(text.substr(mark.size()))));
    if (takeOneOf(kColons, rest)) return withoutBlanks(rest);
  }
  return text;
}

/// The text after tags in square brackets; the same text when it does not begin with one.
std::string_view afterTags(std::string_view text) {
  while (text.starts_with('[')) {
    const std::size_t end = text.find(']');
    if (end == std::string_view::npos) break;
    text = withoutBlanks(text.substr(end + 1));
  }
  return text;
}

/// "[Fwd: Regatta]" is another way to mark a forwarded message (RFC 5256, 2.1).
std::string_view withoutFrame(std::string_view text) {
  if (!text.starts_with('[') || !text.ends_with(']')) return text;
  const std::string_view content = text.substr(1, text.size() - 2), rest = afterMark(content);
  return rest.size() < content.size() ? trim(rest) : text;
}

}  // namespace

std::string answerSubject(std::string_view prefix, std::string_view subject) {
  std::string tags;
  std::string_view text = trim(subject);
  for (std::size_t size = text.size() + 1; text.size() < size;) {
    size = text.size();
    text = withoutFrame(afterMark(text));
    const std::string_view rest = afterTags(text);
    if (afterMark(rest).size() == rest.size()) continue;
    // The same tags come again with each answer.
    const std::string_view found = text.substr(0, text.size() - rest.size());
    if (!tags.ends_with(found)) tags += found;
    text = rest;
  }
  return std::string(trim(std::string(prefix) + tags + std::string(text)));
}

}  // namespace mailtree
