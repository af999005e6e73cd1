// cli/writing/fields.h - header fields that a user typed as "Name: value".
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/support/exit_codes.h"
#include "mailtree/email/Email2.h"

namespace mailtree::cli {

struct HeaderField {
  std::string name;
  std::string value;
};

/// Splits "Name: value" and trims the value.
HeaderField fieldOfText(std::string_view text);

/// Checks a field; returns the problem, or nothing. Dates and addresses are checked by field name.
std::optional<std::string> fieldProblem(const HeaderField& field);
/// Checks the name of a field to remove.
std::optional<std::string> fieldNameProblem(std::string_view name);
/// Checks a one-line header value.
std::optional<std::string> valueProblem(std::string_view value);

/// Converts options to header fields, in the order in which they are written. Reports any problem
/// on standard error.
class FieldReader {
 public:
  explicit FieldReader(std::vector<HeaderField>& fields) : m_fields(fields) {}

  void take(const char* option, const char* name, const std::string& value);
  void take(const char* option, const char* name, const std::optional<std::string>& value);
  void take(const char* option, const char* name, const std::vector<std::string>& values);
  void take(const std::string& option, HeaderField field);
  Exit result() const { return m_result; }

 private:
  std::vector<HeaderField>& m_fields;
  Exit m_result = Exit::fine;
};

/// Replaces all fields of this name; updates recipients and sender.
void setField(Email2& email, const HeaderField& field, LogBase& log);
/// Adds a field; sets it when a message may have only one.
void addField(Email2& email, const HeaderField& field, LogBase& log);
/// Adds several fields. Recipients of one kind are added together at the first one's place, because each
/// separate addition rewrites the whole list.
void addFields(Email2& email, const std::vector<HeaderField>& fields, LogBase& log);
void removeField(Email2& email, const std::string& name);

/// Writes the Bcc recipients into the header, where every recipient can see them.
void showBcc(Email2& email, LogBase& log);

}  // namespace mailtree::cli
