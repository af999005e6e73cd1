// Changing a message: properties that may be set, and what is attached to it.
#include <pybind11/stl.h>

#include <array>
#include <map>

#include "python/src/mail.h"
#include "python/src/values.h"

namespace mailtree::python {
namespace {

using M = Message;

template <class F>
void changeOrThrow(Mail& mail, F&& f) {
  change(mail, [&](M& message) { check(f(message)); });
}

/// A text that is read and set.
template <class Get, class Set>
void addText(MailClass& type, const char* name, Get get, Set set, const char* doc) {
  type.def_property(
      name, [get](const Mail& mail) { return toText(ask(mail, [get](const M& m) { return (m.*get)(); })); },
      [set](Mail& mail, const Text& text) { changeOrThrow(mail, [&](M& m) { return (m.*set)(text.view); }); },
      doc);
}

using SetText = Result<void> (M::*)(std::string_view);
using SetList = Result<void> (M::*)(std::span<const Address>);

template <class Get>
void addAddresses(MailClass& type, const char* name, Get get, SetText setText, SetList setList,
                  const char* doc) {
  type.def_property(
      name,
      [get](const Mail& mail) { return toAddresses(ask(mail, [get](const M& m) { return (m.*get)(); })); },
      [setText, setList](Mail& mail, const Addresses& addresses) {
        changeOrThrow(mail, [&](M& m) {
          if (addresses.text) return (m.*setText)(*addresses.text);
          return (m.*setList)(addresses.list);
        });
      },
      doc);
}

void addWho(MailClass& type) {
  type.def_property(
      "from_",
      [](const Mail& mail) { return toAddressOrNone(ask(mail, [](const M& m) { return m.from(); })); },
      [](Mail& mail, const OneAddress& address) {
        const bool isEmpty = address.value == Address();
        changeOrThrow(mail, [&](M& m) { return isEmpty ? m.setFrom("") : m.setFrom(address.value); });
      },
      "The first author; None when there is none.");
  type.def_property(
      "sender",
      [](const Mail& mail) { return toAddressOrNone(ask(mail, [](const M& m) { return m.sender(); })); },
      [](Mail& mail, const OneAddress& address) {
        const std::string text = address.value == Address() ? "" : address.value.text();
        changeOrThrow(mail, [&](M& m) { return m.setSender(text); });
      },
      "The Sender field; None without one.");
  type.def_property(
      "reply_to",
      [](const Mail& mail) { return toAddresses(ask(mail, [](const M& m) { return m.replyTo(); })); },
      [](Mail& mail, const Addresses& addresses) {
        const std::string text = addresses.asText();
        changeOrThrow(mail, [&](M& m) { return m.setReplyTo(text); });
      },
      "A list of Address. May be set, as to.");
  addAddresses(type, "to", &M::to, &M::setTo, &M::setTo,
               "A list of Address. May be set: to a text as in an address field, an Address, or a list.");
  addAddresses(type, "cc", &M::cc, &M::setCc, &M::setCc, "A list of Address. May be set, as to.");
  addAddresses(type, "bcc", &M::bcc, &M::setBcc, &M::setBcc, "A list of Address. May be set, as to.");
}

void addFields(MailClass& type) {
  addText(type, "subject", &M::subject, &M::setSubject, "The subject, decoded. May be set.");
  addText(type, "message_id", &M::messageId, &M::setMessageId,
          "Without angle brackets, as all ids here. May be set.");
  addText(type, "in_reply_to", &M::inReplyTo, &M::setInReplyTo, "The first id. May be set.");
  addText(type, "list_id", &M::listId, &M::setListId,
          "Of a mailing list (RFC 2919), without angle brackets and description. May be set.");
  type.def_property(
      "references",
      [](const Mail& mail) { return toTexts(ask(mail, [](const M& m) { return m.references(); })); },
      [](Mail& mail, const py::iterable& ids) {
        const std::vector<std::string> list = textsFrom(ids);
        changeOrThrow(mail, [&](M& m) { return m.setReferences(list); });
      },
      "A list of ids. May be set.");
  type.def_property(
      "date",
      [](const Mail& mail) {
        return orNone(ask(mail, [](const M& m) { return m.date(); }),
                      [](const Date& date) { return toDatetime(date); });
      },
      [](Mail& mail, const py::object& datetime) {
        const Date date = dateFrom(datetime);
        changeOrThrow(mail, [&](M& m) { return m.setDate(date); });
      },
      "A datetime with its offset; None when no date can be read. May be set.");
  type.def("__setitem__", [](Mail& mail, const Text& name, const Text& value) {
    changeOrThrow(mail, [&](M& m) { return m.setHeader(name.view, value.view); });
  });
  type.def("__delitem__", [](Mail& mail, const Text& name) {
    changeOrThrow(mail, [&](M& m) { return m.removeHeader(name.view); });
  });
  type.def(
      "add_header",
      [](Mail& mail, const Text& name, const Text& value) {
        changeOrThrow(mail, [&](M& m) { return m.addHeader(name.view, value.view); });
      },
      py::arg("name"), py::arg("value"),
      "Adds a field; mail[name] = value replaces every field of that name.");
  type.def(
      "set_charset",
      [](Mail& mail, const Text& name) {
        changeOrThrow(mail, [&](M& m) { return m.setCharset(name.view); });
      },
      py::arg("name"),
      "The charset for texts and fields that are set from now on; utf-8 where it does not fit.");
}

void addContent(MailClass& type) {
  addText(type, "text", &M::text, &M::setText,
          "The plain text as a reader sees it; lines end in LF. May be set; an empty one removes it.");
  addText(type, "html", &M::html, &M::setHtml,
          "The HTML; empty when no part has any. May be set; an empty one removes it.");
  type.def(
      "prepend_text",
      [](Mail& mail, const Text& text) {
        changeOrThrow(mail, [&](M& m) { return m.prependText(text.view); });
      },
      py::arg("text"), "Puts text before the text, and before the HTML as a paragraph.");
  type.def_property(
      "calendar",
      [](const Mail& mail) {
        return orNone(ask(mail, [](const M& m) { return m.calendar(); }), [](const Calendar& calendar) {
          return make("Calendar", toText(calendar.method), toText(calendar.text));
        });
      },
      [](Mail& mail, const py::object& given) {
        if (!py::hasattr(given, "method") || !py::hasattr(given, "text"))
          throw py::type_error("a Calendar is wanted");
        const Calendar calendar = {given.attr("method").cast<Text>().string(),
                                   given.attr("text").cast<Text>().string()};
        changeOrThrow(mail, [&](M& m) { return m.setCalendar(calendar); });
      },
      "An invitation or another calendar object: a Calendar. May be set.");
  type.def(
      "replace_words",
      [](Mail& mail, const py::dict& given) {
        std::vector<std::pair<std::string, std::string>> words;
        for (const auto& [word, value] : given)
          words.emplace_back(word.cast<Text>().string(), value.cast<Text>().string());
        return change(mail, [&](M& m) { return valueOf(m.replaceWords(words)); });
      },
      py::arg("words"), "Replaces words in fields and texts, in one pass; returns how often.");
}

void removeParts(const MailPtr& mail, const py::args& given) {
  std::vector<PartView> views;
  for (const py::handle each : given) views.push_back(each.cast<const PartView&>());
  unlocked(mail->mutex, [&] {
    std::vector<std::string> ids;
    for (const PartView& view : views) {
      if (view.mail != mail) throw badValue("a part of another message");
      ids.push_back(view.current().id());
    }
    mail->change([&](M& message) {
      std::vector<Part> parts;  // of the copy, when there is one now
      for (const std::string& id : ids)
        if (const std::optional<Part> part = message.part(id)) parts.push_back(*part);
      check(message.removeParts(parts));
    });
  });
}

void addFiles(MailClass& type) {
  type.def(
      "attach",
      [](Mail& mail, const Text& name, const Bytes& data, const Text& mediaType, const Text& charset) {
        const AttachOptions options = {mediaType.string(), charset.string()};
        changeOrThrow(mail, [&](M& m) { return m.attach(name.view, data.view(), options); });
      },
      py::arg("name"), py::arg("data"), py::kw_only(), py::arg("type") = "", py::arg("charset") = "",
      "Attaches bytes, or a str in utf-8. The type follows from the name when none is given.");
  type.def(
      "attach_file",
      [](Mail& mail, const Path& path, const Text& mediaType, const Text& charset) {
        const AttachOptions options = {mediaType.string(), charset.string()};
        changeOrThrow(mail, [&](M& m) { return m.attachFile(path.value, options); });
      },
      py::arg("path"), py::kw_only(), py::arg("type") = "", py::arg("charset") = "", "Attaches a file.");
  type.def(
      "attach_message",
      [](Mail& mail, Mail& other) {
        // A copy, because two locks at once may block each other, and it may be the same message.
        const M copy = unlocked(other.mutex, [&] { return valueOf(other.open().message.clone()); });
        changeOrThrow(mail, [&](M& m) { return m.attachMessage(copy); });
      },
      py::arg("message"), "Attaches a message, byte for byte as it was read.");
  type.def(
      "add_inline",
      [](Mail& mail, const Text& name, const Bytes& data, const Text& mediaType, const Text& charset,
         const Text& contentId, const Text& location) {
        const InlineOptions options = {mediaType.string(), charset.string(), contentId.string(),
                                       location.string()};
        return toText(
            change(mail, [&](M& m) { return valueOf(m.addInline(name.view, data.view(), options)); }));
      },
      py::arg("name"), py::arg("data"), py::kw_only(), py::arg("type") = "", py::arg("charset") = "",
      py::arg("content_id") = "", py::arg("location") = "",
      "Adds something for the HTML to show, and returns its Content-ID for <img src=\"cid:...\">.");
  type.def("remove", &removeParts, "Removes parts: mail.remove(*mail.attachments).");
}

}  // namespace

void addMessageChanges(MailClass& type) {
  addWho(type);
  addFields(type);
  addContent(type);
  addFiles(type);
}

}  // namespace mailtree::python
