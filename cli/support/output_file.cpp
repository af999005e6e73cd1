#include "cli/support/output_file.h"

#include <CLI/CLI.hpp>
#include <filesystem>

#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/terminal.h"

namespace mailtree::cli {
namespace {

namespace fs = std::filesystem;

/// The absolute path of an output, with links resolved as far as it exists.
fs::path absolutePath(const std::string& path) {
  if (isStandardOutput(path)) return "/dev/stdout";
  std::error_code ignored;
  const fs::path absolute = fs::absolute(path, ignored);
  const fs::path resolved = fs::weakly_canonical(absolute, ignored);
  return resolved.empty() ? absolute.lexically_normal() : resolved;
}

}  // namespace

void addOutput(CLI::App& verb, std::string& target) {
  addText(verb, "-o,--output", target, "File to write (default: standard output)")
      ->check([](const std::string& name) { return std::string(name.empty() ? "the name is empty" : ""); });
}

bool isStandardOutput(std::string_view path) { return path.empty() || path == "-"; }

bool isSameOutput(const std::string& a, const std::string& b) {
  const fs::path first = absolutePath(a), second = absolutePath(b);
  std::error_code ignored;
  return first == second || fs::equivalent(first, second, ignored);
}

bool TextFile::write(const std::string& text) {
  m_text = text;
  if (isStandardOutput(m_path)) return true;
  LogMemory log;
  ProgressContext progress(nullptr);
  if (leadsToTerminal(m_path)) m_text = printableLines(text);
  return reportUnless(
      m_sink.open(m_path.c_str(), log, Existing::replace, m_readers) && m_sink.write(m_text, progress, log),
      log);
}

bool TextFile::commit() {
  if (isStandardOutput(m_path)) {
    writeHarmless(m_text);
    return finishStandardOutput() == Exit::fine;
  }
  LogMemory log;
  return reportUnless(m_sink.commit(log), log);
}

bool TextFile::reportUnless(bool done, const LogMemory& log) const {
  if (!done) reportError(m_path, lastError(log, "cannot be written"));
  return done;
}

}  // namespace mailtree::cli
