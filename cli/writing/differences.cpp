#include "cli/writing/differences.h"

#include <algorithm>
#include <map>
#include <memory>
#include <utility>

#include "cli/support/terminal.h"
#include "mailtree/mime/BoundaryLines.h"
#include "mailtree/mime/Limits.h"
#include "mailtree/mime/MimeMessage2.h"
#include "mailtree/mime/MimeParser.h"
#include "mailtree/mime/coding/ContentCoding.h"
#include "mailtree/mime/html/Html.h"

namespace mailtree::cli {
namespace {

std::string withCrlf(std::string_view text) {
  StringBuffer lines(text);
  lines.toCRLF();
  return lines.extractString();
}

/// A MIME entity as views into its text; nothing is decoded.
struct Entity {
  MimeHeader header;
  MimeMessage2 fields;  ///< The parsed header.
  std::string_view headerText;
  std::string_view body;  ///< Of a multipart, including its parts.
  std::string_view preamble, epilogue;
  bool isClosed = true;
  bool hasPlainBoundaries = true;  ///< Nothing follows a boundary on its line.
  std::vector<std::unique_ptr<Entity>> parts;
};

std::unique_ptr<Entity> readEntity(std::string_view text, int depth);

/// The text of a part without the line break that belongs to the next boundary.
std::string_view partBefore(std::string_view text, std::size_t begin, std::size_t boundary) {
  std::string_view part = text.substr(begin, boundary - begin);
  if (part.ends_with('\n')) part.remove_suffix(part.ends_with("\r\n") ? 2 : 1);
  return part;
}

void splitParts(Entity& entity, std::string_view boundary, int depth) {
  const std::string_view text = entity.body;
  std::size_t partBegin = std::string_view::npos;
  entity.isClosed = false;
  for (std::size_t at = 0; !entity.isClosed;) {
    const std::size_t position = findDashLine(text, at);
    if (position == std::string_view::npos) break;
    const DashLine line = dashLineAt(text, position);
    at = line.next;
    if (!line.isBoundary(boundary)) continue;
    if (partBegin == std::string_view::npos)
      entity.preamble = text.substr(0, position);
    else
      entity.parts.push_back(readEntity(partBefore(text, partBegin, position), depth + 1));
    entity.isClosed = line.content.size() != boundary.size();
    entity.hasPlainBoundaries &= endOfLine(text, position) == position + 2 + line.content.size();
    partBegin = line.next;
    if (entity.isClosed) entity.epilogue = text.substr(endOfLine(text, position));
  }
  const bool hasLast = !entity.isClosed && partBegin < text.size();
  if (hasLast) entity.parts.push_back(readEntity(text.substr(partBegin), depth + 1));
}

std::unique_ptr<Entity> readEntity(std::string_view text, int depth) {
  using EmptyLines = MimeHeader::LeadingEmptyLines;
  auto entity = std::make_unique<Entity>();
  const MimeHeader::Extent extent =
      entity->header.loadFromEntity(text, depth == 0 ? EmptyLines::skip : EmptyLines::endHeader);
  LogNull quiet;
  int parts = kMaxParts;
  entity->headerText = text.substr(0, extent.bodyOffset);
  entity->body = text.substr(extent.bodyOffset);
  if (depth == 0)
    entity->fields.loadText(entity->headerText, quiet);
  else
    entity->fields.loadContent(entity->headerText, depth + 1, /*origin=*/0, parts, quiet);
  const std::string_view boundary = trimRight(entity->fields.contentType().m_boundary);
  if (entity->fields.isMultipart() && !boundary.empty() && depth < kMaxDepth)
    splitParts(*entity, boundary, depth);
  return entity;
}

std::string labelOf(const MimeHeader& header, int row) {
  const std::string_view name = header.fieldName(row);
  return name.empty() ? "line without a name" : "field " + printable(name);
}

/// Compares without white space, which folding changes.
bool sameText(std::string_view a, std::string_view b) {
  const auto withoutBlanks = [](std::string_view text) {
    std::string out;
    std::ranges::copy_if(text, std::back_inserter(out), [](char c) { return !isSpaceAscii(c); });
    return out;
  };
  return a == b || withoutBlanks(a) == withoutBlanks(b);
}

class ByteComparison {
 public:
  std::vector<std::string> compare(std::string_view received, std::string_view written) {
    if (received == written) return {};
    const std::string_view message = MimeParser::skipPrologue(received);
    if (message.size() != received.size()) add("text before the header removed");
    const auto from = readEntity(message, 0), to = readEntity(written, 0);
    compareEntities(*from, *to);
    if (m_lineEndsDiffer) m_lines.insert(m_lines.begin(), "line breaks changed to CRLF");
    if (m_lines.empty()) add("blanks or line breaks between parts changed");
    return std::move(m_lines);
  }

