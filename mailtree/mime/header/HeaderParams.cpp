// Reads parameter lists in three steps: the text is cut into raw segments, the segments of one name are
// grouped, each group is decoded once. Only the last step copies.
#include "mailtree/mime/header/HeaderParams.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <span>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Search.h"
#include "mailtree/mime/Limits.h"
#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/coding/EncodedWord.h"
#include "mailtree/mime/coding/HeaderText.h"

namespace mailtree {

namespace {

constexpr std::size_t npos = std::string_view::npos;
constexpr int kWhole = -1;  // section of a segment that is not an RFC 2231 continuation

struct Segment {
  std::string_view name;  ///< Without the RFC 2231 suffix.
  std::string_view raw;   ///< Without the surrounding quotes.
  int section = kWhole;
  int order = 0;          ///< Position in the header value.
  bool extended = false;  ///< Percent-encoded, with a charset in the first section.
  bool quoted = false;    ///< Backslashes escape.
};

constexpr bool isNameChar(char c) noexcept {
  return c > ' ' && c != '=' && c != ';' && c != '"' && c != 0x7F;
}
constexpr std::array<bool, 256> kIsNameChar = [] {
  std::array<bool, 256> table{};
  for (std::size_t c = 0; c < table.size(); ++c) table[c] = isNameChar(static_cast<char>(c));
  return table;
}();
constexpr bool isPlainNameChar(char c) noexcept {
  return isAlnumAscii(c) || c == '-' || c == '_' || c == '*' || c == '.';
}

/// A file name may contain parentheses and blanks where any other value would have a comment.
bool isFileName(std::string_view name) noexcept {
  return equalsNoCase(name, "filename") || equalsNoCase(name, "name");
}

bool isBoundary(std::string_view name) noexcept { return equalsNoCase(name, "boundary"); }

std::string_view withoutQuotes(std::string_view text, char quote) noexcept {
  if (text.size() < 2 || text.front() != quote || text.back() != quote) return text;
  return text.substr(1, text.size() - 2);
}

class ParamReader {
 public:
  explicit ParamReader(std::string_view text) noexcept : m_text(text) {}

  /// The text before the parameters.
  std::string_view readMainValue() noexcept {
    skipBlanksAndComments();
    const std::size_t begin = m_at;
    std::size_t end = npos;
    for (; (m_at = findAny<';', '=', '('>(m_text, m_at)) < m_text.size() && m_text[m_at] != ';'; ++m_at) {
      if (m_text[m_at] == '=') {  // the semicolon is missing
        m_at = beginOfNameBefore(m_at, begin);
        break;
      }
      const std::size_t close = endOfComment(m_at);
      if (close == npos) continue;
      end = std::min(end, m_at);
      m_at = close - 1;
    }
    end = std::min(end, m_at);
    std::string_view value = trim(m_text.substr(begin, end - begin));
    while (!value.empty() && value.back() == ',') value = trimRight(value.substr(0, value.size() - 1));
    return trim(withoutQuotes(value, '"'));
  }

  /// The next parameter; false at the end.
  bool next(Segment& segment) noexcept {
    while (true) {
      skipSeparators();
      if (m_at >= m_text.size()) return false;
      const std::size_t begin = m_at;
      while (m_at < m_text.size() && kIsNameChar[static_cast<unsigned char>(m_text[m_at])]) ++m_at;
      const std::string_view name = m_text.substr(begin, m_at - begin);
      skipBlanks();
      if (m_at >= m_text.size() || m_text[m_at] != '=') {
        if (m_at == begin) ++m_at;  // a stray character
        continue;                   // a name without a value is ignored
      }
      ++m_at;
      skipBlanks();
      segment = Segment{};
      splitName(name, segment);
      readValue(segment);
      if (!segment.name.empty()) return true;
    }
  }

 private:
  void skipBlanks() noexcept { m_at = afterBlanks(m_at); }

  std::size_t afterBlanks(std::size_t at) const noexcept {
    while (at < m_text.size() && isSpaceAscii(m_text[at])) ++at;
    return at;
  }

  void skipBlanksAndComments() noexcept {
    for (skipBlanks(); m_at < m_text.size() && m_text[m_at] == '('; skipBlanks()) {
      const std::size_t close = endOfComment(m_at);
      if (close == npos) return;
      m_at = close;
    }
  }

  void skipSeparators() noexcept {
    for (skipBlanksAndComments(); m_at < m_text.size() && (m_text[m_at] == ';' || m_text[m_at] == ',');
         skipBlanksAndComments())
      ++m_at;
  }

