#include "cli/views/json_view.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "cli/message/input.h"
#include "cli/support/json_values.h"
#include "cli/views/security_json.h"
#include "mailtree/crypto/Digest.h"

namespace mailtree::cli {
namespace {

Json fieldOrNull(const Email2& root, const char* name) {
  const std::optional<std::string> value = fieldOf(root, name);
  return value ? Json(*value) : Json();
}

Json addressesOf(const Email2& root, std::string_view field) {
  ExtPtrArray list;
  entriesOf(root.m_header, field, list);
  Json out = Json::array();
  for (int i = 0; i < list.getSize(); ++i) out.push_back(addressOf(*list.at<_svEmailAddress>(i)));
  return out;
}

/// The text in comparable form: LF line breaks, no trailing white space.
std::string comparableText(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\r', at), text.size());
    out += text.substr(at, end - at);
    if (end < text.size()) out += '\n';
    at = end + (text.substr(end).starts_with("\r\n") ? 2 : 1);
  }
  out.resize(trimRight(out).size());
  return out;
}

Json textHashOf(const PartRow& row, const std::string& hashOfBody) {
  if (!row.isText()) return Json();
  const std::string text = comparableText(textOf(row));
  return text == row.node->m_body.view() ? hashOfBody : sha256Hex(text);
}

Json factsOf(const PartRow& row, int id) {
  const Email2& node = *row.node;
  const std::string hash = sha256Hex(node.m_body.view());
  return objectOf({{"id", id},
                   {"content_type", row.contentType},
                   {"charset", textOrNull(row.charset)},
                   {"transfer_encoding", textOrNull(node.m_transferEncoding)},
                   {"disposition", textOrNull(node.m_disposition)},
                   {"filename", textOrNull(row.filename)},
                   {"content_id", textOrNull(node.m_contentId)},
                   {"size", node.m_body.getSize()},
                   {"sha256", hash},
                   {"text_sha256", textHashOf(row, hash)}});
}

Json attachmentOf(const PartRow& row, int number, int id) {
  Json attachment = {{"number", number}};
  attachment.update(factsOf(row, id));
  attachment["reason"] = textOrNull(row.reason);
  return attachment;
}

/// Serialises the tree part by part: JSON values for the parts of a hostile message would cost more
/// than loading it.
std::string treeOf(const Outline& outline) {
  std::string out;
  std::vector<int> open;  // the current part and its ancestors
  for (int id = 0; const PartRow& row : outline.rows) {
    for (; !open.empty() && open.back() != row.parent; open.pop_back()) out += "]}";
    if (out.ends_with('}')) out += ',';
    out += textOf(factsOf(row, id));
    out.back() = ',';
    out += R"("parts":[)";
    open.push_back(id++);
  }
  for (; !open.empty(); open.pop_back()) out += "]}";
  return out;
}

/// Joins two serialized objects and puts an already serialized member between them.
std::string joined(std::string head, const char* key, std::string_view value, std::string_view tail) {
  head.back() = ',';
  return std::move(
      head.append("\"").append(key).append("\":").append(value).append(",").append(tail.substr(1)));
}

Json headersOf(const Email2& root) {
  Json out = Json::array();
  for (int i = 0; i < root.m_header.getNumFields(); ++i)
    out.push_back({root.m_header.fieldName(i), root.m_header.decodedValue(i)});
  return out;
}

Json idOrNull(int id) { return id < 0 ? Json() : Json(id); }

}  // namespace

std::string jsonOf(const std::string& file, Verification& verification, const JsonOptions& options) {
  Email2& root = *verification.message.root;
  const Outline outline = outlineOf(root);
  const Json head = objectOf({{"schema", kSchema},
                              {"file", file},
                              {"subject", fieldOrNull(root, "Subject")},
                              {"from", addressOrNull(senderOf(root))},
                              {"to", addressesOf(root, "To")},
                              {"cc", addressesOf(root, "Cc")},
                              {"bcc", addressesOf(root, "Bcc")},
                              {"date", dateOrNull(dateOf(root))},
                              {"message_id", fieldOrNull(root, "Message-ID")}});
  Json tail = objectOf({{"attachments", outline.attachments},
                        {"plain_text", idOrNull(outline.plainText)},
                        {"html", idOrNull(outline.html)},
                        {"security", securityOf(verification)},
                        {"limits", limitsOf(verification.message.limits())}});
  if (options.headers) tail["headers"] = headersOf(root);
  return lineOf(joined(textOf(head), "tree", treeOf(outline), textOf(tail)));
}

std::string attachmentsJsonOf(const std::string& file, const Message& message, const Outline& outline) {
  Json list = Json::array();
  for (const int id : outline.attachments)
    list.push_back(attachmentOf(outline.row(id), static_cast<int>(list.size()), id));
  return lineOf(
      {{"schema", kSchema}, {"file", file}, {"attachments", list}, {"limits", limitsOf(message.limits())}});
}

std::string relatedJsonOf(const std::string& file, const Message& message, const Outline& outline,
                          const std::vector<int>& items) {
  Json list = Json::array();
  for (const int id : items) {
    const PartRow& row = outline.row(id);
    Json item = {{"number", list.size()}};
    item.update(factsOf(row, id));
    item["content_location"] = fieldOrNull(*row.node, "Content-Location");
    list.push_back(std::move(item));
  }
  return lineOf(
      {{"schema", kSchema}, {"file", file}, {"related", list}, {"limits", limitsOf(message.limits())}});
}

}  // namespace mailtree::cli
