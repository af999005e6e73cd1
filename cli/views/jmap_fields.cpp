#include "cli/views/jmap_fields.h"

#include <algorithm>
#include <optional>

#include "cli/support/json_text.h"
#include "cli/support/json_values.h"
#include "mailtree/message/field_forms.h"
#include "mailtree/message/fields.h"
#include "mailtree/message/times.h"
#include "mailtree/mime/charset/ComposedText.h"

namespace mailtree::cli {
namespace {

constexpr struct {
  std::string_view name;
  FieldForm form;
} kForms[] = {{"asRaw", FieldForm::raw},
              {"asText", FieldForm::text},
              {"asAddresses", FieldForm::addresses},
              {"asGroupedAddresses", FieldForm::groupedAddresses},
              {"asMessageIds", FieldForm::messageIds},
              {"asDate", FieldForm::date},
              {"asURLs", FieldForm::urls}};

/// The fields of RFC 5322 and 2369, which have only the forms that fit them; all can be had raw.
constexpr struct {
  std::string_view name;
  FieldForm form, otherForm;
} kFields[] = {{"From", FieldForm::addresses, FieldForm::groupedAddresses},
               {"Sender", FieldForm::addresses, FieldForm::groupedAddresses},
               {"Reply-To", FieldForm::addresses, FieldForm::groupedAddresses},
               {"To", FieldForm::addresses, FieldForm::groupedAddresses},
               {"Cc", FieldForm::addresses, FieldForm::groupedAddresses},
               {"Bcc", FieldForm::addresses, FieldForm::groupedAddresses},
               {"Resent-From", FieldForm::addresses, FieldForm::groupedAddresses},
               {"Resent-Sender", FieldForm::addresses, FieldForm::groupedAddresses},
               {"Resent-Reply-To", FieldForm::addresses, FieldForm::groupedAddresses},
               {"Resent-To", FieldForm::addresses, FieldForm::groupedAddresses},
               {"Resent-Cc", FieldForm::addresses, FieldForm::groupedAddresses},
               {"Resent-Bcc", FieldForm::addresses, FieldForm::groupedAddresses},
               {"Message-ID", FieldForm::messageIds, FieldForm::messageIds},
               {"In-Reply-To", FieldForm::messageIds, FieldForm::messageIds},
               {"References", FieldForm::messageIds, FieldForm::messageIds},
               {"Resent-Message-ID", FieldForm::messageIds, FieldForm::messageIds},
               {"Date", FieldForm::date, FieldForm::date},
               {"Resent-Date", FieldForm::date, FieldForm::date},
               {"Subject", FieldForm::text, FieldForm::text},
               {"Comments", FieldForm::text, FieldForm::text},
               {"Keywords", FieldForm::text, FieldForm::text},
               {"List-Help", FieldForm::urls, FieldForm::urls},
               {"List-Unsubscribe", FieldForm::urls, FieldForm::urls},
               {"List-Subscribe", FieldForm::urls, FieldForm::urls},
               {"List-Post", FieldForm::urls, FieldForm::urls},
               {"List-Owner", FieldForm::urls, FieldForm::urls},
               {"List-Archive", FieldForm::urls, FieldForm::urls},
               {"Received", FieldForm::raw, FieldForm::raw},
               {"Return-Path", FieldForm::raw, FieldForm::raw}};

/// "header:Name:asForm:all"; form and "all" may be missing.
struct Property {
  std::string_view name;
  std::string_view formName = kForms[0].name;
  bool all = false;
  std::string_view rest = {};  ///< What does not belong there.

