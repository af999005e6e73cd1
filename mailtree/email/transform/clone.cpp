// email/transform/clone.cpp - deep copies, and replacing literal texts throughout a tree.

#include <algorithm>
#include <tuple>
#include <utility>

#include "mailtree/email/internal.h"
#include "mailtree/email/loading/received_date.h"
#include "mailtree/mime/MimeMessage2.h"
#include "mailtree/mime/header/Replacements.h"

namespace mailtree {
namespace {

// Cloning

/// The bodies of a copy that borrow the bytes of the original.
enum class Borrow { nothing, imagesAndPdfs, everything };

/// Deliberate: case-sensitive; types are stored in lower case.
bool isImageOrPdf(const Email2& node) noexcept {
  const std::string_view type = node.m_contentType.m_type;
  return type.starts_with("image/") || type.starts_with("application/pdf");
}

bool isBorrowed(const Email2& node, Borrow borrow) noexcept {
  return borrow == Borrow::everything || (borrow == Borrow::imagesAndPdfs && isImageOrPdf(node));
}

bool copyBody(const Email2& source, Borrow borrow, Email2& copy) {
  copy.m_body.clear();
  if (!isBorrowed(source, borrow)) return copy.m_body.append(source.m_body);
  copy.m_body.borrowData(source.m_body.getData2(), source.m_body.getSize());
  return true;
}

bool copyAddresses(const ExtPtrArray& source, ExtPtrArray& copy) {
  for (int i = 0; i < source.getSize(); ++i) {
    const auto* address = source.at<_svEmailAddress>(i);
    if (!address) continue;
    Owned<_svEmailAddress> own(_svEmailAddress::createNewObject());
    if (!own) return false;
    own->copyEmailAddress(*address);
    if (!copy.appendObject(own.get())) return false;
    std::ignore = own.release();  // the list owns it now
  }
  return true;
}

/// A copy of one node without its subparts; null when memory ran out. m_attachCodePage is not copied.
EmailPtr copyNode(const Email2& source, _svEmailCommon& common, Borrow borrow) {
  return neverThrow(EmailPtr(), [&] {
    EmailPtr copy(Email2::createNewObject0(common));
    if (!copy || !copyBody(source, borrow, *copy) || !copy->m_header.cloneMimeHeader(source.m_header))
      return EmailPtr();
    copy->m_disposition = source.m_disposition;
    copy->m_transferEncoding = source.m_transferEncoding;
    copy->m_contentId = source.m_contentId;
    copy->m_dispFilename = source.m_dispFilename;
    copy->m_contentType.copyFrom(source.m_contentType);
    copy->m_fromAddr.copyEmailAddress(source.m_fromAddr);
    if (!copyAddresses(source.m_toAddrs, copy->m_toAddrs) ||
        !copyAddresses(source.m_ccAddrs, copy->m_ccAddrs) ||
        !copyAddresses(source.m_bccAddrs, copy->m_bccAddrs))
      return EmailPtr();
    copy->m_date.copyFrom(source.m_date);
    copy->m_repairs = source.m_repairs;
    return copy;
  });
}

/// A copied node whose subparts are still to be copied.
struct Pending {
  const Email2* source;
  Email2* copy;
};

/// Leaves out a subpart that cannot be copied.
void copySubparts(const Pending& parent, _svEmailCommon& common, Borrow borrow, std::vector<Pending>& open) {
  for (int i = 0; i < parent.source->m_subParts.getSize(); ++i) {
    const Email2* const part = parent.source->m_subParts.at<Email2>(i);
    EmailPtr copy = part && part->isLive() ? copyNode(*part, common, borrow) : EmailPtr();
    if (!copy || !parent.copy->m_subParts.appendObject(copy.get())) continue;
    open.push_back({part, copy.release()});
  }
}

/// Copies the received bytes of signed content if it is unchanged. The copy gets a new fingerprint, because
/// not every member in it is copied.
void copyReceivedContent(const Email2& source, Email2& copy) {
  const DataBuffer* const received = unchangedReceivedContent(source);
  DataBuffer bytes;
  if (received && bytes.append(*received)) storeReceivedContent(copy, std::move(bytes));
}

EmailPtr copyTree(const Email2& root, _svEmailCommon& common, Borrow borrow) {
  EmailPtr copy = copyNode(root, common, borrow);
  if (!copy) return copy;
  const bool isWhole = neverThrow(false, [&] {
    std::vector<Pending> open{{&root, copy.get()}};
    std::vector<Pending> received;
    while (!open.empty()) {
      const Pending next = open.back();
      open.pop_back();
      if (next.source->m_received) received.push_back(next);
      copySubparts(next, common, borrow, open);
    }
    for (const Pending& node : received) copyReceivedContent(*node.source, *node.copy);
    return true;
  });
  return isWhole ? std::move(copy) : EmailPtr();
}

EmailPtr copyWithOwnSettings(const Email2& root, Borrow borrow) {
  return neverThrow(EmailPtr(), [&] {
    const RefPtr<_svEmailCommon> common(new _svEmailCommon);
    if (root.m_common) common->copyFrom(*root.m_common);
    return copyTree(root, *common, borrow);
  });
}

/// Copies the bytes of every node that borrows more than allowed.
bool copyBorrowedBodies(Email2& root, Borrow allowed) {
  const auto own = [allowed](Email2& node) {
    if (isBorrowed(node, allowed) || node.m_body.heapUsage() != 0 || node.m_body.isEmpty())
      return Walk::descend;
    DataBuffer copy;
    if (!copy.append(node.m_body)) return Walk::stop;
    node.m_body.takeData(copy);
    return Walk::descend;
  };
  return walkTree(root, own) == Walk::descend;
}

// Replacing

/// Chooses charset and encoding again, because the text may no longer be 7-bit or fit the charset.
void updateEncoding(Email2& node, LogBase& log) {
  if (!isConvertibleText(node.traits())) {
    if (isDeclared7bit(node) && !node.m_body.is7bit(0)) setTransferEncoding(node, "quoted-printable", log);
  } else if (!node.m_body.is7bit(0)) {
    node.chooseCharsetIfNecessary(node.m_body, log);
    if (isDeclared7bit(node)) node.setEncodingViaCodePage(node.emailCodePage(), 0, log);
  }
  const bool isPlainEncoding = isDeclared7bit(node) || node.m_transferEncoding.equalsIgnoreCase("8bit");
  if (isPlainEncoding && node.m_body.hasLineLonger(kMaxLine7bit))
    setTransferEncoding(node, "quoted-printable", log);
}

/// Converts the text of a file part from the charset of its label to utf-8; false when the label is wrong.
bool convertFile(const Email2& node, int codePage, DataBuffer& utf8, LogBase& log) {
  return EncodingConvert::EncConvert(codePage, kCpUtf8, node.m_body.getData2(), node.m_body.getSize(), utf8,
                                     log);
}

/// Returns whether anything was replaced.
bool replaceInText(Email2& node, const Replacements& replacements, LogBase& log) {
  if (isConvertibleText(node.traits())) {
    if (!replacements.replaceIn(node.m_body)) return false;
    refreshCharsetLabel(node, log);
    return true;
  }
  const int codePage = labelledCharset(node).getCodePage();
  DataBuffer utf8;
  if (codePage == 0 || codePage == kCpUtf8 || !convertFile(node, codePage, utf8, log)) {
    const bool was7bit = node.m_body.is7bit(0);
    if (!replacements.replaceIn(node.m_body)) return false;
    if (codePage == 0 && was7bit && !node.m_body.is7bit(0)) labelUtf8(node, log);
    return true;
  }
  if (!replacements.replaceIn(utf8)) return false;
  storeText(node, utf8, log);
  return true;
}

/// A part without a type is plain text (RFC 2045, 5.2).
bool isText(const Email2& node) noexcept {
  const std::string_view type = node.m_contentType.m_type;
  return type.empty() ? node.m_subParts.getSize() == 0 : beginsWithNoCase(type, "text");
}

void replaceInBody(Email2& node, const Replacements& replacements, LogBase& log) {
  if (!isText(node) || !replaceInText(node, replacements, log)) return;
  // The charset can only be given in a Content-Type.
  if (node.m_contentType.m_type.isEmpty() && !node.m_body.is7bit(0))
    node.setContentTypeUtf8("text/plain", nullptr, nullptr, nullptr, 0, nullptr, nullptr, nullptr, log);
  updateEncoding(node, log);
}

/// The fields of a node that have changed.
class ChangedFields {
 public:
  ChangedFields(const Email2& node, const std::vector<int>& indexes) {
    for (const int index : indexes) m_names.emplace_back(node.m_header.fieldName(index));
  }
  bool isEmpty() const noexcept { return m_names.empty(); }
  bool has(std::string_view name) const noexcept {
    return std::any_of(m_names.begin(), m_names.end(),
                       [name](std::string_view changed) { return equalsNoCase(changed, name); });
  }

