// message/MessageStream.h - the messages of mailboxes, worked on by several threads, with results in order.
//
//   Order      Results come in the order of the messages, for any number of threads.
//   Threads    `make` runs on any thread, each with a copy of its own, so it may keep buffers. The feed is
//              called by one thread at a time. `take` runs on the calling thread, which also does its share.
//   Memory     Messages in flight are limited by a budget; a longer one goes alone. Buffers are used again.
//   Failure    A message that cannot be read has its error, and the others follow.
//
//     std::uint64_t total = 0;
//     mailtree::streamMessages(
//         mailtree::feedOf({"box.mbox", "Maildir"}),
//         [](mailtree::SourceMessage& message) { return message.bytes.size(); },
//         [&](mailtree::SourceMessage&, std::size_t size) { total += size; return true; });
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "mailtree/base/Export.h"
#include "mailtree/store/MailSource.h"

namespace mailtree {

/// Gives the next message; false at the end. Messages are used again, as by MailSource::next().
using MessageFeed = std::function<bool(SourceMessage&)>;

/// The messages of files and folders, one after the other. A source that cannot be opened, or not be read to
/// its end, gives a message with an error.
MAILTREE_API MessageFeed feedOf(std::vector<std::string> paths, const SourceOptions& options = {});

struct StreamOptions {
  unsigned threads = 0;                        ///< 0: one for each core.
  std::size_t budget = std::size_t{16} << 20;  ///< Bytes of messages in flight.
  const std::atomic<bool>* cancel = nullptr;   ///< Becomes true when the work shall end. May be null.
  SourceOptions reading = {};                  ///< For messages that the feed gives by name.
};

enum class StreamEnd {
  whole,      ///< The feed came to its end.
  stopped,    ///< `take` returned false.
  cancelled,  ///< Between two messages: those that were taken are the first ones.
  noMemory,   ///< The same, because memory ran out.
};

/// A number of messages that one thread works on.
struct MAILTREE_API StreamBatch {
  enum class State { reading, waiting, working, done };

  virtual ~StreamBatch() = default;

  std::vector<SourceMessage> messages;  ///< Those that are used again are at its end.
  std::size_t count = 0;                ///< Of the messages in it.
  std::uint64_t bytes = 0;              ///< Of the messages that were read so far.
  State state = State::reading;
};

/// The part of the work that knows the type of the results.
class MAILTREE_API StreamWork {
 public:
  StreamWork() = default;
  StreamWork(const StreamWork&) = delete;
  StreamWork& operator=(const StreamWork&) = delete;
  virtual ~StreamWork() = default;

  virtual std::unique_ptr<StreamBatch> newBatch() = 0;
  virtual void beginThreads(unsigned threads) = 0;
  virtual void make(StreamBatch& batch, std::size_t index, unsigned thread) = 0;
  virtual bool take(StreamBatch& batch, std::size_t index) = 0;
};

MAILTREE_API StreamEnd runStream(const MessageFeed& feed, StreamWork& work, const StreamOptions& options);

/// Calls `make` for each message of the feed and `take` for each result.
/// @param make  takes a SourceMessage&, which has bytes or an error, and returns the result. It may move the
///              bytes away; they are gone when the message is taken.
/// @param take  takes the SourceMessage& and the result; false ends the work.
template <class Make, class Take>
StreamEnd streamMessages(const MessageFeed& feed, Make make, Take&& take, const StreamOptions& options = {}) {
  using Output = std::invoke_result_t<Make&, SourceMessage&>;

  struct Batch final : StreamBatch {
    std::vector<std::optional<Output>> outputs;
  };
  class Work final : public StreamWork {
   public:
    Work(Make& make, Take& take) : m_makes{std::move(make)}, m_take(take) {}
    std::unique_ptr<StreamBatch> newBatch() override { return std::make_unique<Batch>(); }
    void beginThreads(unsigned threads) override {
      while (m_makes.size() < threads) m_makes.emplace_back(m_makes.front());
    }
    void make(StreamBatch& batch, std::size_t index, unsigned thread) override {
      std::vector<std::optional<Output>>& outputs = static_cast<Batch&>(batch).outputs;
      if (outputs.size() < batch.count) outputs.resize(batch.count);
      outputs[index].emplace(m_makes[thread](batch.messages[index]));
    }
    bool take(StreamBatch& batch, std::size_t index) override {
      std::optional<Output>& output = static_cast<Batch&>(batch).outputs[index];
      const bool goesOn = m_take(batch.messages[index], *output);
      output.reset();
      return goesOn;
    }

   private:
    std::vector<Make> m_makes;
    Take& m_take;
  };

  Work work(make, take);
  return runStream(feed, work, options);
}

}  // namespace mailtree
