// secure/enveloping.cpp - encrypts a whole message to the certificates of its recipients.

#include <tuple>
#include <utility>

#include "mailtree/crypto/Pkcs7Builder.h"
#include "mailtree/crypto/Pkcs7Opener.h"
#include "mailtree/crypto/Wipe.h"
#include "mailtree/email/internal.h"
#include "mailtree/secure/internal.h"

namespace mailtree {
namespace {

/// A kind of recipient and the tags of its log lines.
struct RecipientRow {
  ExtPtrArray Email2::*list;
  const char* addressTag;
  const char* certificateTag;
};

constexpr RecipientRow kRecipientRows[] = {
    {&Email2::m_toAddrs, "toAddr", "to_certDN"},
    {&Email2::m_ccAddrs, "ccAddr", "cc_certDN"},
    {&Email2::m_bccAddrs, "bccAddr", "bcc_certDN"},
};

/// Looks up recipients, all of them before a missing one is reported.
class RecipientSearch {
 public:
  RecipientSearch(SystemCerts& certs, ExtPtrArray& found, LogBase& log) noexcept
      : m_certs(certs), m_found(found), m_log(log) {}

  void lookUp(const Email2& email) {
    for (const RecipientRow& row : kRecipientRows)
      for (int i = 0; i < (email.*row.list).getSize(); ++i)
        if (const auto* const recipient = (email.*row.list).at<_svEmailAddress>(i))
          lookUp(recipient->m_address, row);
  }
  bool anyMissing() const noexcept { return m_anyMissing; }

 private:
  void lookUp(const XString& address, const RecipientRow& row) {
    if (address.isEmpty()) return;
    m_log.LogDataSb(row.addressTag, address.view());
    LogNull quiet;
    Certificate* const certificate =
        m_certs.findByEmailAddr(address.getUtf8(), /*forEncryption=*/true, quiet);
    if (!certificate || !keep(*certificate)) {
      m_log.LogDataSb("NoCertificateFound", address.view());
      m_anyMissing = true;
      return;
    }
    XString subject;
    certificate->getSubjectDN(subject, m_log);
    m_log.LogDataSb(row.certificateTag, subject.view());
  }

  bool keep(Certificate& certificate) {
    Owned<CertificateHolder> holder(CertificateHolder::createFromCert(&certificate, m_log));
    if (!holder || !m_found.appendObject(holder.get())) return false;
    std::ignore = holder.release();  // now owned by the list
    return true;
  }

  SystemCerts& m_certs;
  ExtPtrArray& m_found;
  LogBase& m_log;
  bool m_anyMissing = false;
};

bool findRecipients(const Email2& email, SystemCerts& certs, ExtPtrArray& found, LogBase& log) {
  log.logInfo("Searching for encryption certificates based on recipient email addresses.");
  RecipientSearch search(certs, found, log);
  search.lookUp(email);
  if (search.anyMissing()) {
    log.logError("Failed to find one or more certificates for encryption");
    return false;
  }
  if (found.getSize() == 0) {
    log.logError("No recipients for encryption.");
    return false;
  }
  return true;
}

const char* smimeTypeOf(const DataBuffer& der) noexcept {
  return Pkcs7Opener::kindOf(der.view()) == LayerKind::authEnveloped ? "authEnveloped-data"
                                                                     : "enveloped-data";
}

}  // namespace

Email2* Email2::createPkcs7Mime(int cipher, int keyBits, int keyTransport, int oaepHash, bool bySubjectKeyId,
                                const char* filename, SystemCerts& certs, LogBase& log) {
  return neverThrow<Email2*>(nullptr, [&]() -> Email2* {
    LogContextExitor context(log, "createPkcs7Mime");
    if (!isLive() || !m_common) return nullptr;
    StringBuffer text;
    const WipedAtEnd wiped(text);
    if (!assembleWhole(*this, /*omitPrefix=*/nullptr, text, log)) return nullptr;

    ExtPtrArray found;
    const bool areGiven = m_common->m_encryptCerts.getSize() != 0;
    if (areGiven)
      log.logInfo("Using explicit certificates for encryption.");
    else if (!findRecipients(*this, certs, found, log))
      return nullptr;

    const auto size = static_cast<long long>(text.getSize());
    _svMemoryDataSource source;
    source.takeStringBuffer(text);
    if (areGiven) log.logInfo("Using explicitly specified certificates...");
    DataBuffer der;
    if (!Pkcs7Builder::createPkcs7Enveloped(source, size, /*binary=*/true, cipher, keyBits,
                                            areGiven ? m_common->m_encryptCerts : found, keyTransport,
                                            oaepHash, bySubjectKeyId, certs, der, log)) {
      log.logError("Failed to encrypt message");
      return nullptr;
    }

    EmailPtr message = createBlobMessage(*this, filename, log);
    if (!message) return nullptr;
    message->setContentTypeUtf8("application/pkcs7-mime", "smime.p7m", /*protocol=*/"", /*micalg=*/"", 0,
                                nullptr, smimeTypeOf(der), nullptr, log);
    message->m_body.takeData(der);
    return message.release();
  });
}

}  // namespace mailtree
