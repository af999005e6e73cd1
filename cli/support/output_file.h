// cli/support/output_file.h - where a verb writes to: the file of its option -o, or standard output.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "mailtree/base/Log.h"
#include "mailtree/base/Output.h"

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
