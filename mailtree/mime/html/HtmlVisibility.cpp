#include "mailtree/mime/html/HtmlVisibility.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "mailtree/mime/html/HtmlReferences.h"

namespace mailtree {
namespace {

constexpr std::string_view kLengthUnits[] = {"px", "pt", "em", "ex", "rem", "in",   "cm",  "mm",
                                             "pc", "q",  "ch", "vw", "vh",  "vmin", "vmax"};

// The text after a number that is 0; nothing when there is none.
std::optional<std::string_view> unitOfZero(std::string_view value) noexcept {
  const std::string_view number = value.substr(0, std::min(value.find_first_not_of("0."), value.size()));
  const bool isNumber = !number.empty() && number.back() != '.' && number.find('.') == number.rfind('.');
  if (!isNumber) return std::nullopt;
  return value.substr(number.size());
}

bool isZeroNumber(std::string_view value) noexcept { return unitOfZero(value) == ""; }
bool isZeroPercent(std::string_view value) noexcept { return unitOfZero(value) == "%"; }
bool isZeroLength(std::string_view value) noexcept {
  const std::optional<std::string_view> unit = unitOfZero(value);
  return unit && (unit->empty() || isOneOf(*unit, kLengthUnits));
}

// Where a declaration ends: at a semicolon outside quotes, brackets and comments.
std::size_t declarationEnd(std::string_view style) noexcept {
  char quote = '\0';
  int depth = 0;
  for (std::size_t i = 0; i < style.size(); ++i) {
    const char c = style[i];
    if (c == '\\') {
      ++i;
    } else if (quote) {
      if (c == quote) quote = '\0';
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '/' && style.substr(i).starts_with("/*")) {
      i = style.find("*/", i + 2);
      if (i == std::string_view::npos) return style.size();
      ++i;
    } else if (c == '(' || c == '[' || c == '{') {
      ++depth;
    } else if ((c == ')' || c == ']' || c == '}') && depth > 0) {
      --depth;
    } else if (c == ';' && depth == 0) {
      return i;
    }
  }
  return style.size();
}

std::string_view withoutCommentsBefore(std::string_view text) noexcept {
  for (text = trimLeft(text); text.starts_with("/*"); text = trimLeft(text)) {
    const std::size_t end = text.find("*/", 2);
    if (end == std::string_view::npos) return {};
    text.remove_prefix(end + 2);
  }
  return text;
}

// The value of a property after all declarations: the last one counts, an important one before others.
class Property {
 public:
  void declare(std::string_view value, bool isImportant) noexcept {
    if (m_isImportant && !isImportant) return;
    m_value = value;
    m_isImportant = isImportant;
  }
  bool isSet() const noexcept { return !m_value.empty(); }
  bool is(std::string_view value) const noexcept { return equalsNoCase(m_value, value); }
  std::string_view value() const noexcept { return m_value; }

 private:
  std::string_view m_value;
  bool m_isImportant = false;
};

// The properties that can hide an element.
struct Style {
  Property display, visibility, opacity, fontSize, height, maxHeight, overflow;
  Property whiteSpace, listStyle, margin, marginTop, marginBottom;
  bool hasHeightAnyway = false;

  // If a style sheet may override a declaration, only an important one is certain.
  void read(std::string_view declarations, bool isImportantOnly) noexcept {
    while (!declarations.empty()) {
      const std::size_t end = declarationEnd(declarations);
      declare(declarations.substr(0, end), isImportantOnly);
      declarations.remove_prefix(std::min(end + 1, declarations.size()));
    }
  }

  bool isOpaque() const noexcept { return !isZeroNumber(opacity.value()) && !isZeroPercent(opacity.value()); }
  bool hasText() const noexcept {
    return !isZeroLength(fontSize.value()) && !isZeroPercent(fontSize.value());
  }

  // A percentage refers to a height that is mostly unknown, and then has no effect; an inline element has no
  // height of its own, and a table grows.
  bool isBoxOfNoHeight() const noexcept {
    const bool isBlock = !display.isSet() || display.is("block") || display.is("inline-block");
    const bool isNothing = isZeroLength(height.value()) || isZeroLength(maxHeight.value());
    return isBlock && isNothing && overflow.is("hidden") && !hasHeightAnyway;
  }

 private:
  void declare(std::string_view declaration, bool isImportantOnly) noexcept {
    declaration = withoutCommentsBefore(declaration);
    const std::size_t colon = declaration.find(':');
    if (colon == std::string_view::npos) return;
    const std::string_view name = trimRight(declaration.substr(0, colon));
    std::string_view value = trim(declaration.substr(colon + 1));
    const std::size_t mark = value.rfind('!');
    const bool isImportant =
        mark != std::string_view::npos && equalsNoCase(trim(value.substr(mark + 1)), "important");
    if (isImportant) value = trimRight(value.substr(0, mark));
    if (value.empty()) return;
    const bool givesHeight = beginsWithNoCase(name, "padding") || equalsNoCase(name, "min-height");
    if (givesHeight && !isZeroLength(value) && !isZeroPercent(value)) hasHeightAnyway = true;
    if (isImportantOnly && !isImportant) return;
    if (Property* const property = find(name)) property->declare(value, isImportant);
  }

