#include "mailtree/message/Expression.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "mailtree/base/Ascii.h"
#include "mailtree/message/expression_tests.h"

namespace mailtree {

struct Expression::Node {
  enum class Kind { test, all, any, none };

  bool matches(LazyMessage& message) const {
    const auto matchesOne = [&message](const Node& child) { return child.matches(message); };
    switch (kind) {
      case Kind::test: return test.matches(message);
      case Kind::all: return std::ranges::all_of(children, matchesOne);
      case Kind::any: return std::ranges::any_of(children, matchesOne);
      case Kind::none: return std::ranges::none_of(children, matchesOne);
    }
    return false;
  }

  Kind kind = Kind::all;
  MessageTest test{};
  std::vector<Node> children{};  ///< The cheapest first.
};

class Expression::Parser {
 public:
  explicit Parser(std::string_view text) : m_text(text) { advance(); }

  Result<Node> whole() {
    if (!m_token) fail(0, "the expression is empty");
    Node root = alternatives(0);
    if (m_token) fail(m_token->at, "a bracket is closed that was not opened");
    if (m_error) return *std::move(m_error);
    return root;
  }

 private:
  /// A word, perhaps with a name and a colon before it, or a bracket.
  struct Token {
    std::size_t at = 0;
    char bracket = 0;
    bool isQuoted = false;              ///< Some of it.
    std::optional<std::string> name{};  ///< Before a colon.
    std::string value{};

    bool isWord(std::string_view word) const {
      return !bracket && !isQuoted && !name && equalsNoCase(value, word);
    }
  };

  static constexpr int kMostLevels = 100;

  void fail(std::size_t at, std::string_view problem) {
    if (m_error) return;
    const auto isCharacter = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; };
    const auto column = 1 + std::ranges::count_if(m_text.substr(0, at), isCharacter);
    m_error =
        Error{ErrorCode::badValue, "column " + std::to_string(column) + ": " + std::string(problem), {}};
    m_token.reset();
  }

  void advance() {
    m_token.reset();
    if (m_error) return;
    while (m_at < m_text.size() && isSpaceAscii(m_text[m_at])) ++m_at;
    if (m_at == m_text.size()) return;
    Token token{.at = m_at};
    if (m_text[m_at] == '(' || m_text[m_at] == ')')
      token.bracket = m_text[m_at++];
    else
      readWord(token);
    if (!m_error) m_token = std::move(token);
  }

  void readWord(Token& token) {
    for (; m_at < m_text.size() && !isSpaceAscii(m_text[m_at]); ++m_at) {
      const char c = m_text[m_at];
      if (c == '(' || c == ')') break;
      if (c == '"') {
        token.isQuoted = true;
        readQuoted(token.value);
      } else if (c == ':' && !token.name && !token.isQuoted) {
        token.name = std::exchange(token.value, {});
      } else {
        token.value += c;
      }
      if (m_error) return;
    }
  }

  /// From the first quote to the last; a backslash takes the next character as it is.
  void readQuoted(std::string& value) {
    const std::size_t begin = m_at;
    for (++m_at; m_at < m_text.size() && m_text[m_at] != '"'; ++m_at) {
      if (m_text[m_at] == '\\' && m_at + 1 < m_text.size()) ++m_at;
      value += m_text[m_at];
    }
    if (m_at == m_text.size()) fail(begin, "the quotes are not closed");
  }

  static Node joined(Node::Kind kind, std::vector<Node> children) {
    if (children.size() == 1 && kind != Node::Kind::none) return std::move(children.front());
    std::ranges::stable_sort(children, {}, [](const Node& child) { return child.test.cost; });
    Node node{kind};
    node.test.cost = children.empty() ? TestCost::place : children.back().test.cost;
    node.children = std::move(children);
    return node;
  }

  Node alternatives(int level) {
    std::vector<Node> children;
    for (;;) {
      children.push_back(conjunction(level));
      if (!m_token || !m_token->isWord("or")) return joined(Node::Kind::any, std::move(children));
      advance();
    }
  }

  Node conjunction(int level) {
    std::vector<Node> children;
    for (;;) {
      children.push_back(negation(level));
      if (m_token && m_token->isWord("and"))
        advance();
      else if (!m_token || m_token->isWord("or") || m_token->bracket == ')')
        return joined(Node::Kind::all, std::move(children));
    }
  }

  Node negation(int level) {
    if (!m_token) return missing(m_text.size());
    if (level > kMostLevels) return failed(m_token->at, "brackets are nested too deep");
    if (m_token->bracket == ')' || m_token->isWord("and") || m_token->isWord("or"))
      return missing(m_token->at);
    if (m_token->bracket == '(') return inBrackets(level);
    if (!m_token->isWord("not")) return test();
    advance();
    std::vector<Node> children;
    children.push_back(negation(level + 1));
    return joined(Node::Kind::none, std::move(children));
  }

  Node failed(std::size_t at, std::string_view problem) {
    fail(at, problem);
    return {};
  }
  Node missing(std::size_t at) { return failed(at, "a test is missing here"); }

  Node inBrackets(int level) {
    const std::size_t begin = m_token->at;
    advance();
    Node node = alternatives(level + 1);
    if (!m_token) return failed(begin, "the bracket is not closed");
    advance();
    return node;
  }

  Node test() {
    const Token token = *m_token;
    advance();
    // The word "header" alone is one to be looked for.
    if (token.isWord("header") && m_token && m_token->name) return fieldTest();
    if (!token.name) return {Node::Kind::test, wordTest(token.value)};
    if (!isTestName(*token.name))
      return failed(token.at, "there is no test \"" + *token.name + ":\"; quotes make it a text to look for");
    if (token.value.empty())
      return failed(m_token ? m_token->at : m_at, "a value is missing after " + *token.name + ":");
    Result<MessageTest> test = testOf(*token.name, token.value);
    if (!test) return failed(token.at + token.name->size() + 1, test.error().message);
    return {Node::Kind::test, *std::move(test)};
  }

  Node fieldTest() {
    const Token field = *m_token;
    if (field.name->empty()) return failed(field.at, "the name of a field is missing");
    advance();
    return {Node::Kind::test, headerTest(*field.name, field.value)};
  }

  std::string_view m_text;
  std::size_t m_at = 0;
  std::optional<Token> m_token;  ///< The next one; nothing at the end and after an error.
  std::optional<Error> m_error;
};

Result<Expression> Expression::parse(std::string_view text) {
  Result<Node> root = Parser(text).whole();
  if (!root) return std::move(root).error();
  return Expression(std::make_shared<const Node>(*std::move(root)));
}

bool Expression::matches(LazyMessage& message) const { return m_root->matches(message); }

}  // namespace mailtree
