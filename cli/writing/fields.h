// cli/writing/fields.h - header fields that a user typed as "Name: value".
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/support/exit_codes.h"
#include "mailtree/message/Message.h"
#include "mailtree/message/fields.h"

namespace mailtree::cli {

using HeaderField = Header;

/// Splits "Name: value" and trims the value.
HeaderField fieldOfText(std::string_view text);

/// Checks a field that was typed; returns the problem, or nothing.
std::optional<std::string> typedFieldProblem(const HeaderField& field);
/// Checks the name of a field to remove.
std::optional<std::string> fieldNameProblem(std::string_view name);

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

/// Adds several fields. Recipients of one kind are added together at the first one's place, because each
/// separate addition rewrites the whole list.
Result<void> addFields(mailtree::Message& message, const std::vector<HeaderField>& fields);

}  // namespace mailtree::cli
