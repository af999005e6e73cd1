#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mailtree/base/Log.h"
#include "mailtree/mime/html/HtmlPage.h"
#include "mailtree/mime/html/HtmlReferences.h"
#include "mailtree/mime/html/HtmlScanner.h"
#include "mailtree/mime/html/HtmlVisibility.h"

// Three passes, ordered to leave nothing for a second call: first letters in references, because
// they end what looks like an unfinished reference; then invisible elements, because the words
// around them join; then markup inside words.

namespace mailtree {
namespace {

using Kind = Markup::Kind;

// Elements of inline text that mean nothing when empty.
constexpr std::string_view kInline[] = {"span",  "font", "b",      "i",    "u",    "s",       "em",  "strong",
                                        "small", "big",  "sub",    "sup",  "tt",   "code",    "kbd", "samp",
                                        "var",   "cite", "dfn",    "abbr", "bdo",  "acronym", "q",   "del",
                                        "ins",   "mark", "strike", "bdi",  "label"};
// Boxes that may be removed when invisible, and may be inside a removed element. Each ends an open paragraph.
constexpr std::string_view kBoxes[] = {"div", "p", "center"};
// Elements without content that may be inside a removed element.
constexpr std::string_view kVoid[] = {"br", "img", "wbr"};
// More elements that end an open paragraph; those common in mail are enough, because a
// missing one only keeps content.
constexpr std::string_view kBlocks[] = {"table", "td", "th", "ul", "ol", "li", "h1",         "h2",
                                        "h3",    "h4", "h5", "h6", "hr", "dl", "blockquote", "body"};

bool isPlainlyInline(std::string_view name) noexcept { return isOneOf(name, kInline); }
bool isInline(std::string_view name) noexcept { return equalsNoCase(name, "a") || isPlainlyInline(name); }

// Inline and without an attribute that shows, moves or names something.
bool isBare(const Markup& startTag) noexcept {
  constexpr std::string_view kHarmless[] = {"color", "face", "lang"};
  if (!isPlainlyInline(startTag.name)) return false;
  std::string_view name, value;
  for (AttributeReader attributes(startTag.attributes); attributes.next(name, value);)
    if (!isOneOf(name, kHarmless)) return false;
  return true;
}

// Comments with a meaning for some programs: "<!--[if mso]>", "<![endif]>".
bool isConditional(std::string_view comment) noexcept {
  return comment.starts_with("<![") || containsNoCase(comment, "[if") || containsNoCase(comment, "[endif");
}

// Whether the text before a position could become a tag or a character reference when other text moves next
// to it. Looks back no further than the previous markup, so a page is scanned once in total.
bool isUnfinishedBefore(std::string_view html, std::size_t position) noexcept {
  std::size_t at = position;
  while (at > 0 && (isAlnumAscii(html[at - 1]) || html[at - 1] == '#')) --at;
  if (at > 0 && html[at - 1] == '&') return true;
  const std::string_view before = html.substr(0, position);
  return before.ends_with('<') || before.ends_with("</");
}

// Copies a page and replaces the numeric references to ASCII letters and digits in its
// text by these characters.
class LetterDecoder {
 public:
  static std::string decode(std::string_view html) {
    LetterDecoder decoder(html);
    bool isRawText = false;
    std::size_t textBegin = 0;
    HtmlScanner scanner(html);
    while (const std::optional<Markup> markup = scanner.next()) {
      decoder.copyText(html.substr(textBegin, markup->begin - textBegin), isRawText);
      decoder.m_out.append(html.substr(markup->begin, markup->end - markup->begin));
      decoder.m_mayDecode = true;
      textBegin = markup->end;
      isRawText = markup->kind == Kind::startTag && isRawTextElement(markup->name);
    }
    decoder.copyText(html.substr(textBegin), isRawText);
    return std::move(decoder.m_out);
  }

 private:
  explicit LetterDecoder(std::string_view html) { m_out.reserve(html.size()); }

