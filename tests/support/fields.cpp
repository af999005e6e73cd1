#include "tests/support/fields.h"

#include "mailtree/mime/header/HeaderParams.h"

namespace mailtree {
namespace {

/// Value of a field as structured fields are parsed from it: unfolded, not decoded. Empty without one.
std::string structuredValue(const Email2& node, const char* name) {
  std::string scratch;
  const int index = node.m_header.findField(name);
  return index < 0 ? std::string() : std::string(node.m_header.unfoldedValue(index, scratch));
}

bool contentTypeAgrees(const Email2& node) {
  _svContentType type;
  _svCharset charset;
  const std::string value = structuredValue(node, "Content-Type");
  if (value.empty()) return node.m_contentType.m_type.isEmpty();
  type.loadFromMimeHeaderValue(value, charset);
  return type.sameMeaning(node.m_contentType);
}

bool dispositionAgrees(const Email2& node) {
  const std::string value = structuredValue(node, "Content-Disposition");
  const ParameterizedValue parsed = parseParameterizedValue(value);
  const std::string* filename = parsed.params.find("filename");
  return parsed.value == node.m_disposition.view() &&
         (filename ? *filename : std::string()) == node.m_dispFilename.view();
}

bool dateAgrees(const Email2& node) {
  SorvikSysTime date = node.m_date;
  _svDateParser::parse(structuredValue(node, "Date"), date);
  return date == node.m_date;
}

std::string textOf(const _svEmailAddress& address) {
  return std::string(address.m_name.view()) + "<" + std::string(address.m_address.view()) + ">";
}

bool senderAgrees(const Email2& node) {
  _svEmailAddress sender;
  LogNull log;
  if (!sender.loadSingleEmailAddr(structuredValue(node, "From").c_str(), false, log))
    return node.m_fromAddr.m_address.isEmpty();
  return textOf(sender) == textOf(node.m_fromAddr);
}

/// Whether the address field of a list holds its addresses; no field is no statement.
bool recipientsAgree(const Email2& node, const char* name, const ExtPtrArray& list) {
  ExtPtrArray fromField;
  _svEmailAddress::parseAndLoadList(structuredValue(node, name), fromField);
  bool agree = node.m_header.findField(name) < 0 || fromField.getSize() == list.getSize();
  for (int i = 0; agree && i < fromField.getSize(); ++i)
    agree = textOf(*list.at<_svEmailAddress>(i)) == textOf(*fromField.at<_svEmailAddress>(i));
  return agree;
}

}  // namespace

std::string fieldOf(const Email2& node, const char* name) {
  LogNull log;
  StringBuffer value;
  return node.m_header.getMimeFieldUtf8(name, value, log) ? value.extractString() : "(none)";
}

std::vector<std::string> fieldNames(const Email2& node) {
  std::vector<std::string> names;
  for (int i = 0; i < node.m_header.getNumFields(); ++i) names.emplace_back(node.m_header.fieldName(i));
  return names;
}

std::string writtenHeader(const Email2& node) {
  LogNull log;
  StringBuffer text;
  node.m_header.getMimeHeader(text, nullptr, kCpUtf8, /*isTop=*/true, log);
  return text.extractString();
}

std::string disagreeingFields(const Email2& node) {
  const std::pair<const char*, bool> fields[] = {
      {"Content-Type", contentTypeAgrees(node)},
      {"Content-Transfer-Encoding",
       trim(structuredValue(node, "Content-Transfer-Encoding")) == node.m_transferEncoding.view()},
      {"Content-ID", structuredValue(node, "Content-ID") == node.m_contentId.view()},
      {"Content-Disposition", dispositionAgrees(node)},
      {"Date", dateAgrees(node)},
      {"From", senderAgrees(node)},
      {"To", recipientsAgree(node, "To", node.m_toAddrs)},
      {"Cc", recipientsAgree(node, "Cc", node.m_ccAddrs)},
  };
  std::string names;
  for (const auto& [name, agrees] : fields)
    if (!agrees) names.append(names.empty() ? "" : " ").append(name);
  return names;
}

}  // namespace mailtree
