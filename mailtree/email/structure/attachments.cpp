// email/structure/attachments.cpp - which nodes are attachments, their order, and taking them out.
//
// The decision about one part is in mime/AttachmentRules.h. Here is what depends on its place in the tree.
// Walks keep their own stack: a tree made by hand may be deeper than any call stack.
#include <algorithm>
#include <unordered_set>
#include <vector>

#include "mailtree/base/SubstringSet.h"
#include "mailtree/email/structure/internal.h"

namespace mailtree {
namespace {

/// Types that count as a mixed enclosure when attachments are looked for; the fourth stands so in real mail.
constexpr std::string_view kMixedLikeTypes[] = {kMultipartMixed, kMultipartReplace, "multipart/encrypted",
                                                "multipart/*", "multipart/voice-message"};

/// What a node is to the attachments among its children.
enum class Enclosing { mixedLike, related, fax, alternative, signedContent, other };

Enclosing classify(const Email2& node) noexcept {
  if (node.isMultipartMixedForAttachmentPurposes()) return Enclosing::mixedLike;
  if (node.isMultipartRelated()) return Enclosing::related;
  if (node.isMultipartFax()) return Enclosing::fax;
  if (node.isMultipartAlternative()) return Enclosing::alternative;
  // Deliberate: compared with regard to case, unlike the others.
  if (mediaType(&node) == "multipart/signed") return Enclosing::signedContent;
  return Enclosing::other;
}

/// An attachment by its own fields, and no multipart.
bool isLeafAttachment(Email2& node, bool inMixed, LogBase& log) {
  return node.isEmailAttachment(inMixed, log) && !node.isMultipart();
}

/// Lists attachments, or takes the one with a given number out of the tree.
/// Deliberate: the two modes do not number alike below alternatives and signed parts. A node reached there
/// can be listed but has no parent at hand to be taken from, and is then not counted either.
class AttachmentWalk {
 public:
  /// @param target  number of the attachment to take out; below 0 all are listed.
  /// @param places  receives where each attachment that is listed stands; may be null.
  AttachmentWalk(ExtPtrArray& out, int target, LogBase& log, std::vector<AttachmentPlace>* places = nullptr)
      : m_out(out), m_target(target), m_log(log), m_places(places) {}

  bool run(Email2& start, bool inMixed) {
    const Entered entered = enter(start, inMixed);
    if (entered != Entered::opened) return entered == Entered::listed;
    while (!m_frames.empty()) {
      Frame& frame = m_frames.back();
      if (frame.next >= frame.node->m_subParts.getSize()) {
        m_frames.pop_back();
        if (hasTarget()) return true;
        continue;
      }
      const int index = frame.next++;
      Email2* const child = liveChild(*frame.node, index);
      if (child && visit(frame, *child, index)) return true;
    }
    return hasTarget();
  }

 private:
  struct Frame {
    Email2* node;
    bool inMixed;
    Enclosing kind;
    bool several;           ///< Taking out, and there is more than one child.
    int next = 0;           ///< Child to look at.
    bool bodySeen = false;  ///< A sibling before it was an alternative or a related enclosure.
  };
  enum class Entered { nothing, listed, opened };

  bool isTakingOut() const noexcept { return m_target >= 0; }
  bool isTargetNext() const noexcept { return m_out.getSize() == m_target; }
  bool hasTarget() const noexcept { return isTakingOut() && m_out.getSize() > m_target; }

  Entered enter(Email2& node, bool inMixed) {
    if (!node.isLive()) return Entered::nothing;
    if (isLeafAttachment(node, inMixed, m_log)) {
      if (isTakingOut()) return Entered::nothing;
      m_out.appendPtr(&node);
      notePlace(node, nullptr, 0);
      return Entered::listed;
    }
    const bool several = isTakingOut() && node.m_subParts.getSize() > 1;
    m_frames.push_back({&node, inMixed, classify(node), several});
    return Entered::opened;
  }

  /// Looks below a child. True when the search is over.
  bool descend(Email2& child, bool inMixed) {
    return enter(child, inMixed) != Entered::opened && hasTarget();
  }

  /// An attachment among alternatives is listed like one without a parent, but it has one that gives it away.
  bool descendFromAlternative(Email2* alternative, Email2& child, int index) {
    const Entered entered = enter(child, false);
    if (entered == Entered::listed && m_places) m_places->back() = {&child, alternative, index};
    return entered != Entered::opened && hasTarget();
  }

