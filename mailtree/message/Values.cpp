#include "mailtree/message/Values.h"

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Log.h"
#include "mailtree/base/Utf.h"
#include "mailtree/message/address_rules.h"
#include "mailtree/message/field_forms.h"
#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/header/Date.h"

namespace mailtree {

Result<Address> Address::parse(std::string_view text) {
  if (trim(text).empty()) return Error{ErrorCode::badValue, "no address in ''", {}};
  if (const auto problem = addressProblem(text, AddressCount::one))
    return Error{ErrorCode::badValue, "not an address: " + *problem, {}};
  return parseList(text).front();
}

std::vector<Address> Address::parseList(std::string_view text) {
  ExtPtrArray entries;
  _svEmailAddress::parseAndLoadList(text, entries);
  return valuesOf(entries);
}

std::string Address::text() const {
  _svEmailAddress entry;
  entry.m_name.setFromUtf8(name.c_str());
  entry.m_address.setFromUtf8(address.c_str());
  StringBuffer text;
  LogNull log;
  entry.emitSelfAsMimeField(kCpUtf8, /*first=*/true, /*forHeader=*/false, /*useQ=*/true, text, log);
  return text.extractString();
}

Date Date::now() {
  StringBuffer text;
  _svDateParser::generateCurrentDateRFC822(text);
  return parse(text.view()).value_or(Date());
}

Result<Date> Date::parse(std::string_view text) {
  SorvikSysTime time;
  int offset = 0;
  if (!_svDateParser::parse(text, time, offset))
    return Error{ErrorCode::badValue, "not a date: '" + std::string(text) + "'", {}};
  return Date{std::chrono::sys_seconds(std::chrono::seconds(time.toUnixTime())),
              std::chrono::minutes(offset)};
}

std::string Date::text() const {
  StringBuffer text;
  _svDateParser::generateDateRFC822(time.time_since_epoch().count(), static_cast<int>(offset.count()), text);
  return text.extractString();
}

}  // namespace mailtree
