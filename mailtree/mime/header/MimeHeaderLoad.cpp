// Turns received text into fields. One pass finds the lines and makes an entry per field; then
// the bytes are copied once.
#include <algorithm>
#include <array>
#include <limits>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Log.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/coding/HeaderText.h"
#include "mailtree/mime/header/ContentType.h"
#include "mailtree/mime/header/HeaderLines.h"
#include "mailtree/mime/header/HeaderParams.h"
#include "mailtree/mime/header/HeaderValue.h"
#include "mailtree/mime/header/MimeHeader.h"

namespace mailtree {

namespace {

/// Decodes any bytes. For text that no other charset decodes, because reading always gives utf-8.
constexpr int kLastResortCodePage = 1252;
/// How far to look for another field after a line that is not a field. Every level of nested broken headers
/// looks again, so this bounds the total.
constexpr std::size_t kFieldReach = 64u << 10;

bool decodes(int codePage, std::string_view bytes) {
  std::string scratch;
  return decodeToUtf8(codePage, bytes, scratch);
}

bool fitsCodePage(int codePage, std::string_view bytes) {
  return decodes(codePage, bytes) || codePageDespiteDamage(codePage, bytes).codePage == codePage;
}

/// The number of places where a utf-8 sequence may begin: a lead byte followed by a continuation byte.
std::size_t countOfSequences(std::string_view bytes) noexcept {
  const auto begins = [](unsigned char lead, unsigned char next) {
    return lead >= 0xC2 && (next & 0xC0) == 0x80;
  };
  std::size_t count = 0;
  for (std::size_t at = 1; at < bytes.size(); ++at)
    count +=
        begins(static_cast<unsigned char>(bytes[at - 1]), static_cast<unsigned char>(bytes[at])) ? 1U : 0U;
  return count;
}

/// Whether a value is utf-8, damaged or not. A single-byte code page decodes any value. If the
/// header may use one, a short word with a single sequence that happens to be utf-8 does not
/// count: much of the value must be utf-8.
bool looksLikeUtf8(std::string_view value, int codePage) {
  constexpr int kWestern[] = {1252, 28591, 28605};
  constexpr std::size_t kForEachDamaged = 9;
  const DamagedReading reading = codePageDespiteDamage(0, value);
  if (reading.codePage != kCpUtf8) return false;
  if (codePage <= 0 || isMultibyte(codePage) || !decodes(codePage, value)) return true;
  const bool isWestern = std::ranges::find(kWestern, codePage) != std::end(kWestern);
  return (isWestern && containsUtf8Accent(value)) ||
         countOfSequences(value) >= kForEachDamaged * reading.damaged;
}

}  // namespace

/// Walks over the lines of a header and collects fields, with offsets from the beginning of the text.
class MimeHeader::Reader {
 public:
  struct Bounds {
    std::size_t fields;
    std::size_t bytes;
  };

  /// @param allIsHeader  Whether a line that is not a field always belongs to the header: there is no body.
  Reader(std::string_view text, const Bounds& bounds, bool allIsHeader) noexcept
      : m_text(text), m_bounds(bounds), m_allIsHeader(allIsHeader) {}

  Extent read(LeadingEmptyLines emptyLines) {
    m_at = m_begin = emptyLines == LeadingEmptyLines::skip ? afterEmptyLines() : 0;
    bool hasMore = true;
    while (hasMore && m_at < m_text.size()) hasMore = readLine();
    if (hasMore) m_extent = {m_text.size(), m_text.size(), true, m_extent.limits};  // no empty line
    m_extent.malformed |= m_anyNoField;
    return m_extent;
  }

  bool anyNonCrlfBreak() const noexcept { return m_anyNonCrlfBreak; }
  std::size_t fieldsBegin() const noexcept { return m_begin; }
  std::size_t fieldsEnd() const noexcept { return m_count ? last().end() : m_begin; }

  /// Moves the fields into one allocation of the right size, with offsets from the first field.
  void copyFields(std::vector<Field>& fields) const {
    fields.reserve(m_count);
    const auto shift = static_cast<std::uint32_t>(m_begin);
    for (std::size_t i = 0; i < m_count; ++i) {
      Field entry = i < kInPlace ? m_first[i] : m_further[i - kInPlace];
      entry.nameOffset -= shift;
      entry.valueOffset -= shift;
      fields.push_back(entry);
    }
  }

