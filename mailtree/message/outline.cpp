#include "mailtree/message/outline.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "mailtree/base/Utf.h"
#include "mailtree/email/loading/received_date.h"
#include "mailtree/mime/header/HeaderParams.h"

namespace mailtree {
namespace {

/// Collects the reason for each attachment: an iteration logs one "Yes" line per attachment, in order.
class ReasonLog final : public LogBase {
 public:
  ReasonLog() { m_verboseLogging = true; }
  void logError(std::string_view) override {}
  void logInfo(std::string_view text) override {
    if (text.starts_with("Yes")) m_reasons.emplace_back(text);
  }
  void LogDataSb(std::string_view, std::string_view) override {}
  void LogDataLong(std::string_view, std::int64_t) override {}
  void openContext(std::string_view) override {}
  void closeContext() override {}
  const std::vector<std::string>& reasons() const { return m_reasons; }

 private:
  std::vector<std::string> m_reasons;
};

bool isUntypedText(Email2& node, bool inMixed) {
  LogNull quiet;
  return node.getNumParts() == 0 && node.m_contentType.m_type.isEmpty() &&
         !node.isEmailAttachment(inMixed, quiet);
}

/// Finds the rows of nodes. Most messages have so few that looking through them is fastest.
class RowIds {
 public:
  explicit RowIds(const std::vector<PartRow>& rows) : m_rows(rows) {
    if (rows.size() <= kFew) return;
    m_ids.reserve(rows.size());
    for (std::size_t id = 0; id < rows.size(); ++id) m_ids.emplace(rows[id].node, static_cast<int>(id));
  }
  int at(const SorvikObject* node) const {
    if (m_rows.size() > kFew) return m_ids.at(node);
    return static_cast<int>(std::ranges::find(m_rows, node, &PartRow::node) - m_rows.begin());
  }

 private:
  static constexpr std::size_t kFew = 8;

