// Answers a message with a file, signed: answer FILE PKCS12 PASSWORD FROM OUT.
#include <iostream>

#include "mailtree/mailtree.h"

using namespace mailtree;

Result<void> answer(const std::string& file, const Keys& keys, const Address& me, const std::string& out) {
  auto mail = Message::open(file, {.keys = &keys});
  if (!mail) return mail.error();
  auto answer = mail->reply({.from = me, .all = true, .text = "See you there."});
  if (!answer) return answer.error();
  return answer->attach("Übersicht.csv", "Tag;Ort\nMontag;Köln\n")
      .and_then([&] { return answer->sign(keys); })
      .and_then([&] { return answer->save(out); });
}

int main(int argc, char** argv) {
  if (argc != 6) return 2;
  Keys keys;
  const Result<void> done =
      keys.addFile(argv[2], argv[3])
          .and_then([&] { return Address::parse(argv[4]); })
          .and_then([&](const Address& me) { return answer(argv[1], keys, me, argv[5]); });
  if (!done) std::cerr << done.error().where << ": " << done.error().message << '\n';
  return done ? 0 : 1;
}
