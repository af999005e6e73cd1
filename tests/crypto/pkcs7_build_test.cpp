#include <gmock/gmock.h>

#include <ctime>
#include <map>
#include <tuple>

#include "tests/crypto/pkcs7_fixtures.h"

namespace mailtree {
namespace {

using namespace std::string_literals;
using testing::HasSubstr;

constexpr std::string_view kText = "To be signed and encrypted.\r\n";

TEST(Pkcs7Sign, every_key_signs_with_every_digest_attached_and_detached) {
  const std::tuple<std::string, bool, std::string> keys[] = {{"alice", false, "rsa"},
                                                             {"alice", true, "rsa-pss"},
                                                             {"carol", false, "ecdsa"},
                                                             {"dave", false, "ecdsa"}};
  for (const auto& [who, pss, algorithm] : keys)
    for (const HashId hash : {HashId::sha1, HashId::sha256, HashId::sha384, HashId::sha512})
      for (const bool detached : {false, true}) {
        const std::string blob = signedBlob(kText, {{who}, detached, hash, pss});
        const SecureLayer layer = detached ? verifyBlob(blob, kText) : openBlob(blob).layer;
        EXPECT_EQ(layer.kind, detached ? LayerKind::detachedSignature : LayerKind::opaqueSignature);
        ASSERT_EQ(layer.signers.size(), 1U);
        EXPECT_EQ(told(layer.signers[0]), "yyyy- " + algorithm + ' ' +
                                              std::string(_svHash::nameOf(static_cast<int>(hash))) +
                                              (hash == HashId::sha1 ? " [digest sha1]" : ""));
        EXPECT_EQ(layer.signers[0].certificate.get(), person(who).get());
      }
}

TEST(Pkcs7Sign, attributes_are_there_when_asked_for) {
  const std::pair<bool SignAs::*, std::vector<std::string>> rows[] = {
      {&SignAs::chain, {}},
      {&SignAs::time, {"signing time", "capabilities"}},
      {&SignAs::certificate, {"signing certificate"}}};
  const std::map<std::string, std::string> attributes = {
      {"signing time", "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x05"},
      {"capabilities", "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x0F"},
      {"signing certificate", "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x10\x02\x2F"}};
  for (const auto& [asked, wanted] : rows) {
    SignAs as;
    as.*asked = true;
    const std::string blob = signedBlob(kText, as);
    for (const auto& [name, id] : attributes)
      EXPECT_EQ(contains(blob, id), testing::Value(wanted, testing::Contains(name))) << name;
    const SignerVerdict signer = openBlob(blob).layer.signers.at(0);
    EXPECT_TRUE(signer.isValid()) << signer.problem;
    EXPECT_EQ(signer.signingTime.has_value(), as.time);
    EXPECT_EQ(signer.chainTrustedThen, as.time ? Answer::yes : Answer::notChecked);
    if (as.time) {
      EXPECT_LT(std::abs(*signer.signingTime - std::time(nullptr)), 60);
    }
  }
}

TEST(Pkcs7Sign, several_sign_one_content_and_the_chain_goes_along_once_when_asked_for) {
  for (const bool chain : {false, true}) {
    const SignAs as{{"alice", "carol", "dave"}, true, HashId::sha384, true, chain};
    const SecureLayer layer = verifyBlob(signedBlob(kText, as), kText);
    EXPECT_EQ(layer.certificates.size(), chain ? 5U : 3U);
    EXPECT_EQ(layer.signers.size(), 3U);
    EXPECT_TRUE(layer.allSignaturesValid());
  }
}

template <class As, std::size_t size>
void expectRefused(const std::pair<As, const char*> (&rows)[size],
                   bool (&attempt)(std::string_view, const As&, DataBuffer&, LogBase&)) {
  for (const auto& [as, reason] : rows) {
    LogMemory log;
    DataBuffer der;
    der.append("old");
    EXPECT_FALSE(attempt(kText, as, der, log)) << reason;
    EXPECT_TRUE(der.isEmpty()) << reason;
    EXPECT_THAT(log.text(), HasSubstr(reason));
  }
}

TEST(Pkcs7Sign, what_cannot_be_signed_is_refused_with_a_reason) {
  const std::pair<SignAs, const char*> rows[] = {
      {{{"alice", "ed25519"}}, "key of this type"},
      {{{"-alice"}}, "has no private key"},
      {{{}}, "No certificate"},
      {{{"alice"}, false, HashId::unknown}, "Unknown digest"},
      {{{"carol"}, false, HashId::md5}, "Cannot create"},  // no such pair has a name
  };
  expectRefused(rows, trySign);
}

TEST(Pkcs7Envelope, every_recipient_opens_every_cipher) {
  const std::tuple<int, int, std::string> ciphers[] = {{kCbc, 0, "aes-256-cbc"},   {kCbc, 128, "aes-128-cbc"},
                                                       {kCbc, 192, "aes-192-cbc"}, {kGcm, 0, "aes-256-gcm"},
                                                       {kGcm, 128, "aes-128-gcm"}, {kGcm, 192, "aes-192-gcm"},
                                                       {kTriple, 0, "3des-cbc"}};
  const std::tuple<int, HashId, bool> ways[] = {
      {0, HashId{}, false}, {0, HashId{}, true}, {kOaep, HashId{}, false}, {kOaep, HashId::sha384, true}};
  std::map<std::string, SystemCerts> holders;
  for (const std::string who : {"alice", "carol", "dave"})
    addIdentities(holders[who], {(who + ".pem").c_str(), (who + ".key").c_str()});
  for (const auto& [cipher, bits, name] : ciphers)
    for (const auto& [transport, hash, byKeyId] : ways) {
      const std::string blob = envelope(
          kText, {{"alice", "carol", "dave"}, cipher, bits, transport, static_cast<int>(hash), byKeyId});
      EXPECT_EQ(contains(blob, "Test Issuer"), !byKeyId);
      for (auto& [who, certs] : holders) {
        const Opened opened = openBlob(blob, certs);
        EXPECT_EQ(opened.content, kText) << opened.layer.problem;
        EXPECT_EQ(opened.layer.kind, cipher == kGcm ? LayerKind::authEnveloped : LayerKind::enveloped);
        EXPECT_EQ(opened.layer.cipher, name);
        EXPECT_EQ(opened.layer.weakCipher, cipher == kTriple);
        EXPECT_EQ(opened.layer.keyTransport, who != "alice"       ? "ecdh"
                                             : transport == kOaep ? "rsa-oaep"
                                                                  : "rsa");
        ASSERT_TRUE(opened.done && opened.layer.recipient);
        EXPECT_EQ(opened.layer.recipient->fingerprint(), person(who)->fingerprint());
      }
    }
}

/// Contents that a careless hand would change.
TEST(Pkcs7Builder, the_bytes_are_signed_and_come_back_as_they_stand) {
  for (const std::string& text :
       {""s, "x"s, "bare\nline\nfeeds"s, "bare\rreturns\r"s, "trailing blanks  \r\n \t\r\n"s, "nul\0inside"s,
        std::string(15, 'a'), std::string(16, 'b'), std::string(17, 'c'), std::string(1'000'000, 'm')}) {
    const std::string detached = signedBlob(text, {{"carol"}, true}), sealed = signedBlob(text);
    EXPECT_LT(detached.size(), 4000U) << shown(text);
    EXPECT_TRUE(verifyBlob(detached, text).allSignaturesValid()) << shown(text);
    EXPECT_FALSE(verifyBlob(detached, text + "\r\n").allSignaturesValid()) << shown(text);
    EXPECT_TRUE(openBlob(sealed).layer.allSignaturesValid()) << shown(text);
    for (const std::string& blob : {sealed, envelope(text, {{"carol"}, kCbc}),
                                    envelope(text, {{"carol"}, kGcm}), envelope(text, {{"carol"}, kTriple})})
      EXPECT_TRUE(openBlob(blob).content == text) << shown(text);
  }
}

TEST(Pkcs7Envelope, a_text_gets_the_line_ends_of_the_wire) {
  EncryptAs as;
  as.binary = false;
  const std::pair<const char*, const char*> rows[] = {
      {"", ""}, {"a\nb\r\nc\rd", "a\r\nb\r\nc\r\nd"}, {"\n\r\r\n\n", "\r\n\r\n\r\n\r\n"}};
  for (const auto& [text, wire] : rows) EXPECT_EQ(openBlob(envelope(text, as)).content, wire) << wire;
}

TEST(Pkcs7Envelope, what_cannot_be_encrypted_is_refused_with_a_reason) {
  const std::pair<EncryptAs, const char*> rows[] = {
      {{{}}, "No recipients"},
      {{{"alice", "ed25519"}}, "key of this type"},
      {{{"alice"}, 7}, "Unknown cipher"},
      {{{"alice"}, kCbc, 129}, "Unknown cipher or key length"},
      {{{"alice"}, kCbc, 0, 2}, "Unknown key transport"},
      {{{"alice"}, kCbc, 0, kOaep, 77}, "Unknown digest"},
      {{{"alice"}, kCbc, 0, 0, 0, false, true, 1}, "announced size"},
      {{{"alice"}, kGcm, 0, 0, 0, false, true, -1}, "announced size"},
      {{{"alice"}, kCbc, 0, 0, 0, false, false, 1}, "Cannot read"},
      {{{"alice"}, kCbc, 0, 0, 0, false, true, -1000}, "size"},
  };
  expectRefused(rows, tryEncrypt);
}

}  // namespace
}  // namespace mailtree
