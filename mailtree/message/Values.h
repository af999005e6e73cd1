// message/Values.h - addresses, dates and header fields as values.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Export.h"
#include "mailtree/message/Result.h"

namespace mailtree {

/// A display name and an address, in utf-8. One of the two may be empty: a received From may be a name only.
struct MAILTREE_API Address {
  std::string name;
  std::string address;  ///< `local@domain`.

  /// Reads one address, such as `Anna <anna@berg.example>`. badValue ("not an address: 'x y'") for none or
  /// more than one.
  static Result<Address> parse(std::string_view text);
  /// Reads a list (RFC 5322, 3.4): groups are flattened, comments and entries without an address dropped.
  static std::vector<Address> parseList(std::string_view text);
  /// `Anna <anna@berg.example>`, for display; a name that needs it is quoted.
  std::string text() const;
  bool operator==(const Address&) const = default;
};

/// A moment, and the offset from GMT of the clock that told it.
struct MAILTREE_API Date {
  std::chrono::sys_seconds time;
  std::chrono::minutes offset{0};

  static Date now();  ///< In the host's zone.
  /// Reads an RFC 5322 date, leniently; badValue for anything else.
  static Result<Date> parse(std::string_view text);
  /// As in a Date field: "Sun, 22 Nov 2026 12:00:00 +0100".
  std::string text() const;
  bool operator==(const Date&) const = default;
};

/// A header field, unfolded and decoded (RFC 2047), in utf-8.
struct Header {
  std::string name;
  std::string value;
  bool operator==(const Header&) const = default;
};

}  // namespace mailtree
