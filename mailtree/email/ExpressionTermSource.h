// email/ExpressionTermSource.h - interface that supplies values for named terms.
#pragma once

namespace mailtree {

class StringBuffer;

class ExpressionTermSource {
 public:
  virtual void supplyTermValue(const char* term, StringBuffer& out) = 0;

 protected:
  ~ExpressionTermSource() = default;
};

}  // namespace mailtree
