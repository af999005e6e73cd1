#include "python/src/mailboxes.h"

#include <pybind11/stl.h>
#include <unistd.h>

#include <algorithm>
#include <shared_mutex>
#include <system_error>

#include "mailtree/message/LazyMessage.h"
#include "python/src/fork_gate.h"
#include "python/src/values.h"

namespace mailtree::python {
namespace {

constexpr std::size_t kMemory = std::size_t{16} << 20;
constexpr std::size_t kOverhead = 4096;  ///< Of a message in memory, besides its bytes.

/// Whether it is worth waking who waits: that costs more than reading a short message.
constexpr bool isMuch(std::size_t items, std::size_t bytes) {
  return items >= 32 || bytes >= std::size_t{256} << 10;
}

/// How long a thread may take to end; one that waits for a pipe does not.
constexpr std::chrono::milliseconds kWaitAtClose{500}, kWaitAtExit{2000};

/// All that have threads; never destroyed.
struct Registry {
  std::mutex mutex;
  std::vector<std::weak_ptr<Mailboxes>> all;

  void add(const std::shared_ptr<Mailboxes>& one) {
    const std::lock_guard lock(mutex);
    std::erase_if(all, [](const auto& each) { return each.expired(); });
    all.push_back(one);
  }
};
Registry& registry() {
  static auto* const one = new Registry();
  return *one;
}

/// Gives the messages of the sources, or of a part of each.
class Feed {
 public:
  /// @param cancel  ends the wait for a pipe.
  Feed(const MailboxOptions& options, const std::atomic<bool>& cancel)
      : m_options(options), m_cancel(cancel) {}

  bool operator()(SourceMessage& message) {
    for (; m_next < m_options.paths.size(); ++m_next) {
      if (!m_source)
        if (std::optional<Error> error = openNext()) return fail(message, *std::move(error));
      if (m_source->next(message)) return true;
      if (const Error* const error = m_source->error()) return fail(message, *error);
      m_source.reset();
    }
    return false;
  }

 private:
  std::optional<Error> openNext() {
    Result<MailSource> source = MailSource::open(m_options.paths[m_next], {}, m_cancel);
    if (!source) return std::move(source).error();
    m_source.emplace(*std::move(source));
    if (m_options.parts == 1) return std::nullopt;
    Result<void> limited = m_source->takePart(m_options.part, m_options.parts);
    return limited ? std::nullopt : std::optional(std::move(limited).error());
  }

  bool fail(SourceMessage& message, Error error) {
    message = {};
    message.path = m_options.paths[m_next++];
    message.error = std::move(error);
    m_source.reset();
    return true;
  }

