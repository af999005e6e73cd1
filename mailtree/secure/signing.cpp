// secure/signing.cpp - signs a message over the exact bytes that are written.

#include <algorithm>
#include <limits>
#include <string_view>
#include <tuple>
#include <utility>

#include "mailtree/base/Platform.h"
#include "mailtree/crypto/Pkcs7Builder.h"
#include "mailtree/email/internal.h"
#include "mailtree/email/loading/settings_restorer.h"
#include "mailtree/secure/internal.h"

namespace mailtree {
namespace {

constexpr const char* kBounceAddress = "SVX-Bounce-Address";
constexpr std::string_view kNotOnOuterNode[] = {"Disposition-Notification-To", "Content-Transfer-Encoding",
                                                "Content-Disposition"};
/// Default fields of a new message that mean nothing in the part with the signature.
constexpr const char* kNotOnSignature[] = {"MIME-Version",
                                           "date",
                                           "message-id",
                                           "x-mailer",
                                           "x-priority",
                                           "content-type",
                                           "content-transfer-encoding"};

/// How to make a signature.
struct SignatureOptions {
  bool detached;
  bool signingTime;
  bool signingCertificate;
  bool includeChain;
  _clsCades& cades;
};

/// Log texts, which differ between the two forms of signature.
struct SearchTexts {
  const char* given;
  const char* searching;
  const char* failed;
};
constexpr SearchTexts kDetachedTexts = {"Using pre-specified certificate.",
                                        "Searching for certificate based on email address..",
                                        "Failed to find certificate for detached digital signature"};
constexpr SearchTexts kOpaqueTexts = {nullptr, nullptr, "Failed to find certificate for digital signature"};

StringBuffer storedMicalg(Email2& email) {
  StringBuffer micalg;
  email.getMicalg(micalg);
  return micalg;
}

const char* labelOf(const StringBuffer& micalg) noexcept {
  return micalg.isEmpty() ? "sha1" : micalg.getString();
}

/// The certificate set beforehand, else the one of the sender, which later signings reuse. Null, with the
/// reason logged, when there is none.
Certificate* chooseSigner(Email2& email, const SearchTexts& texts, SystemCerts& certs, LogBase& log) {
  if (Certificate* const given = email.getSigningCert(log)) {
    if (texts.given) log.logInfo(texts.given);
    return given;
  }
  if (texts.searching) log.logInfo(texts.searching);
  StringBuffer address;
  email.getFromAddrUtf8(address);
  Certificate* const found = certs.findByEmailAddr(address.getString(), /*forEncryption=*/false, log);
  if (found) {
    email.setSigningCert(found);
    return found;
  }
  log.logError(texts.failed);
  log.LogDataSb("email_address", address);
  return nullptr;
}

/// The signature over a text, with the digest algorithm set in the email.
bool makeSignature(Email2& email, const StringBuffer& text, Certificate& signer,
                   const SignatureOptions& options, SystemCerts& certs, DataBuffer& der, LogBase& log) {
  const StringBuffer micalg = storedMicalg(email);
  log.LogDataSb("micalg", micalg);
  ExtPtrArray signers;
  if (text.getSize() > std::numeric_limits<unsigned>::max()) return false;
  if (!CertificateHolder::appendNewCertHolder(&signer, signers, log)) return false;
  _svMemoryDataSource source;
  source.initializeMemSource(text.getString(), static_cast<unsigned>(text.getSize()));
  DataBuffer unused;
  return Pkcs7Builder::createPkcs7Signature(
      source, unused, options.detached, options.includeChain, _svHash::hashId(micalg.getString()),
      options.signingTime, options.signingCertificate, options.cades, signers, certs, der, log);
}

/// Chooses the certificate and signs; false with the reason logged.
bool sign(Email2& email, const StringBuffer& text, const SearchTexts& texts, const SignatureOptions& options,
          SystemCerts& certs, DataBuffer& der, LogBase& log) {
  Certificate* const signer = chooseSigner(email, texts, certs, log);
  if (!signer) return false;
  if (makeSignature(email, text, *signer, options, certs, der, log)) return true;
  log.logError("Failed to create digitally signed email.");
  return false;
}

bool hasAttachments(Email2& email, LogBase& log) {
  ExtPtrArray borrowed;
  email.attachmentIterate2(email.isMultipartMixedForAttachmentPurposes(), borrowed, /*target=*/-1, log);
  const bool any = borrowed.getSize() > 0;
  borrowed.removeAll();
  return any;
}

/// Copying the From field set the bounce address from it; bounces must go where those of the source go.
void copyBounceAddress(const Email2& source, Email2& outer, LogBase& log) {
  StringBuffer address;
  if (!source.getHeaderFieldUtf8(kBounceAddress, address, log)) return;
  outer.m_header.removeMimeField(kBounceAddress, /*all=*/true);
  outer.m_header.addMimeField(kBounceAddress, address.getString(), /*asGiven=*/false, log);
}

bool copyAddresses(const ExtPtrArray& from, ExtPtrArray& to) {
  for (int i = 0; i < from.getSize(); ++i) {
    const auto* const address = from.at<_svEmailAddress>(i);
    Owned<_svEmailAddress> copy(address ? _svEmailAddress::createNewObject() : nullptr);
    if (!copy) continue;
    copy->copyEmailAddress(*address);
    if (!to.appendObject(copy.get())) return false;
    std::ignore = copy.release();  // now owned by the list
  }
  return true;
}

/// Copies the recipients as records, for sending and encrypting. The fields were copied unchanged.
bool copyRecipientRecords(const Email2& source, Email2& outer) {
  return copyAddresses(source.m_toAddrs, outer.m_toAddrs) &&
         copyAddresses(source.m_ccAddrs, outer.m_ccAddrs) &&
         copyAddresses(source.m_bccAddrs, outer.m_bccAddrs);
}

EmailPtr createOuterNode(Email2& source, LogBase& log) {
  EmailPtr outer(Email2::createNewObject0(*source.m_common));
  if (!outer) return outer;
  outer->copyHeadersForMultipartSigned(source.m_header, log);
  copyBounceAddress(source, *outer, log);
  if (!copyRecipientRecords(source, *outer)) return EmailPtr();
  StringBuffer boundary;
  Psdk::generateBoundary(boundary, log);
  outer->setContentTypeUtf8("multipart/signed", nullptr, "application/pkcs7-signature",
                            labelOf(storedMicalg(source)), source.emailCodePage(), boundary.getString(),
                            nullptr, nullptr, log);
  return outer;
}

EmailPtr createSignaturePart(_svEmailCommon& common, const char* filename, DataBuffer& der, LogBase& log) {
  EmailPtr part(Email2::createNewObject(common));
  if (!part) return part;
  for (const char* field : kNotOnSignature) part->removeHeaderField(field);
  setTransferEncoding(*part, "base64", log);
  part->setContentTypeUtf8("application/pkcs7-signature", "smime.p7s", nullptr, nullptr, 0, nullptr, nullptr,
                           nullptr, log);
  part->setContentDispositionUtf8("attachment", filename, log);
  part->m_body.takeData(der);
  return part;
}

bool appendPart(Email2& parent, EmailPtr part) {
  if (!part || !parent.m_subParts.appendObject(part.get())) return false;
  std::ignore = part.release();  // now owned by the parent
  return true;
}

}  // namespace

Email2* Email2::createMultipartSigned(bool signingTime, bool signingCertificate, bool includeChain,
                                      _clsCades& cades, const char* filename, SystemCerts& certs,
                                      LogBase& log) {
  return neverThrow<Email2*>(nullptr, [&]() -> Email2* {
    LogContextExitor context(log, "createMultipartSigned");
    if (!isLive() || !m_common) return nullptr;
    const SettingsRestorer restorer(*m_common);
    const bool hasFiles = hasAttachments(*this, log);
    StringBuffer sender;
    getFromAddrUtf8(sender);
    log.LogDataSb("fromEmailAddress", sender);

    StringBuffer text;
    if (!assembleWhole(*this, "SVX-", text, log)) return nullptr;
    EmailPtr content = loadWrittenContent(*m_common, text, log);
    if (!content) return nullptr;
    EmailPtr outer = createOuterNode(*this, log);
    if (!outer) return nullptr;

    DataBuffer der;
    const SignatureOptions options{/*detached=*/true, signingTime, signingCertificate, includeChain, cades};
    if (!sign(*this, text, kDetachedTexts, options, certs, der, log)) return nullptr;
    EmailPtr signature = createSignaturePart(*m_common, filename, der, log);
    storeReceivedContent(*content, std::move(text));
    if (!appendPart(*outer, std::move(content)) || !appendPart(*outer, std::move(signature))) return nullptr;
    if (hasFiles) outer->setHeaderField_a("X-MS-Has-Attach", "yes", /*asGiven=*/false, log);
    return outer.release();
  });
}

Email2* Email2::createSignedData(bool signingTime, bool signingCertificate, bool includeChain,
                                 _clsCades& cades, const char* filename, SystemCerts& certs, LogBase& log) {
  return neverThrow<Email2*>(nullptr, [&]() -> Email2* {
    LogContextExitor context(log, "createSignedData");
    if (!isLive() || !m_common) return nullptr;
    const SettingsRestorer restorer(*m_common);
    StringBuffer text;
    if (!assembleWhole(*this, /*omitPrefix=*/nullptr, text, log)) return nullptr;
    DataBuffer der;
    const SignatureOptions options{/*detached=*/false, signingTime, signingCertificate, includeChain, cades};
    if (!sign(*this, text, kOpaqueTexts, options, certs, der, log)) return nullptr;

    EmailPtr message = createBlobMessage(*this, filename, log);
    if (!message) return nullptr;
    const StringBuffer micalg = storedMicalg(*this);
    if (!micalg.isEmpty()) message->setMicalg(micalg.getString(), log);
    message->setContentTypeUtf8("application/pkcs7-mime", "smime.p7m", nullptr, labelOf(micalg), 0, nullptr,
                                "signed-data", nullptr, log);
    message->m_body.takeData(der);
    return message.release();
  });
}

bool Email2::copyHeadersForMultipartSigned(MimeHeader& source, LogBase& log) {
  if (!isLive()) return false;
  const MimeHeader fields(source);  // a copy: the source may be this node's own header
  StringBuffer name, value;
  for (int i = 0; i < fields.getNumFields(); ++i) {
    const auto isField = [&](std::string_view other) { return equalsNoCase(fields.fieldName(i), other); };
    if (std::ranges::any_of(kNotOnOuterNode, isField)) continue;
    fields.getFieldNameUtf8(i, name, log);
    fields.getFieldValueUtf8(i, value, log);
    addHeaderField2_a(name.getString(), value.getString(), /*asGiven=*/false, log);
  }
  return true;
}

void Email2::setMicalg(const char* micalg, LogBase& log) {
  if (!isLive()) return;
  const StringBuffer given = copyOf(micalg);
  m_contentType.m_micalg.setString(given);
  // Deliberate: blanks around the protocol are removed, those around the digest name stay.
  m_contentType.m_protocol.trim2();
  refreshContentTypeHeader(log);
}

void Email2::getMicalg(StringBuffer& out) {
  if (isLive()) out.setString(m_contentType.m_micalg);
}

}  // namespace mailtree
