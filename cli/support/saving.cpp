#include "cli/support/saving.h"

#include <filesystem>
#include <iostream>
#include <system_error>

#include "cli/support/errors.h"
#include "cli/support/terminal.h"

namespace mailtree::cli {

bool saveFile(const std::string& path, std::string_view bytes, Existing existing, Readers readers) {
  LogMemory log;
  ProgressContext progress(nullptr);
  FileOutput sink;
  if (abandonedOperations() != 0)
    log.logError(kNoMemory);
  else if (sink.open(path.c_str(), log, existing, readers) && sink.write(bytes, progress, log) &&
           sink.commit(log))
    return true;
  reportError(path, problemOfOutput(path, existing, lastError(log, "cannot be written")));
  return false;
}

bool makeFolder(const std::string& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (!error) return true;
  reportError(folder, error.message());
  return false;
}

void printPath(const std::string& path) { std::cout << printable(path) << '\n'; }

Exit saveToOutput(std::string_view bytes, const Destination& to, Readers readers) {
  if (isStandardOutput(to.path)) {
    writeHarmless(bytes);
    return finishStandardOutput();
  }
  if (!saveFile(to.path, bytes, to.existing(), readers)) return Exit::unreadable;
  printPath(to.path);
  return finishStandardOutput();
}

std::string checkNameGiven(const std::string& name) { return name.empty() ? "the name is empty" : ""; }

}  // namespace mailtree::cli
