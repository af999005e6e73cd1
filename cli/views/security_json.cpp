#include "cli/views/security_json.h"

#include <algorithm>
#include <utility>

#include "cli/support/times.h"

namespace mailtree::cli {
namespace {

Json certificateOf(const Certificate& certificate) {
  XString subject, issuer;
  LogNull log;
  certificate.getSubjectDN(subject, log);
  certificate.getIssuerDN(issuer, log);
  return {{"addresses", certificate.emailAddresses()},
          {"subject", subject.view()},
          {"issuer", issuer.view()},
          {"serial_number", certificate.serialNumber()},
          {"sha256", certificate.fingerprint()},
          {"key", certificate.keyAlgorithm()},
          {"key_bits", certificate.keyBits()},
          {"not_before", timeText(certificate.notBefore())},
          {"not_after", timeText(certificate.notAfter())}};
}

Json certificateOrNull(const RefPtr<Certificate>& certificate) {
  return certificate ? certificateOf(*certificate) : Json();
}

/// Null when not checked.
Json valueOf(Answer answer) { return answer == Answer::notChecked ? Json() : Json(answer == Answer::yes); }

/// Null when the certificate is missing and no other weakness is known.
Json weaknessOf(const SignerVerdict& signer) {
  if (signer.weaknesses.empty() && !signer.certificate) return {};
  return !signer.weaknesses.empty();
}

Json signerOf(const SignerVerdict& signer) {
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

Json layerOf(const SecureLayer& layer) {
  Json signers = Json::array();
  for (const SignerVerdict& signer : layer.signers) signers.push_back(signerOf(signer));
  return {{"kind", mailtree::nameOf(layer.kind)},
          {"part", layer.part},
          {"opened", layer.opened},
          {"uncovered", layer.uncovered},
          {"signers", std::move(signers)},
          {"cipher", textOrNull(layer.cipher)},
          {"key_transport", textOrNull(layer.keyTransport)},
          {"recipient", certificateOrNull(layer.recipient)},
          {"weak_cipher", layer.weakCipher},
          {"problem", textOrNull(layer.problem)}};
}

Json innerFieldOf(const InnerField& field) {
  return {{"part", field.part},
          {"name", field.name},
          {"inside", textOrNull(field.inside)},
          {"outside", textOrNull(field.outside)}};
}

/// Each signer's certificate once.
Json signersOf(const Verification& verification) {
  Json out = Json::array();
  std::vector<std::string> known;
  for (const SecureLayer& layer : verification.layers)
    for (const SignerVerdict& signer : layer.signers) {
      if (!signer.certificate || std::ranges::find(known, signer.certificate->fingerprint()) != known.end())
        continue;
      known.push_back(signer.certificate->fingerprint());
      out.push_back(certificateOf(*signer.certificate));
    }
  return out;
}

}  // namespace

Json securityOf(const Verification& verification) {
  Json layers = Json::array(), fields = Json::array();
  for (const SecureLayer& layer : verification.layers) layers.push_back(layerOf(layer));
  for (const InnerField& field : verification.innerFields) fields.push_back(innerFieldOf(field));
  return objectOf(
      {{"received_signed", verification.isSigned()},
       {"received_encrypted", verification.isEncrypted()},
       {"signatures_valid", valueOf(verification.allSignaturesValid())},
       {"decrypted", verification.allDecrypted()},
       {"signed_layers", std::ranges::count_if(verification.layers, &SecureLayer::isSigned)},
       {"encrypted_layers", std::ranges::count_if(verification.layers, &SecureLayer::isEncrypted)},
       {"signers", signersOf(verification)},
       {"layers", std::move(layers)},
       {"inner_fields", std::move(fields)},
       {"verdict", objectOf({{"valid", verification.verdict.valid}, {"text", verification.verdict.text}})}});
}

}  // namespace mailtree::cli
