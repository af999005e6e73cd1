// email/loading/settings_restorer.h - restores the shared settings after a further load.
//
// Loading writes its results into the settings. A load of an attached message must not replace the results of
// the outer one.
#pragma once

#include <utility>
#include <vector>

#include "mailtree/email/EmailCommon.h"

namespace mailtree {

/// Restores the send settings, the number on the server and the security results at the end of a scope. Loads
/// within it share the budget of the message.
class OutcomeRestorer {
 public:
  explicit OutcomeRestorer(_svEmailCommon& common);
  OutcomeRestorer(const OutcomeRestorer&) = delete;
  OutcomeRestorer& operator=(const OutcomeRestorer&) = delete;
  ~OutcomeRestorer();

 private:
  _svEmailCommon& m_common;
  bool m_sharesBudget;
  bool m_sendSigned, m_sendEncrypted;
  int m_idOnServer;
  bool m_receivedSecure, m_allSignaturesValid, m_allDataDecrypted;
  int m_numSignedLayers, m_numEncryptedLayers;
  ExtPtrArray m_signerCerts, m_decryptCerts;
  std::vector<SecureLayer> m_secureLayers;
  std::vector<InnerField> m_innerFields;
};

/// The same for everything that a load may change, including charset and limits.
class SettingsRestorer {
 public:
  explicit SettingsRestorer(_svEmailCommon& common)
      : m_outcome(common), m_common(common), m_charset(common.m_charset), m_limits(common.m_limits) {}
  SettingsRestorer(const SettingsRestorer&) = delete;
  SettingsRestorer& operator=(const SettingsRestorer&) = delete;
  ~SettingsRestorer() {
    m_common.m_charset = std::move(m_charset);
    m_common.m_limits = m_limits;
  }

 private:
  OutcomeRestorer m_outcome;
  _svEmailCommon& m_common;
  _svCharset m_charset;
  LimitSet m_limits;
};

}  // namespace mailtree
