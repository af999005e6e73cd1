#include "mailtree/mime/MimeParser.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Log.h"
#include "mailtree/mime/BoundaryLines.h"
#include "mailtree/mime/EncryptedBody.h"
#include "mailtree/mime/coding/Base64.h"
#include "mailtree/mime/coding/QuotedPrintable.h"

// One cursor runs over the text and stops only at lines that begin with "--". Each is compared with
// the boundaries of the multiparts open at that point, which are on a stack. A match ends the part
// before it and every unterminated multipart inside its own. Unless it is a closing delimiter, a
// new part begins after it: its header is read, and the part becomes either the current leaf, whose
// body ends at the next matching line, or, if it is a multipart, one more entry on the stack. No
// byte is searched again because of its depth.

namespace mailtree {

namespace {

constexpr std::size_t kFewParts = 4;  // most multiparts have fewer
constexpr std::size_t kNowhere = std::string_view::npos;
/// How far to look for a boundary in a header that no empty line ends. Such a header is short. Without a
/// bound every level of nested broken headers would be searched to its end.
constexpr std::size_t kBrokenHeaderReach = 64u << 10;

/// Where the line break begins that ends right before `position`, the beginning of a line. Of CR CR LF only
/// CRLF: the first CR may be the last byte of a binary body.
std::size_t beforeLineBreak(std::string_view text, std::size_t position) noexcept {
  constexpr std::string_view kLineBreaks[] = {"\r\n", "\n", "\r"};
  const std::string_view before = text.substr(0, position);
  for (const std::string_view lineBreak : kLineBreaks)
    if (before.ends_with(lineBreak)) return position - lineBreak.size();
  return position;
}

/// The next empty line at or after `from`, the beginning of a line.
std::size_t findEmptyLine(std::string_view text, std::size_t from) noexcept {
  while (from < text.size()) {
    const std::size_t end = endOfLine(text, from);
    if (end == from) return from;
    from = afterLineBreak(text, end);
  }
  return kNowhere;
}

/// Finds the next match and remembers it. While queries move forward, no byte is examined twice.
class Finder {
 public:
  using Find = std::size_t (*)(std::string_view text, std::size_t from) noexcept;
  explicit Finder(Find find) noexcept : m_find(find) {}

  std::size_t next(std::string_view text, std::size_t from) noexcept {
    const bool isKnown = m_from <= from && from <= m_found;
    if (isKnown) return m_found;
    m_from = from;
    m_found = m_find(text, from);
    return m_found;
  }

 private:
  Find m_find;
  std::size_t m_from = kNowhere;
  std::size_t m_found = 0;
};

/// The boundary as written in the text; empty when there is no usable one.
std::string_view boundaryOf(const _svContentType& type) noexcept { return trimRight(type.m_boundary); }

/// An mbox separator, which some stores leave at the top. "From :" is a field with a blank before its colon.
bool isMboxLine(std::string_view text) noexcept {
  if (text.starts_with('>')) text.remove_prefix(1);
  return text.starts_with("From ") && !trimLeft(text.substr(5)).starts_with(':');
}

/// Appends the output of `decode` for `text`, written straight into the buffer.
template <class Decode>
void appendDecoded(DataBuffer& out, std::string_view text, std::size_t capacity, Decode decode) {
  unsigned char* const target = out.appendUninitialized(capacity);
  if (!target) throw std::bad_alloc();
  out.shorten(capacity - decode(text, target));
}

void appendBytes(DataBuffer& out, std::string_view bytes) {
  if (!out.append(bytes)) throw std::bad_alloc();
}

enum class Coding { none, base64, quotedPrintable };

/// All other encodings, 7bit to x-uuencode, leave the bytes as they are.
Coding codingOf(std::string_view transferEncoding) noexcept {
  if (equalsNoCase(transferEncoding, "base64")) return Coding::base64;
  if (equalsNoCase(transferEncoding, "quoted-printable")) return Coding::quotedPrintable;
  return Coding::none;
}

void appendBody(DataBuffer& out, std::string_view raw, Coding coding) {
  switch (coding) {
    case Coding::base64: return appendDecoded(out, raw, base64::decodedCapacity(raw.size()), base64::decode);
    case Coding::quotedPrintable: return appendDecoded(out, raw, raw.size(), quotedPrintable::decode);
    case Coding::none: return appendBytes(out, raw);
  }
}

/// The parts a message may still have, and the limits exceeded.
struct Budget {
  int& parts;
  LimitSet limits = {};
};

}  // namespace

class MimeParser::Pass {
 public:
  /// @param level   of the entity that the text belongs to; the message is level 1.
  /// @param origin  of the text.
  /// @param places  null: not wanted.
  Pass(std::string_view text, int level, Origin origin, Budget& budget,
       std::vector<EntityPlace>* places = nullptr)
      : m_text(text), m_level(level), m_origin(origin), m_budget(budget), m_places(places) {}

