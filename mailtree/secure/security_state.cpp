// secure/security_state.cpp - the state of the layers of a received message, and how to send one.

#include "mailtree/email/Email2.h"

namespace mailtree {
namespace {

/// The first report decides, later ones can only turn it to false.
void accumulate(bool& all, bool isFirst, bool reported) noexcept { all = reported && (isFirst || all); }

}  // namespace

void Email2::accumulateSecurityInfo(bool secure, bool signaturesValid, bool decrypted, int numSigned,
                                    int numEncrypted) {
  if (!isLive() || !m_common || !secure) return;
  m_common->m_receivedSecure = true;
  // Deliberate: the previous count tells which report is the first, so the report after one that counts
  // nothing is a first one too.
  accumulate(m_common->m_allSignaturesValid, m_common->m_numSignedLayers == 0, signaturesValid);
  accumulate(m_common->m_allDataDecrypted, m_common->m_numEncryptedLayers == 0, decrypted);
  m_common->m_numSignedLayers += numSigned;
  m_common->m_numEncryptedLayers += numEncrypted;
}

bool Email2::getAllSignaturesValid() const { return m_common && m_common->m_allSignaturesValid; }

bool Email2::getAllDataDecrypted() const { return m_common && m_common->m_allDataDecrypted; }

bool Email2::getSendSigned() const { return m_common && m_common->m_sendSigned; }

bool Email2::getSendEncrypted() const { return m_common && m_common->m_sendEncrypted; }

void Email2::setSendSigned(bool sendSigned) {
  if (isLive() && m_common) m_common->m_sendSigned = sendSigned;
}

void Email2::setSendEncrypted(bool sendEncrypted) {
  if (isLive() && m_common) m_common->m_sendEncrypted = sendEncrypted;
}

bool Email2::getReceivedSigned() const {
  if (!isLive() || !m_common) return false;
  const StringBuffer& type = m_contentType.m_type;
  return m_common->m_numSignedLayers > 0 || type.containsSubstringNoCase("pkcs7-signature") ||
         type.equals("application/pkcs7");
}

bool Email2::getReceivedEncrypted() const {
  if (!isLive() || !m_common) return false;
  return m_common->m_numEncryptedLayers > 0 || m_contentType.m_type.containsSubstringNoCase("pkcs7-mime");
}

Certificate* Email2::getSignedBy(int index, LogBase& log) {
  if (!isLive() || !m_common) return nullptr;
  return CertificateHolder::getNthCert(m_common->m_signerCerts, index, log);
}

Certificate* Email2::getEncryptedBy(int index, LogBase& log) {
  if (!isLive() || !m_common) return nullptr;
  return CertificateHolder::getNthCert(m_common->m_decryptCerts, index, log);
}

}  // namespace mailtree
