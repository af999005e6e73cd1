#include "mailtree/base/Xml.h"

#include <algorithm>
#include <bit>
#include <iterator>

#include "mailtree/base/Log.h"
#include "mailtree/base/Utf.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace mailtree {
namespace {

// Names

struct Range {
  char32_t first, last;
};

/// NameStartChar, and with the next table NameChar (XML 1.0, 2.3), both without the colon.
constexpr Range kNameStart[] = {
    {'A', 'Z'},       {'_', '_'},       {'a', 'z'},       {0xC0, 0xD6},     {0xD8, 0xF6},
    {0xF8, 0x2FF},    {0x370, 0x37D},   {0x37F, 0x1FFF},  {0x200C, 0x200D}, {0x2070, 0x218F},
    {0x2C00, 0x2FEF}, {0x3001, 0xD7FF}, {0xF900, 0xFDCF}, {0xFDF0, 0xFFFC}, {0x10000, 0xEFFFF},
};
constexpr Range kNameMore[] = {{'-', '.'}, {'0', '9'}, {0xB7, 0xB7}, {0x300, 0x36F}, {0x203F, 0x2040}};

bool isIn(char32_t c, const auto& ranges) noexcept {
  return std::any_of(std::begin(ranges), std::end(ranges),
                     [c](const Range& range) { return c >= range.first && c <= range.last; });
}

/// Parsers limit the length of names; real ones are far shorter.
constexpr std::size_t kMaxName = 10'000;

std::string validName(std::string_view name) {
  std::string valid;
  for (std::size_t at = 0; at < name.size() && valid.size() < kMaxName;) {
    const char32_t c = nextCodePoint(name, at);
    const bool mayStart = isIn(c, kNameStart);
    if (valid.empty() && !mayStart) valid += '_';
    appendUtf8(valid, mayStart || isIn(c, kNameMore) ? c : U'-');
  }
  return valid.empty() ? "_" : valid;
}

// Text

/// Parsers limit text to 10,000,000 bytes between two pieces of markup, and a byte takes up to five when
/// escaped. An empty comment, which does not belong to the text, keeps longer texts readable.
constexpr std::size_t kMaxRun = 1'900'000;
constexpr std::string_view kRunBreak = "<!---->";

constexpr std::string_view kCdataBegin = "<![CDATA[", kCdataEnd = "]]>";
// A parser takes a bare CR, and the CR of CRLF, for a line break and returns LF. Only a reference
// preserves it, and a CDATA section has no references. The LF stays inside: parsers that drop white space
// between markup keep it.
constexpr std::string_view kCr = "&#13;", kCrInCdata = "]]>&#13;<![CDATA[";
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

/// Whether a byte of valid utf-8 may be part of something that needs escaping. 0xEF begins U+FFFE and U+FFFF,
/// which XML forbids, among others.
constexpr bool isSpecial(char c, bool cdata) noexcept {
  const auto byte = static_cast<unsigned char>(c);
  const bool either = ((byte < 0x20) & (byte != '\t') & (byte != '\n')) | (byte == 0xEF);
  const bool inText = (byte == '&') | (byte == '<') | (byte == '>');
  return either | (cdata ? byte == ']' : inText);
}

#if defined(__SSE2__)
/// isSpecial of 16 bytes, one bit each.
template <bool cdata>
unsigned specialsOf(const char* bytes) noexcept {
  const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
  const auto is = [block](char c) { return _mm_cmpeq_epi8(block, _mm_set1_epi8(c)); };
  const __m128i control = _mm_cmpeq_epi8(_mm_min_epu8(block, _mm_set1_epi8(0x1F)), block);
  const __m128i either =
      _mm_or_si128(_mm_andnot_si128(_mm_or_si128(is('\t'), is('\n')), control), is('\xEF'));
  const __m128i own = cdata ? is(']') : _mm_or_si128(is('&'), _mm_or_si128(is('<'), is('>')));
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(either, own)));
}
#endif

