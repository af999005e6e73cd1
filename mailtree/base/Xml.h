// base/Xml.h - a small XML document that is built and then rendered.
//
//   Elements   Made by newChild. Owned by the parent element and, through its handle, by the caller; deleted
//              when both have released it. RefPtr is not needed: XmlHandle holds a handle.
//   Text       utf-8. The document is always well formed (XML 1.0): malformed bytes and characters that XML
//              forbids become U+FFFD. A parser returns all other text exactly, CR included.
//   Null       A null text counts as empty.
//   Failure    false or null only when memory ran out; the element is then unchanged.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Export.h"
#include "mailtree/base/Object.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

class LogBase;

class MAILTREE_API ClsXml final : public RefCountedObject {
 public:
  /// A new document: its empty root element, without a name (rendered as "_"). Null when memory ran out.
  static ClsXml* createNewCls();
  /// Releases the caller's handle, which must not be used afterwards.
  void deleteSelf() { decRefCount(); }
  /// Iterative: a tree of any depth can be destroyed.
  ~ClsXml() override;

  /// Names the element. Characters not allowed in a name become "-", and so does a colon, because a prefix
  /// would need a namespace; a name with an invalid first character gets "_" in front.
  bool put_TagUtf8(const char* tag) { return putTag(viewOf(tag)); }
  bool putTag(std::string_view tag);
  const std::string& tag() const noexcept { return m_tag; }

  /// Appends a child and returns a handle to it. `content` and `log` may be null.
  ClsXml* newChild(const char* tag, const char* content, LogBase* log);
  ClsXml* newChild(std::string_view tag, std::string_view content);

  /// The element's own text; rendered after its children.
  bool put_ContentUtf8(const char* content);
  /// The same without a copy.
  void takeContent(std::string&& content) noexcept { m_content = std::move(content); }
  /// Whether the text is rendered as CDATA.
  void put_Cdata(bool cdata) noexcept { m_cdata = cdata; }

  /// Of the document, set on the element that is rendered: everything on one line, or one element per line,
  /// indented. No white space is added inside an element that has text of its own.
  void put_EmitCompact(bool compact) noexcept { m_compact = compact; }

  /// Replaces `out` with the element and everything below it.
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
