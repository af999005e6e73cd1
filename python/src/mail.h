// python/src/mail.h - a message as Python holds it.
//
//   Threads    Each message has a lock. Whoever holds it runs no Python code and does not wait for the
//              interpreter lock, so the two cannot block each other.
//   Parts      A part knows the state of its message that it was made in, and refuses to serve a later one.
//   Bodies     A memoryview keeps the content that it shows. When a message is changed that has views, the
//              change is made to a copy of the content, and the views keep the old one.
#pragma once

#include <pybind11/pybind11.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "mailtree/message/Message.h"
#include "mailtree/store/MailSource.h"
#include "python/src/errors.h"

namespace mailtree::python {

namespace py = pybind11;

struct Content {
  explicit Content(Message given) : message(std::move(given)) {}

  Message message;
  std::atomic<int> views = 0;
};

/// Where a message was found; SourceMessage without its bytes.
struct Place {
  Place() = default;
  explicit Place(const SourceMessage& message);

  std::string path, entry, folder, sender, name;
  std::uint64_t number = 0, offset = 0, length = 0;
  std::optional<std::string> flags;
  std::optional<std::chrono::sys_seconds> date;
};

py::object toPlace(const Place& place);
Place placeFrom(const py::object& place);

struct Mail {
  explicit Mail(Message message, std::optional<Place> from = {})
      : content(std::make_shared<Content>(std::move(message))), place(std::move(from)) {}

  std::mutex mutex;
  std::shared_ptr<Content> content;  ///< Null when it is closed.
  std::uint64_t changes = 0;
  const std::optional<Place> place;

  /// These need the lock.
  Content& open() const;
  /// For what rewrites content while it writes: the message, or a copy of it while there are views.
  template <class F>
  auto whileWriting(F&& f) const {
    const Message& message = open().message;
    if (content->views == 0) return f(message);
    const Message copy = valueOf(message.clone());
    return f(copy);
  }
  /// Changes the message. When it fails, which it does by an exception, parts and views stay as they were.
  template <class F>
  auto change(F&& f) {
    open();
    const bool hasViews = content->views > 0;
    auto changed = hasViews ? std::make_shared<Content>(valueOf(content->message.clone())) : content;
    const auto done = [&] {
      content = std::move(changed);
      ++changes;
    };
    if constexpr (std::is_void_v<decltype(f(changed->message))>) {
      f(changed->message);
      done();
    } else {
      auto result = f(changed->message);
      done();
      return result;
    }
  }
};

using MailPtr = std::shared_ptr<Mail>;

/// A view of a part, with the message that it is of.
struct PartView {
  MailPtr mail;
  Part part;
  std::uint64_t changes;

  /// Needs the lock.
  const Part& current() const;
};

/// The bytes of a part, as a buffer.
class Body {
 public:
  Body(std::shared_ptr<Content> content, std::string_view bytes)
      : m_content(std::move(content)), m_bytes(bytes) {
    ++m_content->views;
  }
  Body(const Body&) = delete;
  Body& operator=(const Body&) = delete;
  ~Body() { --m_content->views; }

  std::string_view bytes() const noexcept { return m_bytes; }

 private:
  std::shared_ptr<Content> m_content;
  std::string_view m_bytes;
};

/// Runs `f` with a lock and without the interpreter lock.
template <class Mutex, class F>
auto unlocked(Mutex& mutex, F&& f) {
  const py::gil_scoped_release released;
  const std::lock_guard lock(mutex);
  return f();
}

/// Runs `f`, which is quick, with a lock; waits for it only without the interpreter lock.
template <class Mutex, class F>
auto locked(Mutex& mutex, F&& f) {
  {
    const std::unique_lock lock(mutex, std::try_to_lock);
    if (lock.owns_lock()) return f();
  }
  return unlocked(mutex, std::forward<F>(f));
}

/// Asks a message something quick.
template <class F>
auto ask(const Mail& mail, F&& f) {
  return locked(const_cast<Mail&>(mail).mutex, [&] { return f(std::as_const(mail.open().message)); });
}

/// Changes a message.
template <class F>
auto change(Mail& mail, F&& f) {
  return unlocked(mail.mutex, [&] { return mail.change(f); });
}

/// Asks a part something.
template <class F>
auto ask(const PartView& view, F&& f) {
  return locked(view.mail->mutex, [&] { return f(view.current()); });
}

py::list toParts(const MailPtr& mail, const std::vector<Part>& parts, std::uint64_t changes);
/// The parts that `f` finds in the message.
template <class F>
py::list partsOf(const MailPtr& mail, F&& f) {
  std::uint64_t changes = 0;
  const std::vector<Part> parts = locked(mail->mutex, [&] {
    changes = mail->changes;
    return f(std::as_const(mail->open().message));
  });
  return toParts(mail, parts, changes);
}

/// Writes a message in full.
std::string bytesOf(Mail& mail, const WriteOptions& options);
/// All there is, to be read again; a copy is no answer that goes out, so it may be in the clear.
constexpr WriteOptions kWhole = {.bcc = true, .inClear = true};

/// Refuses to pickle objects of a class: the oldest protocols would make empty ones.
template <class Class>
void refusePickling(Class& type) {
  type.def("__reduce_ex__", [](const py::object& self, const py::object&) -> py::object {
    throw py::type_error("cannot pickle '" + py::type::of(self).attr("__name__").cast<std::string>() +
                         "' object");
  });
}

using MailClass = py::class_<Mail, MailPtr>;

// The parts of the module.
void addMessageReading(MailClass& type);
void addMessageChanges(MailClass& type);
void addMessageAnswers(MailClass& type);
void addMessageSecurity(MailClass& type);
void addMessageObject(MailClass& type);
void addMessageFunctions(py::module_& module);
void addParts(py::module_& module);
void addKeys(py::module_& module);
void addSources(py::module_& module);
void addWriters(py::module_& module);
void addExpressions(py::module_& module);
void addMailboxes(py::module_& module);

}  // namespace mailtree::python
