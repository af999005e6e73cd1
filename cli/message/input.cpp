#include "cli/message/input.h"

#include <algorithm>

#include "cli/support/errors.h"
#include "cli/support/files.h"
#include "mailtree/message/tree_changes.h"
#include "mailtree/mime/Limits.h"
#include "mailtree/mime/header/HeaderLines.h"

namespace mailtree::cli {
namespace {

std::optional<Message> load(const std::string& path, DataBuffer& bytes, bool discardInput, bool unwrap,
                            SystemCerts& certs) {
  Message message{RefPtr<_svEmailCommon>(new _svEmailCommon), nullptr};
  LogNull log;
  message.root.reset(Email2::createFromMimeDb(*message.common, bytes, discardInput, unwrap, certs, log,
                                              /*parseOption=*/false));
  // An incomplete tree must not be reported, or written over the complete message.
  if (message.root && message.common->m_isWhole) return message;
  reportError(path, kNoMemory);
  return std::nullopt;
}

/// Looks for the end of a header in a text that grows.
class HeaderEnd {
 public:
  /// Whether the header is complete, or too long for anyone to read all of it.
  bool isIn(std::string_view text) {
    for (std::size_t end; isWhole(text, end = endOfLine(text, m_line)); m_line = afterLineBreak(text, end)) {
      if (end == m_line && m_hasText) return true;
      m_hasText = m_hasText || !trim(text.substr(m_line, end - m_line)).empty();
      if (!m_hasText) m_begin = end;
    }
    return text.size() - m_begin > kMost;
  }

 private:
  /// Enough to see that the limit is exceeded.
  static constexpr std::size_t kMost = kMaxHeaderBytes + (std::size_t{64} << 10);

  /// Whether the line break at `end` is there, and all of it: CR may be half of one.
  static bool isWhole(std::string_view text, std::size_t end) {
    const std::string_view rest = text.substr(std::min(end, text.size()));
    return !rest.empty() && rest != "\r" && rest != "\r\r";
  }

  std::size_t m_begin = 0;  ///< Of the header, after empty lines.
  std::size_t m_line = 0;   ///< The first line that was not complete.
  bool m_hasText = false;
};

bool hasUnixLines(std::string_view message) {
  const std::size_t end = message.find('\n');
  return end != std::string_view::npos && (end == 0 || message[end - 1] != '\r');
}

/// Whether line breaks in a body are those of the message. base64 and binary carry bytes; in
/// quoted-printable, only in text are literal line breaks the same as encoded ones.
bool hasTextLineBreaks(const Email2& leaf) {
  const std::string_view encoding = leaf.m_transferEncoding;
  if (encoding.empty() || equalsNoCase(encoding, "7bit") || equalsNoCase(encoding, "8bit")) return true;
  const std::string_view type = leaf.m_contentType.m_type;
  return equalsNoCase(encoding, "quoted-printable") && (type.empty() || beginsWithNoCase(type, "text/"));
}

void convertToCrlf(Email2& node) {
  if (node.getNumParts() > 0 || !hasTextLineBreaks(node) || !node.m_body.containsBareCRLF() ||
      node.m_body.containsChar('\0'))
    return;  // with NUL bytes present, LF may be half of a character
  StringBuffer lines(node.m_body.view());
  DataBuffer body;
  if (lines.toCRLF() && body.append(lines)) node.m_body.takeData(body);
}

std::optional<Message> loadToWrite(const std::string& path, DataBuffer& bytes, bool discardInput) {
  const bool isUnixFile = hasUnixLines(bytes.view());
  SystemCerts none;
  std::optional<Message> message = load(path, bytes, discardInput, /*unwrap=*/false, none);
  if (message && isUnixFile) walkUnsigned(*message->root, convertToCrlf);
  return message;
}

}  // namespace

std::optional<Message> loadMessage(const std::string& path, SystemCerts& certs) {
  DataBuffer bytes;
  if (!readFile(path, bytes)) return std::nullopt;
  return load(path, bytes, /*discardInput=*/true, /*unwrap=*/true, certs);
}

std::optional<Message> loadMessage(const std::string& path) {
  SystemCerts none;
  return loadMessage(path, none);
}

std::optional<Message> loadMessage(const std::string& path, DataBuffer& bytes, SystemCerts& certs) {
  return load(path, bytes, /*discardInput=*/false, /*unwrap=*/true, certs);
}

std::optional<Message> loadMessageToWrite(const std::string& path) {
  DataBuffer bytes;
  if (!readFile(path, bytes)) return std::nullopt;
  return loadToWrite(path, bytes, /*discardInput=*/true);
}

std::optional<Message> loadMessageToWrite(const std::string& path, DataBuffer& bytes) {
  return loadToWrite(path, bytes, /*discardInput=*/false);
}

std::optional<mailtree::Message> openMessage(const std::string& path, const mailtree::Keys& keys) {
  DataBuffer bytes;
  if (!readFile(path, bytes)) return std::nullopt;
  Result<mailtree::Message> message = mailtree::Message::parse(bytes.view(), {.keys = &keys});
  if (message) return std::move(*message);
  reportError(path, message.error().message);
  return std::nullopt;
}

std::optional<mailtree::Message> openMessage(const std::string& path) { return openMessage(path, {}); }

LimitSet limitsIn(const mailtree::Message& message) { return message.email2().m_common->m_limits; }

bool readHeader(const std::string& path, DataBuffer& bytes) {
  HeaderEnd end;
  return readFileUntil(path, bytes, [&end](std::string_view text) { return end.isIn(text); });
}

Exit reportLimits(const std::string& path, LimitSet limits) {
  for (const LimitText& row : kLimitTexts)
    if (limits.has(row.limit)) reportError(path, row.text() + ": the rest was not processed");
  return limits.isEmpty() ? Exit::fine : Exit::limit;
}

}  // namespace mailtree::cli
