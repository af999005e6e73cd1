#include "mailtree/crypto/Certificate.h"

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <tuple>

#include "mailtree/base/Log.h"
#include "mailtree/crypto/CertificateReader.h"
#include "mailtree/crypto/Digest.h"
#include "mailtree/crypto/internal.h"

namespace mailtree {
namespace {

using X509Handle = Handle<X509, X509_free>;

/// What keys of an algorithm can be used for, and the key usage required for encryption to them.
struct KeyKind {
  std::string_view algorithm;
  bool signs;
  std::uint32_t encryptUsage;  ///< 0: nothing can be encrypted to it.
};
constexpr KeyKind kKeyKinds[] = {
    {"RSA", true, KU_KEY_ENCIPHERMENT},
    {"RSA-PSS", true, 0},
    {"EC", true, KU_KEY_AGREEMENT},
    {"ED25519", true, 0},
    {"ED448", true, 0},
    {"DSA", true, 0},
    {"X25519", false, KU_KEY_AGREEMENT},
    {"X448", false, KU_KEY_AGREEMENT},
    {"DH", false, KU_KEY_AGREEMENT},
    {"DHX", false, KU_KEY_AGREEMENT},
};

X509Handle parse(std::string_view der) {
  const QuietErrors quiet;
  const auto* bytes = reinterpret_cast<const unsigned char*>(der.data());
  const auto size = std::min<std::size_t>(der.size(), std::numeric_limits<long>::max());
  X509* x509 = X509_new_ex(contextAs<OSSL_LIB_CTX>(), nullptr);
  if (!x509 || !bytes) return X509Handle(nullptr, {});
  if (!d2i_X509(&x509, &bytes, static_cast<long>(size))) x509 = nullptr;  // d2i_X509 has freed it
  return X509Handle(x509);
}

bool encode(const X509* x509, DataBuffer& der) {
  const int size = i2d_X509(x509, nullptr);
  if (size <= 0) return false;
  unsigned char* bytes = der.appendUninitialized(static_cast<std::size_t>(size));
  return bytes && i2d_X509(x509, &bytes) == size;
}

/// Whether an address has no control characters: one with a NUL or a line break is an attack, not an
/// address.
bool isPlainAddress(std::string_view address) {
  return !address.empty() && std::none_of(address.begin(), address.end(), isControlAscii);
}

/// The most addresses read from one certificate. Real ones have a handful.
constexpr std::size_t kMaxAddresses = 100;

void addAddress(std::vector<std::string>& addresses, const ASN1_STRING* text) {
  if (!text || addresses.size() == kMaxAddresses) return;
  unsigned char* utf8 = nullptr;
  const int size = ASN1_STRING_to_UTF8(&utf8, text);
  if (size < 0) return;
  const auto free = [](unsigned char* bytes) { OPENSSL_free(bytes); };
  const std::unique_ptr<unsigned char, decltype(free)> owner(utf8, free);
  const std::string_view address(reinterpret_cast<const char*>(utf8), static_cast<std::size_t>(size));
  if (isPlainAddress(address) && std::ranges::find(addresses, address) == addresses.end())
    addresses.emplace_back(address);
}

/// An rfc822Name, or the SmtpUTF8Mailbox of RFC 9598; null for any other name.
const ASN1_STRING* mailboxOf(const GENERAL_NAME& name) {
  if (name.type == GEN_EMAIL) return name.d.rfc822Name;
  if (name.type != GEN_OTHERNAME) return nullptr;
  const OTHERNAME& other = *name.d.otherName;
  const bool isMailbox = OBJ_obj2nid(other.type_id) == NID_id_on_SmtpUTF8Mailbox && other.value &&
                         other.value->type == V_ASN1_UTF8STRING;
  return isMailbox ? other.value->value.utf8string : nullptr;
}

std::vector<std::string> addressesOf(const X509* x509) {
  std::vector<std::string> addresses;
  const Handle<GENERAL_NAMES, GENERAL_NAMES_free> names(
      static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(x509, NID_subject_alt_name, nullptr, nullptr)));
  for (int i = 0; names && i < sk_GENERAL_NAME_num(names.get()); ++i)
    addAddress(addresses, mailboxOf(*sk_GENERAL_NAME_value(names.get(), i)));
  const X509_NAME* const subject = X509_get_subject_name(x509);
  for (int i = -1; (i = X509_NAME_get_index_by_NID(subject, NID_pkcs9_emailAddress, i)) >= 0;)
    addAddress(addresses, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, i)));
  return addresses;
}

