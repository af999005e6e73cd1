// Uses the library on both floors, as part of a program or a plugin. Every type that the operations of Email2
// name is complete.
#include <mailtree/email/Email2.h>
#include <mailtree/mailtree.h>
#include <mailtree/store/MailSource.h>

#include <iostream>
#include <string>

using namespace mailtree;

static_assert(sizeof(_clsCades) + sizeof(_svSymSettings) + sizeof(SymmetricCipher) + sizeof(ClsXml) +
                  sizeof(ClsStringArray) + sizeof(MimeMessage2) + sizeof(SystemCerts) + sizeof(Certificate) +
                  sizeof(ProgressContext) + sizeof(_svParentEmailPtr) + sizeof(SorvikSysTime) >
              0);

namespace {

bool readsWithEmail2() {
  LogNull log;
  SystemCerts certs;
  DataBuffer bytes;
  bytes.append("Subject: =?utf-8?q?Gr=C3=BC=C3=9Fe?=\r\n\r\nText\r\n", 46);
  const RefPtr<_svEmailCommon> common(new _svEmailCommon);
  const EmailPtr mail(Email2::createFromMimeDb(*common, bytes, true, true, certs, log, false));
  StringBuffer subject;
  return mail && mail->getSubjectUtf8(subject, log) &&
         subject.view() ==
             "Gr\xC3\xBC\xC3\x9F"
             "e" &&
         abandonedOperations() == 0;
}

bool answersWithMessage() {
  const auto mail = Message::parse("From: anna@berg.example\r\nSubject: Boat\r\n\r\nShall we?\r\n");
  if (!mail) return false;
  const auto answer = mail->reply({.from = {.name = {}, .address = "jo@see.example"}, .text = "Gladly."});
  if (!answer) return false;
  const auto written = answer->toString();
  return written && written->find("Subject: Re: Boat") != std::string::npos;
}

bool openNothing() {
  const auto source = MailSource::open("/does/not/exist");
  return !source && source.error().code == ErrorCode::unreadable;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int useMailtree() {
  if (!readsWithEmail2() || !answersWithMessage() || !openNothing()) return 1;
  std::cout << "mailtree works\n";
  return 0;
}
