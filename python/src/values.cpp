#include "python/src/values.h"

#include <datetime.h>

#include <unordered_map>

#include "python/src/errors.h"

namespace mailtree::python {
namespace {

using std::chrono::days, std::chrono::minutes, std::chrono::seconds;

/// Never destroyed: at the end of the program the interpreter is gone before the library is.
std::unordered_map<std::string_view, py::object>& classes() {
  static auto* const cache = new std::unordered_map<std::string_view, py::object>();
  return *cache;
}

/// The few time zones of mail; as classes().
PyObject* zoneOf(minutes offset) {
  static auto* const cache = new std::unordered_map<int, PyObject*>();
  PyObject*& zone = (*cache)[static_cast<int>(offset.count())];
  if (zone || offset.count() == 0) return zone ? zone : PyDateTime_TimeZone_UTC;
  PyObject* const delta = PyDelta_FromDSU(0, static_cast<int>(seconds(offset).count()), 0);
  zone = delta ? PyTimeZone_FromOffset(delta) : nullptr;
  Py_XDECREF(delta);
  if (zone) return zone;
  PyErr_Clear();
  return PyDateTime_TimeZone_UTC;
}

std::string copyOf(const Py_buffer& buffer) {
  std::string copy(static_cast<std::size_t>(buffer.len), '\0');
  if (PyBuffer_ToContiguous(copy.data(), &buffer, buffer.len, 'C') != 0) throw py::error_already_set();
  return copy;
}

}  // namespace

py::object classNamed(const char* name) {
  const auto found = classes().find(name);
  if (found != classes().end()) return found->second;
  const bool isError = std::string_view(name).ends_with("Error");
  py::object type = py::module_::import(isError ? "mailtree.errors" : "mailtree.values").attr(name);
  return classes().emplace(name, std::move(type)).first->second;
}

py::str toText(std::string_view utf8) {
  PyObject* const text = PyUnicode_DecodeUTF8(utf8.data(), static_cast<Py_ssize_t>(utf8.size()), "replace");
  if (!text) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(text);
}

py::bytes toBytes(std::string_view bytes) { return {bytes.data(), bytes.size()}; }

py::object toDatetime(const Date& date) {
  constexpr minutes kDay = std::chrono::hours(24);
  const minutes offset = date.offset < kDay && date.offset > -kDay ? date.offset : minutes(0);
  const std::chrono::sys_seconds local = date.time + offset;
  const auto day = std::chrono::floor<days>(local);
  const std::chrono::year_month_day civil(day);
  const std::chrono::hh_mm_ss clock(local - day);
  const int year = static_cast<int>(civil.year());
  if (!civil.ok() || year < 1 || year > 9999) return py::none();
  PyObject* const made = PyDateTimeAPI->DateTime_FromDateAndTime(
      year, static_cast<int>(static_cast<unsigned>(civil.month())),
      static_cast<int>(static_cast<unsigned>(civil.day())), static_cast<int>(clock.hours().count()),
      static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()), 0, zoneOf(offset),
      PyDateTimeAPI->DateTimeType);
  if (!made) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(made);
}

py::object toDatetime(std::chrono::sys_seconds time) { return toDatetime(Date{time, {}}); }

py::object toAddress(const Address& address) {
  static auto* const type = new py::object(classNamed("Address"));  // as classes()
  const py::tuple arguments = py::make_tuple(py::make_tuple(toText(address.name), toText(address.address)));
  PyObject* const made =
      PyTuple_Type.tp_new(reinterpret_cast<PyTypeObject*>(type->ptr()), arguments.ptr(), nullptr);
  if (!made) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(made);
}

py::object toAddressOrNone(const Address& address) {
  return address == Address() ? py::object(py::none()) : toAddress(address);
}

py::list toAddresses(const std::vector<Address>& addresses) { return toList(addresses, toAddress); }
py::list toTexts(const std::vector<std::string>& texts) {
  return toList(texts, [](const std::string& text) { return toText(text); });
}
py::list toHeaders(const std::vector<Header>& headers) {
  return toList(headers, [](const Header& header) {
    return py::make_tuple(toText(header.name), toText(header.value));
  });
}

std::string_view utf8Of(py::handle text) {
  Py_ssize_t size = 0;
  const char* const data = PyUnicode_AsUTF8AndSize(text.ptr(), &size);
  if (data) return {data, static_cast<std::size_t>(size)};
  PyErr_Clear();
  throw badValue("a text has half of a surrogate pair");
}

