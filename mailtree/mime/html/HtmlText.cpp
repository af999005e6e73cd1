#include "mailtree/mime/html/HtmlText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/html/HtmlElements.h"
#include "mailtree/mime/html/HtmlReferences.h"
#include "mailtree/mime/html/HtmlScanner.h"
#include "mailtree/mime/html/HtmlVisibility.h"
#include "mailtree/mime/html/TextLines.h"
#include "mailtree/mime/html/TextTable.h"

namespace mailtree {
namespace {

constexpr std::string_view kRule = "--------------------";
/// Addresses that mean nothing, or nothing good, outside their page.
constexpr std::string_view kOmittedSchemes[] = {
    "javascript:", "vbscript:",   "data:",  "about:", "blob:",  "cid:",
    "#",           "livescript:", "mocha:", "file:",  "x-apple"};

/// White space that browsers collapse, and the spaces of Unicode that pages use like it.
bool isSpace(char32_t c) noexcept {
  return (c >= 0x2000 && c <= 0x200A) || c == 0x202F || c == 0x205F ||
         (c < 0x80 && isSpaceAscii(static_cast<char>(c)));
}

/// Characters that nobody sees: controls, soft hyphens, zero-width marks.
bool isInvisible(char32_t c) noexcept {
  return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0xAD || c == 0x34F || c == 0x200B ||
         (c >= 0x2060 && c <= 0x2064) || c == 0xFEFF;
}

/// Marks that join or separate letters, invisible elsewhere: newsletters fill their preview line with them.
bool isJoiner(char32_t c) noexcept { return c >= 0x200C && c <= 0x200F; }

/// Whether a byte is shown as it is: not white space, "&" or the first byte of a character named above.
constexpr auto kIsPlain = [] {
  std::array<bool, 256> table{};
  for (std::size_t byte = 0x21; byte < table.size(); ++byte)
    table[byte] = byte != '&' && byte != 0x7F && byte != 0xC2 && byte != 0xCD && byte != 0xE2 && byte != 0xEF;
  return table;
}();
bool isPlain(char c) noexcept { return kIsPlain[static_cast<unsigned char>(c)]; }

/// The number an attribute begins with.
std::size_t numberOf(std::string_view value, std::size_t otherwise) noexcept {
  constexpr std::size_t kLargest = 99999;
  value = trimLeft(value);
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  return error == std::errc() && number <= kLargest ? number : otherwise;
}

/// An address as people write it, for comparison: without scheme, "www." and a slash at the end.
std::string_view plainAddress(std::string_view address) noexcept {
  for (const std::string_view scheme : {"mailto:", "https://", "http://", "tel:"}) {
    if (!beginsWithNoCase(address, scheme)) continue;
    if (scheme == "mailto:") address = address.substr(0, address.find('?'));
    address.remove_prefix(scheme.size());
    break;
  }
  if (beginsWithNoCase(address, "www.")) address.remove_prefix(4);
  if (address.ends_with('/')) address.remove_suffix(1);
  return address;
}

/// Numbers the addresses of links.
class Links {
 public:
  /// A link begins; only one is open at a time.
  void open(const Markup& startTag) {
    m_address = urlOfReference(firstAttribute(startTag, "href"));
    const auto isControl = [](char c) { return isControlAscii(c); };
    const bool isOmitted =
        std::any_of(std::begin(kOmittedSchemes), std::end(kOmittedSchemes),
                    [this](std::string_view scheme) { return beginsWithNoCase(m_address, scheme); });
    if (isOmitted || std::any_of(m_address.begin(), m_address.end(), isControl)) m_address.clear();
    m_text.clear();
    m_isOpen = true;
  }

  void addText(std::string_view text) {
    if (m_isOpen && m_text.size() <= m_address.size()) m_text += text;
  }

  /// The mark for a link that ends here; empty when it needs none.
  std::string close() {
    const bool isMarked = m_isOpen && !m_text.empty() && !m_address.empty() &&
                          !equalsNoCase(plainAddress(m_text), plainAddress(m_address));
    m_isOpen = false;
    if (!isMarked) return {};
    const auto [entry, isNew] = m_numbers.try_emplace(std::move(m_address), m_numbers.size() + 1);
    if (isNew) m_addresses.push_back(entry->first);
    return "[" + std::to_string(entry->second) + "]";
  }

