// A message as a Python object: made, copied, compared, pickled, closed.
#include <pybind11/stl.h>

#include "python/src/keys.h"
#include "python/src/mail.h"
#include "python/src/values.h"

namespace mailtree::python {
namespace {

using M = Message;

MailPtr parse(const Bytes& data, const KeyRingPtr& ring) {
  const py::gil_scoped_release released;
  return withKeys(ring, [&](const Keys* keys) {
    return std::make_shared<Mail>(valueOf(M::parse(data.view(), {.keys = keys})));
  });
}

MailPtr open(const Path& path, const KeyRingPtr& ring) {
  const py::gil_scoped_release released;
  return withKeys(ring, [&](const Keys* keys) {
    return std::make_shared<Mail>(valueOf(M::open(path.value, {.keys = keys})));
  });
}

MailPtr compose(const Addresses& from, const Addresses& to, const Addresses& cc, const Addresses& bcc,
                const Text& subject, const Text& text, const Text& html) {
  const ComposeOptions options = {from.asText(),    to.asText(),   cc.asText(),  bcc.asText(),
                                  subject.string(), text.string(), html.string()};
  const py::gil_scoped_release released;
  return std::make_shared<Mail>(valueOf(M::compose(options)));
}

MailPtr copyOf(Mail& mail) {
  return unlocked(mail.mutex,
                  [&] { return std::make_shared<Mail>(valueOf(mail.open().message.clone()), mail.place); });
}

MailPtr restore(const Bytes& data, const py::object& place) {
  std::optional<Place> where;
  if (!place.is_none()) where = placeFrom(place);
  const py::gil_scoped_release released;
  return std::make_shared<Mail>(valueOf(M::parse(data.view())), std::move(where));
}

std::string reprOf(const Mail& mail) {
  if (!mail.content) return "<mailtree.Message, closed>";
  struct Facts {
    std::string subject, from;
    std::optional<Date> date;
    std::size_t attachments;
  };
  const Facts facts = ask(mail, [](const M& m) {
    return Facts{m.subject(), m.from().address, m.date(), m.attachments().size()};
  });
  std::string text = "<mailtree.Message " + py::repr(toText(facts.subject)).cast<std::string>();
  if (!facts.from.empty()) text += " from " + facts.from;
  if (facts.date) text += ", " + facts.date->text();
  if (facts.attachments > 0)
    text += ", " + std::to_string(facts.attachments) + (facts.attachments == 1 ? " file" : " files");
  return text + '>';
}

/// None when it cannot be written.
std::optional<std::string> wholeOf(Mail& mail) {
  try {
    return bytesOf(mail, kWhole);
  } catch (const Failure&) {
    return std::nullopt;
  }
}

bool isEqual(const MailPtr& one, const MailPtr& other) {
  if (one == other) return true;
  const std::optional<std::string> bytes = wholeOf(*one);
  return bytes && bytes == wholeOf(*other);
}

void close(Mail& mail) {
  std::shared_ptr<Content> content;
  locked(mail.mutex, [&] { content = std::move(mail.content); });
}

}  // namespace

void addMessageObject(MailClass& type) {
  type.def(py::init([] { return std::make_shared<Mail>(M()); }),
           "A new message: dated now, with a Message-ID, without sender, recipients and text.");
  type.def("__copy__", &copyOf);
  type.def(
      "__deepcopy__", [](Mail& mail, const py::dict&) { return copyOf(mail); }, py::arg("memo"));
  type.def("__reduce__", [](Mail& mail) {
    const py::object restoring = py::module_::import("mailtree.standard").attr("restore");
    return py::make_tuple(restoring,
                          py::make_tuple(toBytes(bytesOf(mail, {.bcc = true})), orNone(mail.place, toPlace)));
  });
  type.def("__eq__", [](const MailPtr& one, const py::object& other) -> py::object {
    if (!py::isinstance<Mail>(other)) return py::reinterpret_borrow<py::object>(Py_NotImplemented);
    return py::bool_(isEqual(one, other.cast<MailPtr>()));
  });
  type.attr("__hash__") = py::none();
  type.def("__repr__", [](const Mail& mail) { return toText(reprOf(mail)); });
  type.def("close", &close, "Frees its memory; views of bodies stay valid. It can only be closed again.");
  type.def_property_readonly("closed", [](const Mail& mail) { return !mail.content; });
  type.def("__enter__", [](const MailPtr& mail) { return ask(*mail, [](const M&) { return 0; }), mail; });
  type.def("__exit__", [](Mail& mail, const py::args&) { close(mail); });
  type.def(
      "to_email",
      [](const py::object& mail) { return py::module_::import("mailtree.standard").attr("to_email")(mail); },
      "The same as an email.message.EmailMessage of the standard library.");
  type.def_static(
      "from_email",
      [](const py::object& message) {
        return py::module_::import("mailtree.standard").attr("from_email")(message);
      },
      py::arg("message"),
      R"(Reads a message of the standard library.

>>> import email.message, mailtree
>>> message = email.message.EmailMessage()
>>> message["Subject"] = "Grüße"
>>> message.set_content("Bis bald")
>>> mailtree.Message.from_email(message).subject
'Grüße'
)");
}

void addMessageFunctions(py::module_& module) {
  module.def("open", &open, py::arg("path"), py::kw_only(), py::arg("keys") = nullptr,
             R"(Reads a message from a file.

>>> import mailtree
>>> mail = mailtree.open("samples/newsletter.eml")
>>> mail.from_.name, mail.date.year, [part.name for part in mail.inline_items]
('Grünkohl & Freunde', 2026, ['logo.png'])
)");
  module.def("parse", &parse, py::arg("data"), py::kw_only(), py::arg("keys") = nullptr,
             R"(Reads a message from bytes, any other buffer, or a str. Any bytes are a message.

>>> import mailtree
>>> mailtree.parse(b"Subject: =?utf-8?q?Gr=C3=BC=C3=9Fe?=\n\nHello").subject
'Grüße'
)");
  module.def("compose", &compose, py::kw_only(), py::arg("from_") = py::none(), py::arg("to") = py::none(),
             py::arg("cc") = py::none(), py::arg("bcc") = py::none(), py::arg("subject") = "",
             py::arg("text") = "", py::arg("html") = "",
             R"(A new message.

>>> import mailtree
>>> mail = mailtree.compose(from_="anna@berg.example", to="jo@see.example", subject="Boat", text="Shall we?")
>>> mail.attach("plan.txt", "At nine")
>>> mail
<mailtree.Message 'Boat' from anna@berg.example, ..., 1 file>
)");
  module.def("_restore", &restore);
}

}  // namespace mailtree::python
