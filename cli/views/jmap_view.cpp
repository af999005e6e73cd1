#include "cli/views/jmap_view.h"

#include <optional>
#include <span>
#include <utility>

#include "cli/support/json_text.h"
#include "cli/views/jmap_fields.h"
#include "mailtree/base/Utf.h"
#include "mailtree/message/displayed_text.h"
#include "mailtree/message/field_forms.h"
#include "mailtree/message/internal.h"
#include "mailtree/mime/MimeParser.h"
#include "mailtree/mime/charset/Charset.h"

namespace mailtree::cli {
namespace {

constexpr struct {
  const char *property, *field;
  FieldForm form;
} kConvenient[] = {{"messageId", "Message-ID", FieldForm::messageIds},
                   {"inReplyTo", "In-Reply-To", FieldForm::messageIds},
                   {"references", "References", FieldForm::messageIds},
                   {"sender", "Sender", FieldForm::addresses},
                   {"from", "From", FieldForm::addresses},
                   {"to", "To", FieldForm::addresses},
                   {"cc", "Cc", FieldForm::addresses},
                   {"bcc", "Bcc", FieldForm::addresses},
                   {"replyTo", "Reply-To", FieldForm::addresses},
                   {"subject", "Subject", FieldForm::text},
                   {"sentAt", "Date", FieldForm::date}};

bool isMultipartType(const PartRow& row) { return beginsWithNoCase(row.contentType, "multipart/"); }

/// A multipart without parts is the text that is in it, if any.
bool isLeaf(const PartRow& row) {
  return row.isLeaf() && !(isMultipartType(row) && trim(row.node->m_body.view()).empty());
}

std::string typeOf(const PartRow& row) {
  const bool isText = isLeaf(row) && isMultipartType(row);
  return isText ? "text/plain" : lowerCase(row.contentType);
}

/// What RFC 2045 (5.2) says where the part does not.
std::string jmapCharsetOf(const PartRow& row, std::string_view type) {
  if (std::string charset = charsetOf(row); !charset.empty()) return charset;
  const bool isDefault = type.starts_with("text/") || row.node->m_header.findField("Content-Type") < 0;
  return isDefault && isLeaf(row) ? "us-ascii" : "";
}

/// Appends an EmailBodyPart without its parts (4.1.4) and its closing brace.
void appendFacts(std::string& out, const PartRow& row, std::size_t id, const std::string& blob,
                 const JmapOptions& options) {
  const Email2& node = *row.node;
  const MimeHeader& header = node.m_header;
  const std::string type = typeOf(row);
  constexpr std::size_t kUsual = 250;
  out.reserve(kUsual);
  ObjectText part(out);
  part.addOrNull("partId", isLeaf(row) ? std::to_string(id) : std::string())
      .add("size", isLeaf(row) ? node.m_body.getSize() : 0);
  if (options.headers) appendJmapHeaders(part.begin("headers"), header);
  part.addOrNull("name", row.filename)
      .add("type", type)
      .addOrNull("charset", jmapCharsetOf(row, type))
      .addOrNull("disposition", lowerCase(trim(node.m_disposition.view())))
      .addOrNull("cid", firstIdIn(header.decodedValue(header.findField("Content-ID"))));
  appendJmapWords(part.begin("language"), wordsIn(header.decodedValue(header.findField("Content-Language"))));
  part.addOrNull("location", contentLocationOf(node));
  if (!blob.empty()) part.add("blobId", blob);
}

void appendStructure(std::string& out, const Outline& outline, const std::vector<std::string>& facts) {
  std::vector<int> open;  // the current multipart and its ancestors
  for (std::size_t id = 0; id < outline.rows.size(); ++id) {
    const PartRow& row = outline.rows[id];
    for (; !open.empty() && open.back() != row.parent; open.pop_back()) out += "]}";
    if (out.ends_with('}')) out += ',';
    out += facts[id];
    if (isLeaf(row)) {
      out += '}';
      continue;
    }
    out += R"(,"subParts":[)";
    open.push_back(static_cast<int>(id));
  }
  for (; !open.empty(); open.pop_back()) out += "]}";
}

void appendParts(std::string& out, const std::vector<int>& ids, const std::vector<std::string>& facts) {
  ListText list(out);
  for (const int id : ids) list.begin().append(facts[static_cast<std::size_t>(id)]).append("}");
  list.close();
}

/// The parts of a body that are texts or media: the messages of a digest are attachments here.
std::vector<int> withoutMessages(const Outline& outline, std::vector<int> ids) {
  std::erase_if(ids, [&outline](int id) { return !isLeaf(outline.row(id)) || outline.row(id).isMessage(); });
  return ids;
}

/// All leaves that are in neither body, and media that are not in both.
std::vector<int> attachmentsOf(const Outline& outline, const std::vector<int>& text,
                               const std::vector<int>& html) {
  std::vector<int> uses(outline.rows.size());
  for (const auto* const body : {&text, &html})
    for (const int id : *body) ++uses[static_cast<std::size_t>(id)];
  std::vector<int> ids;
  for (std::size_t id = 0; id < uses.size(); ++id) {
    const PartRow& row = outline.rows[id];
    if (isLeaf(row) && uses[id] < (isReadAsText(row) ? 1 : 2)) ids.push_back(static_cast<int>(id));
  }
  return ids;
}

/// Whether the text is anything but what its charset says.
/// @param isUtf8  it is known to be in the part.
bool hasEncodingProblem(const PartRow& row, bool isUtf8) {
  for (const Repair repair : {Repair::damagedText, Repair::charset, Repair::noCharset})
    if (row.node->m_repairs.has(repair)) return true;
  const std::string_view bytes = row.node->m_body.view();
  if (isUtf8 || isValidUtf8(bytes)) return false;
  DataBuffer ignored;  // a file, or a text that fits no charset, is still as it came
  const DecodedText decoded = receivedTextToUtf8(charsetOf(row), bytes, ignored);
  return decoded.origin != TextOrigin::declared || decoded.damaged > 0;
}

/// The lines of every text, by row.
class BodyLines {
 public:
  explicit BodyLines(const Outline& outline) : m_lines(outline.rows.size()) {
    for (std::size_t id = 0; id < m_lines.size(); ++id)
      if (const PartRow& row = outline.rows[id]; isReadAsText(row) && isLeaf(row)) m_lines[id] = linesOf(row);
  }
  /// Null for anything but a text.
  const PartLines* of(std::size_t id) const { return m_lines[id] ? &*m_lines[id] : nullptr; }

