// Expressions, and which messages belong to one conversation.
#include "mailtree/message/Expression.h"

#include <pybind11/stl.h>

#include "mailtree/message/LazyMessage.h"
#include "mailtree/message/Threads.h"
#include "python/src/expressions.h"
#include "python/src/keys.h"
#include "python/src/mail.h"
#include "python/src/values.h"

namespace mailtree::python {
namespace {

bool matches(const Wanted& wanted, const py::object& message, const KeyRingPtr& ring) {
  SourceMessage source;
  if (py::isinstance<Mail>(message))
    source.bytes = bytesOf(message.cast<Mail&>(), kWhole);
  else
    source.bytes = message.cast<Bytes>().view();
  source.hasBytes = true;
  const py::gil_scoped_release released;
  return withKeys(ring, [&](const Keys* keys) {
    LazyMessage lazy(keys);
    lazy.assign(source);
    return wanted.expression.matches(lazy);
  });
}

py::list conversationsOf(const py::iterable& messages) {
  Threads threads;
  for (const py::handle each : messages) {
    const auto entry = ask(each.cast<const Mail&>(), [](const Message& message) {
      const std::optional<Date> date = message.date();
      return Threads::Entry{message.messageId(), message.inReplyTo(), message.references(), message.subject(),
                            date ? std::optional(date->time) : std::nullopt};
    });
    threads.add(entry);
  }
  const std::vector<Threads::Row> rows = [&] {
    const py::gil_scoped_release released;
    return threads.rows();
  }();
  return toList(
      rows, [](const Threads::Row& row) { return make("ThreadRow", row.message, row.thread, row.depth); });
}

}  // namespace

Wanted::Wanted(const Text& given)
    : text(given.string()), expression(valueOf(Expression::parse(given.view))) {}

void addExpressions(py::module_& module) {
  py::class_<Wanted>(module, "Expression", py::is_final(),
                     R"(Which messages somebody looks for, as `mailtree find` knows them.

>>> import mailtree
>>> wanted = mailtree.Expression("from:gruenkohl and not has:attachment")
>>> wanted.matches(mailtree.open("samples/newsletter.eml"))
True
>>> mailtree.Expression("from:")
Traceback (most recent call last):
mailtree.errors.BadValueError: column 6: a value is missing after from:
)")
      .def(py::init<const Text&>(), py::arg("text"))
      .def("matches", &matches, py::arg("message"), py::arg("keys") = nullptr,
           "Whether a Message, or the bytes of one, is wanted. Encrypted content is looked at with these "
           "keys, "
           "also of a message that was opened with some.")
      .def("__str__", [](const Wanted& wanted) { return toText(wanted.text); })
      .def("__repr__",
           [](const Wanted& wanted) {
             return py::str("mailtree.Expression({!r})").format(toText(wanted.text));
           })
      .def("__eq__",
           [](const Wanted& one, const py::object& other) -> py::object {
             if (!py::isinstance<Wanted>(other)) return py::reinterpret_borrow<py::object>(Py_NotImplemented);
             return py::bool_(one.text == other.cast<const Wanted&>().text);
           })
      .def("__hash__", [](const Wanted& wanted) { return py::hash(toText(wanted.text)); })
      .def("__reduce__", [](const Wanted& wanted) {
        return py::make_tuple(py::type::of<Wanted>(), py::make_tuple(toText(wanted.text)));
      });
  module.def("conversations", &conversationsOf, py::arg("messages"),
             R"(Which of the messages belong to one conversation (RFC 5256): a ThreadRow for each, in order.

>>> import mailtree
>>> mail = mailtree.open("samples/plain.eml")
>>> [row.depth for row in mailtree.conversations([mail, mail.reply(from_="jo@see.example")])]
[0, 1]
)");
}

}  // namespace mailtree::python
