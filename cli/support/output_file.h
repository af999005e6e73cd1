// cli/support/output_file.h - where a verb writes: the file given with -o, or standard output.
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

/// Adds the option -o of a verb that writes a message.
void addOutput(CLI::App& verb, std::string& target);

/// Whether a name means standard output: "-" or empty.
bool isStandardOutput(std::string_view path);

/// Whether two names refer to the same output, even when spelled differently.
bool isSameOutput(const std::string& a, const std::string& b);

/// Writes a small text to a file or standard output in two steps, so that the second can wait until something
/// else has succeeded. Both steps return false after reporting an error.
class TextFile {
 public:
  explicit TextFile(std::string path, Readers readers = Readers::usual)
      : m_path(std::move(path)), m_readers(readers) {}
  bool write(const std::string& text);
  bool commit();

 private:
  bool reportUnless(bool done, const LogMemory& log) const;

  std::string m_path;
  Readers m_readers;
  std::string m_text;  ///< Held back from standard output until commit().
  FileOutput m_sink;
};

}  // namespace mailtree::cli
