// mime/html/HtmlVisibility.h - whether an element's own attributes hide it for certain; not included outside mime/.
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>

#include "mailtree/mime/html/HtmlScanner.h"

namespace mailtree {

enum class Visibility {
  shown,
  textHidden,  ///< Its text is not seen, but elements inside may show themselves again.
  hidden,      ///< Nothing inside is seen.
};

/// The classes and ids that a page's style elements name beside an "!important": a style attribute is no proof
/// then that the element is not seen. Responsive newsletters hide what is for small screens that way.
class StyleSheets {
 public:
  explicit StyleSheets(std::string_view html);

  /// Whether one of the names (a class or id attribute) may be meant.
  bool mayName(std::string_view names) const;

 private:
  void read(std::string_view sheet);

  std::unordered_set<std::string> m_names;  ///< Every word of these sheets, in lower case.
  bool m_mayMeanAnyName = false;
};

/// By the style and hidden attributes of a start tag. Where a style sheet may win over them, only their
/// important declarations count.
/// @param isBox  whether the element's height means something; that of inline text does not.
Visibility visibilityOf(const Markup& startTag, bool isBox, const StyleSheets& sheets);

}  // namespace mailtree