  const MailboxOptions& m_options;
  const std::atomic<bool>& m_cancel;
  std::optional<MailSource> m_source;
  std::size_t m_next = 0;
};

}  // namespace

Mailboxes::Mailboxes(MailboxOptions options) : m_options(std::move(options)), m_process(getpid()) {}

std::shared_ptr<Mailboxes> Mailboxes::start(MailboxOptions options) {
  const std::shared_ptr<Mailboxes> one(new Mailboxes(std::move(options)));
  try {
    one->m_thread = std::thread([one] { one->run(); });
  } catch (const std::system_error&) {
    throw Failure("NoMemoryError", "no thread can be started");
  }
  registry().add(one);
  return one;
}

Mailboxes::~Mailboxes() {
  if (m_thread.joinable()) m_thread.detach();  // in a child process, which does not have it
}

bool Mailboxes::isOfThisProcess() const { return getpid() == m_process; }

void Mailboxes::close(std::chrono::milliseconds wait) {
  if (!isOfThisProcess()) return;
  m_isClosed = m_isCancelled = true;
  {
    const std::lock_guard lock(m_mutex);
    m_changed.notify_all();
  }
  const std::lock_guard taker(m_takers);
  m_taken.clear();
  if (!m_thread.joinable()) return;
  std::unique_lock lock(m_mutex);
  m_ready.clear();
  const bool hasEnded = m_changed.wait_for(lock, wait, [this] { return m_end.has_value(); });
  lock.unlock();
  hasEnded ? m_thread.join() : m_thread.detach();
}

void Mailboxes::closeAll() {
  std::vector<std::weak_ptr<Mailboxes>> all;
  {
    const std::lock_guard lock(registry().mutex);
    all.swap(registry().all);
  }
  for (const std::weak_ptr<Mailboxes>& each : all)
    if (const std::shared_ptr<Mailboxes> mailboxes = each.lock()) mailboxes->close(kWaitAtExit);
}

void Mailboxes::run() {
  struct Made {
    std::optional<Item> item;
    std::size_t bytes = 0;
  };
  const auto make = [this, lazy = LazyMessage(m_options.keys ? &m_options.keys->keys : nullptr)](
                        SourceMessage& message) mutable -> Made {
    if (message.error) return {Item{Place(message), *message.error}, 0};
    std::unique_lock<KeyMutex> keys;
    std::shared_lock<std::shared_mutex> gate;  // which the keys hold too
    if (m_options.keys)
      keys = std::unique_lock(m_options.keys->mutex);
    else
      gate = std::shared_lock(forkGate());
    lazy.assign(message);
    if (m_options.where && !m_options.where->matches(lazy)) return {};
    return {Item{Place(message), lazy.takeMessage()}, message.bytes.size()};
  };
  const auto take = [this](SourceMessage&, Made& made) {
    return !made.item || add(*std::move(made.item), made.bytes);
  };
  StreamOptions options = {.threads = m_options.keys ? 1 : m_options.threads, .budget = m_options.memory};
  options.cancel = &m_isCancelled;
  StreamEnd end = StreamEnd::noMemory;
  try {
    const auto feed = std::make_shared<Feed>(m_options, m_isCancelled);  // a function must be copyable
    end = streamMessages([feed](SourceMessage& message) { return (*feed)(message); }, make, take, options);
  } catch (const std::bad_alloc&) {
    end = StreamEnd::noMemory;
  }
  endWith(end);
}

/// Waits until there is room. False when nobody wants more.
bool Mailboxes::add(Item&& item, std::size_t bytes) {
  std::unique_lock lock(m_mutex);
  m_changed.wait(lock, [this] { return m_readyBytes < m_options.memory || m_isCancelled; });
  m_ready.push_back(std::move(item));
  m_readyBytes += bytes + kOverhead;
  if (m_isOneEnough || isMuch(m_ready.size(), m_readyBytes)) m_changed.notify_all();
  return !m_isCancelled;
}

void Mailboxes::endWith(StreamEnd end) {
  const std::lock_guard lock(m_mutex);
  m_end = end;
  m_changed.notify_all();
}

std::optional<Mailboxes::Item> Mailboxes::popTaken() {
  if (m_taken.empty()) return std::nullopt;
  std::optional<Item> item = std::move(m_taken.back());
  m_taken.pop_back();
  return item;
}

Mailboxes::Step Mailboxes::takeAtOnce(std::optional<Item>& item) {
  if (!isOfThisProcess()) throw Failure("ClosedError", "the messages are read by another process");
  const std::unique_lock taker(m_takers, std::try_to_lock);
  if (!taker.owns_lock()) return Step::wait;
  if (m_isClosed) throw Failure("ClosedError", "the mailboxes are closed");
  item = popTaken();
  return item ? Step::item : Step::wait;
}

Mailboxes::Step Mailboxes::waitFor(std::optional<Item>& item) {
  constexpr std::chrono::milliseconds kForMore{1}, kWhile{100};  // then Python looks for Ctrl-C
  const std::lock_guard taker(m_takers);
  if (m_isClosed) throw Failure("ClosedError", "the mailboxes are closed");
  if ((item = popTaken())) return Step::item;
  std::unique_lock lock(m_mutex);
  const auto hasEnded = [this] { return m_end || m_isCancelled; };
  m_changed.wait_for(lock, kForMore, [&] { return isMuch(m_ready.size(), m_readyBytes) || hasEnded(); });
  m_isOneEnough = true;
  m_changed.wait_for(lock, kWhile, [&] { return !m_ready.empty() || hasEnded(); });
  m_isOneEnough = false;
  if (m_ready.empty() && m_end == StreamEnd::noMemory) throw Failure("NoMemoryError", "memory ran out");
  if (m_ready.empty()) return m_end ? Step::end : Step::wait;
  m_taken.swap(m_ready);
  m_readyBytes = 0;
  m_changed.notify_all();
  lock.unlock();
  std::ranges::reverse(m_taken);
  item = popTaken();
  return Step::item;
}

namespace {

/// What Python has: it also counts and says what to do about errors.
struct Messages {
  Messages(MailboxOptions options, bool isSkipping)
      : mailboxes(Mailboxes::start(std::move(options))), skips(isSkipping) {}
  Messages(const Messages&) = delete;
  Messages& operator=(const Messages&) = delete;
  ~Messages() { close(); }

