// message/files.cpp - files of a message: attached, shown by the HTML, removed.
#include "mailtree/message/files.h"

#include <algorithm>
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
constexpr const char* kRelated = "multipart/related";
constexpr std::string_view kMessageType = "message/rfc822";
constexpr std::string_view kUnknownType = "application/octet-stream";

// Attached messages

/// The transfer encoding that leaves the bytes as they are (RFC 2045, 2.7 to 2.9); null for 7bit.
const char* identityEncodingFor(const DataBuffer& bytes) {
  const std::string_view view = bytes.view();
  const bool isText = !bytes.containsChar('\0') && !hasBareLineEnd(view) && longestLine(view) <= kLongestLine;
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

struct GivenFile {
  std::string name, type;
  int codePage = 0;

  bool isMessage() const { return equalsNoCase(type, kMessageType); }
};

Error badValue(std::string message, std::string_view name) {
  return {ErrorCode::badValue, std::move(message), std::string(name)};
}

Result<GivenFile> checkFile(std::string_view path, std::string_view bytes, const AttachOptions& options) {
  const std::string_view name = baseName(path);
  if (const auto problem = valueProblem(name)) return badValue("not a file name: " + *problem, name);
  if (trim(name).empty()) return badValue("no file name in '" + std::string(path) + "'", path);
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
  for (const char* const field : {"Content-Disposition", "Content-Transfer-Encoding", "Content-ID"})
    root.removeHeaderField(field);
  root.m_contentType.clear();
  root.setContentTypeUtf8("text/plain", nullptr, nullptr, nullptr, 0, nullptr, nullptr, nullptr, log);
  root.m_body.clear();
}

void removePart(Email2& root, const Outline& outline, const PartRow& row) {
  LogNull log;
  if (row.parent < 0) return emptyRoot(root, log);
  const NodeSet parent{outline.row(row.parent).node};
  removeNodes(root, {row.node});
  tidyEnclosures(root, parent, log);
}

/// The first HTML that a reader sees; null when there is none.
Email2* shownHtml(MessageState& state) {
  const Outline& outline = state.outline();
  const std::vector<int>& rows = state.displayed().htmlBody;
  const auto found = std::ranges::find_if(rows, [&](int row) { return isHtml(outline.row(row)); });
  return found == rows.end() ? nullptr : outline.row(*found).node;
}

/// An enclosure for pictures until there is HTML to show them, which then joins them.
Email2* relatedForLater(Email2& root, LogBase& log) {
  if (Email2* const present = root.findMultipartEnclosure(static_cast<int>(EnclosureKind::related), 0))
    return present;
  if (root.getNumParts() == 0 && root.m_body.isEmpty()) {
    root.convertToMultipartX(kRelated, log);
    return &root;
  }
  ensureMixed(root, log);
  EmailPtr related = newEnclosure(*root.m_common, kRelated, log);
  Email2* const placed = related.get();
  if (placed) root.insertSubPartAtIndex(related.release(), -1);
  return placed;
}

}  // namespace

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

EmailPtr newInlineItem(_svEmailCommon& common, const std::string& name, const std::string& type,
                       const DataBuffer& bytes, LogBase& log) {
  EmailPtr item(Email2::createRelatedFromDataUtf8(common, name.c_str(), type.c_str(), bytes, log));
  if (!item) return item;
  keepBytesOf(*item, log);
  item->setContentDispositionUtf8("inline", name.c_str(), log);
  return item;
}

void keepBytesOf(Email2& item, LogBase& log) {
  if (!beginsWithNoCase(item.m_contentType.m_type, "text/")) return;
  item.setContentEncodingNonRecursive("base64", log);
  _svCharset charset;
  charset.setByCodePage(codePageToLabel(item.m_body.view()));
  StringBuffer value;
  item.m_contentType.buildMimeHeaderValue(value, charset, /*withFlowed=*/false, /*withName=*/true, log);
  item.m_header.replaceMimeFieldUtf8_a("Content-Type", value.getString(), /*asGiven=*/true,
                                       /*ordinary=*/false, log);
}

Email2* relatedAround(Email2& root, Email2& html, LogBase& log) {
  Email2* const related = root.findMultipartEnclosure(static_cast<int>(EnclosureKind::related), 0);
  if (related && holds(*related, html)) return related;
  if (&html == &root) return enclose(root, kRelated, log) ? &root : nullptr;
  return encloseBelow(root, html, newEnclosure(*root.m_common, kRelated, log));
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

Result<std::string> Message::addInline(std::string_view name, std::string_view bytes,
                                       const AttachOptions& options) {
  const Result<GivenFile> file = checkFile(name, bytes, options);
  if (!file) return file.error();
  if (file->isMessage()) return badValue("a message cannot be shown by HTML", name);
  LogNull log;
  DataBuffer data;
  if (!data.append(bytes)) return noMemory();
  EmailPtr item = newInlineItem(*m_state->root().m_common, file->name, file->type, data, log);
  if (!item) return noMemory();
  std::string id = contentIdOf(*item);
  if (Result<void> begun = beginContent(*m_state); !begun) return std::move(begun).error();
  Email2* const html = shownHtml(*m_state);
  Email2* const related =
      html ? relatedAround(m_state->root(), *html, log) : relatedForLater(m_state->root(), log);
  if (!related) return noMemory();
  related->insertSubPartAtIndex(item.release(), -1);
  endContent(*m_state);
  return id;
}

Result<void> Message::removeAttachment(const Part& attachment) {
  const int row = attachment.number();
  const Displayed& displayed = m_state->displayed();
  const auto isAmong = [row](const std::vector<int>& rows) {
    return std::ranges::find(rows, row) != rows.end();
  };
  const bool isOwn = &MessageState::of(attachment) == m_state.get();
  if (!isOwn || !(isAmong(displayed.attachments) || isAmong(displayed.inlineItems)))
    return Error{ErrorCode::notFound, "not an attachment of this message", std::to_string(row)};
  if (Result<void> begun = beginContent(*m_state); !begun) return begun;
  Email2* const leaf = m_state->outline().row(row).node;
  dropSignaturesOver(*m_state, {row});
  const Outline& outline = m_state->outline();
  const Email2* const part = &afterDropping(m_state->root(), *leaf);
  const auto found = std::ranges::find(outline.rows, part, &PartRow::node);
  if (found != outline.rows.end()) removePart(m_state->root(), outline, *found);
  endContent(*m_state);
  return {};
}

}  // namespace mailtree
