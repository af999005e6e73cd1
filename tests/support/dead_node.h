// tests/support/dead_node.h - nodes that look destroyed, and what a log says about them.
#pragma once

#include <algorithm>

#include "mailtree/email/Email2.h"

namespace mailtree {

/// Takes the marker of a node away for the length of a scope.
class Killed {
 public:
  explicit Killed(Email2& node) : m_node(node) { writeMarker(m_node.m_magic, 0); }
  Killed(const Killed&) = delete;
  Killed& operator=(const Killed&) = delete;
  ~Killed() { writeMarker(m_node.m_magic, kEmailMarker); }

 private:
  Email2& m_node;
};

/// Entries that say something: errors, information and data, but no contexts.
inline int countMessages(const LogMemory& log) {
  return static_cast<int>(std::ranges::count_if(log.entries(), [](const LogEntry& entry) {
    return entry.kind != LogEntry::Kind::ContextOpen && entry.kind != LogEntry::Kind::ContextClose;
  }));
}

}  // namespace mailtree
