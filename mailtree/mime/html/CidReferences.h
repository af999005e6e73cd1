// mime/html/CidReferences.h - "cid:" references in HTML (RFC 2392) pointed at other Content-IDs.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace mailtree {

/// What is referred to as "cid:name" and the Content-ID, without brackets, that it is to be found by.
struct CidTarget {
  std::string name;
  std::string contentId;
};

/// Replaces `out` by the page with its references to these names pointed at their Content-IDs; no other byte
/// changes. A reference stands in an attribute that holds URLs or styles, or in a style sheet, also within a
/// conditional comment; it may be percent-encoded and, in attributes, use character references.
/// @return how many were changed.
std::size_t pointCidReferences(std::string_view html, const std::vector<CidTarget>& targets,
                               std::string& out);

/// A Content-ID as it stands in a URL behind "cid:".
std::string cidUrlPart(std::string_view contentId);

}  // namespace mailtree
