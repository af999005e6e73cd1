// cli/exporting/resumable_file.h - a file that grows record by record, and goes on after an interruption.
//
//   Unfinished  It is FILE.part, and FILE.journal says how many messages are in how many bytes of it. Records
//               are on disk before the journal says so. FILE appears when all is done.
//   Resuming    What the journal does not know is cut off. The work goes on only with the same options, and
//               when the last message of the journal is still where it was.
//   Others      FILE.part is locked while a process writes to it.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "mailtree/base/Result.h"

namespace mailtree::cli {

class ResumableFile {
 public:
  enum class Begin {
    fresh,   ///< Nothing may be there.
    force,   ///< What is there is replaced.
    resume,  ///< Goes on with what is there, if anything.
  };

  ResumableFile() = default;
  ResumableFile(const ResumableFile&) = delete;
  ResumableFile& operator=(const ResumableFile&) = delete;
  ~ResumableFile();

  /// @param key  stands for the sources and options; one line.
  Result<void> open(const std::string& path, const std::string& key, Begin begin);
  /// FILE is there, and its journal says that nothing is left to do.
  bool isComplete() const noexcept { return m_isComplete; }
  /// How many messages could not be read, in earlier runs too.
  std::uint64_t unreadable() const noexcept { return m_unreadable; }
  /// Messages that are done.
  std::uint64_t messages() const noexcept { return m_messages; }
  /// Whether the last of them has this name.
  bool isLast(const std::string& name) const;

  /// What goes before the first record.
  void beginWith(std::string_view head) { m_buffer = head; }
  /// Adds the record of one message.
  Result<void> add(std::string_view record, const std::string& name);
  /// Counts a message that has no record because it could not be read.
  Result<void> addUnreadable(const std::string& name);
  /// Whether so much was added, or so long ago, that it is time for save().
  bool isDue() const;
  /// Makes everything that was added durable.
  Result<void> save();
  /// The same, and gives the file its name. The journal stays after Begin::resume, so that the next call
  /// knows what is done.
  Result<void> finish();

 private:
  Result<void> readJournal(const std::string& key);
  Result<void> openFinished(const std::string& key);
  std::string journalLine() const;
  Result<void> beginJournal(const std::string& key);
  Result<void> write();
  Error failed(const std::string& path) const;

  std::string m_path, m_part, m_journalPath;
  int m_file = -1, m_journal = -1;
  bool m_isComplete = false, m_keepsJournal = false;
  std::uint64_t m_messages = 0, m_unreadable = 0, m_bytes = 0, m_unsaved = 0;
  std::string m_lastName, m_buffer;
  std::chrono::steady_clock::time_point m_saved = std::chrono::steady_clock::now();
};

}  // namespace mailtree::cli
