// cli/message/store_output.h - mailboxes and folders that verbs write messages to.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "cli/message/each_message.h"
#include "cli/message/target.h"

namespace mailtree::cli {

class Option;
class Verb;

/// Adds an option that takes "mbox:FILE", "maildir:FOLDER" or "dir:FOLDER".
Option addStoreOutput(Verb verb, const std::string& option, std::string& target,
                      const std::string& description);

/// The description of that option for verbs that change messages.
inline constexpr const char* kStoreDescription =
    "For any number of messages: append to a mailbox or folder, mbox:FILE, maildir:FOLDER or dir:FOLDER";

/// Writes messages to what such an option names; those of a subfolder to a folder of the same name there,
/// except in an mbox. All operations return fine, or another status after reporting an error.
class StoreOutput {
 public:
  Exit open(const Target& target);
  bool isOpen() const noexcept { return m_writer != nullptr; }
  /// @param source  whose flags, or sender and date of the separator, are kept.
  Exit add(std::string_view message, const SourceMessage& source);
  /// Brings what was added to disk.
  Exit finish();

 private:
  Exit report(const Result<void>& done);
  /// Of messages from a subfolder, which is empty for the target itself; null after reporting an error.
  MailWriter* writerFor(const std::string& folder);

  Target m_target;
  MailWriterPtr m_writer;
  std::map<std::string, MailWriterPtr> m_folders;  ///< By their names.
  bool m_hasFailed = false;
};

/// forEachMessage() for a verb that changes messages. With a target their `rewritten` is added to it, in
/// order; without one the verb writes the only message itself.
/// @param single  the option or verb that takes only one message then.
Exit rewriteEachMessage(const SourceArguments& arguments, const std::string& target, const char* single,
                        const std::optional<StreamSettings>& stream, const std::function<Exit(Input&)>& work);

}  // namespace mailtree::cli
