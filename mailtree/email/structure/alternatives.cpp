// email/structure/alternatives.cpp - the text bodies of a message, at most one per type, in fixed order.
#include <algorithm>
#include <cstddef>
#include <set>
#include <vector>

#include "mailtree/email/structure/internal.h"

namespace mailtree {
namespace {

/// Whether a node is a text displayed as a body. Deliberate: the prefix is case-sensitive; types are
/// lower case after loading.
bool isTextBody(Email2& node) {
  return mediaType(&node).starts_with("text/") && !node.isNotAlternativeBody();
}

/// Lists the alternatives beneath a node. Pending steps are kept on a stack of their own, because a tree
/// built by the caller may be deeper than any call stack.
class Enumeration {
 public:
  Enumeration(const Email2& root, ExtPtrArray& out) : m_root(root), m_out(out) {}

  void run(Email2& start) {
    m_steps.push_back({&start, Action::enumerate});
    while (!m_steps.empty()) {
      const Step step = m_steps.back();
      m_steps.pop_back();
      if (step.action == Action::add) {
        add(*step.node);
        continue;
      }
      const std::ptrdiff_t mark = static_cast<std::ptrdiff_t>(m_steps.size());
      planNode(*step.node);
      std::reverse(m_steps.begin() + mark, m_steps.end());  // in the order planned
    }
  }

 private:
  enum class Action { enumerate, add };
  struct Step {
    Email2* node;
    Action action;
  };
  struct LessNoCase {
    bool operator()(std::string_view a, std::string_view b) const noexcept {
      return std::ranges::lexicographical_compare(a, b, {}, toLowerAscii, toLowerAscii);
    }
  };

  void planEnumerate(Email2& node) { m_steps.push_back({&node, Action::enumerate}); }
  void planAdd(Email2& node) { m_steps.push_back({&node, Action::add}); }

  void planNode(Email2& node) {
    if (!node.isLive()) return;
    // A message without type and disposition is one text.
    if (&node == &m_root && node.m_contentType.m_type.isEmpty() && node.m_disposition.isEmpty())
      return planAdd(node);
    if (node.isMultipartMixed()) return planMixed(node);
    if (hasType(node, "multipart/signed")) return planSigned(node);
    if (node.m_subParts.getSize() == 0) {
      if (isTextBody(node)) planAdd(node);
      return;
    }
    if (node.isMultipartAlternative() || node.isMultipartRelated()) planBodies(node);
  }

  /// The first part of each type wins, so the order decides which of several texts is the body: those in body
  /// enclosures come before loose ones.
  void planMixed(const Email2& mixed) {
    planChildren(mixed, [](const Email2& child) { return child.isMultipartRelated(); });
    planChildren(mixed, [](const Email2& child) { return child.isMultipartAlternative(); });
    planChildren(mixed, [](const Email2& child) { return child.isMultipartMixed(); });
    forEachChild(mixed, [this](Email2& child) {
      if (isTextBody(child)) planAdd(child);
    });
  }

  /// The signed content is the first part; the signature is never searched.
  /// Deliberate: a dead first part is chosen too, and yields nothing.
  void planSigned(const Email2& node) {
    for (int i = 0; i < node.m_subParts.getSize(); ++i) {
      Email2* const child = node.m_subParts.at<Email2>(i);
      if (child && !containsNoCase(mediaType(child), "pkcs7")) return planEnumerate(*child);
    }
  }

  void planBodies(const Email2& enclosure) {
    forEachChild(enclosure, [this](Email2& child) {
      if (child.isMultipartAlternative() || child.isMultipartRelated()) {
        planEnumerate(child);
      } else if (isTextBody(child)) {
        planAdd(child);
      }
    });
    if (!enclosure.isMultipartAlternative()) return;
    planChildren(enclosure, [](const Email2& child) { return child.isMultipartMixed(); });
  }

  template <class Wanted>
  void planChildren(const Email2& node, Wanted wanted) {
    forEachChild(node, [&](Email2& child) {
      if (wanted(child)) planEnumerate(child);
    });
  }

  /// Normal mail has two or three text types. A hostile message may have many, which must not cost a
  /// comparison per pair.
  void add(const Email2& candidate) {
    constexpr int kFewTypes = 16;
    if (m_out.getSize() < kFewTypes) return candidate.checkAddEmailUniqueContentType(&candidate, m_out);
    if (m_types.empty())
      for (int i = 0; i < m_out.getSize(); ++i)
        if (const Email2* entry = m_out.at<Email2>(i); entry && entry->isLive())
          m_types.insert(mediaType(entry));
    if (m_types.insert(mediaType(&candidate)).second) m_out.appendPtr(const_cast<Email2*>(&candidate));
  }

