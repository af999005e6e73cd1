// The recipes of docs/guide.md, run one after the other: guide SAMPLES IDENTITIES SCRATCH.
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "mailtree/mailtree.h"

using namespace mailtree;

namespace {

Result<void> readMail(const std::string& file) {
  auto mail = Message::open(file);
  if (!mail) return mail.error();
  std::cout << mail->from().text() << ": " << mail->subject() << '\n';
  for (const Address& to : mail->to()) std::cout << "to " << to.name << " at " << to.address << '\n';
  if (const auto date = mail->date()) std::cout << date->text() << '\n';
  std::cout << mail->text();
  return {};
}

Result<void> saveFiles(const std::string& file, const std::string& folder) {
  auto mail = Message::open(file);
  if (!mail) return mail.error();
  for (const Part& attachment : mail->attachments()) {
    auto path = attachment.saveIn(folder);
    if (!path) return path.error();
    std::cout << *path << ", " << attachment.type() << ", " << attachment.size() << " bytes\n";
  }
  return {};
}

Result<void> walkParts(const std::string& file) {
  auto mail = Message::open(file);
  if (!mail) return mail.error();
  for (const Part& part : mail->parts())
    std::cout << part.id() << ' ' << part.type() << ' '
              << part.header("Content-Transfer-Encoding").value_or("-") << '\n';
  if (const auto part = mail->part("1.1")) std::cout << part->text();
  return {};
}

Result<void> readAttached(const std::string& file) {
  auto mail = Message::open(file);
  if (!mail) return mail.error();
  for (const Message& inner : mail->messages())
    std::cout << inner.from().address << ": " << inner.preview(80) << '\n';
  return {};
}

Result<void> composeText(const std::string& out) {
  auto mail = Message::compose({.from = "Anna Berg <anna@berg.example>",
                                .to = "jo@see.example, Büro <office@see.example>",
                                .subject = "Größe",
                                .text = "Hello,\n\nsee you on Monday.\n"});
  if (!mail) return mail.error();
  return mail->save(out);
}

Result<void> composePage(const std::string& picture, const std::string& out) {
  auto mail = Message::compose({.from = "anna@berg.example", .to = "jo@see.example", .subject = "The view"});
  if (!mail) return mail.error();
  auto cid = mail->addInline("view.png", picture);
  if (!cid) return cid.error();
  return mail->setHtml("<p>The <b>view</b>:</p><img src=\"cid:" + *cid + "\" alt=\"mountains\">")
      .and_then([&] { return mail->setText("The view: mountains.\n"); })
      .and_then([&] { return mail->save(out); });
}

Result<void> attachFiles(Message& mail, const std::string& path, const Message& other) {
  return mail.attach("dates.csv", "day;place\nMonday;Köln\n")
      .and_then([&] { return mail.attachFile(path); })
      .and_then([&] { return mail.attachMessage(other); });
}

Result<void> change(Message& mail) {
  const std::vector<std::pair<std::string, std::string>> words = {{"{{name}}", "Jo"}, {"{{day}}", "Monday"}};
  if (auto replaced = mail.replaceWords(words); !replaced) return replaced.error();
  const auto isArchive = [](const Part& file) { return file.type() == "application/zip"; };
  for (auto files = mail.attachments();; files = mail.attachments()) {
    const auto archive = std::ranges::find_if(files, isArchive);
    if (archive == files.end()) break;
    if (auto removed = mail.removeAttachment(*archive); !removed) return removed;
  }
  return mail.setCc("").and_then([&] { return mail.setHeader("X-Project", "Lake"); });
}

Result<void> reply(const std::string& file, const Address& me, const std::string& out) {
  auto mail = Message::open(file);
  if (!mail) return mail.error();
  auto answer = mail->reply({.from = me, .all = true, .text = "See you there."});
  if (!answer) return answer.error();
  return answer->save(out);
}

Result<void> answerAbsent(const Message& mail, const Address& me, const std::string& out) {
  if (mail.isAutomatic()) return {};
  auto answer =
      mail.reply({.from = me, .text = "I am back on Monday.", .quote = Quote::none, .automatic = true});
  if (!answer) return answer.error();
  return answer->save(out);
}

Result<void> forward(const std::string& file, const Address& me, const Address& to, const std::string& out) {
  auto mail = Message::open(file);
  if (!mail) return mail.error();
  auto forwarded = mail->forward({.from = me, .to = {to}, .text = "For you.", .asAttachment = true});
  if (!forwarded) return forwarded.error();
  return forwarded->save(out);
}

Result<void> resend(const std::string& file, const Address& me, const Address& to, const std::string& out) {
  auto mail = Message::open(file);
  if (!mail) return mail.error();
  auto again = mail->resend({.from = me, .to = {to}});
  if (!again) return again.error();
  return again->save(out);
}

Result<std::string> readyToSend(const Message& mail) {
  if (auto ready = mail.check(); !ready) return ready.error();
  const Envelope envelope = mail.envelope();
  std::cout << "MAIL FROM:<" << envelope.sender << ">\n";
  for (const std::string& recipient : envelope.recipients) std::cout << "RCPT TO:<" << recipient << ">\n";
  return mail.toString({.dotStuff = true});
}

Result<void> signAndEncrypt(Message& mail, const std::string& folder, const std::string& out) {
  Keys keys;
  return keys.addFile(folder + "/alice.p12", "secret")
      .and_then([&] { return keys.addFile(folder + "/bob.pem"); })
      .and_then([&] { return mail.sign(keys); })
      .and_then([&] { return mail.encrypt(keys); })
      .and_then([&] { return mail.save(out); });
}

Result<void> verify(const std::string& file, const Keys& keys) {
  auto mail = Message::open(file, {.keys = &keys});
  if (!mail) return mail.error();
  const Security& security = mail->security();
  std::cout << (security.isValid ? "valid: " : "not valid: ") << security.verdict << '\n';
  for (const SecurityLayer& layer : security.layers)
    for (const Signer& signer : layer.signers)
      std::cout << signer.digest << ", " << (signer.problem.empty() ? "faultless" : signer.problem) << '\n';
  return {};
}

Result<void> decrypt(const std::string& file, const Keys& keys, const std::string& out) {
  auto mail = Message::open(file, {.keys = &keys});
  if (!mail) return mail.error();
  std::cout << mail->text();
  return mail->decrypt(keys).and_then([&] { return mail->save(out); });
}

Result<void> readBounce(const std::string& file) {
  auto mail = Message::open(file);
  if (!mail) return mail.error();
  const auto report = mail->report();
  if (!report) return Error{ErrorCode::notFound, "not a report", file};
  for (const ReportRecipient& recipient : report->recipients)
    std::cout << recipient.address << ' ' << recipient.action << ' ' << recipient.status << ": "
              << recipient.diagnostic << '\n';
  std::cout << "about " << report->subject << '\n';
  return {};
}

Result<void> invite(const std::string& file, const std::string& out) {
  auto mail = Message::open(file);
  if (!mail) return mail.error();
  const auto calendar = mail->calendar();
  if (!calendar) return Error{ErrorCode::notFound, "not an invitation", file};
  std::cout << calendar->method << '\n' << calendar->text;

  auto invitation =
      Message::compose({.from = "anna@berg.example", .to = "jo@see.example", .subject = "Lunch"});
  if (!invitation) return invitation.error();
  return invitation->setText("Lunch on Monday?\n")
      .and_then([&] { return invitation->setCalendar({.method = "REQUEST", .text = calendar->text}); })
      .and_then([&] { return invitation->save(out); });
}

void listProblems(const Message& mail) {
  for (const Problem& problem : mail.problems())
    if (problem.severity >= Problem::Severity::warning)
      std::cout << problem.part << ": " << problem.text << '\n';
}

void askForAddress(Message& mail, const std::string& typed) {
  if (auto set = mail.setTo(typed); !set) std::cout << set.error().message << '\n';
}

Result<void> all(const std::string& samples, const std::string& identities, const std::string& scratch) {
  const auto sample = [&](const std::string& name) { return samples + "/" + name + ".eml"; };
  const auto scratched = [&](const std::string& name) { return scratch + "/" + name; };
  const Address alice{"Alice", "alice@example.com"}, bob{"Bob", "bob@example.com"};
  Keys readers;
  auto mail =
      Message::compose({.from = "alice@example.com", .to = "bob@example.com", .text = "Dear {{name}}\n"});
  if (!mail) return mail.error();
  askForAddress(*mail, "x y");
  return readMail(sample("newsletter"))
      .and_then([&] { return saveFiles(sample("attachments"), scratch); })
      .and_then([&] { return walkParts(sample("newsletter")); })
      .and_then([&] { return readAttached(sample("digest")); })
      .and_then([&] { return composeText(scratched("text.eml")); })
      .and_then([&] { return composePage("\x89PNG", scratched("page.eml")); })
      .and_then([&] { return attachFiles(*mail, sample("plain"), Message()); })
      .and_then([&] { return change(*mail); })
      .and_then([&] { return reply(sample("newsletter"), alice, scratched("reply.eml")); })
      .and_then([&] { return answerAbsent(*mail, alice, scratched("absent.eml")); })
      .and_then([&] { return forward(sample("newsletter"), alice, bob, scratched("forward.eml")); })
      .and_then([&] { return resend(sample("newsletter"), alice, bob, scratched("resent.eml")); })
      .and_then([&] { return readyToSend(*mail); })
      .and_then(
          [&](const std::string&) { return signAndEncrypt(*mail, identities, scratched("closed.eml")); })
      .and_then([&] { return readers.addFile(identities + "/bob.pem"); })
      .and_then([&] { return readers.addFile(identities + "/bob.key"); })
      .and_then([&] { return readers.addTrust(identities + "/root.pem"); })
      .and_then([&] { return verify(scratched("closed.eml"), readers); })
      .and_then([&] { return decrypt(scratched("closed.eml"), readers, scratched("open.eml")); })
      .and_then([&] { return readBounce(sample("delivery-report")); })
      .and_then([&] { return invite(sample("invitation"), scratched("invitation.eml")); })
      .and_then([&] { return Message::open(sample("broken")); })
      .transform([](const Message& broken) { listProblems(broken); });
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  std::filesystem::create_directories(argv[3]);
  const Result<void> done = all(argv[1], argv[2], argv[3]);
  if (!done) std::cerr << done.error().where << ": " << done.error().message << '\n';
  return done ? 0 : 1;
}
