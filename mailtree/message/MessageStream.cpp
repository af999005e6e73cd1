#include "mailtree/message/MessageStream.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <list>
#include <mutex>
#include <system_error>
#include <thread>

#include "mailtree/base/Object.h"

// Each thread takes the next step that is possible: it works on a batch that waits, else reads a new one at
// the end of the list. The calling thread first takes the results of the batch at the front, when it is done.
// Reading and working may pause while too much is in flight, but never for the batch at the front, so there
// is always one that goes on.

namespace mailtree {
namespace {

constexpr std::size_t kBatchMessages = 64;
constexpr std::uint64_t kBatchBytes = std::uint64_t{256} << 10;
/// Of files, whose sizes are not known before.
constexpr std::uint64_t kLargeBatch = std::uint64_t{1} << 20;
constexpr std::size_t kBatchesPerThread = 8;
/// A batch that is filled more slowly, from a pipe, is worked on before it is full.
constexpr std::chrono::milliseconds kBatchTime{20};
/// A message in a file of its own that is longer waits for its share of the budget.
constexpr std::uint64_t kSmallFile = std::uint64_t{1} << 20;
/// The largest buffers that are used again: those of a batch, and the one of a thread.
constexpr std::size_t kKeptInBatch = std::size_t{16} << 10, kKeptInThread = kSmallFile;

using State = StreamBatch::State;

unsigned threadsOf(const StreamOptions& options) noexcept {
  constexpr unsigned kMost = 256;
  const unsigned wanted = options.threads ? options.threads : std::thread::hardware_concurrency();
  return std::clamp(wanted, 1U, kMost);
}

void releaseBytes(std::string& bytes, std::size_t kept) noexcept {
  if (bytes.capacity() > kept) bytes = std::string();
  bytes.clear();
}

class Stream {
 public:
  Stream(const MessageFeed& feed, StreamWork& work, const StreamOptions& options)
      : m_feed(feed), m_work(work), m_options(options), m_threads(threadsOf(options)) {}

  StreamEnd run() {
    const bool isReady = neverThrow(false, [this] {
      m_work.beginThreads(m_threads);
      m_buffers.resize(m_threads);
      return true;
    });
    if (!isReady) return StreamEnd::noMemory;
    if (m_threads == 1) return runAlone();
    const Helpers helpers(*this);
    return runWithHelpers();
  }

 private:
  using Lock = std::unique_lock<std::mutex>;
  using Batches = std::list<std::unique_ptr<StreamBatch>>;

  /// The other threads, which are joined at the end, also when `take` throws.
  class Helpers {
   public:
    explicit Helpers(Stream& stream) : m_stream(stream) {
      neverThrow(false, [&] {  // with those that could be started
        for (unsigned i = 1; i < stream.m_threads; ++i)
          m_threads.emplace_back([&stream, i] { stream.help(i); });
        return true;
      });
    }
    Helpers(const Helpers&) = delete;
    Helpers& operator=(const Helpers&) = delete;
    ~Helpers() {
      {
        const Lock lock(m_stream.m_mutex);
        m_stream.finish(StreamEnd::stopped);
        m_stream.m_changed.notify_all();
      }
      for (std::thread& thread : m_threads) thread.join();
    }

   private:
    Stream& m_stream;
    std::vector<std::thread> m_threads;
  };

  /// The bytes of a long message in a file, held while it is read and worked on.
  class LargeFile {
   public:
    LargeFile(Stream& stream, std::uint64_t size) : m_stream(stream), m_size(size) {
      Lock lock(stream.m_mutex);
      stream.m_changed.wait(lock, [&] {
        return stream.m_largeBytes == 0 || stream.m_largeBytes + size <= stream.m_options.budget;
      });
      stream.m_largeBytes += size;
    }
    LargeFile(const LargeFile&) = delete;
    LargeFile& operator=(const LargeFile&) = delete;
    ~LargeFile() {
      const Lock lock(m_stream.m_mutex);
      m_stream.m_largeBytes -= m_size;
      m_stream.m_changed.notify_all();
    }

   private:
    Stream& m_stream;
    std::uint64_t m_size;
  };

  StreamEnd runAlone() {
    const bool isDone = neverThrow(false, [this] {
      m_spare.push_back(m_work.newBatch());
      m_spare.back()->messages.resize(m_spare.back()->count = 1);
      return true;
    });
    if (!isDone) return StreamEnd::noMemory;
    StreamBatch& batch = *m_spare.back();
    while (!mustEnd()) {
      if (!feed(batch.messages[0])) break;
      makeOne(batch, 0, 0);
      if (mustEnd()) break;
      if (!m_work.take(batch, 0)) return StreamEnd::stopped;
    }
    return m_end.load();
  }