  /// Position after the comment that begins at `at`; npos when it is unterminated, and from then on always.
  std::size_t endOfComment(std::size_t at) noexcept {
    if (m_commentsEnded) return npos;
    std::size_t depth = 0;
    for (std::size_t i = at; i < m_text.size(); ++i) {
      if (m_text[i] == '\\')
        ++i;
      else if (m_text[i] == '(')
        ++depth;
      else if (m_text[i] == ')' && --depth == 0)
        return i + 1;
    }
    m_commentsEnded = true;
    return npos;
  }

  std::size_t beginOfNameBefore(std::size_t equals, std::size_t limit) const noexcept {
    std::size_t at = equals;
    while (at > limit && isSpaceAscii(m_text[at - 1])) --at;
    while (at > limit && isPlainNameChar(m_text[at - 1])) --at;
    return at;
  }

  /// Whether "name=" is there: the beginning of the next parameter after a missing semicolon or quote.
  bool isParamAt(std::size_t at) const noexcept {
    const std::size_t begin = at;
    while (at < m_text.size() && isPlainNameChar(m_text[at])) ++at;
    return at > begin && at < m_text.size() && m_text[at] == '=';
  }

  static void splitName(std::string_view name, Segment& segment) noexcept {
    segment.name = name;
    if (name.ends_with('*')) {
      segment.extended = true;
      segment.name = name.substr(0, name.size() - 1);
    }
    const std::size_t star = segment.name.rfind('*');
    if (star == npos) return;
    const std::string_view digits = segment.name.substr(star + 1);
    int section = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), section);
    if (error != std::errc() || end != digits.data() + digits.size() || section < 0) return;
    segment.section = section;
    segment.name = segment.name.substr(0, star);
  }

  void readValue(Segment& segment) noexcept {
    segment.quoted = m_at < m_text.size() && m_text[m_at] == '"';
    segment.raw = segment.quoted ? readQuoted() : readUnquoted(segment);
  }

  std::string_view readUnquoted(const Segment& segment) noexcept {
    const std::size_t begin = m_at;
    while (m_at < m_text.size() && m_text[m_at] != ';') {
      if (!isSpaceAscii(m_text[m_at])) {
        ++m_at;
        continue;
      }
      const std::size_t next = afterBlanks(m_at);
      if (next > begin && isParamAt(next)) break;
      m_at = next;
    }
    std::string_view value = trim(m_text.substr(begin, m_at - begin));
    if (!isFileName(segment.name)) value = trim(value.substr(0, value.find(" (")));  // a comment
    // A boundary may really begin and end with a single quote.
    return isBoundary(segment.name) ? value : withoutQuotes(value, '\'');
  }

  /// Reads from the quote at m_at. An inner quote that no delimiter follows belongs to the value.
  std::string_view readQuoted() noexcept {
    const std::size_t begin = ++m_at;
    std::size_t firstInner = npos, lastEscaped = npos;
    for (std::size_t at = begin; (at = findAny<'"', '\\'>(m_text, at)) < m_text.size(); ++at) {
      if (m_text[at] == '\\') {
        const char next = at + 1 < m_text.size() ? m_text[at + 1] : '\0';
        if (next == '"') lastEscaped = at + 1;
        if (next == '"' || next == '\\') ++at;
        continue;
      }
      if (m_quotesEnded || closesAt(at)) return endQuoted(begin, at, at + 1);
      if (opensAnother(begin, at)) return readUnterminated(begin, firstInner, at);
      if (firstInner == npos) firstInner = at;
    }
    m_quotesEnded = true;
    if (firstInner == npos && lastEscaped != npos &&
        closesAt(lastEscaped))  // a path that ends in a backslash
      return endQuoted(begin, lastEscaped, lastEscaped + 1);
    return readUnterminated(begin, firstInner, m_text.size());
  }

  std::string_view endQuoted(std::size_t begin, std::size_t end, std::size_t next) noexcept {
    m_at = next;
    return m_text.substr(begin, end - begin);
  }

  bool closesAt(std::size_t quote) const noexcept {
    const std::size_t next = afterBlanks(quote + 1);
    return next >= m_text.size() || m_text[next] == ';' || m_text[next] == '(' || isParamAt(next);
  }

  /// Whether the quote opens the value of another parameter, because the previous one is unterminated.
  bool opensAnother(std::size_t begin, std::size_t quote) const noexcept {
    std::size_t at = quote;
    while (at > begin && isSpaceAscii(m_text[at - 1])) --at;
    if (at == begin || m_text[at - 1] != '=') return false;
    const std::size_t name = beginOfNameBefore(at - 1, begin);
    if (name == at - 1) return false;
    for (at = name; at > begin && isSpaceAscii(m_text[at - 1]);) --at;
    return at > begin && m_text[at - 1] == ';';
  }

