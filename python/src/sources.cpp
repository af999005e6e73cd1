// Where messages come from: one mailbox, folder or file after the other, message by message.
#include <pybind11/stl.h>

#include "python/src/keys.h"
#include "python/src/mail.h"
#include "python/src/values.h"

namespace mailtree::python {
namespace {

struct Source {
  explicit Source(std::string where) : path(std::move(where)) {}

  const std::string path;
  std::mutex mutex;
  std::optional<MailSource> source;
  SourceOptions options;

  MailSource& open() {
    if (!source) throw Failure("ClosedError", "the source is closed", path);
    return *source;
  }
};

/// A message of a source, before it is read.
struct Entry {
  SourceMessage message;
  SourceOptions options;
  std::mutex mutex;

  const std::string& bytes() {
    check(readMessage(message, options));
    return message.bytes;
  }
};

const char* nameOf(MailSource::Kind kind) noexcept {
  switch (kind) {
    case MailSource::Kind::message: return "message";
    case MailSource::Kind::mbox: return "mbox";
    case MailSource::Kind::maildir: return "maildir";
    case MailSource::Kind::mh: return "mh";
    case MailSource::Kind::folder: return "folder";
    case MailSource::Kind::archive: return "archive";
  }
  return "";
}

std::shared_ptr<Source> open(const Path& path, std::uint64_t largest, bool headersOnly) {
  auto source = std::make_shared<Source>(path.value);
  source->options.largest = largest;
  source->options.headersOnly = headersOnly;
  unlocked(source->mutex, [&] { source->source = valueOf(MailSource::open(source->path, source->options)); });
  return source;
}

std::unique_ptr<Entry> next(Source& source) {
  auto entry = std::make_unique<Entry>();
  const bool isThere = unlocked(source.mutex, [&] {
    MailSource& reader = source.open();
    if (reader.next(entry->message)) return true;
    if (reader.error()) throw Failure(*reader.error());
    return false;
  });
  if (!isThere) throw py::stop_iteration();
  if (entry->message.error) throw Failure(*std::move(entry->message.error));
  entry->options = source.options;
  return entry;
}

template <class F>
void change(Source& source, F&& f) {
  unlocked(source.mutex, [&] { check(f(source.open())); });
}

void close(Source& source) {
  unlocked(source.mutex, [&] { source.source.reset(); });
}

void addPosition(py::class_<Source, std::shared_ptr<Source>>& type) {
  type.def(
          "seek_number",
          [](Source& source, std::uint64_t number) {
            change(source, [&](MailSource& s) { return s.seekNumber(number); });
          },
          py::arg("number"),
          "The next message will be this one, counted from 1; not one that has been given.")
      .def(
          "seek_offset",
          [](Source& source, std::uint64_t offset) {
            change(source, [&](MailSource& s) { return s.seekOffset(offset); });
          },
          py::arg("offset"), "The next message of an mbox will be the one whose separator line is there.")
      .def(
          "take_part",
          [](Source& source, std::uint64_t part, std::uint64_t parts) {
            change(source, [&](MailSource& s) { return s.takePart(part, parts); });
          },
          py::arg("part"), py::arg("parts"),
          "Limits a source that was just opened to one of so many parts, counted from 0.")
      .def(
          "take_bytes",
          [](Source& source, std::uint64_t begin, std::uint64_t end) {
            change(source, [&](MailSource& s) { return s.takeBytes(begin, end); });
          },
          py::arg("begin"), py::arg("end"), "Limits an mbox to the messages that begin in a range of bytes.");
}

std::string reprOf(Source& source) {
  return locked(source.mutex, [&] {
    const char* const kind = source.source ? nameOf(source.source->kind()) : "closed";
    return "<mailtree.Source '" + source.path + "', " + kind + '>';
  });
}

}  // namespace

void addSources(py::module_& module) {
  py::class_<Entry> entryType(module, "Entry", py::is_final(),
                              "A message of a Source, which is read when it is asked for.");
  refusePickling(entryType);
  entryType
      .def_property_readonly(
          "place", [](const Entry& entry) { return toPlace(Place(entry.message)); }, "Where it is: a Place.")
      .def_property_readonly(
          "data", [](Entry& entry) { return toBytes(unlocked(entry.mutex, [&] { return entry.bytes(); })); },
          "Its bytes.")
      .def(
          "message",
          [](Entry& entry, const KeyRingPtr& ring) {
            return unlocked(entry.mutex, [&] {
              const std::string& bytes = entry.bytes();
              return withKeys(ring, [&](const Keys* keys) {
                return std::make_shared<Mail>(valueOf(Message::parse(bytes, {.keys = keys})),
                                              Place(entry.message));
              });
            });
          },
          py::arg("keys") = nullptr, "Reads it.")
      .def("__repr__",
           [](const Entry& entry) { return toText("<mailtree.Entry " + nameOf(entry.message) + '>'); });

  py::class_<Source, std::shared_ptr<Source>> type(
      module, "Source", py::is_final(),
      R"(The messages of an mbox, Maildir, MH folder, folder of files, archive or file, one after the other.

A message that cannot be given raises an error, and the next one follows after it.

>>> import mailtree
>>> with mailtree.Source("samples") as source:
...     [entry.place.name for entry in source][:2]
['samples/attachments.eml', 'samples/broken.eml']
)");
  refusePickling(type);
  type.def(py::init(&open), py::arg("path"), py::kw_only(), py::arg("largest") = SourceOptions().largest,
           py::arg("headers_only") = false)
      .def_property_readonly(
          "kind",
          [](Source& source) { return locked(source.mutex, [&] { return nameOf(source.open().kind()); }); },
          "\"message\", \"mbox\", \"maildir\", \"mh\", \"folder\" or \"archive\".")
      .def("__iter__", [](const py::object& self) { return self; })
      .def("__next__", &next)
      .def("close", &close)
      .def_property_readonly(
          "closed", [](Source& source) { return locked(source.mutex, [&] { return !source.source; }); })
      .def("__enter__", [](const py::object& self) { return self; })
      .def("__exit__", [](Source& source, const py::args&) { close(source); })
      .def("__repr__", [](Source& source) { return toText(reprOf(source)); });
  addPosition(type);
}

}  // namespace mailtree::python
