// email/loading/load.cpp - loading from text, bytes and POP3 downloads.

#include <algorithm>
#include <vector>

#include "mailtree/email/internal.h"
#include "mailtree/mime/MimeMessage2.h"

namespace mailtree {
namespace {

/// Merges all multipart/related children of `parent` into the first one, in one pass, for messages whose
/// related items were split.
void mergeRelated(Email2& parent) {
  ExtPtrArray parts;
  if (!parent.m_subParts.transferPtrs(parts)) return;
  Email2* first = nullptr;
  for (int i = 0; i < parts.getSize(); ++i) {
    Email2* const part = parts.at<Email2>(i);
    const bool isRelated = part && isType(part->m_contentType.m_type, "multipart/related");
    if (isRelated && first && part->m_subParts.transferPtrs(first->m_subParts)) {
      const EmailPtr emptied(part);
      continue;
    }
    if (isRelated && !first) first = part;
    parent.m_subParts.appendObject(part);  // the list already has capacity for all
  }
  parts.removeAll();
}

/// Whether a signature covers the children of an enclosure; merging them would break it.
bool isSigned(const Email2& root, const Email2& enclosure) {
  bool inside = isType(enclosure.m_contentType.m_type, "multipart/signed");
  walkTree(root, [&](const Email2& node) {
    if (!node.m_received) return Walk::descend;
    inside |= walkTree(node, [&](const Email2& below) {
                return &below == &enclosure ? Walk::stop : Walk::descend;
              }) == Walk::stop;
    return inside ? Walk::stop : Walk::skipChildren;
  });
  return inside;
}

/// Whether an unwrapped layer did not hold the whole message. Its content must not be merged with content
/// outside it: that content would then appear signed, or signed content could be sent elsewhere.
bool hasPartialLayer(const std::vector<SecureLayer>& layers, std::size_t before) {
  return std::any_of(layers.begin() + static_cast<std::ptrdiff_t>(before), layers.end(),
                     [](const SecureLayer& layer) { return layer.part != SecureLayer::kWholeMessage; });
}

/// Sets the budget of a load, and records at its end whether the message is complete, because not every
/// operation reports a lack of memory.
class LoadScope {
 public:
  LoadScope(_svEmailCommon& common, std::size_t size) noexcept : m_common(common) {
    if (common.m_sharesBudget)
      common.m_budget.topUpFor(size);
    else
      common.m_budget = LoadBudget::ofMessage(size);
  }
  LoadScope(const LoadScope&) = delete;
  LoadScope& operator=(const LoadScope&) = delete;
  ~LoadScope() { m_common.m_isWhole &= abandonedOperations() == m_before; }

 private:
  _svEmailCommon& m_common;
  std::uint64_t m_before = abandonedOperations();
};

void mergeSplitRelated(Email2& root) {
  _svParentEmailPtr found;
  root.findMultipartEnclosureV2(static_cast<int>(EnclosureKind::related), 0, found);
  if (!found.m_parent || !found.m_parent->isLive() || isSigned(root, *found.m_parent)) return;
  mergeRelated(*found.m_parent);
}

}  // namespace

Email2* Email2::createFromMimeText2(_svEmailCommon& common, StringBuffer& mime, bool discardInput,
                                    bool unwrap, SystemCerts& certs, LogBase& log, bool /*parseOption*/) {
  return neverThrow<Email2*>(nullptr, [&]() -> Email2* {
    LogContextExitor context(log, "createFromMimeText");
    if (!mime.isValidObject()) return nullptr;
    const LoadScope loading(common, mime.getSize());
    MimeMessage2 tree;
    if (!tree.loadText(mime.view(), common.m_budget.parts, log)) return nullptr;
    if (discardInput) mime.strongClear();
    loadFromMimeTextProcessing(tree, log);
    return consumeEntity(common, tree, unwrap, certs, log).release();
  });
}

Email2* Email2::createFromMimeText2a(_svEmailCommon& common, const char* text, int size, SystemCerts& certs,
                                     LogBase& log, bool /*parseOption*/) {
  return neverThrow<Email2*>(nullptr, [&]() -> Email2* {
    LogContextExitor context(log, "createFromMimeText2a");
    MimeMessage2 tree;
    const std::string_view mime(text ? text : "", text && size > 0 ? static_cast<std::size_t>(size) : 0);
    const LoadScope loading(common, mime.size());
    if (!tree.loadText(mime, common.m_budget.parts, log)) return nullptr;
    loadFromMimeTextProcessing(tree, log);
    return consumeEntity(common, tree, /*unwrap=*/true, certs, log).release();
  });
}

Email2* Email2::createFromMimeDb(_svEmailCommon& common, DataBuffer& mime, bool discardInput, bool unwrap,
                                 SystemCerts& certs, LogBase& log, bool /*parseOption*/) {
  return neverThrow<Email2*>(nullptr, [&]() -> Email2* {
    LogContextExitor context(log, "createFromMimeDb");
    const LoadScope loading(common, mime.getSize());
    MimeMessage2 tree;
    if (!tree.loadText(mime.view(), common.m_budget.parts, log)) return nullptr;
    if (discardInput) mime.clear();
    loadFromMimeTextProcessing(tree, log);
    const std::size_t layersBefore = common.m_secureLayers.size();
    EmailPtr root = consumeEntity(common, tree, unwrap, certs, log);
    if (root && !hasPartialLayer(common.m_secureLayers, layersBefore)) mergeSplitRelated(*root);
    return root.release();
  });
}

Email2* Email2::createFromPop3(_svEmailCommon& common, DataBuffer& raw, bool unwrap, SystemCerts& certs,
                               LogBase& log) {
  return neverThrow<Email2*>(nullptr, [&]() -> Email2* {
    LogContextExitor context(log, "createFromPop3");
    if (raw.endsWithStr("\r\n.\r\n"))
      raw.shorten(3);  // the final dot of the transfer, but not the line break before it
    raw.processRawPopMime();
    const LoadScope loading(common, raw.getSize());
    const Owned<MimeMessage2> tree(MimeMessage2::createNewObject());
    if (!tree || !tree->loadText(raw.view(), common.m_budget.parts, log)) return nullptr;
    tree->makeAttachmentFilenamesRelative(log);
    EmailPtr root = consumeEntity(common, *tree, unwrap, certs, log);
    return root && root->isLive() ? root.release() : nullptr;
  });
}

}  // namespace mailtree
