// cli/output.h - messages to files and standard output.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "cli/exit_codes.h"
#include "mailtree/email/Email2.h"

namespace CLI {
class App;
}

namespace mailtree::cli {

/// The option -o of a verb that writes a message.
void addOutput(CLI::App& verb, std::string& target);

/// Whether a name stands for standard output: "-" or nothing.
bool isStandardOutput(std::string_view path);

/// Whether two names, however they are spelled, lead to one place.
bool isSameOutput(const std::string& a, const std::string& b);

struct WriteForm {
  bool qpFor8bit = false;
  bool dotStuff = false;
  Readers readers = Readers::usual;
};

/// Writes a message as MIME, without the fields that are the library's own. A file is there whole or not at
/// all; a terminal gets only the harmless part. unreadable after a complaint.
Exit writeMessage(Email2& root, const std::string& path, const WriteForm& form = {});

/// Appends a message as writeMessage writes it, but never dot-stuffed. False when it is not whole.
bool assembleMessage(Email2& root, StringBuffer& out, LogBase& log, const WriteForm& form = {});

/// A small text for a file or standard output, written in two steps so that it can wait for something else to
/// succeed. Both are false after a complaint.
class TextFile {
 public:
  explicit TextFile(std::string path, Readers readers = Readers::usual)
      : m_path(std::move(path)), m_readers(readers) {}
  bool write(const std::string& text);
  bool commit();

 private:
  bool complainUnless(bool done, const LogMemory& log) const;

  std::string m_path;
  Readers m_readers;
  std::string m_text;  ///< For standard output, which takes nothing back.
  FileOutput m_sink;
};

}  // namespace mailtree::cli