template <bool cdata>
std::size_t findSpecial(std::string_view text, std::size_t from) noexcept {
#if defined(__SSE2__)
  constexpr std::size_t kBlock = 16;
  for (; from + kBlock <= text.size(); from += kBlock)
    if (const unsigned specials = specialsOf<cdata>(text.data() + from))
      return from + static_cast<std::size_t>(std::countr_zero(specials));
#endif
  while (from < text.size() && !isSpecial(text[from], cdata)) ++from;
  return from;
}

/// The character at a special byte: its length and its replacement (itself when it is harmless).
struct Escape {
  std::size_t size;
  std::string_view written;
};

Escape escapeAt(std::string_view text, std::size_t at, bool cdata) noexcept {
  const std::string_view rest = text.substr(at);
  switch (rest[0]) {
    case '&': return {1, "&amp;"};
    case '<': return {1, "&lt;"};
    case '>': return {1, "&gt;"};
    case '\r': return {1, cdata ? kCrInCdata : kCr};
    case ']': return rest.starts_with(kCdataEnd) ? Escape{2, "]]]]><![CDATA["} : Escape{1, "]"};
    case '\xEF': {
      const bool isForbidden = rest.starts_with("\xEF\xBF\xBE") || rest.starts_with("\xEF\xBF\xBF");
      return {3, isForbidden ? kReplacement : rest.substr(0, 3)};
    }
    default: return {1, kReplacement};
  }
}

std::string withoutMalformed(std::string_view text) {
  std::string repaired;
  repaired.reserve(text.size() + text.size() / 8);
  for (std::size_t at = 0; at < text.size();) appendUtf8(repaired, nextCodePoint(text, at));
  return repaired;
}

template <bool cdata>
void appendRun(std::string& out, std::string_view text) {
  for (std::size_t done = 0;;) {
    const std::size_t at = findSpecial<cdata>(text, done);
    out.append(text.substr(done, at - done));
    if (at == text.size()) return;
    const Escape escape = escapeAt(text, at, cdata);
    out.append(escape.written);
    done = at + escape.size;
  }
}

/// @param text  valid utf-8.
void appendText(std::string& out, std::string_view text, bool cdata) {
  while (!text.empty()) {
    const std::string_view run = text.substr(0, utf8PrefixLength(text, kMaxRun));
    text.remove_prefix(run.size());
    if (cdata) {
      out.append(kCdataBegin);
      appendRun<true>(out, run);
      out.append(kCdataEnd);
    } else {
      appendRun<false>(out, run);
    }
    if (!text.empty()) out.append(kRunBreak);
  }
}

/// Estimated size of a text. Only line breaks are counted, the only escaped characters that are frequent.
std::size_t sizeOfText(std::string_view text, bool cdata) noexcept {
  const auto lineEnds = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\r'));
  return text.size() + lineEnds * (cdata ? kCrInCdata : kCr).size() + text.size() / 64;
}

}  // namespace

/// Renders without recursion: documents may be of any depth.
class XmlWriter {
 public:
  XmlWriter(std::string& out, bool compact) noexcept : m_out(out), m_compact(compact) {}

  static std::size_t sizeOf(const ClsXml& root) {
    std::size_t size = 0;
    std::vector<const ClsXml*> open{&root};
    while (!open.empty()) {
      const ClsXml& element = *open.back();
      open.pop_back();
      size += 2 * element.m_tag.size() + 16 + sizeOfText(element.m_content, element.m_cdata);
      for (const auto& child : element.m_children) open.push_back(child.get());
    }
    return size;
  }

  void write(const ClsXml& root) {
    begin(root);
    while (!m_open.empty()) {
      Level& level = m_open.back();
      if (level.next < level.element->m_children.size())
        begin(*level.element->m_children[level.next++].get());
      else
        end();
    }
    if (!m_compact) m_out += '\n';
  }