 private:
  std::size_t afterEmptyLines() const noexcept {
    const std::size_t begin = findFirstField(m_text);
    return begin == std::string_view::npos ? 0 : begin;
  }

  /// False at the end of the header; m_extent is then complete.
  bool readLine() {
    const std::size_t end = endOfLine(m_text, m_at);
    if (end == m_at) return endHeader(m_at, afterLineBreak(m_text, m_at), false);
    const std::size_t next = afterLineBreak(m_text, end);
    const std::string_view line = m_text.substr(m_at, end - m_at);
    m_anyNonCrlfBreak |= next != end + 2;
    const bool continues = isBlankAscii(line.front()) && m_count > 0;
    if (m_count == 0 && trim(line).empty()) return endHeader(m_at, next, false);
    const FieldStart start = continues ? FieldStart{} : readFieldStart(line);
    if (!continues && start.nameSize == 0 && !m_allIsHeader && !fieldFollows(next))
      return endHeader(m_at, m_at, true);

    if (next - m_begin > m_bounds.bytes)
      return endAtLimit(continues ? last().nameOffset : m_at, Limit::headerBytes);
    if (!continues && m_count == m_bounds.fields) return endAtLimit(m_at, Limit::headerFields);
    if (continues)
      last().valueSize = static_cast<std::uint32_t>(end - last().valueOffset);
    else
      appendField(line, start);
    m_at = next;
    return true;
  }

  bool endHeader(std::size_t headerEnd, std::size_t bodyBegin, bool malformed) noexcept {
    m_extent = {headerEnd, bodyBegin, malformed, m_extent.limits};
    return false;
  }

  /// A field beyond a limit belongs to the body as a whole.
  bool endAtLimit(std::size_t fieldBegin, Limit limit) noexcept {
    if (m_count > 0 && last().nameOffset == fieldBegin) dropLast();
    m_extent.limits.add(limit);
    return endHeader(fieldBegin, fieldBegin, true);
  }

  /// Whether there is a field before the next empty line. The result is remembered, so each line is examined
  /// for only one of the lines before it.
  bool fieldFollows(std::size_t at) noexcept {
    if (at <= m_knownField) return true;
    const std::size_t limit = std::min(m_text.size(), at + kFieldReach);
    while (at < limit) {
      const std::size_t end = endOfLine(m_text, at);
      if (end == at) return false;
      if (readFieldStart(m_text.substr(at, end - at)).nameSize > 0) {
        m_knownField = at;
        return true;
      }
      at = afterLineBreak(m_text, end);
    }
    return false;
  }

  void appendField(std::string_view line, const FieldStart& start) {
    const bool isField = start.nameSize > 0;
    const std::size_t value = isField ? m_at + start.colon + 1 : m_at;
    const Field entry = {static_cast<std::uint32_t>(m_at), static_cast<std::uint32_t>(start.nameSize),
                         static_cast<std::uint32_t>(value),
                         static_cast<std::uint32_t>(m_at + line.size() - value),
                         isField ? Kind::received : Kind::malformed};
    m_anyNoField |= !isField;
    if (m_count < kInPlace)
      m_first[m_count] = entry;
    else
      m_further.push_back(entry);
    ++m_count;
  }

  void dropLast() noexcept {
    if (m_count > kInPlace) m_further.pop_back();
    --m_count;
  }

  Field& last() noexcept { return m_count > kInPlace ? m_further.back() : m_first[m_count - 1]; }
  const Field& last() const noexcept { return m_count > kInPlace ? m_further.back() : m_first[m_count - 1]; }

  static constexpr std::size_t kInPlace = 64;  ///< Most headers have fewer fields.