  const std::vector<PartRow>& m_rows;
  std::unordered_map<const SorvikObject*, int> m_ids;
};

PartRow rowOf(Email2& node, int depth, int parent, int index, bool isLastChild) {
  PartRow row{&node, depth, parent, index, isLastChild};
  const std::string_view type = node.m_contentType.m_type.view();
  row.contentType = type.empty() ? "text/plain" : type;
  row.filename =
      node.m_dispFilename.isEmpty() ? node.m_contentType.m_name.view() : node.m_dispFilename.view();
  return row;
}

void numberRows(Email2& root, Outline& outline) {
  struct Pending {
    Email2* node;
    int depth, parent, index;
    bool isLastChild;
  };
  std::vector<Pending> pending{{&root, 0, -1, 0, true}};
  while (!pending.empty()) {
    const Pending next = pending.back();
    pending.pop_back();
    const int id = static_cast<int>(outline.rows.size());
    if (next.parent >= 0)
      outline.children[outline.row(next.parent).firstChild + static_cast<std::size_t>(next.index)] = id;
    outline.rows.push_back(rowOf(*next.node, next.depth, next.parent, next.index, next.isLastChild));
    const int last = next.node->getNumParts() - 1;
    outline.rows.back().firstChild = outline.children.size();
    outline.children.resize(outline.children.size() + static_cast<std::size_t>(last + 1));
    for (int i = last; i >= 0; --i)
      pending.push_back({next.node->getPart(i), next.depth + 1, id, i, i == last});
  }
}

void markBodies(Email2& root, const RowIds& rowIds, Outline& outline) {
  ExtPtrArray bodies;
  root.enumerateAlternatives(root, bodies);
  for (int i = 0; i < bodies.getSize(); ++i) {
    const int id = rowIds.at(bodies.elementAt(i));
    PartRow& row = outline.rows[static_cast<std::size_t>(id)];
    row.isBody = true;
    if (outline.plainText < 0 && row.contentType == "text/plain") outline.plainText = id;
    if (outline.html < 0 && row.contentType == "text/html") outline.html = id;
  }
  bodies.removeAll();
}

void markUntypedBody(Email2& root, const RowIds& rowIds, Outline& outline) {
  Email2* const text = outline.plainText < 0 ? untypedBody(root) : nullptr;
  if (!text) return;
  outline.plainText = rowIds.at(text);
  outline.rows[static_cast<std::size_t>(outline.plainText)].isBody = true;
}

/// A report has no alternatives: its text is the visible text of its first part.
void markReportText(Email2& root, Outline& outline) {
  Email2* const first = root.isMultipartReport() ? root.getPart(0) : nullptr;
  const DataBuffer* const text = first ? first->getEffectiveBodyObject3(root) : nullptr;
  const auto row =
      std::ranges::find_if(outline.rows, [text](const PartRow& r) { return &r.node->m_body == text; });
  if (row == outline.rows.end() || row->node->isNotAlternativeBody()) return;
  row->isBody = true;
  outline.plainText = static_cast<int>(row - outline.rows.begin());
}

/// Attaching a file to a signed message or a report wraps it in multipart/mixed, where the library finds no
/// bodies. Mail clients still show its text.
void markEnclosedBodies(Email2& root, const RowIds& rowIds, Outline& outline) {
  if (!root.isMultipartMixed()) return;
  for (int i = 0; i < root.getNumParts() && outline.plainText < 0 && outline.html < 0; ++i) {
    Email2& part = *root.getPart(i);
    if (!part.isMultipartReport() && !part.equalsContentType("multipart/signed")) continue;
    markBodies(part, rowIds, outline);
    markReportText(part, outline);
  }
}

void markAttachments(Email2& root, const RowIds& rowIds, Outline& outline) {
  ExtPtrArray found;
  const bool isInMixed = root.isMultipartMixedForAttachmentPurposes();
  // Most messages have none, and collecting the reasons takes longer than looking.
  LogNull noLog;
  root.attachmentIterate2(isInMixed, found, /*target=*/-1, noLog);
  if (found.getSize() == 0) return;
  found.removeAll();
  ReasonLog log;
  root.attachmentIterate2(isInMixed, found, /*target=*/-1, log);
  const bool everyReasonKnown = log.reasons().size() == static_cast<std::size_t>(found.getSize());
  for (int i = 0; i < found.getSize(); ++i) {
    const int id = rowIds.at(found.elementAt(i));
    PartRow& row = outline.rows[static_cast<std::size_t>(id)];
    row.isAttachment = true;
    if (everyReasonKnown) row.reason = log.reasons()[static_cast<std::size_t>(i)];
    outline.attachments.push_back(id);
  }
  found.removeAll();
}

/// Slashes are replaced, because "Offer 1/2" does not name a folder.
std::string nameFromSubject(std::string_view message) {
  MimeHeader header;
  header.loadFromEntity(message);
  std::string name = header.decodedValue(header.findField("Subject"));
  std::ranges::replace_if(
      name, [](char c) { return c == '/' || c == '\\'; }, '_');
  return trim(name).empty() ? std::string() : name + ".eml";
}

/// Decodes stored utf-8; malformed bytes become U+FFFD.
std::string decodeUtf8(std::string_view bytes) {
  std::string text;
  decodeToUtf8(kCpUtf8, bytes, text);
  return text;
}

/// Decodes text without a usable charset: by the code page of the header, else by detection, else as
/// iso-8859-1. Detected utf-16 without NUL bytes is rejected as implausible.
std::string decodeByDetection(int headerCodePage, std::string_view bytes) {
  const int detected = detectCodePage(bytes);
  if (detected == kCpUtf8) return decodeUtf8(bytes);
  const bool isImplausible = hasWideUnits(detected) && !contains(bytes, std::string_view("\0", 1));
  std::string text;
  for (const int codePage : {headerCodePage, isImplausible ? 0 : detected, kCpLatin1}) {
    if (codePage > 0 && codePage != kCpUtf8 && decodeToUtf8(codePage, bytes, text)) return text;
    text.clear();
  }
  return std::string(bytes);
}

}  // namespace

Outline outlineOf(Email2& root) {
  Outline outline;
  numberRows(root, outline);
  const RowIds ids(outline.rows);
  markBodies(root, ids, outline);
  markUntypedBody(root, ids, outline);
  markReportText(root, outline);
  markEnclosedBodies(root, ids, outline);
  markAttachments(root, ids, outline);
  return outline;
}

std::vector<int> relatedItemsOf(Email2& root, const Outline& outline) {
  LogNull quiet;
  std::unordered_set<const Email2*> items;
  Email2* const related = root.findMultipartEnclosure(static_cast<int>(EnclosureKind::related), 0);
  for (int i = related ? related->getNumRelatedItems(quiet) : 0; i-- > 0;)
    items.insert(related->getRelatedItem(i, quiet));
  std::vector<int> rows;
  // The outline keeps siblings in order.
  for (std::size_t id = 0; id < outline.rows.size(); ++id)
    if (items.contains(outline.rows[id].node)) rows.push_back(static_cast<int>(id));
  return rows;
}

Email2* untypedBody(Email2& root) {
  if (root.getNumParts() == 0) return isUntypedText(root, /*inMixed=*/false) ? &root : nullptr;
  if (!root.isMultipartMixed() || root.getPlainTextAlternative()) return nullptr;
  for (int i = 0; i < root.getNumParts(); ++i) {
    Email2& part = *root.getPart(i);
    // Parts after these are attachments.
    if (part.isMultipartAlternative() || part.isMultipartRelated()) return nullptr;
    if (isUntypedText(part, /*inMixed=*/true)) return &part;
  }
  return nullptr;
}

std::string charsetOf(const PartRow& row) {
  const MimeHeader& header = row.node->m_header;
  std::string scratch;
  const std::string_view value = header.unfoldedValue(header.findField("Content-Type"), scratch);
  std::string charset;  // the last one counts, as in loading
  readParameters(
      value, [](std::string_view) {},
      [&charset](std::string_view name, std::string_view text) {
        if (equalsNoCase(name, "charset") && !text.empty()) charset = text;
      });
  return charset;
}

std::string givenFileName(const PartRow& row) {
  if (row.filename.empty() && row.node->m_header.findField("Content-Location") < 0)
    return row.isMessage() ? nameFromSubject(row.node->m_body.view()) : std::string();
  StringBuffer name;
  LogNull log;
  row.node->getFilenameUtf8(name, log);
  return name.extractString();
}

std::optional<std::string_view> storedTextOf(const PartRow& row) {
  const std::string_view bytes = row.node->m_body.view();
  return isConvertibleText(row.node->traits()) && isValidUtf8(bytes) ? std::optional(bytes) : std::nullopt;
}

ReadText readTextOf(const PartRow& row) {
  if (const std::optional<std::string_view> stored = storedTextOf(row)) return {std::string(*stored), true};
  Email2& node = *row.node;
  const std::string_view bytes = node.m_body.view();
  const bool isUtf8 = isValidUtf8(bytes);
  if (isConvertibleText(node.traits()) && node.m_repairs.has(Repair::damagedText))
    return {decodeUtf8(bytes), true};
  DataBuffer converted;
  const DecodedText decoded = receivedTextToUtf8(charsetOf(row), bytes, converted);
  if (decoded.converted) return {std::string(converted.view()), true};
  if (isUtf8 || decoded.codePage == kCpUtf8) return {decodeUtf8(bytes), true};
  std::string text = decodeByDetection(node.m_header.getDetectedCP(), bytes);
  const bool isDecoded = isValidUtf8(text);
  return {std::move(text), isDecoded};
}

std::string textOf(const PartRow& row) { return readTextOf(row).text; }

std::optional<SorvikSysTime> dateOf(const Email2& root) {
  SorvikSysTime date;
  if (!receivedDate(root.m_header, date)) return std::nullopt;
  return date;
}

void entriesOf(const MimeHeader& header, std::string_view field, ExtPtrArray& entries) {
  std::string scratch;
  for (int i = header.findField(field); i >= 0; i = header.findField(field, i + 1))
    _svEmailAddress::parseAndLoadEntries(header.unfoldedValue(i, scratch), entries);
}

std::optional<_svEmailAddress> senderIn(const MimeHeader& header) {
  std::string scratch;
  ExtPtrArray entries;
  _svEmailAddress::parseAndLoadEntries(header.unfoldedValue(header.findField("From"), scratch), entries);
  for (int i = 0; i < entries.getSize(); ++i)
    if (!entries.at<_svEmailAddress>(i)->m_address.isEmpty()) return *entries.at<_svEmailAddress>(i);
  if (entries.getSize() == 0) return std::nullopt;
  return *entries.at<_svEmailAddress>(0);
}

std::optional<_svEmailAddress> senderOf(const Email2& root) {
  return root.m_fromAddr.m_address.isEmpty() ? senderIn(root.m_header) : root.m_fromAddr;
}

std::string displayForm(const _svEmailAddress& address) {
  StringBuffer text;
  LogNull log;
  address.emitSelfAsMimeField(kCpUtf8, /*first=*/true, /*forHeader=*/false, /*useQ=*/true, text, log);
  return text.extractString();
}

std::optional<std::string> decodedField(const Email2& root, const char* name) {
  StringBuffer value;
  LogNull log;
  if (!root.getHeaderFieldUtf8(name, value, log)) return std::nullopt;
  return value.extractString();
}

}  // namespace mailtree
