#include "cli/views/security_json.h"

#include <algorithm>

#include "cli/support/json_text.h"
#include "cli/support/json_values.h"
#include "cli/views/layers.h"
#include "mailtree/message/times.h"

namespace mailtree::cli {
namespace {

std::string certificateOf(const CertificateInfo& certificate) {
  return ObjectText()
      .addSerialized("addresses", textsOf(certificate.addresses))
      .add("subject", certificate.subject)
      .add("issuer", certificate.issuer)
      .add("serial_number", certificate.serialNumber)
      .add("sha256", certificate.fingerprint)
      .add("key", certificate.keyAlgorithm)
      .add("key_bits", certificate.keyBits)
      .add("not_before", timeText(certificate.validFrom))
      .add("not_after", timeText(certificate.validUntil))
      .closed();
}

std::string certificateOrNull(const std::optional<CertificateInfo>& certificate) {
  return certificate ? certificateOf(*certificate) : "null";
}

/// Null when not checked.
std::string_view valueOf(Answer answer) {
  return answer == Answer::notChecked ? "null" : answer == Answer::yes ? "true" : "false";
}

/// Null when the certificate is missing and no other weakness is known.
std::string_view weaknessOf(const Signer& signer) {
  if (signer.weaknesses.empty() && !signer.certificate) return "null";
  return signer.weaknesses.empty() ? "false" : "true";
}

std::string signerOf(const Signer& signer) {
  return ObjectText()
      .addSerialized("certificate", certificateOrNull(signer.certificate))
      .addOrNull("digest", signer.digest)
      .addOrNull("algorithm", signer.algorithm)
      .addOrNull("signing_time", signer.signingTime ? timeText(*signer.signingTime) : std::string())
      .addSerialized("digest_matched", valueOf(signer.digestMatched))
      .addSerialized("signature_verified", valueOf(signer.signatureVerified))
      .addSerialized("chain_trusted", valueOf(signer.chainTrusted))
      .addSerialized("chain_trusted_then", valueOf(signer.chainTrustedThen))
      .addSerialized("revoked", valueOf(signer.revoked))
      .addSerialized("key_usage_fit", valueOf(signer.keyUsageFit))
      .addSerialized("address_matches", valueOf(signer.addressMatches))
      .addSerialized("weak", weaknessOf(signer))
      .addSerialized("weaknesses", textsOf(signer.weaknesses))
      .addOrNull("problem", signer.problem)
      .addOrNull("chain_problem", signer.chainProblem)
      .closed();
}

std::string layerOf(const SecurityLayer& layer) {
  ListText signers;
  for (const Signer& signer : layer.signers) signers.addSerialized(signerOf(signer));
  return ObjectText()
      .add("kind", mailtree::nameOf(layer.kind))
      .add("part", layer.part)
      .addIs("opened", layer.isOpened)
      .addSerialized("uncovered", textsOf(layer.uncovered))
      .addSerialized("signers", signers.closed())
      .addOrNull("cipher", layer.cipher)
      .addOrNull("key_transport", layer.keyTransport)
      .addSerialized("recipient", certificateOrNull(layer.recipient))
      .addIs("weak_cipher", layer.isCipherWeak)
      .addOrNull("problem", layer.problem)
      .closed();
}

std::string layersOf(const Security& security) {
  ListText list;
  for (const SecurityLayer& layer : security.layers) list.addSerialized(layerOf(layer));
  return list.closed();
}

std::string innerFieldsOf(const Security& security) {
  ListText list;
  for (const FieldDifference& field : security.differences)
    list.addSerialized(ObjectText()
                           .add("part", field.part)
                           .add("name", field.name)
                           .addOrNull("inside", field.inside)
                           .addOrNull("outside", field.outside)
                           .closed());
  return list.closed();
}

/// Each signer's certificate once.
std::string signersOf(const Security& security) {
  ListText out;
  std::vector<std::string> known;
  for (const SecurityLayer& layer : security.layers)
    for (const Signer& signer : layer.signers) {
      if (!signer.certificate || std::ranges::find(known, signer.certificate->fingerprint) != known.end())
        continue;
      known.push_back(signer.certificate->fingerprint);
      out.addSerialized(certificateOf(*signer.certificate));
    }
  return out.closed();
}

std::string verdictJson(const Security& security) {
  return ObjectText().addIs("valid", security.isValid).add("text", verdictOf(security)).closed();
}

}  // namespace

std::string securityOf(const Security& security) {
  return ObjectText()
      .addIs("received_signed", security.isSigned())
      .addIs("received_encrypted", security.isEncrypted())
      .addSerialized("signatures_valid", valueOf(security.allSignaturesValid()))
      .addIs("decrypted", security.allDecrypted())
      .add("signed_layers", std::ranges::count_if(security.layers, &SecurityLayer::isSigned))
      .add("encrypted_layers", std::ranges::count_if(security.layers, &SecurityLayer::isEncrypted))
      .addSerialized("signers", signersOf(security))
      .addSerialized("layers", layersOf(security))
      .addSerialized("inner_fields", innerFieldsOf(security))
      .addSerialized("verdict", verdictJson(security))
      .closed();
}

}  // namespace mailtree::cli
