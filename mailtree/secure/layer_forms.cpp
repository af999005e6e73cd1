#include "mailtree/secure/layer_forms.h"

#include <string_view>
#include <vector>

#include "mailtree/base/Ascii.h"
#include "mailtree/crypto/Pkcs7Opener.h"

namespace mailtree {
namespace {

bool isOneOf(std::string_view type, std::string_view official, std::string_view experimental) noexcept {
  return equalsNoCase(type, official) || equalsNoCase(type, experimental);
}

/// Some mailers still write the old name (RFC 8551, 3.2).
bool isSignatureType(std::string_view type) noexcept {
  return isOneOf(type, "application/pkcs7-signature", "application/x-pkcs7-signature");
}

bool isPkcs7MimeType(std::string_view type) noexcept {
  return isOneOf(type, "application/pkcs7-mime", "application/x-pkcs7-mime");
}

std::string_view typeOf(const MimeMessage2& entity) noexcept { return entity.contentType().m_type; }

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
    {".p7s", LayerKind::opaqueSignature},
};

/// The type that a gateway substitutes for an unknown one.
bool isUntyped(std::string_view type) noexcept { return equalsNoCase(type, "application/octet-stream"); }

const KindName* suffixOf(std::string_view filename) noexcept {
  const std::string_view name = trim(filename);
  for (const KindName& row : kSuffixes)
    if (endsWithNoCase(name, row.name)) return &row;
  return nullptr;
}

/// The name that mail programs give to a layer. A signed document, such as invoice.pdf.p7m, has a name of its
/// own: it is a user's file, not a layer of the message.
const KindName* layerNameOf(std::string_view filename) noexcept {
  constexpr std::string_view kStem = "smime";
  const std::string_view name = trim(filename);
  const bool isLayer = beginsWithNoCase(name, kStem) && name.find('.') == kStem.size();
  return isLayer ? suffixOf(name) : nullptr;
}

using NameReader = const KindName* (*)(std::string_view) noexcept;

/// By the file name of the disposition, else by the name of the type: a gateway may have changed one of them.
const KindName* readName(const MimeMessage2& entity, NameReader read) {
  StringBuffer filename;
  entity.getMimeFilename(filename);
  const KindName* const row = read(filename);
  return row ? row : read(entity.contentType().m_name);
}

bool isTypedSignature(const MimeMessage2& part) { return isSignatureType(typeOf(part)); }

bool isNamedSignature(const MimeMessage2& part) {
  const KindName* const suffix = isUntyped(typeOf(part)) ? readName(part, suffixOf) : nullptr;
  return suffix && suffix->kind == LayerKind::opaqueSignature;
}

}  // namespace

bool isMultipartSigned(const MimeMessage2& entity) noexcept {
  return equalsNoCase(typeOf(entity), "multipart/signed");
}

MimeMessage2* signaturePart(const MimeMessage2& entity) noexcept {
  for (const auto isSignature : {isTypedSignature, isNamedSignature})
    for (int i = 1; i < entity.getNumParts(); ++i)
      if (isSignature(*entity.getPart(i))) return entity.getPart(i);
  return entity.getPart(1);
}

bool hasDetachedSignature(const MimeMessage2& entity) noexcept {
  if (!isMultipartSigned(entity)) return false;
  if (isSignatureType(trim(entity.contentType().m_protocol))) return true;
  const MimeMessage2* const signature = signaturePart(entity);
  return signature && (isTypedSignature(*signature) || isNamedSignature(*signature));
}

bool containsDetachedSignature(const MimeMessage2& entity) {
  std::vector<const MimeMessage2*> open{&entity};
  while (!open.empty()) {
    const MimeMessage2& next = *open.back();
    open.pop_back();
    if (hasDetachedSignature(next)) return true;
    for (int i = 0; i < next.getNumParts(); ++i) open.push_back(next.getPart(i));
  }
  return false;
}

bool mayBeLayer(std::string_view mediaType, std::string_view filename) noexcept {
  return equalsNoCase(mediaType, "multipart/signed") || isPkcs7MimeType(mediaType) ||
         (isUntyped(mediaType) && layerNameOf(filename));
}

bool isPkcs7Mime(const MimeMessage2& entity) {
  if (isPkcs7MimeType(typeOf(entity))) return true;
  const KindName* const suffix = isUntyped(typeOf(entity)) ? readName(entity, layerNameOf) : nullptr;
  if (!suffix) return false;
  const LayerKind kind = Pkcs7Opener::kindOf(entity.getMimeBodyDb()->view());
  // A signature separated from its content is an ordinary attachment: it has nothing to open.
  const bool isDetached = kind == LayerKind::detachedSignature && suffix->kind == LayerKind::opaqueSignature;
  return kind != LayerKind::unknown && !isDetached;
}

LayerKind kindOf(const MimeMessage2& entity) {
  const LayerKind kind = Pkcs7Opener::kindOf(entity.getMimeBodyDb()->view());
  return kind == LayerKind::unknown ? claimedKind(entity) : kind;
}

LayerKind claimedKind(const MimeMessage2& entity) {
  const std::string_view smimeType = trim(entity.contentType().m_smimeType);
  for (const KindName& row : kSmimeTypes)
    if (equalsNoCase(smimeType, row.name)) return row.kind;
  const KindName* const suffix = readName(entity, suffixOf);
  return suffix ? suffix->kind : LayerKind::enveloped;
}

}  // namespace mailtree
