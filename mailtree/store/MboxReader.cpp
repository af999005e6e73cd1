#include "mailtree/store/MboxReader.h"

#include <algorithm>

#include "mailtree/base/Search.h"
#include "mailtree/store/mbox_quoting.h"

namespace mailtree {
namespace {

/// What is searched for finds separators and quoted lines at once. Without the blank after it, because an "m"
/// at its end is rarer than a blank.
constexpr std::string_view kFrom = "From";
/// A longer message of a file is read again when its end is known, so a hole of 5 GB takes no memory.
constexpr std::uint64_t kHeldBytes = std::uint64_t{4} << 20;
/// A length beyond these is not followed: the header must be found, and a stream has to be kept so far.
constexpr std::uint64_t kLargestHeader = std::uint64_t{256} << 10,
                        kFollowedInStream = std::uint64_t{16} << 20;
constexpr std::uint64_t kLargestLength = std::uint64_t{1} << 48;

std::uint64_t sizeOfFraction(std::uint64_t size, std::uint64_t part, std::uint64_t parts) noexcept {
  return size / parts * part + size % parts * part / parts;
}

/// Length of a line end at the beginning of a text; 0 when there is none.
std::size_t lineEndSize(std::string_view text) noexcept {
  return text.starts_with("\n") ? 1 : text.starts_with("\r\n") ? 2 : 0;
}

Error noMessageAt(std::uint64_t offset, const std::string& path) {
  return {ErrorCode::notFound, "no message begins at byte " + std::to_string(offset), path};
}

}  // namespace

MboxReader::MboxReader(std::shared_ptr<FileReader> file, const SourceOptions& options)
    : m_path(file->path()), m_options(options), m_window(std::move(file), options.window) {}

MboxReader::MboxReader(std::unique_ptr<ByteStream> stream, std::string path, const SourceOptions& options)
    : m_path(std::move(path)), m_options(options), m_window(std::move(stream), options.window) {}

MailSource::Kind MboxReader::kind() const noexcept { return m_kind; }

Result<void> MboxReader::begin(bool isMessage) {
  if (isMessage) {
    m_kind = MailSource::Kind::message;
    return {};
  }
  if (Result<void> done = m_window.ensure(0, 2 * kJudgedBytes, 0); !done) return done;
  const std::string_view text = m_window.text();
  if (text.empty()) return {};
  // Some programs leave an empty line before the first message.
  m_first = std::min({text.find_first_not_of("\r\n"), text.size(), kJudgedBytes});
  const Separator separator = readFirstLine(text.substr(m_first));
  if (separator.size == 0) {
    m_kind = MailSource::Kind::message;
    return {};
  }
  m_at = m_first;
  if (separator.isQuoted) return {};
  const Result<Lengths> lengths = contentByLength(m_at + separator.size);
  if (!lengths) return lengths.error();
  m_usesLengths = lengths->next > 0;
  return {};
}

Result<bool> MboxReader::advance(SourceMessage* message) {
  if (message) clearMessage(*message);
  if (m_kind == MailSource::Kind::message) return giveWhole(message);
  if (m_window.file() && m_at > m_window.end()) m_window.moveTo(m_at);
  if (Result<void> done = m_window.ensure(m_at, kJudgedBytes, m_at); !done) return std::move(done).error();
  if (m_at >= m_rangeEnd || m_at >= m_window.end()) return false;

  const std::optional<Separator> separator = separatorHere();
  if (!separator) return Error{ErrorCode::unreadable, "was changed while it was read", m_path};
  if (message) {  // now, because the text moves
    message->path = m_path;
    message->number = m_isCounting ? m_number + 1 : 0;
    message->offset = m_at;
    message->sender = separator->sender;
    message->date = separator->date;
  }
  const Result<Lengths> found = findContent(m_at + separator->size, *separator);
  if (!found) return found.error();
  ++m_number;
  if (message) {
    message->length = found->next - m_at;
    message->sharesFile = m_at != m_first || !isEnd(found->next);
    if (Result<void> done = copy(*found, *separator, *message); !done) return std::move(done).error();
  }
  m_at = found->next;
  return true;
}

/// The separator at m_at, whose line is in the window.
std::optional<Separator> MboxReader::separatorHere() const {
  const std::string_view text = m_window.text(m_at);
  if (m_at == m_first) return readFirstLine(text);
  if (m_at != m_found.at) return readSeparator(text, /*isAfterEmptyLine=*/true);
  Separator separator = m_found.separator;
  separator.sender = text.substr(m_found.senderAt, separator.sender.size());
  return separator;
}

bool MboxReader::isEnd(std::uint64_t at) const noexcept {
  const FileReader* const file = m_window.file();
  return file ? at >= file->size() : m_window.isAtEnd() && at >= m_window.end();
}

/// Gives a file that is one message.
Result<bool> MboxReader::giveWhole(SourceMessage* message) {
  if (m_number++ > 0 || m_at >= m_rangeEnd) return false;
  if (!message) return true;
  message->path = m_path;
  message->number = 1;
  const FileReader* const file = m_window.file();
  if (!file) {
    if (Result<void> done = m_window.ensure(0, m_options.largest + 1, 0); !done)
      return std::move(done).error();
  }
  const Lengths whole{.begin = 0, .end = file ? file->size() : m_window.end()};
  message->length = whole.end;
  if (Result<void> done = copyBytes(whole, *message); !done) return std::move(done).error();
  return true;
}

Result<MboxReader::Lengths> MboxReader::findContent(std::uint64_t begin, const Separator& separator) {
  if (m_usesLengths && !separator.isQuoted) {
    Result<Lengths> content = contentByLength(begin);
    if (!content || content->next > 0) return content;
  }
  m_hasQuoted = false;
  const Result<std::uint64_t> end = findSeparator(begin - 1, m_at);
  if (!end) return end.error();
  return Lengths{.begin = begin, .end = *end, .next = *end};
}

/// Where to read on from when the message that begins at `message` has been searched up to `searched`.
std::uint64_t MboxReader::keepFrom(std::uint64_t message, std::uint64_t searched) const noexcept {
  const std::uint64_t most = m_options.largest + kJudgedBytes;  // with its separator
  const std::uint64_t held = m_window.file() ? std::min(kHeldBytes, most) : most;
  return searched - message <= held ? message : searched - std::min<std::uint64_t>(searched, kBytesBefore);
}

/// The next separator after the line end at `from`, or the end.
Result<std::uint64_t> MboxReader::findSeparator(std::uint64_t from, std::uint64_t message) {
  for (;;) {
    const std::string_view text = m_window.text(from);  // begins with the byte before what is searched
    const std::size_t found = findSubstring(text, kFrom, 1);
    if (found != std::string_view::npos) {
      const char before = text[found - 1];
      m_hasQuoted = m_hasQuoted || before == '>';
      from += found;
      if (before != '\n') continue;
      const Result<bool> isSeparator = isSeparatorAt(from, keepFrom(message, from - 1));
      if (!isSeparator) return isSeparator.error();
      if (*isSeparator) return from;
      continue;
    }
    if (m_window.isAtEnd()) return m_window.end();
    from = std::max(from, m_window.end() - std::min<std::uint64_t>(m_window.end(), kFrom.size()));
    const std::uint64_t keep = keepFrom(message, from);
    if (keep != message) {
      m_window.skipHole();
      from = std::max(from, m_window.begin());
    }
    if (Result<void> done = m_window.more(keep); !done) return std::move(done).error();
  }
}

Result<bool> MboxReader::isSeparatorAt(std::uint64_t line, std::uint64_t keep) {
  if (Result<void> done = m_window.ensure(line, kJudgedBytes, keep); !done) return std::move(done).error();
  const std::uint64_t before = std::max(m_window.begin(), line - std::min<std::uint64_t>(line, kBytesBefore));
  const std::string_view lineEnds = m_window.text(before).substr(0, line - before);
  // After a hole there are fewer bytes, and the line before is not empty.
  const bool isKnown = lineEnds.size() == kBytesBefore || before == 0;
  const std::string_view text = m_window.text(line);
  const std::optional<Separator> separator = readSeparator(text, isKnown && endsWithEmptyLine(lineEnds));
  if (!separator) return false;
  const std::string_view sender = separator->sender;
  const auto senderAt = static_cast<std::size_t>(sender.empty() ? 0 : sender.data() - text.data());
  m_found = {.at = line, .senderAt = senderAt, .separator = *separator};
  return true;
}

/// The bytes around a position, for judging it: those before it, and those of a line, its end and more. Of a
/// file they are read apart from the window.
Result<MboxReader::Surroundings> MboxReader::surroundings(std::uint64_t at, std::uint64_t keep) {
  constexpr std::size_t kAfter = kJudgedBytes + 2;
  const std::uint64_t from = at - std::min<std::uint64_t>(at, kBytesBefore);
  if (const FileReader* const file = m_window.file()) {
    if (at > file->size()) return Surroundings{};
    m_judged.resize(static_cast<std::size_t>(std::min(file->size(), at + kAfter) - from));
    if (Result<void> done = file->readAt(from, m_judged.data(), m_judged.size()); !done)
      return std::move(done).error();
    return Surroundings{.isThere = true, .text = m_judged, .before = static_cast<std::size_t>(at - from)};
  }
  if (Result<void> done = m_window.ensure(at, kAfter, keep); !done) return std::move(done).error();
  if (at > m_window.end() || from < m_window.begin()) return Surroundings{};
  return Surroundings{
      .isThere = true, .text = m_window.text(from), .before = static_cast<std::size_t>(at - from)};
}

/// The message whose content begins there, by its Content-Length; `next` is 0 when that leads nowhere.
Result<MboxReader::Lengths> MboxReader::contentByLength(std::uint64_t begin) {
  MboxHeader header;
  for (std::uint64_t size = kJudgedBytes; header.size == std::string_view::npos; size *= 4) {
    if (size > kLargestHeader) return Lengths{};
    if (Result<void> done = m_window.ensure(begin, size, m_at); !done) return std::move(done).error();
    const std::string_view text = m_window.text(begin).substr(0, kLargestHeader);
    header = readMboxHeader(text);
    // A header has no such line: it would be looked for again and again in the messages that follow.
    const bool isOver = m_window.isAtEnd() || findSubstring(text, "\nFrom ") < header.size;
    if (isOver) break;
  }
  const std::uint64_t most = m_window.file() ? kLargestLength : kFollowedInStream;
  if (header.size == std::string_view::npos || header.contentLength.value_or(most + 1) > most)
    return Lengths{};
  const std::uint64_t end = begin + header.size + *header.contentLength;
  const Result<Surroundings> around = surroundings(end, m_at);
  if (!around) return around.error();
  if (!around->isThere) return Lengths{};
  // A line end before the separator is not counted; without it the content ends with one.
  const std::string_view before = around->text.substr(0, around->before);
  std::string_view after = around->text.substr(around->before);
  const std::size_t lineEnd = lineEndSize(after);
  after.remove_prefix(lineEnd);
  const bool isLineBegin = lineEnd > 0 || before.ends_with('\n');
  const bool isEnd = after.empty() || (isLineBegin && readSeparator(after, /*isAfterEmptyLine=*/lineEnd > 0));
  return isEnd ? Lengths{.begin = begin, .end = end, .next = end + lineEnd, .isExact = true} : Lengths{};
}

Result<void> MboxReader::copyBytes(const Lengths& content, SourceMessage& message) {
  const std::uint64_t size = content.end - content.begin;
  if (size > m_options.largest) {
    message.error = tooLarge(m_path, size);
    return {};
  }
  message.hasBytes = true;
  if (content.begin >= m_window.begin() && content.end <= m_window.end()) {
    message.bytes = m_window.text(content.begin).substr(0, size);
    // While a long message of a stream is worked on, it is not held twice.
    if (size > kHeldBytes && !m_window.file()) m_window.release(content.end - kBytesBefore);
    return {};
  }
  message.bytes.resize(size);
  return m_window.file()->readAt(content.begin, message.bytes.data(), size);
}

Result<void> MboxReader::copy(const Lengths& content, const Separator& separator, SourceMessage& message) {
  if (Result<void> done = copyBytes(content, message); !done || content.isExact || message.error) return done;
  message.bytes.resize(sizeWithoutEmptyLine(message.bytes));
  if (m_hasQuoted) unquoteLines(message.bytes);
  if (separator.addsLineEnd && message.bytes.ends_with('\n')) message.bytes.pop_back();
  return {};
}

Result<void> MboxReader::seekOffset(std::uint64_t offset) {
  if (m_kind != MailSource::Kind::mbox) return SourceReader::seekOffset(offset);
  Result<void> found = m_window.file() ? jumpTo(offset) : passTo(offset);
  if (!found) return found;
  m_isCounting = offset == m_first;
  m_number = 0;
  return {};
}

Result<void> MboxReader::jumpTo(std::uint64_t offset) {
  const Result<Surroundings> around = surroundings(offset, offset);
  if (!around) return around.error();
  const std::string_view before = std::string_view(around->text).substr(0, around->before);
  const bool isLineBegin = around->isThere && before.ends_with('\n');
  const bool isMessage =
      offset == m_first ||
      (isLineBegin && readSeparator(around->text.substr(around->before), endsWithEmptyLine(before)));
  if (!isMessage) return noMessageAt(offset, m_path);
  m_window.moveTo(offset);
  m_at = offset;
  return {};
}

/// A stream only goes forward.
Result<void> MboxReader::passTo(std::uint64_t offset) {
  while (m_at < offset && !isEnd(m_at))
    if (const Result<bool> passed = pass(); !passed) return passed.error();
  if (m_at != offset || isEnd(m_at)) return noMessageAt(offset, m_path);
  return {};
}

Result<bool> MboxReader::takeRange(std::uint64_t part, std::uint64_t parts) {
  const FileReader* const file = m_window.file();
  if (!file) return false;
  return takeBytes(sizeOfFraction(file->size(), part, parts), sizeOfFraction(file->size(), part + 1, parts));
}

Result<bool> MboxReader::takeBytes(std::uint64_t begin, std::uint64_t end) {
  if (!m_window.file() || m_kind != MailSource::Kind::mbox) return false;
  m_rangeEnd = end;
  if (begin <= m_first) return true;
  while (m_usesLengths && m_at < begin) {
    const Result<bool> passed = pass();
    if (!passed || !*passed) return passed ? true : passed;
  }
  if (m_usesLengths) return true;
  m_isCounting = false;
  const std::uint64_t lineEnd = begin - 1;
  m_window.moveTo(lineEnd - std::min<std::uint64_t>(lineEnd, kBytesBefore));
  if (Result<void> done = m_window.ensure(lineEnd, 1, 0); !done) return std::move(done).error();
  const Result<std::uint64_t> first = findSeparator(lineEnd, m_window.begin());
  if (!first) return first.error();
  m_at = *first;
  return true;
}

}  // namespace mailtree
