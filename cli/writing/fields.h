// cli/writing/fields.h - header fields as a user gives them, "Name: value".
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

/// Takes "Name: value" apart. The value is trimmed.
HeaderField fieldOfText(std::string_view text);

/// What is wrong with a field; nothing when it is good. Dates and addresses are looked at by the field's name.
std::optional<std::string> whyBadField(const HeaderField& field);
/// What is wrong with the name of a field to remove.
std::optional<std::string> whyBadFieldName(std::string_view name);
/// What is wrong with a text for one line of a header.
std::optional<std::string> whyBadValue(std::string_view value);

/// Turns the options that are header fields into fields, in the order in which they will stand; the problem
/// goes to standard error.
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

/// Puts a field in place of all of its name; recipients and sender follow.
void setField(Email2& email, const HeaderField& field, LogBase& log);
/// Adds a field beside those of its name; where a message has one only, sets it.
void addField(Email2& email, const HeaderField& field, LogBase& log);
/// Adds several. The recipients of one kind go in together, in the place of the first: each that is added
/// alone writes the whole list anew.
void addFields(Email2& email, const std::vector<HeaderField>& fields, LogBase& log);
void removeField(Email2& email, const std::string& name);

/// Writes the hidden recipients into the header, where every recipient sees them.
void showBcc(Email2& email, LogBase& log);

}  // namespace mailtree::cli
