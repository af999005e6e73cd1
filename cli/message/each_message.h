// cli/message/each_message.h - work on each of any number of messages.
//
//   Order    Results are printed in the order of the messages, for any number of threads.
//   Threads  What work prints by standardOutput() and reportError() waits for its turn. Work that writes
//            files runs on one thread, so that their names do not depend on chance.
#pragma once

#include <functional>
#include <optional>

#include "cli/message/input.h"
#include "cli/message/streaming.h"
#include "cli/support/exit_codes.h"
#include "cli/support/terminal.h"

namespace mailtree::cli {

/// How a verb works on several messages.
struct Several {
  bool hasTitles =
      true;  ///< Each result gets a title, "== box.mbox#12 ==", unless it names its message itself.
  bool needsAll = true;          ///< Negative when one message is; otherwise only when all are.
  const char* single = nullptr;  ///< The option or verb that takes only one message; null when there is none.
  Style style{};                 ///< Of the titles.
  bool headersOnly = false;      ///< A file is read as far as its header goes.
  std::optional<StreamSettings> stream{};           ///< None: on one thread.
  std::function<Exit(const Input&)> whenDone = {};  ///< Called for each message after its work, in order.
};

/// Calls a verb's work for each message, until it is interrupted. What cannot be read is reported, and the
/// others follow. At the end of several the number of good, damaged and unreadable ones goes to standard
/// error.
Exit forEachMessage(const SourceArguments& arguments, const Several& form,
                    const std::function<Exit(Input&)>& work);

}  // namespace mailtree::cli
