// email/EmailCommon.h - the settings that all nodes of one message share.
#pragma once

#include <cstdint>
#include <vector>

#include "mailtree/base/Containers.h"
#include "mailtree/base/Object.h"
#include "mailtree/base/XString.h"
#include "mailtree/crypto/Certificate.h"
#include "mailtree/crypto/UnwrapInfo.h"
#include "mailtree/mime/Limits.h"
#include "mailtree/mime/charset/Charset.h"

namespace mailtree {

class LogBase;

/// From what a field of recipients was written last, so that one more recipient need not render all of them
/// again.
struct RenderedRecipients {
  const void* node = nullptr;
  int kind = 0;
  int codePage = 0;
  int count = 0;
  std::uint64_t entriesHash = 0;
  StringBuffer value;
};

/// Message-wide settings. Lives on the heap; every node of a tree holds one reference. Starts uncounted.
class _svEmailCommon final : public RefCountedObject {
 public:
  _svEmailCommon() = default;

  /// Copies the settings of another: charset, preferences, security outcome, send switches, and the three
  /// certificate lists (added to those held here). Nothing when it is this very object. Deliberate: a signing
  /// certificate held before is overwritten without being released, and a source without one leaves the
  /// present one in place.
  void copyFrom(const _svEmailCommon& source);

  _svCharset m_charset;             ///< Charset of the whole email.
  XString m_preferredCharset;       ///< Charset name to use when a body is not 7-bit.
  int m_idOnServer = -1;            ///< Message number or identifier on a mail server.
  bool m_overwriteExisting = true;  ///< Whether saving over an existing file is allowed.
  bool m_receivedSecure = false;    ///< A signed or encrypted layer was met while loading.
  bool m_allSignaturesValid = false;
  bool m_allDataDecrypted = false;
  int m_numSignedLayers = 0;
  int m_numEncryptedLayers = 0;
  ExtPtrArray m_signerCerts;   ///< CertificateHolder of the signers found while loading.
  ExtPtrArray m_decryptCerts;  ///< CertificateHolder with which layers were decrypted.
  bool m_sendSigned = false;
  bool m_sendEncrypted = false;
  Certificate* m_signingCert = nullptr;     ///< Holds one reference.
  ExtPtrArray m_encryptCerts;               ///< CertificateHolder of the recipients.
  std::vector<SecureLayer> m_secureLayers;  ///< Met while loading, from outside in.
  std::vector<InnerField> m_innerFields;    ///< Fields that a layer says otherwise than the header does.
  LimitSet m_limits;                        ///< Limits met while loading.
  LoadBudget m_budget;          ///< What is left for the messages attached to the one that was loaded.
  bool m_sharesBudget = false;  ///< What is loaded next is attached: it lives on what is left.
  /// False when memory ran out while loading: something of the message is missing. Never write such a tree.
  bool m_isWhole = true;
  RenderedRecipients m_rendered;

 private:
  ~_svEmailCommon() override;
};

}  // namespace mailtree
