#include "mailtree/crypto/SecureLayer.h"

#include <algorithm>

namespace mailtree {

std::string_view nameOf(LayerKind kind) noexcept {
  switch (kind) {
    case LayerKind::detachedSignature: return "detached-signature";
    case LayerKind::opaqueSignature: return "opaque-signature";
    case LayerKind::enveloped: return "enveloped";
    case LayerKind::authEnveloped: return "auth-enveloped";
    case LayerKind::compressed: return "compressed";
    case LayerKind::certificatesOnly: return "certificates-only";
    case LayerKind::unknown: break;
  }
  return "unknown";
}

bool SecureLayer::allSignaturesValid() const noexcept {
  return !signers.empty() &&
         std::all_of(signers.begin(), signers.end(), [](const SignerVerdict& s) { return s.isValid(); });
}

bool SecureLayer::hasInvalidSignature() const noexcept {
  return std::ranges::any_of(signers, &SignerVerdict::isInvalid);
}

}  // namespace mailtree
