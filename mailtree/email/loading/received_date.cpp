#include "mailtree/email/loading/received_date.h"

#include "mailtree/base/Log.h"
#include "mailtree/mime/header/Date.h"
#include "mailtree/mime/header/MimeHeader.h"

namespace mailtree {

namespace {

/// The first of these fields; -1 when there is none.
int sentField(const MimeHeader& header) {
  const int date = header.findField("Date");
  return date >= 0 ? date : header.findField("Delivery-Date");
}

}  // namespace

std::optional<std::string_view> receivedDateText(const MimeHeader& header, std::string& scratch) {
  if (const int field = sentField(header); field >= 0) return header.unfoldedValue(field, scratch);
  const std::string_view trace = header.unfoldedValue(header.findField("Received"), scratch);
  const std::size_t semicolon = trace.rfind(';');
  if (semicolon == std::string_view::npos) return std::nullopt;
  return trim(trace.substr(semicolon + 1));
}

bool receivedDate(const MimeHeader& header, SorvikSysTime& time, LogBase& log) {
  std::string scratch;
  const std::optional<std::string_view> date = receivedDateText(header, scratch);
  if (!date) return false;
  if (sentField(header) < 0) log.LogDataSb("date_from_Received", *date);
  return _svDateParser::parse(*date, time);
}

bool receivedDate(const MimeHeader& header, SorvikSysTime& time) {
  LogNull quiet;
  return receivedDate(header, time, quiet);
}

}  // namespace mailtree
