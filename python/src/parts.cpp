// The parts of a message.
#include <pybind11/stl.h>

#include "python/src/mail.h"
#include "python/src/values.h"

namespace mailtree::python {
namespace {

using PartClass = py::class_<PartView>;

template <class Get>
void addText(PartClass& type, const char* name, Get get, const char* doc) {
  type.def_property_readonly(
      name,
      [get](const PartView& view) {
        return toText(ask(view, [get](const Part& part) { return (part.*get)(); }));
      },
      doc);
}

template <class Get>
void addValue(PartClass& type, const char* name, Get get, const char* doc) {
  type.def_property_readonly(
      name,
      [get](const PartView& view) { return ask(view, [get](const Part& part) { return (part.*get)(); }); },
      doc);
}

py::object viewOf(const PartView& view) {
  std::shared_ptr<Content> content;
  std::unique_ptr<Body> body = locked(view.mail->mutex, [&] {
    const std::string_view bytes = view.current().bytes();
    return std::make_unique<Body>(view.mail->content, bytes);
  });
  const py::object buffer = py::cast(std::move(body));
  PyObject* const memory = PyMemoryView_FromObject(buffer.ptr());
  if (!memory) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(memory);
}

py::bytes contentOf(const PartView& view) {
  return toBytes(ask(view, [](const Part& part) { return std::string(part.bytes()); }));
}

bool isEqual(const PartView& one, const PartView& other) {
  return one.mail == other.mail && one.changes == other.changes && one.part == other.part;
}

std::string reprOf(const PartView& view) {
  try {
    return ask(view, [](const Part& part) {
      std::string text = "<mailtree.Part " + part.id() + ' ' + part.type();
      if (!part.name().empty()) text += " '" + part.name() + '\'';
      if (!part.isMultipart()) text += ", " + std::to_string(part.size()) + " bytes";
      return text + '>';
    });
  } catch (const Failure&) {
    return "<mailtree.Part of a message that was changed or closed>";
  }
}

void addTexts(PartClass& type) {
  addText(type, "id", &Part::id, "\"1\" is the message itself, \"1.2\" its second part.");
  addText(type, "type", &Part::type, "Media type in lower case.");
  addText(type, "name", &Part::name, "Decoded file name, without folders; empty when none is given.");
  addText(type, "file_name", &Part::fileName, "A name to save it under, safe on any system and never empty.");
  addText(type, "disposition", &Part::disposition,
          "\"inline\", \"attachment\", ...; empty when none is given.");
  addText(type, "content_id", &Part::contentId, "Without angle brackets.");
  addText(type, "location", &Part::location, "Content-Location.");
  addText(type, "charset", &Part::charset, "As labelled; empty when not.");
  addText(type, "encoding", &Part::encoding, "Content-Transfer-Encoding in lower case.");
  addText(type, "text", &Part::text, "The content of a text, decoded, with LF as line breaks; else empty.");
  addText(type, "sha256", &Part::sha256, "Of the content, in hexadecimal.");
}

void addContent(PartClass& type) {
  type.def_property_readonly(
      "data", &viewOf,
      R"(The decoded content as a read-only memoryview, not copied. It keeps what it shows alive, also when the
message is changed or closed.)");
  type.def_property_readonly("content", &contentOf, "The decoded content as bytes: a copy of data.");
  type.def("__bytes__", &contentOf);
  type.def(
      "save_in",
      [](const PartView& view, const Path& folder) {
        const std::string path =
            unlocked(view.mail->mutex, [&] { return valueOf(view.current().saveIn(folder.value)); });
        return py::module_::import("pathlib").attr("Path")(py::reinterpret_steal<py::object>(
            PyUnicode_DecodeFSDefaultAndSize(path.data(), static_cast<Py_ssize_t>(path.size()))));
      },
      py::arg("folder"),
      "Writes the content to a new file in a folder and returns its path; nothing is overwritten.");
  type.def(
      "message",
      [](const PartView& view) {
        return std::make_shared<Mail>(
            unlocked(view.mail->mutex, [&] { return valueOf(view.current().message()); }));
      },
      "The message in an attached message; BadValueError for any other part.");
}

}  // namespace

void addParts(py::module_& module) {
  py::class_<Body, std::unique_ptr<Body>> bodyType(module, "_Body", py::buffer_protocol(), py::is_final());
  refusePickling(bodyType);
  bodyType.def_buffer([](Body& body) {
    const std::string_view bytes = body.bytes();
    static const char nothing = 0;
    return py::buffer_info(const_cast<char*>(bytes.empty() ? &nothing : bytes.data()), 1, "B", 1,
                           {static_cast<py::ssize_t>(bytes.size())}, {py::ssize_t{1}}, /*readonly=*/true);
  });
  PartClass type(module, "Part", py::is_final(),
                 R"(A part of a message: a text, a file, or an enclosure of other parts.

It is valid until its message is changed; after that it raises StaleError.

>>> import mailtree
>>> part = mailtree.open("samples/attachments.eml").attachments[0]
>>> part
<mailtree.Part 1.2 application/pdf 'offer 2026.pdf', 584 bytes>
>>> bytes(part.data[:5])
b'%PDF-'
)");
  refusePickling(type);
  addTexts(type);
  addValue(type, "number", &Part::number, "The number that the command shows: from 0, depth-first.");
  addValue(type, "size", &Part::size, "Bytes of the content.");
  addValue(type, "is_text", &Part::isText, "A leaf with a text type.");
  addValue(type, "is_multipart", &Part::isMultipart, "An enclosure of other parts.");
  addValue(type, "is_message", &Part::isMessage, "message/rfc822 or message/global.");
  addContent(type);
  type.def_property_readonly(
      "headers",
      [](const PartView& view) { return toHeaders(ask(view, [](const Part& p) { return p.headers(); })); },
      "All its fields, in order, as pairs of name and decoded value.");
  type.def(
      "get",
      [](const PartView& view, const Text& name, const py::object& otherwise) {
        const auto value = ask(view, [&](const Part& part) { return part.header(name.view); });
        return value ? py::object(toText(*value)) : otherwise;
      },
      py::arg("name"), py::arg("default") = py::none(), "The first field of that name, else the default.");
  type.def_property_readonly(
      "parts",
      [](const PartView& view) {
        return toParts(view.mail, ask(view, [](const Part& part) { return part.parts(); }), view.changes);
      },
      "Its children, in order.");
  type.def("__eq__", [](const PartView& one, const py::object& other) -> py::object {
    if (!py::isinstance<PartView>(other)) return py::reinterpret_borrow<py::object>(Py_NotImplemented);
    return py::bool_(isEqual(one, other.cast<const PartView&>()));
  });
  type.def("__hash__", [](const PartView& view) {
    return std::hash<const void*>()(view.mail.get()) * 31 + static_cast<std::size_t>(view.part.number());
  });
  type.def("__repr__", [](const PartView& view) { return toText(reprOf(view)); });
}

}  // namespace mailtree::python
