// base/Xml.h - a small XML document that is built and then rendered.
//
//   Elements   Made by newChild, owned by the element above and, through its handle, by the caller; each goes when
//              the last of the two lets go. RefPtr is not needed: XmlHandle holds a handle.
//   Text       utf-8. Whatever it holds, the document is well formed (XML 1.0): malformed bytes and characters that
//              XML forbids become U+FFFD. A parser gives back all other text exactly, CR included.
//   Null       A null text counts as empty.
//   Failure    false or null only when memory ran out; the element is then unchanged.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Object.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

class LogBase;

class ClsXml final : public RefCountedObject {
 public:
  /// A new document: its root element, without name ("_" when rendered so) and empty. Null when memory ran out.
  static ClsXml* createNewCls();
  /// Releases the caller's handle, which must not be used afterwards.
  void deleteSelf() { decRefCount(); }
  /// Iterative: a tree of any depth can be destroyed.
  ~ClsXml() override;

  /// Names the element. What cannot stand in a name becomes "-", a colon too, because a prefix would ask for a
  /// namespace; a name that would begin with what no name begins with gets "_" in front.
  bool put_TagUtf8(const char* tag) { return putTag(viewOf(tag)); }
  bool putTag(std::string_view tag);
  const std::string& tag() const noexcept { return m_tag; }

  /// Appends a child and returns a handle to it. `content` and `log` may be null.
  ClsXml* newChild(const char* tag, const char* content, LogBase* log);
  ClsXml* newChild(std::string_view tag, std::string_view content);

  /// The element's own text; rendered behind its children.
  bool put_ContentUtf8(const char* content);
  /// The same without a copy.
  void takeContent(std::string&& content) noexcept { m_content = std::move(content); }
  /// Whether the text is rendered as CDATA.
  void put_Cdata(bool cdata) noexcept { m_cdata = cdata; }

  /// Of the document, set on the element that is rendered: everything on one line, or one element a line,
  /// indented. No white space is added inside an element that has text of its own.
  void put_EmitCompact(bool compact) noexcept { m_compact = compact; }

  /// Replaces `out` by the element and everything below it.
  /// @param fragment  leaves out the XML declaration.
  bool getXml(bool fragment, StringBuffer& out, LogBase& log) const;

  std::size_t heapUsage() const override;

 private:
  friend class XmlWriter;
  ClsXml() = default;

  std::string m_tag;
  std::string m_content;
  std::vector<RefPtr<ClsXml>> m_children;
  bool m_cdata = false;
  bool m_compact = false;
};

struct ReleaseXml {
  void operator()(ClsXml* element) const { element->deleteSelf(); }
};
/// Holds a handle for the length of a scope.
using XmlHandle = std::unique_ptr<ClsXml, ReleaseXml>;

}  // namespace mailtree
