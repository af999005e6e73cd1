#include "mailtree/mime/HtmlVisibility.h"

#include <algorithm>
#include <string>

#include "mailtree/mime/HtmlReferences.h"

namespace mailtree {
namespace {

// "0", "0px", "0.00em", "0%": no size at all.
bool isZero(std::string_view value) noexcept {
  const std::size_t number = std::min(value.find_first_not_of("0."), value.size());
  const bool hasDigit = contains(value.substr(0, number), "0");
  const std::string_view unit = value.substr(number);
  return hasDigit && (unit == "%" || std::all_of(unit.begin(), unit.end(), isAlphaAscii));
}

// A property as it stands after all declarations: the last one counts, an important one before others.
class Property {
 public:
  void declare(std::string_view value, bool isImportant) noexcept {
    if (m_isImportant && !isImportant) return;
    m_value = value;
    m_isImportant = isImportant;
  }
  bool isSet() const noexcept { return !m_value.empty(); }
  bool is(std::string_view value) const noexcept { return equalsNoCase(m_value, value); }
  bool isNothing() const noexcept { return isZero(m_value); }

 private:
  std::string_view m_value;
  bool m_isImportant = false;
};

// The properties that can hide an element.
struct Style {
  Property display, visibility, opacity, fontSize, height, maxHeight, overflow;
  bool hasHeightAnyway = false;

  void read(std::string_view declarations) noexcept {
    while (!declarations.empty()) {
      const std::size_t end = std::min(declarations.find(';'), declarations.size());
      declare(declarations.substr(0, end));
      declarations.remove_prefix(std::min(end + 1, declarations.size()));
    }
  }

  bool isBoxOfNoHeight() const noexcept {
    return (height.isNothing() || maxHeight.isNothing()) && overflow.is("hidden") && !hasHeightAnyway;
  }

 private:
  void declare(std::string_view declaration) noexcept {
    const std::size_t colon = declaration.find(':');
    if (colon == std::string_view::npos) return;
    const std::string_view name = trim(declaration.substr(0, colon));
    std::string_view value = trim(declaration.substr(colon + 1));
    const std::size_t mark = value.rfind('!');
    const bool isImportant =
        mark != std::string_view::npos && equalsNoCase(trim(value.substr(mark + 1)), "important");
    if (isImportant) value = trimRight(value.substr(0, mark));
    if (value.empty()) return;
    const bool givesHeight = beginsWithNoCase(name, "padding") || equalsNoCase(name, "min-height");
    if (givesHeight && !isZero(value)) hasHeightAnyway = true;
    if (Property* const property = find(name)) property->declare(value, isImportant);
  }

  Property* find(std::string_view name) noexcept {
    const struct {
      std::string_view name;
      Property* property;
    } rows[] = {{"display", &display},    {"visibility", &visibility}, {"opacity", &opacity},
                {"font-size", &fontSize}, {"height", &height},         {"max-height", &maxHeight},
                {"overflow", &overflow}};
    for (const auto& row : rows)
      if (equalsNoCase(row.name, name)) return row.property;
    return nullptr;
  }
};

Visibility visibilityOf(const Style& style, bool hasHiddenAttribute, bool isBox) noexcept {
  // The attribute is a default: any display of the style's own wins over it.
  const bool noDisplay = style.display.isSet() ? style.display.is("none") : hasHiddenAttribute;
  if (noDisplay || style.opacity.isNothing()) return Visibility::hidden;
  if (isBox && style.isBoxOfNoHeight()) return Visibility::hidden;
  const bool noText = style.fontSize.isNothing() || style.visibility.is("hidden");
  return noText ? Visibility::textHidden : Visibility::shown;
}

}  // namespace

Visibility visibilityOf(const Markup& startTag, bool isBox) {
  std::string_view name, value, declarations;
  bool hasStyle = false, hasHiddenAttribute = false;
  for (AttributeReader attributes(startTag.attributes); attributes.next(name, value);) {
    hasHiddenAttribute = hasHiddenAttribute || equalsNoCase(name, "hidden");
    if (hasStyle || !equalsNoCase(name, "style")) continue;
    declarations = value;
    hasStyle = true;  // the first of several counts
  }
  Style style;
  const std::string decoded = contains(declarations, "&") ? decodeReferences(declarations) : std::string();
  style.read(decoded.empty() ? declarations : decoded);
  return visibilityOf(style, hasHiddenAttribute, isBox);
}

}  // namespace mailtree
