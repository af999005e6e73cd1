#include "mailtree/secure/layer_forms.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "mailtree/base/Ascii.h"
#include "mailtree/crypto/Pkcs7Opener.h"

namespace mailtree {
namespace {

bool isOneOf(std::string_view type, std::string_view official, std::string_view experimental) noexcept {
  return equalsNoCase(type, official) || equalsNoCase(type, experimental);
}

/// The old name is still written by some (RFC 8551, 3.2).
bool isSignatureType(std::string_view type) noexcept {
  return isOneOf(type, "application/pkcs7-signature", "application/x-pkcs7-signature");
}

std::string_view typeOf(const MimeMessage2& entity) noexcept { return entity.contentType().m_type; }

StringBuffer filenameOf(const MimeMessage2& entity) {
  StringBuffer filename;
  entity.getMimeFilename(filename);
  return filename;
}

struct KindName {
  std::string_view name;
  LayerKind kind;
};

constexpr KindName kSmimeTypes[] = {
    {"signed-data", LayerKind::opaqueSignature}, {"signed-receipt", LayerKind::opaqueSignature},
    {"enveloped-data", LayerKind::enveloped},    {"authEnveloped-data", LayerKind::authEnveloped},
    {"compressed-data", LayerKind::compressed},  {"certs-only", LayerKind::certificatesOnly},
};

/// RFC 8551, 3.2.1.
constexpr KindName kSuffixes[] = {
    {".p7m", LayerKind::enveloped},
    {".p7c", LayerKind::certificatesOnly},
    {".p7z", LayerKind::compressed},
};

}  // namespace

bool isMultipartSigned(const MimeMessage2& entity) noexcept {
  return equalsNoCase(typeOf(entity), "multipart/signed");
}

MimeMessage2* signaturePart(const MimeMessage2& entity) noexcept {
  for (int i = 1; i < entity.getNumParts(); ++i)
    if (isSignatureType(typeOf(*entity.getPart(i)))) return entity.getPart(i);
  return entity.getPart(1);
}

bool hasDetachedSignature(const MimeMessage2& entity) noexcept {
  if (!isMultipartSigned(entity)) return false;
  if (isSignatureType(trim(entity.contentType().m_protocol))) return true;
  const MimeMessage2* const signature = signaturePart(entity);
  return signature && isSignatureType(typeOf(*signature));
}

bool holdsDetachedSignature(const MimeMessage2& entity) {
  std::vector<const MimeMessage2*> open{&entity};
  while (!open.empty()) {
    const MimeMessage2& next = *open.back();
    open.pop_back();
    if (hasDetachedSignature(next)) return true;
    for (int i = 0; i < next.getNumParts(); ++i) open.push_back(next.getPart(i));
  }
  return false;
}

bool isPkcs7Mime(const MimeMessage2& entity) {
  const std::string_view type = typeOf(entity);
  if (isOneOf(type, "application/pkcs7-mime", "application/x-pkcs7-mime")) return true;
  if (!equalsNoCase(type, "application/octet-stream")) return false;
  const StringBuffer filename = filenameOf(entity);
  const bool isNamed = std::ranges::any_of(
      kSuffixes, [&](const KindName& suffix) { return endsWithNoCase(filename, suffix.name); });
  return isNamed && Pkcs7Opener::kindOf(entity.getMimeBodyDb()->view()) != LayerKind::unknown;
}

LayerKind kindOf(const MimeMessage2& entity) {
  const LayerKind kind = Pkcs7Opener::kindOf(entity.getMimeBodyDb()->view());
  return kind == LayerKind::unknown ? claimedKind(entity) : kind;
}

LayerKind claimedKind(const MimeMessage2& entity) {
  const std::string_view smimeType = trim(entity.contentType().m_smimeType);
  for (const KindName& row : kSmimeTypes)
    if (equalsNoCase(smimeType, row.name)) return row.kind;
  const StringBuffer filename = filenameOf(entity);
  for (const KindName& row : kSuffixes)
    if (endsWithNoCase(filename, row.name)) return row.kind;
  return LayerKind::enveloped;
}

}  // namespace mailtree
