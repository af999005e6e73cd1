#include "mailtree/email/loading/received_date.h"

#include <string>
#include <string_view>

#include "mailtree/base/Log.h"
#include "mailtree/mime/header/Date.h"
#include "mailtree/mime/header/MimeHeader.h"

namespace mailtree {

bool receivedDate(const MimeHeader& header, SorvikSysTime& time, LogBase& log) {
  std::string scratch;
  for (const std::string_view name : {std::string_view("Date"), std::string_view("Delivery-Date")}) {
    const int field = header.findField(name);
    if (field >= 0) return _svDateParser::parse(header.unfoldedValue(field, scratch), time);
  }
  const int received = header.findField("Received");
  if (received < 0) return false;
  const std::string_view trace = header.unfoldedValue(received, scratch);
  const std::size_t semicolon = trace.rfind(';');
  if (semicolon == std::string_view::npos) return false;
  const std::string_view date = trim(trace.substr(semicolon + 1));
  log.LogDataSb("date_from_Received", date);
  return _svDateParser::parse(date, time);
}

bool receivedDate(const MimeHeader& header, SorvikSysTime& time) {
  LogNull quiet;
  return receivedDate(header, time, quiet);
}

}  // namespace mailtree
