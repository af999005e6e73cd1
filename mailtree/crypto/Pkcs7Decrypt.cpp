// Opens an envelope: finds the key, then decrypts the ciphertext in place in one pass.
#include <openssl/cms.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <algorithm>
#include <string>
#include <vector>

#include "mailtree/base/Ascii.h"
#include "mailtree/crypto/Pkcs7Internal.h"
#include "mailtree/crypto/internal.h"

namespace mailtree {
namespace {

using Cms = Handle<CMS_ContentInfo, CMS_ContentInfo_free>;
using Bio = Handle<BIO, BIO_free_all>;

/// Deliberate: one message for a wrong key, wrong padding and a changed content. An attacker who could
/// distinguish them could decrypt a message by repeated queries (RFC 3218).
constexpr std::string_view kFailure = "could not be decrypted";

/// RFC 5084: a shorter tag can be guessed.
constexpr std::size_t kMinTagSize = 12;
constexpr std::size_t kMaxTagSize = 16;

/// Plaintext that must not be released before it is verified.
class PrivateBuffer {
 public:
  PrivateBuffer() = default;
  PrivateBuffer(const PrivateBuffer&) = delete;
  PrivateBuffer& operator=(const PrivateBuffer&) = delete;
  ~PrivateBuffer() {
    if (m_begin) OPENSSL_cleanse(m_begin, m_size);
  }
  unsigned char* reserve(std::size_t size) {
    m_begin = m_bytes.appendUninitialized(size);
    m_size = m_begin ? size : 0;
    return m_begin;
  }
  void release(std::size_t used, DataBuffer& out) {
    OPENSSL_cleanse(m_begin + used, m_size - used);
    m_bytes.shorten(m_size - used);
    m_begin = nullptr;
    out.takeData(m_bytes);
  }

 private:
  DataBuffer m_bytes;
  unsigned char* m_begin = nullptr;
  std::size_t m_size = 0;
};

/// A key that may open the layer, and the recipient to use it for.
struct KeyTrial {
  CMS_RecipientInfo* recipient;
  CMS_RecipientEncryptedKey* agreedKey;  ///< Null for key transport.
  Certificate* certificate;
};

std::string transportOf(CMS_RecipientInfo* recipient) {
  if (CMS_RecipientInfo_type(recipient) == CMS_RECIPINFO_AGREE) return "ecdh";
  if (CMS_RecipientInfo_type(recipient) != CMS_RECIPINFO_TRANS) return "other";
  X509_ALGOR* algorithm = nullptr;
  if (CMS_RecipientInfo_ktri_get0_algs(recipient, nullptr, nullptr, &algorithm) != 1) return "rsa";
  return nidOf(algorithm) == NID_rsaesOaep ? "rsa-oaep" : "rsa";
}

std::vector<Certificate*> certificatesWithKey(const SystemCerts& certs) {
  std::vector<Certificate*> found;
  for (int i = 0; i < certs.getNumCertificates(); ++i)
    if (certs.getCertificate(i)->hasPrivateKey()) found.push_back(certs.getCertificate(i));
  return found;
}

/// Collects the recipients that a private key in the store may open, in the order of the message.
class TrialFinder {
 public:
  TrialFinder(std::vector<Certificate*> keys, int most)
      : m_keys(std::move(keys)), m_max(static_cast<std::size_t>(most)) {}

  /// Whether there were more than the limit.
  bool hasMore() const noexcept { return m_hasMore; }

  std::vector<KeyTrial> find(STACK_OF(CMS_RecipientInfo) * recipients) {
    const int count = recipients ? sk_CMS_RecipientInfo_num(recipients) : 0;
    for (int i = 0; i < count && !isFull(); ++i) {
      CMS_RecipientInfo* const recipient = sk_CMS_RecipientInfo_value(recipients, i);
      switch (CMS_RecipientInfo_type(recipient)) {
        case CMS_RECIPINFO_TRANS: findTransported(recipient); break;
        case CMS_RECIPINFO_AGREE: findAgreed(recipient); break;
        default: break;
      }
    }
    return std::move(m_trials);
  }

 private:
  bool isFull() const noexcept { return m_looked >= kMaxRecipients || m_hasMore; }