  std::string_view m_text;
  Bounds m_bounds;
  bool m_allIsHeader;
  bool m_anyNoField = false;
  bool m_anyNonCrlfBreak = false;
  std::size_t m_begin = 0;
  std::size_t m_at = 0;
  std::size_t m_knownField = 0;  ///< Beginning of a field found by looking ahead.
  std::size_t m_count = 0;
  Extent m_extent{};
  std::array<Field, kInPlace> m_first;  // not initialized: m_count says how many there are
  std::vector<Field> m_further;
};

MimeHeader::Extent MimeHeader::loadFromEntity(std::string_view text, LeadingEmptyLines emptyLines) {
  clear();
  Reader reader(text, {kMaxHeaderFields, kMaxHeaderBytes}, /*allIsHeader=*/false);
  const Extent extent = reader.read(emptyLines);
  takeFields(reader, text);
  return extent;
}

void MimeHeader::loadMimeHeaderText(std::string_view text, LogBase& log) {
  loadMimeHeaderText(text, nullptr, nullptr, log);
}

void MimeHeader::loadMimeHeaderText(std::string_view text, _svCharset* charsetOut,
                                    _svContentType* contentTypeOut, LogBase&) {
  neverThrow(false, [&] {
    clear();
    // Offsets have 32 bits; no real header is that large.
    text = text.substr(0, std::numeric_limits<std::uint32_t>::max() - 1);
    Reader reader(text, {text.size(), text.size()}, /*allIsHeader=*/true);
    reader.read(LeadingEmptyLines::skip);
    takeFields(reader, text);
    const int index = findField("Content-Type");
    if (index < 0) return true;
    std::string scratch;
    _svCharset charset;
    _svContentType contentType;
    contentType.loadFromMimeHeaderValue(unfoldedValue(index, scratch), charset);
    if (charsetOut) charsetOut->copy(charset);
    if (contentTypeOut) *contentTypeOut = std::move(contentType);
    return true;
  });
}

void MimeHeader::takeFields(const Reader& reader, std::string_view text) {
  m_block.assign(text.substr(reader.fieldsBegin(), reader.fieldsEnd() - reader.fieldsBegin()));
  reader.copyFields(m_fields);
  for (const Field& field : m_fields) m_nameSizes |= sizeBit(field.nameSize);
  m_loadedFromText = true;
  m_hasNonCrlfBreaks = reader.anyNonCrlfBreak();
  m_has8bit = !isAscii(m_block);
  if (m_has8bit) detectCodePageOf8bit();
}

// 8-bit text

void MimeHeader::detectCodePageOf8bit() {
  if (isValidUtf8(m_block)) {
    m_detectedCodePage = kCpUtf8;
    return;
  }
  const int declared = declaredCodePage();
  // A single-byte one decodes nearly everything, and so proves little.
  bool isDeclared = isMultibyte(declared);
  std::string bytes;  // of the values that are not utf-8, not even damaged utf-8
  for (const Field& field : m_fields) {
    if (isValidUtf8(lineOf(field))) continue;
    const std::string_view value = valueOf(field);
    isDeclared = isDeclared && fitsCodePage(declared, value);
    if (!looksLikeUtf8(value, declared)) bytes.append(value).append("\n");
  }
  if (isDeclared || (declared > 0 && !bytes.empty() && decodes(declared, bytes)))
    m_detectedCodePage = declared;
  else
    m_detectedCodePage = bytes.empty() ? kCpUtf8 : detectHeaderCodePage(bytes);
}

/// Code page of the charset parameter, 0 when it cannot be that of 8-bit text in a header.
int MimeHeader::declaredCodePage() const {
  std::string scratch;
  const ParameterizedValue type = parseParameterizedValue(unfoldedValue(findField("Content-Type"), scratch));
  const std::string* label = type.params.find("charset");
  const int codePage = label ? codePageOfCharset(*label) : 0;
  return codePage == writableCodePage(codePage) && !isStatefulCodePage(codePage) ? codePage : 0;
}

int MimeHeader::codePageOfValue(std::string_view raw) const noexcept {
  if (isValidUtf8(raw)) return kCpUtf8;
  const int found = m_detectedCodePage;
  if (isMultibyte(found) && found != kCpUtf8) return found;
  const bool isUtf8 =
      found == kCpUtf8 ? codePageDespiteDamage(found, raw).codePage == found : looksLikeUtf8(raw, found);
  if (isUtf8) return kCpUtf8;
  return found > 0 && found != kCpUtf8 ? found : kLastResortCodePage;
}

void MimeHeader::encode8bitFields() {
  if (!m_has8bit) return;
  std::string scratch;
  for (int i = 0; i < getNumFields(); ++i) {
    Field& entry = m_fields[static_cast<std::size_t>(i)];
    if (entry.kind != Kind::received || isAscii(lineOf(entry))) continue;
    const int codePage = codePageOfValue(valueOf(entry));
    const std::string name(nameOf(entry));
    const RenderedValue value = renderHeaderValue(name, unfolded(entry, scratch), codePage);
    if (value.complete && isAscii(value.text)) storeField(entry, name, value.text, Kind::asGiven);
  }
}

}  // namespace mailtree
