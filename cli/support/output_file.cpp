#include "cli/support/output_file.h"

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

Existing Destination::existing() const {
  // Standard output may be a file, which the shell has opened already.
  const bool isStream = path.starts_with("/dev/") || path.starts_with("/proc/");
  std::error_code ignored;
  const fs::file_status status = fs::status(path, ignored);
  const bool isFile = fs::is_regular_file(status) || !fs::exists(status);
  return force || isStream || !isFile ? Existing::replace : Existing::refuse;
}

std::string problemOfOutput(const std::string& path, Existing existing, const std::string& logged) {
  std::error_code ignored;
  const bool isTaken = existing == Existing::refuse && fs::exists(fs::symlink_status(path, ignored));
  return isTaken ? "already exists; --force replaces it" : logged;
}

void addOutput(Verb verb, Destination& target) {
  verb.addText("-o,--output", target.path, "File to write (default: standard output)")
      .kind(kFile)
      .check([](const std::string& name) { return std::string(name.empty() ? "the name is empty" : ""); });
  verb.addFlag("--force", target.force, "Overwrite an existing file");
}

bool isStandardOutput(std::string_view path) { return path.empty() || path == "-"; }

bool isSameOutput(const std::string& a, const std::string& b) {
  const fs::path first = absolutePath(a), second = absolutePath(b);
  std::error_code ignored;
  return first == second || fs::equivalent(first, second, ignored);
}

bool TextFile::write(const std::string& text) {
  m_text = text;
  if (isStandardOutput(m_to.path)) return true;
  LogMemory log;
  ProgressContext progress(nullptr);
  if (leadsToTerminal(m_to.path)) m_text = printableLines(text);
  return reportUnless(
      m_sink.open(m_to.path.c_str(), log, m_to.existing(), m_readers) && m_sink.write(m_text, progress, log),
      log);
}

bool TextFile::commit() {
  if (isStandardOutput(m_to.path)) {
    writeHarmless(m_text);
    return finishStandardOutput() == Exit::fine;
  }
  LogMemory log;
  return reportUnless(m_sink.commit(log), log);
}

bool TextFile::reportUnless(bool done, const LogMemory& log) const {
  if (!done)
    reportError(m_to.path, problemOfOutput(m_to.path, m_to.existing(), lastError(log, "cannot be written")));
  return done;
}

}  // namespace mailtree::cli
