// crypto/UnwrapInfo.h - the result of unwrapping a message: the totals, and each layer.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "mailtree/base/Containers.h"
#include "mailtree/base/LoadBudget.h"
#include "mailtree/crypto/SecureLayer.h"

namespace mailtree {

/// A header field that differs between the inside of a layer and the outside, which is displayed. A
/// field that is only outside counts too when mail clients display it, a message has it once, and the
/// layer has such fields.
struct InnerField {
  std::string part;  ///< Of the layer.
  std::string name;
  std::string inside;     ///< Empty when there is none inside.
  std::string outside;    ///< Empty when there is none outside.
  std::size_t layer = 0;  ///< Index of the layer.
};

class UnwrapInfo {
 public:
  bool m_hasSecureLayer = false;
  /// True also when there was none: no false alarm for a message that is only encrypted.
  bool m_allSignaturesValid = true;
  bool m_allDataDecrypted = true;
  int m_numSigned = 0;
  int m_numEncrypted = 0;
  ExtPtrArray m_signerCerts;          ///< CertificateHolder of every signer found.
  ExtPtrArray m_decryptCerts;         ///< CertificateHolder of every certificate that opened a layer.
  std::vector<SecureLayer> m_layers;  ///< Outermost first.
  std::vector<InnerField> m_innerFields;
  LoadBudget m_budget;  ///< The budget; afterwards what is left of it.
};

}  // namespace mailtree