/// Unix seconds; `unreadable` for an invalid time.
std::int64_t secondsOf(const ASN1_TIME* time, std::int64_t unreadable) {
  std::tm parts{};
  if (!time || ASN1_TIME_to_tm(time, &parts) != 1) return unreadable;
  namespace chrono = std::chrono;
  const chrono::sys_days day = chrono::year(parts.tm_year + 1900) / (parts.tm_mon + 1) / parts.tm_mday;
  const auto at =
      day + chrono::hours(parts.tm_hour) + chrono::minutes(parts.tm_min) + chrono::seconds(parts.tm_sec);
  return std::int64_t{at.time_since_epoch().count()};
}

std::string serialOf(const X509* x509) {
  const Handle<BIGNUM, BN_free> number(ASN1_INTEGER_to_BN(X509_get0_serialNumber(x509), nullptr));
  char* const hex = number ? BN_bn2hex(number.get()) : nullptr;
  const auto free = [](char* text) { OPENSSL_free(text); };
  const std::unique_ptr<char, decltype(free)> owner(hex, free);
  return hex ? hex : "";
}

std::string keyAlgorithmOf(const X509* x509, const EVP_PKEY* key) {
  if (const char* name = key ? EVP_PKEY_get0_type_name(key) : nullptr) return name;
  ASN1_OBJECT* algorithm = nullptr;
  X509_PUBKEY_get0_param(&algorithm, nullptr, nullptr, nullptr, X509_get_X509_PUBKEY(x509));
  return OBJ_nid2sn(OBJ_obj2nid(algorithm));
}

bool writeName(const X509_NAME* name, XString& out) {
  out.weakClear();
  if (X509_NAME_entry_count(name) == 0) return false;
  const QuietErrors quiet;
  const Handle<BIO, BIO_free> text(BIO_new(BIO_s_mem()));
  constexpr unsigned long kUtf8Line = XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
  if (!text || X509_NAME_print_ex(text.get(), name, 0, kUtf8Line) < 0) return false;
  char* bytes = nullptr;
  const long size = BIO_get_mem_data(text.get(), &bytes);
  return size > 0 && out.setFromUtf8N(bytes, static_cast<std::size_t>(size));
}

struct Mailbox {
  std::string_view local, domain;
};
Mailbox splitAddress(std::string_view address) {
  const std::size_t at = address.rfind('@');
  if (at == std::string_view::npos) return {address, {}};
  return {address.substr(0, at), address.substr(at + 1)};
}

}  // namespace

// ---- construction
// ---------------------------------------------------------------------------------------------

void ReleaseKey::operator()(NativeKey* key) const noexcept {
  EVP_PKEY_free(reinterpret_cast<EVP_PKEY*>(key));
}

Owned<Certificate> CertificateReader::read(std::string_view der) {
  X509Handle x509 = parse(der);
  return x509 ? make(reinterpret_cast<NativeCertificate*>(x509.get()), nullptr) : nullptr;
}

Owned<Certificate> CertificateReader::withKey(const Certificate& certificate, NativeKey& key) {
  const QuietErrors quiet;
  const auto* const own = reinterpret_cast<EVP_PKEY*>(&key);
  const EVP_PKEY* const published = X509_get0_pubkey(nativeAs<X509>(certificate));
  if (!published || EVP_PKEY_eq(published, own) != 1) return nullptr;
  return make(certificate.native(), &key);
}

/// Adds references to both.
Owned<Certificate> CertificateReader::make(NativeCertificate* native, NativeKey* key) {
  const QuietErrors quiet;
  auto* const x509 = reinterpret_cast<X509*>(native);
  Owned<Certificate> made(new Certificate);
  if (!encode(x509, made->m_der)) return nullptr;
  made->m_fingerprint = sha256Hex(made->m_der.view());
  if (made->m_fingerprint.empty() || X509_up_ref(x509) != 1) return nullptr;
  made->m_native = native;
  if (key && EVP_PKEY_up_ref(reinterpret_cast<EVP_PKEY*>(key)) == 1) made->m_key = key;

  const EVP_PKEY* const published = X509_get0_pubkey(x509);
  made->m_serialNumber = serialOf(x509);
  made->m_emailAddresses = addressesOf(x509);
  made->m_keyAlgorithm = keyAlgorithmOf(x509, published);
  made->m_keyBits = published ? EVP_PKEY_get_bits(published) : 0;
  // A certificate with an unreadable time is never valid.
  made->m_notBefore = secondsOf(X509_get0_notBefore(x509), std::numeric_limits<std::int64_t>::max());
  made->m_notAfter = secondsOf(X509_get0_notAfter(x509), std::numeric_limits<std::int64_t>::min());
  made->m_isSelfIssued = X509_NAME_cmp(X509_get_subject_name(x509), X509_get_issuer_name(x509)) == 0;
  return made;
}

