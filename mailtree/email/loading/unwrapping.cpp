#include "mailtree/email/loading/unwrapping.h"

#include <iterator>
#include <tuple>
#include <vector>

#include "mailtree/base/Log.h"
#include "mailtree/crypto/Cades.h"
#include "mailtree/crypto/UnwrapInfo.h"

namespace mailtree {
namespace {

void logField(const MimeMessage2& entity, const char* field, const char* tag, LogBase& log) {
  if (entity.header().findField(field) < 0) return;
  StringBuffer value;
  entity.getHeaderFieldUtf8(field, value, log);
  log.LogDataSb(tag, value);
}

template <class T>
void moveTo(std::vector<T>& to, std::vector<T>& from) {
  to.insert(to.end(), std::make_move_iterator(from.begin()), std::make_move_iterator(from.end()));
}

void recordOutcome(UnwrapInfo& info, Email2& node) {
  node.accumulateSecurityInfo(info.m_hasSecureLayer, info.m_allSignaturesValid, info.m_allDataDecrypted,
                              info.m_numSigned, info.m_numEncrypted);
  if (!node.m_common) return;
  _svEmailCommon& common = *node.m_common;
  std::ignore = info.m_signerCerts.transferPtrs(common.m_signerCerts);
  std::ignore = info.m_decryptCerts.transferPtrs(common.m_decryptCerts);
  for (InnerField& field : info.m_innerFields) field.layer += common.m_secureLayers.size();
  moveTo(common.m_secureLayers, info.m_layers);
  moveTo(common.m_innerFields, info.m_innerFields);
}

void logKind(const UnwrapInfo& info, LogBase& log) {
  const bool isSigned = info.m_numSigned != 0, isEncrypted = info.m_numEncrypted != 0;
  if (isSigned && isEncrypted)
    log.logInfo("A signed and encrypted email was received");
  else if (isSigned)
    log.logInfo("A digitally signed email was received");
  else if (isEncrypted)
    log.logInfo("An encrypted email was received");
}

void logOutcome(const UnwrapInfo& info, LogBase& log) {
  if (!info.m_hasSecureLayer) return;
  logKind(info, log);
  if (!info.m_allSignaturesValid)
    log.logError("Not all signatures were valid");
  else if (info.m_numSigned != 0)
    log.logInfo("All signatures are valid");
  if (!info.m_allDataDecrypted)
    log.logError("Not all data was decrypted");
  else if (info.m_numEncrypted != 0)
    log.logInfo("All data successfully decrypted");
  if (info.m_numSigned != 0) log.LogDataLong("num_parts_signed", info.m_numSigned);
  if (info.m_numEncrypted != 0) log.LogDataLong("num_parts_encrypted", info.m_numEncrypted);
}

}  // namespace

void unwrapReceived(MimeMessage2& entity, Email2& node, SystemCerts& certs, LogBase& log) {
  LogContextExitor context(log, "unwrapSecurity");
  if (log.m_verboseLogging) {
    logField(entity, "From", "FromHeader", log);
    logField(entity, "To", "ToHeader", log);
  }
  UnwrapInfo info;
  LoadBudget& budget = node.m_common->m_budget;
  info.m_budget = budget;
  _clsCades cades;
  entity.unwrapSecurity3(info, cades, certs, log);
  budget = info.m_budget;
  recordOutcome(info, node);
  logOutcome(info, log);
}

}  // namespace mailtree
