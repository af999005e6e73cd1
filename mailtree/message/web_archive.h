// message/web_archive.h - a message as a web archive, one file with a page and its images (RFC 2557).
//
// Browsers show the first part of a multipart/related and find the parts it refers to by Content-ID, or by
// Content-Location if that is an absolute URL.
#pragma once

#include "mailtree/email/Email2.h"

namespace mailtree {

/// The page that a reader sees, with what it refers to, which is moved out of the message. Null when the
/// message shows no text.
EmailPtr webArchiveOf(Email2& mail);

}  // namespace mailtree
