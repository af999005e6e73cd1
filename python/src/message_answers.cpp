// Answering a message, and writing it.
#include <pybind11/stl.h>

#include "python/src/mail.h"
#include "python/src/values.h"

namespace mailtree::python {
namespace {

using M = Message;

/// A new message made of this one. It may write this one, so it is treated as that.
template <class F>
MailPtr answer(Mail& mail, F&& f) {
  return unlocked(mail.mutex, [&] {
    return std::make_shared<Mail>(mail.whileWriting([&](const M& message) { return valueOf(f(message)); }));
  });
}

Quote quoteNamed(std::string_view name) {
  if (name == "lines") return Quote::lines;
  if (name == "block") return Quote::block;
  if (name == "none") return Quote::none;
  throw badValue("not a way to quote: '" + std::string(name) + "'; there are lines, block and none");
}

void addReply(MailClass& type) {
  type.def(
      "reply",
      [](Mail& mail, const OneAddress& from, bool all, bool list, const Addresses& own, const Text& text,
         const Text& quote, bool attachments, bool automatic, const Addresses& to, const Addresses& cc) {
        const ReplyOptions options = {.from = from.value,
                                      .all = all,
                                      .list = list,
                                      .own = own.asList(),
                                      .text = text.string(),
                                      .quote = quoteNamed(quote.view),
                                      .attachments = attachments,
                                      .automatic = automatic,
                                      .to = to.asList(),
                                      .cc = cc.asList()};
        return answer(mail, [&](const M& m) { return m.reply(options); });
      },
      py::kw_only(), py::arg("from_"), py::arg("all") = false, py::arg("list") = false,
      py::arg("own") = py::none(), py::arg("text") = "", py::arg("quote") = "lines",
      py::arg("attachments") = false, py::arg("automatic") = false, py::arg("to") = py::none(),
      py::arg("cc") = py::none(),
      R"(An answer, which quotes what a reader sees.

>>> import mailtree
>>> mail = mailtree.open("samples/newsletter.eml")
>>> reply = mail.reply(from_="Jo <jo@see.example>", text="Thank you!", quote="none")
>>> reply.to[0].address, reply.text
('brief@gruenkohl.example', 'Thank you!')

all: to everyone; list: to the mailing list; own: further addresses of one's own, which get no copy;
quote: "lines", "block" or "none"; attachments: take the files along; automatic: nobody wrote it.)");
  type.def(
      "forward",
      [](Mail& mail, const OneAddress& from, const Addresses& to, const Addresses& cc, const Text& text,
         bool asAttachment) {
        const ForwardOptions options = {from.value, to.asList(), cc.asList(), text.string(), asAttachment};
        return answer(mail, [&](const M& m) { return m.forward(options); });
      },
      py::kw_only(), py::arg("from_"), py::arg("to") = py::none(), py::arg("cc") = py::none(),
      py::arg("text") = "", py::arg("as_attachment") = false, "A message that passes this one on.");
  type.def(
      "resend",
      [](Mail& mail, const OneAddress& from, const Addresses& to, const Addresses& cc, const Addresses& bcc) {
        const ResendOptions options = {from.value, to.asList(), cc.asList(), bcc.asList()};
        return answer(mail, [&](const M& m) { return m.resend(options); });
      },
      py::kw_only(), py::arg("from_"), py::arg("to") = py::none(), py::arg("cc") = py::none(),
      py::arg("bcc") = py::none(), "This message with Resent- fields before its header (RFC 5322, 3.6.6).");
}

void addWriting(MailClass& type) {
  type.def(
      "as_bytes",
      [](Mail& mail, bool bcc, bool dotStuff, bool asciiOnly, bool inClear) {
        return toBytes(bytesOf(mail, {bcc, dotStuff, asciiOnly, inClear}));
      },
      py::kw_only(), py::arg("bcc") = false, py::arg("dot_stuff") = false, py::arg("ascii_only") = false,
      py::arg("in_clear") = false,
      R"(The message as it is sent.

bcc: keep the Bcc field, as in a draft; dot_stuff: as in an SMTP dialogue; ascii_only: for servers
without 8BITMIME; in_clear: allow an answer to encrypted mail to be written unencrypted.)");
  type.def("__bytes__", [](Mail& mail) { return toBytes(bytesOf(mail, {})); });
  type.def(
      "write",
      [](Mail& mail, const py::object& file, bool bcc, bool dotStuff, bool asciiOnly, bool inClear) {
        file.attr("write")(toBytes(bytesOf(mail, {bcc, dotStuff, asciiOnly, inClear})));
      },
      py::arg("file"), py::kw_only(), py::arg("bcc") = false, py::arg("dot_stuff") = false,
      py::arg("ascii_only") = false, py::arg("in_clear") = false, "Writes it to a binary file object.");
  type.def(
      "save",
      [](Mail& mail, const Path& path, bool bcc, bool dotStuff, bool asciiOnly, bool inClear) {
        const WriteOptions options = {bcc, dotStuff, asciiOnly, inClear};
        unlocked(mail.mutex, [&] {
          mail.whileWriting([&](const M& message) { check(message.save(path.value, options)); });
        });
      },
      py::arg("path"), py::kw_only(), py::arg("bcc") = false, py::arg("dot_stuff") = false,
      py::arg("ascii_only") = false, py::arg("in_clear") = false,
      "Writes it to a file, whole or not at all; an existing file is replaced.");
  type.def(
      "check",
      [](Mail& mail) {
        unlocked(mail.mutex, [&] { mail.whileWriting([](const M& message) { check(message.check()); }); });
      },
      "Raises what sending it now would: NoRecipientError, or InClearError for an answer to encrypted mail.");
}

}  // namespace

void addMessageAnswers(MailClass& type) {
  addReply(type);
  addWriting(type);
}

}  // namespace mailtree::python