  void copyText(std::string_view text, bool isRawText) {
    if (isRawText) {
      m_out.append(text);
      return;
    }
    while (!text.empty()) {
      const std::size_t plain = std::min(text.find('&'), text.size());
      copyPlain(text.substr(0, plain));
      text.remove_prefix(plain);
      if (!text.empty()) text.remove_prefix(copyReference(text));
    }
  }

  // A letter must not complete a tag or another reference: "<&#98;>", "&&#97;mp;".
  void copyPlain(std::string_view text) {
    if (text.empty()) return;
    m_out.append(text);
    const bool mayBeReference = !m_mayDecode && std::all_of(text.begin(), text.end(), isReferenceByte);
    m_mayDecode = !mayBeReference && !text.ends_with('<') && !text.ends_with("</");
  }

  // Returns the length copied: a letter's reference, or a lone "&".
  std::size_t copyReference(std::string_view text) {
    char32_t codePoint = 0;
    const std::size_t length = m_mayDecode ? readNumericReference(text, codePoint) : 0;
    if (length > 0 && codePoint < 0x80 && isAlnumAscii(static_cast<char>(codePoint))) {
      m_out.push_back(static_cast<char>(codePoint));
      return length;
    }
    m_out.push_back('&');
    m_mayDecode = false;
    return 1;
  }

  static bool isReferenceByte(char c) noexcept { return isAlnumAscii(c) || c == '#'; }

  std::string m_out;
  bool m_mayDecode = true;
};

struct Range {
  std::size_t begin, end;
};

// Finds the invisible elements to remove. Tags that a browser could nest differently than written (an end tag
// that does not match, an element that ends another one) end all open elements, and these stay.
class InvisibleFinder {
 public:
  static std::vector<Range> find(std::string_view html) {
    InvisibleFinder finder(html);
    HtmlScanner scanner(html);
    while (const std::optional<Markup> markup = scanner.next()) finder.see(*markup);
    return std::move(finder.m_found);
  }

 private:
  struct Element {
    std::string_view name;
    std::size_t begin;
    Visibility visibility;
    bool isBare;
    bool hasOtherContent = false;  // Content other than text in bare elements.
  };

  explicit InvisibleFinder(std::string_view html) : m_html(html), m_sheets(html) {}

  void see(const Markup& markup) {
    switch (markup.kind) {
      case Kind::startTag: onStartTag(markup); break;
      case Kind::endTag: onEndTag(markup); break;
      case Kind::comment:
        if (!m_open.empty() && isConditional(m_html.substr(markup.begin, markup.end - markup.begin)))
          m_open.clear();
        break;
      case Kind::prologue:
      case Kind::unclosed: m_open.clear(); break;
    }
  }

  void onStartTag(const Markup& tag) {
    if (isOneOf(tag.name, kVoid)) return recordOtherContent();
    const bool isBox = isOneOf(tag.name, kBoxes);
    if (!isBox && !isInline(tag.name)) {
      m_open.clear();
      if (isOneOf(tag.name, kBlocks)) m_mayBeInParagraph = false;
      return;
    }
    const bool endsAnother = isBox ? m_mayBeInParagraph : m_mayBeInLink && equalsNoCase(tag.name, "a");
    if (endsAnother) m_open.clear();
    if (isBox) m_mayBeInParagraph = equalsNoCase(tag.name, "p");
    if (equalsNoCase(tag.name, "a")) m_mayBeInLink = true;
    m_open.push_back({tag.name, tag.begin,
                      endsAnother ? Visibility::shown : visibilityOf(tag, isBox, m_sheets), isBare(tag)});
  }

  void onEndTag(const Markup& tag) {
    if (equalsNoCase(tag.name, "p")) m_mayBeInParagraph = false;
    if (equalsNoCase(tag.name, "a")) m_mayBeInLink = false;
    if (m_open.empty() || !equalsNoCase(m_open.back().name, tag.name)) return m_open.clear();
    const Element element = m_open.back();
    m_open.pop_back();
    if (mayBeRemoved(element)) return take({element.begin, tag.end});
    if (!element.isBare || element.hasOtherContent) recordOtherContent();
  }

