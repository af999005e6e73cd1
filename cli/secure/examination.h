// cli/secure/examination.h - a received message together with what its signatures are worth.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cli/message/input.h"
#include "cli/secure/keys.h"

namespace mailtree::cli {

/// The one answer to whether a message is what its From says. Yes only when all of the content is covered by a
/// signature in which everything is right.
struct Verdict {
  bool valid = false;
  std::string text;  ///< Who signed it, or the gravest thing that is wrong.
};

struct Examined {
  Message message;
  /// Those that loading took off, from outside in; or those below a multipart/mixed, which loading leaves alone.
  std::vector<SecureLayer> layers;
  std::vector<InnerField> innerFields;
  std::string from;  ///< The one address in From, as it is shown; empty when there is none or more than one.
  std::string fromProblem;  ///< Why there is none.
  bool trustGiven = false;
  Verdict verdict;

  bool isSigned() const;
  bool isEncrypted() const;
  /// Signed, and the mathematics of every signature holds.
  Answer allSignaturesValid() const;
  /// Encrypted, and every layer was opened.
  bool allDecrypted() const;
  /// An encrypted layer that was not opened; null when there is none.
  const SecureLayer* unopened() const;
  /// A displayed field of the message that stands otherwise inside a layer of the whole of it, or in one of the two
  /// alone; null when there is none. What a signed part says of itself is not about the message.
  const InnerField* contradiction() const;
};

/// Reads, loads and judges a message; nothing after a complaint.
std::optional<Examined> examine(const std::string& path, Keys& keys);

/// Whether everything is right about a signer: the mathematics, the certificate, its chain, and that it is the sender's.
bool isGood(const SignerVerdict& signer, const Examined& examined);

}  // namespace mailtree::cli
