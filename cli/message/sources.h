// cli/message/sources.h - the messages that command-line arguments name.
//
//   Arguments  A file, mailbox, Maildir, folder or archive; "-" is standard input. "box.mbox#12" is message
//              12 of a mailbox, "box.mbox@4096" the one whose separator line begins at that byte. A file of
//              such a name wins.
//   Lists      Files with further arguments: one a line, or with a NUL after each.
//   Names      A message is printed under the name of nameOf(), which is an argument again.
//   Folders    Of a folder that is no mailbox, the .eml files of the tree are messages, and any other file
//              directly in it that begins like mail.
#pragma once

#include <cstdint>
#include <deque>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "mailtree/store/MailSource.h"

namespace mailtree::cli {

class Option;
class Verb;

/// What the command line says.
struct SourceArguments {
  std::vector<std::string> paths;
  std::vector<std::string> lists;     ///< Files with one argument a line; "-" is standard input.
  std::vector<std::string> nulLists;  ///< Files with a NUL after each argument.
};

/// Adds the argument FILE of a verb that reads any number of messages, and the options for lists.
void addSources(Verb verb, SourceArguments& arguments);
/// Adds the options only. With one of them `file`, which is required, may be missing.
void addSourceLists(Verb verb, Option file, SourceArguments& arguments);

struct SourcesOptions {
  SourceOptions reading{};
  bool emptyIsMessage = false;  ///< An empty file is one message, and not an mbox without any.
};

/// All of them in order. Several messages of one mailbox are read without starting anew where that is
/// possible.
class Sources {
 public:
  explicit Sources(SourceArguments arguments, const SourcesOptions& options = {});
  Sources(const Sources&) = delete;
  Sources& operator=(const Sources&) = delete;
  ~Sources();

  /// All arguments in order, those in lists too.
  static Result<std::vector<std::string>> argumentsIn(const SourceArguments& given);

  /// Gives the next message; false at the end. What cannot be opened, or cannot be read to its end, is given
  /// as a message with an error. nameOf() is the name of each, also of those with an error.
  bool next(SourceMessage& message);
  /// Reports the sources that turned out to contain no messages, as far as they come before the message with
  /// this index. Messages may be read ahead, on any thread; what is left is reported at the end.
  void reportEmpty(std::uint64_t index = std::numeric_limits<std::uint64_t>::max());
  /// The file or folder that the last message was found in: what an argument named, without a number or
  /// offset.
  const std::string& found() const noexcept;

 private:
  class Arguments;
  /// What an argument names: a whole source, or one message of it.
  struct Wanted {
    std::string argument, path;
    std::string folder{};  ///< Of a file that is opened because its folder was named.
    char mark = 0;         ///< '#' or '@' before the value; 0 for the whole source.
    std::uint64_t value = 0;
  };

  bool give(SourceMessage& message);
  static Wanted wantedBy(const std::string& argument);
  Result<bool> openNext();
  Result<void> open();
  bool giveEnd(SourceMessage& message);
  bool giveError(SourceMessage& message, Error error) const;

  std::unique_ptr<Arguments> m_arguments;
  SourcesOptions m_options;
  std::vector<Wanted> m_others;  ///< Files of the folder before, the next one last.
  Wanted m_wanted;
  std::optional<MailSource> m_source;
  std::string m_path;          ///< Of m_source.
  std::uint64_t m_passed = 0;  ///< Number of the message that m_source gave last.
  std::uint64_t m_offset = 0;  ///< Where it begins.
  bool m_isCounted = true;     ///< That is known: no offset was wanted before.
  bool m_isOpen = false;       ///< There may be more for m_wanted.
  bool m_hasGiven = false;     ///< Something was given for it.

  struct Empty {
    std::uint64_t index;  ///< Of the message that comes next.
    std::string path;
  };
  std::uint64_t m_given = 0;  ///< Messages.
  std::mutex m_mutex;         ///< For m_empty.
  std::deque<Empty> m_empty;
};

/// Why something could not be read or written, for people: "No such file or directory".
std::string problemOf(const Error& error);

}  // namespace mailtree::cli
