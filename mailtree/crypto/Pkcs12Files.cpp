#include <openssl/evp.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstring>
#include <limits>

#include "mailtree/crypto/CertificateFiles.h"
#include "mailtree/crypto/internal.h"

namespace mailtree {
namespace {

/// Total rounds of key derivation allowed for one file. Normal files need thousands, up to some hundred
/// thousand, for each key; a file that needs billions would block the program for hours.
constexpr std::int64_t kMaxRounds = 10'000'000;
/// Nested bags: rare in practice, so a few levels are enough.
constexpr int kMaxBagDepth = 8;

using Bags = STACK_OF(PKCS12_SAFEBAG);
void freeBags(Bags* bags) { sk_PKCS12_SAFEBAG_pop_free(bags, PKCS12_SAFEBAG_free); }
using BagsHandle = Handle<Bags, freeBags>;
using Safes = STACK_OF(PKCS7);
void freeSafes(Safes* safes) { sk_PKCS7_pop_free(safes, PKCS7_free); }
using KeyInfo = Handle<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>;

// ---- cost of opening
// ------------------------------------------------------------------------------------------

template <class T, auto release>
Handle<T, release> parametersAs(const ASN1_ITEM* item, const X509_ALGOR& algorithm) {
  return Handle<T, release>(static_cast<T*>(ASN1_TYPE_unpack_sequence(item, algorithm.parameter)));
}

std::int64_t countOf(const ASN1_INTEGER* number) {
  std::int64_t count = 0;
  return number && ASN1_INTEGER_get_int64(&count, number) == 1 && count >= 0 ? count : kMaxRounds + 1;
}

std::int64_t productOf(std::initializer_list<std::int64_t> factors) {
  std::int64_t product = 1;
  for (const std::int64_t factor : factors) product *= std::min(factor, std::int64_t{1} << 20);
  return product;
}

/// Rounds of the key derivation in PBES2 (RFC 8018).
std::int64_t roundsOfFunction(const X509_ALGOR& function) {
  if (OBJ_obj2nid(function.algorithm) == NID_id_pbkdf2) {
    const auto given = parametersAs<PBKDF2PARAM, PBKDF2PARAM_free>(ASN1_ITEM_rptr(PBKDF2PARAM), function);
    return given ? countOf(given->iter) : 0;
  }
  const auto given = parametersAs<SCRYPT_PARAMS, SCRYPT_PARAMS_free>(ASN1_ITEM_rptr(SCRYPT_PARAMS), function);
  return given ? productOf({countOf(given->costParameter), countOf(given->blockSize),
                            countOf(given->parallelizationParameter)})
               : 0;
}

std::int64_t roundsOf(const X509_ALGOR& algorithm) {
  if (OBJ_obj2nid(algorithm.algorithm) == NID_pbes2) {
    const auto given = parametersAs<PBE2PARAM, PBE2PARAM_free>(ASN1_ITEM_rptr(PBE2PARAM), algorithm);
    return given ? roundsOfFunction(*given->keyfunc) : 0;
  }
  const auto given = parametersAs<PBEPARAM, PBEPARAM_free>(ASN1_ITEM_rptr(PBEPARAM), algorithm);
  return given && given->iter ? countOf(given->iter) : 0;
}

class Budget {
 public:
  bool spend(std::int64_t rounds) noexcept {
    m_left -= std::min(rounds, kMaxRounds + 1);
    return m_left >= 0;
  }
  bool spend(const X509_ALGOR& algorithm) { return spend(roundsOf(algorithm)); }

 private:
  std::int64_t m_left = kMaxRounds;
};

// ---- keys -------------------------------------------------------------------------------------------------

bool addKey(const PKCS8_PRIV_KEY_INFO* info, KeyMaterial& found) {
  KeyPtr key(info ? reinterpret_cast<NativeKey*>(EVP_PKCS82PKEY_ex(info, contextAs<OSSL_LIB_CTX>(), nullptr))
                  : nullptr);
  if (!key) return false;
  found.keys.push_back(std::move(key));
  return true;
}

const X509_ALGOR& algorithmOf(const X509_SIG& encrypted) {
  const X509_ALGOR* algorithm = nullptr;
  X509_SIG_get0(&encrypted, &algorithm, nullptr);
  return *algorithm;
}

KeyInfo decryptKey(const X509_SIG& encrypted, const char* password) {
  const int size = password ? static_cast<int>(std::strlen(password)) : 0;
  return KeyInfo(PKCS8_decrypt_ex(&encrypted, password, size, contextAs<OSSL_LIB_CTX>(), nullptr));
}

// ---- the bags of a PKCS#12 file ---------------------------------------------------------------------------

class Pkcs12Reader {
 public:
  Pkcs12Reader(PKCS12& file, KeyMaterial& found) noexcept : m_file(file), m_found(found) {}

  void read(const char* password) {
    // No password may mean none or an empty one. And in a folder, one file may need a
    // password and another none.
    for (const char* candidate : {password, static_cast<const char*>(nullptr), ""})
      if (isPassword(candidate)) return readSafes(candidate);
    if (m_isTooSlow) return note("a PKCS#12 file");
    m_found.addLocked(password && *password ? "wrong password for a PKCS#12 file"
                                            : "a PKCS#12 file that needs a password");
  }

