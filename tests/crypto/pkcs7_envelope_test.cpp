#include <gmock/gmock.h>

#include "tests/crypto/pkcs7_fixtures.h"

namespace mailtree {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr std::string_view kText = "To be encrypted.\r\n";
constexpr int kCbc = static_cast<int>(ContentCipher::aesCbc);
constexpr int kGcm = static_cast<int>(ContentCipher::aesGcm);
constexpr int kTriple = static_cast<int>(ContentCipher::tripleDes);
constexpr int kOaep = static_cast<int>(KeyTransport::oaep);

TEST(Pkcs7Envelope, every_recipient_opens_every_cipher) {
  const struct {
    int cipher;
    int bits;
    const char* name;
  } ciphers[] = {{kCbc, 0, "aes-256-cbc"},   {kCbc, 128, "aes-128-cbc"}, {kCbc, 192, "aes-192-cbc"},
                 {kCbc, 256, "aes-256-cbc"}, {kGcm, 0, "aes-256-gcm"},   {kGcm, 128, "aes-128-gcm"},
                 {kGcm, 192, "aes-192-gcm"}, {kTriple, 0, "3des-cbc"}};
  const struct {
    int transport;
    int hash;
    const char* name;
  } ways[] = {{0, 0, "rsa"},
              {kOaep, 0, "rsa-oaep"},
              {kOaep, static_cast<int>(HashId::sha1), "rsa-oaep"},
              {kOaep, static_cast<int>(HashId::sha384), "rsa-oaep"}};
  const std::vector<std::string> people = {"alice", "bob", "carol", "dave"};
  std::vector<std::unique_ptr<Holder>> holders;
  for (const auto& who : people) holders.push_back(std::make_unique<Holder>(who));
  for (const auto& cipher : ciphers)
    for (const auto& way : ways)
      for (const bool byKeyId : {false, true}) {
        const std::string blob =
            envelope(kText, {people, cipher.cipher, cipher.bits, way.transport, way.hash, byKeyId});
        for (std::size_t i = 0; i < people.size(); ++i) {
          SCOPED_TRACE(testing::Message()
                       << cipher.name << " " << way.name << way.hash << " " << byKeyId << " " << people[i]);
          const Opened opened = openBlob(blob, holders[i]->certs);
          EXPECT_TRUE(opened.done) << opened.layer.problem;
          EXPECT_EQ(opened.content, kText);
          EXPECT_EQ(opened.layer.kind,
                    cipher.cipher == kGcm ? LayerKind::authEnveloped : LayerKind::enveloped);
          EXPECT_EQ(opened.layer.cipher, cipher.name);
          EXPECT_EQ(opened.layer.weakCipher, cipher.cipher == kTriple);
          EXPECT_EQ(opened.layer.keyTransport, i < 2 ? way.name : "ecdh");
          ASSERT_TRUE(opened.layer.recipient);
          EXPECT_EQ(opened.layer.recipient->fingerprint(), person(people[i])->fingerprint());
        }
      }
}

TEST(Pkcs7Envelope, the_bytes_come_back_as_they_went_in) {
  for (const std::string& text : difficultContents())
    for (const int cipher : {kCbc, kGcm, kTriple}) {
      const std::string blob = envelope(text, {{"carol"}, cipher});
      const Opened opened = openBlob(blob);
      EXPECT_TRUE(opened.done && opened.content == text) << shown(text) << " " << cipher;
    }
}

TEST(Pkcs7Envelope, a_text_gets_the_line_ends_of_the_wire) {
  EncryptAs as;
  as.binary = false;
  const struct {
    const char* text;
    const char* wire;
  } rows[] = {{"", ""},
              {"a\nb\r\nc\rd", "a\r\nb\r\nc\r\nd"},
              {"\n\r\r\n\n", "\r\n\r\n\r\n\r\n"},
              {"as it is\r\n", "as it is\r\n"}};
  for (const auto& row : rows)
    EXPECT_EQ(openBlob(envelope(row.text, as)).content, row.wire) << testing::PrintToString(row.text);
}

TEST(Pkcs7Envelope, recipients_are_named_by_key_identifier_when_asked_for) {
  for (const char* who : {"alice", "carol"})
    for (const bool byKeyId : {false, true}) {
      EncryptAs as{{who}};
      as.bySubjectKeyId = byKeyId;
      const std::string blob = envelope(kText, as);
      EXPECT_EQ(blob.find("Test Issuer") == std::string::npos, byKeyId) << who;
    }
}

TEST(Pkcs7Envelope, what_cannot_be_encrypted_is_refused_with_a_reason) {
  const struct {
    EncryptAs as;
    const char* reason;
  } rows[] = {
      {{{}}, "No recipients"},
      {{{"ed25519"}}, "key of this kind"},
      {{{"alice", "ed25519"}}, "key of this kind"},
      {{{"alice"}, 7}, "Unknown cipher"},
      {{{"alice"}, -1}, "Unknown cipher"},
      {{{"alice"}, kCbc, 129}, "Unknown cipher or key length"},
      {{{"alice"}, kCbc, 0, 2}, "Unknown key transport"},
      {{{"alice"}, kCbc, 0, kOaep, 77}, "Unknown digest"},
      {{{"alice"}, kCbc, 0, 0, 0, false, true, 1}, "another size"},
      {{{"alice"}, kGcm, 0, 0, 0, false, true, -1}, "another size"},
      {{{"alice"}, kCbc, 0, 0, 0, false, false, 1}, "Cannot read"},
      {{{"alice"}, kCbc, 0, 0, 0, false, true, -1000}, "size"},
  };
  for (const auto& row : rows) {
    LogMemory log;
    DataBuffer der;
    der.append("old");
    EXPECT_FALSE(tryEncrypt(kText, row.as, der, log)) << row.reason;
    EXPECT_TRUE(der.isEmpty()) << row.reason;
    EXPECT_THAT(log.text(), HasSubstr(row.reason));
  }
}

}  // namespace
}  // namespace mailtree
