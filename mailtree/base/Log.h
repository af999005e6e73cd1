// base/Log.h - logs: what operations did and why they failed.
//
// Every operation takes a LogBase. Errors are always logged; information mostly only when m_verboseLogging is
// set. Nothing is formatted for a log that will not keep it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Export.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

class MAILTREE_API LogBase {
 public:
  virtual ~LogBase() = default;

  virtual void logError(std::string_view text) = 0;
  virtual void logInfo(std::string_view text) = 0;
  /// One tagged value.
  virtual void LogDataSb(std::string_view tag, std::string_view text) = 0;
  virtual void LogDataLong(std::string_view tag, std::int64_t number) = 0;
  virtual void openContext(std::string_view name) = 0;
  virtual void closeContext() = 0;

  /// Whether an option keyword was given, anywhere in m_options, ignoring case.
  bool hasOption(const char* keyword) const noexcept { return m_options.containsSubstringNoCase(keyword); }

  bool m_verboseLogging = false;  ///< Enables most information lines and context names.
  bool m_debugLogging = false;    ///< Enables a few more.
  StringBuffer m_options;         ///< The caller's option keywords, such as "UseBccHeader".
};

/// Opens a named context for the length of a scope.
class LogContextExitor {
 public:
  LogContextExitor(LogBase& log, const char* name) : LogContextExitor(log, name, true) {}
  /// Opens the context only when the flag is set; callers pass log.m_verboseLogging.
  LogContextExitor(LogBase& log, const char* name, bool open) : m_log(open ? &log : nullptr) {
    if (m_log) m_log->openContext(name);
  }
  LogContextExitor(const LogContextExitor&) = delete;
  LogContextExitor& operator=(const LogContextExitor&) = delete;
  ~LogContextExitor() {
    if (m_log) m_log->closeContext();
  }

 private:
  LogBase* m_log;
};

/// Discards everything.
class MAILTREE_API LogNull final : public LogBase {
 public:
  void logError(std::string_view) override {}
  void logInfo(std::string_view) override {}
  void LogDataSb(std::string_view, std::string_view) override {}
  void LogDataLong(std::string_view, std::int64_t) override {}
  void openContext(std::string_view) override {}
  void closeContext() override {}
};

struct LogEntry {
  enum class Kind { Error, Info, Data, ContextOpen, ContextClose };
  Kind kind;
  std::string context;  ///< Path of the contexts of the entry, outermost first, joined by "/".
  std::string tag;      ///< Data entries only.
  std::string text;     ///< For a context entry, its name.
};

/// Keeps everything in order.
class MAILTREE_API LogMemory final : public LogBase {
 public:
  using Kind = LogEntry::Kind;

  void logError(std::string_view text) override;
  void logInfo(std::string_view text) override;
  void LogDataSb(std::string_view tag, std::string_view text) override;
  void LogDataLong(std::string_view tag, std::int64_t number) override;
  void openContext(std::string_view name) override;
  void closeContext() override;

  const std::vector<LogEntry>& entries() const noexcept { return m_entries; }
  void clear();
  /// The entries as readable text: one line each, indented by context.
  std::string text() const;

 private:
  void keep(Kind kind, std::string_view tag, std::string_view text);

  std::vector<LogEntry> m_entries;
  std::string m_context;                    ///< Joined path of open contexts.
  std::vector<std::size_t> m_parentLength;  ///< Length of m_context before each open context.
};

/// The last error in a log; `otherwise` when it has none.
MAILTREE_API std::string lastError(const LogMemory& log, std::string_view otherwise);

/// Reported instead of an incomplete result.
inline constexpr std::string_view kNoMemory = "not enough memory";

}  // namespace mailtree