  void close() const {
    const py::gil_scoped_release released;
    mailboxes->close(kWaitAtClose);
  }

  const std::shared_ptr<Mailboxes> mailboxes;
  const bool skips;
  std::uint64_t skipped = 0;
};

std::optional<Mailboxes::Item> nextItem(Mailboxes& mailboxes) {
  std::optional<Mailboxes::Item> item;
  Mailboxes::Step step = mailboxes.takeAtOnce(item);
  while (step == Mailboxes::Step::wait) {
    {
      const py::gil_scoped_release released;
      step = mailboxes.waitFor(item);
    }
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
  }
  return item;
}

MailPtr next(Messages& messages) {
  for (;;) {
    std::optional<Mailboxes::Item> item = nextItem(*messages.mailboxes);
    if (!item) throw py::stop_iteration();
    if (item->message) return std::make_shared<Mail>(*std::move(item->message), std::move(item->place));
    if (!messages.skips) {
      Error error = std::move(item->message).error();
      if (error.where.empty()) error.where = item->place.name;
      throw Failure(std::move(error));
    }
    ++messages.skipped;
  }
}

std::optional<Expression> expressionFrom(const py::object& where) {
  if (where.is_none()) return std::nullopt;
  if (py::isinstance<Wanted>(where)) return where.cast<const Wanted&>().expression;
  return Wanted(where.cast<Text>()).expression;
}

std::unique_ptr<Messages> openAll(const py::args& paths, const py::object& where, unsigned threads,
                                  const KeyRingPtr& keys, const Text& errors,
                                  std::pair<std::uint64_t, std::uint64_t> part, std::size_t memory) {
  if (errors.view != "raise" && errors.view != "skip")
    throw badValue("errors is \"raise\" or \"skip\", not \"" + errors.string() + '"');
  if (part.first >= part.second) throw badValue("a part is counted from 0 to one less than there are");
  MailboxOptions options = {.paths = {},
                            .where = expressionFrom(where),
                            .keys = keys,
                            .threads = threads,
                            .memory = std::max<std::size_t>(memory, 1),
                            .part = part.first,
                            .parts = part.second};
  for (const py::handle path : paths) options.paths.push_back(pathFrom(path));
  return std::make_unique<Messages>(std::move(options), errors.view == "skip");
}

}  // namespace

void addMailboxes(py::module_& module) {
  py::class_<Messages> type(module, "Messages", py::is_final(), "What messages() returns: an iterator.");
  refusePickling(type);
  type.def("__iter__", [](const py::object& self) { return self; })
      .def("__next__", &next)
      .def_readonly("skipped", &Messages::skipped, "How many could not be read, with errors=\"skip\".")
      .def("close", &Messages::close, "Ends the threads that read.")
      .def_property_readonly("closed",
                             [](const Messages& messages) { return messages.mailboxes->isClosed(); })
      .def("__repr__",
           [](const Messages& messages) {
             const std::string state = messages.mailboxes->isClosed() ? "closed" : "open";
             return toText("<mailtree.Messages, " + state + '>');
           })
      .def("__enter__", [](const py::object& self) { return self; })
      .def("__exit__", [](const Messages& messages, const py::args&) { messages.close(); });
  module.def("messages", &openAll, py::kw_only(), py::arg("where") = py::none(), py::arg("threads") = 0,
             py::arg("keys") = nullptr, py::arg("errors") = "raise",
             py::arg("part") = std::pair<std::uint64_t, std::uint64_t>(0, 1), py::arg("memory") = kMemory,
             R"(The messages of mailboxes, folders, archives and files, in order; read ahead by other threads.

>>> import mailtree
>>> for mail in mailtree.messages("samples", where="type:application/pdf", threads=0):
...     print(mail.place.path, [part.name for part in mail.attachments][:1])
samples/attachments.eml ['offer 2026.pdf']

where: an expression, as for `mailtree find`; threads: 0 is one for each core; errors: "raise", after which
the next message follows, or "skip"; part: (k, n) is the k-th of n parts of each source, counted from 0;
memory: bytes of messages that are read and not taken.)");
  py::module_::import("atexit").attr("register")(py::cpp_function([] {
    const py::gil_scoped_release released;
    Mailboxes::closeAll();
  }));
}

}  // namespace mailtree::python
