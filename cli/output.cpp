#include "cli/output.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>

#include "cli/arguments.h"
#include "cli/input.h"
#include "cli/internal_fields.h"
#include "cli/views/terminal.h"

namespace mailtree::cli {
namespace {

namespace fs = std::filesystem;

/// The path of an output, from the root and without links as far as there is something.
fs::path whole(const std::string& path) {
  if (isStandardOutput(path)) return "/dev/stdout";
  std::error_code ignored;
  const fs::path absolute = fs::absolute(path, ignored);
  const fs::path resolved = fs::weakly_canonical(absolute, ignored);
  return resolved.empty() ? absolute.lexically_normal() : resolved;
}

/// Keeps the last error alone: a log of all that is done for a deep tree is bigger than the tree.
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

/// Whether nothing was left out, while reading or since, for want of memory.
bool isWhole(LogBase& log) {
  if (abandonedOperations() != 0) log.logError(kNoMemory);
  return abandonedOperations() == 0;
}

/// @param sink  null: `text` receives it all.
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
  writeGuarded(shown.view());
  const Exit result = finishStandardOutput();
  if (isWritten || result != Exit::fine) return result;
  complain("standard output", log.errorOr("the message could not be written whole"));
  return Exit::unreadable;
}

}  // namespace

void addOutput(CLI::App& verb, std::string& target) {
  addText(verb, "-o,--output", target, "File to write, whole or not at all; standard output without it")
      ->check([](const std::string& name) { return std::string(name.empty() ? "the name is empty" : ""); });
}

bool isStandardOutput(std::string_view path) { return path.empty() || path == "-"; }

bool isSameOutput(const std::string& a, const std::string& b) {
  const fs::path first = whole(a), second = whole(b);
  std::error_code ignored;
  return first == second || fs::equivalent(first, second, ignored);
}

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
  complain(path, log.errorOr("cannot be written"));
  return Exit::unreadable;
}

bool TextFile::write(const std::string& text) {
  m_text = text;
  if (isStandardOutput(m_path)) return true;
  LogMemory log;
  ProgressContext progress(nullptr);
  if (leadsToTerminal(m_path)) m_text = printableLines(text);
  return complainUnless(
      m_sink.open(m_path.c_str(), log, Existing::replace, m_readers) && m_sink.write(m_text, progress, log),
      log);
}

bool TextFile::commit() {
  if (isStandardOutput(m_path)) {
    writeGuarded(m_text);
    return finishStandardOutput() == Exit::fine;
  }
  LogMemory log;
  return complainUnless(m_sink.commit(log), log);
}

bool TextFile::complainUnless(bool done, const LogMemory& log) const {
  if (!done) complain(m_path, lastError(log, "cannot be written"));
  return done;
}

}  // namespace mailtree::cli