  Property* find(std::string_view name) noexcept {
    const struct {
      std::string_view name;
      Property* property;
    } rows[] = {{"display", &display},           {"visibility", &visibility},  {"opacity", &opacity},
                {"font-size", &fontSize},        {"height", &height},          {"max-height", &maxHeight},
                {"overflow", &overflow},         {"white-space", &whiteSpace}, {"list-style", &listStyle},
                {"list-style-type", &listStyle}, {"margin", &margin},          {"margin-top", &marginTop},
                {"margin-bottom", &marginBottom}};
    for (const auto& row : rows)
      if (equalsNoCase(row.name, name)) return row.property;
    return nullptr;
  }
};

bool isHiddenBy(const Style& style, bool hasHiddenAttribute) noexcept {
  // The attribute is a default: any display of the style attribute overrides it.
  const bool noDisplay = style.display.isSet() ? style.display.is("none") : hasHiddenAttribute;
  return noDisplay || !style.isOpaque();
}

Visibility visibilityOf(const Style& style, bool hasHiddenAttribute, bool isBox) noexcept {
  if (isHiddenBy(style, hasHiddenAttribute)) return Visibility::hidden;
  if (isBox && style.isBoxOfNoHeight()) return Visibility::hidden;
  const bool noText = !style.hasText() || style.visibility.is("hidden");
  return noText ? Visibility::textHidden : Visibility::shown;
}

// The attributes that decide whether an element is visible; the first of several counts.
struct Attributes {
  std::optional<std::string_view> style, classes, id;
  bool isHidden = false;

