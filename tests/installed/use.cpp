// Uses the installed library: every type that the operations of Email2 name is complete.
#include <mailtree/email/Email2.h>
#include <mailtree/mailtree.h>

#include <iostream>

using namespace mailtree;

static_assert(sizeof(_clsCades) && sizeof(_svSymSettings) && sizeof(SymmetricCipher) && sizeof(ClsXml) &&
              sizeof(ClsStringArray) && sizeof(MimeMessage2) && sizeof(SystemCerts) && sizeof(Certificate) &&
              sizeof(ProgressContext) && sizeof(_svParentEmailPtr) && sizeof(SorvikSysTime));

int main() {
  LogNull log;
  SystemCerts certs;
  DataBuffer bytes;
  bytes.append("Subject: =?utf-8?q?Gr=C3=BC=C3=9Fe?=\r\n\r\nText\r\n", 46);
  const RefPtr<_svEmailCommon> common(new _svEmailCommon);
  const EmailPtr mail(Email2::createFromMimeDb(*common, bytes, true, true, certs, log, false));
  StringBuffer subject;
  if (!mail || !mail->getSubjectUtf8(subject, log) ||
      subject.view() !=
          "Gr\xC3\xBC\xC3\x9F"
          "e")
    return 1;
  std::cout << "installed: " << subject.view() << '\n';
}
