#include "cli/views/security_json.h"

#include <algorithm>
#include <utility>

#include "cli/views/layers.h"
#include "mailtree/message/times.h"

namespace mailtree::cli {
namespace {

Json certificateOf(const CertificateInfo& certificate) {
  return {{"addresses", certificate.addresses},
          {"subject", certificate.subject},
          {"issuer", certificate.issuer},
          {"serial_number", certificate.serialNumber},
          {"sha256", certificate.fingerprint},
          {"key", certificate.keyAlgorithm},
          {"key_bits", certificate.keyBits},
          {"not_before", timeText(certificate.validFrom)},
          {"not_after", timeText(certificate.validUntil)}};
}

Json certificateOrNull(const std::optional<CertificateInfo>& certificate) {
  return certificate ? certificateOf(*certificate) : Json();
}

/// Null when not checked.
Json valueOf(Answer answer) { return answer == Answer::notChecked ? Json() : Json(answer == Answer::yes); }

/// Null when the certificate is missing and no other weakness is known.
Json weaknessOf(const Signer& signer) {
  if (signer.weaknesses.empty() && !signer.certificate) return {};
  return !signer.weaknesses.empty();
}

Json signerOf(const Signer& signer) {
  return {{"certificate", certificateOrNull(signer.certificate)},
          {"digest", textOrNull(signer.digest)},
          {"algorithm", textOrNull(signer.algorithm)},
          {"signing_time", signer.signingTime ? Json(timeText(*signer.signingTime)) : Json()},
          {"digest_matched", valueOf(signer.digestMatched)},
          {"signature_verified", valueOf(signer.signatureVerified)},
          {"chain_trusted", valueOf(signer.chainTrusted)},
          {"chain_trusted_then", valueOf(signer.chainTrustedThen)},
          {"revoked", valueOf(signer.revoked)},
          {"key_usage_fit", valueOf(signer.keyUsageFit)},
          {"address_matches", valueOf(signer.addressMatches)},
          {"weak", weaknessOf(signer)},
          {"weaknesses", signer.weaknesses},
          {"problem", textOrNull(signer.problem)},
          {"chain_problem", textOrNull(signer.chainProblem)}};
}

Json layerOf(const SecurityLayer& layer) {
  Json signers = Json::array();
  for (const Signer& signer : layer.signers) signers.push_back(signerOf(signer));
  return {{"kind", mailtree::nameOf(layer.kind)},
          {"part", layer.part},
          {"opened", layer.isOpened},
          {"uncovered", layer.uncovered},
          {"signers", std::move(signers)},
          {"cipher", textOrNull(layer.cipher)},
          {"key_transport", textOrNull(layer.keyTransport)},
          {"recipient", certificateOrNull(layer.recipient)},
          {"weak_cipher", layer.isCipherWeak},
          {"problem", textOrNull(layer.problem)}};
}

Json innerFieldOf(const FieldDifference& field) {
  return {{"part", field.part},
          {"name", field.name},
          {"inside", textOrNull(field.inside)},
          {"outside", textOrNull(field.outside)}};
}

/// Each signer's certificate once.
Json signersOf(const Security& security) {
  Json out = Json::array();
  std::vector<std::string> known;
  for (const SecurityLayer& layer : security.layers)
    for (const Signer& signer : layer.signers) {
      if (!signer.certificate || std::ranges::find(known, signer.certificate->fingerprint) != known.end())
        continue;
      known.push_back(signer.certificate->fingerprint);
      out.push_back(certificateOf(*signer.certificate));
    }
  return out;
}

}  // namespace

Json securityOf(const Security& security) {
  Json layers = Json::array(), fields = Json::array();
  for (const SecurityLayer& layer : security.layers) layers.push_back(layerOf(layer));
  for (const FieldDifference& field : security.differences) fields.push_back(innerFieldOf(field));
  return objectOf({{"received_signed", security.isSigned()},
                   {"received_encrypted", security.isEncrypted()},
                   {"signatures_valid", valueOf(security.allSignaturesValid())},
                   {"decrypted", security.allDecrypted()},
                   {"signed_layers", std::ranges::count_if(security.layers, &SecurityLayer::isSigned)},
                   {"encrypted_layers", std::ranges::count_if(security.layers, &SecurityLayer::isEncrypted)},
                   {"signers", signersOf(security)},
                   {"layers", std::move(layers)},
                   {"inner_fields", std::move(fields)},
                   {"verdict", objectOf({{"valid", security.isValid}, {"text", verdictOf(security)}})}});
}

}  // namespace mailtree::cli
