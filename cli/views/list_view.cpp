#include "cli/views/list_view.h"

#include <algorithm>
#include <iterator>
#include <variant>

#include "cli/support/json_text.h"
#include "cli/support/terminal.h"
#include "mailtree/base/Ascii.h"
#include "mailtree/message/field_forms.h"
#include "mailtree/message/times.h"

namespace mailtree::cli {

namespace {

using Value = std::variant<std::monostate, bool, std::uint64_t, std::string, Date, Address,
                           std::vector<Address>, std::vector<std::string>>;

Value orNothing(std::string text) { return text.empty() ? Value() : Value(std::move(text)); }

template <class T>
Value orNothing(const std::optional<T>& value) {
  return value ? Value(*value) : Value();
}

Value orNothing(Address address) { return address == Address() ? Value() : Value(std::move(address)); }

Value fieldOf(LazyMessage& message, std::string_view name) {
  const MimeHeader& fields = message.header();
  const int field = fields.findField(name);
  return field < 0 ? Value() : Value(fields.decodedValue(field));
}

/// In angle brackets, as in message_id.
Value idsOf(LazyMessage& message, std::string_view name) {
  const MimeHeader& fields = message.header();
  const int field = fields.findField(name);
  std::vector<std::string> ids = field < 0 ? std::vector<std::string>() : idsIn(fields.decodedValue(field));
  for (std::string& id : ids) id.insert(0, "<").append(">");
  return Value(std::move(ids));
}

template <class T>
Value orNothing(T number) {
  return number ? Value(std::uint64_t{number}) : Value();
}

}  // namespace

struct ListField {
  std::string_view name;
  Value (*value)(LazyMessage& message);
};

namespace {

constexpr ListField kFields[] = {
    {"file", [](LazyMessage& m) { return Value(nameOf(m.source())); }},
    {"number", [](LazyMessage& m) { return orNothing(m.source().number); }},
    {"date", [](LazyMessage& m) { return orNothing(m.date()); }},
    {"from", [](LazyMessage& m) { return orNothing(m.from()); }},
    {"to", [](LazyMessage& m) { return Value(m.addresses("To")); }},
    {"cc", [](LazyMessage& m) { return Value(m.addresses("Cc")); }},
    {"subject", [](LazyMessage& m) { return fieldOf(m, "Subject"); }},
    {"size", [](LazyMessage& m) { return Value(std::uint64_t{m.size()}); }},
    {"message_id", [](LazyMessage& m) { return fieldOf(m, "Message-ID"); }},
    {"in_reply_to", [](LazyMessage& m) { return idsOf(m, "In-Reply-To"); }},
    {"references", [](LazyMessage& m) { return idsOf(m, "References"); }},
    {"list_id", [](LazyMessage& m) { return orNothing(m.listId()); }},
    {"folder", [](LazyMessage& m) { return orNothing(m.source().folder); }},
    {"flags", [](LazyMessage& m) { return orNothing(m.source().flags); }},
    {"unread", [](LazyMessage& m) { return Value(m.isUnread()); }},
    {"attachments", [](LazyMessage& m) { return Value(std::uint64_t{m.attachmentCount()}); }},
    {"signed", [](LazyMessage& m) { return Value(m.isSigned()); }},
    {"encrypted", [](LazyMessage& m) { return Value(m.isEncrypted()); }},
    {"repaired", [](LazyMessage& m) { return Value(m.isRepaired()); }},
};

template <class... Cases>
struct Overloaded : Cases... {
  using Cases::operator()...;
};
template <class... Cases>
Overloaded(Cases...) -> Overloaded<Cases...>;

// As text

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text.append(text.empty() ? "" : " ").append(word);
  return text;
}

std::string joined(const std::vector<Address>& addresses) {
  std::string text;
  for (const Address& address : addresses) text.append(text.empty() ? "" : ", ").append(address.text());
  return text;
}

std::string plainText(const Value& value) {
  return std::visit(Overloaded{
                        [](std::monostate) { return std::string(); },
                        [](bool is) { return std::string(is ? "yes" : "no"); },
                        [](std::uint64_t number) { return std::to_string(number); },
                        [](const std::string& text) { return printable(text); },
                        [](const Date& date) { return timeText(date.time); },
                        [](const Address& address) { return printable(address.text()); },
                        [](const auto& list) { return printable(joined(list)); },
                    },
                    value);
}

// As JSON

std::string jsonOf(const Address& address) {
  return ObjectText().add("name", address.name).add("address", address.address).closed();
}

std::string jsonOf(const std::string& text) { return quotedText(text); }

template <class T>
std::string jsonOf(const std::vector<T>& list) {
  ListText text;
  for (const T& each : list) text.addSerialized(jsonOf(each));
  return text.closed();
}

void addMember(ObjectText& object, std::string_view name, const Value& value) {
  std::visit(Overloaded{
                 [&](std::monostate) { object.addSerialized(name, "null"); },
                 [&](bool is) { object.addIs(name, is); },
                 [&](std::uint64_t number) { object.add(name, number); },
                 [&](const std::string& text) { object.add(name, text); },
                 [&](const Date& date) { object.add(name, timeText(date.time)); },
                 [&](const auto& other) { object.addSerialized(name, jsonOf(other)); },
             },
             value);
}

// As a table

/// "2026-03-15 12:30"
std::string minuteText(const std::optional<Date>& date) {
  constexpr std::size_t kDay = 10, kMinute = 16;
  if (!date) return std::string(kMinute, ' ');
  std::string text = timeText(date->time).substr(0, kMinute);
  text[kDay] = ' ';
  return text;
}

/// Letters for what a message has; each has a column of its own.
constexpr struct {
  char letter;
  const char* meaning;
  bool (*applies)(LazyMessage& message);
} kLetters[] = {{'U', "unread (in a Maildir)", [](LazyMessage& m) { return m.isUnread(); }},
                {'A', "attachments", [](LazyMessage& m) { return m.attachmentCount() > 0; }},
                {'S', "signed", [](LazyMessage& m) { return m.isSigned(); }},
                {'E', "encrypted", [](LazyMessage& m) { return m.isEncrypted(); }},
                {'R', "repaired while it was read", [](LazyMessage& m) { return m.isRepaired(); }}};

std::string lettersOf(LazyMessage& message) {
  std::string letters;
  for (const auto& row : kLetters) letters += row.applies(message) ? row.letter : '-';
  return letters;
}

std::string padding(std::size_t width, std::size_t taken) {
  return std::string(width - std::min(taken, width), ' ');
}

/// @param isCut  longer text loses its end.
std::string leftAligned(std::string_view text, std::size_t width, bool isCut = true) {
  const std::string_view shown = isCut ? fitWidth(text, width) : text;
  return std::string(shown) + padding(width, displayWidth(shown));
}

std::string rightAligned(std::string_view text, std::size_t width) {
  return padding(width, displayWidth(text)) + std::string(text);
}

/// Cut at the front, because the end of a path says more.
std::string endOfName(const std::string& name, std::size_t width) {
  if (displayWidth(name) <= width) return leftAligned(name, width);
  std::size_t begin = name.size() - std::min(name.size(), width - 1);
  while (begin < name.size() && (static_cast<unsigned char>(name[begin]) & 0xC0) == 0x80) ++begin;
  return leftAligned("<" + name.substr(begin), width);
}

ListLine tableLine(LazyMessage& message, const ListStyle& style) {
  constexpr std::size_t kNumber = 6, kSize = 7, kWideTerminal = 100;
  const bool isWide = style.columns >= kWideTerminal;  // on a narrow one the subject needs the room
  const std::string name = style.hasNames ? printable(nameOf(message.source())) : "";
  const Address from = message.from();
  ListLine line;
  if (!style.hasNames)
    line.begin = rightAligned(std::to_string(message.source().number), kNumber);
  else
    line.begin = style.columns ? endOfName(name, isWide ? 24 : 12) : name;
  line.begin.append("  ").append(minuteText(message.date())).append("  ");
  line.begin.append(lettersOf(message)).append("  ");
  line.begin.append(rightAligned(humanSize(message.size()), kSize)).append("  ");
  line.begin.append(leftAligned(singleSpaced(from.name.empty() ? from.address : from.name), isWide ? 24 : 16,
                                /*isCut=*/style.columns > 0));
  line.begin.append("  ");
  line.rest = singleSpaced(message.subject());
  return line;
}

std::string tableText(const ListLine& line, const ListStyle& style, std::size_t depth) {
  constexpr std::size_t kDeepest = 12;
  std::string text = line.begin + std::string(2 * std::min(depth, kDeepest), ' ') + line.rest;
  if (style.columns > 0) text = fitMaxWidth(text, style.columns);
  return std::string(trimRight(text)) + '\n';
}

std::string separated(LazyMessage& message, const ListStyle& style) {
  std::string text;
  for (const ListField* const field : style.fields) {
    const bool isCsv = style.form == ListForm::csv;
    if (field != style.fields.front()) text += isCsv ? ',' : '\t';
    const std::string value = plainText(field->value(message));
    text += isCsv ? csvField(value) : value;
  }
  return text;
}

}  // namespace

