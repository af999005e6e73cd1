#include "mailtree/message/tree_changes.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "mailtree/base/Platform.h"
#include "mailtree/email/internal.h"
#include "mailtree/message/outline.h"

namespace mailtree {
namespace {

constexpr const char* kMixed = "multipart/mixed";

/// Whether a single-part message has content that must not be replaced by text.
bool hasNonTextContent(Email2& leaf) {
  if (leaf.isMultipart()) return false;  // a multipart that could not be split
  LogNull quiet;
  const std::string_view type = leaf.m_contentType.m_type.view();
  const bool isTextType = type.empty() || beginsWithNoCase(type, "text/");
  return !isTextType || leaf.isEmailAttachment(/*inMixed=*/false, quiet);
}

bool isPkcs7Mime(const Email2& part) {
  return part.equalsContentType("application/pkcs7-mime") ||
         part.equalsContentType("application/x-pkcs7-mime");
}

/// A node's parent and its index in it.
struct Place {
  Email2* parent = nullptr;
  int index = 0;
};

Place placeOf(Email2& root, const Email2& wanted) {
  Place place;
  walk(root, [&](Email2& node) {
    for (int i = 0; i < node.getNumParts(); ++i)
      if (node.getPart(i) == &wanted) place = {&node, i};
  });
  return place;
}

bool hasChildAmong(const Email2& node, const NodeSet& nodes) {
  for (int i = 0; i < node.getNumParts(); ++i)
    if (nodes.contains(node.getPartConst(i))) return true;
  return false;
}

/// Rebuilds the list of children, each by what `change` makes of it, or without it if that is nothing;
/// linear, however many are removed.
template <class Change>
void changeChildren(Email2& parent, Change&& change) {
  std::vector<EmailPtr> kept;
  while (parent.getNumParts() > 0) {
    EmailPtr child = change(EmailPtr(parent.extractSubpartByIndex(parent.getNumParts() - 1)));
    if (child) kept.push_back(std::move(child));
  }
  for (; !kept.empty(); kept.pop_back()) parent.insertSubPartAtIndex(kept.back().release(), -1);
}

/// Every node, parents before their children.
std::vector<Email2*> nodesOf(Email2& root) {
  std::vector<Email2*> nodes;
  walk(root, [&nodes](Email2& node) { nodes.push_back(&node); });
  return nodes;
}

bool isFile(const Email2& part) {
  const std::string_view type = part.m_contentType.m_type;
  const bool isContent = type.empty() || beginsWithNoCase(type, "text/") || part.isMultipart();
  return !isContent || equalsNoCase(part.m_disposition, "attachment");
}

bool isReplacedByOnlyChild(const Email2& node) {
  if (node.getNumParts() != 1) return false;
  if (node.isMultipartAlternative() || node.isMultipartRelated()) return true;
  return node.isMultipartMixed() && !isFile(*node.getPart(0));
}

EmailPtr tidied(EmailPtr enclosure) {
  if (enclosure->getNumParts() == 0) return {};
  return isReplacedByOnlyChild(*enclosure) ? EmailPtr(enclosure->extractSubpartByIndex(0))
                                           : std::move(enclosure);
}

}  // namespace

bool isSigned(Email2& email) {
  bool found = false;
  walk(email, [&](const Email2& part) {
    found = found || part.equalsContentType("multipart/signed") ||
            (isPkcs7Mime(part) && equalsNoCase(part.m_contentType.m_smimeType, "signed-data"));
  });
  return found;
}

bool isEncrypted(const Email2& email) {
  constexpr std::string_view kEnveloped[] = {"", "enveloped-data", "authenveloped-data"};
  if (email.equalsContentType("multipart/encrypted")) return true;
  return isPkcs7Mime(email) && std::ranges::any_of(kEnveloped, [&](std::string_view type) {
           return equalsNoCase(email.m_contentType.m_smimeType, type);
         });
}

void labelUntypedBody(Email2& email, LogBase& log) {
  Email2* const text = untypedBody(email);
  if (!text) return;
  text->fixContentTypeUtf8("text/plain", log);
  // The bytes of an untyped part were kept; text is stored as utf-8.
  if (!text->m_body.is7bit(0)) text->detectAndSetCharset(log);
}

Email2* enclose(Email2& leaf, const char* multipartType, LogBase& log) {
  const std::string disposition(leaf.m_disposition.view()), name(leaf.m_dispFilename.view());
  const int codePage = std::exchange(leaf.m_attachCodePage, 0);
  StringBuffer type;
  leaf.getHeaderFieldUtf8("Content-Type", type, log);
  // It moves with the content, which stays a file and must not be converted to utf-8.
  leaf.m_header.removeMimeField("Content-Disposition", /*all=*/true);
  leaf.m_disposition.clear();
  leaf.m_dispFilename.clear();
  leaf.convertToMultipartX(multipartType, log);
  Email2* const part = leaf.getPart(0);
  if (!part) return nullptr;
  if (!disposition.empty()) part->setContentDispositionUtf8(disposition.c_str(), name.c_str(), log);
  part->m_dispFilename.setString(name);  // may come from Content-Type, without a disposition
  part->m_attachCodePage = codePage;
  // A file keeps its bytes, so it keeps its label.
  if (beginsWithNoCase(part->m_contentType.m_type, "text/") && !type.isEmpty())
    part->setHeaderField_a("Content-Type", type.getString(), /*asGiven=*/true, log);
  return part;
}

Email2* moveIntoMixed(Email2& email, LogBase& log) {
  return email.getNumParts() == 0 && hasNonTextContent(email) ? enclose(email, kMixed, log) : nullptr;
}

Email2* encloseBelow(Email2& root, Email2& part, EmailPtr enclosure) {
  const Place place = placeOf(root, part);
  if (!place.parent || !enclosure) return nullptr;
  enclosure->insertSubPartAtIndex(place.parent->extractSubpartByIndex(place.index), 0);
  place.parent->insertSubPartAtIndex(enclosure.get(), place.index);
  return enclosure.release();
}

bool replaceBelow(Email2& root, Email2& old, EmailPtr part) {
  const Place place = placeOf(root, old);
  if (!place.parent) return false;
  const EmailPtr destroyed(&old);
  place.parent->replacePartAt(place.index, part.release());
  return true;
}

bool holds(Email2& root, const Email2& node) {
  bool found = false;
  walk(root, [&](const Email2& each) { found = found || &each == &node; });
  return found;
}

void removeNodes(Email2& root, const NodeSet& removed) {
  walk(root, [&](Email2& node) {
    if (!hasChildAmong(node, removed)) return;
    changeChildren(
        node, [&](EmailPtr child) { return removed.contains(child.get()) ? EmailPtr() : std::move(child); });
  });
}

std::vector<EmailPtr> extractNodes(Email2& root, const std::vector<Email2*>& nodes) {
  std::unordered_map<const SorvikObject*, std::size_t> positions;
  NodeSet wanted;
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    positions.emplace(nodes[i], i);
    wanted.insert(nodes[i]);
  }
  std::vector<EmailPtr> extracted(nodes.size());
  walk(root, [&](Email2& node) {
    if (!hasChildAmong(node, wanted)) return;
    changeChildren(node, [&](EmailPtr child) {
      const auto found = positions.find(child.get());
      if (found == positions.end()) return child;
      extracted[found->second] = std::move(child);
      return EmailPtr();
    });
  });
  return extracted;
}

