// email/ParentEmailPtr.h - output parameter of the enclosure search.
#pragma once

#include "mailtree/base/Export.h"

namespace mailtree {

class Email2;

/// The position of an enclosure that was found. Owns nothing.
class MAILTREE_API _svParentEmailPtr {
 public:
  _svParentEmailPtr() = default;
  virtual ~_svParentEmailPtr() {
    m_parent = nullptr;
    m_index = 0;
  }

  Email2* m_parent = nullptr;  ///< Parent of the enclosure.
  int m_index = 0;             ///< Index of the enclosure within that parent.
  int m_level = 0;             ///< Nesting level of the enclosure.
};

}  // namespace mailtree