  void appendList(std::string& out) const {
    if (!m_addresses.empty() && !out.empty()) out += '\n';
    for (std::size_t i = 0; i < m_addresses.size(); ++i)
      out.append("[").append(std::to_string(i + 1)).append("] ").append(m_addresses[i]) += '\n';
  }

 private:
  bool m_isOpen = false;
  std::string m_address, m_text;
  std::unordered_map<std::string, std::size_t> m_numbers;
  std::vector<std::string_view> m_addresses;  ///< Keys of m_numbers.
};

const std::size_t kParagraphId = elementOf("p").id, kTableId = elementOf("table").id,
                  kRowId = elementOf("tr").id, kItemId = elementOf("li").id,
                  kDefinitionsId = elementOf("dl").id, kTermId = elementOf("dt").id,
                  kDefinitionId = elementOf("dd").id;

/// The elements around a position in the page.
class TextReader {
 public:
  static std::string read(std::string_view html) {
    TextReader reader;
    HtmlScanner scanner(html);
    std::size_t textBegin = 0;
    while (const std::optional<Markup> markup = scanner.next()) {
      reader.onText(html.substr(textBegin, markup->begin - textBegin));
      reader.onMarkup(*markup);
      textBegin = markup->end;
    }
    reader.onText(html.substr(textBegin));
    return std::move(reader).finish();
  }

 private:
  using Index = std::uint32_t;  // in m_open; the stack of a page of unclosed elements is large
  static constexpr Index kNone = static_cast<Index>(-1);

  /// What holds for the text inside an element.
  struct State {
    bool isHidden = false, isInvisible = false, hasNoSize = false, keepsSpaces = false;
  };
  struct Open {
    Element element;
    State outside;
    bool isBlock = false;
    bool hasSpaceBelow = false;
    Index sameId = kNone;  ///< The next one outwards of the same id, in m_open.
    Index outerScope = kNone;
    Index outerList = kNone;
    Index outerBlocks = 0;  ///< Prefixes outside.
  };
  struct List {
    bool isOrdered, hasMarkers;
    std::size_t next;
    bool hasItems = false;
  };

  TextReader() { m_last.fill(kNone); }

  std::string finish() && {
    closeTo(0);
    std::string out = std::move(m_lines).finish();
    m_links.appendList(out);
    return out;
  }

  void onMarkup(const Markup& markup) {
    m_isRawText = false;
    if (markup.kind == Markup::Kind::startTag) onStart(markup);
    if (markup.kind == Markup::Kind::endTag) onEnd(markup);
  }

  // Elements ---------------------------------------------------------------------------------------------

  void onStart(const Markup& tag) {
    m_isRawText = isRawTextElement(tag.name);
    const Element element = elementOf(tag.name);
    if (element.role == Role::ignored || element.role == Role::nothing) return;
    const TextStyle style = tag.attributes.empty() ? TextStyle() : textStyleOf(tag);
    if (element.role == Role::lineBreak) return onLineBreak();
    if (element.role == Role::image) return onImage(tag, style);
    const bool isInline = element.role == Role::text || element.role == Role::link ||
                          element.role == Role::mark || element.role == Role::hidden;
    if (!isInline) endImpliedBy(element.role);
    if (element.role == Role::rule) return onRule();
    if (element.role == Role::hidden && tag.attributes.ends_with('/')) return;
    push(element, style, style.isBlock || !isInline);
    if (m_open.back().isBlock) beginBlock(element, style);
    if (!m_state.isHidden) begin(element, tag, style);
  }

