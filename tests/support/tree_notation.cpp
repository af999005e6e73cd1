#include "tests/support/tree_notation.h"

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <utility>

#include "mailtree/base/Platform.h"

namespace mailtree {
namespace {

/// Words and types. The first word of a type is the one it is printed with.
const auto& words() {
  static const auto rows = casesOf<2>(R"(
      mixed | multipart/mixed              alternative | multipart/alternative   alt | multipart/alternative
      related | multipart/related          digest | multipart/digest             report | multipart/report
      signed | multipart/signed            encrypted | multipart/encrypted       fax | multipart/fax-message
      plain | text/plain                   html | text/html                      calendar | text/calendar
      pdf | application/pdf                png | image/png                       zip | application/zip
      octet | application/octet-stream     rfc822 | message/rfc822               none |
      delivery | message/delivery-status   p7s | application/pkcs7-signature)");
  return rows;
}

/// What is between a node's word and its children.
struct NodeText {
  std::string word;
  std::string type;
  std::map<std::string, std::string, std::less<>> attributes;
  std::string disposition;

  /// Null where the attribute was not given.
  const char* find(std::string_view key) const {
    const auto found = attributes.find(key);
    return found == attributes.end() ? nullptr : found->second.c_str();
  }
};

bool is7bitType(std::string_view type) {
  return type.starts_with("text/") || type.starts_with("multipart/") || type.starts_with("message/");
}

/// Gives a new node the content that its text describes.
void fillNode(Email2& node, const NodeText& text, bool isLeaf) {
  LogNull log;
  StringBuffer boundary;
  if (text.type.starts_with("multipart/")) Psdk::generateBoundary(boundary, log);

  if (text.type.empty()) {
    node.removeHeaderField("Content-Type");
  } else {
    node.setContentTypeUtf8(text.type.c_str(), text.find("name"), nullptr, nullptr, 0,
                            boundary.isEmpty() ? nullptr : boundary.getString(), nullptr, nullptr, log);
  }
  const char* encoding = text.find("enc");
  node.setContentEncodingNonRecursive(encoding ? encoding : is7bitType(text.type) ? "7bit" : "base64", log);
  const char* file = text.find("file");
  if (file || !text.disposition.empty()) node.setContentDispositionUtf8(text.disposition.c_str(), file, log);
  if (const char* id = text.find("cid")) node.setContentId(id, log);
  if (const char* messageClass = text.find("class")) node.setHeaderField("Content-Class", messageClass, log);
  if (const char* body = text.find("body")) {
    node.m_body.append(viewOf(body));
  } else if (isLeaf) {
    node.m_body.append(text.word);
  }
}

class TreeReader {
 public:
  explicit TreeReader(std::string_view text) : m_text(text) {}

  EmailPtr readWhole() {
    EmailPtr root(new Email2);
    readInto(*root);
    if (!atEnd()) fail("text after the tree");
    return root;
  }

 private:
  void readInto(Email2& node) {
    const NodeText text = readNodeText();
    const bool isLeaf = !accept('(');
    fillNode(node, text, isLeaf);
    if (isLeaf) return;
    do {
      EmailPtr child(Email2::createNewObject0(*node.m_common));
      readInto(*child);
      node.insertSubPartAtIndex(child.release(), -1);
    } while (accept(','));
    expect(')');
  }

  NodeText readNodeText() {
    NodeText text;
    text.word = readUntil("[:(),");
    text.type = typeOf(text.word);
    if (accept('[')) {
      do {
        const std::string key = readUntil("=");
        expect('=');
        text.attributes[key] = readUntil(",]");
      } while (accept(','));
      expect(']');
    }
    if (accept(':')) text.disposition = readUntil("(),");
    return text;
  }

  std::string typeOf(std::string_view word) const {
    for (const auto& [known, type] : words())
      if (known == word) return type;
    if (word.find('/') == std::string_view::npos) fail("unknown word \"" + std::string(word) + "\"");
    return std::string(word);
  }

  std::string readUntil(std::string_view stops) {
    const std::size_t end = std::min(m_text.find_first_of(stops, m_at), m_text.size());
    const std::size_t begin = std::exchange(m_at, end);
    return std::string(m_text.substr(begin, end - begin));
  }

  bool atEnd() const { return m_at == m_text.size(); }
  bool accept(char c) {
    if (atEnd() || m_text[m_at] != c) return false;
    ++m_at;
    return true;
  }
  void expect(char c) {
    if (!accept(c)) fail(std::string("missing '") + c + "'");
  }
  [[noreturn]] void fail(const std::string& what) const {
    throw std::invalid_argument(what + " at " + std::to_string(m_at) + " in " + std::string(m_text));
  }

  std::string_view m_text;
  std::size_t m_at = 0;
};

std::string_view wordOf(std::string_view type) {
  for (const auto& [word, known] : words())
    if (equalsNoCase(type, known)) return word;
  return type;
}

std::string namesOf(const Email2& node) {
  std::string names;
  const auto add = [&](const char* key, const StringBuffer& value) {
    if (value.isEmpty()) return;
    names += names.empty() ? "[" : ",";
    names.append(key).append("=").append(value.view());
  };
  add("name", node.m_contentType.m_name);
  add("file", node.m_dispFilename);
  return names.empty() ? names : names + "]";
}

void print(const Email2* node, TreeDetail detail, std::string& out) {
  if (!node || !node->isLive()) {
    out += node ? "dead" : "null";
    return;
  }
  out += wordOf(node->m_contentType.m_type);
  if (detail == TreeDetail::names) out += namesOf(*node);
  if (!node->m_disposition.isEmpty()) out.append(":").append(node->m_disposition.view());
  const int count = node->getNumParts();
  for (int i = 0; i < count; ++i) {
    out += i == 0 ? '(' : ',';
    print(node->getPartConst(i), detail, out);
  }
  if (count > 0) out += ')';
}

}  // namespace

EmailPtr buildTree(std::string_view text) { return TreeReader(text).readWhole(); }

std::string printTree(const Email2* node, TreeDetail detail) {
  std::string out;
  print(node, detail, out);
  return out;
}

void expectOfTrees(const std::function<std::string(Email2&)>& see, std::string_view table) {
  for (const auto& [tree, result] : casesOf<2>(table)) EXPECT_EQ(see(*buildTree(tree)), result) << tree;
}

}  // namespace mailtree
