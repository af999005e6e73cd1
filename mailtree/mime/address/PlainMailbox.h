// mime/address/PlainMailbox.h - an entry of an address list as nearly all programs write it, read at once:
// the general reader takes ten times as long for its tokens.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace mailtree {

/// Both are views of the list, and mean what they say, but for encoded words in the name.
struct PlainMailbox {
  std::string_view name;  ///< Without quotes; may be empty.
  std::string_view address;
  std::size_t size;  ///< Of the entry, with blanks around it and what ends it.
};

/// Reads `local@domain`, `A Name <local@domain>` or `"A Name" <local@domain>` with a comma, a semicolon or
/// the end after it. Nothing for all that may be read in more than one way, or needs any change.
/// @param quotes  whether quotes are quotes; otherwise an entry with one is not plain.
std::optional<PlainMailbox> readPlainMailbox(std::string_view list, bool quotes) noexcept;

}  // namespace mailtree