 private:
  std::vector<std::optional<PartLines>> m_lines;
};

/// Of most messages one of the texts that are written anyway.
std::string previewOf(const mailtree::Message& message, MessageState& state,
                      const std::optional<BodyLines>& lines) {
  constexpr std::size_t kLength = 256;  // RFC 8621, 4.1.4
  const std::vector<int>& shown = state.displayed().textBody;
  const bool isOne = lines && shown.size() == 1 && isShownAsLines(state.outline().row(shown.front()));
  const PartLines* const one = isOne ? lines->of(static_cast<std::size_t>(shown.front())) : nullptr;
  return one ? mailtree::previewOf(one->text, kLength) : message.preview(kLength);
}

void appendBodyValues(std::string& out, const Outline& outline, const BodyLines& lines) {
  ObjectText values(out);
  for (std::size_t id = 0; id < outline.rows.size(); ++id) {
    const PartLines* const text = lines.of(id);
    if (!text) continue;
    ObjectText value(values.begin(std::to_string(id)));
    value.add("value", text->text)
        .addIs("isEncodingProblem", hasEncodingProblem(outline.rows[id], text->isStored))
        .addIs("isTruncated", false)
        .close();
  }
  values.close();
}

/// Those made from the parts, after those made from the header.
constexpr std::string_view kPartMembers[] = {"hasAttachment", "preview",  "headers",     "bodyStructure",
                                             "textBody",      "htmlBody", "attachments", "bodyValues"};

void addBodies(MessageState& state, const JmapOptions& options, ObjectText& out) {
  const Outline& outline = state.outline();
  const Displayed& display = state.displayed();
  const std::vector<int> text = withoutMessages(outline, display.textBody),
                         html = withoutMessages(outline, display.htmlBody),
                         attachments = attachmentsOf(outline, text, html);
  std::vector<std::string> blobs(outline.rows.size());
  if (options.keep)
    for (const int id : attachments)
      blobs[static_cast<std::size_t>(id)] = options.keep(outline.row(id).node->m_body.view());
  std::vector<std::string> facts(outline.rows.size());
  for (std::size_t id = 0; id < facts.size(); ++id)
    appendFacts(facts[id], outline.rows[id], id, blobs[id], options);
  if (options.wants("bodyStructure")) appendStructure(out.begin("bodyStructure"), outline, facts);
  if (options.wants("textBody")) appendParts(out.begin("textBody"), text, facts);
  if (options.wants("htmlBody")) appendParts(out.begin("htmlBody"), html, facts);
  if (options.wants("attachments")) appendParts(out.begin("attachments"), attachments, facts);
}

/// As received where loading set a field, because a boundary that is made while loading is another one each
/// time.
void appendHeaders(std::string& out, const MimeHeader& header, std::string_view received) {
  int set = 0;
  while (set < header.getNumFields() && header.isReceived(set)) ++set;
  if (received.empty() || set == header.getNumFields()) return appendJmapHeaders(out, header);
  MimeHeader first;
  first.loadFromEntity(MimeParser::skipPrologue(received));
  first.encode8bitFields();
  appendJmapHeaders(out, first);
}

}  // namespace

bool isJmapMember(std::string_view name) {
  return std::ranges::find(kPartMembers, name) != std::end(kPartMembers) ||
         std::ranges::any_of(kConvenient, [name](const auto& row) { return name == row.property; });
}

std::string jmapOf(mailtree::Message& message, const JmapOptions& options) {
  return jmapOf(message, options, {});
}

std::string jmapOf(mailtree::Message& message, const JmapOptions& options, std::string_view own) {
  const MimeHeader& header = std::as_const(message).email2().m_header;
  MessageState& state = MessageState::of(message);  // numbers the parts once
  constexpr std::size_t kFacts = 2000;
  ObjectText out(kFacts + 3 * state.receivedBytes().size());
  if (!options.file.empty()) out.add("file", options.file);
  out.addMembers(own);
  for (const auto& row : kConvenient)
    if (options.wants(row.property)) appendJmapField(out.begin(row.property), header, row.field, row.form);
  for (const std::string& property : options.properties)
    appendJmapProperty(out.begin(property), header, property);
  if (options.wants("hasAttachment")) out.addIs("hasAttachment", !state.displayed().attachments.empty());
  std::optional<BodyLines> lines;
  if (options.wants("bodyValues")) lines.emplace(state.outline());
  if (options.wants("preview")) out.add("preview", previewOf(message, state, lines));
  if (options.wants("headers")) appendHeaders(out.begin("headers"), header, state.receivedBytes());
  if (options.keep || std::ranges::any_of(std::span(kPartMembers).subspan(3, 4),
                                          [&](std::string_view name) { return options.wants(name); }))
    addBodies(state, options, out);
  if (lines) appendBodyValues(out.begin("bodyValues"), state.outline(), *lines);
  return out.closed();
}

}  // namespace mailtree::cli
