// cli/exporting/records.h - what is exported of a message: a line of JSON, a row of a table, or a text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/exporting/hash_folder.h"
#include "mailtree/message/Message.h"
#include "mailtree/store/MailSource.h"

namespace mailtree::cli {

enum class RecordForm { json, csv, text };

struct RecordOptions {
  RecordForm form = RecordForm::json;
  std::vector<std::string> properties;  ///< Chosen ones; empty: those of the form.
  HashFolder* attachments = nullptr;    ///< Where they are saved; null: nowhere.
};

/// Where a message is, in a form that is the same for the whole of its source and for a part of it.
std::string placeOf(const SourceMessage& source);

/// Why this is no property to choose; empty when it is one.
std::string problemOfProperty(std::string_view property, RecordForm form);

/// Makes records, on any number of threads.
class Records {
 public:
  explicit Records(RecordOptions options);

  /// The first line of a table.
  std::string head() const;
  /// With the line break at its end. The bytes of the message are not needed afterwards.
  std::string recordOf(mailtree::Message& message, const SourceMessage& source, std::size_t size) const;

 private:
  std::string jsonOf(mailtree::Message& message, const SourceMessage& source, std::size_t size) const;
  std::string rowOf(mailtree::Message& message, const SourceMessage& source, std::size_t size) const;
  bool wants(std::string_view property) const;

  RecordOptions m_options;
  std::vector<std::string> m_members, m_headers;  ///< Of an Email object; its header properties.
};

}  // namespace mailtree::cli
