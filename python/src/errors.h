// python/src/errors.h - failures of the library as exceptions of the module.
#pragma once

#include <exception>
#include <string>
#include <utility>

#include "mailtree/base/Result.h"

namespace mailtree::python {

/// A failed operation, to become a Python exception. It may be thrown without holding the interpreter lock.
class Failure : public std::exception {
 public:
  explicit Failure(Error error);
  /// @param type  the name of a class in mailtree.errors.
  Failure(const char* type, std::string message, std::string where = {});

  const char* what() const noexcept override { return m_message.c_str(); }
  const char* type() const noexcept { return m_type; }
  const std::string& where() const noexcept { return m_where; }

 private:
  const char* m_type;
  std::string m_message, m_where;
};

Failure badValue(std::string message);

/// The value of a result, or its error as an exception.
template <class T>
T valueOf(Result<T>&& result) {
  if (!result) throw Failure(std::move(result).error());
  return *std::move(result);
}
inline void check(Result<void>&& result) {
  if (!result) throw Failure(std::move(result).error());
}

void registerErrors();

}  // namespace mailtree::python
