#include "cli/message/output.h"

#include <iostream>

#include "cli/message/internal_fields.h"
#include "cli/support/errors.h"
#include "cli/support/output_file.h"
#include "cli/support/terminal.h"

namespace mailtree::cli {
namespace {

/// Keeps only the last error: the full log of a deep tree is larger than the tree.
class ErrorLog final : public LogBase {
 public:
  void logError(std::string_view text) override { m_error = text; }
  void logInfo(std::string_view) override {}
  void LogDataSb(std::string_view, std::string_view) override {}
  void LogDataLong(std::string_view, std::int64_t) override {}
  void openContext(std::string_view) override {}
  void closeContext() override {}
  std::string errorOr(std::string_view otherwise) const {
    return m_error.empty() ? std::string(otherwise) : m_error;
  }

 private:
  std::string m_error;
};

/// Whether loading and processing lost nothing for lack of memory.
bool isWhole(LogBase& log) {
  if (abandonedOperations() != 0) log.logError(kNoMemory);
  return abandonedOperations() == 0;
}

/// @param sink  where to write; when null, `text` receives the message.
bool assemble(Email2& root, const WriteForm& form, _svOutput* sink, StringBuffer& text, LogBase& log) {
  ProgressContext progress(nullptr);
  return root.assembleMimeBody2(text, sink, form.dotStuff, kOmittedPrefix, progress, log, /*depth=*/0,
                                form.qpFor8bit, /*isTop=*/true) &&
         !(sink && sink->failed()) && isWhole(log);
}

bool writeToFile(Email2& root, const std::string& path, const WriteForm& form, LogBase& log) {
  FileOutput sink;
  StringBuffer unused;
  return sink.open(path.c_str(), log, Existing::replace, form.readers) &&
         assemble(root, form, &sink, unused, log) && sink.commit(log);
}

Exit writeToStandardOutput(Email2& root, const WriteForm& form, ErrorLog& log) {
  StreamOutput sink(std::cout);
  StringBuffer shown;
  const bool isTerminal = standardOutputIsTerminal();
  const bool isWritten = assemble(root, form, isTerminal ? nullptr : &sink, shown, log);
  writeHarmless(shown.view());
  const Exit result = finishStandardOutput();
  if (isWritten || result != Exit::fine) return result;
  reportError("standard output", log.errorOr("the message could not be written completely"));
  return Exit::unreadable;
}

}  // namespace

bool assembleMessage(Email2& root, StringBuffer& out, LogBase& log, const WriteForm& form) {
  ProgressContext progress(nullptr);
  return root.assembleMimeBody2(out, nullptr, /*dotStuff=*/false, kOmittedPrefix, progress, log, /*depth=*/0,
                                form.qpFor8bit, /*isTop=*/true) &&
         isWhole(log);
}

Exit writeMessage(Email2& root, const std::string& path, const WriteForm& form) {
  ErrorLog log;
  if (isStandardOutput(path)) return writeToStandardOutput(root, form, log);
  if (leadsToTerminal(path)) {
    StringBuffer shown;
    TextFile terminal(path);
    if (assemble(root, form, nullptr, shown, log))
      return terminal.write(shown.text()) && terminal.commit() ? Exit::fine : Exit::unreadable;
  } else if (writeToFile(root, path, form, log)) {
    return Exit::fine;
  }
  reportError(path, log.errorOr("cannot be written"));
  return Exit::unreadable;
}

}  // namespace mailtree::cli