  /// A message of its own, or the content of another entity.
  enum class Place { top, inside };

  void parseEntity(MimeMessage2& root, Place place) {
    m_place = place;
    --m_budget.parts;
    open(root, 0, readHeader(root, 0));
    splitParts();
  }

 private:
  /// A multipart whose closing delimiter was not found yet.
  struct OpenMultipart {
    MimeMessage2* entity;
    std::string_view boundary;
    std::size_t bodyBegin;
    std::size_t shortestBoundary;  ///< Size of the shortest boundary up to here on the stack.
    bool keepsReceived;            ///< The parts keep their bytes as received.
    bool insideSigned;
    std::size_t partBegin = kNowhere;  ///< Where the current part begins.
  };
  struct Boundary {
    std::size_t open;  ///< Index of the multipart it belongs to.
    bool closes;
    std::size_t partEnd;  ///< The line break before a boundary delimiter belongs to it.
    std::size_t next;
  };
  struct Leaf {
    MimeMessage2* entity = nullptr;
    std::size_t bodyBegin = 0;
    bool isAppleDouble = false;  ///< Part of an AppleDouble file, an attachment: its bytes are not converted.
  };

  // Boundaries

  std::optional<Boundary> match(std::size_t position, const DashLine& line) const;
  std::optional<Boundary> nextBoundary();

  // Headers

  std::size_t headerLimit(std::size_t begin);
  std::size_t readHeader(MimeMessage2& entity, std::size_t begin);
  std::size_t loadHeader(MimeMessage2& entity, std::size_t begin, std::size_t end);
  std::size_t firstBoundaryIn(std::size_t begin, std::size_t end, std::string_view boundary) const;

  // Parts

  void splitParts();
  void open(MimeMessage2& entity, std::size_t begin, std::size_t bodyBegin);
  bool openMultipart(MimeMessage2& entity, std::size_t bodyBegin);
  void addPart(std::size_t begin);
  void endPart(std::size_t end);
  void closeDownTo(std::size_t stackSize, std::size_t end);
  void close(std::size_t end);
  void closeUnterminated(std::size_t end);
  void storeRestInLastPart();

  // Bodies

  void storeBody(MimeMessage2& entity, std::size_t begin, std::size_t end, bool mayConvert = true);
  bool splitDecoded(const OpenMultipart& multipart);
  bool containsOpenBoundary(std::string_view text) const;
  bool splitBodyOf(const OpenMultipart& multipart);

  int level() const noexcept { return m_level + static_cast<int>(m_open.size()); }

