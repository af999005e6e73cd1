#include "mailtree/message/decryption.h"

#include <algorithm>
#include <map>

#include "mailtree/base/Log.h"
#include "mailtree/crypto/Pkcs7Opener.h"
#include "mailtree/message/internal_fields.h"
#include "mailtree/mime/Limits.h"
#include "mailtree/mime/MimeMessage2.h"
#include "mailtree/mime/header/HeaderLines.h"
#include "mailtree/secure/displayed_fields.h"
#include "mailtree/secure/field_meaning.h"
#include "mailtree/secure/inner_content.h"
#include "mailtree/secure/layer_forms.h"

namespace mailtree {
namespace {

struct RawField {
  std::string_view name;
  std::string_view lines;  ///< The whole field as received, without its last line break.
};

/// An entity's header fields and body. Lines that are not fields are left out.
struct RawEntity {
  std::vector<RawField> fields;
  std::string_view body;
};

std::vector<RawField> fieldsOf(std::string_view header) {
  std::vector<RawField> fields;
  for (std::size_t at = 0; at < header.size();) {
    const std::size_t begin = at, firstEnd = endOfLine(header, at);
    std::size_t end = firstEnd;
    for (at = afterLineBreak(header, end); at < header.size() && isBlankAscii(header[at]);) {
      end = endOfLine(header, at);
      at = afterLineBreak(header, end);
    }
    const FieldStart start = readFieldStart(header.substr(begin, firstEnd - begin));
    if (start.nameSize > 0)
      fields.push_back({header.substr(begin, start.nameSize), header.substr(begin, end - begin)});
  }
  return fields;
}

RawEntity splitEntity(std::string_view entity, MimeHeader::LeadingEmptyLines emptyLines) {
  MimeHeader header;
  const MimeHeader::Extent extent = header.loadFromEntity(entity, emptyLines);
  return {fieldsOf(entity.substr(0, extent.headerSize)),
          entity.substr(std::min(extent.bodyOffset, entity.size()))};
}

const RawField* findField(const RawEntity& entity, std::string_view name) {
  const auto found = std::ranges::find_if(
      entity.fields, [name](const RawField& field) { return equalsNoCase(field.name, name); });
  return found == entity.fields.end() ? nullptr : &*found;
}

/// Whether servers in transit add or remove a field, so that the content must not supply it.
bool isTransportField(std::string_view name) {
  constexpr std::string_view kFields[] = {"Received",     "Return-Path", "Authentication-Results",
                                          "Delivered-To", "Bcc",         "Resent-Bcc"};
  return std::ranges::any_of(kFields, [name](std::string_view field) { return equalsNoCase(field, name); });
}

bool describesContent(std::string_view name) {
  return beginsWithNoCase(name, "Content-") || equalsNoCase(name, "MIME-Version") ||
         equalsNoCase(name, "X-MS-Has-Attach");
}

/// Writes CRLF, because the content uses it too.
void appendField(const RawField& field, std::string& out) {
  for (std::size_t at = 0; at < field.lines.size();) {
    const std::size_t end = endOfLine(field.lines, at);
    out.append(field.lines.substr(at, end - at)).append("\r\n");
    at = afterLineBreak(field.lines, end);
  }
}

std::string comparedValue(const RawField& field) {
  MimeHeader header;
  header.loadFromEntity(field.lines);
  return mailtree::comparedValue(header, 0);
}

/// Comparable values of the displayed inner fields; read once, because there may be thousands
/// of outer fields.
std::map<const RawField*, std::string> comparedFieldsOf(const RawEntity& inner) {
  std::map<const RawField*, std::string> values;
  for (const std::string_view name : kDisplayedFields)
    if (const RawField* const field = findField(inner, name)) values.emplace(field, comparedValue(*field));
  return values;
}

void appendOuterFields(const RawEntity& outer, const RawEntity& inner, DecryptedMessage& opened) {
  const auto compared = comparedFieldsOf(inner);
  for (const RawField& field : outer.fields) {
    if (describesContent(field.name) || isInternalField(field.name)) continue;
    const RawField* const inside = findField(inner, field.name);
    if (!inside) appendField(field, opened.bytes);
    const auto displayed = compared.find(inside);
    if (displayed != compared.end() && comparedValue(field) != displayed->second)
      opened.fields.emplace_back(field.name);
  }
}

/// Splits the decrypted entity. Some programs encrypt bare text, not an entity; none of its lines may then be
/// read as a header field.
RawEntity splitContent(std::string_view content) {
  if (!isMimeEntity(content)) return {{{"Content-Type", "Content-Type: text/plain"}}, content};
  RawEntity inner = splitEntity(content, MimeHeader::LeadingEmptyLines::endHeader);
  std::erase_if(inner.fields, [](const RawField& field) { return isTransportField(field.name); });
  return inner;
}

void join(std::string_view message, std::string_view content, DecryptedMessage& opened) {
  const RawEntity outer = splitEntity(message, MimeHeader::LeadingEmptyLines::skip);
  const RawEntity inner = splitContent(content);
  opened.bytes.clear();
  opened.bytes.reserve(content.size() + message.size() - outer.body.size() + 32);
  appendOuterFields(outer, inner, opened);
  if (!findField(inner, "MIME-Version")) opened.bytes += "MIME-Version: 1.0\r\n";
  for (const RawField& field : inner.fields)
    if (!isInternalField(field.name)) appendField(field, opened.bytes);
  opened.bytes.append("\r\n").append(inner.body);
}

/// Opens layer after layer, as long as each is the whole content of the one around it.
class LayerOpener {
 public:
  LayerOpener(std::string_view message, SystemCerts& certs) : m_message(message), m_certs(certs) {}

