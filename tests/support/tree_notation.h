// tests/support/tree_notation.h - email trees as short text, so that a structure test is a row.
//
//   mixed(alternative(plain,html),pdf:attachment)
//
//   node        word [attributes] [":" disposition] ["(" node {"," node} ")"], without blanks
//   word        mixed, alternative (or alt), related, digest, report, signed, encrypted, fax, plain, html,
//               calendar, pdf, png, zip, octet, rfc822, delivery, p7s, none (no media type at all), or a
//               media type such as image/x-tiff
//   attributes  "[" key=value {"," key=value} "]", keys:
//               name   name parameter of the Content-Type
//               file   filename parameter of the Content-Disposition
//               cid    Content-ID
//               enc    transfer encoding
//               class  Content-Class field
//               body   body of the part
//   Defaults    A leaf's body is its word; text, multiparts and messages are 7bit, everything else is base64.
//               The root is a new message with its default fields, every other node a bare one.
#pragma once

#include <algorithm>
#include <array>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/email/Email2.h"

namespace mailtree {

/// The tree that the text describes. Throws std::invalid_argument, naming the place, when the text is no
/// tree.
EmailPtr buildTree(std::string_view text);

enum class TreeDetail {
  dispositions,  ///< Words and dispositions.
  names          ///< Also [name=...,file=...] where there are any.
};

/// The text of a tree: each node by its word, or its media type where it has no word; "null" for an empty
/// place and "dead" for a destroyed node.
std::string printTree(const Email2* node, TreeDetail detail = TreeDetail::dispositions);
inline std::string printTree(const EmailPtr& node, TreeDetail detail = TreeDetail::dispositions) {
  return printTree(node.get(), detail);
}
inline std::string printTree(const Email2& node, TreeDetail detail = TreeDetail::dispositions) {
  return printTree(&node, detail);
}

/// A table of cases of N cells, as text. "|" ends a cell; a line break or two blanks end a case. What begins
/// with "#" is a comment.
template <std::size_t N>
std::vector<std::array<std::string, N>> casesOf(std::string_view table) {
  std::vector<std::array<std::string, N>> cases;
  for (std::string_view rest = trim(table); !rest.empty();) {
    const std::size_t end = std::min({rest.find('\n'), rest.find("  "), rest.size()});
    std::string_view row = rest.substr(0, end);
    rest = trim(rest.substr(end));
    if (row.starts_with('#')) continue;
    for (std::string& cell : cases.emplace_back()) {
      const std::size_t bar = std::min(row.find('|'), row.size());
      cell = trim(row.substr(0, bar));
      row.remove_prefix(std::min(bar + 1, row.size()));
    }
  }
  return cases;
}

/// Checks what a function makes of trees: a table of "tree | result".
void expectOfTrees(const std::function<std::string(Email2&)>& see, std::string_view table);

}  // namespace mailtree
