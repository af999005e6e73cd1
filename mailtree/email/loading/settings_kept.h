// email/loading/settings_kept.h - shared settings as they were, after something was loaded that shares them.
//
// Loading writes into the settings what it finds out about a message. What is loaded beside that message, such as
// one attached to it, must not speak for it.
#pragma once

#include <utility>
#include <vector>

#include "mailtree/email/EmailCommon.h"

namespace mailtree {

/// Puts back, at the end of a scope, how the message is to be sent, its number on the server, and what its security
/// layers were worth. What is loaded in it shares the budget of the message.
class OutcomeKept {
 public:
  explicit OutcomeKept(_svEmailCommon& common);
  OutcomeKept(const OutcomeKept&) = delete;
  OutcomeKept& operator=(const OutcomeKept&) = delete;
  ~OutcomeKept();

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

/// The same for everything that a load may change: the charset and the limits met too.
class SettingsKept {
 public:
  explicit SettingsKept(_svEmailCommon& common)
      : m_outcome(common), m_common(common), m_charset(common.m_charset), m_limits(common.m_limits) {}
  SettingsKept(const SettingsKept&) = delete;
  SettingsKept& operator=(const SettingsKept&) = delete;
  ~SettingsKept() {
    m_common.m_charset = std::move(m_charset);
    m_common.m_limits = m_limits;
  }

 private:
  OutcomeKept m_outcome;
  _svEmailCommon& m_common;
  _svCharset m_charset;
  LimitSet m_limits;
};

}  // namespace mailtree