  std::optional<FieldForm> form() const {
    const auto* const row = std::ranges::find(kForms, formName, [](const auto& form) { return form.name; });
    return row == std::end(kForms) ? std::nullopt : std::optional(row->form);
  }
};

std::string_view cutWord(std::string_view& text) {
  const std::size_t end = std::min(text.find(':'), text.size());
  const std::string_view word = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return word;
}

constexpr std::string_view kPrefix = "header:";

Property readProperty(std::string_view text) {
  text.remove_prefix(std::min(kPrefix.size(), text.size()));
  Property property{cutWord(text)};
  if (text.starts_with("as")) property.formName = cutWord(text);
  property.all = text == "all";
  if (!property.all) property.rest = text;
  return property;
}

bool hasForm(std::string_view name, FieldForm form) {
  const auto* const row =
      std::ranges::find_if(kFields, [name](const auto& field) { return equalsNoCase(field.name, name); });
  return form == FieldForm::raw || row == std::end(kFields) || form == row->form || form == row->otherForm;
}

/// All that follows the colon, where nearly every program writes one blank.
std::string rawOf(const MimeHeader& header, int field) { return " " + std::string(header.rawValue(field)); }

void appendAddresses(std::string& out, const std::vector<Address>& addresses) {
  ListText list(out);
  for (const Address& address : addresses) {
    ObjectText entry(list.begin());
    entry.addOrNull("name", address.name).add("email", address.address).close();
  }
  list.close();
}

void appendGroups(std::string& out, const std::vector<AddressGroup>& groups) {
  ListText list(out);
  for (const AddressGroup& group : groups) {
    ObjectText entry(list.begin());
    appendAddresses(entry.addOrNull("name", group.name).begin("addresses"), group.addresses);
    entry.close();
  }
  list.close();
}

/// The value where it is one text or a date; nothing for a list, and for a date that cannot be read.
std::optional<std::string> textOf(const MimeHeader& header, int field, FieldForm form) {
  if (form == FieldForm::raw) return rawOf(header, field);
  if (form == FieldForm::text)
    return composedText(std::string(trim(header.decodedValue(field))));  // RFC 8621, 4.1.2.2
  if (form != FieldForm::date) return std::nullopt;
  const std::optional<Date> date = dateIn(header, field);
  return date ? std::optional(timeText(*date)) : std::nullopt;
}

void appendText(std::string& out, const std::optional<std::string>& text) {
  text ? appendQuoted(out, *text) : void(out += "null");
}

void appendValue(std::string& out, const MimeHeader& header, int field, FieldForm form) {
  std::string scratch;
  switch (form) {
    case FieldForm::raw:
    case FieldForm::text:
    case FieldForm::date: return appendText(out, textOf(header, field, form));
    case FieldForm::addresses: return appendAddresses(out, addressesIn(header, field));
    case FieldForm::groupedAddresses: return appendGroups(out, groupsIn(header, field));
    case FieldForm::messageIds:
    case FieldForm::urls: return appendJmapWords(out, bracketedIn(header.unfoldedValue(field, scratch)));
  }
}

}  // namespace

void appendJmapWords(std::string& out, const std::vector<std::string>& words) {
  if (words.empty()) {
    out += "null";
    return;
  }
  ListText list(out);
  for (const std::string& word : words) list.add(word);
  list.close();
}

void appendJmapField(std::string& out, const MimeHeader& header, std::string_view name, FieldForm form) {
  const int field = header.findLastField(name);
  field < 0 ? void(out += "null") : appendValue(out, header, field, form);
}

void appendJmapProperty(std::string& out, const MimeHeader& header, std::string_view property) {
  const Property wanted = readProperty(property);
  const FieldForm form = wanted.form().value_or(FieldForm::raw);
  if (!wanted.all) return appendJmapField(out, header, wanted.name, form);
  ListText list(out);
  for (int i = header.findField(wanted.name); i >= 0; i = header.findField(wanted.name, i + 1))
    appendValue(list.begin(), header, i, form);
  list.close();
}

std::string jmapCellOf(const MimeHeader& header, std::string_view property) {
  const Property wanted = readProperty(property);
  const int field = header.findLastField(wanted.name);
  if (!wanted.all && field < 0) return {};
  if (!wanted.all)
    if (std::optional<std::string> text = textOf(header, field, wanted.form().value_or(FieldForm::raw)))
      return *std::move(text);
  std::string json;
  appendJmapProperty(json, header, property);
  return json == "null" ? std::string() : json;
}

std::string problemOfJmapProperty(std::string_view property) {
  const std::string quoted = "'" + std::string(property) + "'";
  const Property wanted = readProperty(property);
  const std::optional<FieldForm> form = wanted.form();
  if (!property.starts_with(kPrefix) || !isFieldName(wanted.name) || !wanted.rest.empty())
    return quoted + " does not have the form header:NAME[:asFORM][:all]";
  if (!form) {
    std::string known;
    for (const auto& row : kForms) known.append(known.empty() ? "" : ", ").append(row.name);
    return quoted + ": the forms are " + known;
  }
  if (!hasForm(wanted.name, *form))
    return quoted + ": the field " + std::string(wanted.name) + " does not have this form";
  return {};
}

void appendJmapHeaders(std::string& out, const MimeHeader& header) {
  out += '[';
  for (int i = 0; i < header.getNumFields(); ++i) {
    const std::string_view name = header.fieldName(i);
    if (name.empty()) continue;
    // With literals, because most of a record is this.
    out += out.back() == '[' ? R"({"name":")" : R"(,{"name":")";
    appendEscaped(out, name);
    out += R"(","value":" )";  // what follows the colon, as in rawOf
    appendEscaped(out, header.rawValue(i));
    out += "\"}";
  }
  out += ']';
}

}  // namespace mailtree::cli
