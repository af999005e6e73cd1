// Composes a message with a text, the same as HTML, and a file, and writes it as MIME.
#include <iostream>

#include "mailtree/email/Email2.h"

using namespace mailtree;

int main() {
  LogMemory log;
  Email2 mail;
  mail.setFromFullUtf8("Jörg Müller <joerg@mueller.example>", log);
  mail.addMultipleRecip(1, "Anna Berg <anna.berg@nordlicht.example>, jo@see.example", log);
  mail.setHeaderField("Subject", "Grüße vom See", log);

  DataBuffer text, html, list;
  text.append("Das Wasser ist schon warm.\r\n");
  html.append("<p>Das Wasser ist schon <b>warm</b> 🏊.</p>\r\n");
  list.append("Tag;Grad\r\nMontag;21\r\n");
  StringBuffer plainType("text/plain"), htmlType("text/html"), listType;
  const bool complete =
      mail.setBody(text, /*isText=*/true, plainType, nullptr, log) &&
      mail.addAlternativeBody(html, /*isText=*/true, htmlType, nullptr, log) &&
      mail.addDataAttachmentUtf8("Temperatur.csv", nullptr, /*codePage=*/0, list, listType, log);

  StreamOutput out(std::cout);
  ProgressContext progress(nullptr);
  StringBuffer unused;
  const bool written =
      complete && mail.assembleMimeBody2(unused, &out, /*dotStuff=*/false, "SVX-", progress, log, /*depth=*/0,
                                         /*qpFor8bit=*/false, /*isTop=*/true);
  if (!written) std::cerr << log.text();
  return written ? 0 : 1;
}
