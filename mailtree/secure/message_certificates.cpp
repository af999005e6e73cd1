// secure/message_certificates.cpp - the certificates to sign a message with and encrypt it to.

#include "mailtree/email/Email2.h"

namespace mailtree {

void Email2::setSigningCert(Certificate* certificate) {
  if (!isLive() || !m_common || m_common->m_signingCert == certificate || !certificate) return;
  certificate->incRefCount();
  if (m_common->m_signingCert) m_common->m_signingCert->decRefCount();
  m_common->m_signingCert = certificate;
}

Certificate* Email2::getSigningCert(LogBase&) {
  return isLive() && m_common ? m_common->m_signingCert : nullptr;
}

void Email2::addEncryptCert(Certificate* certificate) {
  if (!isLive() || !m_common || !certificate) return;
  LogNull quiet;
  CertificateHolder::appendNewCertHolder(certificate, m_common->m_encryptCerts, quiet);
}

void Email2::setEncryptCert(Certificate* certificate) {
  const RefPtr<Certificate> kept(certificate);  // the list may hold the only other reference
  clearEncryptCerts();
  addEncryptCert(certificate);
}

void Email2::clearEncryptCerts() {
  if (isLive() && m_common) m_common->m_encryptCerts.removeAllObjects();
}

Certificate* Email2::getEncryptCert(LogBase& log) {
  if (!isLive() || !m_common) return nullptr;
  return CertificateHolder::getNthCert(m_common->m_encryptCerts, 0, log);
}

}  // namespace mailtree
