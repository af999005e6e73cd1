// email/loading/received_date.h - the date of a received message.
#pragma once

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

}  // namespace mailtree
