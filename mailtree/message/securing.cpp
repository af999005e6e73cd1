// message/securing.cpp - signing, encrypting and decrypting a message.
#include "mailtree/message/securing.h"

#include <algorithm>
#include <ctime>
#include <iterator>
#include <unordered_set>

#include "mailtree/base/Log.h"
#include "mailtree/crypto/Cades.h"
#include "mailtree/crypto/Pkcs7Builder.h"
#include "mailtree/message/decryption.h"
#include "mailtree/message/internal.h"
#include "mailtree/message/internal_fields.h"
#include "mailtree/message/times.h"
#include "mailtree/message/tree_changes.h"
#include "mailtree/mime/LineLengths.h"

namespace mailtree {
namespace {

/// Secure digests and their micalg names (RFC 8551, 3.5.3.2).
struct DigestRow {
  std::string_view name;
  const char* micalg;
};
constexpr DigestRow kDigests[] = {{"sha256", "sha-256"}, {"sha384", "sha-384"}, {"sha512", "sha-512"}};

const DigestRow* digestOf(std::string_view name) {
  std::string plain(name);
  std::erase(plain, '-');
  const auto* const row = std::ranges::find_if(
      kDigests, [&](const DigestRow& digest) { return equalsNoCase(digest.name, plain); });
  return row == std::end(kDigests) ? nullptr : row;
}

struct CipherRow {
  std::string_view name;
  ContentCipher cipher;
  int keyBits;
};
constexpr CipherRow kCiphers[] = {
    {"aes-128-cbc", ContentCipher::aesCbc, 128}, {"aes-192-cbc", ContentCipher::aesCbc, 192},
    {"aes-256-cbc", ContentCipher::aesCbc, 256}, {"aes-128-gcm", ContentCipher::aesGcm, 128},
    {"aes-192-gcm", ContentCipher::aesGcm, 192}, {"aes-256-gcm", ContentCipher::aesGcm, 256},
    {"3des", ContentCipher::tripleDes, 0},
};

const CipherRow* cipherOf(std::string_view name) {
  const auto* const row = std::ranges::find_if(
      kCiphers, [name](const CipherRow& cipher) { return equalsNoCase(cipher.name, name); });
  return row == std::end(kCiphers) ? nullptr : row;
}

std::string nameOr(const std::string& name, const char* otherwise) { return name.empty() ? otherwise : name; }

// ---- the content ------------------------------------------------------------------------------------------

void removeInternalFields(Email2& node) {
  for (const char* const prefix : kInternalPrefixes) node.m_header.removeHeadersBeginningWith(prefix);
}

bool isText(const Email2& leaf) {
  const std::string_view type = leaf.m_contentType.m_type;
  return type.empty() || beginsWithNoCase(type, "text/");
}

bool hasLongLine(std::string_view body) {
  while (body.size() > kLongestLine) {
    const std::size_t end = body.find('\n');
    if (std::min(end, body.size()) > kLongestLine + 1) return true;
    if (end == std::string_view::npos) return false;
    body.remove_prefix(end + 1);
  }
  return false;
}

/// Enclosures and message parts must not be encoded (RFC 2046, 5.2.1).
bool needsEncoding(const Email2& node) {
  const std::string_view encoding = node.m_transferEncoding;
  if (node.getNumParts() > 0 || node.isMultipart() ||
      beginsWithNoCase(node.m_contentType.m_type.view(), "message/"))
    return false;
  if (equalsNoCase(encoding, "quoted-printable") || equalsNoCase(encoding, "base64")) return false;
  return equalsNoCase(encoding, "8bit") || equalsNoCase(encoding, "binary") || !node.m_body.is7bit(0) ||
         hasLongLine(node.m_body.view());
}

/// Encodes parts that are not 7bit with short lines: servers may change them on the way and break a detached
/// signature (RFC 8551, 3.1.3). Signed content is left alone.
void encodeForTransport(Email2& root) {
  LogNull log;
  walkUnsigned(root, [&log](Email2& node) {
    if (needsEncoding(node))
      node.setContentEncodingNonRecursive(isText(node) ? "quoted-printable" : "base64", log);
  });
}

/// What is written, as a copy to be signed or encrypted: with layers, without internal fields and the fields
/// of hidden recipients, who stay in the lists of the tree.
Result<EmailPtr> copyToSecure(MessageState& state) {
  Result<Email2*> written = state.written();
  if (!written) return std::move(written).error();
  LogNull log;
  EmailPtr copy((*written)->clone_v3(/*shareImageData=*/false, log));
  if (!copy) return noMemory();
  walkUnsigned(*copy, removeInternalFields);
  copy->removeHeaderField("Bcc");
  copy->removeHeaderField("Resent-Bcc");
  // Some mail clients ignore the layer that is added later unless this field is present.
  if (!copy->hasHeaderField("MIME-Version", log)) copy->setHeaderField("MIME-Version", "1.0", log);
  copy->clearEncryptCerts();
  return copy;
}

/// Reports the first error in the log, which names the cause; later errors are consequences.
Error failure(const LogMemory& log, std::string what) {
  const auto isError = [](const LogEntry& entry) { return entry.kind == LogEntry::Kind::Error; };
  const auto first = std::ranges::find_if(log.entries(), isError);
  if (first != log.entries().end()) what += ": " + first->text;
  return {ErrorCode::cryptography, std::move(what), {}};
}

/// Writes a tree whole; its bytes are empty when that failed.
DataBuffer bytesOf(Email2& root) {
  StringBuffer text;
  DataBuffer bytes;
  LogNull log;
  if (!assembleTree(root, {}, /*sink=*/nullptr, text, log) || !bytes.append(text)) bytes.clear();
  return bytes;
}

/// Makes a tree with one more layer what is written. What is read stays as it is: the content is the same.
Result<void> sealAs(MessageState& state, EmailPtr sealed, const Keys& keys) {
  DataBuffer bytes = bytesOf(*sealed);
  if (bytes.isEmpty()) return noMemory();
  Result<Message> read = loadMessage(bytes, &keys);
  if (!read) return std::move(read).error();
  MessageState& fresh = MessageState::of(*read);
  if (fresh.layers.empty()) return Error{ErrorCode::cryptography, "the new layer cannot be read", {}};
  fresh.layers.front().opened = true;
  fresh.layers.resize(1);
  std::erase_if(fresh.innerFields, [](const InnerField& field) { return field.layer > 0; });
  for (InnerField& field : state.innerFields) {
    ++field.layer;
    fresh.innerFields.push_back(std::move(field));
  }
  std::ranges::move(state.layers, std::back_inserter(fresh.layers));
  state.layers = std::move(fresh.layers);
  state.innerFields = std::move(fresh.innerFields);
  state.wasTrustGiven = state.wasTrustGiven || keys.hasTrust();
  state.changed();
  state.sealedBytes.takeData(bytes);
  state.sealed.common = RefPtr<_svEmailCommon>(sealed->m_common);
  state.sealed.hasUnixLines = false;
  state.sealed.root = std::move(sealed);
  state.cachedSecurity = securityOf(state);
  return {};
}

// ---- certificates -----------------------------------------------------------------------------------------

Certificate* findByFingerprint(const SystemCerts& certs, std::string_view fingerprint) {
  for (int i = 0; i < certs.getNumCertificates(); ++i)
    if (equalsNoCase(certs.getCertificate(i)->fingerprint(), fingerprint)) return certs.getCertificate(i);
  return nullptr;
}

/// Why nobody can sign for an address.
std::string missingSigner(const SystemCerts& certs, const std::string& from) {
  std::string problem;
  for (int i = 0; i < certs.getNumCertificates() && problem.empty(); ++i) {
    const Certificate& certificate = *certs.getCertificate(i);
    if (!certificate.isForAddress(from) || !certificate.hasPrivateKey()) continue;
    problem = invalidityOf(certificate);
    if (problem.empty())
      problem = certificate.isFitFor(CertificateUse::sign) ? "is revoked" : "is not valid for signing mail";
  }
  return problem.empty() ? "no signing certificate with a private key for " + from
                         : "the certificate of " + from + " " + problem;
}

Result<Certificate*> signerFor(const Message& message, SystemCerts& certs, const std::string& fingerprint) {
  if (!fingerprint.empty()) {
    Certificate* const given = findByFingerprint(certs, fingerprint);
    if (given && given->hasPrivateKey()) return given;
    return Error{
        ErrorCode::noKey, "no certificate with a private key and the fingerprint " + fingerprint, {}};
  }
  const std::string from = message.from().address;
  if (from.empty())
    return Error{ErrorCode::noRecipient, "missing From address to find a certificate by", "From"};
  LogNull log;
  if (Certificate* const found = certs.findByEmailAddr(from.c_str(), /*forEncryption=*/false, log))
    return found;
  return Error{ErrorCode::noKey, missingSigner(certs, from), from};
}

/// A certificate that was asked for, though the message may have other recipients.
Result<Certificate*> readerBy(const SystemCerts& certs, const std::string& fingerprint) {
  Certificate* const given = findByFingerprint(certs, fingerprint);
  if (!given) return Error{ErrorCode::noKey, "no certificate with the fingerprint " + fingerprint, {}};
  std::string problem = invalidityOf(*given);
  if (!given->isFitFor(CertificateUse::encrypt)) problem = "is not valid for encryption";
  if (problem.empty()) return given;
  return Error{ErrorCode::noKey, "the certificate of " + infoOf(*given).subject + " " + problem, {}};
}

Result<std::vector<Certificate*>> readersFor(const Email2& email, SystemCerts& certs,
                                             const EncryptOptions& options) {
  std::vector<Certificate*> readers;
  for (const std::string& fingerprint : options.certificates) {
    Result<Certificate*> reader = readerBy(certs, fingerprint);
    if (!reader) return std::move(reader).error();
    readers.push_back(*reader);
  }
  std::vector<Recipient> recipients;
  if (options.certificates.empty()) recipients = recipientsOf(email);
  for (const std::string& address : options.alsoFor) recipients.push_back({"alsoFor", address});
  if (recipients.empty() && readers.empty())
    return Error{ErrorCode::noRecipient, "no recipients to encrypt to", {}};
  std::string missing;
  for (const Recipient& recipient : withoutCertificate(recipients, certs))
    missing += (missing.empty() ? "" : ", ") + recipient.address;
  if (!missing.empty()) return Error{ErrorCode::noKey, "no valid certificate for " + missing, missing};
  LogNull log;
  for (const Recipient& recipient : recipients)
    readers.push_back(certs.findByEmailAddr(recipient.address.c_str(), /*forEncryption=*/true, log));
  return readers;
}

}  // namespace

std::string digestProblem(std::string_view name) {
  if (digestOf(name)) return {};
  return "'" + std::string(name) + "': must be sha256, sha384 or sha512";
}

std::string cipherProblem(std::string_view name) {
  if (cipherOf(name)) return {};
  std::string text = "'" + std::string(name) + "': must be one of";
  for (const CipherRow& row : kCiphers) text.append(" ").append(row.name);
  return text;
}

std::string invalidityOf(const Certificate& certificate) {
  const std::int64_t now = std::time(nullptr);
  const CertificateInfo info = infoOf(certificate);
  if (now > certificate.notAfter()) return "has expired: it was valid until " + timeText(info.validUntil);
  if (now < certificate.notBefore()) return "is not valid before " + timeText(info.validFrom);
  return {};
}

std::vector<Recipient> recipientsOf(const Email2& email) {
  if (auto resent = resentRecipientsOf(email)) return *std::move(resent);
  const struct {
    const char* field;
    const ExtPtrArray& list;
  } lists[] = {{"To", email.m_toAddrs}, {"Cc", email.m_ccAddrs}, {"Bcc", email.m_bccAddrs}};
  std::vector<Recipient> recipients;
  for (const auto& row : lists)
    for (int i = 0; i < row.list.getSize(); ++i) {
      const std::string_view address = row.list.at<_svEmailAddress>(i)->m_address.view();
      if (!address.empty()) recipients.push_back({row.field, std::string(address)});
    }
  return recipients;
}

std::vector<Recipient> withoutCertificate(const std::vector<Recipient>& recipients, SystemCerts& certs) {
  std::vector<Recipient> missing;
  std::unordered_set<std::string> known;
  LogNull log;
  for (const Recipient& recipient : recipients)
    if (!certs.findByEmailAddr(recipient.address.c_str(), /*forEncryption=*/true, log) &&
        known.insert(lowerCase(recipient.address)).second)
      missing.push_back(recipient);
  return missing;
}

Result<void> Message::sign(const Keys& keys, const SignOptions& options) {
  if (std::string problem = digestProblem(options.digest); !problem.empty())
    return Error{ErrorCode::badValue, "not a digest to sign with: " + problem, {}};
  SystemCerts& certs = keys.systemCerts();
  Result<Certificate*> signer = signerFor(*this, certs, options.certificate);
  if (!signer) return std::move(signer).error();
  Result<EmailPtr> copy = copyToSecure(*m_state);
  if (!copy) return std::move(copy).error();
  Email2& content = **copy;
  if (!options.opaque) encodeForTransport(content);
  // Sets only the member: in the field, an existing signature must keep naming its own digest.
  content.m_contentType.m_micalg.setString(std::string_view(digestOf(options.digest)->micalg));
  content.setSigningCert(*signer);
  _clsCades cades;
  cades.m_rsaPss = options.pss;
  const auto operation = options.opaque ? &Email2::createSignedData : &Email2::createMultipartSigned;
  const std::string name = nameOr(options.fileName, options.opaque ? "smime.p7m" : "smime.p7s");
  LogMemory log;
  EmailPtr sealed((content.*operation)(options.time, options.certificateId, options.chain, cades,
                                       name.c_str(), certs, log));
  if (!sealed) return failure(log, "could not be signed");
  return sealAs(*m_state, std::move(sealed), keys);
}

Result<void> Message::encrypt(const Keys& keys, const EncryptOptions& options) {
  const CipherRow* const cipher = cipherOf(options.cipher);
  if (!cipher)
    return Error{ErrorCode::badValue, "not a cipher to encrypt with: " + cipherProblem(options.cipher), {}};
  SystemCerts& certs = keys.systemCerts();
  Result<std::vector<Certificate*>> readers = readersFor(m_state->root(), certs, options);
  if (!readers) return std::move(readers).error();
  Result<EmailPtr> copy = copyToSecure(*m_state);
  if (!copy) return std::move(copy).error();
  std::unordered_set<const Certificate*> added;
  for (Certificate* const reader : *readers)
    if (added.insert(reader).second) (*copy)->addEncryptCert(reader);
  const auto transport = options.oaep ? KeyTransport::oaep : KeyTransport::pkcs1;
  LogMemory log;
  EmailPtr sealed((*copy)->createPkcs7Mime(
      static_cast<int>(cipher->cipher), cipher->keyBits, static_cast<int>(transport), /*oaepHash=*/0,
      /*bySubjectKeyId=*/false, nameOr(options.fileName, "smime.p7m").c_str(), certs, log));
  if (!sealed) return failure(log, "could not be encrypted");
  sealed->clearEncryptCerts();
  Result<void> done = sealAs(*m_state, std::move(sealed), keys);
  if (done) m_state->answersEncrypted = false;
  return done;
}

std::vector<std::string> Message::recipientsWithoutCertificate(const Keys& keys) const {
  std::vector<std::string> addresses;
  for (Recipient& recipient : withoutCertificate(recipientsOf(m_state->root()), keys.systemCerts()))
    addresses.push_back(std::move(recipient.address));
  return addresses;
}

Result<void> Message::decrypt(const Keys& keys) {
  Result<Email2*> written = m_state->written();
  if (!written) return std::move(written).error();
  const DataBuffer bytes = bytesOf(**written);
  if (bytes.isEmpty()) return noMemory();
  const DecryptedMessage decrypted = decryptMessage(bytes.view(), keys.systemCerts());
  if (decrypted.bytes.empty())
    return Error{ErrorCode::encrypted, "nothing could be decrypted: " + decrypted.problem, {}};
  DataBuffer content;
  content.borrowData(decrypted.bytes.data(), decrypted.bytes.size());
  Result<Message> opened = loadMessage(content, &keys);
  if (!opened) return std::move(opened).error();
  MessageState& fresh = MessageState::of(*opened);
  fresh.wasEncrypted = true;
  fresh.answersEncrypted = m_state->answersEncrypted;
  // Hidden recipients may be in no field of what was written.
  if (const std::vector<Address> hidden = bcc(); opened->bcc().empty() && !hidden.empty())
    if (Result<void> kept = opened->setBcc(hidden); !kept) return kept;
  *m_state = std::move(fresh);
  return {};
}

}  // namespace mailtree