 private:
  struct Level {
    const ClsXml* element;
    std::size_t next = 0;   ///< Child.
    bool indented = false;  ///< Whether the children are on separate lines.
  };
  /// Deeper elements are not indented further, because the white space would grow with
  /// the square of the depth.
  static constexpr std::size_t kMaxIndent = 100;

  static bool isEmpty(const ClsXml& element) noexcept {
    return element.m_children.empty() && element.m_content.empty();
  }
  static std::string_view nameOf(const ClsXml& element) noexcept {
    return element.m_tag.empty() ? std::string_view("_") : std::string_view(element.m_tag);
  }

  void begin(const ClsXml& element) {
    if (!m_open.empty() && m_open.back().indented) newLine();
    const bool childrenIndented =
        !m_compact && element.m_content.empty() && (m_open.empty() || m_open.back().indented);
    m_out.append("<").append(nameOf(element)).append(isEmpty(element) ? "/>" : ">");
    if (!isEmpty(element)) m_open.push_back({&element, 0, childrenIndented});
  }

  void end() {
    const Level level = m_open.back();
    m_open.pop_back();
    const ClsXml& element = *level.element;
    writeContent(element);
    if (level.indented && !element.m_children.empty()) newLine();
    m_out.append("</").append(nameOf(element)).append(">");
  }

  void writeContent(const ClsXml& element) {
    if (isValidUtf8(element.m_content)) return appendText(m_out, element.m_content, element.m_cdata);
    appendText(m_out, withoutMalformed(element.m_content), element.m_cdata);
  }

  void newLine() { m_out.append(1, '\n').append(2 * std::min(m_open.size(), kMaxIndent), ' '); }

  std::string& m_out;
  std::vector<Level> m_open;
  bool m_compact;
};

ClsXml* ClsXml::createNewCls() {
  return neverThrow<ClsXml*>(nullptr, [] {
    auto* const root = new ClsXml;
    root->incRefCount();
    return root;
  });
}

ClsXml::~ClsXml() {
  // A child held only by this tree is emptied before it is deleted, so destruction does not recurse. No other
  // holder exists, so none can be added.
  std::vector<RefPtr<ClsXml>> doomed = std::move(m_children);
  while (!doomed.empty()) {
    const RefPtr<ClsXml> element = std::move(doomed.back());
    doomed.pop_back();
    if (element->refCount() > 1) continue;
    neverThrow(false, [&] {
      doomed.insert(doomed.end(), std::make_move_iterator(element->m_children.begin()),
                    std::make_move_iterator(element->m_children.end()));
      element->m_children.clear();
      return true;
    });
  }
}

bool ClsXml::putTag(std::string_view tag) {
  return neverThrow(false, [&] {
    m_tag = validName(tag);
    return true;
  });
}

ClsXml* ClsXml::newChild(const char* tag, const char* content, LogBase*) {
  return newChild(viewOf(tag), viewOf(content));
}

ClsXml* ClsXml::newChild(std::string_view tag, std::string_view content) {
  return neverThrow<ClsXml*>(nullptr, [&] {
    RefPtr<ClsXml> child(new ClsXml);
    child->m_tag = validName(tag);
    child->m_content = content;
    m_children.push_back(child);
    child->incRefCount();
    return child.get();
  });
}

bool ClsXml::put_ContentUtf8(const char* content) {
  return neverThrow(false, [&] {
    m_content = viewOf(content);
    return true;
  });
}

bool ClsXml::getXml(bool fragment, StringBuffer& out, LogBase& log) const {
  StringBuffer rendered;
  const bool done = neverThrow(false, [&] {
    std::string& text = rendered.text();
    text.reserve(64 + XmlWriter::sizeOf(*this));
    if (!fragment) text = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
    XmlWriter(text, m_compact).write(*this);
    return true;
  });
  if (!done) log.logError("Out of memory while rendering XML.");
  if (done) out = std::move(rendered);
  return done;
}

std::size_t ClsXml::heapUsage() const {
  return m_tag.capacity() + m_content.capacity() + m_children.capacity() * sizeof(m_children[0]);
}

}  // namespace mailtree