  explicit Attributes(const Markup& startTag) noexcept {
    std::string_view name, value;
    for (AttributeReader reader(startTag.attributes); reader.next(name, value);) {
      isHidden = isHidden || equalsNoCase(name, "hidden");
      if (equalsNoCase(name, "style") && !style) style = value;
      if (equalsNoCase(name, "class") && !classes) classes = value;
      if (equalsNoCase(name, "id") && !id) id = value;
    }
  }
};

std::string decoded(std::optional<std::string_view> value) {
  if (!value) return {};
  return contains(*value, "&") ? decodeReferences(*value) : std::string(*value);
}

constexpr bool isNameByte(char c) noexcept { return isAlnumAscii(c) || is8bit(c) || c == '-' || c == '_'; }

// Reads a name from the front of a style sheet, in lower case; skips one byte when there is none.
std::string takeName(std::string_view& sheet) {
  std::string name;
  std::size_t at = 0;
  for (; at < sheet.size() && (isNameByte(sheet[at]) || sheet[at] == '\\'); ++at) {
    if (sheet[at] == '\\' && ++at == sheet.size()) break;
    name.push_back(toLowerAscii(sheet[at]));
  }
  sheet.remove_prefix(std::min(std::max<std::size_t>(at, 1), sheet.size()));
  return name;
}

bool isHexDigit(char c) noexcept {
  return isDigitAscii(c) || (toLowerAscii(c) >= 'a' && toLowerAscii(c) <= 'f');
}

// Whether a style sheet may match names by substrings or write them with escapes.
bool hasPartialMatches(std::string_view sheet) noexcept {
  for (std::size_t i = 0; i + 1 < sheet.size(); ++i) {
    const std::string_view pair = sheet.substr(i, 2);
    if (pair == "*=" || pair == "^=" || pair == "$=" || pair == "|=") return true;
    if (pair[0] == '\\' && isHexDigit(pair[1])) return true;
  }
  return false;
}

constexpr std::string_view kBlockDisplays[] = {"block", "table", "list-item", "flex", "grid", "table-row"};
constexpr std::string_view kHeightBoxes[] = {"div", "p", "center", "section", "article", "blockquote"};
constexpr std::string_view kKeptSpaces[] = {"pre", "pre-wrap", "pre-line", "break-spaces"};

Inherited inheritedIf(bool isSet, bool value) noexcept {
  if (!isSet) return Inherited::asAround;
  return value ? Inherited::yes : Inherited::no;
}

// Sizes relative to that around, which may be 0, show nothing by themselves.
bool isRelativeSize(std::string_view size) noexcept {
  if (size.ends_with('%') || equalsNoCase(size, "inherit")) return true;
  return (endsWithNoCase(size, "em") && !endsWithNoCase(size, "rem")) || endsWithNoCase(size, "ex");
}

Inherited hasFontSize(const Style& style) noexcept {
  if (!style.hasText()) return Inherited::no;
  return inheritedIf(style.fontSize.isSet() && !isRelativeSize(style.fontSize.value()), true);
}

// Word writes .0001pt where it means none.
bool isNoMargin(std::string_view margin) noexcept {
  return isZeroLength(margin) || isZeroPercent(margin) || margin.starts_with(".00") ||
         margin.starts_with("0.00");
}

// The vertical margins: the first value of "margin" is the top, the third, if any, the bottom.
Inherited hasMargin(const Property& own, std::string_view all, bool isBottom) noexcept {
  std::string_view value = own.value();
  if (value.empty()) {
    std::size_t skipped = 0;
    for (std::string_view rest = trim(all); !rest.empty() && skipped < (isBottom ? 3U : 1U); ++skipped) {
      const std::size_t length = std::min(rest.find(' '), rest.size());
      if (skipped != 1) value = rest.substr(0, length);
      rest = trimLeft(rest.substr(length));
    }
  }
  return inheritedIf(!value.empty(), !isNoMargin(value));
}

}  // namespace

TextStyle textStyleOf(const Markup& startTag) {
  const Attributes attributes(startTag);
  TextStyle text;
  // Word's paragraphs have their margins in a style sheet, which sets them to 0.
  if (attributes.classes && beginsWithNoCase(*attributes.classes, "Mso"))
    text.hasSpaceAbove = text.hasSpaceBelow = Inherited::no;
  text.isHidden = attributes.isHidden;
  if (!attributes.style) return text;

  const std::string declarations = decoded(attributes.style);
  Style style;
  style.read(declarations, /*isImportantOnly=*/false);
  text.isHidden = isHiddenBy(style, attributes.isHidden) || isZeroLength(style.maxHeight.value()) ||
                  (isOneOf(startTag.name, kHeightBoxes) && style.isBoxOfNoHeight());
  text.isBlock = isOneOf(style.display.value(), kBlockDisplays);
  text.hasNoMarker = beginsWithNoCase(style.listStyle.value(), "none");
  text.isVisible = inheritedIf(style.visibility.isSet() && !style.visibility.is("inherit"),
                               !style.visibility.is("hidden") && !style.visibility.is("collapse"));
  text.hasFontSize = hasFontSize(style);
  text.keepsSpaces = inheritedIf(style.whiteSpace.isSet() && !style.whiteSpace.is("inherit"),
                                 isOneOf(style.whiteSpace.value(), kKeptSpaces));
  const Inherited above = hasMargin(style.marginTop, style.margin.value(), /*isBottom=*/false);
  const Inherited below = hasMargin(style.marginBottom, style.margin.value(), /*isBottom=*/true);
  if (above != Inherited::asAround) text.hasSpaceAbove = above;
  if (below != Inherited::asAround) text.hasSpaceBelow = below;
  return text;
}

StyleSheets::StyleSheets(std::string_view html) {
  HtmlScanner scanner(html);
  std::optional<std::size_t> sheetBegin;
  while (const std::optional<Markup> markup = scanner.next()) {
    if (sheetBegin) read(html.substr(*sheetBegin, markup->begin - *sheetBegin));
    sheetBegin.reset();
    if (markup->isStartOf("style")) sheetBegin = markup->end;
    const std::string_view rest = html.substr(markup->begin);
    if (markup->kind == Markup::Kind::unclosed && beginsWithNoCase(rest, "<style")) read(rest);
  }
}

void StyleSheets::read(std::string_view sheet) {
  if (!containsNoCase(sheet, "important")) return;
  m_matchesAnyName = m_matchesAnyName || hasPartialMatches(sheet);
  while (!sheet.empty()) {
    std::string name = takeName(sheet);
    if (!name.empty()) m_names.insert(std::move(name));
  }
}

bool StyleSheets::mayName(std::string_view names) const {
  while (!(names = trim(names)).empty()) {
    if (m_matchesAnyName) return true;
    const auto* const end = std::find_if(names.begin(), names.end(), isSpaceAscii);
    std::string name(names.begin(), end);
    std::transform(name.begin(), name.end(), name.begin(), toLowerAscii);
    if (m_names.contains(name)) return true;
    names.remove_prefix(name.size());
  }
  return false;
}

Visibility visibilityOf(const Markup& startTag, bool isBox, const StyleSheets& sheets) {
  const Attributes attributes(startTag);
  if (!attributes.style && !attributes.isHidden) return Visibility::shown;
  const std::string declarations = decoded(attributes.style);
  Style style;
  style.read(declarations, /*isImportantOnly=*/false);
  const Visibility visibility = visibilityOf(style, attributes.isHidden, isBox);
  if (visibility == Visibility::shown) return visibility;
  if (!sheets.mayName(decoded(attributes.classes)) && !sheets.mayName(decoded(attributes.id)))
    return visibility;
  Style certain;
  certain.read(declarations, /*isImportantOnly=*/true);
  return visibilityOf(certain, /*hasHiddenAttribute=*/false, /*isBox=*/false);
}

}  // namespace mailtree
