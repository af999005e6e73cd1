// Writes header fields as lines.
#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/LineLengths.h"
#include "mailtree/mime/coding/EncodedWord.h"
#include "mailtree/mime/coding/HeaderText.h"
#include "mailtree/mime/header/HeaderLines.h"
#include "mailtree/mime/header/HeaderValue.h"
#include "mailtree/mime/header/MimeHeader.h"

namespace mailtree {

namespace {

constexpr std::string_view kInternalPrefix = "SVZ-";
/// Message-level fields, omitted from new body parts.
constexpr std::string_view kMessageOnly[] = {"MIME-Version", "Date", "Message-ID", "X-Priority"};
constexpr std::string_view kHiddenRecipients[] = {"Bcc", "Resent-Bcc"};
/// Field name given to a malformed line that would otherwise not read back as part of the header.
constexpr std::string_view kMalformedLineName = "X-Malformed-Line";
/// Text that programs strip from the beginning of a message.
constexpr std::string_view kNotPartOfMessage[] = {"From ", ">From ", "\xEF\xBB\xBF"};

template <std::size_t N>
bool isOneOf(const std::string_view (&names)[N], std::string_view name) noexcept {
  for (const std::string_view candidate : names)
    if (equalsNoCase(candidate, name)) return true;
  return false;
}

/// Appends received text with all line breaks as CRLF.
void appendWithCrlf(std::string_view text, std::string& out) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = endOfLine(text, at);
    out.append(text, at, end - at);
    if (end < text.size()) out += "\r\n";
    at = afterLineBreak(text, end);
  }
}

}  // namespace

bool MimeHeader::isWritten(const Field& field, std::string_view prefix, bool isTop) const noexcept {
  if (field.kind == Kind::malformed) return true;
  const std::string_view name(m_block.data() + field.nameOffset, field.nameSize);
  if (beginsWithNoCase(name, kInternalPrefix)) return false;
  if (!prefix.empty() && beginsWithNoCase(name, prefix)) return false;
  if (!isTop && !m_loadedFromText && isOneOf(kMessageOnly, name)) return false;
  if (m_omitsBcc && isOneOf(kHiddenRecipients, name)) return false;
  return !isOmittedAsEmpty(name, {m_block.data() + field.valueOffset, field.valueSize});
}

void MimeHeader::getMimeHeader(StringBuffer& out, const char* prefix, int codePage, bool isTop,
                               LogBase&) const {
  neverThrow(false, [&] {
    const std::string_view omitted = viewOf(prefix);
    std::size_t afterLastField = 0;
    for (std::size_t i = m_fields.size(); i > 0 && afterLastField == 0; --i)
      if (m_fields[i - 1].kind != Kind::malformed && isWritten(m_fields[i - 1], omitted, isTop))
        afterLastField = i;

    std::string& text = out.text();
    const std::size_t begin = text.size();
    for (std::size_t i = 0; i < m_fields.size(); ++i) {
      const Field& field = m_fields[i];
      if (!isWritten(field, omitted, isTop)) continue;
      const bool isFirst = text.size() == begin;
      if (!isFirst) text += "\r\n";
      if (field.kind == Kind::malformed) {
        writeMalformedLine(field, isFirst, i >= afterLastField, text);
      } else if (field.kind == Kind::received && !m_hasNonCrlfBreaks) {
        // A line that was removed may be as short as a line break.
        while (i + 1 < m_fields.size() && follows(m_fields[i], m_fields[i + 1]) &&
               m_block.compare(m_fields[i].end(), 2, "\r\n") == 0 &&
               isWritten(m_fields[i + 1], omitted, isTop))
          ++i;
        text.append(m_block, field.nameOffset, m_fields[i].end() - field.nameOffset);
      } else {
        writeField(field, codePage, text);
      }
    }
    return true;
  });
}

/// Whether a received field follows another one in the block, with two bytes between.
bool MimeHeader::follows(const Field& field, const Field& next) noexcept {
  return next.kind == Kind::received && next.nameOffset == field.end() + 2;
}

void MimeHeader::writeField(const Field& field, int codePage, std::string& out) const {
  if (field.kind == Kind::received) return writeAsReceived(field, out);
  std::string line(nameOf(field));
  const std::string_view value = valueOf(field);
  std::string rendered;
  if (field.kind == Kind::rawFilename)
    rendered = renderRawFilename(value, codePage).text;
  else if (field.kind == Kind::set)
    rendered = renderHeaderValue(line, value, codePage).text;
  else
    rendered = withoutBreaks(trim(value));
  line += ':';
  if (!rendered.empty()) line.append(" ").append(rendered);
  out += m_foldLongValues || line.size() > kLongestLine ? foldHeaderLine(line) : line;
}

void MimeHeader::writeAsReceived(const Field& field, std::string& out) const {
  if (m_hasNonCrlfBreaks)
    appendWithCrlf(lineOf(field), out);
  else
    out += lineOf(field);
}

/// A line without a field name reads as header only if a field follows; an mbox separator at the start would
/// be stripped. In either case it gets the name X-Malformed-Line.
void MimeHeader::writeMalformedLine(const Field& field, bool isFirst, bool isLast, std::string& out) const {
  const std::string_view line = lineOf(field);
  bool needsName = isLast;
  for (const std::string_view start : kNotPartOfMessage) needsName |= isFirst && line.starts_with(start);
  if (!needsName) return writeAsReceived(field, out);
  out.append(kMalformedLineName).append(": ");
  if (isAscii(line)) return writeAsReceived(field, out);
  std::string scratch;
  const std::string_view text = unfolded(field, scratch);
  out += renderHeaderValue(kMalformedLineName, text, codePageOfValue(valueOf(field))).text;
}

unsigned MimeHeader::getMimeHeaderSize() const noexcept {
  std::size_t size = 0;
  for (const Field& field : m_fields)
    if (isWritten(field, {}, /*isTop=*/true)) size += field.lineSize() + 2;
  return static_cast<unsigned>(size);
}

}  // namespace mailtree
