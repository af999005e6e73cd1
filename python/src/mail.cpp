#include "python/src/mail.h"

#include <pybind11/stl.h>

#include "python/src/values.h"

namespace mailtree::python {

Place::Place(const SourceMessage& message)
    : path(message.path),
      entry(message.entry),
      folder(message.folder),
      sender(message.sender),
      name(nameOf(message)),
      number(message.number),
      offset(message.offset),
      length(message.length),
      flags(message.flags),
      date(message.date) {}

py::object toPlace(const Place& place) {
  const auto toPath = [](const std::string& path) {
    PyObject* const text =
        PyUnicode_DecodeFSDefaultAndSize(path.data(), static_cast<Py_ssize_t>(path.size()));
    if (!text) throw py::error_already_set();
    return py::reinterpret_steal<py::str>(text);
  };
  return make("Place", toPath(place.path), toText(place.entry), place.number, place.offset, place.length,
              toPath(place.folder), orNone(place.flags, toText), toText(place.sender),
              orNone(place.date, [](std::chrono::sys_seconds time) { return toDatetime(time); }),
              toPath(place.name));
}

Place placeFrom(const py::object& place) {
  const auto text = [&place](const char* name) { return place.attr(name).cast<Text>().string(); };
  const auto number = [&place](const char* name) { return place.attr(name).cast<std::uint64_t>(); };
  Place found;
  found.path = pathFrom(place.attr("path"));
  found.entry = text("entry");
  found.folder = pathFrom(place.attr("folder"));
  found.sender = text("sender");
  found.name = pathFrom(place.attr("name"));
  found.number = number("number");
  found.offset = number("offset");
  found.length = number("length");
  if (!place.attr("flags").is_none()) found.flags = text("flags");
  if (!place.attr("date").is_none()) found.date = dateFrom(place.attr("date")).time;
  return found;
}

Content& Mail::open() const {
  if (!content) throw Failure("ClosedError", "the message is closed");
  return *content;
}

const Part& PartView::current() const {
  mail->open();
  if (changes != mail->changes)
    throw Failure("StaleError", "the part is of a message that was changed since then");
  return part;
}

py::list toParts(const MailPtr& mail, const std::vector<Part>& parts, std::uint64_t changes) {
  py::list list(parts.size());
  for (std::size_t i = 0; i < parts.size(); ++i) list[i] = py::cast(PartView{mail, parts[i], changes});
  return list;
}

std::string bytesOf(Mail& mail, const WriteOptions& options) {
  return unlocked(mail.mutex, [&] {
    return mail.whileWriting([&](const Message& message) { return valueOf(message.toString(options)); });
  });
}

}  // namespace mailtree::python
