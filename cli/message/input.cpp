#include "cli/message/input.h"

#include <algorithm>
#include <utility>

#include "cli/support/errors.h"
#include "mailtree/message/tree_changes.h"
#include "mailtree/mime/Limits.h"

namespace mailtree::cli {
namespace {

/// Repairs after which something of the message is missing or cannot be read for certain.
constexpr Repair kDamages[] = {Repair::boundaryMissing, Repair::boundaryUnclosed, Repair::contentType,
                               Repair::headerSyntax,    Repair::nulBytes,         Repair::damagedText};

bool isDamaged(const Email2& root) {
  if (!root.m_common->m_limits.isEmpty()) return true;
  return walkTree(root, [](const Email2& node) {
           const bool isIt = std::ranges::any_of(kDamages, [&](Repair r) { return node.m_repairs.has(r); });
           return isIt ? Walk::stop : Walk::descend;
         }) == Walk::stop;
}

bool next(Sources& sources, Input& input) {
  if (!sources.next(input.source)) return false;
  input.name = nameOf(input.source);
  input.found = sources.found();
  input.isDamaged = false;
  return true;
}

/// Gets the bytes; not fine after reporting an error.
Exit readBytes(Input& input, const SourceOptions& options) {
  const Result<void> read = readMessage(input.source, options);
  if (read) return Exit::fine;
  reportError(input.name, problemOf(read.error()));
  return read.error().code == ErrorCode::tooLarge ? Exit::limit : Exit::unreadable;
}

std::optional<Message> load(const std::string& name, std::string_view text, bool unwrap) {
  Message message{RefPtr<_svEmailCommon>(new _svEmailCommon), nullptr};
  LogNull log;
  SystemCerts none;
  DataBuffer bytes;
  if (bytes.append(text))
    message.root.reset(Email2::createFromMimeDb(*message.common, bytes, /*discardInput=*/true, unwrap, none,
                                                log, /*parseOption=*/false));
  // An incomplete tree must not be reported, or written over the complete message.
  if (message.root && message.common->m_isWhole) return message;
  reportError(name, kNoMemory);
  return std::nullopt;
}

std::optional<Message> noted(Input& input, std::optional<Message> message) {
  input.isDamaged = message && isDamaged(*message->root);
  return message;
}

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

}  // namespace

std::optional<Input> readInput(const std::string& argument) {
  SourceArguments one;
  one.paths.push_back(argument);
  Sources sources(std::move(one), {.emptyIsMessage = true});
  Input input, second;
  if (!next(sources, input) || readBytes(input, {}) != Exit::fine) return std::nullopt;
  if (!next(sources, second)) return input;
  reportError(argument, "contains several messages; name one, such as " + input.name);
  return std::nullopt;
}

std::optional<Message> loadMessage(Input& input) {
  return noted(input, load(input.name, input.bytes(), /*unwrap=*/true));
}

std::optional<Message> loadMessageToWrite(const std::string& name, std::string_view bytes) {
  std::optional<Message> message = load(name, bytes, /*unwrap=*/false);
  if (message && hasUnixLines(bytes)) walkUnsigned(*message->root, convertToCrlf);
  return message;
}

std::optional<Message> loadMessageToWrite(Input& input) {
  return noted(input, loadMessageToWrite(input.name, input.bytes()));
}

std::optional<Message> loadMessageToWrite(const std::string& argument) {
  std::optional<Input> input = readInput(argument);
  return input ? loadMessageToWrite(*input) : std::nullopt;
}

std::optional<mailtree::Message> openMessage(Input& input, const mailtree::Keys& keys) {
  Result<mailtree::Message> message = mailtree::Message::parse(input.bytes(), {.keys = &keys});
  if (message) {
    input.isDamaged = isDamaged(std::as_const(*message).email2());
    return std::move(*message);
  }
  reportError(input.name, message.error().message);
  return std::nullopt;
}

std::optional<mailtree::Message> openMessage(Input& input) { return openMessage(input, {}); }

std::optional<mailtree::Message> openMessage(const std::string& argument, const mailtree::Keys& keys) {
  std::optional<Input> input = readInput(argument);
  return input ? openMessage(*input, keys) : std::nullopt;
}

std::optional<mailtree::Message> openMessage(const std::string& argument) {
  return openMessage(argument, mailtree::Keys());
}

LimitSet limitsIn(const mailtree::Message& message) { return message.email2().m_common->m_limits; }

Exit reportLimits(const std::string& name, LimitSet limits) {
  for (const LimitText& row : kLimitTexts)
    if (limits.has(row.limit)) reportError(name, row.text() + ": the rest was not processed");
  return limits.isEmpty() ? Exit::fine : Exit::limit;
}

}  // namespace mailtree::cli
