// message/files.cpp - files of a message: attached, removed.
#include "mailtree/message/files.h"

#include <algorithm>
#include <set>
#include <tuple>

#include "mailtree/base/Platform.h"
#include "mailtree/base/Search.h"
#include "mailtree/base/Utf.h"
#include "mailtree/message/content.h"
#include "mailtree/message/fields.h"
#include "mailtree/message/media_types.h"
#include "mailtree/mime/BoundaryLines.h"
#include "mailtree/mime/LineLengths.h"

namespace mailtree {
namespace {

constexpr const char* kMixed = "multipart/mixed";
constexpr std::string_view kMessageType = "message/rfc822";
constexpr std::string_view kUnknownType = "application/octet-stream";

// Attached messages

/// The transfer encoding that leaves the bytes as they are (RFC 2045, 2.7 to 2.9); null for 7bit.
const char* identityEncodingFor(const DataBuffer& bytes) {
  const std::string_view view = bytes.view();
  const bool isText =
      !bytes.containsChar('\0') && !hasBareLineEnd(view) && !hasLineLongerThan(view, kLongestLine);
  if (!isText) return "binary";
  return bytes.is7bit(0) ? nullptr : "8bit";
}

/// Whether some content is bytes in which LF need not be a line break (RFC 2045, 2.9). A line of text that
/// looks like such a label only has the effect that the message keeps its LF.
bool holdsBinary(std::string_view message) {
  constexpr std::string_view kLabel = "content-transfer-encoding:";
  if (message.find('\0') != std::string_view::npos) return true;
  for (std::size_t begin = 0; begin < message.size();) {
    const std::string_view rest = message.substr(begin);
    if (beginsWithNoCase(rest, kLabel) && beginsWithNoCase(trimLeft(rest.substr(kLabel.size())), "binary"))
      return true;
    begin += std::min(rest.find('\n'), rest.size() - 1) + 1;
  }
  return false;
}

/// Whether LF is what ends the lines: a message as files have it.
bool hasUnixLines(std::string_view message) {
  return contains(message, "\n") && !contains(message, "\r") && !holdsBinary(message);
}

/// The lines that begin with "--", which may be boundaries.
std::vector<std::string_view> dashLinesOf(std::string_view bytes) {
  std::vector<std::string_view> lines;
  for (std::size_t at = findDashLine(bytes, 0); at != std::string_view::npos;) {
    const DashLine line = dashLineAt(bytes, at);
    lines.push_back(line.content);
    at = line.next < bytes.size() ? findDashLine(bytes, line.next) : std::string_view::npos;
  }
  std::ranges::sort(lines);
  return lines;
}

/// Whether a line begins with the boundary: some programs compare no more than that.
bool beginsOne(const std::vector<std::string_view>& sortedLines, std::string_view boundary) {
  const auto next = std::ranges::lower_bound(sortedLines, boundary);
  return next != sortedLines.end() && next->starts_with(boundary);
}

void avoidBoundariesIn(Email2& root, std::string_view bytes, LogBase& log) {
  const std::vector<std::string_view> lines = dashLinesOf(bytes);
  if (lines.empty()) return;
  walkUnsigned(root, [&](Email2& node) {
    if (node.getNumParts() == 0 || !beginsOne(lines, node.m_contentType.m_boundary.view())) return;
    Psdk::generateBoundary(node.m_contentType.m_boundary, log);
    node.refreshContentTypeHeader(log);
  });
}

// What is given

Error badValue(std::string message, std::string_view name) {
  return {ErrorCode::badValue, std::move(message), std::string(name)};
}

Result<void> attachTo(MessageState& state, const GivenFile& file, DataBuffer& bytes) {
  if (Result<void> begun = beginContent(state, 2 * bytes.getSize()); !begun) return begun;
  LogNull log;
  const bool isDone = file.isMessage()
                          ? attachMessageTo(state.root(), file.name, bytes, log)
                          : attachFileTo(state.root(), file.name, file.type, file.codePage, bytes, log);
  endContent(state);
  return isDone ? Result<void>() : Result<void>(noMemory());
}

/// Leaves an empty text when the file was the whole message.
void emptyRoot(Email2& root, LogBase& log) {
  while (root.getNumParts() > 0) EmailPtr(root.extractSubpartByIndex(0));
  for (const char* const field : {"Content-Disposition", "Content-Transfer-Encoding", "Content-ID"})
    root.removeHeaderField(field);
  root.m_contentType.clear();
  root.setContentTypeUtf8("text/plain", nullptr, nullptr, nullptr, 0, nullptr, nullptr, nullptr, log);
  root.m_body.clear();
}

}  // namespace

bool GivenFile::isMessage() const { return equalsNoCase(type, kMessageType); }

Result<GivenFile> checkFile(std::string_view path, std::string_view bytes, const AttachOptions& options) {
  const std::string_view name = baseName(path);
  if (const auto problem = valueProblem(name)) return badValue("not a file name: " + *problem, name);
  const bool needsName = !equalsNoCase(options.type, kMessageType);
  if (needsName && trim(name).empty()) return badValue("no file name in '" + std::string(path) + "'", path);
  if (!options.type.empty() && !isMediaType(options.type))
    return badValue("not a media type: '" + options.type + "'", name);
  if (beginsWithNoCase(options.type, "multipart/"))
    return badValue("a file cannot have a multipart type: '" + options.type + "'", name);
  GivenFile file{std::string(name), options.type.empty() ? typeByName(std::string(name)) : options.type,
                 /*codePage=*/0};
  if (file.type.empty()) file.type = kUnknownType;
  if (beginsWithNoCase(file.type, "text/")) file.codePage = codePageToLabel(bytes);
  if (options.charset.empty()) return file;
  if (!beginsWithNoCase(file.type, "text/"))
    return badValue("only a text file has a charset: '" + file.type + "'", name);
  file.codePage = codePageOfCharset(options.charset);
  if (file.codePage == 0) return badValue("unknown charset: '" + options.charset + "'", name);
  return file;
}

int codePageToLabel(std::string_view bytes) { return !isAscii(bytes) && isValidUtf8(bytes) ? kCpUtf8 : 0; }

void ensureMixed(Email2& root, LogBase& log) {
  if (root.isMultipartMixed()) return;
  // The tree can make a multipart/mixed too, but would leave the old Content-Disposition on it.
  if (!moveIntoMixed(root, log) && root.getNumParts() == 0 && !root.isMultipart()) enclose(root, kMixed, log);
}

bool attachFileTo(Email2& root, const std::string& name, const std::string& type, int codePage,
                  const DataBuffer& bytes, LogBase& log) {
  ensureMixed(root, log);
  StringBuffer unused;
  return root.addDataAttachmentUtf8(name.c_str(), type.empty() ? nullptr : type.c_str(), codePage, bytes,
                                    unused, log);
}

bool attachMessageTo(Email2& root, const std::string& name, DataBuffer& bytes, LogBase& log) {
  DataBuffer mime;
  if (hasUnixLines(bytes.view())) {
    StringBuffer lines(bytes.view());
    if (!lines.toCRLF() || !mime.append(lines)) return false;
  } else {
    mime.takeData(bytes);
  }
  ensureMixed(root, log);
  const char* const encoding = identityEncodingFor(mime);
  if (!root.attachMessage(mime, log)) return false;
  Email2& part = *root.getPart(root.getNumParts() - 1);
  if (encoding) part.setContentEncodingNonRecursive(encoding, log);
  if (!name.empty()) part.setContentDispositionUtf8("attachment", name.c_str(), log);
  avoidBoundariesIn(root, part.m_body.view(), log);
  return true;
}

Result<void> Message::attach(std::string_view name, std::string_view bytes, const AttachOptions& options) {
  const Result<GivenFile> file = checkFile(name, bytes, options);
  if (!file) return file.error();
  DataBuffer data;
  if (!file->isMessage())
    data.borrowData(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());  // copied later
  else if (!data.append(bytes))
    return noMemory();
  return attachTo(*m_state, *file, data);
}

Result<void> Message::attachFile(const std::string& path, const AttachOptions& options) {
  DataBuffer bytes;
  LogMemory log;
  if (!bytes.loadFileUtf8(path.c_str(), log))
    return Error{ErrorCode::unreadable, lastError(log, "cannot be read"), path};
  const Result<GivenFile> file = checkFile(path, bytes.view(), options);
  if (!file) return file.error();
  return attachTo(*m_state, *file, bytes);
}

Result<void> Message::attachMessage(const Message& message) {
  const Result<std::string> text = message.toString();
  if (!text) return text.error();
  DataBuffer bytes;
  if (!bytes.append(std::string_view(*text))) return noMemory();
  return attachTo(*m_state, {.name = {}, .type = std::string(kMessageType)}, bytes);
}

namespace {

bool isAmong(const std::vector<int>& rows, int row) { return std::ranges::find(rows, row) != rows.end(); }

/// The parts of which none is inside another one, by their rows.
std::vector<int> outermost(const std::set<int>& rows, const Outline& outline) {
  std::vector<int> kept;
  for (const int row : rows) {
    int parent = outline.row(row).parent;
    while (parent >= 0 && !rows.contains(parent)) parent = outline.row(parent).parent;
    if (parent < 0) kept.push_back(row);
  }
  return kept;
}

/// A signature, and all that is in one, goes with the multipart/signed that it makes, as does any around a
/// part that is removed.
bool isDroppedAnyway(int row, const Outline& outline) {
  for (int parent = outline.row(row).parent; parent >= 0; row = parent, parent = outline.row(row).parent)
    if (isSignature(*outline.row(row).node) &&
        outline.row(parent).node->equalsContentType("multipart/signed"))
      return true;
  return false;
}

void removeRows(MessageState& state, const std::vector<int>& rows) {
  std::vector<Email2*> parts;
  for (const int row : rows)
    if (!isDroppedAnyway(row, state.outline())) parts.push_back(state.outline().row(row).node);
  dropSignaturesOver(state, rows);
  if (parts.empty()) return;
  LogNull log;
  Email2& root = state.root();
  const auto isGone = [&root](const Email2* part) { return !holds(root, *part); };
  // It is the part, or has taken it in.
  if (root.getNumParts() == 0 || std::ranges::any_of(parts, isGone)) return emptyRoot(root, log);
  NodeSet removed, touched;
  for (Email2* const part : parts) removed.insert(part);
  for (const PartRow& row : state.outline().rows)
    if (removed.contains(row.node)) touched.insert(state.outline().row(row.parent).node);
  removeNodes(root, removed);
  tidyEnclosures(root, std::move(touched), log);
}

Result<void> removeFrom(MessageState& state, const std::vector<int>& rows) {
  if (rows.empty()) return {};
  if (Result<void> begun = beginContent(state); !begun) return begun;
  removeRows(state, rows);
  endContent(state);
  return {};
}

}  // namespace

Result<void> Message::removeAttachment(const Part& attachment) {
  const int row = attachment.number();
  const Displayed& displayed = m_state->displayed();
  const bool isOwn = &MessageState::of(attachment) == m_state.get();
  if (!isOwn || !(isAmong(displayed.attachments, row) || isAmong(displayed.inlineItems, row)))
    return Error{ErrorCode::notFound, "not an attachment of this message", std::to_string(row)};
  return removeFrom(*m_state, {row});
}

Result<void> Message::removeParts(std::span<const Part> parts) {
  std::set<int> rows;
  for (const Part& part : parts) {
    if (&MessageState::of(part) != m_state.get())
      return Error{ErrorCode::notFound, "not a part of this message", std::to_string(part.number())};
    if (part.number() == 0) return badValue("the message itself cannot be removed", "1");
    rows.insert(part.number());
  }
  return removeFrom(*m_state, outermost(rows, m_state->outline()));
}

}  // namespace mailtree
