#include "python/src/errors.h"

#include <array>

#include "python/src/values.h"

namespace mailtree::python {
namespace {

const char* typeOf(ErrorCode code) noexcept {
  switch (code) {
    case ErrorCode::unreadable: return "UnreadableError";
    case ErrorCode::unwritable: return "UnwritableError";
    case ErrorCode::badValue: return "BadValueError";
    case ErrorCode::notFound: return "NotFoundError";
    case ErrorCode::noRecipient: return "NoRecipientError";
    case ErrorCode::noKey: return "NoKeyError";
    case ErrorCode::encrypted: return "EncryptedError";
    case ErrorCode::inClear: return "InClearError";
    case ErrorCode::automatic: return "AutomaticError";
    case ErrorCode::cryptography: return "CryptographyError";
    case ErrorCode::noMemory: return "NoMemoryError";
    case ErrorCode::tooLarge: return "TooLargeError";
  }
  return "Error";
}

void raise(const Failure& failure) {
  const py::object type = classNamed(failure.type());
  const py::object value = type(toText(failure.what()), toText(failure.where()));
  PyErr_SetObject(type.ptr(), value.ptr());
}

}  // namespace

Failure::Failure(Error error)
    : m_type(typeOf(error.code)), m_message(std::move(error.message)), m_where(std::move(error.where)) {}

Failure::Failure(const char* type, std::string message, std::string where)
    : m_type(type), m_message(std::move(message)), m_where(std::move(where)) {}

Failure badValue(std::string message) { return {"BadValueError", std::move(message)}; }

void registerErrors() {
  py::register_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) std::rethrow_exception(thrown);
    } catch (const Failure& failure) {
      try {
        raise(failure);
      } catch (py::error_already_set& other) {
        other.restore();
      }
    } catch (const py::cast_error&) {
      PyErr_SetString(PyExc_TypeError, "an argument is not of the type that is wanted");
    }
  });
}

}  // namespace mailtree::python
