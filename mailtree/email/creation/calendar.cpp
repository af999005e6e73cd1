// email/creation/calendar.cpp - a meeting request as an alternative body (RFC 6047).
#include <string>

#include "mailtree/email/internal.h"

namespace mailtree {
namespace {

/// Escapes a quoted parameter value. Only changes quotes and backslashes, which no method has.
std::string quotedText(std::string_view text) {
  std::string quoted;
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted;
}

/// Stores the method as a parameter, so it survives when the field is rewritten. This first field
/// has it quoted.
void setMethod(Email2& calendar, const char* method, LogBase& log) {
  StringBuffer value;
  calendar.m_header.getMimeFieldUtf8("Content-Type", value, log);
  value.append("; method=\"");
  value.append(quotedText(viewOf(method)));
  value.appendChar('"');
  calendar.m_contentType.m_otherParams.addParam("method", method, /*replace=*/false);
  calendar.m_header.replaceMimeFieldUtf8_a("Content-Type", oneLine(value.view()).getString(),
                                           /*asGiven=*/true,
                                           /*ordinary=*/false, log);
}

EmailPtr createCalendar(_svEmailCommon& common, DataBuffer& data, const char* method, int codePage,
                        LogBase& log) {
  EmailPtr calendar(Email2::createNewObject0(common));
  if (!calendar) return calendar;
  calendar->m_body.takeData(data);
  // No format=flowed: joining its lines would destroy a calendar.
  calendar->setContentTypeUtf8("text/calendar", nullptr, nullptr, nullptr, codePage, nullptr, nullptr,
                               nullptr, log);
  setMethod(*calendar, method, log);
  setTransferEncoding(*calendar, "base64", log);
  return calendar;
}

}  // namespace

Email2* Email2::createCalendarAlternativeUtf8(_svEmailCommon& common, DataBuffer& data, const char* method,
                                              int codePage, LogBase& log) {
  return neverThrow<Email2*>(nullptr,
                             [&] { return createCalendar(common, data, method, codePage, log).release(); });
}

}  // namespace mailtree
