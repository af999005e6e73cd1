// mime/html/HtmlVisibility.h - what an element's own attributes say about how it is shown: whether they
// certainly hide it, and what becomes of it in plain text; not included outside mime/.
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

/// A property that elements inside inherit.
enum class Inherited : unsigned char { asAround, no, yes };

/// How an element's text is shown, by its attributes alone.
struct TextStyle {
  bool isHidden = false;                          ///< Everything inside is hidden.
  bool isBlock = false;                           ///< Begins and ends a line.
  bool hasNoMarker = false;                       ///< A list without bullets.
  Inherited isVisible = Inherited::asAround;      ///< The visibility property.
  Inherited hasFontSize = Inherited::asAround;    ///< no: its letters have size 0.
  Inherited keepsSpaces = Inherited::asAround;    ///< As in pre.
  Inherited hasSpaceAbove = Inherited::asAround;  ///< Vertical margins; asAround: as usual for the element.
  Inherited hasSpaceBelow = Inherited::asAround;
};

/// Style sheets are left out of account. They may show an element on small screens only; its attributes are
/// what a mail program on a desktop goes by. Preview lines are recognized by "max-height:0" even if their
/// text would overflow.
TextStyle textStyleOf(const Markup& startTag);

}  // namespace mailtree
