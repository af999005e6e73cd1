#include "tests/support/node_path.h"

#include <charconv>

namespace mailtree {
namespace {

bool findPath(const Email2& root, const Email2* wanted, std::string& path) {
  if (&root == wanted) return true;
  for (int i = 0; i < root.getNumParts(); ++i) {
    const Email2* const child = root.getPartConst(i);
    if (!child) continue;
    const std::size_t size = path.size();
    path += "/" + std::to_string(i);
    if (findPath(*child, wanted, path)) return true;
    path.resize(size);
  }
  return false;
}

}  // namespace

Email2* nodeAt(Email2& root, std::string_view path) {
  Email2* node = &root;
  while (node && path.size() > 1) {
    int index = -1;
    const char* const end = path.data() + path.size();
    const auto number = std::from_chars(path.data() + 1, end, index);
    path = std::string_view(number.ptr, static_cast<std::size_t>(end - number.ptr));
    node = node->m_subParts.at<Email2>(index);
  }
  return node;
}

std::string pathOf(const Email2& root, const Email2* node) {
  if (!node) return "none";
  std::string path;
  if (!findPath(root, node, path)) return "elsewhere";
  return path.empty() ? "/" : path;
}

std::string pathsOf(const Email2& root, const ExtPtrArray& nodes) {
  std::string paths;
  for (int i = 0; i < nodes.getSize(); ++i) {
    if (i > 0) paths += ' ';
    paths += pathOf(root, nodes.at<Email2>(i));
  }
  return paths;
}

EmailPtr buildChain(int depth, const char* multipartType, const char* leafType) {
  EmailPtr root(Email2::createNewObject00());
  Email2* last = root.get();
  for (int i = 0; i < depth; ++i) {
    last->m_contentType.m_type.setString(multipartType);
    Email2* const child = Email2::createNewObject0(*root->m_common);
    last->insertSubPartAtIndex(child, -1);
    last = child;
  }
  last->m_contentType.m_type.setString(leafType);
  return root;
}

}  // namespace mailtree
