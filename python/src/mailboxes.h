// python/src/mailboxes.h - messages that are read ahead by other threads, for a Python program that takes
// them.
//
//   Threads    None of the threads that read ever waits for the interpreter lock.
//   Memory     What was read and not taken is limited; then reading waits.
//   End        close() ends the threads. So does the end of the interpreter, which must not be outlived. A
//              thread that waits for a file server is left alone: it ends when something comes, and keeps
//              until then what it works with.
//   Fork       A child process has no threads of its parent: taking from its copy is an error there.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "mailtree/message/MessageStream.h"
#include "python/src/expressions.h"
#include "python/src/keys.h"
#include "python/src/mail.h"

namespace mailtree::python {

struct MailboxOptions {
  std::vector<std::string> paths;
  std::optional<Expression> where;
  KeyRingPtr keys;
  unsigned threads = 0;
  std::size_t memory = 0;  ///< Bytes of messages in flight, and as many that wait to be taken.
  std::uint64_t part = 0, parts = 1;
};

class Mailboxes : public std::enable_shared_from_this<Mailboxes> {
 public:
  struct Item {
    Place place;
    Result<Message> message;
  };
  enum class Step { item, end, wait };

  /// Begins to read. Must be closed.
  static std::shared_ptr<Mailboxes> start(MailboxOptions options);
  Mailboxes(const Mailboxes&) = delete;
  Mailboxes& operator=(const Mailboxes&) = delete;
  ~Mailboxes();

  /// Gives the next item when there is one at once; otherwise `wait`.
  Step takeAtOnce(std::optional<Item>& item);
  /// Waits for it for a while. Without the interpreter lock.
  Step waitFor(std::optional<Item>& item);
  /// Waits at most so long for the threads.
  void close(std::chrono::milliseconds wait);
  bool isClosed() const { return m_isClosed; }
  static void closeAll();

 private:
  explicit Mailboxes(MailboxOptions options);
  bool isOfThisProcess() const;
  void run();
  bool add(Item&& item, std::size_t bytes);
  void endWith(StreamEnd end);
  std::optional<Item> popTaken();

  const MailboxOptions m_options;
  const pid_t m_process;
  std::atomic<bool> m_isCancelled = false, m_isClosed = false;

  std::mutex m_takers;        ///< One at a time.
  std::vector<Item> m_taken;  ///< The last one is the next.

  std::mutex m_mutex;  ///< For what follows.
  std::condition_variable m_changed;
  std::vector<Item> m_ready;
  std::size_t m_readyBytes = 0;
  bool m_isOneEnough = false;  ///< The taker waits for anything.
  std::optional<StreamEnd> m_end;
  std::thread m_thread;
};

}  // namespace mailtree::python
