#include "mailtree/mime/html/HtmlElements.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <iterator>

#include "mailtree/base/Ascii.h"

namespace mailtree {
namespace {

struct ElementRow {
  std::string_view name;
  Role role;
};

constexpr ElementRow kElements[] = {{"a", Role::link},           {"abbr", Role::text},
                                    {"address", Role::block},    {"area", Role::image},
                                    {"article", Role::block},    {"aside", Role::block},
                                    {"b", Role::text},           {"base", Role::nothing},
                                    {"basefont", Role::nothing}, {"bgsound", Role::nothing},
                                    {"big", Role::text},         {"blockquote", Role::quotation},
                                    {"body", Role::ignored},     {"br", Role::lineBreak},
                                    {"button", Role::text},      {"caption", Role::caption},
                                    {"center", Role::block},     {"cite", Role::text},
                                    {"code", Role::text},        {"col", Role::nothing},
                                    {"colgroup", Role::nothing}, {"datalist", Role::hidden},
                                    {"dd", Role::definition},    {"del", Role::text},
                                    {"details", Role::block},    {"dir", Role::list},
                                    {"div", Role::block},        {"dl", Role::paragraph},
                                    {"dt", Role::term},          {"em", Role::text},
                                    {"embed", Role::nothing},    {"fieldset", Role::block},
                                    {"figcaption", Role::block}, {"figure", Role::paragraph},
                                    {"font", Role::text},        {"footer", Role::block},
                                    {"form", Role::block},       {"frame", Role::nothing},
                                    {"frameset", Role::block},   {"h1", Role::paragraph},
                                    {"h2", Role::paragraph},     {"h3", Role::paragraph},
                                    {"h4", Role::paragraph},     {"h5", Role::paragraph},
                                    {"h6", Role::paragraph},     {"head", Role::ignored},
                                    {"header", Role::block},     {"hgroup", Role::block},
                                    {"hr", Role::rule},          {"html", Role::ignored},
                                    {"i", Role::text},           {"iframe", Role::text},
                                    {"img", Role::image},        {"input", Role::nothing},
                                    {"ins", Role::text},         {"kbd", Role::text},
                                    {"keygen", Role::nothing},   {"label", Role::text},
                                    {"legend", Role::block},     {"li", Role::item},
                                    {"link", Role::nothing},     {"listing", Role::preformatted},
                                    {"main", Role::block},       {"mark", Role::text},
                                    {"math", Role::hidden},      {"menu", Role::list},
                                    {"meta", Role::nothing},     {"nav", Role::block},
                                    {"noembed", Role::text},     {"noframes", Role::text},
                                    {"noscript", Role::text},    {"object", Role::text},
                                    {"ol", Role::orderedList},   {"optgroup", Role::block},
                                    {"option", Role::block},     {"p", Role::paragraph},
                                    {"param", Role::nothing},    {"plaintext", Role::text},
                                    {"pre", Role::preformatted}, {"q", Role::mark},
                                    {"s", Role::text},           {"samp", Role::text},
                                    {"script", Role::text},      {"section", Role::block},
                                    {"select", Role::hidden},    {"small", Role::text},
                                    {"source", Role::nothing},   {"span", Role::text},
                                    {"strike", Role::text},      {"strong", Role::text},
                                    {"style", Role::text},       {"sub", Role::text},
                                    {"summary", Role::block},    {"sup", Role::text},
                                    {"svg", Role::hidden},       {"table", Role::table},
                                    {"tbody", Role::rowGroup},   {"td", Role::cell},
                                    {"template", Role::hidden},  {"textarea", Role::text},
                                    {"tfoot", Role::rowGroup},   {"th", Role::cell},
                                    {"thead", Role::rowGroup},   {"title", Role::text},
                                    {"tr", Role::row},           {"track", Role::nothing},
                                    {"tt", Role::text},          {"u", Role::text},
                                    {"ul", Role::list},          {"var", Role::text},
                                    {"wbr", Role::nothing},      {"xml", Role::hidden},
                                    {"xmp", Role::text}};
static_assert(std::size(kElements) < kElementIds);

/// The first letters of a name in lower case, which tell the known ones apart, as a number: fast to compare.
constexpr std::uint64_t keyOf(std::string_view name) noexcept {
  std::uint64_t key = 0;
  for (std::size_t i = 0; i < sizeof key; ++i)
    key = key << 8 | (i < name.size() ? static_cast<unsigned char>(toLowerAscii(name[i])) : 0U);
  return key;
}

constexpr auto kKeys = [] {
  std::array<std::uint64_t, std::size(kElements)> keys{};
  std::transform(std::begin(kElements), std::end(kElements), keys.begin(),
                 [](const ElementRow& row) { return keyOf(row.name); });
  return keys;
}();
static_assert(std::is_sorted(kKeys.begin(), kKeys.end(), std::less_equal<>()));

/// An element that is only text: its end tag must find its start tag, so that what it hides ends.
Element unknownElement(std::string_view name) noexcept {
  std::size_t hash = 0;
  for (const char c : name) hash = hash * 31 + static_cast<unsigned char>(toLowerAscii(c));
  const std::size_t id = std::size(kElements) + hash % (kElementIds - std::size(kElements));
  return {static_cast<std::uint8_t>(id), Role::text};
}

}  // namespace

Element elementOf(std::string_view name) noexcept {
  const auto* const key = std::lower_bound(kKeys.begin(), kKeys.end(), keyOf(name));
  const auto id = static_cast<std::size_t>(key - kKeys.begin());
  if (id == kKeys.size() || !equalsNoCase(kElements[id].name, name)) return unknownElement(name);
  return {static_cast<std::uint8_t>(id), kElements[id].role};
}

}  // namespace mailtree