  bool mayBeRemoved(const Element& element) const noexcept {
    if (element.visibility == Visibility::shown) return false;
    if (element.visibility == Visibility::textHidden && element.hasOtherContent) return false;
    return !isUnfinishedBefore(m_html, element.begin);
  }

  void take(Range range) {
    while (!m_found.empty() && m_found.back().begin > range.begin) m_found.pop_back();  // nested ranges
    m_found.push_back(range);
  }

  void recordOtherContent() noexcept {
    if (!m_open.empty()) m_open.back().hasOtherContent = true;
  }

  std::string_view m_html;
  StyleSheets m_sheets;
  std::vector<Element> m_open;
  std::vector<Range> m_found;
  bool m_mayBeInParagraph = false;
  bool m_mayBeInLink = false;
};

std::string withoutInvisible(std::string html) {
  const std::vector<Range> found = InvisibleFinder::find(html);
  if (found.empty()) return html;
  std::string out;
  out.reserve(html.size());
  std::size_t kept = 0;
  for (const Range& range : found) {
    out.append(html, kept, range.begin - kept);
    kept = range.end;
  }
  return out.append(html, kept);
}

// Copies a page without comments and empty elements inside words. A run is the markup between two texts; it
// is inside a word when it is inline throughout and neither text has white space next to it.
class WordRepairer {
 public:
  static std::string repair(std::string_view html) {
    WordRepairer repairer(html);
    HtmlScanner scanner(html);
    while (const std::optional<Markup> markup = scanner.next()) {
      repairer.onText(markup->begin);
      repairer.onMarkup(*markup);
    }
    repairer.onText(html.size());
    repairer.endRun(false);
    return std::move(repairer.m_out);
  }

 private:
  struct Tag {
    std::size_t begin, end;
    std::string_view openName;  // Of the start tag of a bare element; else empty.
  };

  explicit WordRepairer(std::string_view html) : m_html(html) { m_out.reserve(html.size()); }

  void onText(std::size_t end) {
    if (m_runEnd == end) return;
    const std::string_view text = m_html.substr(m_runEnd, end - m_runEnd);
    endRun(!isSpaceAscii(text.front()));
    m_out.append(text);
    m_runBegin = m_runEnd = end;
    m_isInWord = !isSpaceAscii(text.back()) && !isUnfinishedBefore(m_html, end);
  }

  void onMarkup(const Markup& markup) {
    m_runEnd = markup.end;
    if (!m_isInWord) return;
    const bool isTag = markup.kind == Kind::startTag || markup.kind == Kind::endTag;
    const bool isComment = markup.kind == Kind::comment &&
                           !isConditional(m_html.substr(markup.begin, markup.end - markup.begin));
    m_isInWord = isComment || (isTag && isInline(markup.name));
    if (!m_isInWord || isComment) return;
    if (!m_kept.empty() && !m_kept.back().openName.empty() && markup.isEndOf(m_kept.back().openName))
      return m_kept.pop_back();
    const bool opens = markup.kind == Kind::startTag && isBare(markup);
    m_kept.push_back({markup.begin, markup.end, opens ? markup.name : std::string_view()});
  }

  void endRun(bool wordFollows) {
    if (m_isInWord && wordFollows) {
      for (const Tag& tag : m_kept) m_out.append(m_html.substr(tag.begin, tag.end - tag.begin));
    } else {
      m_out.append(m_html.substr(m_runBegin, m_runEnd - m_runBegin));
    }
    m_kept.clear();
  }

  std::string_view m_html;
  std::string m_out;
  std::size_t m_runBegin = 0, m_runEnd = 0;
  bool m_isInWord = false;  // The text before the run and the run so far are.
  std::vector<Tag> m_kept;  // Of the run, when it is in a word.
};

}  // namespace

void _svHtml::unSpam(LogBase& log) {
  const bool cleaned = neverThrow(false, [&] {
    if (looksLikeUtf16(m_html)) return true;
    m_html.text() = WordRepairer::repair(withoutInvisible(LetterDecoder::decode(m_html)));
    return true;
  });
  if (!cleaned) log.logError("Failed to clean up the HTML.");
}

}  // namespace mailtree
