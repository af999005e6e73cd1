// A message as people think of it, changed at random and answered. The input is a message, a NUL and the
// operations; without a message a new one is made. What was set is read back, what fails changes nothing
// that is written, and everything can be read, written and read again at any time.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/tape.h"
#include "fuzz/target.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mailtree.h"

using namespace mailtree;
using fuzz::require;
using fuzz::Tape;

namespace {

constexpr int kMaxOperations = 12;

constexpr const char* kNames[] = {"a.txt", "b.eml", "c.html", "d.png", "", "é/..\\e", "f.ics"};
constexpr const char* kTypes[] = {"",          "text/plain",     "text/html",       "image/png",
                                  "text/x; y", "message/rfc822", "multipart/mixed", "application/pdf"};
constexpr const char* kFields[] = {"Subject", "X-A", "To", "Content-Type", "MIME-Version", "Content-ID"};
constexpr const char* kCharsets[] = {"", "utf-8", "iso-8859-1", "iso-2022-jp", "us-ascii", "unheard-of"};

std::string written(const Message& mail) {
  const Result<std::string> bytes = mail.toString({.inClear = true});
  return bytes ? *bytes : "(" + bytes.error().message + ")";
}

/// Everything that can be asked.
void read(const Message& mail) {
  for (const Part& part : mail.parts()) {
    require(mail.part(part.id()) == part, "a part is found by its id");
    require(isValidUtf8(part.text()), "text is utf-8");
    require(isValidUtf8(part.fileName()), "a name is utf-8");
  }
  require(isValidUtf8(mail.text()) && isValidUtf8(mail.html()) && isValidUtf8(mail.preview()),
          "texts are utf-8");
  for (const Message& inner : mail.messages()) require(isValidUtf8(inner.text()), "inner text is utf-8");
  const std::size_t count = mail.displayed().size() + mail.attachments().size() + mail.inlineItems().size() +
                            mail.problems().size() + mail.headers().size() + mail.to().size() +
                            mail.references().size() + mail.security().layers.size();
  const bool is = mail.report().has_value() || mail.calendar().has_value() || mail.isAutomatic();
  require(count + static_cast<std::size_t>(is) < 1'000'000, "all can be read");
}

class Changer {
 public:
  Changer(Message& mail, Tape& tape) : m_mail(mail), m_tape(tape) {}

  void run() {
    using Operation = void (Changer::*)();
    static constexpr Operation kOperations[] = {
        &Changer::setText,   &Changer::setHtml,     &Changer::prepend, &Changer::attach,
        &Changer::addInline, &Changer::removeSome,  &Changer::replace, &Changer::setHeader,
        &Changer::addresses, &Changer::setCharset,  &Changer::enclose, &Changer::answer,
        &Changer::forward,   &Changer::setCalendar, &Changer::reload,  &Changer::copy,
    };
    for (int i = 0; i < kMaxOperations && !m_tape.isAtEnd(); ++i) {
      (this->*m_tape.pick(kOperations))();
      read(m_mail);
    }
  }

 private:
  /// What could not be done left the message as it was.
  template <class Change>
  bool did(Change&& change) {
    const std::string before = written(m_mail);
    if (change()) return true;
    require(written(m_mail) == before, "what fails changes nothing");
    return false;
  }

  std::string line() {
    std::string text = m_tape.text();
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\r' || c == '\n'; }, ' ');
    return text;
  }

