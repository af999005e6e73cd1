// What a message says: its fields, its texts and its parts.
#include <pybind11/stl.h>

#include <algorithm>

#include "python/src/mail.h"
#include "python/src/values.h"

namespace mailtree::python {
namespace {

/// A property that asks the message and converts the answer.
template <class Get, class Convert>
void addProperty(MailClass& type, const char* name, Get get, Convert convert, const char* doc) {
  type.def_property_readonly(
      name, [get, convert](const Mail& mail) -> py::object { return convert(ask(mail, get)); }, doc);
}

template <class Get>
void addParts(MailClass& type, const char* name, Get get, const char* doc) {
  type.def_property_readonly(
      name, [get](const MailPtr& mail) { return partsOf(mail, get); }, doc);
}

std::vector<std::string> allOf(const Mail& mail, std::string_view name) {
  std::vector<std::string> values;
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  const auto isSame = [&](std::string_view other) {
    return std::ranges::equal(name, other, [&](char a, char b) { return lower(a) == lower(b); });
  };
  for (Header& header : ask(mail, [](const Message& message) { return message.headers(); }))
    if (isSame(header.name)) values.push_back(std::move(header.value));
  return values;
}

std::optional<std::string> headerOf(const Mail& mail, const Text& name) {
  return ask(mail, [&](const Message& message) { return message.header(name.view); });
}

void addFields(MailClass& type) {
  type.def(
      "__getitem__",
      [](const Mail& mail, const Text& name) {
        const std::optional<std::string> value = headerOf(mail, name);
        if (!value) throw Failure("NotFoundError", "no such field", name.string());
        return toText(*value);
      },
      "The first field of that name, decoded; NotFoundError, which is a KeyError, when there is none.");
  type.def("__contains__",
           [](const Mail& mail, const Text& name) { return headerOf(mail, name).has_value(); });
  type.def(
      "get",
      [](const Mail& mail, const Text& name, const py::object& otherwise) {
        const std::optional<std::string> value = headerOf(mail, name);
        return value ? py::object(toText(*value)) : otherwise;
      },
      py::arg("name"), py::arg("default") = py::none(), "The first field of that name, else the default.");
  type.def(
      "get_all", [](const Mail& mail, const Text& name) { return toTexts(allOf(mail, name.view)); },
      py::arg("name"), "All fields of that name, decoded, in order.");
}

}  // namespace

void addMessageReading(MailClass& type) {
  using M = Message;
  addFields(type);
  addProperty(
      type, "headers", [](const M& m) { return m.headers(); }, toHeaders,
      "All fields, in order, as pairs of name and decoded value.");
  addProperty(
      type, "is_automatic", [](const M& m) { return m.isAutomatic(); }, [](bool is) { return py::bool_(is); },
      "Whether no program may answer it (RFC 3834).");
  addProperty(
      type, "report", [](const M& m) { return m.report(); },
      [](const std::optional<Report>& report) { return orNone(report, toReport); },
      "A bounce, a receipt or a complaint; None when it is none of these.");
  addProperty(
      type, "problems", [](const M& m) { return m.problems(); },
      [](const std::vector<Problem>& problems) { return toList(problems, toProblem); },
      "What is wrong with it: a list of Problem.");
  addProperty(
      type, "envelope", [](const M& m) { return m.envelope(); },
      [](const Envelope& envelope) {
        return make("Envelope", toText(envelope.sender), toTexts(envelope.recipients));
      },
      "Who it goes to, and where it is returned when it cannot be delivered (RFC 5321).");
  addParts(
      type, "displayed", [](const M& m) { return m.displayed(); }, "The parts that a reader sees, in order.");
  addParts(
      type, "attachments", [](const M& m) { return m.attachments(); },
      "The files: all that is neither shown as text nor part of the HTML.");
  addParts(
      type, "inline_items", [](const M& m) { return m.inlineItems(); },
      "What the HTML shows: pictures, referred to by cid or location.");
  addParts(
      type, "parts", [](const M& m) { return m.parts(); }, "Every part, depth-first, the root first.");
  type.def_property_readonly(
      "root",
      [](const MailPtr& mail) -> py::object {
        return partsOf(mail, [](const M& m) { return std::vector<Part>{m.root()}; })[0];
      },
      "The message as a part, \"1\".");
  type.def(
      "part",
      [](const MailPtr& mail, const Text& id) -> py::object {
        const py::list found = partsOf(mail, [&](const M& m) {
          const std::optional<Part> part = m.part(id.view);
          return part ? std::vector<Part>{*part} : std::vector<Part>();
        });
        return found.empty() ? py::object(py::none()) : found[0];
      },
      py::arg("id"), "The part \"1.2\"; None when there is no such part.");
  type.def_property_readonly(
      "messages",
      [](const Mail& mail) {
        std::vector<Message> inner = ask(mail, [](const M& m) { return m.messages(); });
        py::list list;
        for (Message& each : inner) list.append(py::cast(std::make_shared<Mail>(std::move(each))));
        return list;
      },
      "The attached messages, in order.");
  type.def(
      "preview",
      [](const Mail& mail, std::size_t length) {
        return toText(ask(mail, [length](const M& m) { return m.preview(length); }));
      },
      py::arg("length") = 256, "The beginning of the text on one line, without what is quoted.");
  type.def_property_readonly(
      "place", [](const Mail& mail) { return orNone(mail.place, toPlace); },
      "Where messages() or a Source found it; None for other messages.");
}

}  // namespace mailtree::python
