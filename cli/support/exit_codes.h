// cli/support/exit_codes.h - what every verb returns.
#pragma once

namespace mailtree::cli {

enum class Exit : int {
  fine = 0,
  negative = 1,    ///< The answer is no: the field, body or part asked for is not there.
  usage = 2,       ///< The command line is wrong.
  unreadable = 3,  ///< A file could not be read or written.
  limit = 4,       ///< A limit was met; the result is given all the same.
};

/// The graver of two results: a file that failed outweighs a limit, a limit outweighs a no.
constexpr Exit graver(Exit a, Exit b) noexcept {
  constexpr Exit kByGravity[] = {Exit::usage, Exit::unreadable, Exit::limit, Exit::negative};
  for (const Exit exit : kByGravity)
    if (a == exit || b == exit) return exit;
  return Exit::fine;
}

}  // namespace mailtree::cli