  void setText() {
    const std::string text = m_tape.text();
    if (!did([&] { return m_mail.setText(text).has_value(); }) || text.empty()) return;
    require(!m_mail.text().empty() || text.find_first_not_of(" \t\r\n\v\f") == text.npos,
            "a text that was set is there");
  }
  void setHtml() {
    const std::string html = m_tape.text();
    did([&] { return m_mail.setHtml(html).has_value(); });
  }
  void prepend() {
    const std::string text = m_tape.text();
    did([&] { return m_mail.prependText(text).has_value(); });
  }
  void attach() {
    const std::string bytes = m_tape.text();
    const char *const name = m_tape.pick(kNames), *const type = m_tape.pick(kTypes);
    did([&] { return m_mail.attach(name, bytes, {.type = type}).has_value(); });
  }
  void addInline() {
    const std::string bytes = m_tape.text(), id = m_tape.text();
    const char *const name = m_tape.pick(kNames), *const type = m_tape.pick(kTypes);
    did([&] { return m_mail.addInline(name, bytes, {.type = type, .contentId = id}).has_value(); });
  }
  void removeSome() {
    const std::vector<Part> parts = m_mail.parts();
    std::vector<Part> chosen;
    for (int i = m_tape.byte() % 3; i >= 0; --i) chosen.push_back(m_tape.pick(parts));
    if (m_tape.byte() % 2)
      did([&] { return m_mail.removeParts(chosen).has_value(); });
    else
      did([&] { return m_mail.removeAttachment(chosen.front()).has_value(); });
  }
  void replace() {
    const std::pair<std::string, std::string> words[] = {{m_tape.text(), m_tape.text()},
                                                         {"a", m_tape.text()}};
    did([&] { return m_mail.replaceWords(words).has_value(); });
  }
  void setHeader() {
    const char* const name = m_tape.pick(kFields);
    const std::string value = m_tape.text();
    const int how = m_tape.byte() % 3;
    did([&] {
      return (how == 0   ? m_mail.setHeader(name, value)
              : how == 1 ? m_mail.addHeader(name, value)
                         : m_mail.removeHeader(name))
          .has_value();
    });
  }
  void addresses() {
    const std::string list = line();
    if (!did([&] { return m_mail.setTo(list).has_value(); })) return;
    const std::vector<Address> to = m_mail.to();
    if (!did([&] { return m_mail.setTo(to).has_value(); })) return;
    require(m_mail.to() == to, "addresses are read back");
  }
  void setCharset() {
    const char* const name = m_tape.pick(kCharsets);
    did([&] { return m_mail.setCharset(name).has_value(); });
  }
  void enclose() {
    Result<Message> other = Message::parse(m_tape.text());
    if (other) did([&] { return m_mail.attachMessage(*other).has_value(); });
  }
  void setCalendar() {
    const std::string text = m_tape.text();
    did([&] { return m_mail.setCalendar({.method = "REQUEST", .text = text}).has_value(); });
  }
  void answer() {
    const int how = m_tape.byte();
    Result<Message> reply = m_mail.reply({.from = {"", "me@x.example"},
                                          .all = (how & 1) != 0,
                                          .text = m_tape.text(),
                                          .attachments = (how & 2) != 0});
    if (reply) keep(*std::move(reply));
  }
  void forward() {
    Result<Message> mail =
        m_mail.forward({.from = {"", "me@x.example"}, .asAttachment = m_tape.byte() % 2 == 0});
    if (mail) keep(*std::move(mail));
  }
  void reload() {
    Result<Message> again = Message::parse(written(m_mail));
    if (again) keep(*std::move(again));
  }
  void copy() {
    Result<Message> twin = m_mail.clone();
    if (!twin) return;
    require(written(*twin) == written(m_mail), "a copy is written alike");
    keep(*std::move(twin));
  }
  void keep(Message mail) { m_mail = std::move(mail); }

  Message& m_mail;
  Tape& m_tape;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = fuzz::textOf(data, size);
  const std::size_t end = input.find('\0');
  const std::string_view bytes = input.substr(0, end);
  Tape tape(end == std::string_view::npos ? std::string_view() : input.substr(end + 1));
  Message mail;
  if (!bytes.empty()) {
    Result<Message> parsed = Message::parse(bytes);
    require(parsed.has_value(), "any input is a message");
    mail = *std::move(parsed);
  }
  read(mail);
  Changer(mail, tape).run();
  const std::string once = written(mail);
  if (once.starts_with('(')) return 0;
  const Result<Message> again = Message::parse(once);
  require(again.has_value() && written(*again) == once, "what was written is read and written alike");
  return 0;
}