  void add(const KeyTrial& trial) {
    m_hasMore = m_trials.size() >= m_max;
    if (!m_hasMore) m_trials.push_back(trial);
  }

  void findTransported(CMS_RecipientInfo* recipient) {
    ++m_looked;
    for (Certificate* const certificate : m_keys)
      if (EVP_PKEY_is_a(nativeKeyAs<EVP_PKEY>(*certificate), "RSA") &&
          CMS_RecipientInfo_ktri_cert_cmp(recipient, nativeAs<X509>(*certificate)) == 0)
        add({recipient, nullptr, certificate});
  }

  void findAgreed(CMS_RecipientInfo* recipient) {
    STACK_OF(CMS_RecipientEncryptedKey)* const keys = CMS_RecipientInfo_kari_get0_reks(recipient);
    const int count = keys ? sk_CMS_RecipientEncryptedKey_num(keys) : 0;
    for (int i = 0; i < count && !isFull(); ++i) {
      ++m_looked;
      CMS_RecipientEncryptedKey* const key = sk_CMS_RecipientEncryptedKey_value(keys, i);
      for (Certificate* const certificate : m_keys)
        if (EVP_PKEY_is_a(nativeKeyAs<EVP_PKEY>(*certificate), "EC") &&
            CMS_RecipientEncryptedKey_cert_cmp(key, nativeAs<X509>(*certificate)) == 0)
          add({recipient, key, certificate});
    }
  }