  void notePlace(Email2& node, Email2* parent, int index) {
    if (m_places) m_places->push_back({&node, parent, index});
  }

  /// True when the search is over.
  bool visit(Frame& frame, Email2& child, int index) {
    if (followsBody(frame, child)) return take(frame, child, index, "Yes (follows multipart/mixed)");
    frame.bodySeen = frame.bodySeen || child.isMultipartAlternative() || child.isMultipartRelated();
    switch (frame.kind) {
      case Enclosing::mixedLike:
        if (child.isEmailAttachment(true, m_log)) return take(frame, child, index, nullptr);
        return isSearchedInMixed(child) && descend(child, true);
      case Enclosing::related:
      case Enclosing::fax:
        return child.isStrictAttachment(nullptr) &&
               take(frame, child, index, "Yes (multipart related/fax AND strict attachment)");
      case Enclosing::alternative:
        if (frame.several && isLeafAttachment(child, frame.inMixed, m_log) && isTargetNext())
          return take(frame, child, index, nullptr);
        return descendFromAlternative(frame.node, child, index);
      case Enclosing::signedContent: return descend(child, false);
      case Enclosing::other: break;
    }
    return false;
  }

  /// Everything after the body of a mixed message is an attachment, whatever it says of itself.
  static bool followsBody(const Frame& frame, const Email2& child) noexcept {
    return frame.kind == Enclosing::mixedLike && frame.bodySeen && !child.isMultipart() &&
           !equalsNoCase(mediaType(&child), "message/rfc822");
  }

  static bool isSearchedInMixed(const Email2& child) noexcept {
    switch (classify(child)) {
      case Enclosing::mixedLike:
      case Enclosing::related:
      case Enclosing::fax:
      case Enclosing::alternative: return true;
      default: return false;
    }
  }

  /// Lists a child, or takes it out when it is the one that is wanted. True when it was.
  bool take(Frame& frame, Email2& child, int index, const char* reason) {
    if (reason && m_log.m_verboseLogging) child.logAttachmentReason(m_log, reason);
    const bool isTarget = isTakingOut() && isTargetNext();
    if (!m_out.appendPtr(&child)) return false;
    notePlace(child, frame.node, index);
    if (isTarget) frame.node->extractSubpartByIndex(index);
    return isTarget;
  }

  ExtPtrArray& m_out;
  const int m_target;
  LogBase& m_log;
  std::vector<AttachmentPlace>* const m_places;
  std::vector<Frame> m_frames;
};

/// Destroys the children that `isDoomed` names, from the last to the first. False at a dead child; those
/// before it stay. The list is taken apart from its end and put together again, which is linear however many
/// go.
template <class IsDoomed>
bool dropChildren(Email2& node, IsDoomed&& isDoomed) {
  std::vector<Email2*> kept;
  kept.reserve(static_cast<std::size_t>(node.m_subParts.getSize()));
  bool intact = true;
  while (intact && node.m_subParts.getSize() > 0) {
    Email2* const child = node.extractSubpartByIndex(node.m_subParts.getSize() - 1);
    intact = !child || child->isLive();
    if (child && intact && isDoomed(*child)) {
      const EmailPtr dropped(child);
    } else {
      kept.push_back(child);
    }
  }
  std::reverse(kept.begin(), kept.end());
  for (Email2* const child : kept) node.m_subParts.appendPtr(child);
  return intact;
}

/// Whether attachments are dropped from a node: the one it begins with, and the enclosures below.
bool losesAttachments(const Email2& node, int level) {
  return level == 0 || node.isMultipartRelated() || node.isMultipartMixed();
}

StringBuffer bareContentId(const Email2& part, LogBase& log) {
  StringBuffer contentId;
  part.getHeaderFieldUtf8("Content-ID", contentId, log);
  contentId.removeCharOccurances('>');
  contentId.removeCharOccurances('<');
  return contentId;
}

/// The strict attachments to which the HTML text refers by Content-ID, in one search for all of them.
std::unordered_set<const Email2*> referencedAttachments(Email2& root, std::string_view html) {
  LogNull quiet;
  std::vector<const Email2*> parts;
  SubstringSet ids;
  walkTree(root, [&](const Email2& part) {
    if (!part.isStrictAttachment(nullptr)) return Walk::onward;
    parts.push_back(&part);
    ids.add(bareContentId(part, quiet));
    return Walk::onward;
  });
  const std::vector<bool> found = ids.findIn(html);
  std::unordered_set<const Email2*> referenced;
  for (std::size_t i = 0; i < parts.size(); ++i)
    if (found[i]) referenced.insert(parts[i]);
  return referenced;
}

void logReferencedPart(const Email2& part, LogBase& log) {
  if (!log.m_verboseLogging) return;
  log.logInfo("Not removing attachment because Content-ID is found in HTML body.");
  log.LogDataSb("contentId", bareContentId(part, log));
}

struct LoggedField {
  const char* tag;
  const char* field;
};

constexpr LoggedField kDroppedPartFields[] = {
    {"contentType", "Content-Type"},
    {"contentDisposition", "Content-Disposition"},
    {"contentId", "Content-ID"},
    {"contentLocation", "Content-Location"},
};

void logDroppedPart(const Email2& part, LogBase& log) {
  if (!log.m_verboseLogging) return;
  LogContextExitor context(log, "removingStrictAttachment");
  for (const LoggedField& row : kDroppedPartFields) {
    StringBuffer value;
    part.getHeaderFieldUtf8(row.field, value, log);
    log.LogDataSb(row.tag, value);
  }
}

void logUnlessEmpty(LogBase& log, std::string_view tag, std::string_view value) {
  if (!value.empty()) log.LogDataSb(tag, value);
}

/// A question about parts of a media type, as getNthPartOfType asks it.
struct PartQuery {
  std::string_view type;
  bool inlineOnly;
  bool excludeAttachments;

