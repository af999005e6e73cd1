#include "cli/views/json_view.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "cli/message/input.h"
#include "cli/support/json_text.h"
#include "cli/support/json_values.h"
#include "cli/views/problems_json.h"
#include "cli/views/security_json.h"
#include "mailtree/base/FileNames.h"
#include "mailtree/crypto/Digest.h"
#include "mailtree/message/displayed.h"
#include "mailtree/message/field_forms.h"
#include "mailtree/message/internal.h"

namespace mailtree::cli {
namespace {

std::string entriesJson(const Email2& root, std::string_view field) {
  ListText out;
  for (const Address& entry : addressesIn(root.m_header, field)) out.addSerialized(addressOf(entry));
  return out.closed();
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

/// Empty for anything but a text.
std::string textHashOf(const PartRow& row, const std::string& hashOfBody) {
  if (!row.isText()) return {};
  const std::string text = comparableText(textOf(row));
  return text == row.node->m_body.view() ? hashOfBody : sha256Hex(text);
}

/// @return the hash of the content.
std::string addFacts(const PartRow& row, int id, ObjectText& out) {
  const Email2& node = *row.node;
  std::string hash = sha256Hex(node.m_body.view());
  out.add("id", id)
      .add("content_type", row.contentType)
      .addOrNull("charset", charsetOf(row))
      .addOrNull("transfer_encoding", node.m_transferEncoding)
      .addOrNull("disposition", node.m_disposition)
      .addOrNull("filename", row.filename)
      .addOrNull("content_id", node.m_contentId)
      .add("size", node.m_body.getSize())
      .add("sha256", hash)
      .addOrNull("text_sha256", textHashOf(row, hash));
  return hash;
}

/// @param hashes  receives the hash of each part.
void appendTree(const Outline& outline, std::vector<std::string>& hashes, std::string& out) {
  std::vector<int> open;  // the current part and its ancestors
  for (int id = 0; const PartRow& row : outline.rows) {
    for (; !open.empty() && open.back() != row.parent; open.pop_back()) out += "]}";
    if (out.ends_with('}')) out += ',';
    ObjectText facts;
    hashes.push_back(addFacts(row, id, facts));
    out.append(facts.open()).append(R"(,"parts":[)");
    open.push_back(id++);
  }
  for (; !open.empty(); open.pop_back()) out += "]}";
}

/// The files, and what the HTML shows.
void appendFiles(const Outline& outline, const Displayed& display, const std::vector<std::string>& hashes,
                 std::string& out) {
  std::vector<bool> isListed(outline.rows.size());
  out += '[';
  const auto add = [&](int id, std::string_view kind) {
    if (isListed[static_cast<std::size_t>(id)]) return;
    isListed[static_cast<std::size_t>(id)] = true;
    const PartRow& row = outline.row(id);
    const std::string name = givenFileName(row);
    ObjectText file;
    file.add("id", id)
        .addOrNull("name", name.empty() ? name : safeFileName(name, {}))
        .add("type", row.contentType)
        .add("size", row.node->m_body.getSize())
        .add("sha256", hashes[static_cast<std::size_t>(id)])
        .add("kind", kind);
    out.append(out.ends_with('[') ? "" : ",").append(file.closed());
  };
  for (const int id : display.attachments) add(id, outline.row(id).isMessage() ? "message" : "attachment");
  for (const int id : display.inlineItems) add(id, "inline");
  out += ']';
}

/// In angle brackets, as in message_id.
std::string idsOf(const Email2& root, const char* field) {
  ListText list;
  for (const std::string& id : idsIn(decodedField(root, field).value_or(std::string())))
    list.add("<" + id + ">");
  return list.closed();
}

std::string bodyOf(const mailtree::Message& message) {
  return ObjectText().addOrNull("text", message.text()).addOrNull("html", message.html()).closed();
}

/// A list of parts: their numbers, their facts, and what `addMore` adds.
template <class AddMore>
std::string listOf(const Outline& outline, const std::vector<int>& ids, AddMore&& addMore) {
  std::string list = "[";
  for (std::size_t number = 0; number < ids.size(); ++number) {
    const PartRow& row = outline.row(ids[number]);
    ObjectText entry;
    entry.add("number", number);
    addFacts(row, ids[number], entry);
    addMore(row, entry);
    list.append(number ? "," : "").append(entry.closed());
  }
  return list += ']';
}

std::string listObjectOf(const std::string& file, const char* key, const std::string& list, LimitSet limits) {
  ObjectText object;
  object.add("schema", kSchema).add("file", file).addSerialized(key, list);
  return object.addSerialized("limits", limitsOf(limits)).closed();
}

std::string headersOf(const Email2& root) {
  ListText list;
  for (int i = 0; i < root.m_header.getNumFields(); ++i)
    list.addSerialized(
        ListText().add(root.m_header.fieldName(i)).add(root.m_header.decodedValue(i)).closed());
  return list.closed();
}

void addIdOrNull(ObjectText& out, std::string_view key, int id) {
  id < 0 ? out.addSerialized(key, "null") : out.add(key, id);
}

/// What the header says.
void addHead(const mailtree::Message& message, ObjectText& out) {
  const Email2& root = message.email2();
  const std::optional<Date> date = message.date();
  out.addSerialized("subject", quotedOrNull(decodedField(root, "Subject")))
      .addSerialized("from", addressOrNull(senderOf(root)))
      .addSerialized("to", entriesJson(root, "To"))
      .addSerialized("cc", entriesJson(root, "Cc"))
      .addSerialized("bcc", entriesJson(root, "Bcc"))
      .addSerialized("date", dateOrNull(dateOf(root)))
      .addSerialized("message_id", quotedOrNull(decodedField(root, "Message-ID")))
      .addSerialized("reply_to", entriesJson(root, "Reply-To"));
  // Minutes by which the sender's clock is ahead of GMT.
  date ? out.add("date_offset", date->offset.count()) : out.addSerialized("date_offset", "null");
  out.addSerialized("in_reply_to", idsOf(root, "In-Reply-To"))
      .addSerialized("references", idsOf(root, "References"))
      .addOrNull("list_id", message.listId());
}

std::string numbersOf(const std::vector<int>& numbers) {
  ListText list;
  for (const int number : numbers) list.addSerialized(std::to_string(number));
  return list.closed();
}

}  // namespace

std::string jsonOf(const std::string& file, mailtree::Message& message, const JsonOptions& options) {
  MessageState& state = MessageState::of(message);  // numbers the parts once
  const Outline& outline = state.outline();
  ObjectText out;
  out.add("schema", kSchema).add("file", file);
  addHead(message, out);
  std::vector<std::string> hashes;
  hashes.reserve(outline.rows.size());
  appendTree(outline, hashes, out.begin("tree"));
  appendFiles(outline, state.displayed(), hashes, out.begin("files"));
  out.addSerialized("attachments", numbersOf(outline.attachments));
  addIdOrNull(out, "plain_text", outline.plainText);
  addIdOrNull(out, "html", outline.html);
  out.addSerialized("security", securityOf(message.security()))
      .addSerialized("limits", limitsOf(limitsIn(message)));
  appendProblems(out.begin("problems"), message.problems());
  if (options.headers) out.addSerialized("headers", headersOf(std::as_const(message).email2()));
  if (options.body) out.addSerialized("body", bodyOf(message));
  return out.closed();
}

std::string attachmentsJsonOf(const std::string& file, const Outline& outline, const std::vector<int>& files,
                              LimitSet limits) {
  const std::string list = listOf(
      outline, files, [](const PartRow& row, ObjectText& entry) { entry.addOrNull("reason", row.reason); });
  return listObjectOf(file, "attachments", list, limits);
}

std::string relatedJsonOf(const std::string& file, const Message& message, const Outline& outline,
                          const std::vector<int>& items) {
  const std::string list = listOf(outline, items, [](const PartRow& row, ObjectText& entry) {
    entry.addSerialized("content_location", quotedOrNull(decodedField(*row.node, "Content-Location")));
  });
  return listObjectOf(file, "related", list, message.limits());
}

}  // namespace mailtree::cli
