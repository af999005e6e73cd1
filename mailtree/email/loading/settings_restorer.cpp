#include "mailtree/email/loading/settings_restorer.h"

#include <tuple>
#include <utility>

namespace mailtree {
namespace {

void restore(ExtPtrArray& kept, ExtPtrArray& list) noexcept {
  list.removeAllObjects();
  std::ignore = kept.transferPtrs(list);
}

}  // namespace

OutcomeRestorer::OutcomeRestorer(_svEmailCommon& common)
    : m_common(common),
      m_sharesBudget(std::exchange(common.m_sharesBudget, true)),
      m_sendSigned(common.m_sendSigned),
      m_sendEncrypted(common.m_sendEncrypted),
      m_idOnServer(common.m_idOnServer),
      m_receivedSecure(common.m_receivedSecure),
      m_allSignaturesValid(common.m_allSignaturesValid),
      m_allDataDecrypted(common.m_allDataDecrypted),
      m_numSignedLayers(common.m_numSignedLayers),
      m_numEncryptedLayers(common.m_numEncryptedLayers),
      m_secureLayers(std::move(common.m_secureLayers)),
      m_innerFields(std::move(common.m_innerFields)) {
  std::ignore = common.m_signerCerts.transferPtrs(m_signerCerts);
  std::ignore = common.m_decryptCerts.transferPtrs(m_decryptCerts);
  common.m_secureLayers.clear();
  common.m_innerFields.clear();
}

OutcomeRestorer::~OutcomeRestorer() {
  m_common.m_sharesBudget = m_sharesBudget;
  m_common.m_sendSigned = m_sendSigned;
  m_common.m_sendEncrypted = m_sendEncrypted;
  m_common.m_idOnServer = m_idOnServer;
  m_common.m_receivedSecure = m_receivedSecure;
  m_common.m_allSignaturesValid = m_allSignaturesValid;
  m_common.m_allDataDecrypted = m_allDataDecrypted;
  m_common.m_numSignedLayers = m_numSignedLayers;
  m_common.m_numEncryptedLayers = m_numEncryptedLayers;
  m_common.m_secureLayers = std::move(m_secureLayers);
  m_common.m_innerFields = std::move(m_innerFields);
  restore(m_signerCerts, m_common.m_signerCerts);
  restore(m_decryptCerts, m_common.m_decryptCerts);
}

}  // namespace mailtree
