// email/loading/normalize.cpp - brings the top level of a message into the shape that other code
// relies on: one field per kind of recipient, a body beside every attachment, plain text and HTML
// joined as alternatives.

#include <string>
#include <string_view>
#include <tuple>

#include "mailtree/base/Platform.h"
#include "mailtree/email/Email2.h"
#include "mailtree/email/loading/unwrapping.h"
#include "mailtree/mime/MimeMessage2.h"

namespace mailtree {
namespace {

/// Whether the message is only an attachment. S/MIME and EDI content is processed as a whole message, so it
/// is left alone.
bool isLoneAttachment(const MimeMessage2& tree) {
  StringBuffer disposition;
  tree.getDisposition(disposition);
  if (!disposition.equals("attachment")) return false;
  const std::string_view type = tree.contentType().m_type;
  return !beginsWithNoCase(type, "multipart") && !containsNoCase(type, "pkcs7") &&
         !containsNoCase(type, "edifact") && !isPkcs7Mime(tree);
}

/// A message without a charset gets the detected charset of its header.
void copyCharset(const MimeMessage2& tree, MimeMessage2& text, MimeMessage2& attachment, LogBase& log) {
  StringBuffer name;
  tree.getCharset(name);
  if (!name.isEmpty() || tree.getHeaderDetectedCP() == 0) return;
  _svCharset detected;
  detected.setByCodePage(tree.getHeaderDetectedCP());
  text.setCharset(detected, log);
  attachment.setCharset(detected, log);
}

/// Moves the content of the message and its Content- fields to a new part.
void moveToAttachment(MimeMessage2& tree, MimeMessage2& attachment, LogBase& log) {
  attachment.copyContentFields(tree);  // with every parameter, such as method or size
  attachment.setDisposition("attachment", log);
  // Attachments keep their bytes, so nothing is converted.
  attachment.getMimeBodyDb()->takeData(*tree.getMimeBodyDb());
}

void convertToMixed(MimeMessage2& tree, LogBase& log) {
  StringBuffer boundary;
  Psdk::generateBoundary(boundary, log);
  // Replaced completely: charset, name and other parameters belong to the attachment.
  tree.addReplaceHeaderFieldUtf8("Content-Type", "multipart/mixed", log);
  tree.setBoundary(boundary.getString(), log);
  tree.addReplaceHeaderFieldUtf8("Content-Transfer-Encoding", nullptr, log);
  tree.addReplaceHeaderFieldUtf8("Content-Disposition", nullptr, log);
}

void wrapLoneAttachment(MimeMessage2& tree, LogBase& log) {
  Owned<MimeMessage2> newText(MimeMessage2::createNewObject());
  if (!newText) return;
  MimeMessage2& text = *newText;
  text.setContentType("text/plain", true, log);
  tree.addPart(newText.release());

  Owned<MimeMessage2> attachment(MimeMessage2::createNewObject());
  if (!attachment) return;
  moveToAttachment(tree, *attachment, log);
  copyCharset(tree, text, *attachment, log);
  tree.addPart(attachment.release());
  convertToMixed(tree, log);
  tree.addRepair(Repair::loneAttachment);
}

bool isType(const MimeMessage2& part, std::string_view type) noexcept {
  return equalsNoCase(part.contentType().m_type, type);
}

bool hasNoFilename(const MimeMessage2& part) {
  StringBuffer filename;
  part.getMimeFilename(filename);
  return filename.isEmpty();
}

bool hasLooseAlternatives(const MimeMessage2& mixed, LogBase& log) {
  bool plain = false, html = false;
  for (int i = 0; i < mixed.getNumParts() && !(plain && html); ++i) {
    const MimeMessage2& part = *mixed.getPart(i);
    const bool isPlain = isType(part, "text/plain");
    if (!isPlain && !isType(part, "text/html")) continue;
    if (part.isAttachment(log) || !hasNoFilename(part)) continue;
    (isPlain ? plain : html) = true;
  }
  return plain && html;
}

/// Moves the first plain text and the first HTML, in their order.
void moveAlternatives(MimeMessage2& mixed, MimeMessage2& alternative, LogBase& log) {
  bool plainMoved = false, htmlMoved = false;
  for (int i = 0; i < mixed.getNumParts() && !(plainMoved && htmlMoved);) {
    const MimeMessage2& part = *mixed.getPart(i);
    bool* moved = isType(part, "text/plain") ? &plainMoved : isType(part, "text/html") ? &htmlMoved : nullptr;
    if (!moved || *moved || part.isAttachment(log)) {
      ++i;
      continue;
    }
    alternative.addPart(mixed.extractPart(i));
    *moved = true;
  }
}

void joinAlternatives(MimeMessage2& mixed, LogBase& log) {
  if (mixed.getNumParts() == 2) {
    mixed.setContentType("multipart/alternative", true, log);
  } else {
    Owned<MimeMessage2> alternative(MimeMessage2::createNewObject());
    if (!alternative) return;
    alternative->newMultipartAlternative(log);
    moveAlternatives(mixed, *alternative, log);
    mixed.addPartInFront(alternative.release());
  }
  mixed.addRepair(Repair::looseAlternative);
}

}  // namespace

void Email2::loadFromMimeTextProcessing(MimeMessage2& tree, LogBase& log) {
  std::ignore = neverThrow(false, [&] {
    LogContextExitor context(log, "loadFromMimeTextProcessing");
    for (const char* field : {"to", "cc", "bcc"}) tree.collapseMultiple(field, log);
    if (isLoneAttachment(tree)) wrapLoneAttachment(tree, log);
    if (tree.isMultipartMixed() && hasLooseAlternatives(tree, log)) transformMmToMa(tree, log);
    return true;
  });
}

void Email2::transformMmToMa(MimeMessage2& mixed, LogBase& log) {
  std::ignore = neverThrow(false, [&] {
    joinAlternatives(mixed, log);
    return true;
  });
}

}  // namespace mailtree
