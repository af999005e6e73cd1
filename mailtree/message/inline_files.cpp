// message/inline_files.cpp - files that the HTML shows, such as pictures.
#include <algorithm>
#include <tuple>

#include "mailtree/message/content.h"
#include "mailtree/message/fields.h"
#include "mailtree/message/files.h"
#include "mailtree/mime/LineLengths.h"
#include "mailtree/mime/html/CidReferences.h"

namespace mailtree {
namespace {

constexpr const char* kRelated = "multipart/related";

Error badValue(std::string message, std::string_view name) {
  return {ErrorCode::badValue, std::move(message), std::string(name)};
}

/// Sends a text file unchanged in base64, labelled utf-8 only if it is valid non-ASCII utf-8.
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

// The new part

Result<void> checkReference(const InlineOptions& options, std::string_view name) {
  if (!options.contentId.empty() && !isContentId(options.contentId))
    return badValue("not a Content-ID such as 'logo@berg.example': '" + options.contentId + "'", name);
  if (options.location.empty()) return {};
  if (!options.contentId.empty()) return badValue("it cannot have both a Content-ID and a location", name);
  if (const auto problem = valueProblem(options.location))
    return badValue("not a location: " + *problem, options.location);
  return {};
}

EmailPtr newItemById(_svEmailCommon& common, const GivenFile& file, const InlineOptions& options,
                     const DataBuffer& bytes, LogBase& log) {
  EmailPtr item(Email2::createRelatedFromDataUtf8(common, file.name.c_str(), file.type.c_str(), bytes, log));
  if (!item) return item;
  keepBytesOf(*item, log);
  item->setContentDispositionUtf8("inline", file.name.c_str(), log);
  if (!options.contentId.empty()) item->setContentId(("<" + options.contentId + ">").c_str(), log);
  return item;
}

EmailPtr newItemByLocation(_svEmailCommon& common, const GivenFile& file, const InlineOptions& options,
                           const DataBuffer& bytes, LogBase& log) {
  const char* const name = file.name.c_str();
  EmailPtr item(Email2::createRelatedFromDataNoCid(common, name, bytes, log));
  if (!item) return item;
  // The tree knows fewer types by their extensions.
  if (item->m_contentType.m_type.isEmpty() || !options.type.empty())
    item->setContentTypeUtf8(file.type.c_str(), name, nullptr, nullptr, 0, nullptr, nullptr, nullptr, log);
  keepBytesOf(*item, log);
  if (options.location != file.name) item->setHeaderField("Content-Location", options.location.c_str(), log);
  return item;
}

// Its place

/// The first HTML that a reader sees; null when there is none.
Email2* shownHtml(MessageState& state) {
  const Outline& outline = state.outline();
  const std::vector<int>& rows = state.displayed().htmlBody;
  const auto found = std::ranges::find_if(rows, [&](int row) { return isHtml(outline.row(row)); });
  return found == rows.end() ? nullptr : outline.row(*found).node;
}

/// The multipart/related around the HTML, or a new one; null when memory ran out.
Email2* relatedAround(Email2& root, Email2& html, LogBase& log) {
  Email2* const related = root.findMultipartEnclosure(static_cast<int>(EnclosureKind::related), 0);
  if (related && holds(*related, html)) return related;
  if (&html == &root) return enclose(root, kRelated, log) ? &root : nullptr;
  return encloseBelow(root, html, newEnclosure(*root.m_common, kRelated, log));
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

// What refers to it

bool isContentIdOfPart(const Outline& outline, std::string_view id) {
  return std::ranges::any_of(outline.rows, [&](const PartRow& row) { return contentIdOf(*row.node) == id; });
}

/// Lets HTML that refers to the file by its name refer to its Content-ID.
bool redirectReferences(Email2& html, const std::string& name, const std::string& id) {
  std::string body;
  if (redirectCidReferences(html.m_body.view(), {{name, id}}, body) == 0) return true;
  const bool wasLong = html.m_body.hasLineLonger(kMaxLine7bit);
  DataBuffer changed;
  if (!changed.append(std::string_view(body))) return false;
  html.m_body.takeData(changed);
  const bool isEncoded = html.m_transferEncoding.equalsIgnoreCase("base64") ||
                         html.m_transferEncoding.equalsIgnoreCase("quoted-printable");
  LogNull log;
  if (!isEncoded && !wasLong && html.m_body.hasLineLonger(kMaxLine7bit))
    html.setContentEncodingNonRecursive("quoted-printable", log);
  return true;
}

}  // namespace

bool isContentId(std::string_view id) {
  return !id.empty() && std::ranges::all_of(id, [](char c) {
    return c > ' ' && c < 0x7F && !contains("<>()[]\\\",;:", std::string_view(&c, 1));
  });
}

Result<std::string> Message::addInline(std::string_view name, std::string_view bytes,
                                       const InlineOptions& options) {
  const Result<GivenFile> file = checkFile(name, bytes, {.type = options.type, .charset = options.charset});
  if (!file) return file.error();
  if (file->isMessage()) return badValue("a message cannot be shown by HTML", name);
  if (Result<void> checked = checkReference(options, name); !checked) return std::move(checked).error();
  LogNull log;
  DataBuffer data;
  if (!data.append(bytes)) return noMemory();
  EmailPtr item = (options.location.empty() ? newItemById : newItemByLocation)(*m_state->root().m_common,
                                                                               *file, options, data, log);
  if (!item) return noMemory();
  std::string id = options.location.empty() ? contentIdOf(*item) : std::string();
  if (Result<void> begun = beginContent(*m_state); !begun) return std::move(begun).error();
  Email2* const html = shownHtml(*m_state);
  // A reference to a part that is there already stays.
  if (html && !id.empty() && !isContentIdOfPart(m_state->outline(), file->name) &&
      !redirectReferences(*html, file->name, id))
    return noMemory();
  Email2* const related =
      html ? relatedAround(m_state->root(), *html, log) : relatedForLater(m_state->root(), log);
  if (!related) return noMemory();
  related->insertSubPartAtIndex(item.release(), -1);
  endContent(*m_state);
  return id;
}

}  // namespace mailtree
