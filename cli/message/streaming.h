// cli/message/streaming.h - the messages of any number of sources, worked on by all cores: options, progress,
// Ctrl-C, and what is said about messages that could not be read.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "cli/message/sources.h"
#include "cli/support/exit_codes.h"
#include "cli/support/progress.h"
#include "mailtree/message/MessageStream.h"

namespace mailtree::cli {

class Verb;

struct StreamSettings {
  std::uint32_t jobs = 0;  ///< 0: all cores.
  bool hidesProgress = false;
};

/// Adds -j and --no-progress.
void addStreamOptions(Verb verb, StreamSettings& settings);

/// Whether there may be messages of more than one source.
bool hasSeveral(const SourceArguments& arguments);

class Streaming {
 public:
  /// @param feed  gives the messages instead of the sources, such as a part of them; null: all of them.
  Streaming(const SourceArguments& arguments, const StreamSettings& settings, MessageFeed feed = nullptr);
  Streaming(const Streaming&) = delete;
  Streaming& operator=(const Streaming&) = delete;
  ~Streaming();

  /// Is called in the place of `take` for a message that could not be read.
  void whenUnreadable(std::function<void(const SourceMessage&)> act);

  /// @param make  takes a SourceMessage& that was read, on any thread, and returns a result.
  /// @param take  takes it and the result, in order; what it prints is on standard output. False ends the
  ///              work quietly.
  /// @param done  prints what had to wait for the end, also after an interruption.
  template <class Make, class Take, class Done>
  Exit run(Make make, Take take, Done done) {
    using Output = std::invoke_result_t<Make&, SourceMessage&>;
    const auto makeReadable = [make = std::move(make)](SourceMessage& message) mutable {
      return message.error ? std::optional<Output>() : std::optional<Output>(make(message));
    };
    const auto takeReadable = [&](SourceMessage& message, std::optional<Output>& output) {
      return !isReadable(message) || take(message, *output);
    };
    const StreamEnd end = streamMessages(feed(), makeReadable, takeReadable, options());
    clearProgressLine();
    done();
    return finish(end);
  }

  /// How it ended, after run().
  StreamEnd end() const noexcept;

 private:
  class State;

  const MessageFeed& feed() const;
  StreamOptions options() const;
  /// Counts the message and reports its error.
  bool isReadable(const SourceMessage& message);
  Exit finish(StreamEnd end);

  std::unique_ptr<State> m_state;
};

}  // namespace mailtree::cli
