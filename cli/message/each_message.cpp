#include "cli/message/each_message.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <iostream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "cli/support/capture.h"
#include "cli/support/errors.h"
#include "cli/support/interrupt.h"
#include "cli/support/progress.h"
#include "mailtree/message/MessageStream.h"

namespace mailtree::cli {
namespace {

using Work = std::function<Exit(Input&)>;

/// How the messages of a run were.
class Tally {
 public:
  void add(Exit result, bool wasRead, bool isDamaged) {
    const bool isUnreadable = !wasRead || result == Exit::unreadable;
    ++m_count;
    m_unreadable += isUnreadable ? 1 : 0;
    m_damaged += isDamaged && !isUnreadable ? 1 : 0;
    m_hasPositive = m_hasPositive || result == Exit::fine || result == Exit::limit;
    m_hasNegative = m_hasNegative || result == Exit::negative;
    if (result != Exit::negative) m_worst = worse(m_worst, result);
  }

  void interrupt() { m_worst = Exit::interrupted; }
  /// The work ended before the last message.
  void fail(std::string_view problem) {
    reportError(problem);
    m_worst = worse(m_worst, Exit::unreadable);
  }

  std::uint64_t count() const noexcept { return m_count; }

  Exit result(bool needsAll) const {
    const bool isNegative = m_hasNegative && (needsAll || !m_hasPositive);
    return isNegative ? worse(m_worst, Exit::negative) : m_worst;
  }

  void report() const {
    if (m_worst == Exit::interrupted)
      reportError("interrupted after " + std::to_string(m_count) + (m_count == 1 ? " message" : " messages"));
    if (m_count < 2) return;
    reportError(std::to_string(m_count) + " messages: " + std::to_string(m_count - m_damaged - m_unreadable) +
                " good, " + std::to_string(m_damaged) + " damaged, " + std::to_string(m_unreadable) +
                " unreadable");
  }

 private:
  std::uint64_t m_count = 0, m_damaged = 0, m_unreadable = 0;
  bool m_hasPositive = false, m_hasNegative = false;
  Exit m_worst = Exit::fine;
};

class EachMessage {
 public:
  EachMessage(const SourceArguments& arguments, const Several& form, const Work& work)
      : m_form(form),
        m_work(work),
        m_reading{.headersOnly = form.headersOnly},
        m_sources(arguments, {.reading = m_reading, .emptyIsMessage = true}),
        m_areSeveral(lookAhead() && lookAhead()),
        m_bar(/*bytesInAll=*/0, "messages", /*isHidden=*/!m_areSeveral || !hasProgress(form)) {}

  Exit run() {
    if (m_form.single && m_areSeveral) return usageError(m_form.single, "takes one message");
    std::optional<InterruptGuard> interrupt;  // a single message is quick
    if (m_areSeveral) interrupt.emplace();
    if (threads() == 1)
      workInOrder();
    else
      workOnThreads();
    m_sources.reportEmpty();
    const Exit result = worse(m_tally.result(m_form.needsAll), finishStandardOutput());
    m_tally.report();
    return result;
  }

 private:
  struct Ahead {
    SourceMessage source;
    std::string found;
  };
  /// What work on another thread gave.
  struct Outcome {
    Exit result = Exit::fine;
    bool isDamaged = false;
    Captured printed{};
    std::optional<std::string> rewritten{};
  };

  static bool hasProgress(const Several& form) {
    return ::isatty(STDOUT_FILENO) == 0 && !(form.stream && form.stream->hidesProgress);
  }

  /// Whether there is one more message.
  bool lookAhead() {
    Ahead next;
    if (!m_sources.next(next.source)) return false;
    next.found = m_sources.found();
    m_ahead.push_back(std::move(next));
    return true;
  }

  unsigned threads() const {
    if (!m_areSeveral || !m_form.stream) return 1;
    return m_form.stream->jobs ? m_form.stream->jobs : std::max(std::thread::hardware_concurrency(), 1U);
  }

