// mime/html/CidReferences.h - redirects "cid:" references in HTML (RFC 2392) to other Content-IDs.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace mailtree {

/// A name referred to as "cid:name" and its new Content-ID, without brackets.
struct CidTarget {
  std::string name;
  std::string contentId;
};

/// Sets `out` to the HTML with its references to these names redirected to their Content-IDs; no other byte
/// changes. References are found in attributes with URLs or styles and in style sheets, also within
/// conditional comments; they may be percent-encoded and, in attributes, use character references.
/// @return the number changed.
std::size_t redirectCidReferences(std::string_view html, const std::vector<CidTarget>& targets,
                                  std::string& out);

/// What the elements of a page refer to by "cid:", decoded, in order; not what style sheets, lists of images
/// and conditional comments refer to.
std::vector<std::string> cidReferencesIn(std::string_view html);

/// A Content-ID as written in a URL after "cid:".
std::string cidUrlPart(std::string_view contentId);

}  // namespace mailtree