 private:
  bool spend(std::int64_t rounds) {
    m_isTooSlow = m_isTooSlow || !m_budget.spend(rounds);
    return !m_isTooSlow;
  }

  /// Without a MAC any candidate is accepted.
  bool isPassword(const char* password) {
    if (!PKCS12_mac_present(&m_file)) return true;
    const ASN1_INTEGER* rounds = nullptr;
    PKCS12_get0_mac(nullptr, nullptr, nullptr, &rounds, &m_file);
    return spend(rounds ? countOf(rounds) : 1) && PKCS12_verify_mac(&m_file, password, -1) == 1;
  }

  void readSafes(const char* password) {
    const Handle<Safes, freeSafes> safes(PKCS12_unpack_authsafes(&m_file));
    if (!safes) return note("a PKCS#12 file");
    for (int i = 0; i < sk_PKCS7_num(safes.get()); ++i) {
      if (const BagsHandle bags = open(*sk_PKCS7_value(safes.get(), i), password))
        readBags(*bags, password, 0);
      else
        note("a part of a PKCS#12 file");
    }
  }

  BagsHandle open(PKCS7& safe, const char* password) {
    if (PKCS7_type_is_data(&safe)) return BagsHandle(PKCS12_unpack_p7data(&safe));
    if (!PKCS7_type_is_encrypted(&safe) || !safe.d.encrypted) return BagsHandle();
    if (!spend(roundsOf(*safe.d.encrypted->enc_data->algorithm))) return BagsHandle();
    return BagsHandle(PKCS12_unpack_p7encdata(&safe, password, -1));
  }

  void readBags(const Bags& bags, const char* password, int depth) {
    for (int i = 0; i < sk_PKCS12_SAFEBAG_num(&bags); ++i)
      readBag(*sk_PKCS12_SAFEBAG_value(&bags, i), password, depth);
  }

  void readBag(const PKCS12_SAFEBAG& bag, const char* password, int depth) {
    switch (PKCS12_SAFEBAG_get_nid(&bag)) {
      case NID_keyBag:
        if (!addKey(PKCS12_SAFEBAG_get0_p8inf(&bag), m_found)) note("a key in a PKCS#12 file");
        return;
      case NID_pkcs8ShroudedKeyBag: return readShroudedKey(*PKCS12_SAFEBAG_get0_pkcs8(&bag), password);
      case NID_certBag: return readCertificate(bag);
      case NID_safeContentsBag:
        if (depth < kMaxBagDepth) readBags(*PKCS12_SAFEBAG_get0_safes(&bag), password, depth + 1);
        return;
      default: return;  // revocation lists, secrets
    }
  }

  void readShroudedKey(const X509_SIG& encrypted, const char* password) {
    const bool couldRead =
        spend(roundsOf(algorithmOf(encrypted))) && addKey(decryptKey(encrypted, password).get(), m_found);
    if (!couldRead) note("a key in a PKCS#12 file");
  }

  void readCertificate(const PKCS12_SAFEBAG& bag) {
    if (PKCS12_SAFEBAG_get_bag_nid(&bag) != NID_x509Certificate) return;
    const Handle<X509, X509_free> x509(PKCS12_SAFEBAG_get1_cert(&bag));
    if (!x509 || !addNativeCertificate(reinterpret_cast<NativeCertificate*>(x509.get()), m_found))
      note("a certificate in a PKCS#12 file");
  }

  void note(std::string_view what) {
    const std::string reason = m_isTooSlow ? "too many rounds of key derivation" : lastCryptoError();
    m_found.problems.push_back(std::string(what) + " that cannot be opened" +
                               (reason.empty() ? "" : ": " + reason));
  }

  PKCS12& m_file;
  KeyMaterial& m_found;
  Budget m_budget;
  bool m_isTooSlow = false;
};

}  // namespace

bool readPkcs12(std::string_view der, const char* password, KeyMaterial& found) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(der.data());
  PKCS12* file = PKCS12_init_ex(NID_pkcs7_data, contextAs<OSSL_LIB_CTX>(), nullptr);
  if (!file || !d2i_PKCS12(&file, &bytes, static_cast<long>(der.size()))) return false;
  const Handle<PKCS12, PKCS12_free> owner(file);
  Pkcs12Reader(*file, found).read(password);
  return true;
}

bool readEncryptedKey(std::string_view der, const char* password, KeyMaterial& found) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(der.data());
  const Handle<X509_SIG, X509_SIG_free> encrypted(
      d2i_X509_SIG(nullptr, &bytes, static_cast<long>(der.size())));
  if (!encrypted) return false;
  Budget budget;
  if (!budget.spend(algorithmOf(*encrypted)))
    found.problems.emplace_back("a key that needs too many rounds of key derivation");
  else if (!password || !*password)
    found.addLocked("a key that needs a password");
  else if (!addKey(decryptKey(*encrypted, password).get(), found))
    found.addLocked("wrong password for a key");
  return true;
}

}  // namespace mailtree