std::string listLetters() {
  std::string all;
  for (const auto& row : kLetters)
    all.append(all.empty() ? "" : ", ").append(1, row.letter).append(" ").append(row.meaning);
  return all;
}

std::string listFieldNames() {
  std::string names;
  for (const ListField& field : kFields) names.append(names.empty() ? "" : ", ").append(field.name);
  return names;
}

std::vector<const ListField*> listFieldsNamed(const std::vector<std::string>& names) {
  std::vector<const ListField*> fields;
  for (const std::string& name : names) {
    const auto* const found =
        std::ranges::find_if(kFields, [&](const ListField& field) { return equalsNoCase(field.name, name); });
    fields.push_back(found == std::end(kFields) ? nullptr : found);
  }
  return fields;
}

std::vector<const ListField*> allListFields() {
  std::vector<const ListField*> fields;
  for (const ListField& field : kFields) fields.push_back(&field);
  return fields;
}

ListLine lineOf(LazyMessage& message, const ListStyle& style) {
  if (style.form == ListForm::table) return tableLine(message, style);
  if (style.form != ListForm::json) return {separated(message, style), {}};
  ObjectText object;
  object.add("schema", kSchema);
  for (const ListField* const field : style.fields) addMember(object, field->name, field->value(message));
  return {object.open(), {}};
}

std::string textOf(const ListLine& line, const ListStyle& style, std::uint64_t thread, std::size_t depth) {
  if (style.form == ListForm::table) return tableText(line, style, depth);
  if (style.form != ListForm::json) return line.begin + '\n';
  if (thread == 0) return line.begin + "}\n";
  return line.begin + ",\"thread\":" + std::to_string(thread) + ",\"depth\":" + std::to_string(depth) + "}\n";
}

std::string titleOf(const ListStyle& style) {
  if (style.form != ListForm::csv) return {};
  std::string text;
  for (const ListField* const field : style.fields) text.append(text.empty() ? "" : ",").append(field->name);
  return text + '\n';
}

std::string csvField(std::string_view value) {
  if (value.find_first_of(",\"\r\n") == std::string_view::npos) return std::string(value);
  std::string quoted = "\"";
  for (const char c : value) quoted.append(c == '"' ? 2 : 1, c);
  return quoted + '"';
}

}  // namespace mailtree::cli
