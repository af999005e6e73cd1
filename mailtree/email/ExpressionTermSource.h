// email/ExpressionTermSource.h - interface that supplies values for named terms.
#pragma once

#include "mailtree/base/Export.h"

namespace mailtree {

class StringBuffer;

class MAILTREE_API ExpressionTermSource {
 public:
  virtual void supplyTermValue(const char* term, StringBuffer& out) = 0;

 protected:
  ~ExpressionTermSource() = default;
};

}  // namespace mailtree
