// Signers and chains that nobody honest has: made here, with the cryptographic library itself.
#include <openssl/bn.h>
#include <openssl/cms.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>

#include "mailtree/crypto/internal.h"
#include "tests/crypto/pkcs7_fixtures.h"

namespace mailtree {
namespace {

EVP_PKEY* newEcKey(const char* curve) { return EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", curve); }

using Key = Handle<EVP_PKEY, EVP_PKEY_free>;
using X509Handle = Handle<X509, X509_free>;

struct Signer {
  Key key;
  X509Handle certificate;
};

Key rsaKey(const char* exponent) {
  const Handle<EVP_PKEY_CTX, EVP_PKEY_CTX_free> maker(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
  BIGNUM* number = nullptr;
  EVP_PKEY* key = nullptr;
  BN_hex2bn(&number, exponent);
  const Handle<BIGNUM, BN_free> owner(number);
  EVP_PKEY_keygen_init(maker.get());
  EVP_PKEY_CTX_set_rsa_keygen_bits(maker.get(), 1024);  // quickly made
  EVP_PKEY_CTX_set1_rsa_keygen_pubexp(maker.get(), number);
  EXPECT_EQ(EVP_PKEY_generate(maker.get(), &key), 1) << exponent;
  return Key(key);
}

void setName(X509_NAME* name, const std::string& text) {
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(text.data()),
                             static_cast<int>(text.size()), -1, 0);
}

/// An authority, which signs mail too; the n-th is issued by the one before, the first by itself.
Signer makeSigner(int number, Key key, const Signer* issuer, const EVP_MD* digest = EVP_sha256()) {
  X509Handle made(X509_new());
  X509* const x509 = made.get();
  X509_set_version(x509, X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(x509), number + 1);
  X509_gmtime_adj(X509_getm_notBefore(x509), -1000);
  X509_gmtime_adj(X509_getm_notAfter(x509), 1'000'000);
  setName(X509_get_subject_name(x509), "Signer " + std::to_string(number));
  setName(X509_get_issuer_name(x509), "Signer " + std::to_string(issuer ? number - 1 : number));
  X509_set_pubkey(x509, key.get());
  const Handle<X509_EXTENSION, X509_EXTENSION_free> authority(
      X509V3_EXT_conf_nid(nullptr, nullptr, NID_basic_constraints, "critical,CA:TRUE"));
  X509_add_ext(x509, authority.get(), -1);
  EXPECT_GT(X509_sign(x509, issuer ? issuer->key.get() : key.get(), digest), 0);
  return {std::move(key), std::move(made)};
}

std::vector<Signer> makeSigners(int count, const char* curve, bool chained) {
  std::vector<Signer> signers;
  signers.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i)
    signers.push_back(makeSigner(i, Key(newEcKey(curve)), chained && i > 0 ? &signers.back() : nullptr));
  return signers;
}

/// What the library encodes.
template <class Encode, class Object>
std::string derOf(Encode encode, const Object& object) {
  unsigned char* der = nullptr;
  const int size = encode(object.get(), &der);
  const std::string bytes(reinterpret_cast<const char*>(der), static_cast<std::size_t>(std::max(size, 0)));
  OPENSSL_free(der);
  return bytes;
}

RefPtr<Certificate> certificateOf(const Signer& signer) {
  LogNull log;
  return RefPtr<Certificate>(Certificate::createFromDer(derOf(i2d_X509, signer.certificate), log));
}

using Cms = Handle<CMS_ContentInfo, CMS_ContentInfo_free>;

std::string finished(const Cms& cms) {
  const Handle<BIO, BIO_free_all> text(BIO_new_mem_buf("x", 1));
  EXPECT_EQ(CMS_final(cms.get(), text.get(), nullptr, CMS_BINARY), 1);
  return derOf(i2d_CMS_ContentInfo, cms);
}

/// Without a signing time: a chain is looked into once for each.
std::vector<SignerVerdict> verdictsOn(const std::vector<Signer>& signers, int times = 1) {
  const Cms cms(CMS_sign(nullptr, nullptr, nullptr, nullptr, CMS_PARTIAL | CMS_BINARY));
  for (int i = 0; i < times; ++i)
    for (const Signer& signer : signers)
      CMS_add1_signer(cms.get(), signer.certificate.get(), signer.key.get(), EVP_sha256(),
                      CMS_BINARY | CMS_NOATTR | (i > 0 ? CMS_NOCERTS : 0U));
  SystemCerts nobody;
  return openBlob(finished(cms), nobody).layer.signers;
}

TEST(Pkcs7Signers, only_so_many_chains_are_looked_into) {
  const std::vector<SignerVerdict> verdicts = verdictsOn(makeSigners(9, "P-256", false), 2);
  ASSERT_EQ(verdicts.size(), 18U);
  const auto isLeft = [](const SignerVerdict& each) {
    return each.isValid() && contains(each.problem, "too many different signers");
  };
  EXPECT_EQ(std::ranges::count_if(verdicts, isLeft), 2);  // the ninth, both times
  EXPECT_TRUE(std::ranges::all_of(verdicts, &SignerVerdict::isValid));
}

TEST(Pkcs7Signers, only_so_much_work_is_done_for_big_keys) {
  const std::vector<SignerVerdict> verdicts = verdictsOn(makeSigners(8, "P-521", false), 4);
  ASSERT_EQ(verdicts.size(), 32U);
  EXPECT_EQ(std::ranges::count_if(verdicts, &SignerVerdict::isValid), 16);
  for (const SignerVerdict& verdict : verdicts)
    EXPECT_EQ(verdict.isValid(), !contains(verdict.problem, "too many signatures with large keys"))
        << verdict.problem;
}

TEST(Pkcs7Signers, an_exponent_that_nobody_uses_is_not_worked_with) {
  const std::pair<const char*, const char*> rows[] = {
      {"FFFFFFFFFFFFFFC5", "yy-y- rsa sha256 [key RSA 1024 bits] no trust anchors were given"},
      {"1000000000000000D", "---y- rsa sha256 [key RSA 1024 bits] the signer's key is too large"}};
  for (const auto& [exponent, verdict] : rows) {
    std::vector<Signer> signers;
    signers.push_back(makeSigner(0, rsaKey(exponent), nullptr));
    EXPECT_EQ(told(verdictsOn(signers).at(0)), verdict) << exponent;
  }
}

TEST(Pkcs7Signers, a_way_of_more_than_ten_authorities_is_none) {
  std::vector<RefPtr<Certificate>> all;
  for (const Signer& signer : makeSigners(13, "P-256", true)) all.push_back(certificateOf(signer));
  for (const bool trusted : {false, true}) {
    SystemCerts certs;
    LogNull log;
    ASSERT_EQ(certs.addTrustAnchorsFromData(all[trusted ? 1 : 0]->der().view(), log), 1);
    EXPECT_EQ(certs.checkChain(*all.back(), all, std::time(nullptr)).trusted, trusted);
  }
}

TEST(Pkcs7Signers, weak_keys_and_digests_are_named_up_to_the_anchor) {
  const Signer root = makeSigner(0, Key(EVP_RSA_gen(1024)), nullptr, EVP_md5());
  const Signer upper = makeSigner(1, Key(newEcKey("P-192")), &root, EVP_md5());
  const Signer lower = makeSigner(2, Key(newEcKey("P-256")), &upper, EVP_sha1());
  const std::vector<RefPtr<Certificate>> all = {certificateOf(root), certificateOf(upper),
                                                certificateOf(lower)};
  using Named = std::vector<std::string>;
  const Named toUpper = {"certificate signed with sha1", "authority 1: key EC 192 bits"};
  const Named toRoot = {toUpper[0], toUpper[1], "authority 1: certificate signed with md5",
                        "authority 2: key RSA 1024 bits"};
  const std::pair<const Certificate*, Named> rows[] = {
      {all[0].get(), toRoot}, {all[1].get(), toUpper}, {all[2].get(), {}}, {nullptr, toRoot}};
  for (const auto& [anchor, weaknesses] : rows) {
    SystemCerts certs;
    LogNull log;
    if (anchor) certs.addTrustAnchorsFromData(anchor->der().view(), log);
    EXPECT_EQ(certs.checkChain(*all.back(), all, std::time(nullptr)).weaknesses, weaknesses);
  }
}

/// By Alice's key, named by its identifier alone, so that any certificate with that key fits.
std::string signedByKey(unsigned flags) {
  const Cms cms(CMS_sign_ex(nullptr, nullptr, nullptr, nullptr, CMS_PARTIAL | CMS_BINARY,
                            contextAs<OSSL_LIB_CTX>(), nullptr));
  const auto alice = person("alice");
  CMS_add1_signer(cms.get(), nativeAs<X509>(*alice), nativeKeyAs<EVP_PKEY>(*alice), EVP_sha256(),
                  CMS_USE_KEYID | CMS_NOCERTS | CMS_BINARY | flags);
  return finished(cms);
}

TEST(Pkcs7Signers, a_signature_that_names_its_certificate_holds_with_no_other_of_the_same_key) {
  const std::tuple<unsigned, const char*, bool> rows[] = {
      {0, "alice-older.pem", true}, {CMS_CADES, "alice.pem", true}, {CMS_CADES, "alice-older.pem", false}};
  for (const auto& [flags, held, valid] : rows) {
    SystemCerts certs;
    addIdentities(certs, {held});
    EXPECT_EQ(openBlob(signedByKey(flags), certs).layer.allSignaturesValid(), valid) << flags << held;
  }
}

}  // namespace
}  // namespace mailtree
