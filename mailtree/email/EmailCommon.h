// email/EmailCommon.h - settings shared by all nodes of one message.
#pragma once

#include <cstdint>
#include <vector>

#include "mailtree/base/Containers.h"
#include "mailtree/base/Export.h"
#include "mailtree/base/Object.h"
#include "mailtree/base/XString.h"
#include "mailtree/crypto/Certificate.h"
#include "mailtree/crypto/UnwrapInfo.h"
#include "mailtree/mime/Limits.h"
#include "mailtree/mime/charset/Charset.h"

namespace mailtree {

class LogBase;

/// The last rendered recipient field, kept so that adding a recipient need not render all of them again.
struct RenderedRecipients {
  const void* node = nullptr;
  int kind = 0;
  int codePage = 0;
  int count = 0;
  std::uint64_t entriesHash = 0;
  StringBuffer value;
};

/// Message-wide settings on the heap. Every node of a tree holds one reference; the count starts at 0.
class MAILTREE_API _svEmailCommon final : public RefCountedObject {
 public:
  _svEmailCommon() = default;

  /// Copies charset, preferences, security outcome, send switches and the three certificate lists, which are
  /// added to the present ones. Does nothing for the same object. Deliberate: a present signing certificate
  /// is overwritten without being released, and kept when the source has none.
  void copyFrom(const _svEmailCommon& source);

  _svCharset m_charset;             ///< Charset of the whole email.
  XString m_preferredCharset;       ///< Charset name to use when a body is not 7-bit.
  int m_idOnServer = -1;            ///< Message number or identifier on a mail server.
  bool m_overwriteExisting = true;  ///< Whether saving over an existing file is allowed.
  bool m_receivedSecure = false;    ///< Loading found a signed or encrypted layer.
  bool m_allSignaturesValid = false;
  bool m_allDataDecrypted = false;
  int m_numSignedLayers = 0;
  int m_numEncryptedLayers = 0;
  ExtPtrArray m_signerCerts;   ///< CertificateHolder of each signer found on load.
  ExtPtrArray m_decryptCerts;  ///< CertificateHolder used to decrypt each layer.
  bool m_sendSigned = false;
  bool m_sendEncrypted = false;
  Certificate* m_signingCert = nullptr;     ///< Holds one reference.
  ExtPtrArray m_encryptCerts;               ///< CertificateHolder of the recipients.
  std::vector<SecureLayer> m_secureLayers;  ///< Found on load, outermost first.
  std::vector<InnerField> m_innerFields;    ///< Fields that differ between a layer and the header.
  LimitSet m_limits;                        ///< Limits exceeded on load.
  LoadBudget m_budget;                      ///< What is left for attached messages.
  bool m_sharesBudget = false;  ///< The next load is of an attached message and uses what is left.
  /// False when memory ran out on load and the tree is incomplete. Never write such a tree.
  bool m_isWhole = true;
  RenderedRecipients m_rendered;

 private:
  ~_svEmailCommon() override;
};

}  // namespace mailtree
