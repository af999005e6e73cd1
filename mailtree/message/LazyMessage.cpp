#include "mailtree/message/LazyMessage.h"

#include <algorithm>
#include <array>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Search.h"
#include "mailtree/base/Utf.h"
#include "mailtree/message/internal.h"
#include "mailtree/mime/MimeParser.h"
#include "mailtree/mime/charset/FoldedText.h"

namespace mailtree {
namespace {

/// The header and perhaps more: its end is judged more strictly when it is read.
std::string_view headerAtLeast(std::string_view message) noexcept {
  const std::size_t begin = std::min(message.find_first_not_of(" \t\r\n"), message.size());
  const std::size_t end =
      std::min(findSubstring(message, "\n\n", begin), findSubstring(message, "\n\r\n", begin));
  return message.substr(0, end);
}

/// Whether decoding may give a text that is not in the bytes: encoded words, 8-bit text and the escapes of
/// iso-2022, quoted pairs, NUL, or something before the header that makes its end uncertain.
bool mayReadOtherwise(std::string_view header) noexcept {
  return !isAscii(header) || findSubstring(header, "=?") != std::string_view::npos ||
         findAny<'\\', '\0', '\x1B'>(header) < header.size() || header.starts_with("From ") ||
         header.starts_with(">From ");
}

/// The charset of a plain text that leaves nothing else to find out, us-ascii where none is given; nothing
/// for any other type, and for a charset in which ASCII may not be what it looks like.
std::optional<std::string_view> charsetOfPlainText(std::string_view type) {
  constexpr std::array<std::string_view, 4> kCharsets = {"us-ascii", "utf-8", "iso-8859-1", "windows-1252"};
  constexpr std::array<std::string_view, 3> kHarmless = {"format=flowed", "delsp=yes", "delsp=no"};
  constexpr std::string_view kCharset = "charset=";
  const auto takeOne = [&type] {
    const std::size_t end = std::min(type.find(';'), type.size());
    const std::string_view one = trim(type.substr(0, end));
    type.remove_prefix(std::min(end + 1, type.size()));
    return one;
  };
  if (!equalsNoCase(takeOne(), "text/plain")) return std::nullopt;
  std::string_view charset;
  while (!type.empty()) {
    std::string_view parameter = takeOne();
    const auto isSame = [&parameter](std::string_view known) { return equalsNoCase(parameter, known); };
    if (parameter.empty() || std::ranges::any_of(kHarmless, isSame)) continue;
    if (!beginsWithNoCase(parameter, kCharset) || !charset.empty()) return std::nullopt;
    parameter.remove_prefix(kCharset.size());
    if (parameter.size() > 2 && parameter.starts_with('"') && parameter.ends_with('"'))
      parameter = parameter.substr(1, parameter.size() - 2);
    if (std::ranges::none_of(kCharsets, isSame)) return std::nullopt;
    charset = parameter;
  }
  return charset.empty() ? kCharsets.front() : charset;
}

bool isPlainEncoding(std::string_view encoding) {
  return encoding.empty() || equalsNoCase(encoding, "7bit") || equalsNoCase(encoding, "8bit");
}

bool hasLineBeginning(std::string_view text, std::string_view begin) noexcept {
  for (std::size_t at = 0; (at = findSubstring(text, begin, at)) != std::string_view::npos; ++at)
    if (at == 0 || text[at - 1] == '\n' || text[at - 1] == '\r') return true;
  return false;
}

}  // namespace

LazyMessage::LazyMessage(const Keys* keys) : m_keys(keys), m_header(std::make_unique<MimeHeader>()) {}
LazyMessage::LazyMessage(const LazyMessage& other) : LazyMessage(other.m_keys) {}
LazyMessage::~LazyMessage() = default;

void LazyMessage::assign(const SourceMessage& message) {
  m_source = &message;
  m_hasHeader = m_hasLowerCaseHeader = false;
  m_isPlainText.reset();
  m_message.reset();
}

bool LazyMessage::isUnread() const noexcept {
  return m_source->isInMaildir && (!m_source->flags || m_source->flags->find('S') == std::string::npos);
}

const MimeHeader& LazyMessage::header() {
  if (m_hasHeader) return *m_header;
  const std::string_view bytes = m_source->bytes, text = MimeParser::skipPrologue(bytes);
  const MimeHeader::Extent extent = m_header->loadFromEntity(text);
  m_bodyBegin = bytes.size() - text.size() + extent.bodyOffset;
  m_isHeaderBroken = extent.malformed || !extent.limits.isEmpty();
  m_hasHeader = true;
  return *m_header;
}

Address LazyMessage::from() {
  const std::optional<_svEmailAddress> sender = senderIn(header());
  return sender ? valueOf(*sender) : Address();
}

std::vector<Address> LazyMessage::addresses(std::string_view field) { return addressesIn(header(), field); }

std::string LazyMessage::subject() { return subjectIn(header()); }
std::optional<Date> LazyMessage::date() { return sentDateIn(header()); }
std::string LazyMessage::messageId() { return messageIdIn(header()); }
std::string LazyMessage::inReplyTo() { return inReplyToIn(header()); }
std::vector<std::string> LazyMessage::references() { return referencesIn(header()); }
std::string LazyMessage::listId() { return listIdIn(header()); }

bool LazyMessage::mayHaveInHeader(std::string_view lowerCaseText) {
  if (!m_hasLowerCaseHeader) {
    const std::string_view header = headerAtLeast(m_source->bytes);
    m_mayHaveAnything = mayReadOtherwise(header);
    m_lowerCaseHeader.clear();
    if (!m_mayHaveAnything) appendFolded(m_lowerCaseHeader, header);
    m_hasLowerCaseHeader = true;
  }
  return m_mayHaveAnything || findSubstring(m_lowerCaseHeader, lowerCaseText) != std::string_view::npos;
}

const Message* LazyMessage::message() {
  if (!m_message) m_message.emplace(Message::parse(m_source->bytes, {.keys = m_keys}));
  return *m_message ? &**m_message : nullptr;
}

Result<Message> LazyMessage::takeMessage() {
  message();
  return *std::move(m_message);
}

std::size_t LazyMessage::attachmentCount() {
  if (isPlainText() || !message()) return 0;
  return message()->attachments().size();
}

bool LazyMessage::isSigned() { return !isPlainText() && message() && message()->security().isSigned(); }
bool LazyMessage::isEncrypted() { return !isPlainText() && message() && message()->security().isEncrypted(); }

bool LazyMessage::isRepaired() {
  if (isPlainText() || !message()) return false;
  return std::ranges::any_of(MessageState::of(*message()).outline().rows,
                             [](const PartRow& row) { return !row.node->m_repairs.isEmpty(); });
}

std::string LazyMessage::text() { return message() ? message()->text() : std::string(); }

bool LazyMessage::isPlainText() {
  if (m_message) return false;  // then the message answers
  if (!m_isPlainText) m_isPlainText = judgePlainText();
  return *m_isPlainText;
}

bool LazyMessage::judgePlainText() {
  const MimeHeader& fields = header();
  if (m_isHeaderBroken || fields.has8bit()) return false;
  for (const char* const name : {"Content-Disposition", "Content-Class", "Content-ID"})
    if (fields.findField(name) >= 0) return false;
  std::string scratch;
  const int type = fields.findField("Content-Type"), encoding = fields.findField("Content-Transfer-Encoding");
  const std::optional<std::string_view> charset =
      charsetOfPlainText(type < 0 ? "text/plain" : fields.unfoldedValue(type, scratch));
  if (!charset) return false;
  const bool isUtf8 = equalsNoCase(*charset, "utf-8");
  if (!isPlainEncoding(fields.unfoldedValue(encoding, scratch))) return false;
  const std::string_view body = std::string_view(m_source->bytes).substr(m_bodyBegin);
  // NUL is repaired, ESC may begin a text of iso-2022, and files may be encoded in the text.
  return (isUtf8 ? isValidUtf8(body) : isAscii(body)) && findAny<'\0', '\x1B'>(body) == body.size() &&
         !hasLineBeginning(body, "begin");
}

}  // namespace mailtree
