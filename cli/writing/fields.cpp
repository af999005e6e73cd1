#include "cli/writing/fields.h"

#include <map>
#include <utility>

#include "cli/support/errors.h"

namespace mailtree::cli {

HeaderField fieldOfText(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) return {};
  return {std::string(text.substr(0, colon)), std::string(trim(text.substr(colon + 1)))};
}

std::optional<std::string> fieldNameProblem(std::string_view name) {
  if (!isFieldName(name))
    return "expected a name of visible ASCII characters and a colon, such as 'X-Name: value'";
  if (isContentField(name)) return "it is derived from the content";
  return std::nullopt;
}

std::optional<std::string> typedFieldProblem(const HeaderField& field) {
  if (auto problem = fieldNameProblem(field.name)) return problem;
  return fieldProblem(field);
}

void FieldReader::take(const char* option, const char* name, const std::string& value) {
  take(option, HeaderField{name, std::string(trim(value))});
}

void FieldReader::take(const char* option, const char* name, const std::optional<std::string>& value) {
  if (value) take(option, name, *value);
}

void FieldReader::take(const char* option, const char* name, const std::vector<std::string>& values) {
  for (const std::string& value : values) take(option, name, value);
}

void FieldReader::take(const std::string& option, HeaderField field) {
  if (const auto problem = typedFieldProblem(field)) m_result = usageError(option, *problem);
  m_fields.push_back(std::move(field));
}

Result<void> addFields(mailtree::Message& message, const std::vector<HeaderField>& fields) {
  std::map<const RecipientField*, std::string> lists;
  for (const HeaderField& field : fields) {
    const RecipientField* const recipients = recipientFieldOf(field.name);
    if (!recipients) continue;
    std::string& list = lists[recipients];
    if (!list.empty()) list += ", ";
    list += field.value;
  }
  for (const HeaderField& field : fields) {
    const auto list = lists.find(recipientFieldOf(field.name));
    // The first one adds all of its kind and leaves the list empty.
    const std::string value = list == lists.end() ? field.value : std::exchange(list->second, {});
    if (value.empty() && list != lists.end()) continue;
    if (Result<void> done = message.addHeader(field.name, value); !done) return done;
  }
  return {};
}

}  // namespace mailtree::cli
