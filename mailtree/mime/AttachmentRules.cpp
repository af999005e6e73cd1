#include "mailtree/mime/AttachmentRules.h"

#include <algorithm>

#include "mailtree/base/Ascii.h"

namespace mailtree {

namespace {

// Deliberate: some tests below are case-sensitive and their neighbours are not. The order of the tests and
// their case sensitivity keep the numbering of attachments stable.

constexpr AttachmentVerdict yes(const char* reason) { return {true, reason}; }
constexpr AttachmentVerdict no(const char* reason) { return {false, reason}; }

constexpr std::string_view kMediaTypes[] = {"image/", "application/", "audio/", "video/"};
constexpr std::string_view kKeyFileSuffixes[] = {".pem", ".pmi", ".gtr"};

bool hasAttachmentDisposition(const PartTraits& part) noexcept {
  return equalsNoCase(part.disposition, "attachment");
}

bool isMedia(std::string_view type) noexcept {
  return std::ranges::any_of(kMediaTypes, [&](std::string_view prefix) { return type.starts_with(prefix); });
}

bool isKeyFile(std::string_view name) noexcept {
  return std::ranges::any_of(kKeyFileSuffixes,
                             [&](std::string_view suffix) { return endsWithNoCase(name, suffix); });
}

AttachmentVerdict judgeInline(const PartTraits& part, bool inMixed) noexcept {
  if (beginsWithNoCase(part.type, "multipart")) return no("No (multipart enclosure)");
  if (!part.dispFilename.empty()) return yes("Yes, inline AND has filename");
  if (inMixed && isMedia(part.type))
    return yes("Yes, under multipart-mixed AND image/application/audio/video");
  if (part.type.starts_with("image/") && contains(part.type, "-tiff")) return yes("Yes, image/*-tiff");
  return no("No, inline AND no filename");
}

// Deliberate: an inline part is judged by the filename of its disposition, a part without
// a disposition by the name of its type.
AttachmentVerdict judgeWithoutDisposition(const PartTraits& part, bool inMixed) noexcept {
  if (inMixed && part.hasMessageClass && part.type == "text/plain")
    return yes("Yes, because of Content-Class header.");
  if (!part.name.empty() && equalsNoCase(part.transferEncoding, "base64"))
    return yes("Yes, has name attribute and base64 encoding.");
  if (isKeyFile(part.name)) return yes("Yes, special name file suffixes: pem, pmi, gtr");
  return no("No, attachment is not indicated.");
}

}  // namespace

AttachmentVerdict judgeAttachment(const PartTraits& part, bool inMixed) noexcept {
  if (beginsWithNoCase(part.type, "multipart/")) return no("No (multipart enclosure)");
  if (equalsNoCase(part.type, "message/rfc822")) {
    const bool isMht = hasAttachmentDisposition(part) && endsWithNoCase(part.dispFilename, ".mht");
    return isMht ? yes("Yes (MHT)") : no("No (message/rfc822)");
  }
  if (containsNoCase(part.type, "pkcs7-signature")) {
    return hasAttachmentDisposition(part) ? yes("Yes (pkcs7-signature AND disposition=attachment)")
                                          : no("No (pkcs7-signature)");
  }
  if (hasAttachmentDisposition(part)) return yes("Yes (disposition=attachment)");
  if (part.type.starts_with("application/")) return yes("Yes (content-type=application)");
  if (equalsNoCase(part.disposition, "inline")) return judgeInline(part, inMixed);
  return judgeWithoutDisposition(part, inMixed);
}

StrictVerdict judgeStrictAttachment(const PartTraits& part) noexcept {
  if (beginsWithNoCase(part.type, "multipart/") || equalsNoCase(part.type, "message/rfc822"))
    return {false, nullptr};
  if (part.type.starts_with("application/")) {
    const bool isUrl = contains(part.name, "?") && contains(part.name, "&");
    if (!isUrl) return {true, nullptr};
    return {false, "Not strict attachment because of special chars in name attribute."};
  }
  if (hasAttachmentDisposition(part)) return {true, nullptr};
  return {false, "Not strict attachment because 'attachment' keyword not found in disposition."};
}

bool isConvertibleText(const PartTraits& part) noexcept {
  return beginsWithNoCase(part.type, "text/") && !judgeAttachment(part, /*inMixed=*/false).isAttachment;
}

}  // namespace mailtree