  /// An unterminated quoted value: it ends at an inner quote, at the next parameter, or
  /// at the end of the text.
  std::string_view readUnterminated(std::size_t begin, std::size_t firstInner, std::size_t limit) noexcept {
    if (firstInner != npos) return endQuoted(begin, firstInner, firstInner + 1);
    std::size_t end = m_text.find(';', begin);
    while (end < limit && !isParamAt(afterBlanks(end + 1))) end = m_text.find(';', end + 1);
    end = std::min(end, limit);
    std::string_view value = trimRight(endQuoted(begin, end, end));
    if (value.ends_with("\\\"")) value.remove_suffix(1);
    return value;
  }

  std::string_view m_text;
  std::size_t m_at = 0;
  bool m_commentsEnded = false;  ///< An unterminated comment was found: parentheses are text.
  bool m_quotesEnded = false;  ///< An unterminated quoted value was found: inner quotes are not tried again.
};

void appendUnescaped(const Segment& segment, std::string& out) {
  if (!segment.quoted || !contains(segment.raw, "\\")) {
    out += segment.raw;
    return;
  }
  for (std::size_t i = 0; i < segment.raw.size(); ++i) {
    // Only quotes and backslashes are unescaped: any other backslash comes from a Windows path.
    const char next = i + 1 < segment.raw.size() ? segment.raw[i + 1] : '\0';
    if (segment.raw[i] == '\\' && (next == '"' || next == '\\')) ++i;
    out += segment.raw[i];
  }
}

void appendPercentDecoded(std::string_view text, std::string& out) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isEscape =
        text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 && hexValue(text[i + 2]) >= 0;
    if (!isEscape) {
      out += text[i];
      continue;
    }
    out += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
    i += 2;
  }
}

/// Removes "charset'language'" from the front and returns the code page, 0 when there is none.
int takeCharset(std::string_view& text) noexcept {
  const std::size_t first = text.find('\'');
  if (first == npos) return 0;
  const int codePage = codePageOfCharset(text.substr(0, first));
  const std::size_t second = text.find('\'', first + 1);
  if (second == npos && codePage <= 0) return 0;  // an apostrophe of the value itself
  text.remove_prefix((second == npos ? first : second) + 1);
  return codePage;
}

using Segments = std::vector<Segment>;

/// Segments of one name, in the order in which they are joined.
struct Group {
  Segments::const_iterator begin;
  Segments::const_iterator end;
};

std::string decodeGroup(Group group) {
  std::string bytes;
  int codePage = 0, lastSection = kWhole;
  bool anyExtended = false;
  for (auto it = group.begin; it != group.end; ++it) {
    if (it != group.begin && it->section == lastSection) continue;  // the first of a name wins
    lastSection = it->section;
    if (!it->extended) {
      appendUnescaped(*it, bytes);
      continue;
    }
    std::string_view text = it->raw;
    if (!anyExtended && it == group.begin) codePage = takeCharset(text);
    anyExtended = true;
    appendPercentDecoded(text, bytes);
  }
  // A boundary is compared with the body byte by byte, so it is never decoded.
  const bool mayDecode = mayHoldEncodedWord(bytes) && !isBoundary(group.begin->name);
  if (!anyExtended) return mayDecode ? decodeEncodedWords(bytes) : bytes;
  std::string value;
  appendBytesAsUtf8(codePage > 0 ? codePage : kCpUtf8, bytes, value);
  return value;
}

int compareNames(std::string_view a, std::string_view b) noexcept {
  for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
    const int difference =
        static_cast<unsigned char>(toLowerAscii(a[i])) - static_cast<unsigned char>(toLowerAscii(b[i]));
    if (difference != 0) return difference;
  }
  return a.size() < b.size() ? -1 : static_cast<int>(a.size() > b.size());
}

/// Order of preference when a name has several forms: `name*` (0), then `name*0`, then the plain one.
int formRank(const Segment& segment) noexcept {
  if (segment.section != kWhole) return 1;
  return segment.extended ? 0 : 2;
}

bool joinsBefore(const Segment& a, const Segment& b) noexcept {
  if (const int names = compareNames(a.name, b.name); names != 0) return names < 0;
  if (formRank(a) != formRank(b)) return formRank(a) < formRank(b);
  if (a.section != b.section) return a.section < b.section;
  return a.order < b.order;
}

bool isPlain(const Segment& segment) noexcept { return !segment.extended && segment.section == kWhole; }

/// Nearly all mail has shorter lists without RFC 2231: these are passed on in order, without building a list.
constexpr std::size_t kShortList = 8;
constexpr std::size_t kMax = kMaxParameters;

bool isNamedBefore(std::span<const Segment> segments, std::size_t index) noexcept {
  return std::any_of(
      segments.begin(), segments.begin() + static_cast<std::ptrdiff_t>(index),
      [&](const Segment& earlier) { return equalsNoCase(earlier.name, segments[index].name); });
}

