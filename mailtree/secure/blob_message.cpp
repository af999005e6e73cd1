#include "mailtree/email/internal.h"
#include "mailtree/secure/internal.h"

namespace mailtree {

bool assembleWhole(Email2& email, const char* omitPrefix, StringBuffer& text, LogBase& log) {
  ProgressContext progress(nullptr);
  return email.assembleMimeBody2(text, /*sink=*/nullptr, /*dotStuff=*/false, omitPrefix, progress, log,
                                 /*depth=*/0, /*qpFor8bit=*/false, /*isTop=*/true);
}

void becomeBase64File(Email2& node, const char* filename, LogBase& log) {
  node.setContentDispositionUtf8("attachment", filename, log);
  setTransferEncoding(node, "base64", log);
}

EmailPtr createBlobMessage(Email2& source, const char* filename, LogBase& log) {
  EmailPtr message(Email2::createNewObject(*source.m_common));
  if (!message) return message;
  message->copyHeader(source, log);
  becomeBase64File(*message, filename, log);
  return message;
}

}  // namespace mailtree
