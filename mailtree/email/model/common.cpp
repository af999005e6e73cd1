#include "mailtree/email/EmailCommon.h"

namespace mailtree {

void _svEmailCommon::copyFrom(const _svEmailCommon& source) {
  if (&source == this) return;
  m_charset.copy(source.m_charset);
  m_preferredCharset.copyFromX(source.m_preferredCharset);
  m_idOnServer = source.m_idOnServer;
  m_overwriteExisting = source.m_overwriteExisting;
  m_receivedSecure = source.m_receivedSecure;
  m_allSignaturesValid = source.m_allSignaturesValid;
  m_allDataDecrypted = source.m_allDataDecrypted;
  m_numSignedLayers = source.m_numSignedLayers;
  m_numEncryptedLayers = source.m_numEncryptedLayers;
  m_sendSigned = source.m_sendSigned;
  m_sendEncrypted = source.m_sendEncrypted;
  m_limits = source.m_limits;
  m_budget = source.m_budget;
  m_isWhole = source.m_isWhole;
  m_secureLayers = source.m_secureLayers;
  m_innerFields = source.m_innerFields;
  CertificateHolder::copyCertHolders(source.m_signerCerts, m_signerCerts);
  CertificateHolder::copyCertHolders(source.m_decryptCerts, m_decryptCerts);
  CertificateHolder::copyCertHolders(source.m_encryptCerts, m_encryptCerts);

  // Deliberate: the certificate held so far is not released, and a source without one leaves it in place.
  if (!source.m_signingCert) return;
  m_signingCert = source.m_signingCert;
  m_signingCert->incRefCount();
}

_svEmailCommon::~_svEmailCommon() {
  if (m_signingCert) m_signingCert->decRefCount();
  m_signingCert = nullptr;
  m_encryptCerts.removeAllObjects();
  m_signerCerts.removeAllObjects();
  m_decryptCerts.removeAllObjects();
}

}  // namespace mailtree