  const std::string_view m_text;
  const int m_level;
  const Origin m_origin;
  Budget& m_budget;
  std::vector<EntityPlace>* const m_places;
  Place m_place = Place::top;
  bool m_isDecoded = false;           ///< The text was found inside a transfer-encoded multipart.
  std::vector<OpenMultipart> m_open;  ///< Outermost first.
  Leaf m_leaf;                        ///< The part whose body is being read; none in a preamble or epilogue.
  Leaf m_last;                        ///< The part begun last.
  const MimeMessage2* m_lastLeaf = nullptr;
  SlabPool<MimeMessage2> m_entities{kFewParts};
  std::size_t m_cursor = 0;
  Finder m_dashLines{findDashLine};
  Finder m_emptyLines{findEmptyLine};
};

// Boundaries

/// A line that matches several open multiparts belongs to the innermost.
std::optional<MimeParser::Pass::Boundary> MimeParser::Pass::match(std::size_t position,
                                                                  const DashLine& line) const {
  if (line.content.size() < m_open.back().shortestBoundary) return std::nullopt;
  for (std::size_t i = m_open.size(); i-- > 0;) {
    if (!line.isBoundary(m_open[i].boundary)) continue;
    const bool closes = line.content.size() != m_open[i].boundary.size();
    return Boundary{i, closes, beforeLineBreak(m_text, position), line.next};
  }
  return std::nullopt;
}

std::optional<MimeParser::Pass::Boundary> MimeParser::Pass::nextBoundary() {
  if (m_open.empty()) return std::nullopt;
  while (m_cursor < m_text.size()) {
    const std::size_t position = m_dashLines.next(m_text, m_cursor);
    if (position == kNowhere) break;
    const DashLine line = dashLineAt(m_text, position);
    m_cursor = line.next;
    if (auto boundary = match(position, line)) return boundary;
  }
  return std::nullopt;
}

// Headers

/// The upper limit of the header that begins at `begin`: after its empty line, or at an earlier boundary.
std::size_t MimeParser::Pass::headerLimit(std::size_t begin) {
  if (m_open.empty()) return m_text.size();
  const std::size_t emptyLine = m_emptyLines.next(m_text, begin);
  const std::size_t reach = std::min(emptyLine, begin + kBrokenHeaderReach);
  for (std::size_t from = begin;;) {
    const std::size_t position = m_dashLines.next(m_text, from);
    if (position >= reach) break;
    const DashLine line = dashLineAt(m_text, position);
    if (match(position, line)) return position;
    from = line.next;
  }
  const std::size_t end = emptyLine != kNowhere ? emptyLine : endOfLine(m_text, begin + kBrokenHeaderReach);
  return afterLineBreak(m_text, end);
}

/// @return where the body begins.
std::size_t MimeParser::Pass::readHeader(MimeMessage2& entity, std::size_t begin) {
  const std::size_t bodyBegin = loadHeader(entity, begin, headerLimit(begin));
  if (!entity.isMultipart() || !entity.repairs().has(Repair::headerSyntax)) return bodyBegin;

  // Without an empty line after it, the header of a multipart ends at its first part at the latest.
  const std::size_t first = firstBoundaryIn(begin, bodyBegin, boundaryOf(entity.m_contentType));
  if (first == kNowhere) return bodyBegin;
  entity.reset();
  entity.addRepair(Repair::headerSyntax);
  return loadHeader(entity, begin, first);
}

std::size_t MimeParser::Pass::loadHeader(MimeMessage2& entity, std::size_t begin, std::size_t end) {
  using EmptyLines = MimeHeader::LeadingEmptyLines;
  const std::string_view text = m_text.substr(begin, end - begin);
  const bool isPart = m_place == Place::inside || !m_open.empty();
  const MimeHeader::Extent extent =
      entity.m_header.loadFromEntity(text, isPart ? EmptyLines::endHeader : EmptyLines::skip);
  if (extent.malformed && !text.empty()) entity.addRepair(Repair::headerSyntax);
  m_budget.limits.add(extent.limits);
  entity.readContentFields(m_budget.limits, m_lastLeaf);
  return begin + extent.bodyOffset;
}

std::size_t MimeParser::Pass::firstBoundaryIn(std::size_t begin, std::size_t end,
                                              std::string_view boundary) const {
  if (boundary.empty()) return kNowhere;
  const std::string_view header = m_text.substr(0, end);
  for (std::size_t at = begin; at < end;) {
    const std::size_t position = findDashLine(header, at);
    if (position == kNowhere) break;
    const DashLine line = dashLineAt(header, position);
    if (line.content == boundary) return position;
    at = line.next;
  }
  return kNowhere;
}

// Parts

void MimeParser::Pass::splitParts() {
  while (const auto boundary = nextBoundary()) {
    // At the end of the text a boundary begins no part.
    const bool beginsPart = !boundary->closes && !trimLeft(m_text.substr(boundary->next)).empty();
    if (beginsPart && m_budget.parts <= 0) return storeRestInLastPart();
    closeDownTo(boundary->open + 1, boundary->partEnd);
    endPart(boundary->partEnd);
    if (boundary->closes) close(boundary->partEnd);
    if (beginsPart) addPart(boundary->next);
  }
  closeDownTo(0, m_text.size());
}

void MimeParser::Pass::open(MimeMessage2& entity, std::size_t begin, std::size_t bodyBegin) {
  const bool isAppleDouble =
      !m_open.empty() && equalsNoCase(m_open.back().entity->m_contentType.m_type, "multipart/appledouble");
  m_last = {&entity, bodyBegin, isAppleDouble};
  entity.m_origin = m_origin + begin;
  if (m_places) m_places->push_back({&entity, begin, bodyBegin, m_text.size()});
  if (!m_open.empty()) m_open.back().partBegin = begin;
  if (!openMultipart(entity, bodyBegin)) {
    m_leaf = m_last;
    m_lastLeaf = &entity;
  }
  m_cursor = bodyBegin;
}

bool MimeParser::Pass::openMultipart(MimeMessage2& entity, std::size_t bodyBegin) {
  if (!entity.isMultipart()) return false;
  const std::string_view boundary = boundaryOf(entity.m_contentType);
  if (boundary.empty()) {
    entity.addRepair(Repair::boundaryMissing);
    return false;
  }
  if (level() >= kMaxDepth) {
    m_budget.limits.add(Limit::depth);
    return false;
  }
  const bool insideSigned = !m_open.empty() && (m_open.back().insideSigned || m_open.back().keepsReceived);
  const bool isSigned = equalsNoCase(entity.m_contentType.m_type, "multipart/signed");
  const std::size_t shortestBoundary =
      m_open.empty() ? boundary.size() : std::min(m_open.back().shortestBoundary, boundary.size());
  m_open.push_back({&entity, boundary, bodyBegin, shortestBoundary, isSigned && !insideSigned, insideSigned});
  return true;
}

void MimeParser::Pass::addPart(std::size_t begin) {
  --m_budget.parts;
  MimeMessage2& parent = *m_open.back().entity;
  Owned<MimeMessage2> owned(m_entities.create());
  MimeMessage2& part = *owned;
  if (parent.m_parts.empty()) parent.m_parts.reserve(kFewParts);
  parent.m_parts.push_back(std::move(owned));
  const std::size_t bodyBegin = readHeader(part, begin);
  const bool inDigest = equalsNoCase(parent.m_contentType.m_type, "multipart/digest");
  if (inDigest && part.m_contentType.m_type.isEmpty()) part.m_contentType.m_type.setString("message/rfc822");
  open(part, begin, bodyBegin);
}

/// Ends the current part of the innermost open multipart.
void MimeParser::Pass::endPart(std::size_t end) {
  OpenMultipart& multipart = m_open.back();
  const std::size_t begin = std::exchange(multipart.partBegin, kNowhere);
  if (!multipart.keepsReceived || begin == kNowhere) return;
  auto received = std::make_unique<DataBuffer>();
  appendBytes(*received, m_text.substr(begin, std::max(begin, end) - begin));
  multipart.entity->m_parts.back()->m_receivedBytes = std::move(received);
}

/// Ends the current body and every multipart above the first `stackSize` of the stack.
void MimeParser::Pass::closeDownTo(std::size_t stackSize, std::size_t end) {
  const Leaf leaf = std::exchange(m_leaf, Leaf());
  if (leaf.entity) storeBody(*leaf.entity, leaf.bodyBegin, end, !leaf.isAppleDouble);
  if (leaf.entity && m_places) m_places->back().end = std::max(leaf.bodyBegin, end);
  while (m_open.size() > stackSize) closeUnterminated(end);
}

/// Closes the innermost open multipart. One without parts keeps its text as its body.
void MimeParser::Pass::close(std::size_t end) {
  const OpenMultipart multipart = m_open.back();
  m_open.pop_back();
  MimeMessage2& entity = *multipart.entity;
  if (!entity.m_parts.empty()) return;
  storeBody(entity, multipart.bodyBegin, end);
  if (!splitDecoded(multipart)) entity.addRepair(Repair::boundaryMissing);
}

/// Closes the innermost open multipart without its closing delimiter.
void MimeParser::Pass::closeUnterminated(std::size_t end) {
  endPart(end);
  if (!m_open.back().entity->m_parts.empty()) m_open.back().entity->addRepair(Repair::boundaryUnclosed);
  close(end);
}

/// One part too many: it and everything after it, up to where the outermost multipart closes, stays in the
/// part before it. That part drops its transfer encoding, so it is written as received.
void MimeParser::Pass::storeRestInLastPart() {
  m_budget.limits.add(Limit::parts);
  std::size_t end = m_text.size();
  while (const auto boundary = nextBoundary()) {
    if (boundary->open != 0 || !boundary->closes) continue;
    end = boundary->partEnd;
    break;
  }
  m_last.entity->m_transferEncoding.clear();
  m_last.entity->m_body.clear();
  storeBody(*m_last.entity, m_last.bodyBegin, end);
  if (m_places) m_places->back().end = end;
  for (; !m_open.empty(); m_open.pop_back()) endPart(end);
}

// Bodies

void MimeParser::Pass::storeBody(MimeMessage2& entity, std::size_t begin, std::size_t end, bool mayConvert) {
  const std::string_view raw = m_text.substr(begin, std::max(begin, end) - begin);
  const Coding coding = codingOf(entity.m_transferEncoding);
  const bool isText = mayConvert && !entity.m_charset.isEmpty() && isConvertibleText(entity.basicTraits());
  if (!isText) return appendBody(entity.m_body, raw, coding);

  const std::string_view charset = entity.m_charset;
  if (coding == Coding::none) {
    if (!entity.setBodyFromText(raw, charset)) appendBytes(entity.m_body, raw);
    return;
  }
  appendBody(entity.m_body, raw, coding);
  if (isEncryptedBody(entity.m_header, entity.m_transferEncoding, entity.m_body.view())) return;
  entity.setBodyFromText(entity.m_body.view(), charset);
}

/// A multipart must not be transfer-encoded (RFC 2045, 6.4), but some are. Looks for the
/// boundary in the decoded body, but not again inside parts found that way: the sender
/// could make such a message arbitrarily deep.
bool MimeParser::Pass::splitDecoded(const OpenMultipart& multipart) {
  MimeMessage2& entity = *multipart.entity;
  if (m_isDecoded || codingOf(entity.m_transferEncoding) == Coding::none) return false;
  DataBuffer body;
  body.takeData(entity.m_body);
  // A decoded body is no longer than the encoded one, so the origins of its parts stay unique.
  Pass inner(body.view(), level(), m_origin + multipart.bodyBegin, m_budget);
  inner.m_isDecoded = true;
  // Decoded, a line that matches an outer boundary would end that multipart: such a body stays encoded.
  if (containsOpenBoundary(body.view()) || !inner.splitBodyOf(multipart)) {
    entity.m_body.takeData(body);
    return false;
  }
  // The parts are no longer encoded.
  entity.m_transferEncoding.clear();
  entity.m_header.removeMimeField("Content-Transfer-Encoding", /*all=*/true);
  return true;
}

bool MimeParser::Pass::containsOpenBoundary(std::string_view text) const {
  if (m_open.empty()) return false;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t position = findDashLine(text, at);
    if (position == kNowhere) return false;
    const DashLine line = dashLineAt(text, position);
    if (match(position, line)) return true;
    at = line.next;
  }
  return false;
}