  DecryptedMessage run() {
    m_entity.borrowData(m_message.data(), m_message.size());
    int layers = 0;
    while (layers < kMaxUnwrappedLayers && openNextLayer()) ++layers;
    if (m_hasContent) join(m_message, m_content.view(), m_opened);
    if (!m_hasContent && m_opened.problem.empty())
      m_opened.problem = "the message is not encrypted as a whole";
    return std::move(m_opened);
  }

 private:
  /// Whether there is an inner entity to continue with.
  bool openNextLayer() {
    MimeMessage2 entity;
    LogNull log;
    if (!entity.loadText(m_entity.view(), m_budget.parts, log)) return false;
    if (equalsNoCase(viewOf(entity.getContentType()), "multipart/signed") && entity.getNumParts() > 0)
      return enterSigned(*entity.getPart(0));
    return isPkcs7Mime(entity) && open(entity.getMimeBodyDb()->view());
  }

  bool enterSigned(MimeMessage2& content) {
    const std::unique_ptr<DataBuffer> bytes = content.extractReceivedBytes();
    if (!bytes) return false;
    m_entity.takeData(*bytes);
    m_isInsideSigned = true;
    return true;
  }

  bool open(std::string_view der) {
    SecureLayer layer;
    DataBuffer content;
    LogNull log;
    if (!Pkcs7Opener::open(der, m_certs, content, layer, m_budget, log)) {
      if (layer.isEncrypted() || !m_hasContent) m_opened.problem = layer.problem;
      return false;
    }
    if (layer.isEncrypted()) {
      m_opened.lostSignature = m_opened.lostSignature || m_isInsideSigned;
      m_isInsideSigned = false;
      m_hasContent = true;
      m_content.takeData(content);
      m_entity.borrowData(m_content.getData2(), m_content.getSize());
      return true;
    }
    m_isInsideSigned = m_isInsideSigned || layer.isSigned();
    m_entity.takeData(content);
    return true;
  }

  std::string_view m_message;
  SystemCerts& m_certs;
  LoadBudget m_budget = LoadBudget::ofMessage(m_message.size());
  DataBuffer m_content;  ///< Of the innermost encrypted layer so far.
  DataBuffer m_entity;   ///< The current entity; owned, or borrowed from the message or the content.
  bool m_hasContent = false;
  bool m_isInsideSigned = false;
  DecryptedMessage m_opened;
};

}  // namespace

DecryptedMessage decryptMessage(std::string_view message, SystemCerts& certs) {
  return LayerOpener(message, certs).run();
}

}  // namespace mailtree