void setEnclosureType(Email2& node, const char* multipartType, LogBase& log) {
  StringBuffer boundary;
  Psdk::generateBoundary(boundary, log);
  node.setContentTypeUtf8(multipartType, nullptr, nullptr, nullptr, 0, boundary.getString(), nullptr, nullptr,
                          log);
}

void forgetReceivedBytes(Email2& part) { part.m_received.reset(); }

EmailPtr newEnclosure(_svEmailCommon& common, const char* multipartType, LogBase& log) {
  EmailPtr enclosure(Email2::createNewObject0(common));
  if (enclosure) setEnclosureType(*enclosure, multipartType, log);
  return enclosure;
}

void absorbOnlyChild(Email2& node) {
  const EmailPtr child(node.extractSubpartByIndex(0));
  if (!child) return;
  node.m_header.takeFieldsBeginningWith("Content-", child->m_header);
  node.swapContentType(*child);
  node.swapChildren(*child);
  node.m_body.takeData(child->m_body);
  node.m_disposition.setString(child->m_disposition);
  node.m_dispFilename.setString(child->m_dispFilename);
  node.m_transferEncoding.setString(child->m_transferEncoding);
  node.m_contentId.setString(child->m_contentId);
  node.m_attachCodePage = child->m_attachCodePage;
  node.m_repairs = child->m_repairs;
  node.m_received.reset();
}

void tidyEnclosures(Email2& root, NodeSet changed, LogBase& log) {
  // Backwards, children come before their parents.
  std::vector<Email2*> nodes = nodesOf(root);
  for (; !nodes.empty(); nodes.pop_back()) {
    Email2& node = *nodes.back();
    if (!hasChildAmong(node, changed)) continue;
    const int before = node.getNumParts();
    changeChildren(node, [&](EmailPtr child) {
      return changed.contains(child.get()) ? tidied(std::move(child)) : std::move(child);
    });
    if (node.getNumParts() != before) changed.insert(&node);
  }
  if (!changed.contains(&root)) return;
  if (isReplacedByOnlyChild(root)) return absorbOnlyChild(root);
  if (root.getNumParts() > 0 || !root.isMultipart()) return;
  root.setContentTypeUtf8("text/plain", nullptr, nullptr, nullptr, 0, nullptr, nullptr, nullptr, log);
  root.m_body.clear();
}

}  // namespace mailtree
