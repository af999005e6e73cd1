// Where messages go: mbox, Maildir, folder of files, a stream.
#include <pybind11/stl.h>

#include "mailtree/store/MailWriter.h"
#include "python/src/mail.h"
#include "python/src/values.h"

namespace mailtree::python {
namespace {

struct Writer {
  Writer(std::string where, MailWriterPtr given) : path(std::move(where)), writer(std::move(given)) {}

  const std::string path;
  std::mutex mutex;
  MailWriterPtr writer;

  MailWriter& open() {
    if (!writer) throw Failure("ClosedError", "the writer is closed", path);
    return *writer;
  }
};

using WriterPtr = std::shared_ptr<Writer>;

template <class F>
WriterPtr opened(const std::string& path, F&& f) {
  const py::gil_scoped_release released;
  return std::make_shared<Writer>(path, valueOf(f()));
}

WriterPtr openMbox(const Path& path, double lockWait) {
  constexpr double kLongest = 1e9;
  if (!(lockWait >= 0 && lockWait <= kLongest)) throw badValue("not a time to wait");
  const MboxWriterOptions options = {std::chrono::milliseconds(static_cast<std::int64_t>(lockWait * 1000))};
  return opened(path.value, [&] { return openMboxWriter(path.value, options); });
}

void add(Writer& writer, std::string_view bytes, const std::string& sender,
         std::optional<std::chrono::sys_seconds> date, const std::optional<std::string>& flags) {
  Delivery delivery = {.sender = sender, .date = date, .flags = {}};
  if (flags) delivery.flags = *flags;
  unlocked(writer.mutex, [&] { check(writer.open().add(bytes, delivery)); });
}

void addGiven(Writer& writer, const py::object& message, const std::optional<Text>& sender,
              const py::object& date, const std::optional<Text>& flags, bool inClear) {
  const bool isMail = py::isinstance<Mail>(message);
  Place place;
  std::string written;
  std::optional<Bytes> given;
  if (isMail) {
    Mail& mail = message.cast<Mail&>();
    if (mail.place) place = *mail.place;
    written = bytesOf(mail, {.bcc = true, .inClear = inClear});
  } else {
    given = message.cast<Bytes>();
  }
  if (sender) place.sender = sender->string();
  if (!date.is_none()) place.date = dateFrom(date).time;
  if (flags) place.flags = flags->string();
  add(writer, isMail ? std::string_view(written) : given->view(), place.sender, place.date, place.flags);
}

void flush(Writer& writer) {
  unlocked(writer.mutex, [&] { check(writer.open().flush()); });
}

void close(Writer& writer) {
  unlocked(writer.mutex, [&] {
    if (!writer.writer) return;
    const MailWriterPtr last = std::move(writer.writer);
    check(last->flush());
  });
}

}  // namespace

void addWriters(py::module_& module) {
  py::class_<Writer, WriterPtr> type(
      module, "Writer", py::is_final(),
      R"(Adds messages to a mailbox; made by Writer.mbox, maildir, folder or stream.

What was added after the last flush() may be missing until close(), which the with statement calls.

>>> import mailtree, tempfile
>>> with tempfile.TemporaryDirectory() as folder:
...     with mailtree.Writer.mbox(folder + "/box.mbox") as box:
...         box.add(mailtree.open("samples/plain.eml"))
...     len(list(mailtree.messages(folder + "/box.mbox")))
1
)");
  refusePickling(type);
  type.def_static("mbox", &openMbox, py::arg("path"), py::kw_only(),
                  py::arg("lock_wait") = std::chrono::duration<double>(kLockWait).count(),
                  "Appends to an mbox, which is created when absent; waits for other programs that use it.")
      .def_static(
          "maildir",
          [](const Path& path) { return opened(path.value, [&] { return openMaildirWriter(path.value); }); },
          py::arg("path"), "Delivers to a Maildir, which is created when absent.")
      .def_static(
          "folder",
          [](const Path& path) { return opened(path.value, [&] { return openFolderWriter(path.value); }); },
          py::arg("path"), "Writes files 000001.eml and so on.")
      .def_static(
          "stream",
          [](int descriptor, const Path& name) {
            return opened(name.value, [&] { return openMboxStream(descriptor, name.value); });
          },
          py::arg("descriptor"), py::arg("name") = "stream", "Writes an mbox to a file descriptor.")
      .def("add", &addGiven, py::arg("message"), py::kw_only(), py::arg("sender") = py::none(),
           py::arg("date") = py::none(), py::arg("flags") = py::none(), py::arg("in_clear") = false,
           R"(Adds a Message or bytes. Sender and date are those of an mbox's separator line, flags those of
a Maildir; of a message that messages() found they are kept. An answer to encrypted mail is refused unless
in_clear is true.)")
      .def("flush", &flush, "Writes what was added and waits until it is on disk.")
      .def("close", &close)
      .def_property_readonly(
          "closed", [](Writer& writer) { return locked(writer.mutex, [&] { return !writer.writer; }); })
      .def("__enter__", [](const py::object& self) { return self; })
      .def("__exit__", [](Writer& writer, const py::args&) { close(writer); })
      .def("__repr__",
           [](const Writer& writer) { return toText("<mailtree.Writer '" + writer.path + "'>"); });
}

}  // namespace mailtree::python
