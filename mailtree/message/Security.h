// message/Security.h - what is known about the signatures and encrypted layers of a message.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "mailtree/base/Export.h"
#include "mailtree/crypto/Answer.h"
#include "mailtree/message/Keys.h"

namespace mailtree {

/// One signer of a layer. Each question has an answer of its own, yes, no or notChecked; the
/// last is neither good nor bad.
struct Signer {
  std::optional<CertificateInfo> certificate;  ///< Nothing when the message brings none and none is known.
  std::string digest;                          ///< "sha256", ...
  std::string algorithm;                       ///< "rsa", "rsa-pss", "ecdsa", ...
  std::optional<std::chrono::sys_seconds> signingTime;  ///< As the signer claims.
  Answer digestMatched{};                               ///< The content is what was signed.
  Answer signatureVerified{};                           ///< The signer's key made the signature.
  Answer chainTrusted{};                                ///< A certification path leads to a trust anchor now.
  Answer chainTrustedThen{};                            ///< The same at the signing time.
  Answer revoked{};                                     ///< The certificate, or one of an authority above it.
  Answer keyUsageFit{};                                 ///< The certificate allows signing mail.
  Answer addressMatches{};              ///< The certificate is issued to the one address in From.
  bool isFaultless = false;             ///< All answers are good, and the chain was checked.
  std::vector<std::string> weaknesses;  ///< "digest sha1", "key RSA 1024 bits", ...
  std::string problem;                  ///< The first problem; empty when there is none.
  std::string chainProblem;             ///< Why the chain is not trusted, or was not checked.

  bool isValid() const noexcept { return digestMatched == Answer::yes && signatureVerified == Answer::yes; }
  bool isInvalid() const noexcept { return digestMatched == Answer::no || signatureVerified == Answer::no; }
};

/// One signed, encrypted or compressed layer.
struct MAILTREE_API SecurityLayer {
  LayerKind kind{};
  std::string part;       ///< The Part::id() of what it covers; "1" is the whole message.
  bool isOpened = false;  ///< Its content could be read.
  std::vector<Signer> signers;
  std::string cipher;                         ///< "aes-256-gcm", ...; of encrypted layers.
  std::string keyTransport;                   ///< "rsa", "rsa-oaep", "ecdh".
  bool isCipherWeak = false;                  ///< RC2, DES, triple DES.
  std::optional<CertificateInfo> recipient;   ///< Whose key opened it.
  std::vector<CertificateInfo> certificates;  ///< All that came in it.
  std::vector<std::string> uncovered;         ///< Shown parts beside it that it does not cover.
  std::string problem;                        ///< Why it was not opened or not verified.

  bool isSigned() const noexcept {
    return kind == LayerKind::detachedSignature || kind == LayerKind::opaqueSignature;
  }
  bool isEncrypted() const noexcept {
    return kind == LayerKind::enveloped || kind == LayerKind::authEnveloped;
  }
  bool coversAll() const { return part == "1" && uncovered.empty(); }
  bool hasInvalidSignature() const noexcept;
  bool allSignaturesValid() const noexcept;  ///< There is a signer, and every signature is valid.
};

/// A header field that differs between the message and its signed or encrypted content.
struct FieldDifference {
  std::string part, name;
  std::string outside, inside;  ///< Empty where the field is missing.
  bool isDisplayed = false;     ///< Mail clients show this field.
};

/// The verdict on a message: whether it really is from its From address, whole and unchanged.
struct MAILTREE_API Security {
  /// A signature without any fault covers all of the content, made by the sender, whose chain is trusted.
  bool isValid = false;
  std::string verdict;                ///< In words: the signer, or the worst fault.
  std::vector<SecurityLayer> layers;  ///< Outermost first.
  std::vector<FieldDifference> differences;
  std::string from;         ///< The only address in From; empty when there is not exactly one.
  std::string fromProblem;  ///< Why `from` is empty.
  bool wasTrustGiven = false;

  bool isSigned() const;
  bool isEncrypted() const;
  Answer allSignaturesValid() const;             ///< Signed, and every signature is cryptographically valid.
  bool allDecrypted() const;                     ///< Encrypted, and every encrypted layer was opened.
  const SecurityLayer* unopened() const;         ///< The first encrypted layer not opened; else null.
  const FieldDifference* contradiction() const;  ///< A displayed field the whole content contradicts.
};

}  // namespace mailtree
