// crypto/SecureLayer.h - the verification result of one signed, encrypted or compressed layer of a message.
//
//   A verdict is not a single bool: whether the signature is cryptographically valid, whether the signer is
//   who it claims to be, and whether it covers what is displayed are three separate questions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Export.h"
#include "mailtree/base/Object.h"
#include "mailtree/base/Origin.h"
#include "mailtree/crypto/Answer.h"
#include "mailtree/crypto/Certificate.h"

namespace mailtree {

/// One signer of a layer.
struct SignerVerdict {
  RefPtr<Certificate> certificate;          ///< Null when no certificate of the signer is available.
  std::string digest;                       ///< "sha256", ...
  std::string algorithm;                    ///< "rsa", "rsa-pss", "ecdsa", ...
  std::optional<std::int64_t> signingTime;  ///< Unix seconds, as the signer claims.
  Answer digestMatched{};                   ///< The content is the signed one.
  Answer signatureVerified{};               ///< The signer's key made the signature.
  Answer chainTrusted{};                    ///< A certification path leads to a trust anchor now.
  Answer chainTrustedThen{};                ///< The same at the signing time.
  Answer revoked{};         ///< It, or an authority above it; not checked without a list of its issuer.
  Answer keyUsageFit{};     ///< The certificate allows signing mail.
  Answer addressMatches{};  ///< The certificate is issued to the one address in From.
  /// "digest sha1", "key RSA 1024 bits", "authority 1: certificate signed with md5"; counted
  /// from the signer upwards.
  std::vector<std::string> weaknesses;
  std::string problem;       ///< The first problem as text; empty when there is none.
  std::string chainProblem;  ///< Why the chain is not trusted, or was not checked.

  /// Cryptographically valid. Tells nothing about who signed.
  bool isValid() const noexcept { return digestMatched == Answer::yes && signatureVerified == Answer::yes; }
  /// Cryptographically invalid. When neither this nor isValid() is true, something was not checked.
  bool isInvalid() const noexcept { return digestMatched == Answer::no || signatureVerified == Answer::no; }
};

/// A part that a layer covers, or a part enclosing it.
struct LayerPlace {
  Origin origin = kNoOrigin;
  std::string inside;  ///< What the layer covers, numbered within the content of this part; empty: all of it.
};

struct MAILTREE_API SecureLayer {
  static constexpr std::string_view kWholeMessage = "1";

  LayerKind kind = LayerKind::unknown;
  /// Part of the tree that it covers: "1" is the message itself, "1.2" its second part, "1.2/1.1" the first
  /// part of the content of part 1.2, which is not opened in the tree.
  std::string part;
  std::vector<LayerPlace> places;  ///< Innermost first; `part` is the first one that the tree has.
  bool opened = false;             ///< Its content was extracted and is in the tree.
  std::vector<SignerVerdict> signers;
  std::string cipher;        ///< "aes-256-gcm", "3des-cbc", ...; of encrypted layers.
  std::string keyTransport;  ///< "rsa", "rsa-oaep", "ecdh"; of the recipient that opened it, else the first.
  RefPtr<Certificate> recipient;  ///< The recipient whose key opened it.
  bool weakCipher = false;        ///< RC2, DES, triple DES.
  std::string problem;            ///< Why it was not opened or not verified; empty when it was.
  std::vector<RefPtr<Certificate>> certificates;  ///< All certificates included in it.
  std::vector<std::string> uncovered;             ///< Displayed parts next to it that it does not cover.

  bool isSigned() const noexcept {
    return kind == LayerKind::detachedSignature || kind == LayerKind::opaqueSignature;
  }
  bool isEncrypted() const noexcept {
    return kind == LayerKind::enveloped || kind == LayerKind::authEnveloped;
  }
  /// There is a signer, and every signature is cryptographically valid.
  bool allSignaturesValid() const noexcept;
  /// Some signature is cryptographically invalid.
  bool hasInvalidSignature() const noexcept;
};

}  // namespace mailtree