 private:
  std::vector<std::string_view> m_names;
};

std::string unfoldedField(const Email2& node, std::string_view name) {
  std::string scratch;
  return std::string(node.m_header.unfoldedValue(node.m_header.findField(name), scratch));
}

/// The members are not simply read from the fields, because some recipients may be in no field.
void replaceInRecipients(Email2& node, const Replacements& replacements, const ChangedFields& changed) {
  const std::pair<const char*, ExtPtrArray*> lists[] = {
      {"To", &node.m_toAddrs}, {"Cc", &node.m_ccAddrs}, {"Bcc", &node.m_bccAddrs}};
  for (const auto& [field, list] : lists) {
    const bool wasEmpty = list->getSize() == 0;
    replaceInAddresses(*list, replacements);
    if (wasEmpty && changed.has(field)) _svEmailAddress::parseAndLoadList(unfoldedField(node, field), *list);
  }
}

void replaceInSender(Email2& node, const Replacements& replacements, const ChangedFields& changed,
                     LogBase& log) {
  _svEmailAddress& sender = node.m_fromAddr;
  if (changed.has("From")) {
    sender.clearEmailAddress();
    sender.loadSingleEmailAddr(unfoldedField(node, "From").c_str(), /*relaxed=*/false, log);
    return;
  }
  if (!replacements.occurIn(sender.m_name.view()) && !replacements.occurIn(sender.m_address.view())) return;
  replacements.replaceInLine(sender.m_name.getUtf8Sb_rw());
  replacements.replaceInLine(sender.m_address.getUtf8Sb_rw());
}

void rereadContentType(Email2& node, MimeMessage2& fields) {
  fields.extractContentType(node.m_contentType);
  if (node.m_common && node.emailCodePage() == 0) node.m_common->m_charset.copy(fields.charset());
}

/// Reads the members of changed Content- fields again, as loading does.
void rereadContentFields(Email2& node, const ChangedFields& changed, LogBase& log) {
  const bool type = changed.has("Content-Type"), disposition = changed.has("Content-Disposition");
  const bool encoding = changed.has("Content-Transfer-Encoding"), id = changed.has("Content-ID");
  if (!type && !disposition && !encoding && !id) return;
  MimeMessage2 fields;
  for (const char* name : {"Content-Type", "Content-Disposition", "Content-Transfer-Encoding", "Content-ID"})
    if (node.m_header.findField(name) >= 0)
      fields.addReplaceHeaderFieldUtf8(name, unfoldedField(node, name).c_str(), log);
  const bool isNamedByType = node.m_dispFilename.equals(node.m_contentType.m_name);
  if (disposition) fields.getDisposition(node.m_disposition);
  if (disposition || (type && isNamedByType)) fields.getMimeFilename(node.m_dispFilename);
  if (encoding) fields.getContentEncoding(node.m_transferEncoding);
  if (id) fields.getContentId(node.m_contentId);
  if (type) rereadContentType(node, fields);
}

void rereadDate(Email2& node, const ChangedFields& changed, LogBase& log) {
  if (changed.has("Date") || changed.has("Delivery-Date") || changed.has("Received"))
    receivedDate(node.m_header, node.m_date, log);
}

void replaceInNode(Email2& node, const Replacements& replacements, LogBase& log) {
  replaceInBody(node, replacements, log);
  const ChangedFields changed(node, node.m_header.replacePatterns(replacements));
  replaceInRecipients(node, replacements, changed);
  replaceInSender(node, replacements, changed, log);
  if (changed.isEmpty()) return;
  rereadContentFields(node, changed, log);
  rereadDate(node, changed, log);
}

void replaceInTree(Email2& root, const ExtPtrArray& pairs, LogBase& log) {
  LogContextExitor context(log, "replaceStrings");
  neverThrow(Walk::stop, [&] {
    const Replacements replacements(pairs);
    if (replacements.isEmpty()) return Walk::stop;
    return walkTree(root, [&](Email2& node) {
      replaceInNode(node, replacements, log);
      return Walk::descend;
    });
  });
}

}  // namespace

Email2* Email2::clone_v3(bool shareImageData, LogBase& log) {
  if (!isLive()) return nullptr;
  LogContextExitor context(log, "clone_v3");
  return copyWithOwnSettings(*this, shareImageData ? Borrow::imagesAndPdfs : Borrow::nothing).release();
}

Email2* Email2::clone_v3_inner(_svEmailCommon& common, bool shareImageData, LogBase& log) {
  if (!isLive()) return nullptr;
  LogContextExitor context(log, "clone_v3");
  return copyTree(*this, common, shareImageData ? Borrow::imagesAndPdfs : Borrow::nothing).release();
}

Email2* Email2::cloneAndReplace_v3(bool shareImageData, const ExtPtrArray& pairs, LogBase& log) {
  if (!isLive()) return nullptr;
  LogContextExitor context(log, "cloneAndReplace");
  // All bodies are borrowed first, because changed texts get new bytes anyway.
  EmailPtr copy = copyWithOwnSettings(*this, Borrow::everything);
  if (!copy) return nullptr;
  replaceInTree(*copy, pairs, log);
  const Borrow allowed = shareImageData ? Borrow::imagesAndPdfs : Borrow::nothing;
  return copyBorrowedBodies(*copy, allowed) ? copy.release() : nullptr;
}

void Email2::replaceStrings(const ExtPtrArray& pairs, LogBase& log) {
  if (isLive()) replaceInTree(*this, pairs, log);
}

}  // namespace mailtree