void passParameter(std::string_view name, std::string_view value, const ParameterHandler& take) {
  if (!containsBreak(value)) return take(name, value);
  std::string oneLine(value);
  eraseBreaks(oneLine);
  take(name, oneLine);
}

void passPlain(const Segment& segment, const ParameterHandler& take) {
  const bool isPlainText =
      !(segment.quoted && contains(segment.raw, "\\")) && !mayHoldEncodedWord(segment.raw);
  if (isPlainText) return passParameter(segment.name, segment.raw, take);
  const Segments single{segment};
  passParameter(segment.name, decodeGroup({single.begin(), single.end()}), take);
}

void passInOrder(std::span<const Segment> segments, const ParameterHandler& take) {
  for (std::size_t i = 0; i < segments.size(); ++i)
    if (!isNamedBefore(segments, i)) passPlain(segments[i], take);
}

/// Passes the groups on in the order in which their names first occur.
void passGroups(Segments& segments, const ParameterHandler& take) {
  std::sort(segments.begin(), segments.end(), joinsBefore);
  struct Found {
    int order;
    Group group;
  };
  std::vector<Found> groups;
  groups.reserve(segments.size());
  for (auto it = segments.cbegin(); it != segments.cend();) {
    const auto begin = it;
    auto preferredEnd = it;
    int order = it->order;
    for (; it != segments.cend() && equalsNoCase(it->name, begin->name); ++it) {
      order = std::min(order, it->order);
      if (formRank(*it) == formRank(*begin)) preferredEnd = it + 1;
    }
    groups.push_back({order, {begin, preferredEnd}});
  }
  std::sort(groups.begin(), groups.end(), [](const Found& a, const Found& b) { return a.order < b.order; });
  for (const Found& found : groups) passParameter(found.group.begin->name, decodeGroup(found.group), take);
}

}  // namespace

void _svParamSet::addParam(std::string_view name, std::string_view value) {
  Param& param = m_params.emplace_back(Param{std::string(name), std::string(value)});
  eraseBreaks(param.name);
  eraseBreaks(param.value);
}

void _svParamSet::addParam(const char* name, const char* value, bool replace) {
  std::string unused;
  if (replace) take(viewOf(name), unused);
  addParam(viewOf(name), viewOf(value));
}

const std::string* _svParamSet::find(std::string_view name) const noexcept {
  for (const Param& param : m_params)
    if (equalsNoCase(param.name, name)) return &param.value;
  return nullptr;
}

bool _svParamSet::take(std::string_view name, std::string& value) {
  const auto isNamed = [name](const Param& param) { return equalsNoCase(param.name, name); };
  const auto first = std::find_if(m_params.begin(), m_params.end(), isNamed);
  if (first == m_params.end()) return false;
  value = std::move(first->value);
  m_params.erase(std::remove_if(first, m_params.end(), isNamed), m_params.end());
  return true;
}

ParameterizedValue parseParameterizedValue(std::string_view headerValue) {
  ParameterizedValue result;
  result.overLimit = !readParameters(
      headerValue, [&result](std::string_view value) { result.value = value; },
      [&result](std::string_view name, std::string_view value) { result.params.addParam(name, value); });
  return result;
}

bool readParameters(std::string_view headerValue, const ValueHandler& takeValue,
                    const ParameterHandler& take) {
  ParamReader reader(headerValue);
  takeValue(reader.readMainValue());
  std::array<Segment, kShortList> first;
  std::size_t count = 0;
  bool allPlain = true, hasMore = true;
  while (count < kShortList && (hasMore = reader.next(first[count]))) {
    first[count].order = static_cast<int>(count);
    allPlain = allPlain && isPlain(first[count]);
    ++count;
  }
  if (!hasMore && allPlain) {
    passInOrder({first.data(), count}, take);
    return true;
  }

  Segments segments(first.begin(), first.begin() + static_cast<std::ptrdiff_t>(count));
  Segment segment;
  while (hasMore && segments.size() < kMax && (hasMore = reader.next(segment))) {
    segment.order = static_cast<int>(segments.size());
    segments.push_back(segment);
  }
  const bool overLimit = hasMore && reader.next(segment);
  passGroups(segments, take);
  return !overLimit;
}

std::size_t countPlainParameters(std::string_view headerValue, std::string_view name) {
  ParamReader reader(headerValue);
  reader.readMainValue();
  Segment segment;
  std::size_t count = 0;
  for (std::size_t read = 0; read < kMax && reader.next(segment); ++read)
    count += isPlain(segment) && equalsNoCase(segment.name, name);
  return count;
}

}  // namespace mailtree
