// Reads a message: who wrote it, what it says, and its files.
#include <iostream>

#include "mailtree/mailtree.h"

int main(int argc, char** argv) {
  auto mail = mailtree::Message::open(argc > 1 ? argv[1] : "");
  if (!mail) {
    std::cerr << mail.error().where << ": " << mail.error().message << '\n';
    return 1;
  }
  std::cout << mail->from().name << ": " << mail->subject() << "\n\n" << mail->text() << '\n';
  for (const mailtree::Part& file : mail->attachments())
    std::cout << file.fileName() << ", " << file.type() << ", " << file.size() << " bytes\n";
}
