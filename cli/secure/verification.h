// cli/secure/verification.h - a received message and the verdict on its signatures.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/message/input.h"
#include "cli/secure/keys.h"

namespace mailtree::cli {

/// Whether a message really is from its From address. Valid only when a signature without any fault covers
/// all of the content.
struct Verdict {
  bool valid = false;
  std::string text;  ///< The signer, or the worst fault.
};

struct Verification {
  Message message;
  /// The layers unwrapped on load, outermost first; or those below a multipart/mixed, which loading
  /// does not unwrap.
  std::vector<SecureLayer> layers;
  std::vector<InnerField> innerFields;
  std::string from;         ///< The only address in From, as displayed; empty when there is not exactly one.
  std::string fromProblem;  ///< Why `from` is empty.
  bool trustGiven = false;
  Verdict verdict;

  bool isSigned() const;
  bool isEncrypted() const;
  /// Signed, and every signature is cryptographically valid.
  Answer allSignaturesValid() const;
  /// Encrypted, and every encrypted layer was opened.
  bool allDecrypted() const;
  /// An encrypted layer that was not opened; null when there is none.
  const SecureLayer* unopened() const;
  /// A displayed header field that differs between the message and a layer that covers all of it, or is
  /// missing in one of them; null when there is none. Fields of a signed part do not count.
  const InnerField* contradiction() const;
};

/// Reads, loads and verifies a message; nothing after reporting an error.
std::optional<Verification> verifyMessage(const std::string& path, Keys& keys);

/// Whether a signature has no fault: it is cryptographically valid, its certificate and chain are good, and
/// the signer is the sender.
bool isFaultless(const SignerVerdict& signer, const Verification& verification);

}  // namespace mailtree::cli