  void onEnd(const Markup& tag) {
    const Element element = elementOf(tag.name);
    if (element.role == Role::lineBreak) return onLineBreak();
    const Index at = m_last[element.id];
    const bool isPartOfTable = element.role == Role::table || element.role == Role::rowGroup ||
                               element.role == Role::row || element.role == Role::cell ||
                               element.role == Role::caption;
    const Index scope = isPartOfTable ? m_last[kTableId] : m_scope;
    const bool isOpen = at != kNone && (scope == kNone || at >= scope);
    if (isOpen)
      closeTo(at);
    else if (element.role == Role::paragraph && !m_state.isHidden)
      m_lines.endParagraph();
  }

  void push(Element element, const TextStyle& style, bool isBlock) {
    Open open;
    open.element = element;
    open.outside = m_state;
    open.isBlock = isBlock;
    open.sameId = m_last[element.id];
    open.outerScope = m_scope;
    open.outerList = m_list;
    open.outerBlocks = static_cast<Index>(m_lines.openBlocks());
    const auto position = static_cast<Index>(m_open.size());
    m_last[element.id] = position;
    if (element.role == Role::table || element.role == Role::cell || element.role == Role::caption)
      m_scope = position;
    if (isList(element.role)) m_list = position;
    m_open.push_back(open);

    m_state.isHidden = m_state.isHidden || style.isHidden || element.role == Role::hidden;
    inherit(m_state.isInvisible, style.isVisible, Inherited::no);
    inherit(m_state.hasNoSize, style.hasFontSize, Inherited::no);
    inherit(m_state.keepsSpaces, style.keepsSpaces, Inherited::yes);
  }

  static void inherit(bool& state, Inherited value, Inherited whenTrue) noexcept {
    if (value != Inherited::asAround) state = value == whenTrue;
  }

  /// Closes elements from the innermost one until so many are left.
  void closeTo(std::size_t count) {
    while (m_open.size() > count) {
      const Open open = m_open.back();
      end(open);
      m_open.pop_back();
      m_last[open.element.id] = open.sameId;
      m_scope = open.outerScope;
      m_list = open.outerList;
      m_state = open.outside;
    }
  }

  /// Whether one position is inside of another one, if there is one.
  static bool isInside(Index at, Index outer) noexcept {
    return at != kNone && (outer == kNone || at > outer);
  }

  /// Ends an element, unless it is outside of the innermost table, cell or caption, or of `outer`.
  void endInScope(Index at, Index outer = kNone) {
    if (isInside(at, m_scope) && isInside(at, outer)) closeTo(at);
  }

  /// Ends what the start of a block ends: a paragraph, and its own predecessors.
  void endImpliedBy(Role role) {
    endInScope(m_last[kParagraphId]);
    const Index table = m_last[kTableId];
    switch (role) {
      case Role::item: endInScope(m_last[kItemId], m_list); break;
      case Role::term:
      case Role::definition:
        endInScope(m_last[kTermId], m_last[kDefinitionsId]);
        endInScope(m_last[kDefinitionId], m_last[kDefinitionsId]);
        break;
      case Role::table:
        if (m_scope != kNone && m_scope == table) closeTo(table);  // directly in a table, not in its cell
        break;
      case Role::caption:
      case Role::rowGroup:
        if (table != kNone) closeTo(table + 1);
        break;
      case Role::row:
        if (isInside(m_last[kRowId], table) && table != kNone) return closeTo(m_last[kRowId]);
        [[fallthrough]];
      case Role::cell:
        if (table != kNone && isInside(m_scope, table)) closeTo(m_scope);
        break;
      default: break;
    }
  }

  void beginBlock(Element element, const TextStyle& style) {
    const bool isLoose = element.role == Role::paragraph || element.role == Role::quotation ||
                         element.role == Role::preformatted || (isList(element.role) && m_lists.empty());
    m_open.back().hasSpaceBelow = hasSpace(style.hasSpaceBelow, isLoose, element);
    if (m_open.back().outside.isHidden) return;
    if (element.role == Role::cell || element.role == Role::row)
      m_lines.endCell();
    else
      endBlock(hasSpace(style.hasSpaceAbove, isLoose, element));
  }

  static bool hasSpace(Inherited margin, bool isLoose, Element element) noexcept {
    return isLoose && (margin != Inherited::no || element.role != Role::paragraph);
  }
  static bool isList(Role role) noexcept { return role == Role::list || role == Role::orderedList; }

