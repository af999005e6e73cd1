// base/Output.h - byte sinks, and the progress of one operation.
//
//   Failure    A write returns false when the sink failed or the operation was aborted. Both are permanent:
//              every later write fails too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>

#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/Export.h"
#include "mailtree/base/Log.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

/// Owner of a C stream.
struct CloseFile {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, CloseFile>;

/// Interface for a caller that follows an operation.
class MAILTREE_API ProgressMonitor {
 public:
  virtual ~ProgressMonitor() = default;
  /// Called with the number of bytes done; false aborts the operation.
  virtual bool onProgress(std::uint64_t bytesDone) = 0;
};

/// Progress and abort of one operation. Lives for that operation only.
class MAILTREE_API ProgressContext {
 public:
  /// The monitor is borrowed and may be null.
  explicit ProgressContext(ProgressMonitor* monitor) noexcept : m_monitor(monitor) {}
  /// Counts bytes and calls the monitor; false when the operation must stop.
  bool advance(std::size_t bytes);
  bool aborted() const noexcept { return m_aborted; }
  std::uint64_t bytesDone() const noexcept { return m_bytesDone; }

 private:
  ProgressMonitor* m_monitor;
  std::uint64_t m_bytesDone = 0;
  bool m_aborted = false;
};

/// A byte sink. Implementations write in `put`.
class MAILTREE_API _svOutput {
 public:
  virtual ~_svOutput() = default;
  bool writeSb(const StringBuffer& text, ProgressContext& progress, LogBase& log) {
    return write(text.view(), progress, log);
  }
  bool writeBytes(const char* bytes, unsigned size, ProgressContext& progress, LogBase& log) {
    return write(std::string_view(bytes, size), progress, log);
  }
  bool writeDb(const DataBuffer& bytes, ProgressContext& progress, LogBase& log) {
    return write(bytes.view(), progress, log);
  }
  bool write(std::string_view bytes, ProgressContext& progress, LogBase& log);
  bool failed() const noexcept { return m_failed; }

 protected:
  /// Appends the bytes; false, with the reason logged, on failure.
  virtual bool put(std::string_view bytes, LogBase& log) = 0;
  void setFailed() noexcept { m_failed = true; }

 private:
  bool m_failed = false;
};

/// Appends to a DataBuffer, which is borrowed.
class MAILTREE_API MemoryOutput final : public _svOutput {
 public:
  explicit MemoryOutput(DataBuffer& destination) noexcept : m_destination(destination) {}

 protected:
  bool put(std::string_view bytes, LogBase& log) override;

 private:
  DataBuffer& m_destination;
};

/// Writes to any stream, which is borrowed; an exception of the stream becomes false.
class MAILTREE_API StreamOutput final : public _svOutput {
 public:
  explicit StreamOutput(std::ostream& stream) noexcept : m_stream(stream) {}

 protected:
  bool put(std::string_view bytes, LogBase& log) override;

 private:
  std::ostream& m_stream;
};

/// What FileOutput does when the name exists.
enum class Existing {
  /// Replaces the file and keeps its permission bits; follows a symbolic link. Writes directly to anything
  /// that is not a regular file (a fifo, a terminal, standard output).
  replace,
  /// Replaces the directory entry: a symbolic link is replaced by the new file, and its target stays. Refuses
  /// anything but files and symbolic links.
  replaceEntry,
  /// Refuses any existing name, including a dangling symbolic link: in open(), and in
  /// commit() when the name appeared in between.
  refuse
};

/// Who may read a file.
enum class Readers {
  usual,  ///< As the umask allows, or as for the file that is replaced.
  owner   ///< The owner only, from the first byte on.
};

/// Writes to a file, buffered. The file appears under its name only when complete: bytes go to a temporary
/// file in the same folder (".mailtree-...tmp"), which commit() renames. Without commit() nothing remains.
/// One object writes one file.
class MAILTREE_API FileOutput final : public _svOutput {
 public:
  FileOutput() noexcept = default;
  FileOutput(const FileOutput&) = delete;
  FileOutput& operator=(const FileOutput&) = delete;
  ~FileOutput() override;
  /// Starts a file (path in utf-8). False, with the reason logged, when it cannot be created.
  bool open(const char* path, LogBase& log, Existing existing = Existing::replace,
            Readers readers = Readers::usual);
  /// Flushes, closes and renames the file; false, with the reason logged, on failure.
  bool commit(LogBase& log);

  /// Removes the temporary files of this process. For a signal handler that ends the process: it is
  /// async-signal-safe, and no file may be written to afterwards.
  static void removeUnfinished() noexcept;

 protected:
  bool put(std::string_view bytes, LogBase& log) override;

 private:
  int start(std::string_view path, Existing existing, Readers readers);
  int startReplacing(const std::string& target, unsigned permissions);
  int startTemporary(const std::string& target, unsigned permissions);
  int createStream(unsigned permissions);
  int openStream();
  int takeStream(std::FILE* stream);
  int finish() noexcept;
  void forgetTemporary() noexcept;
  void discard() noexcept;

  std::unique_ptr<char[]> m_buffer;  ///< Of the stream, so it must outlive it.
  FilePtr m_file;
  std::string m_path;
  std::string m_temporaryPath;  ///< Removed without commit(). Empty when writing directly.
  bool m_mayReplace = true;
};

}  // namespace mailtree
