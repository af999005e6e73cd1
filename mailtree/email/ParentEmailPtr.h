// email/ParentEmailPtr.h - out-parameter of the enclosure search.
#pragma once

namespace mailtree {

class Email2;

/// Where an enclosure was found. Nothing in it is owned.
class _svParentEmailPtr {
 public:
  _svParentEmailPtr() = default;
  virtual ~_svParentEmailPtr() {
    m_parent = nullptr;
    m_index = 0;
  }

  Email2* m_parent = nullptr;  ///< Parent of the enclosure found.
  int m_index = 0;             ///< Index of the enclosure within that parent.
  int m_level = 0;             ///< Nesting level at which it was found.
};

}  // namespace mailtree