  const Email2& m_root;
  ExtPtrArray& m_out;
  std::vector<Step> m_steps;
  std::set<std::string_view, LessNoCase> m_types;  ///< Types in m_out, once there are many.
};

int indexOfType(const ExtPtrArray& alternatives, const char* contentType) noexcept {
  for (int i = 0; i < alternatives.getSize(); ++i)
    if (equalsNoCase(mediaType(alternatives.at<Email2>(i)), viewOf(contentType))) return i;
  return -1;
}

/// Whether a child of a multipart/alternative has the body of this type: itself, or as the main part
/// of a multipart/related.
bool carriesAlternative(const Email2& child, const char* contentType) noexcept {
  if (child.m_contentType.m_type.equalsIgnoreCase(contentType)) return true;
  return child.isMultipartRelated() && child.m_contentType.m_subtype.equalsIgnoreCase(contentType);
}

bool isAttachedMht(const Email2& message) noexcept {
  return message.m_disposition.equalsIgnoreCase("attachment") &&
         message.m_dispFilename.endsWithIgnoreCase(".mht");
}

/// Types that mail clients do not display, although they may be in the place of a body.
/// Deliberate: case-sensitive.
bool isDataType(std::string_view type) noexcept {
  return type == "application/edifact" || type == "application/smil";
}

}  // namespace

void Email2::removeAlternative(const char* contentType, LogBase& log) {
  LogContextExitor context(log, "removeAlternative");
  if (!isLive()) return;
  Email2* const enclosure = findMultipartEnclosure(static_cast<int>(EnclosureKind::alternative), 0);
  if (!enclosure) {
    if (log.m_verboseLogging) log.logInfo("No alternative enclosure found.");
    return;
  }
  for (int i = 0; i < enclosure->m_subParts.getSize(); ++i) {
    const Email2* const child = enclosure->m_subParts.at<Email2>(i);
    if (!child) continue;
    if (!child->isLive()) return;  // Deliberate: a damaged child ends the walk.
    if (!carriesAlternative(*child, contentType)) continue;
    const EmailPtr removed(enclosure->extractSubpartByIndex(i));
    return;
  }
}

void Email2::enumerateAlternatives(const Email2& root, ExtPtrArray& out) {
  neverThrow(false, [&] {
    Enumeration(root, out).run(*this);
    return true;
  });
}

void Email2::checkAddEmailUniqueContentType(const Email2* candidate, ExtPtrArray& list) const {
  if (!isLive() || !candidate) return;
  const std::string_view type = mediaType(candidate);
  for (int i = 0; i < list.getSize(); ++i) {
    const Email2* const entry = list.at<Email2>(i);
    if (entry == candidate) return;
    if (entry && entry->isLive() && equalsNoCase(mediaType(entry), type)) return;
  }
  list.appendPtr(const_cast<Email2*>(candidate));
}

bool Email2::isNotAlternativeBody() {
  const std::string_view type = mediaType(this);
  if (!isLive() || beginsWithNoCase(type, "multipart/")) return false;
  if (equalsNoCase(type, "message/rfc822")) return isAttachedMht(*this);
  if (m_disposition.equalsIgnoreCase("attachment")) return true;
  // Deliberate: a name with base64 makes a part an attachment, even with disposition inline.
  if (!m_contentType.m_name.isEmpty() && m_transferEncoding.equalsIgnoreCase("base64")) return true;
  return m_contentType.m_name.endsWithIgnoreCase(".pem") || isDataType(type);
}

int Email2::getNumAlternatives() {
  ExtPtrArray alternatives;
  enumerateAlternatives(*this, alternatives);
  return alternatives.getSize();
}

Email2* Email2::getAlternative(const Email2& root, int index) {
  ExtPtrArray alternatives;
  enumerateAlternatives(root, alternatives);
  return alternatives.at<Email2>(index);
}

bool Email2::getAlternativeContentType(int index, StringBuffer& out, LogBase*) {
  const Email2* const alternative = getAlternative(*this, index);
  return alternative && out.setString(alternative->m_contentType.m_type);
}

bool Email2::getAlternativeBodyData(const Email2& root, int index, DataBuffer& out, LogBase& log) {
  const Email2* const alternative = getAlternative(root, index);
  if (!alternative) return false;
  // Deliberate: an alternative whose body cannot be read counts as empty.
  alternative->getEffectiveBodyData(root, out, log);
  return true;
}

bool Email2::getAlternativeBodyMb(const Email2& root, int index, DataBuffer& out, int codePage,
                                  LogBase& log) {
  if (!getAlternativeBodyData(root, index, out, log)) return false;
  if (codePage < 1 || codePage == kCpUtf8) return true;
  DataBuffer converted;
  // Deliberate: characters missing from the code page do not make the operation fail.
  EncodingConvert::EncConvert(kCpUtf8, codePage, out.getData2(), out.getSize(), converted, log);
  out.takeData(converted);
  return true;
}

int Email2::getAlternativeIndexByContentType(const char* contentType) {
  if (!isLive()) return 0;  // Deliberate: not -1.
  ExtPtrArray alternatives;
  enumerateAlternatives(*this, alternatives);
  return indexOfType(alternatives, contentType);
}

int Email2::getPlainTextAlternativeIndex() { return getAlternativeIndexByContentType("text/plain"); }

int Email2::getHtmlAlternativeIndex() { return getAlternativeIndexByContentType("text/html"); }

Email2* Email2::getAlternativeByContentType(const char* contentType) {
  ExtPtrArray alternatives;
  enumerateAlternatives(*this, alternatives);
  return alternatives.at<Email2>(indexOfType(alternatives, contentType));
}

Email2* Email2::getPlainTextAlternative() { return getAlternativeByContentType("text/plain"); }

Email2* Email2::getHtmlAlternative() { return getAlternativeByContentType("text/html"); }

}  // namespace mailtree