  bool matchesType(const Email2& part) const noexcept {
    if (contains(type, "*")) return matchesWildcard(mediaType(&part), type, /*caseSensitive=*/false);
    return equalsNoCase(mediaType(&part), type);
  }
  bool matches(const Email2& part) const noexcept {
    if (!matchesType(part)) return false;
    if (inlineOnly) return part.m_disposition.equalsIgnoreCase("inline");
    return !excludeAttachments || !part.m_disposition.equalsIgnoreCase("attachment");
  }
};

bool pushChildren(const Email2& node, _svQueue& queue) {
  for (int i = 0; i < node.m_subParts.getSize(); ++i)
    if (!queue.push(node.m_subParts.elementAt(i))) return false;
  return true;
}

}  // namespace

std::vector<AttachmentPlace> placesOfAttachments(Email2& root, LogBase& log) {
  ExtPtrArray attachments;
  std::vector<AttachmentPlace> places;
  AttachmentWalk(attachments, /*target=*/-1, log, &places)
      .run(root, root.isMultipartMixedForAttachmentPurposes());
  return places;
}

bool Email2::isEmailAttachment(bool inMixed, LogBase& log) {
  LogContextExitor context(log, "isEmailAttachment", log.m_verboseLogging);
  if (!isLive()) return false;
  PartTraits part = traits();
  part.hasMessageClass = inMixed && part.type == "text/plain" &&
                         m_header.hasHeaderMatchingUtf8("Content-Class", "*content-classes:message*",
                                                        /*caseSensitive=*/false, log);
  const AttachmentVerdict verdict = judgeAttachment(part, inMixed);
  if (log.m_verboseLogging) logAttachmentReason(log, verdict.reason);
  return verdict.isAttachment;
}

bool Email2::isStrictAttachment(LogBase* log) const {
  if (!isLive()) return false;
  const StrictVerdict verdict = judgeStrictAttachment(traits());
  if (verdict.reason && log && log->m_verboseLogging) log->logInfo(verdict.reason);
  return verdict.isStrict;
}

void Email2::logAttachmentReason(LogBase& log, const char* reason) {
  if (!isLive()) return;
  LogContextExitor context(log, "attachmentReason");
  log.LogDataSb("contentType", m_contentType.m_type);
  StringBuffer subject, from;
  getHeaderFieldUtf8("Subject", subject, log);
  getFromFullUtf8(from, log);
  logUnlessEmpty(log, "subject", subject);
  logUnlessEmpty(log, "from", from);
  logUnlessEmpty(log, "disposition", m_disposition);
  logUnlessEmpty(log, "filename", m_dispFilename);
  logUnlessEmpty(log, "name", m_contentType.m_name);
  log.logInfo(viewOf(reason));
}

bool Email2::isMultipartMixedForAttachmentPurposes() const {
  return std::ranges::any_of(kMixedLikeTypes, [this](std::string_view type) { return hasType(*this, type); });
}

bool Email2::isMultipartFax() const { return hasType(*this, "multipart/fax-message"); }

bool Email2::attachmentIterate2(bool inMixed, ExtPtrArray& out, int target, LogBase& log) {
  return neverThrow(false, [&] { return AttachmentWalk(out, target, log).run(*this, inMixed); });
}

int Email2::getNumAttachments(LogBase& log) {
  ExtPtrArray attachments;
  attachmentIterate2(isMultipartMixedForAttachmentPurposes(), attachments, -1, log);
  return attachments.getSize();
}

Email2* Email2::getAttachment(int index) {
  LogNull quiet;
  return getAttachment2(index, quiet);
}

Email2* Email2::getAttachment2(int index, LogBase& log) {
  ExtPtrArray attachments;
  attachmentIterate2(isMultipartMixedForAttachmentPurposes(), attachments, -1, log);
  return attachments.at<Email2>(index);
}

Email2* Email2::extractAttachment(int index) {
  if (index < 0) return nullptr;  // the walk would list, and take nothing out
  LogNull quiet;
  ExtPtrArray attachments;
  attachmentIterate2(isMultipartMixedForAttachmentPurposes(), attachments, index, quiet);
  return attachments.at<Email2>(index);
}

bool Email2::dropSingleAttachment(int index, LogBase& log) {
  if (!isLive()) return false;
  LogContextExitor context(log, "dropSingleAttachment");
  ExtPtrArray attachments;
  if (!attachmentIterate2(isMultipartMixedForAttachmentPurposes(), attachments, index, log))
    log.logError("Internal error in iterating attachments.");
  const EmailPtr dropped(attachments.at<Email2>(index));
  return dropped != nullptr;
}

void Email2::dropAttachments() {
  neverThrow(false, [this] {
    LogNull quiet;
    walkTree(*this, [&](Email2& node, int level) {
      if (!losesAttachments(node, level)) return Walk::skipChildren;
      const Enclosing kind = classify(node);
      // Deliberate: what merely follows the body of a mixed message is not dropped, though it is listed.
      const bool intact = dropChildren(node, [&](Email2& child) {
        if (kind == Enclosing::mixedLike) return child.isEmailAttachment(true, quiet);
        return kind == Enclosing::related && child.isStrictAttachment(nullptr);
      });
      return intact ? Walk::onward : Walk::skipChildren;
    });
    return true;
  });
}

void Email2::dropAttachmentsForTempMht(StringBuffer& html, LogBase& log) {
  neverThrow(false, [&] {
    const std::unordered_set<const Email2*> referenced = referencedAttachments(*this, html.view());
    walkTree(*this, [&](Email2& node, int level) {
      if (!losesAttachments(node, level)) return Walk::skipChildren;
      const bool intact = dropChildren(node, [&](Email2& child) {
        if (!child.isStrictAttachment(&log)) return false;
        if (referenced.contains(&child)) {
          logReferencedPart(child, log);
          return false;
        }
        logDroppedPart(child, log);
        return true;
      });
      return intact ? Walk::onward : Walk::stop;  // Deliberate: a damaged child ends it wholly.
    });
    return true;
  });
}

Email2* Email2::getNthPartOfType(int index, const char* contentType, bool inlineOnly, bool excludeAttachments,
                                 int& count, LogBase& log) {
  LogContextExitor context(log, "getNthPartOfType");
  if (!isLive()) return nullptr;
  count = 0;
  if (!contentType) return nullptr;
  const PartQuery query{contentType, inlineOnly, excludeAttachments};

  if (m_subParts.getSize() == 0) {
    // Deliberate: a message of one part is found whatever its disposition.
    if (index != 0 || !query.matchesType(*this)) return nullptr;
    ++count;
    return this;
  }

  _svQueue queue;
  if (!pushChildren(*this, queue)) return nullptr;
  while (queue.hasObjects()) {
    Email2* const part = static_cast<Email2*>(queue.pop());
    if (!part || !part->isLive()) continue;
    if (part->m_subParts.getSize() > 0) {
      if (!pushChildren(*part, queue)) return nullptr;
    } else if (query.matches(*part) && count++ == index) {
      return part;
    }
  }
  return nullptr;
}

Email2* Email2::findHtmlPart() {
  Email2* node = this;
  while (node && node->isLive()) {
    if (node->isMultipartAlternative()) return node->getHtmlAlternative();
    if (!node->isMultipart()) return hasType(*node, "text/html") ? node : nullptr;
    node = node->m_subParts.at<Email2>(0);
  }
  return nullptr;
}

}  // namespace mailtree