  StreamEnd runWithHelpers() {
    Lock lock(m_mutex);
    for (;;) {
      if (mustEnd()) break;
      if (!m_batches.empty() && m_batches.front()->state == State::done) {
        if (!takeFront(lock)) return StreamEnd::stopped;
      } else if (StreamBatch* const batch = nextBatch(lock)) {
        workOn(*batch, 0, lock);
      } else if (m_batches.empty() && m_isFeedAtEnd) {
        break;
      } else {
        waitForChange(lock);
      }
    }
    return m_end.load();
  }

  void help(unsigned thread) {
    Lock lock(m_mutex);
    while (!mustEnd() && !isAllDone()) {
      if (StreamBatch* const batch = nextBatch(lock))
        workOn(*batch, thread, lock);
      else
        waitForChange(lock);
    }
  }

  bool isAllDone() const {
    return m_isFeedAtEnd &&
           std::ranges::all_of(m_batches, [](const auto& b) { return b->state == State::done; });
  }

  bool mustEnd() {
    if (m_options.cancel && m_options.cancel->load(std::memory_order_relaxed)) finish(StreamEnd::cancelled);
    return m_end.load(std::memory_order_relaxed) != StreamEnd::whole;
  }
  /// The first reason counts. Whoever works wakes the others when its batch is done.
  void finish(StreamEnd reason) noexcept {
    StreamEnd before = StreamEnd::whole;
    m_end.compare_exchange_strong(before, reason);
  }
  void waitForChange(Lock& lock) {
    if (!mustEnd()) m_changed.wait(lock);
  }

  /// The results of the batch at the front.
  bool takeFront(Lock& lock) {
    std::unique_ptr<StreamBatch> batch = std::move(m_batches.front());
    m_batches.pop_front();
    lock.unlock();
    for (std::size_t i = 0; i < batch->count; ++i)
      if (!m_work.take(*batch, i)) return false;
    lock.lock();
    m_bytes -= batch->bytes;
    batch->count = 0;
    batch->bytes = 0;
    m_spare.push_back(std::move(batch));
    m_changed.notify_all();
    return true;
  }

  /// A batch to work on; null when there is nothing to do now.
  StreamBatch* nextBatch(Lock& lock) {
    const bool isFull = m_bytes >= m_options.budget;
    if (m_waiting > 0) {
      const auto found =
          std::ranges::find_if(m_batches, [](const auto& batch) { return batch->state == State::waiting; });
      if (isFull && found != m_batches.begin()) return nullptr;
      --m_waiting;
      (*found)->state = State::working;
      return found->get();
    }
    const bool mayRead = !m_isReading && !m_isFeedAtEnd;
    if (!mayRead || (!m_batches.empty() && (isFull || m_batches.size() >= kBatchesPerThread * m_threads)))
      return nullptr;
    return readBatch(lock);
  }

  StreamBatch* readBatch(Lock& lock) {
    StreamBatch* const batch = addBatch(m_batches.end());
    if (!batch) return nullptr;
    m_isReading = true;
    lock.unlock();
    const bool hasMore = fill(*batch);
    lock.lock();
    m_isReading = false;
    m_isFeedAtEnd = !hasMore;
    m_bytes += batch->bytes;
    batch->state = State::working;
    m_changed.notify_all();
    return batch;
  }

  /// Adds an empty batch; null, at the end of all work, when memory ran out.
  StreamBatch* addBatch(Batches::iterator where) {
    StreamBatch* const added = neverThrow(static_cast<StreamBatch*>(nullptr), [&] {
      const std::size_t all = m_batches.size() + m_spare.size() + 2;  // one may be in hand
      if (m_spare.capacity() < all) m_spare.reserve(2 * all);
      if (m_spare.empty()) m_spare.push_back(m_work.newBatch());
      StreamBatch* const batch = m_batches.insert(where, std::move(m_spare.back()))->get();
      m_spare.pop_back();
      batch->state = State::reading;
      return batch;
    });
    if (!added) finish(StreamEnd::noMemory);
    return added;
  }

  /// False when the feed has come to its end.
  bool fill(StreamBatch& batch) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point last = Clock::now() + kBatchTime;
    const auto isInTime = [&] { return batch.count == 0 || Clock::now() < last; };
    while (batch.count < kBatchMessages && batch.bytes < kBatchBytes && isInTime() && !mustEnd()) {
      const bool hasRoom = neverThrow(false, [&] {
        if (batch.messages.size() == batch.count) batch.messages.emplace_back();
        return true;
      });
      if (!hasRoom) finish(StreamEnd::noMemory);
      if (!hasRoom || !feed(batch.messages[batch.count])) return false;
      batch.bytes += batch.messages[batch.count++].bytes.size();
    }
    return true;
  }

  bool feed(SourceMessage& message) {
    bool isThere = false;
    const bool isDone = neverThrow(false, [&] {
      isThere = m_feed(message);
      return true;
    });
    if (!isDone) finish(StreamEnd::noMemory);
    return isThere;
  }