std::optional<Bytes> Bytes::from(py::handle source) {
  Bytes bytes;
  if (PyBytes_Check(source.ptr())) {
    bytes.m_borrowed = {PyBytes_AS_STRING(source.ptr()),
                        static_cast<std::size_t>(PyBytes_GET_SIZE(source.ptr()))};
    return bytes;
  }
  if (PyUnicode_Check(source.ptr())) {
    bytes.m_borrowed = utf8Of(source);
    return bytes;
  }
  Py_buffer buffer;
  if (!PyObject_CheckBuffer(source.ptr())) return std::nullopt;
  if (PyObject_GetBuffer(source.ptr(), &buffer, PyBUF_FULL_RO) != 0) throw py::error_already_set();
  try {
    bytes.m_copy = copyOf(buffer);
  } catch (...) {
    PyBuffer_Release(&buffer);
    throw;
  }
  PyBuffer_Release(&buffer);
  return bytes;
}

std::string pathFrom(py::handle path) {
  PyObject* encoded = nullptr;
  if (PyUnicode_FSConverter(path.ptr(), &encoded)) {
    const auto bytes = py::reinterpret_steal<py::bytes>(encoded);
    return std::string(std::string_view(bytes));
  }
  if (PyErr_ExceptionMatches(PyExc_TypeError)) throw py::error_already_set();
  PyErr_Clear();
  throw badValue("not a path");
}

Date dateFrom(py::handle datetime) {
  PyObject* const date = datetime.ptr();
  if (!PyDateTime_Check(date)) throw py::type_error("a datetime is wanted");
  const py::object delta = datetime.attr("utcoffset")();
  if (delta.is_none()) throw badValue("a datetime without a time zone");
  if (!PyDelta_Check(delta.ptr())) throw py::type_error("utcoffset() gave no timedelta");
  const seconds offset =
      days(PyDateTime_DELTA_GET_DAYS(delta.ptr())) + seconds(PyDateTime_DELTA_GET_SECONDS(delta.ptr()));
  const std::chrono::year_month_day civil{
      std::chrono::year(PyDateTime_GET_YEAR(date)),
      std::chrono::month(static_cast<unsigned>(PyDateTime_GET_MONTH(date))),
      std::chrono::day(static_cast<unsigned>(PyDateTime_GET_DAY(date)))};
  const seconds clock = std::chrono::hours(PyDateTime_DATE_GET_HOUR(date)) +
                        minutes(PyDateTime_DATE_GET_MINUTE(date)) + seconds(PyDateTime_DATE_GET_SECOND(date));
  return {std::chrono::sys_days(civil) + clock - offset, std::chrono::floor<minutes>(offset)};
}

std::vector<std::string> textsFrom(const py::iterable& texts) {
  std::vector<std::string> list;
  if (PyUnicode_Check(texts.ptr())) throw py::type_error("a list of texts is wanted, not a text");
  for (const py::handle each : texts) {
    if (!PyUnicode_Check(each.ptr())) throw py::type_error("a text is wanted");
    list.emplace_back(utf8Of(each));
  }
  return list;
}

Address addressFrom(py::handle source) {
  if (PyUnicode_Check(source.ptr())) {
    const std::string_view text = utf8Of(source);
    return text.empty() ? Address() : valueOf(Address::parse(text));
  }
  if (source.is_none()) return {};
  if (!PyTuple_Check(source.ptr()) || PyTuple_GET_SIZE(source.ptr()) != 2)
    throw py::type_error("an address is wanted: a str, or an Address of name and address");
  Address address;
  std::string* const members[] = {&address.name, &address.address};
  for (Py_ssize_t i = 0; i < 2; ++i) {
    const py::handle member = PyTuple_GET_ITEM(source.ptr(), i);
    if (!PyUnicode_Check(member.ptr())) throw py::type_error("an address consists of two texts");
    *members[i] = utf8Of(member);
  }
  return address;
}

Addresses addressesFrom(py::handle source) {
  Addresses addresses;
  if (source.is_none()) return addresses;
  if (PyUnicode_Check(source.ptr())) {
    addresses.text = utf8Of(source);
    return addresses;
  }
  if (py::isinstance(source, classNamed("Address"))) {
    addresses.list.push_back(addressFrom(source));
    return addresses;
  }
  for (const py::handle each : py::iter(source)) addresses.list.push_back(addressFrom(each));
  return addresses;
}

std::string Addresses::asText() const {
  if (text) return *text;
  std::string all;
  for (const Address& each : list) all += (all.empty() ? "" : ", ") + each.text();
  return all;
}

std::vector<Address> Addresses::asList() const {
  if (!text) return list;
  std::vector<Address> parsed = Address::parseList(*text);
  if (parsed.empty() && !text->empty()) throw badValue("not an address list: '" + *text + "'");
  return parsed;
}

void prepareValues(py::module_& module) {
  PyDateTime_IMPORT;
  if (!PyDateTimeAPI) throw py::error_already_set();
  module.def("_parse_address",
             [](const Text& text) { return toAddress(valueOf(Address::parse(text.view))); });
  module.def("_parse_addresses", [](const Text& text) { return toAddresses(Address::parseList(text.view)); });
  module.def("_address_text", [](const OneAddress& address) { return toText(address.value.text()); });
}

}  // namespace mailtree::python