  void begin(Element element, const Markup& tag, const TextStyle& style) {
    switch (element.role) {
      case Role::link:
        endLink();
        m_links.open(tag);
        break;
      case Role::list:
      case Role::orderedList:
        m_lists.push_back({element.role == Role::orderedList, !style.hasNoMarker,
                           numberOf(firstAttribute(tag, "start"), 1)});
        break;
      case Role::item: beginItem(tag, style); break;
      case Role::definition: m_lines.openBlock("    ", "    "); break;
      case Role::quotation: m_lines.openBlock("> ", "> "); break;
      case Role::mark: append("\""); break;
      case Role::preformatted:
        m_state.keepsSpaces = true;
        m_skipsLineBreak = true;
        break;
      case Role::table: m_tables.emplace_back(m_lines); break;
      default: break;
    }
    if (!m_tables.empty()) beginInTable(element, tag);
  }

  void beginInTable(Element element, const Markup& tag) {
    TextTable& table = m_tables.back();
    const bool isHeading = tag.isStartOf("th") || tag.isStartOf("thead");
    const bool hasBorder = element.role == Role::table && numberOf(firstAttribute(tag, "border"), 0) > 0;
    if (isHeading || hasBorder || element.role == Role::caption) table.setData();
    if (element.role == Role::row || element.role == Role::caption) table.beginRow();
    if (element.role != Role::cell && element.role != Role::caption) return;
    table.beginCell(m_lines, numberOf(firstAttribute(tag, "colspan"), 1),
                    numberOf(firstAttribute(tag, "rowspan"), 1));
  }

  void beginItem(const Markup& tag, const TextStyle& style) {
    if (m_lists.empty()) return m_lines.openBlock("* ", "  ");
    List& list = m_lists.back();
    if (std::exchange(list.hasItems, true)) m_lines.closeUp();
    if (list.isOrdered) list.next = numberOf(firstAttribute(tag, "value"), list.next);
    if (!list.hasMarkers || style.hasNoMarker) return;
    const std::string marker = list.isOrdered ? std::to_string(list.next++) + ". " : "* ";
    m_lines.openBlock(marker, std::string(marker.size(), ' '));
  }

  void end(const Open& open) {
    if (!m_state.isHidden) endVisible(open.element.role);
    if (!open.isBlock || open.outside.isHidden) return;
    if (open.element.role == Role::cell || open.element.role == Role::row)
      m_lines.endCell();
    else
      endBlock(open.hasSpaceBelow);
    m_lines.closeBlocks(open.outerBlocks);
  }

  void endBlock(bool hasSpace) {
    if (hasSpace)
      m_lines.endParagraph();
    else
      m_lines.endLine();
  }

  void endVisible(Role role) {
    switch (role) {
      case Role::link: endLink(); break;
      case Role::mark: append("\""); break;
      case Role::list:
      case Role::orderedList: m_lists.pop_back(); break;
      case Role::table: endTable(); break;
      case Role::cell:
      case Role::caption:
        m_lines.endCell();
        if (!m_tables.empty()) m_tables.back().endCell(m_lines);
        break;
      default: break;
    }
  }

  void endTable() {
    m_lines.endCell();
    TextTable table = std::move(m_tables.back());
    m_tables.pop_back();
    if (!m_tables.empty()) m_tables.back().addInner(table);
    if (table.finish(m_lines)) m_lines.endParagraph();
  }

  void endLink() {
    const std::string mark = m_links.close();
    if (!mark.empty()) m_lines.appendMark(mark);
  }

  bool isTextShown() const noexcept {
    return !m_state.isHidden && !m_state.isInvisible && !m_state.hasNoSize;
  }

  void onLineBreak() {
    if (!m_state.isHidden) m_lines.lineBreak();
  }

  void onRule() {
    if (m_state.isHidden) return;
    m_lines.endParagraph();
    m_lines.append(kRule);
    m_lines.endParagraph();
  }

