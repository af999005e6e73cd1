#include "mailtree/message/received_form.h"

#include <algorithm>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/message/internal_fields.h"

namespace mailtree {
namespace {

/// Whether CR is nowhere used, as in a file of a Unix host. With NUL bytes, LF may be half of a character.
bool hasOnlyUnixLines(std::string_view bytes) {
  return bytes.find_first_of({"\r\0", 2}) == std::string::npos;
}

bool hasBareCr(std::string_view bytes) {
  for (std::size_t at = 0; (at = bytes.find('\r', at)) != std::string_view::npos; ++at)
    if (!bytes.substr(at + 1).starts_with('\n')) return true;
  return false;
}

std::string withCrlf(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size() + bytes.size() / 32);
  for (const char c : bytes) {
    if (c == '\n') text += '\r';
    text += c;
  }
  return text;
}

/// Whether a field is left out: those internal to the library always, hidden recipients unless wanted.
bool isLeftOut(std::string_view name, bool bcc) {
  return isInternalField(name) || (!bcc && (equalsNoCase(name, "Bcc") || equalsNoCase(name, "Resent-Bcc")));
}

int countLeftOut(const MimeHeader& header, bool bcc) {
  int count = 0;
  for (int i = 0; i < header.getNumFields(); ++i) count += isLeftOut(header.fieldName(i), bcc);
  return count;
}

/// Removes such fields from a message whose lines end in LF or CRLF. Nothing when there are fewer of them
/// than `expected`: a header that is read otherwise, by bare CRs for example, would give hidden recipients
/// away.
std::optional<std::string> withFieldsSent(std::string_view message, bool bcc, int expected) {
  std::string kept;
  kept.reserve(message.size());
  std::string_view rest = message;
  for (bool isOut = false, hasField = false; !rest.empty();) {
    const std::string_view line = rest.substr(0, std::min(rest.find('\n'), rest.size() - 1) + 1);
    const bool isEmpty = line == "\n" || line == "\r\n";
    if (isEmpty && hasField) break;
    if (!isBlankAscii(line[0])) {
      isOut = isLeftOut(trimRight(line.substr(0, line.find(':'))), bcc);
      expected -= isOut;
    }
    if (!isOut) kept += line;
    hasField |= !isEmpty;
    rest.remove_prefix(line.size());
  }
  if (expected > 0) return std::nullopt;
  return std::move(kept.append(rest));
}

/// Doubles the dots that begin a line (RFC 5321, 4.5.2).
std::string dotStuffed(std::string_view message) {
  std::string stuffed;
  stuffed.reserve(message.size() + message.size() / 64);
  for (bool isLineBegin = true; const char c : message) {
    if (isLineBegin && c == '.') stuffed += '.';
    stuffed += c;
    isLineBegin = c == '\n';
  }
  return stuffed;
}

bool beginsWithUnixLine(std::string_view bytes) {
  const std::size_t end = bytes.find('\n');
  return end != std::string_view::npos && (end == 0 || bytes[end - 1] != '\r');
}

/// Hidden recipients may be in a list only, for which a field must be written.
bool hasBccWithoutField(const Email2& root) {
  return root.m_bccAddrs.getSize() > 0 && root.m_header.findField("Bcc") < 0;
}

}  // namespace

std::optional<std::string> receivedForm(const MessageState& state, const WriteOptions& options) {
  const std::string_view bytes = state.receivedBytes();
  if (bytes.empty() || (options.asciiOnly && !isAscii(bytes))) return std::nullopt;
  if (options.bcc && hasBccWithoutField(state.root())) return std::nullopt;
  // Some servers take a bare CR for a line end.
  if (options.dotStuff && hasBareCr(bytes)) return std::nullopt;
  const bool isUnixFile = beginsWithUnixLine(bytes);
  if (isUnixFile && !hasOnlyUnixLines(bytes)) return std::nullopt;  // not every LF is a line break
  const std::string converted = isUnixFile ? withCrlf(bytes) : std::string();
  std::optional<std::string> sent = withFieldsSent(isUnixFile ? converted : bytes, options.bcc,
                                                   countLeftOut(state.root().m_header, options.bcc));
  return sent && options.dotStuff ? dotStuffed(*sent) : sent;
}

Result<std::string> wholeMessage(const Message& message) {
  return message.toString({.bcc = true, .inClear = true});
}

}  // namespace mailtree