 private:
  void add(std::string line) { m_lines.push_back(std::move(line)); }
  void addToPart(int part, const std::string& what) { add("part " + std::to_string(part) + ": " + what); }

  bool isSame(std::string_view from, std::string_view to) {
    if (from == to) return true;
    if (withCrlf(from) != withCrlf(to)) return false;
    m_lineEndsDiffer = true;
    return true;
  }

  void compareEntities(const Entity& from, const Entity& to) {
    const int part = m_part++;
    compareHeaders(part, from, to);
    if (from.parts.size() != to.parts.size()) {
      addToPart(part, std::to_string(from.parts.size()) + " parts become " + std::to_string(to.parts.size()));
      m_part += countBelow(from);
    } else if (from.parts.empty()) {
      compareBodies(part, from, to);
    } else {
      compareOuterTexts(part, from, to);
      for (std::size_t i = 0; i < from.parts.size(); ++i) compareEntities(*from.parts[i], *to.parts[i]);
    }
  }

  static int countBelow(const Entity& entity) {
    int count = 0;
    for (const auto& part : entity.parts) count += 1 + countBelow(*part);
    return count;
  }

  void compareHeaders(int part, const Entity& from, const Entity& to) {
    if (isSame(from.headerText, to.headerText)) return;
    const std::size_t before = m_lines.size();
    std::multimap<std::string, int> left;  // rows of the written header, by text
    for (int i = 0; i < to.header.getNumFields(); ++i) left.emplace(textOf(to.header, i), i);
    std::vector<int> changed;
    bool isOrdered = true;
    int last = -1;
    for (int i = 0; i < from.header.getNumFields(); ++i) {
      const auto same = left.find(textOf(from.header, i));
      if (same == left.end()) {
        changed.push_back(i);
        continue;
      }
      isOrdered &= same->second > last;
      last = same->second;
      left.erase(same);
    }
    std::multimap<std::string, int> byName;
    for (const auto& [text, row] : left) byName.emplace(nameOf(to.header, row), row);
    for (const int row : changed) compareField(part, from.header, row, to.header, byName);
    for (const auto& [name, row] : byName) addToPart(part, labelOf(to.header, row) + " added");
    if (m_lines.size() != before) return;
    addToPart(part, isOrdered ? "blanks or empty lines of the header changed" : "fields reordered");
  }

  static std::string nameOf(const MimeHeader& header, int row) {
    std::string name(header.fieldName(row));
    std::ranges::transform(name, name.begin(), toLowerAscii);
    return name;
  }

  static std::string textOf(const MimeHeader& header, int row) {
    return std::string(header.fieldName(row)).append(":").append(withCrlf(header.rawValue(row)));
  }

  void compareField(int part, const MimeHeader& from, int row, const MimeHeader& to,
                    std::multimap<std::string, int>& byName) {
    const auto other = byName.find(nameOf(from, row));
    if (other == byName.end()) return addToPart(part, labelOf(from, row) + " removed");
    const bool isSameText = sameText(from.decodedValue(row), to.decodedValue(other->second));
    addToPart(part, labelOf(from, row) + (isSameText ? " rewritten with the same meaning" : " changed"));
    byName.erase(other);
  }

  void compareOuterTexts(int part, const Entity& from, const Entity& to) {
    compareOuterText(part, from.preamble, to.preamble, "before the first part");
    if (!from.isClosed && to.isClosed) addToPart(part, "closing boundary added");
    if (from.isClosed) compareOuterText(part, from.epilogue, to.epilogue, "after the last part");
    if (!from.hasPlainBoundaries && to.hasPlainBoundaries) addToPart(part, "blanks after boundaries removed");
  }

  void compareOuterText(int part, std::string_view from, std::string_view to, const char* where) {
    if (isSame(from, to)) return;
    const bool hasText = trim(from) != trim(to);
    addToPart(part,
              std::string(hasText ? "text " : "empty lines ") + where + (hasText ? " removed" : " changed"));
  }

