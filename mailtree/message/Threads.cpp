#include "mailtree/message/Threads.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <utility>

#include "mailtree/base/Ascii.h"
#include "mailtree/message/answer_subject.h"
#include "mailtree/mime/charset/FoldedText.h"

namespace mailtree {
namespace {

// Texts are kept as hashes, which are equal by chance once in 2^64.
std::uint64_t hashOf(std::string_view text) { return std::hash<std::string_view>{}(text); }

}  // namespace

Threads::Id Threads::addNode() {
  m_nodes.emplace_back();
  return static_cast<Id>(m_nodes.size() - 1);
}

Threads::Id Threads::nodeOf(std::string_view messageId) {
  const auto [place, isNew] = m_byId.try_emplace(hashOf(messageId), kNone);
  if (isNew) place->second = addNode();
  return place->second;
}

void Threads::add(const Entry& entry) {
  const auto message = static_cast<Id>(m_facts.size());
  const std::string subject = foldedText(trim(entry.subject)),
                    base = foldedText(answerSubject("", entry.subject));
  m_facts.push_back({.date = entry.date ? entry.date->time_since_epoch().count() : 0,
                     .subject = base.empty() ? 0 : hashOf(base) | 1,
                     .isAnswer = base != subject});
  // A second message of the same id gets a node that nobody refers to.
  Id node = entry.messageId.empty() ? addNode() : nodeOf(entry.messageId);
  if (m_nodes[node].message != kNone) node = addNode();
  m_nodes[node].message = message;
  Id before = kNone;
  for (const std::string& id : entry.references) {
    const Id referred = nodeOf(id);
    if (m_nodes[referred].otherParent == kNone) m_nodes[referred].otherParent = before;
    before = referred;
  }
  if (before == kNone && !entry.inReplyTo.empty()) before = nodeOf(entry.inReplyTo);
  m_nodes[node].ownParent = before;
}

/// Sets the parents. What a message says itself counts more than what others say. A node gets a parent only
/// as the root of its tree, so a link makes a circle exactly when both are in one tree.
void Threads::linkAll() {
  std::vector<Id> trees(m_nodes.size());
  std::iota(trees.begin(), trees.end(), Id{0});
  const auto treeOf = [&trees](Id node) {
    for (; trees[node] != node; node = trees[node]) trees[node] = trees[trees[node]];
    return node;
  };
  for (Id Node::*const parent : {&Node::ownParent, &Node::otherParent})
    for (Id id = 0; id < m_nodes.size(); ++id) {
      Node& node = m_nodes[id];
      if (node.parent != kNone || node.*parent == kNone || treeOf(node.*parent) == treeOf(id)) continue;
      node.parent = node.*parent;
      trees[treeOf(id)] = treeOf(node.parent);
    }
}

/// The conversations without the places of missing messages, but for those that hold several together.
class Threads::Arrangement {
 public:
  explicit Arrangement(const std::vector<Facts>& facts) : m_facts(facts), m_children(facts.size()) {}

  void takeTree(const std::vector<Node>& nodes) {
    std::vector<std::vector<Id>> children(nodes.size());
    for (Id id = 0; id < nodes.size(); ++id)
      if (nodes[id].parent != kNone) children[nodes[id].parent].push_back(id);
    struct Place {
      Id node, above;  ///< The nearest message above.
    };
    std::vector<Place> waiting;
    for (Id root = 0; root < nodes.size(); ++root) {
      if (nodes[root].parent != kNone) continue;
      std::vector<Id> top;
      waiting.push_back({root, kNone});
      while (!waiting.empty()) {
        const auto [node, above] = waiting.back();
        waiting.pop_back();
        const Id message = nodes[node].message;
        if (message != kNone) (above == kNone ? top : m_children[above]).push_back(message);
        for (const Id child : children[node]) waiting.push_back({child, message == kNone ? above : message});
      }
      if (!top.empty()) m_roots.push_back(top.size() == 1 ? top.front() : addDummy(std::move(top)));
    }
  }

  void joinSubjects() {
    sort(m_roots);
    std::unordered_map<std::uint64_t, Id> bySubject;
    for (const Id root : m_roots) {
      const auto [place, isNew] = bySubject.try_emplace(factsOf(root).subject, root);
      Id& known = place->second;
      if (isNew || isDummy(known)) continue;
      if (isDummy(root) || (factsOf(known).isAnswer && !factsOf(root).isAnswer)) known = root;
    }
    bySubject.erase(0);
    std::vector<Id> left;
    for (const Id root : m_roots) {
      const auto found = bySubject.find(factsOf(root).subject);
      if (found == bySubject.end() || found->second == root) {
        left.push_back(root);
        continue;
      }
      join(found->second, root);
    }
    for (Id& root : left)
      if (const auto joined = m_joined.find(root); joined != m_joined.end()) root = joined->second;
    m_roots = std::move(left);
    sort(m_roots);
  }

  std::vector<Row> rows() {
    std::vector<Row> rows;
    rows.reserve(m_facts.size());
    std::vector<std::pair<Id, std::size_t>> waiting;  // nodes with their depths, the next one last
    for (std::size_t thread = 1; thread <= m_roots.size(); ++thread) {
      waiting.emplace_back(m_roots[thread - 1], 0);
      while (!waiting.empty()) {
        const auto [node, depth] = waiting.back();
        waiting.pop_back();
        if (!isDummy(node)) rows.push_back({node, thread, depth});
        std::vector<Id>& children = m_children[node];
        sort(children);
        // Instead of the message that is missing, its first answer is on top.
        for (auto child = children.rbegin(); child != children.rend(); ++child)
          waiting.emplace_back(*child, isDummy(node) && *child == children.front() ? depth : depth + 1);
      }
    }
    return rows;
  }

 private:
  bool isDummy(Id node) const noexcept { return node >= m_facts.size(); }
  const Facts& factsOf(Id node) const {
    while (isDummy(node)) node = m_children[node].front();
    return m_facts[node];
  }

  Id addDummy(std::vector<Id> children) {
    sort(children);
    m_children.push_back(std::move(children));
    return static_cast<Id>(m_children.size() - 1);
  }

  void sort(std::vector<Id>& nodes) const {
    std::ranges::sort(nodes, {}, [this](Id node) { return std::pair(factsOf(node).date, node); });
  }

  /// Adds a conversation to the one that is known by their subject.
  void join(Id known, Id root) {
    const auto joined = m_joined.find(known);
    const Id target = joined == m_joined.end() ? known : joined->second;
    if (isDummy(target) && isDummy(root)) {
      std::vector<Id> children = std::move(m_children[root]);
      m_children[target].insert(m_children[target].end(), children.begin(), children.end());
    } else if (isDummy(target) || (factsOf(root).isAnswer && !factsOf(target).isAnswer)) {
      m_children[target].push_back(root);
    } else {
      m_joined[known] = addDummy({target, root});
    }
  }

  const std::vector<Facts>& m_facts;
  std::vector<std::vector<Id>> m_children;  ///< By message; those of dummies follow.
  std::vector<Id> m_roots;
  std::unordered_map<Id, Id> m_joined;  ///< The dummies that took the places of conversations.
};

std::vector<Threads::Row> Threads::rows() {
  linkAll();
  m_byId = {};
  Arrangement arrangement(m_facts);
  arrangement.takeTree(m_nodes);
  m_nodes = {};
  arrangement.joinSubjects();
  return arrangement.rows();
}

}  // namespace mailtree
