// cli/support/exit_codes.h - the exit codes of all verbs.
#pragma once

namespace mailtree::cli {

enum class Exit : int {
  fine = 0,
  negative = 1,       ///< The answer is no: the requested field, body or part does not exist.
  usage = 2,          ///< The command line is wrong.
  unreadable = 3,     ///< A file could not be read or written.
  limit = 4,          ///< A limit was exceeded; the result is still written.
  interrupted = 130,  ///< By Ctrl-C, after something whole.
};

/// The worse of two results: an interruption outweighs all, a failed file outweighs a limit, a limit
/// outweighs a no.
constexpr Exit worse(Exit a, Exit b) noexcept {
  constexpr Exit kWorstFirst[] = {Exit::interrupted, Exit::usage, Exit::unreadable, Exit::limit,
                                  Exit::negative};
  for (const Exit exit : kWorstFirst)
    if (a == exit || b == exit) return exit;
  return Exit::fine;
}

}  // namespace mailtree::cli
