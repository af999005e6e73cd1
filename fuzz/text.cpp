// HTML as plain text, and format=flowed.
#include <string>

#include "fuzz/target.h"
#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/FlowedText.h"
#include "mailtree/mime/html/HtmlScanner.h"
#include "mailtree/mime/html/HtmlText.h"

using namespace mailtree;

namespace {

/// What a text may grow by: prefixes, numbers of links, columns.
constexpr std::size_t kGrowth = 20, kAlways = 100;

std::size_t tagsOf(std::string_view text) {
  std::size_t tags = 0;
  HtmlScanner scanner(text);
  while (const std::optional<Markup> markup = scanner.next()) tags += markup->kind == Markup::Kind::startTag;
  return tags;
}

bool hasLoneBracket(std::string_view html) {
  for (std::size_t at = 0; (at = html.find('<', at)) != html.npos; ++at) {
    const char next = at + 1 < html.size() ? html[at + 1] : ' ';
    if (!isAlphaAscii(next) && next != '/' && next != '!' && next != '?') return true;
  }
  return false;
}

void page(std::string_view html) {
  const std::string text = textOfHtml(html);
  fuzz::require(isValidUtf8(text) || !isValidUtf8(html), "the text of valid utf-8 is valid");
  fuzz::require(text.size() <= kGrowth * html.size() + kAlways, "the text is not much longer than the page");
  fuzz::require(text.empty() || (text.back() == '\n' && text.front() != '\n'),
                "lines end, and begin with text");
  fuzz::require(!contains(text, "\n\n\n") && !contains(text, " \n"),
                "one empty line, no blanks at line ends");
  // References and attributes may spell a tag; a lone "<" may become one with the text after the next tag.
  const bool maySpellTags = contains(html, "&") || containsNoCase(html, "alt") ||
                            containsNoCase(html, "href") || hasLoneBracket(html);
  fuzz::require(maySpellTags || tagsOf(text) == 0, "no tag is left");
}

std::string withoutBlanksAtEnds(std::string_view text) {
  std::string plain;
  for (const char c : text) {
    if (c == '\n' || c == '\r') plain.resize(plain.find_last_not_of(' ') + 1);
    plain += c == '\r' ? '\n' : c;
  }
  plain.resize(plain.find_last_not_of(' ') + 1);
  return plain;
}

void flowed(std::string_view text) {
  for (const bool delSp : {false, true}) {
    const std::string unwrapped = unwrapFlowed(text, delSp);
    fuzz::require(isValidUtf8(unwrapped) || !isValidUtf8(text), "joining lines keeps utf-8 valid");
    fuzz::require(unwrapped.size() <= 2 * text.size() + 1, "joining lines makes no text");
    fuzz::require(!contains(unwrapped, "\r"), "lines end in LF");
  }
  const std::string plain = withoutBlanksAtEnds(text);
  fuzz::require(unwrapFlowed(wrapFlowed(plain), /*delSp=*/false) == plain, "joining undoes breaking");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::textOf(data, size);
  page(text);
  flowed(text);
  return 0;
}
