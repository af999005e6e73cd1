// crypto/SecureLayer.h - what was found out about one signed, encrypted or packed layer of a message.
//
//   A verdict is no single bool: whether the mathematics holds, whether the signer is who it says, and whether
//   what is displayed was covered are three questions, each answered for itself.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Object.h"
#include "mailtree/crypto/Certificate.h"

namespace mailtree {

enum class LayerKind {
  detachedSignature,
  opaqueSignature,
  enveloped,
  authEnveloped,
  compressed,
  certificatesOnly,
  unknown
};

/// "detached-signature", "opaque-signature", "enveloped", "auth-enveloped", "compressed", "certificates-only", "unknown".
std::string_view nameOf(LayerKind kind) noexcept;

/// One signer of a layer.
struct SignerVerdict {
  RefPtr<Certificate> certificate;          ///< Null when no certificate of the signer is at hand.
  std::string digest;                       ///< "sha256", ...
  std::string algorithm;                    ///< "rsa", "rsa-pss", "ecdsa", ...
  std::optional<std::int64_t> signingTime;  ///< Unix seconds, as the signer claims.
  bool digestMatched = false;               ///< The content is the one that was signed.
  bool signatureVerified = false;           ///< The signer's key made the signature.
  bool chainTrusted = false;                ///< A way leads to a given trust anchor, now.
  bool chainTrustedThen = false;            ///< The same at the signing time; false without one.
  bool revoked = false;
  bool keyUsageFit = false;     ///< The certificate allows signing mail.
  bool addressMatches = false;  ///< The certificate is issued to the address in From.
  bool weak = false;            ///< md5, sha1, or an RSA key under 2048 bits.
  std::string problem;          ///< The first thing that is wrong, in words; empty when nothing is.

  /// What the mathematics says: nothing about who signed.
  bool isValid() const noexcept { return digestMatched && signatureVerified; }
};

struct SecureLayer {
  static constexpr std::string_view kWholeMessage = "1";

  LayerKind kind = LayerKind::unknown;
  std::string part;     ///< The part that it covers: "1" the message itself, "1.2" its second part; numbered
                        ///< as it was received, layers taken off not counted.
  bool opened = false;  ///< Its content was taken out and stands in the tree.
  std::vector<SignerVerdict> signers;
  std::string cipher;        ///< "aes-256-gcm", "3des-cbc", ...; of encrypted layers.
  std::string keyTransport;  ///< "rsa", "rsa-oaep", "ecdh"; of the recipient that opened it, else the first.
  RefPtr<Certificate> recipient;  ///< Whose key opened it.
  bool weakCipher = false;        ///< RC2, DES, triple DES.
  std::string problem;            ///< Why it was not opened or not verified; empty when it was.
  std::vector<RefPtr<Certificate>> certificates;  ///< All that came along.
  std::vector<std::string> uncovered;             ///< Displayed parts beside it that it does not cover.

  bool isSigned() const noexcept {
    return kind == LayerKind::detachedSignature || kind == LayerKind::opaqueSignature;
  }
  bool isEncrypted() const noexcept {
    return kind == LayerKind::enveloped || kind == LayerKind::authEnveloped;
  }
  /// Every signer's mathematics holds, and there is one.
  bool allSignaturesValid() const noexcept;
};

}  // namespace mailtree
