// crypto/UnwrapInfo.h - what unwrapping a message found: the sum, and each layer.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "mailtree/base/Containers.h"
#include "mailtree/base/LoadBudget.h"
#include "mailtree/crypto/SecureLayer.h"

namespace mailtree {

/// A header field that stands otherwise inside a layer than outside, where it is displayed from. One that stands only
/// outside is one too where it is of those that a message has once and readers display, and the layer has such fields.
struct InnerField {
  std::string part;  ///< Of the layer it stands in.
  std::string name;
  std::string inside;     ///< Empty when there is none inside.
  std::string outside;    ///< Empty when there is none outside.
  std::size_t layer = 0;  ///< Index of that layer.
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
  std::vector<SecureLayer> m_layers;  ///< From outside in.
  std::vector<InnerField> m_innerFields;
  LoadBudget m_budget;  ///< What may be spent; afterwards what is left.
};

}  // namespace mailtree
