// Composes a message with a text, the same as HTML, and a file, and writes it as MIME.
#include <iostream>

#include "mailtree/mailtree.h"

using namespace mailtree;

int main() {
  auto mail = Message::compose({.from = "Jörg Müller <joerg@mueller.example>",
                                .to = "Anna Berg <anna.berg@nordlicht.example>, jo@see.example",
                                .subject = "Grüße vom See",
                                .text = "Das Wasser ist schon warm.\n",
                                .html = "<p>Das Wasser ist schon <b>warm</b> 🏊.</p>\n"});
  const Result<void> done = std::move(mail).and_then([](Message message) {
    return message.attach("Temperatur.csv", "Tag;Grad\nMontag;21\n").and_then([&] {
      return message.write(std::cout);
    });
  });
  if (!done) std::cerr << done.error().message << '\n';
  return done ? 0 : 1;
}
