// Composes a message and writes it as MIME.
#include <iostream>

#include "mailtree/email/Email2.h"

using namespace mailtree;

int main() {
  LogMemory log;
  Email2 mail;
  mail.use_codepage(65001);
  mail.setFromFullUtf8("Jörg Müller <joerg@mueller.example>", log);
  mail.addRecipient(1, "Anna Berg", "anna.berg@nordlicht.example", log);
  mail.setHeaderField("Subject", "Grüße vom See", log);
  mail.setContentTypeUtf8("text/plain", nullptr, nullptr, nullptr, 65001, nullptr, nullptr, nullptr, log);
  mail.setContentEncodingNonRecursive("quoted-printable", log);
  mail.m_body.append("Das Wasser ist schon warm.\r\n");

  StreamOutput out(std::cout);
  ProgressContext progress(nullptr);
  StringBuffer unused;
  const bool written =
      mail.assembleMimeBody2(unused, &out, /*dotStuff=*/false, "SVX-", progress, log, /*depth=*/0,
                             /*qpFor8bit=*/false, /*isTop=*/true);
  return written ? 0 : 1;
}
