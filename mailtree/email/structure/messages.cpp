// email/structure/messages.cpp - messages inside a message: attached ones and the entries of a digest.
#include <limits>
#include <vector>

#include "mailtree/email/loading/settings_restorer.h"
#include "mailtree/email/structure/enclosure_walk.h"

namespace mailtree {
namespace {

constexpr std::string_view kAttachedMessage = "message/rfc822";
constexpr unsigned kLastDigestPosition = 10'000;

struct MessageVisitor : EnclosureVisitor {
  bool isWanted(const Email2& node) const noexcept { return hasType(node, kAttachedMessage); }
};

class MessageCount : public MessageVisitor {
 public:
  explicit MessageCount(LogBase& log) : m_log(log) {}
  int count() const noexcept { return m_count; }

  void visit(const Email2& node) { m_log.LogDataSb("contentType", mediaType(&node)); }
  bool take(const Email2&, const WalkLevel* enclosure) {
    m_log.logInfo(enclosure ? "Found attached message." : "Found message attachment.");
    ++m_count;
    return false;
  }

 private:
  LogBase& m_log;
  int m_count = 0;
};

/// A position counted through the whole walk.
class MessagePosition : public MessageVisitor {
 public:
  MessagePosition(int index, int& counter) noexcept : m_index(index), m_counter(counter) {}

 protected:
  bool isAtIndex() const noexcept { return m_counter == m_index; }
  bool advance() noexcept {
    if (isAtIndex()) return false;
    if (m_counter < std::numeric_limits<int>::max()) ++m_counter;
    return true;
  }

 private:
  int m_index;
  int& m_counter;
};

/// Finds the text of the message at a position. Only a part in an enclosure may have none (null).
class MessageText : public MessagePosition {
 public:
  using MessagePosition::MessagePosition;
  const DataBuffer* text() const noexcept { return m_text; }

  bool take(Email2& part, const WalkLevel* enclosure) {
    if (advance()) return false;
    m_text = part.getEffectiveBodyObject3(part);
    return m_text || enclosure;
  }

 private:
  const DataBuffer* m_text = nullptr;
};

/// Finds the part that holds the message at a position.
class MessagePart : public MessagePosition {
 public:
  using MessagePosition::MessagePosition;
  const Email2* part() const noexcept { return m_part; }

  bool take(const Email2& part, const WalkLevel*) {
    if (advance()) return false;
    m_part = &part;
    return true;
  }
  /// Deliberate: leaves the enclosure although the wanted message may follow in it.
  void leaveNested(WalkLevel& enclosure) const noexcept {
    if (isAtIndex()) enclosure.end();
  }

 private:
  const Email2* m_part = nullptr;
};

/// Removes the message at a position, counted per enclosure.
class MessageRemoval : public MessageVisitor {
 public:
  explicit MessageRemoval(int index) noexcept : m_index(index) {}

  bool take(const Email2&, WalkLevel* enclosure) const {
    if (!enclosure || enclosure->count++ != m_index) return false;
    const EmailPtr removed(enclosure->node->extractSubpartByIndex(enclosure->next - 1));
    return true;
  }
  void visitDead(WalkLevel& enclosure) const noexcept { enclosure.end(); }

 private:
  int m_index;
};

/// Lists the enclosures from which messages can be removed.
class MessageEnclosures : public MessageVisitor {
 public:
  const std::vector<Email2*>& nodes() const noexcept { return m_nodes; }

  bool take(const Email2&, WalkLevel* enclosure) {
    if (enclosure && enclosure->count++ == 0) m_nodes.push_back(enclosure->node);
    return false;
  }
  void visitDead(WalkLevel& enclosure) const noexcept { enclosure.end(); }