  void workOn(StreamBatch& batch, unsigned thread, Lock& lock) {
    const std::uint64_t before = batch.bytes;
    lock.unlock();
    std::size_t done = 0;
    while (done < batch.count && !mustEnd()) {
      batch.bytes += makeOne(batch, done++, thread);
      if (batch.bytes - before > kLargeBatch) break;
    }
    lock.lock();
    m_bytes += batch.bytes - before;
    if (done < batch.count) moveRest(batch, done);
    batch.state = State::done;
    m_changed.notify_all();
  }

  /// Files turned out to be large: the rest of a batch becomes one of its own.
  void moveRest(StreamBatch& batch, std::size_t done) {
    const auto here = std::ranges::find_if(m_batches, [&](const auto& each) { return each.get() == &batch; });
    StreamBatch* const rest = addBatch(std::next(here));
    if (!rest) return;
    rest->count = batch.count - done;
    rest->messages.resize(std::max(rest->messages.size(), rest->count));
    const auto first = batch.messages.begin() + static_cast<std::ptrdiff_t>(done);
    std::swap_ranges(first, first + static_cast<std::ptrdiff_t>(rest->count), rest->messages.begin());
    batch.count = done;
    rest->state = State::waiting;
    ++m_waiting;
  }

  /// Returns the bytes that were read for it.
  std::uint64_t makeOne(StreamBatch& batch, std::size_t index, unsigned thread) {
    SourceMessage& message = batch.messages[index];
    const bool isFile = !message.hasBytes && !message.error;
    std::optional<LargeFile> large;
    std::uint64_t size = 0;
    const bool isMade = neverThrow(false, [&] {
      if (isFile) size = readFile(message, m_buffers[thread], large);
      m_work.make(batch, index, thread);
      return true;
    });
    if (!isMade) finish(StreamEnd::noMemory);
    if (isFile) message.bytes.swap(m_buffers[thread]);
    releaseBytes(isFile ? m_buffers[thread] : message.bytes, isFile ? kKeptInThread : kKeptInBatch);
    message.hasBytes = false;
    return size;
  }

  /// Most files are small: only when one is not is its size of interest. A short file may be compressed.
  std::uint64_t readFile(SourceMessage& message, std::string& buffer, std::optional<LargeFile>& large) {
    message.bytes.swap(buffer);
    SourceOptions options = m_options.reading;
    options.largest = std::min(options.largest, kSmallFile);
    Result<void> done = readMessage(message, options);
    if (!done) {
      std::error_code ignored;
      const std::uintmax_t size = std::filesystem::file_size(message.path, ignored);
      const bool isLarge = !ignored && size > kSmallFile;
      if (m_threads > 1) large.emplace(*this, isLarge ? size : m_options.budget);
      done = readMessage(message, m_options.reading);
    }
    if (!done) message.error = std::move(done).error();
    return message.bytes.size();
  }

  const MessageFeed& m_feed;
  StreamWork& m_work;
  const StreamOptions& m_options;
  const unsigned m_threads;
  std::atomic<StreamEnd> m_end{StreamEnd::whole};
  std::vector<std::string> m_buffers;  ///< One for each thread.

  std::mutex m_mutex;  ///< For all that follows.
  std::condition_variable m_changed;
  Batches m_batches;  ///< In flight, in order.
  std::vector<std::unique_ptr<StreamBatch>> m_spare;
  std::size_t m_waiting = 0;  ///< Batches in that state.
  std::uint64_t m_bytes = 0, m_largeBytes = 0;
  bool m_isReading = false, m_isFeedAtEnd = false;
};

/// The sources of a feed, opened one after the other.
class PathFeed {
 public:
  PathFeed(std::vector<std::string> paths, const SourceOptions& options)
      : m_paths(std::move(paths)), m_options(options) {}

  bool operator()(SourceMessage& message) {
    for (; m_next < m_paths.size(); ++m_next) {
      if (!m_source) {
        Result<MailSource> source = MailSource::open(m_paths[m_next], m_options);
        if (!source) return fail(message, std::move(source).error());
        m_source.emplace(*std::move(source));
      }
      if (m_source->next(message)) return true;
      if (const Error* const error = m_source->error()) return fail(message, *error);
      m_source.reset();
    }
    return false;
  }

 private:
  bool fail(SourceMessage& message, Error error) {
    message = {};
    message.path = m_paths[m_next++];
    message.error = std::move(error);
    m_source.reset();
    return true;
  }

  std::vector<std::string> m_paths;
  SourceOptions m_options;
  std::optional<MailSource> m_source;
  std::size_t m_next = 0;
};

}  // namespace

MessageFeed feedOf(std::vector<std::string> paths, const SourceOptions& options) {
  return [feed = std::make_shared<PathFeed>(std::move(paths), options)](SourceMessage& message) {
    return (*feed)(message);
  };
}

StreamEnd runStream(const MessageFeed& feed, StreamWork& work, const StreamOptions& options) {
  return Stream(feed, work, options).run();
}

}  // namespace mailtree
