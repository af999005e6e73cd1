// mime/HtmlVisibility.h - whether an element's own attributes hide it; not included outside mime/.
#pragma once

#include "mailtree/mime/HtmlScanner.h"

namespace mailtree {

enum class Visibility {
  shown,
  textHidden,  ///< Its text is not seen, but elements inside may show themselves again.
  hidden,      ///< Nothing inside is seen.
};

/// By the style and hidden attributes of a start tag.
/// @param isBox  whether the element's height means something; that of inline text does not.
Visibility visibilityOf(const Markup& startTag, bool isBox);

}  // namespace mailtree