 private:
  std::vector<Email2*> m_nodes;
};

/// Destroys the messages directly in an enclosure, up to the first dead child, in one advance.
void removeMessagesFrom(Email2& enclosure) {
  ExtPtrArray parts;
  if (!enclosure.m_subParts.transferPtrs(parts)) return;
  bool deadSeen = false;
  for (int i = 0; i < parts.getSize(); ++i) {
    Email2* const part = parts.at<Email2>(i);
    deadSeen |= part && !part->isLive();
    if (!deadSeen && part && hasType(*part, kAttachedMessage)) {
      const EmailPtr removed(part);
      continue;
    }
    enclosure.m_subParts.appendPtr(part);  // the list already has capacity for all
  }
  parts.removeAll();
}

Email2* loadAttachedMessage(_svEmailCommon& common, std::string_view message, bool unwrap, SystemCerts& certs,
                            LogBase& log) {
  const OutcomeRestorer restorer(common);  // the outer message shares these settings
  StringBuffer mime;
  if (!mime.setString(message)) return nullptr;
  return Email2::createFromMimeText2(common, mime, /*discardInput=*/true, unwrap, certs, log,
                                     /*parseOption=*/false);
}

Email2* digestEntryAt(const Email2& digest, int index) noexcept {
  Email2* found = nullptr;
  forEachChild(digest, [&](Email2& child) {
    if (hasType(child, kAttachedMessage) && index-- == 0) found = &child;
  });
  return found;
}

}  // namespace

int Email2::getNumAttachedMessages(LogBase& log) {
  if (!isLive()) return 0;
  return neverThrow(0, [&] {
    MessageCount visitor(log);
    walkEnclosures(*this, visitor);
    return visitor.count();
  });
}

Email2* Email2::getAttachedMessage(int index, int& counter, SystemCerts& certs, LogBase& log) {
  if (!isLive() || !m_common) return nullptr;
  return neverThrow<Email2*>(nullptr, [&]() -> Email2* {
    LogContextExitor context(log, "getAttachedMessage");
    MessageText visitor(index, counter);
    if (!walkEnclosures(*this, visitor)) return nullptr;
    const bool unwrap = !log.hasOption("NoUnwrapAttachedMessage");
    const std::string_view text = visitor.text() ? visitor.text()->view() : std::string_view();
    return loadAttachedMessage(*m_common, text, unwrap, certs, log);
  });
}

bool Email2::getAttachedMessageAttr(int index, int& counter, XString& fieldName, XString& attrName,
                                    LogBase& log, XString& out) {
  out.clear();
  if (!isLive()) return false;
  return neverThrow(false, [&] {
    MessagePart visitor(index, counter);
    if (!walkEnclosures(*this, visitor)) return false;
    const Email2& part = *visitor.part();
    if (fieldName.equalsIgnoreCaseUsAscii("Content-Disposition") &&
        attrName.equalsIgnoreCaseUsAscii("filename"))
      out.setFromSbUtf8(part.m_dispFilename);
    else
      part.m_header.getSubFieldUtf8(fieldName.getUtf8(), attrName.getUtf8(), out.getUtf8Sb_rw(), log);
    return !out.isEmpty();
  });
}

bool Email2::removeAttachedMessage(int index) {
  if (!isLive()) return false;
  return neverThrow(false, [&] {
    MessageRemoval visitor(index);
    return walkEnclosures(*this, visitor);
  });
}

void Email2::removeAttachedMessages() {
  if (!isLive()) return;
  neverThrow(false, [&] {
    MessageEnclosures visitor;
    walkEnclosures(*this, visitor);
    for (Email2* enclosure : visitor.nodes()) removeMessagesFrom(*enclosure);
    return true;
  });
}

int Email2::getNumDigests() {
  if (!isMultipartDigest()) return 0;
  int count = 0;
  forEachChild(*this, [&](const Email2& child) { count += hasType(child, kAttachedMessage); });
  return count;
}

Email2* Email2::getNthDigest(int index, SystemCerts& certs, LogBase& log) {
  if (static_cast<unsigned>(index) > kLastDigestPosition || !m_common || !isMultipartDigest()) return nullptr;
  LogContextExitor context(log, "getNthDigest");
  Email2* const entry = digestEntryAt(*this, index);
  const DataBuffer* const text = entry ? entry->getEffectiveBodyObject3(*entry) : nullptr;
  return text ? loadAttachedMessage(*m_common, text->view(), /*unwrap=*/true, certs, log) : nullptr;
}

}  // namespace mailtree
