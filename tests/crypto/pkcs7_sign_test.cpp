#include <gmock/gmock.h>

#include <ctime>

#include "tests/crypto/pkcs7_fixtures.h"

namespace mailtree {
namespace {

using namespace std::string_view_literals;
using testing::HasSubstr;
using testing::Not;

constexpr std::string_view kText = "To be signed.\r\n";
constexpr std::string_view kSigningTime = "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x05"sv;
constexpr std::string_view kCapabilities = "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x0F"sv;
constexpr std::string_view kSigningCertificate2 = "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x10\x02\x2F"sv;

TEST(Pkcs7Sign, every_key_signs_with_every_digest_attached_and_detached) {
  const struct {
    const char* who;
    bool pss;
    const char* algorithm;
  } keys[] = {{"alice", false, "rsa"},  {"alice", true, "rsa-pss"}, {"bob", false, "rsa"},
              {"bob", true, "rsa-pss"}, {"carol", false, "ecdsa"},  {"dave", false, "ecdsa"}};
  const struct {
    HashId hash;
    const char* name;
  } digests[] = {{HashId::sha1, "sha1"},
                 {HashId::sha256, "sha256"},
                 {HashId::sha384, "sha384"},
                 {HashId::sha512, "sha512"}};
  for (const auto& key : keys)
    for (const auto& digest : digests)
      for (const bool detached : {false, true}) {
        SCOPED_TRACE(testing::Message()
                     << key.who << " " << key.algorithm << " " << digest.name << " " << detached);
        SignAs as{{key.who}, detached, digest.hash, key.pss};
        const std::string blob = signedBlob(kText, as);
        const SecureLayer layer = detached ? verifyBlob(blob, kText) : openBlob(blob).layer;
        EXPECT_EQ(layer.kind, detached ? LayerKind::detachedSignature : LayerKind::opaqueSignature);
        ASSERT_EQ(layer.signers.size(), 1U);
        const SignerVerdict& signer = layer.signers[0];
        EXPECT_TRUE(signer.isValid() && signer.chainTrusted == Answer::yes &&
                    signer.keyUsageFit == Answer::yes && signer.revoked == Answer::notChecked)
            << signer.problem;
        EXPECT_EQ(signer.problem, "");
        EXPECT_EQ(signer.digest, digest.name);
        EXPECT_EQ(signer.algorithm, key.algorithm);
        EXPECT_EQ(signer.weaknesses.empty(), digest.hash != HashId::sha1);
        EXPECT_EQ(signer.certificate.get(), person(key.who));
      }
}

TEST(Pkcs7Sign, the_bytes_are_signed_as_they_stand) {
  for (const std::string& text : difficultContents()) {
    SCOPED_TRACE(shown(text));
    const Opened opened = openBlob(signedBlob(text));
    EXPECT_TRUE(opened.done && opened.layer.allSignaturesValid());
    EXPECT_TRUE(opened.content == text);
    const std::string detached = signedBlob(text, {{"carol"}, true});
    EXPECT_LT(detached.size(), 4000U);
    EXPECT_TRUE(verifyBlob(detached, text).allSignaturesValid());
    EXPECT_FALSE(verifyBlob(detached, text + "\r\n").allSignaturesValid());
  }
}

TEST(Pkcs7Sign, attributes_are_there_when_asked_for) {
  const std::string bare = signedBlob(kText);
  for (const auto& attribute : {kSigningTime, kCapabilities, kSigningCertificate2})
    EXPECT_THAT(bare, Not(HasSubstr(std::string(attribute))));
  EXPECT_FALSE(openBlob(bare).layer.signers.at(0).signingTime);

  SignAs as;
  as.time = true;
  const std::string timed = signedBlob(kText, as);
  EXPECT_THAT(timed, HasSubstr(std::string(kCapabilities)));
  EXPECT_THAT(timed, Not(HasSubstr(std::string(kSigningCertificate2))));
  const SignerVerdict signer = openBlob(timed).layer.signers.at(0);
  EXPECT_NEAR(static_cast<double>(signer.signingTime.value_or(0)), static_cast<double>(std::time(nullptr)),
              60.0);
  EXPECT_TRUE(signer.isValid() && signer.chainTrustedThen == Answer::yes);

  for (const HashId hash : {HashId::sha1, HashId::sha256}) {
    SignAs tied;
    tied.hash = hash;
    tied.certificate = true;
    const std::string blob = signedBlob(kText, tied);
    EXPECT_THAT(blob, HasSubstr(std::string(kSigningCertificate2)));
    EXPECT_TRUE(openBlob(blob).layer.allSignaturesValid());
  }
}

TEST(Pkcs7Sign, the_chain_goes_along_when_asked_for) {
  for (const bool chain : {false, true}) {
    SignAs as{{"alice", "carol"}};
    as.chain = chain;
    const Opened opened = openBlob(signedBlob(kText, as));
    // Two signers, and once each what stands above both.
    EXPECT_EQ(opened.layer.certificates.size(), chain ? 4U : 2U);
    EXPECT_TRUE(opened.layer.allSignaturesValid());
  }
}

TEST(Pkcs7Sign, several_sign_one_content) {
  const SecureLayer layer =
      verifyBlob(signedBlob(kText, {{"alice", "carol", "dave"}, true, HashId::sha384, true}), kText);
  ASSERT_EQ(layer.signers.size(), 3U);
  for (const auto& signer : layer.signers)
    EXPECT_TRUE(signer.isValid() && signer.chainTrusted == Answer::yes) << signer.problem;
}

TEST(Pkcs7Sign, what_cannot_be_signed_is_refused_with_a_reason) {
  const struct {
    SignAs as;
    const char* reason;
  } rows[] = {
      {{{"ed25519"}}, "key of this kind"},
      {{{"alice", "ed25519"}}, "key of this kind"},
      {{{}}, "No certificate"},
      {{{"alice"}, false, HashId::unknown}, "Unknown digest"},
      {{{"alice"}, false, static_cast<HashId>(99)}, "Unknown digest"},
      {{{"carol"}, false, HashId::md5}, "Cannot make"},  // no such pair has a name
  };
  for (const auto& row : rows) {
    LogMemory log;
    DataBuffer der;
    der.append("old");
    EXPECT_FALSE(trySign(kText, row.as, der, log)) << row.reason;
    EXPECT_TRUE(der.isEmpty()) << row.reason;
    EXPECT_THAT(log.text(), HasSubstr(row.reason));
  }
}

TEST(Pkcs7Sign, a_certificate_without_its_key_signs_nothing) {
  LogMemory log;
  const RefPtr<Certificate> alice = identity("alice.pem");
  ExtPtrArray signers;
  CertificateHolder::appendNewCertHolder(alice.get(), signers, log);
  Pieces source(kText, 100);
  DataBuffer unused;
  DataBuffer der;
  _clsCades cades;
  EXPECT_FALSE(Pkcs7Builder::createPkcs7Signature(source, unused, false, false,
                                                  static_cast<int>(HashId::sha256), false, false, cades,
                                                  signers, everybody(), der, log));
  EXPECT_THAT(log.text(), HasSubstr("without its private key"));
}

}  // namespace
}  // namespace mailtree