Certificate* Certificate::createFromDer(std::string_view der, LogBase& log) {
  return neverThrow<Certificate*>(nullptr, [&] {
    Owned<Certificate> made = CertificateReader::read(der);
    if (!made) log.logError("Not a certificate");
    return made.release();
  });
}

Certificate::~Certificate() {
  X509_free(reinterpret_cast<X509*>(m_native));
  ReleaseKey()(m_key);
}

// ---- reading
// --------------------------------------------------------------------------------------------------

bool Certificate::getSubjectDN(XString& out, LogBase&) const {
  return neverThrow(false, [&] { return writeName(X509_get_subject_name(nativeAs<X509>(*this)), out); });
}

bool Certificate::getIssuerDN(XString& out, LogBase&) const {
  return neverThrow(false, [&] { return writeName(X509_get_issuer_name(nativeAs<X509>(*this)), out); });
}

bool Certificate::isForAddress(std::string_view address) const noexcept {
  const Mailbox wanted = splitAddress(address);
  return std::any_of(m_emailAddresses.begin(), m_emailAddresses.end(), [&](const std::string& own) {
    const Mailbox mailbox = splitAddress(own);
    return mailbox.local == wanted.local && equalsNoCase(mailbox.domain, wanted.domain);
  });
}

bool Certificate::isValidAt(std::int64_t unixSeconds) const noexcept {
  return m_notBefore <= unixSeconds && unixSeconds <= m_notAfter;
}

bool Certificate::isFitFor(CertificateUse use) const noexcept {
  const QuietErrors quiet;
  const auto* const kind =
      std::ranges::find(kKeyKinds, std::string_view(m_keyAlgorithm), &KeyKind::algorithm);
  if (kind == std::end(kKeyKinds)) return false;
  auto* const x509 = nativeAs<X509>(*this);
  // OpenSSL reports all bits set when the extension is absent.
  if ((X509_get_extended_key_usage(x509) & (XKU_SMIME | XKU_ANYEKU)) == 0) return false;
  const std::uint32_t usage = X509_get_key_usage(x509);
  if (use == CertificateUse::encrypt) return (usage & kind->encryptUsage) != 0;
  return kind->signs && (usage & (KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION)) != 0;
}

// ---- lists of certificates --------------------------------------------------------------------------------

CertificateHolder* CertificateHolder::createFromCert(Certificate* certificate, LogBase& log) {
  if (!certificate) {
    log.logError("No certificate");
    return nullptr;
  }
  return neverThrow<CertificateHolder*>(nullptr, [&] { return new CertificateHolder(*certificate); });
}

bool CertificateHolder::appendNewCertHolder(Certificate* certificate, ExtPtrArray& holders, LogBase& log) {
  Owned<CertificateHolder> holder(createFromCert(certificate, log));
  if (!holder || !holders.appendObject(holder.get())) return false;
  std::ignore = holder.release();
  return true;
}

Certificate* CertificateHolder::getNthCert(const ExtPtrArray& holders, int index) noexcept {
  const auto* holder = holders.at<CertificateHolder>(index);
  return holder ? holder->getCert() : nullptr;
}

Certificate* CertificateHolder::getNthCert(const ExtPtrArray& holders, int index, LogBase& log) noexcept {
  Certificate* const certificate = getNthCert(holders, index);
  if (!certificate && log.m_verboseLogging) log.LogDataLong("noCertificateAt", index);
  return certificate;
}

bool CertificateHolder::copyCertHolders(const ExtPtrArray& from, ExtPtrArray& to) {
  return neverThrow(false, [&] {
    for (int i = 0; i < from.getSize(); ++i) {
      Certificate* certificate = getNthCert(from, i);
      if (!certificate) continue;
      Owned<CertificateHolder> copy(new CertificateHolder(*certificate));
      if (!to.appendObject(copy.get())) return false;
      std::ignore = copy.release();
    }
    return true;
  });
}

}  // namespace mailtree
