#include "cli/support/errors.h"

#include <ostream>

#include "cli/support/capture.h"
#include "cli/support/terminal.h"
#include "mailtree/base/Log.h"
#include "mailtree/base/Object.h"

namespace mailtree::cli {

void reportError(std::string_view problem) { standardError() << "mailtree: " << printable(problem) << '\n'; }

void reportError(std::string_view file, std::string_view problem) {
  reportError((file.empty() ? "''" : std::string(file)).append(": ").append(problem));
}

Exit usageError(std::string_view option, std::string_view problem) {
  reportError(option, problem);
  return Exit::usage;
}

Exit finishStandardOutput() {
  if (abandonedOperations() != 0) {
    reportError("standard output", kNoMemory);
    return Exit::unreadable;
  }
  if (standardOutput().flush()) return Exit::fine;
  reportError("standard output", "cannot be written");
  return Exit::unreadable;
}

}  // namespace mailtree::cli
