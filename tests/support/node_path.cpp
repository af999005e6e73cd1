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

EmailPtr newNode(_svEmailCommon& common, const char* type) {
  EmailPtr node(Email2::createNewObject0(common));
  node->m_contentType.m_type.setString(type);
  return node;
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
  root->m_contentType.m_type.setString(multipartType);
  Email2* last = root.get();
  for (int i = 1; i < depth; ++i) {
    Email2* const child = newNode(*root->m_common, multipartType).release();
    last->insertSubPartAtIndex(child, -1);
    last = child;
  }
  last->insertSubPartAtIndex(newNode(*root->m_common, leafType).release(), -1);
  return root;
}

}  // namespace mailtree