  void compareBodies(int part, const Entity& from, const Entity& to) {
    if (isSame(from.body, to.body)) return;
    const std::string_view encoding = from.fields.getContentEncoding(), now = to.fields.getContentEncoding();
    const bool isSameEncoding = equalsNoCase(encoding, now);
    const bool isSameContent = isSame(decoded(from.body, encoding), decoded(to.body, now));
    if (!isSameEncoding)
      addToPart(part, "encoding " + nameOfEncoding(encoding) + " becomes " + nameOfEncoding(now));
    if (!isSameContent) return compareCharsets(part, from, to);
    if (!isSameEncoding) return;
    addToPart(part,
              equalsNoCase(now, "base64") ? "base64 lines refolded" : nameOfEncoding(now) + " re-encoded");
  }

  static std::string nameOfEncoding(std::string_view encoding) {
    return encoding.empty() ? "none" : printable(encoding);
  }

  static std::string decoded(std::string_view body, std::string_view encoding) {
    DataBuffer out;
    if (equalsNoCase(encoding, "base64"))
      ContentCoding::decodeBase64ToDb(body, out);
    else if (equalsNoCase(encoding, "quoted-printable"))
      ContentCoding::decodeQuotedPrintableToDb(body, out);
    else
      out.append(body);
    return std::string(out.view());
  }

  void compareCharsets(int part, const Entity& from, const Entity& to) {
    const std::string before = printable(from.fields.charset().getName());
    const std::string after = printable(to.fields.charset().getName());
    if (equalsNoCase(before, after)) return addToPart(part, "bytes of the content changed");
    addToPart(part, "text converted from " + (before.empty() ? "no charset" : before) + " to " + after);
  }

  std::vector<std::string> m_lines;
  int m_part = 0;
  bool m_lineEndsDiffer = false;
};

class ReaderComparison {
 public:
  std::vector<std::string> compare(Email2& from, Email2& to) {
    compareNodes(from, to);
    return std::move(m_lines);
  }

 private:
  void add(int part, const std::string& what) {
    m_lines.push_back("part " + std::to_string(part) + ": " + what);
  }

  void compareNodes(Email2& from, Email2& to) {
    const int part = m_part++;
    if (from.getNumParts() != to.getNumParts()) return add(part, "structure differs");
    if (typeOf(from) != typeOf(to)) add(part, "type differs");
    if (nameOf(from) != nameOf(to)) add(part, "file name differs");
    if (fieldsOf(from.m_header) != fieldsOf(to.m_header)) add(part, "header fields differ");
    if (from.getNumParts() == 0 && from.m_body.view() != to.m_body.view() &&
        comparableBody(from) != comparableBody(to))
      add(part, "content differs");
    for (int i = 0; i < from.getNumParts(); ++i) compareNodes(*from.getPart(i), *to.getPart(i));
  }

  static std::string_view typeOf(const Email2& node) {
    return node.m_contentType.m_type.isEmpty() ? "text/plain" : node.m_contentType.m_type.view();
  }

  static std::string_view nameOf(const Email2& node) {
    return node.m_dispFilename.isEmpty() ? node.m_contentType.m_name.view() : node.m_dispFilename.view();
  }

  /// The comparable body. For HTML, ignores the structure that writing completes and the declared charset.
  static std::string comparableBody(const Email2& node) {
    if (!equalsNoCase(typeOf(node), "text/html")) return withCrlf(node.m_body.view());
    LogNull quiet;
    StringBuffer html(node.m_body.view());
    _svHtmlHelp::ensureStructure(html);
    _svHtmlHelp::removeCharsetMetaTag(html, quiet);
    std::string text = withCrlf(html);
    std::erase_if(text, isSpaceAscii);
    return text;
  }

  /// The fields a person sees. Content- fields are compared by their meaning, and internal ones
  /// are not written.
  static std::string fieldsOf(const MimeHeader& header) {
    std::string fields;
    for (int i = 0; i < header.getNumFields(); ++i) {
      const std::string_view name = header.fieldName(i);
      if (beginsWithNoCase(name, "Content-") || beginsWithNoCase(name, "MIME-") ||
          beginsWithNoCase(name, "SVX-") || beginsWithNoCase(name, "SVZ-"))
        continue;
      fields.append(name).append(":");
      std::ranges::copy_if(header.decodedValue(i), std::back_inserter(fields),
                           [](char c) { return !isSpaceAscii(c); });
      fields += '\n';
    }
    return fields;
  }

  std::vector<std::string> m_lines;
  int m_part = 0;
};

}  // namespace

std::vector<std::string> differencesInBytes(std::string_view received, std::string_view written) {
  return ByteComparison().compare(received, written);
}

std::vector<std::string> displayedDifferences(Email2& received, Email2& written) {
  return ReaderComparison().compare(received, written);
}

}  // namespace mailtree::cli
