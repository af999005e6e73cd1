#include "cli/views/security_json.h"

#include <algorithm>
#include <utility>

#include "cli/views/layers.h"

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

/// Null where nothing could be checked, for want of anchors.
Json trustOf(bool trusted, const Examined& examined) { return examined.trustGiven ? Json(trusted) : Json(); }

Json signerOf(const SignerVerdict& signer, const Examined& examined) {
  return {{"certificate", certificateOrNull(signer.certificate)},
          {"digest", textOrNull(signer.digest)},
          {"algorithm", textOrNull(signer.algorithm)},
          {"signing_time", signer.signingTime ? Json(timeText(*signer.signingTime)) : Json()},
          {"digest_matched", signer.digestMatched},
          {"signature_verified", signer.signatureVerified},
          {"chain_trusted", trustOf(signer.chainTrusted, examined)},
          {"chain_trusted_then", trustOf(signer.chainTrustedThen, examined)},
          {"revoked", signer.revoked},
          {"key_usage_fit", signer.keyUsageFit},
          {"address_matches", signer.addressMatches},
          {"weak", signer.weak},
          {"problem", textOrNull(signer.problem)}};
}

Json layerOf(const SecureLayer& layer, const Examined& examined) {
  Json signers = Json::array();
  for (const SignerVerdict& signer : layer.signers) signers.push_back(signerOf(signer, examined));
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

/// Every signer once, by certificate.
Json signersOf(const Examined& examined) {
  Json out = Json::array();
  std::vector<std::string> known;
  for (const SecureLayer& layer : examined.layers)
    for (const SignerVerdict& signer : layer.signers) {
      if (!signer.certificate || std::ranges::find(known, signer.certificate->fingerprint()) != known.end())
        continue;
      known.push_back(signer.certificate->fingerprint());
      out.push_back(certificateOf(*signer.certificate));
    }
  return out;
}

}  // namespace

Json securityOf(const Examined& examined) {
  Json layers = Json::array(), fields = Json::array();
  for (const SecureLayer& layer : examined.layers) layers.push_back(layerOf(layer, examined));
  for (const InnerField& field : examined.innerFields) fields.push_back(innerFieldOf(field));
  return objectOf(
      {{"received_signed", examined.isSigned()},
       {"received_encrypted", examined.isEncrypted()},
       {"signatures_valid", examined.allSignaturesValid()},
       {"decrypted", examined.allDecrypted()},
       {"signed_layers", std::ranges::count_if(examined.layers, &SecureLayer::isSigned)},
       {"encrypted_layers", std::ranges::count_if(examined.layers, &SecureLayer::isEncrypted)},
       {"signers", signersOf(examined)},
       {"layers", std::move(layers)},
       {"inner_fields", std::move(fields)},
       {"verdict", objectOf({{"valid", examined.verdict.valid}, {"text", examined.verdict.text}})}});
}

}  // namespace mailtree::cli
