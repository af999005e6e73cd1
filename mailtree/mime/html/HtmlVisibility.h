// mime/html/HtmlVisibility.h - whether an element's own attributes certainly hide it; not
// included outside mime/.
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>

#include "mailtree/mime/html/HtmlScanner.h"

namespace mailtree {

enum class Visibility {
  shown,
  textHidden,  ///< Its text is hidden, but elements inside may be visible again.
  hidden,      ///< Everything inside is hidden.
};

/// The classes and ids that a page's style elements name together with "!important": for
/// these elements a style attribute does not prove that they are hidden. Responsive
/// newsletters hide parts for small screens that way.
class StyleSheets {
 public:
  explicit StyleSheets(std::string_view html);

  /// Whether one of the names (a class or id attribute) may be among them.
  bool mayName(std::string_view names) const;

 private:
  void read(std::string_view sheet);

  std::unordered_set<std::string> m_names;  ///< Every word of these sheets, in lower case.
  bool m_matchesAnyName = false;
};

/// Decides by the style and hidden attributes of a start tag. If a style sheet may override them, only their
/// important declarations count.
/// @param isBox  whether the element has a height of its own; inline text does not.
Visibility visibilityOf(const Markup& startTag, bool isBox, const StyleSheets& sheets);

}  // namespace mailtree