  bool feed(SourceMessage& message) {
    if (m_ahead.empty()) {
      if (!m_sources.next(message)) return false;
      m_found = m_sources.found();
      return true;
    }
    std::swap(message, m_ahead.front().source);
    m_found = std::move(m_ahead.front().found);
    m_ahead.pop_front();
    return true;
  }

  void workInOrder() {
    Input input;
    while (!InterruptGuard::flag() && feed(input.source) && !InterruptGuard::flag()) {
      const Result<void> read = readMessage(input.source, m_reading);
      describe(input);
      input.found = m_found;
      beginResult(input);
      if (!read) input.source.error = read.error();
      finish(input, read ? m_work(input) : Exit::fine);
    }
    if (InterruptGuard::flag()) m_tally.interrupt();
  }

  void workOnThreads() {
    const auto make = [this](SourceMessage& message) { return outcomeOf(message); };
    const auto take = [this](SourceMessage& message, Outcome& outcome) {
      Input input;
      std::swap(input.source, message);
      describe(input);
      input.isDamaged = outcome.isDamaged;
      input.rewritten = std::move(outcome.rewritten);
      beginResult(input);
      print(outcome.printed);
      finish(input, outcome.result);
      std::swap(input.source, message);
      return true;
    };
    const StreamEnd end =
        streamMessages([this](SourceMessage& message) { return feed(message); }, make, take,
                       {.threads = threads(), .cancel = &InterruptGuard::flag(), .reading = m_reading});
    if (end == StreamEnd::cancelled) m_tally.interrupt();
    if (end == StreamEnd::noMemory) m_tally.fail(kNoMemory);
  }

  Outcome outcomeOf(SourceMessage& message) const {
    if (message.error) return {};
    const std::uint64_t abandoned = abandonedOperations();
    OutputCapture capture;
    Input input;
    std::swap(input.source, message);
    describe(input);
    Outcome outcome{.result = m_work(input)};
    if (abandonedOperations() != abandoned) {
      reportError(input.name, kNoMemory);
      outcome.result = worse(outcome.result, Exit::unreadable);
    }
    outcome.isDamaged = input.isDamaged;
    outcome.printed = capture.take();
    outcome.rewritten = std::move(input.rewritten);
    std::swap(input.source, message);
    return outcome;
  }

  void describe(Input& input) const {
    input.name = nameOf(input.source);
    input.isOneOfSeveral = m_areSeveral;
    input.isDamaged = false;
    input.rewritten.reset();
  }

  void beginResult(const Input& input) {
    const bool isFirst = m_tally.count() == 0;
    m_sources.reportEmpty(m_tally.count());
    if (!m_form.hasTitles || !m_areSeveral) return;
    const std::string title = "== " + printable(input.name) + " ==";
    std::cout << (isFirst ? "" : "\n") << m_form.style.paint(Ink::bold, title) << '\n';
  }

  /// Counts a message, of which the result is only used when it could be read.
  void finish(const Input& input, Exit result) {
    const std::optional<Error>& error = input.source.error;
    if (error) {
      reportError(input.name, problemOf(*error));
      result = error->code == ErrorCode::tooLarge ? Exit::limit : Exit::unreadable;
    } else if (m_form.whenDone) {
      result = worse(result, m_form.whenDone(input));
    }
    m_tally.add(result, !error, input.isDamaged);
    m_bar.show(m_tally.count(), m_bytes += input.source.length);
  }

  const Several& m_form;
  const Work& m_work;
  SourceOptions m_reading;
  Sources m_sources;
  std::deque<Ahead> m_ahead;  ///< Read before the work began.
  bool m_areSeveral;
  ProgressBar m_bar;
  Tally m_tally;
  std::string m_found;  ///< Where the last message was found.
  std::uint64_t m_bytes = 0;
};

}  // namespace

Exit forEachMessage(const SourceArguments& arguments, const Several& form,
                    const std::function<Exit(Input&)>& work) {
  return EachMessage(arguments, form, work).run();
}

}  // namespace mailtree::cli
