// cli/support/output_file.h - where a verb writes: the file given with -o, or standard output.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "mailtree/base/Log.h"
#include "mailtree/base/Output.h"

namespace mailtree::cli {

class Verb;

/// The values of -o and --force.
struct Destination {
  std::string path;    ///< Empty or "-" is standard output.
  bool force = false;  ///< An existing file may be overwritten.

  /// `refuse` for regular files and new names, unless `force`; writing to a device or a pipe overwrites
  /// nothing.
  Existing existing() const;
};

/// Why a file could not be written: its name is taken, or the logged error.
std::string problemOfOutput(const std::string& path, Existing existing, const std::string& logged);

/// Adds the options -o and --force of a verb that writes a message.
void addOutput(Verb verb, Destination& target);

/// Whether a name means standard output: "-" or empty.
bool isStandardOutput(std::string_view path);

/// Whether two names refer to the same output, even when spelled differently.
bool isSameOutput(const std::string& a, const std::string& b);

/// Writes a small text to a file or standard output in two steps, so that the second can wait until something
/// else has succeeded. Both steps return false after reporting an error.
class TextFile {
 public:
  explicit TextFile(Destination destination, Readers readers = Readers::usual)
      : m_to(std::move(destination)), m_readers(readers) {}
  bool write(const std::string& text);
  bool commit();

 private:
  bool reportUnless(bool done, const LogMemory& log) const;

  Destination m_to;
  Readers m_readers;
  std::string m_text;  ///< For standard output, printed by commit().
  FileOutput m_sink;
};

}  // namespace mailtree::cli