  /// Text of size 0 does not hide an image, and newsletters have their images in such boxes.
  void onImage(const Markup& tag, const TextStyle& style) {
    constexpr std::size_t kTrackingPixel = 2, kUsual = 100;
    if (m_state.isHidden || style.isHidden || style.isVisible == Inherited::no) return;
    if (m_state.isInvisible && style.isVisible != Inherited::yes) return;
    for (const std::string_view side : {"width", "height"})
      if (numberOf(firstAttribute(tag, side), kUsual) <= kTrackingPixel) return;
    const std::string_view alternative = trim(firstAttribute(tag, "alt"));
    if (alternative.empty()) return;
    if (style.isBlock) m_lines.endLine();
    onSpace(' ');
    const State outside = std::exchange(m_state, State());
    appendText(alternative);
    m_state = outside;
    m_isAfterImage = true;
    if (style.isBlock) m_lines.endLine();
  }

  // Text -------------------------------------------------------------------------------------------------

  void onText(std::string_view text) {
    if (!m_isRawText && isTextShown()) appendText(text);
  }

  void appendText(std::string_view text) {
    while (!text.empty()) {
      const auto* const end = std::find_if_not(text.begin(), text.end(), isPlain);
      std::size_t length = static_cast<std::size_t>(end - text.begin());
      if (length > 0)
        append(text.substr(0, length));
      else
        length = appendCharacter(text);
      text.remove_prefix(length);
    }
  }

  /// Returns the length of what was read from the front of the text.
  std::size_t appendCharacter(std::string_view text) {
    char32_t c = 0;
    std::string decoded;
    std::size_t length = text.front() == '&' ? readReference(text, c) : 0;
    if (length > 0)
      appendUtf8(decoded, c);
    else
      c = nextCodePoint(text, length);
    const std::string_view bytes = decoded.empty() ? text.substr(0, length) : decoded;
    if (m_state.keepsSpaces && text.starts_with("\r\n")) ++length;
    if (isSpace(c))
      onSpace(c);
    else if (c == 0xA0)
      onNoBreakSpace();
    else if (isJoiner(c))
      m_joiners += m_isInWord ? bytes : std::string_view();
    else if (!isInvisible(c))
      append(bytes);
    return length;
  }

  void endWord() {
    m_joiners.clear();
    m_isInWord = false;
  }

  void onSpace(char32_t c) {
    endWord();
    m_isAfterImage = false;
    const bool isFirst = std::exchange(m_skipsLineBreak, false);
    if (!m_state.keepsSpaces)
      m_lines.space();
    else if (c != '\n' && c != '\r')
      m_lines.keptSpace(c == '\t' ? '\t' : ' ');
    else if (!isFirst)
      m_lines.lineBreak();
  }

  void onNoBreakSpace() {
    endWord();
    m_isAfterImage = m_skipsLineBreak = false;
    if (m_state.keepsSpaces)
      m_lines.keptSpace(' ');
    else
      m_lines.noBreakSpace();
  }

  void append(std::string_view text) {
    if (std::exchange(m_isAfterImage, false) && (isAlnumAscii(text.front()) || is8bit(text.front())))
      m_lines.space();
    m_skipsLineBreak = false;
    if (!m_joiners.empty()) m_lines.append(m_joiners);
    m_joiners.clear();
    m_lines.append(text);
    m_links.addText(text);
    m_isInWord = true;
  }

  TextLines m_lines;
  Links m_links;
  State m_state;
  std::vector<Open> m_open;
  std::array<Index, kElementIds> m_last{};  ///< The innermost open element by id, in m_open.
  Index m_scope = kNone;                    ///< The innermost table, cell or caption, in m_open.
  Index m_list = kNone;                     ///< The innermost list, in m_open.
  std::vector<List> m_lists;
  std::vector<TextTable> m_tables;
  std::string m_joiners;
  bool m_isInWord = false;
  bool m_isAfterImage = false;
  bool m_isRawText = false;
  bool m_skipsLineBreak = false;  ///< Right after <pre>.
};

}  // namespace

std::string textOfHtml(std::string_view html) { return TextReader::read(html); }

}  // namespace mailtree
