// email/loading/received_date.h - the date of a received message.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace mailtree {

class LogBase;
class MimeHeader;
class SorvikSysTime;

/// Reads the date from the first of these fields that exists: Date, Delivery-Date, or the text after the last
/// semicolon of the first Received field, which is logged as "date_from_Received". If that field has no valid
/// date, the others are not tried.
/// @return false, with `time` unchanged, when no date was read.
bool receivedDate(const MimeHeader& header, SorvikSysTime& time, LogBase& log);
bool receivedDate(const MimeHeader& header, SorvikSysTime& time);

/// The text that receivedDate reads, a date or not; nothing when there is no such field. `scratch` holds it
/// when it had to be unfolded.
std::optional<std::string_view> receivedDateText(const MimeHeader& header, std::string& scratch);

}  // namespace mailtree
