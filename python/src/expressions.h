// python/src/expressions.h - an expression as Python holds it.
#pragma once

#include <string>

#include "mailtree/message/Expression.h"
#include "python/src/values.h"

namespace mailtree::python {

struct Wanted {
  explicit Wanted(const Text& given);

  std::string text;
  Expression expression;
};

}  // namespace mailtree::python
