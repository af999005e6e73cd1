// python/src/values.h - values of the library as Python objects, and conversion of their
// arguments.
#pragma once

#include <pybind11/pybind11.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/message/Keys.h"
#include "mailtree/message/Message.h"
#include "mailtree/message/Values.h"

namespace mailtree::python {

namespace py = pybind11;

/// The class of that name in mailtree.errors or mailtree.values.
py::object classNamed(const char* name);

// To Python.

/// Invalid utf-8 becomes U+FFFD, so this never fails for the text of mail.
py::str toText(std::string_view utf8);
py::bytes toBytes(std::string_view bytes);
/// None for a year that Python has no datetime for.
py::object toDatetime(const Date& date);
py::object toDatetime(std::chrono::sys_seconds time);
py::object toAddress(const Address& address);
/// None when name and address are both empty.
py::object toAddressOrNone(const Address& address);
py::list toAddresses(const std::vector<Address>& addresses);
py::list toTexts(const std::vector<std::string>& texts);
/// A list of pairs of name and value.
py::list toHeaders(const std::vector<Header>& headers);
py::object toCertificate(const CertificateInfo& info);
py::list toCertificates(const std::vector<CertificateInfo>& infos);
py::object toSecurity(const Security& security);
py::object toReport(const Report& report);
py::object toProblem(const Problem& problem);

template <class T, class F>
py::list toList(const std::vector<T>& values, F&& convert) {
  py::list list(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) list[i] = convert(values[i]);
  return list;
}

template <class T, class F>
py::object orNone(const std::optional<T>& value, F&& convert) {
  return value ? py::object(convert(*value)) : py::none();
}

/// A new object of a class that classNamed() gives.
template <class... Args>
py::object make(const char* type, Args&&... args) {
  return classNamed(type)(std::forward<Args>(args)...);
}

// From Python.

/// A str in utf-8, borrowed for the call.
struct Text {
  std::string_view view;
  std::string string() const { return std::string(view); }
};

/// str, bytes or os.PathLike.
struct Path {
  std::string value;
};

/// bytes are borrowed for the call; other buffers are copied, because they may change; a str becomes utf-8.
class Bytes {
 public:
  static std::optional<Bytes> from(py::handle source);
  std::string_view view() const noexcept { return m_copy ? std::string_view(*m_copy) : m_borrowed; }

 private:
  std::string_view m_borrowed;
  std::optional<std::string> m_copy;
};

/// Addresses: a str as in an address field, an Address, or an iterable of either. None means no addresses.
struct Addresses {
  std::vector<Address> list;
  std::optional<std::string> text;  ///< As it was given, when that was a str.

  std::string asText() const;
  std::vector<Address> asList() const;
};

/// One address: a str or an Address.
struct OneAddress {
  Address value;
};

/// A str as utf-8; BadValueError for a lone surrogate.
std::string_view utf8Of(py::handle text);
Date dateFrom(py::handle datetime);
std::vector<std::string> textsFrom(const py::iterable& texts);
std::string pathFrom(py::handle path);
Addresses addressesFrom(py::handle source);
Address addressFrom(py::handle source);

void prepareValues(py::module_& module);

}  // namespace mailtree::python

namespace pybind11::detail {

template <>
struct type_caster<mailtree::python::Text> {
  PYBIND11_TYPE_CASTER(mailtree::python::Text, const_name("str"));
  bool load(handle source, bool) {
    if (!PyUnicode_Check(source.ptr())) return false;
    value.view = mailtree::python::utf8Of(source);
    return true;
  }
};

template <>
struct type_caster<mailtree::python::Path> {
  PYBIND11_TYPE_CASTER(mailtree::python::Path, const_name("path"));
  bool load(handle source, bool) {
    value.value = mailtree::python::pathFrom(source);
    return true;
  }
};

template <>
struct type_caster<mailtree::python::Bytes> {
  PYBIND11_TYPE_CASTER(mailtree::python::Bytes, const_name("bytes"));
  bool load(handle source, bool) {
    auto bytes = mailtree::python::Bytes::from(source);
    if (!bytes) return false;
    value = *std::move(bytes);
    return true;
  }
};

template <>
struct type_caster<mailtree::python::Addresses> {
  PYBIND11_TYPE_CASTER(mailtree::python::Addresses, const_name("addresses"));
  bool load(handle source, bool) {
    value = mailtree::python::addressesFrom(source);
    return true;
  }
};

template <>
struct type_caster<mailtree::python::OneAddress> {
  PYBIND11_TYPE_CASTER(mailtree::python::OneAddress, const_name("address"));
  bool load(handle source, bool) {
    value.value = mailtree::python::addressFrom(source);
    return true;
  }
};

}  // namespace pybind11::detail
