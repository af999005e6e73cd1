// The floor below Message: loads a message as a tree of nodes and prints sender, subject, text and
// attachments.
#include <iostream>

#include "mailtree/email/Email2.h"

using namespace mailtree;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: tree FILE\n";
    return 2;
  }
  LogMemory log;
  DataBuffer bytes;
  if (!bytes.loadFileUtf8(argv[1], log)) {
    std::cerr << log.text();
    return 1;
  }

  RefPtr<_svEmailCommon> common(new _svEmailCommon);
  SystemCerts certs;
  EmailPtr mail(
      Email2::createFromMimeDb(*common, bytes, /*discardInput=*/true, /*unwrap=*/true, certs, log, false));
  if (!mail) return 1;

  StringBuffer from, subject;
  mail->getFromFullUtf8(from, log);
  mail->getSubjectUtf8(subject, log);
  std::cout << from.view() << " wrote \"" << subject.view() << "\"\n";

  if (Email2* text = mail->getPlainTextAlternative()) std::cout << text->m_body.view();
  for (int i = 0; i < mail->getNumAttachments(log); ++i) {
    StringBuffer name;
    mail->getAttachment(i)->getFilenameUtf8(name, log);
    std::cout << "attached: " << name.view() << '\n';
  }
  return 0;
}
