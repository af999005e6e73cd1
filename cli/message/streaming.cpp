#include "cli/message/streaming.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/interrupt.h"
#include "cli/support/terminal.h"

namespace mailtree::cli {
namespace {

/// The size of all sources in bytes; 0 when it is not known without reading them.
std::uint64_t bytesIn(const SourceArguments& arguments) {
  constexpr std::array<std::string_view, 6> kArchives = {".gz", ".zst", ".bz2", ".zip", ".tar", ".tgz"};
  if (!arguments.lists.empty() || !arguments.nulLists.empty()) return 0;
  std::uint64_t sum = 0;
  for (const std::string& path : arguments.paths) {
    std::error_code error;
    const bool isArchive = std::ranges::any_of(kArchives, [&](auto end) { return path.ends_with(end); });
    if (isArchive || !std::filesystem::is_regular_file(path, error)) return 0;
    sum += std::filesystem::file_size(path, error);
    if (error) return 0;
  }
  return sum;
}

}  // namespace

void addStreamOptions(Verb verb, StreamSettings& settings) {
  verb.addNumber("-j,--jobs", settings.jobs, "Number of threads (default: one for each core)",
                 /*least=*/1, /*most=*/256);
  verb.addFlag("--no-progress", settings.hidesProgress,
               "Do not show a progress bar (default: shown on a terminal)");
}

bool hasSeveral(const SourceArguments& arguments) {
  std::error_code ignored;
  return arguments.paths.size() != 1 || std::filesystem::is_directory(arguments.paths.front(), ignored);
}

class Streaming::State {
 public:
  State(const SourceArguments& arguments, const StreamSettings& settings, MessageFeed given)
      : sources(arguments),
        isPart(given != nullptr),
        feed(isPart ? std::move(given) : [this](SourceMessage& message) { return sources.next(message); }),
        threads(settings.jobs),
        bar(isPart ? 0 : bytesIn(arguments), "messages", settings.hidesProgress) {}

  Sources sources;
  bool isPart;  ///< The feed is not all of the sources.
  MessageFeed feed;
  std::function<void(const SourceMessage&)> whenUnreadable;
  unsigned threads;
  ProgressBar bar;
  InterruptGuard interrupt;
  std::uint64_t messages = 0, unreadable = 0, bytes = 0;
  Exit worst = Exit::fine;  ///< Of what could not be read.
  StreamEnd end = StreamEnd::whole;
};

Streaming::Streaming(const SourceArguments& arguments, const StreamSettings& settings, MessageFeed feed)
    : m_state(std::make_unique<State>(arguments, settings, std::move(feed))) {}
Streaming::~Streaming() = default;

void Streaming::whenUnreadable(std::function<void(const SourceMessage&)> act) {
  m_state->whenUnreadable = std::move(act);
}

const MessageFeed& Streaming::feed() const { return m_state->feed; }

StreamOptions Streaming::options() const {
  return {.threads = m_state->threads, .cancel = &InterruptGuard::flag()};
}

bool Streaming::isReadable(const SourceMessage& message) {
  m_state->sources.reportEmpty(m_state->messages++);
  m_state->bytes += message.length;
  m_state->bar.show(m_state->messages, m_state->bytes);
  if (!message.error) return true;
  ++m_state->unreadable;
  const bool isTooLarge = message.error->code == ErrorCode::tooLarge;
  m_state->worst = worse(m_state->worst, isTooLarge ? Exit::limit : Exit::unreadable);
  reportError(nameOf(message), problemOf(*message.error));
  if (m_state->whenUnreadable) m_state->whenUnreadable(message);
  return false;
}

StreamEnd Streaming::end() const noexcept { return m_state->end; }

Exit Streaming::finish(StreamEnd end) {
  State& state = *m_state;
  state.end = end;
  state.sources.reportEmpty();
  Exit result = state.worst;
  if (state.unreadable > 0 && state.messages > 1)
    reportError(std::to_string(state.unreadable) + " of " + std::to_string(state.messages) +
                " messages could not be read");
  if (end == StreamEnd::cancelled) {
    reportError("interrupted after " + std::to_string(state.messages) +
                (state.messages == 1 ? " message" : " messages"));
    result = Exit::interrupted;
  }
  if (end == StreamEnd::noMemory) {
    reportError("not enough memory");
    result = worse(result, Exit::unreadable);
  }
  return worse(result, finishStandardOutput());
}

}  // namespace mailtree::cli