  std::vector<Certificate*> m_keys;
  std::vector<KeyTrial> m_trials;
  std::size_t m_max;
  bool m_hasMore = false;
  int m_looked = 0;
};

bool tryTransported(CMS_ContentInfo* cms, const KeyTrial& trial, EVP_PKEY* key) {
  EVP_PKEY_up_ref(key);
  if (CMS_RecipientInfo_set0_pkey(trial.recipient, key) != 1) {
    EVP_PKEY_free(key);
    return false;
  }
  return CMS_RecipientInfo_decrypt(cms, trial.recipient) == 1;
}

bool tryAgreed(CMS_ContentInfo* cms, const KeyTrial& trial, EVP_PKEY* key) {
  if (CMS_RecipientInfo_kari_set0_pkey(trial.recipient, key) != 1) return false;
  const bool done = CMS_RecipientInfo_kari_decrypt(cms, trial.recipient, trial.agreedKey) == 1;
  CMS_RecipientInfo_kari_set0_pkey(trial.recipient, nullptr);
  return done;
}

/// The first trial that yields a content key; null when none does.
const KeyTrial* unwrapKey(CMS_ContentInfo* cms, const std::vector<KeyTrial>& trials, int& left) {
  for (const KeyTrial& trial : trials) {
    --left;
    auto* const key = nativeKeyAs<EVP_PKEY>(*trial.certificate);
    if (trial.agreedKey ? tryAgreed(cms, trial, key) : tryTransported(cms, trial, key)) return &trial;
  }
  return nullptr;
}

/// Decrypts everything. Without a content key the library uses a random one, so the time is the same.
bool decryptAll(CMS_ContentInfo* cms, std::string_view ciphertext, PrivateBuffer& plain, std::size_t& size) {
  const Bio filter(CMS_dataInit(cms, nullptr));
  EVP_CIPHER_CTX* state = nullptr;
  if (!filter || BIO_get_cipher_ctx(filter.get(), &state) <= 0 || !state) return false;
  unsigned char* const begin = plain.reserve(ciphertext.size() + EVP_MAX_BLOCK_LENGTH);
  if (!begin) return false;
  unsigned char* at = begin;
  int written = 0;
  while (!ciphertext.empty()) {
    const std::string_view piece = ciphertext.substr(0, kMaxPerCall);
    if (EVP_DecryptUpdate(state, at, &written, reinterpret_cast<const unsigned char*>(piece.data()),
                          static_cast<int>(piece.size())) != 1)
      return false;
    at += written;
    ciphertext.remove_prefix(piece.size());
  }
  if (EVP_DecryptFinal_ex(state, at, &written) != 1) return false;
  at += written;
  size = static_cast<std::size_t>(at - begin);
  return true;
}

/// The cipher in the last element of the description.
int contentCipher(const Pkcs7Frame& frame) {
  DerReader fields(frame.describe);
  fields.nextIf(kDerObjectId);
  const auto algorithm = fields.nextIf(kDerSequence);
  if (!algorithm) return NID_undef;
  const auto name = DerReader(algorithm->content).nextIf(kDerObjectId);
  if (!name) return NID_undef;
  const auto* at = reinterpret_cast<const unsigned char*>(name->whole.data());
  const Handle<ASN1_OBJECT, ASN1_OBJECT_free> object(
      d2i_ASN1_OBJECT(nullptr, &at, static_cast<long>(name->whole.size())));
  return object ? OBJ_obj2nid(object.get()) : NID_undef;
}

std::string cipherName(int nid) {
  if (nid == NID_undef) return "unknown";
  if (nid == NID_des_ede3_cbc) return "3des-cbc";
  return lowerCase(OBJ_nid2ln(nid));
}

bool isWeak(std::string_view cipher) noexcept {
  return cipher.starts_with("rc2") || cipher.starts_with("des") || cipher.starts_with("3des");
}

/// Whether the cipher is allowed for its kind of layer, in a mode whose end reveals a wrong key.
bool isCipherFit(int nid, LayerKind kind) {
  const EVP_CIPHER* const cipher = EVP_get_cipherbynid(nid);
  if (!cipher) return false;
  const int wanted = kind == LayerKind::authEnveloped ? EVP_CIPH_GCM_MODE : EVP_CIPH_CBC_MODE;
  return EVP_CIPHER_get_mode(cipher) == wanted;
}

/// A reason not to try; empty when there is none.
std::string_view unsupportedReason(const Pkcs7Frame& frame, int cipher) {
  if (!frame.content) return "the encrypted content is missing";
  if (countFirstSet(frame.before, kMaxRecipients) > kMaxRecipients) return "too many recipients";
  if (!isCipherFit(cipher, frame.kind)) return "unsupported cipher";
  if (frame.kind != LayerKind::authEnveloped) return {};
  if (frame.hasAuthenticatedAttributes) return "authenticated attributes are not supported";
  if (frame.mac.size() < kMinTagSize || frame.mac.size() > kMaxTagSize)
    return "the authentication tag has an unsafe size";
  return {};
}

}  // namespace

bool decryptEnvelope(const Pkcs7Frame& frame, SystemCerts& certs, DataBuffer& content, SecureLayer& layer,
                     LoadBudget& budget) {
  const int cipher = contentCipher(frame);
  layer.cipher = cipherName(cipher);
  layer.weakCipher = isWeak(layer.cipher);
  const auto fail = [&](std::string_view problem) {
    layer.problem = problem;
    return false;
  };
  if (const std::string_view problem = unsupportedReason(frame, cipher); !problem.empty())
    return fail(problem);
  const Cms cms(reinterpret_cast<CMS_ContentInfo*>(parseWithoutContent(frame)));
  if (!cms) return fail("the envelope is malformed");
  STACK_OF(CMS_RecipientInfo)* const recipients = CMS_get0_RecipientInfos(cms.get());
  if (recipients && sk_CMS_RecipientInfo_num(recipients) > 0)
    layer.keyTransport = transportOf(sk_CMS_RecipientInfo_value(recipients, 0));
  TrialFinder finder(certificatesWithKey(certs), budget.keyTrials);
  const std::vector<KeyTrial> trials = finder.find(recipients);
  budget.outOfTrials = finder.hasMore();
  if (trials.empty() && finder.hasMore()) return fail("not tried: the message needs too many key trials");
  if (trials.empty()) return fail("no private key of any recipient");
  DataBuffer joined;
  const auto ciphertext = contentOctets(frame, joined);
  if (!ciphertext) return fail("the envelope is malformed");
  const KeyTrial* const opened = unwrapKey(cms.get(), trials, budget.keyTrials);
  PrivateBuffer plain;
  std::size_t size = 0;
  const bool decrypted = decryptAll(cms.get(), *ciphertext, plain, size);
  if (!opened || !decrypted) return fail(kFailure);
  budget.outOfTrials = false;
  plain.release(size, content);
  layer.keyTransport = transportOf(opened->recipient);
  layer.recipient = RefPtr<Certificate>(opened->certificate);
  return true;
}

}  // namespace mailtree
