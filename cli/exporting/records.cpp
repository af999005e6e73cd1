#include "cli/exporting/records.h"

#include <algorithm>
#include <utility>

#include "cli/support/json_text.h"
#include "cli/views/jmap_fields.h"
#include "cli/views/jmap_view.h"
#include "cli/views/problems_json.h"
#include "cli/views/security_json.h"
#include "mailtree/base/Ascii.h"
#include "mailtree/email/Email2.h"
#include "mailtree/message/internal.h"
#include "mailtree/message/times.h"

namespace mailtree::cli {
namespace {

constexpr std::string_view kOwnMembers[] = {"file",     "size",     "threadId", "receivedAt",
                                            "keywords", "security", "problems"};
/// Of a table.
constexpr std::string_view kColumns[] = {"file", "sentAt", "from",   "to",        "cc",      "subject",
                                         "size", "files",  "listId", "messageId", "threadId"};

/// The id of the message that began the thread, as this message says by itself.
std::string rootIdOf(const mailtree::Message& message) {
  for (const char* const name : {"References", "In-Reply-To"})
    if (const std::optional<std::string> value = message.header(name))
      if (std::optional<std::string> id = findFirstId(*value)) return *std::move(id);
  return message.messageId();
}

/// Maildir's letters as keywords (RFC 8621, 4.1.1).
std::string keywordsOf(const SourceMessage& source) {
  constexpr std::pair<char, const char*> kKeywords[] = {
      {'S', "$seen"}, {'F', "$flagged"}, {'R', "$answered"}, {'D', "$draft"}, {'P', "$forwarded"}};
  ObjectText keywords;
  for (const auto& [letter, keyword] : kKeywords)
    if (source.flags && source.flags->find(letter) != std::string::npos) keywords.addIs(keyword, true);
  return keywords.closed();
}

std::string namesOf(const mailtree::Message& message) {
  std::string names;
  for (const Part& file : message.attachments())
    names.append(names.empty() ? "" : "; ").append(file.fileName());
  return names;
}

std::string listOf(const std::vector<Address>& addresses) {
  std::string list;
  for (const Address& address : addresses) list.append(list.empty() ? "" : ", ").append(address.text());
  return list;
}

std::string sentAtOf(const mailtree::Message& message) {
  const std::optional<Date> date = message.date();
  return date ? timeText(date->time) : std::string();
}

struct Column {
  std::string_view name;
  std::string (*value)(const mailtree::Message& message);
};
/// What is made from the message alone.
constexpr Column kValues[] = {
    {"sentAt", sentAtOf},
    {"from", [](const auto& m) { return m.from().text(); }},
    {"sender", [](const auto& m) { return m.sender().text(); }},
    {"replyTo", [](const auto& m) { return listOf(m.replyTo()); }},
    {"to", [](const auto& m) { return listOf(m.to()); }},
    {"cc", [](const auto& m) { return listOf(m.cc()); }},
    {"bcc", [](const auto& m) { return listOf(m.bcc()); }},
    {"subject", [](const auto& m) { return m.subject(); }},
    {"files", namesOf},
    {"listId", [](const auto& m) { return m.listId(); }},
    {"messageId", [](const auto& m) { return m.messageId(); }},
    {"inReplyTo", [](const auto& m) { return m.inReplyTo(); }},
    {"threadId", rootIdOf},
    {"hasAttachment", [](const auto& m) { return std::string(m.attachments().empty() ? "false" : "true"); }},
    {"preview", [](const auto& m) { return m.preview(); }},
    {"text", [](const auto& m) { return m.text(); }},
};

/// A field of a table (RFC 4180).
void appendCell(std::string& row, std::string_view value) {
  if (value.find_first_of(",\"\r\n") == std::string_view::npos) {
    row += value;
    return;
  }
  row += '"';
  for (const char c : value) row.append(c == '"' ? 2 : 1, c);
  row += '"';
}

void appendLine(std::string& text, std::string_view name, std::string value) {
  if (value.empty()) return;
  std::ranges::replace_if(value, isControlAscii, ' ');
  text.append(name).append(": ").append(value).append("\n");
}

/// For people and language models: the fields that matter, and what a reader sees.
std::string readableOf(const mailtree::Message& message) {
  std::string text;
  appendLine(text, "From", message.from().text());
  appendLine(text, "To", listOf(message.to()));
  appendLine(text, "Cc", listOf(message.cc()));
  appendLine(text, "Date", sentAtOf(message));
  appendLine(text, "Subject", message.subject());
  appendLine(text, "Attachments", namesOf(message));
  text.append("\n").append(message.text());
  if (!text.ends_with('\n')) text += '\n';
  return text;
}

bool isColumn(std::string_view name) {
  return name == "file" || name == "size" ||
         std::ranges::any_of(kValues, [name](const Column& column) { return column.name == name; });
}

}  // namespace

std::string placeOf(const SourceMessage& source) {
  if (!source.sharesFile) return source.path;
  if (!source.entry.empty()) return source.path + "#" + std::to_string(source.number);
  return source.path + "@" + std::to_string(source.offset);
}

std::string problemOfProperty(std::string_view property, RecordForm form) {
  if (property.starts_with("header:")) return problemOfJmapProperty(property);
  const bool isOwn = std::ranges::find(kOwnMembers, property) != std::end(kOwnMembers);
  if (form == RecordForm::csv ? isColumn(property) : isOwn || isJmapMember(property)) return {};
  return "there is no property '" + std::string(property) + "'";
}

Records::Records(RecordOptions options) : m_options(std::move(options)) {
  const bool isTable = m_options.form == RecordForm::csv;
  for (const std::string& property : m_options.properties)
    (!isTable && property.starts_with("header:") ? m_headers : m_members).push_back(property);
  if (isTable && m_members.empty()) m_members.assign(std::begin(kColumns), std::end(kColumns));
  // None but header fields is different from no choice.
  if (m_members.empty() && !m_headers.empty()) m_members.emplace_back("file");
}

bool Records::wants(std::string_view property) const {
  return m_members.empty() || std::ranges::find(m_members, property) != m_members.end();
}

std::string Records::head() const {
  std::string head;
  for (const std::string& name : m_members) appendCell(head.append(head.empty() ? "" : ","), name);
  return head + "\n";
}

std::string Records::recordOf(mailtree::Message& message, const SourceMessage& source,
                              std::size_t size) const {
  if (m_options.form == RecordForm::json) return jsonOf(message, source, size);
  if (m_options.attachments)
    for (const Part& file : message.attachments()) m_options.attachments->add(file.bytes());
  return m_options.form == RecordForm::csv ? rowOf(message, source, size) : readableOf(message);
}

std::string Records::jsonOf(mailtree::Message& message, const SourceMessage& source, std::size_t size) const {
  ObjectText own;
  if (wants("size")) own.add("size", size);
  if (wants("threadId")) own.addOrNull("threadId", rootIdOf(message));
  if (wants("receivedAt")) own.addOrNull("receivedAt", source.date ? timeText(*source.date) : "");
  if (wants("keywords")) own.addSerialized("keywords", keywordsOf(source));
  if (wants("security"))
    own.addSerialized("security",
                      MessageState::of(message).layers.empty() ? "null" : securityOf(message.security()));
  if (wants("problems")) appendProblems(own.begin("problems"), message.problems());
  JmapOptions options{.properties = m_headers, .members = m_members};
  if (wants("file")) options.file = placeOf(source);
  if (m_options.attachments)
    options.keep = [this](std::string_view bytes) { return m_options.attachments->add(bytes); };
  return jmapOf(message, options, own.closed()) + "\n";
}

std::string Records::rowOf(mailtree::Message& message, const SourceMessage& source, std::size_t size) const {
  std::string row;
  for (const std::string& name : m_members) {
    if (&name != &m_members.front()) row += ',';
    const auto column = std::ranges::find(kValues, name, &Column::name);
    if (name == "file") appendCell(row, placeOf(source));
    if (name == "size") row += std::to_string(size);
    if (column != std::end(kValues)) appendCell(row, column->value(message));
    if (name.starts_with("header:"))
      appendCell(row, jmapCellOf(std::as_const(message).email2().m_header, name));
  }
  return row += '\n';
}

}  // namespace mailtree::cli
