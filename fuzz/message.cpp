// A whole message: load, look at everything, write, load what was written, write again. Where nothing had to be
// mended, the second and the third text are equal.
#include <memory>
#include <string>

#include "fuzz/target.h"
#include "mailtree/email/Email2.h"

using namespace mailtree;

namespace {

EmailPtr load(std::string_view text, bool pop3) {
  const RefPtr<_svEmailCommon> common(new _svEmailCommon);
  DataBuffer bytes;
  bytes.append(text);
  SystemCerts certs;
  LogNull log;
  return EmailPtr(pop3 ? Email2::createFromPop3(*common, bytes, true, certs, log)
                       : Email2::createFromMimeDb(*common, bytes, true, true, certs, log, false));
}

std::string write(Email2& root, bool qpFor8bit) {
  StringBuffer text;
  LogNull log;
  ProgressContext progress(nullptr);
  fuzz::require(root.assembleMimeBody2(text, nullptr, false, "SVX-", progress, log, 0, qpFor8bit, true),
                "writing works");
  return text.extractString();
}

void look(Email2& root) {
  LogMemory log;
  log.m_verboseLogging = true;
  StringBuffer text;
  root.getSubjectUtf8(text, log);
  root.getFromFullUtf8(text, log);
  root.getSmtpReversePathUtf8(text, log);
  root.getAllRecipientAddresses(text);
  for (int i = 0; i < root.getNumHeaderFields(); ++i) root.getHeaderFieldValue(i, text, log);
  const int attachments = root.getNumAttachments(log);
  for (int i = 0; i < attachments && i < 20; ++i)
    if (Email2* part = root.getAttachment(i)) part->getFilenameUtf8(text, log);
  for (int i = 0; i < root.getNumAlternatives(); ++i) {
    DataBuffer body;
    root.getAlternativeBodyData(root, i, body, log);
  }
  for (int kind = 1; kind <= 5; ++kind) root.findMultipartEnclosure(kind, 0);
  root.getEmailSize(log);
}

/// Whether loading had to mend anything: a message that was broken may become a different one with every repair, such as a
/// label that says what its text was found to be.
bool wasMended(const Email2& node) {
  if (!node.m_repairs.isEmpty()) return true;
  for (int i = 0; i < node.getNumParts(); ++i)
    if (wasMended(*node.getPartConst(i))) return true;
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = fuzz::textOf(data, size);
  const bool option = size % 2 == 1;
  const EmailPtr first = load(input, /*pop3=*/size % 5 == 0);
  fuzz::require(first != nullptr, "any bytes load");
  look(*first);
  const std::string once = write(*first, option);
  const EmailPtr second = load(once, false);
  fuzz::require(second != nullptr, "what was written loads");
  const std::string twice = write(*second, option);
  const EmailPtr third = load(twice, false);
  if (!wasMended(*second) && !wasMended(*third))
    fuzz::require(write(*third, option) == twice, "writing settles");
  return 0;
}
