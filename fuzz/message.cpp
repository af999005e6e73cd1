// A whole message: load, read everything, write, load that, write again. Where nothing had to be repaired,
// the second and the third output are equal.
#include "fuzz/messages.h"

using namespace mailtree;

namespace {

void readEverything(Email2& root) {
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = fuzz::textOf(data, size);
  const bool option = size % 2 == 1;
  const EmailPtr first = fuzz::load(input, size % 5 == 0 ? fuzz::Source::pop3 : fuzz::Source::bytes);
  readEverything(*first);
  fuzz::requireStable(fuzz::write(*first, option), option);
  return 0;
}