/// Splits the whole text as the body of a multipart whose header is elsewhere.
bool MimeParser::Pass::splitBodyOf(const OpenMultipart& multipart) {
  if (firstBoundaryIn(0, m_text.size(), multipart.boundary) == kNowhere) return false;
  m_open.push_back(multipart);
  m_open.back().bodyBegin = 0;
  m_open.back().shortestBoundary = multipart.boundary.size();
  m_last = {multipart.entity, 0};
  splitParts();
  return !multipart.entity->m_parts.empty();
}

std::string_view MimeParser::skipPrologue(std::string_view text) noexcept {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  while (isMboxLine(text)) text.remove_prefix(afterLineBreak(text, endOfLine(text, 0)));
  return text;
}

void MimeParser::parse(std::string_view text, MimeMessage2& root, int& parts, LogBase& log,
                       std::vector<EntityPlace>* places) {
  Budget budget{parts};
  Pass(skipPrologue(text), /*level=*/1, /*origin=*/0, budget, places).parseEntity(root, Pass::Place::top);
  finish(root, budget.limits, log);
}

void MimeParser::parseContent(std::string_view text, MimeMessage2& entity, int level, Origin origin,
                              int& parts, LogBase& log) {
  Budget budget{parts};
  Pass(text, level, origin, budget).parseEntity(entity, Pass::Place::inside);
  finish(entity, budget.limits, log);
}

void MimeParser::finish(MimeMessage2& root, LimitSet limits, LogBase& log) {
  root.m_limits = limits;
  for (const LimitText& row : kLimitTexts)
    if (limits.has(row.limit)) log.logError("Limit exceeded: " + row.text());
}

}  // namespace mailtree
