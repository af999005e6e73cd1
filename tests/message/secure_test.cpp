#include <gmock/gmock.h>

#include <functional>

#include "mailtree/email/Email2.h"
#include "mailtree/mailtree.h"
#include "tests/support/identities.h"

namespace mailtree {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const std::string kLetter =
    "From: Alice <alice@example.com>\r\nTo: bob@example.com\r\nBcc: carol@example.com\r\nSubject: Boat\r\n"
    "MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n"
    "--b\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: "
    "8bit\r\n\r\nGr\xC3\xBC\xC3\x9F"
    "e\r\n--b\r\nContent-Disposition: attachment; filename=a.bin\r\n\r\n\x01\x02\r\n--b--\r\n";

std::string letterOf(const std::string& from, const std::string& to) {
  return "From: " + from + "\r\nTo: " + to + "\r\n\r\nShall we?\r\n";
}

/// The certificates of all, the private keys of these.
Keys keysOf(std::initializer_list<const char*> owners) {
  Keys keys;
  EXPECT_TRUE(keys.addTrust(identityFile("root.pem")));
  for (const char* file : {"alice", "bob", "carol", "dave", "intermediate"})
    EXPECT_TRUE(keys.addFile(identityFile(std::string(file) + ".pem")));
  for (const std::string owner : owners)
    for (const char* kind : {".pem", ".key"}) EXPECT_TRUE(keys.addFile(identityFile(owner + kind)));
  return keys;
}

Message opened(const std::string& bytes, const Keys& keys) { return *Message::parse(bytes, {.keys = &keys}); }

TEST(SecureMessage, is_signed_as_it_is_read_and_judged_as_it_will_be) {
  const SignOptions rows[] = {{}, {.digest = "SHA-512", .opaque = true}, {.pss = true, .time = false}};
  const Keys keys = keysOf({"alice"});
  for (const SignOptions& row : rows) {
    Message mail = opened(kLetter, keys);
    const std::string text = mail.text();
    ASSERT_TRUE(mail.addHeader("Resent-Bcc", "carol@example.com"));
    for (const int times : {1, 2}) {
      const Result<void> done = mail.sign(keys, row);
      ASSERT_TRUE(done) << done.error().message;
      EXPECT_EQ(mail.text(), text);
      EXPECT_EQ(mail.attachments().size(), 1U);
      EXPECT_EQ(mail.bcc().size(), 1U);
      EXPECT_TRUE(mail.security().isValid) << mail.security().verdict;
      const std::string written = *mail.toString();
      EXPECT_THAT(written, Not(HasSubstr("carol")));
      const Message read = opened(written, keys);
      EXPECT_EQ(read.text(), text);
      EXPECT_EQ(read.security().verdict, mail.security().verdict);
      EXPECT_EQ(read.security().layers.size(), static_cast<std::size_t>(times));
      EXPECT_EQ(*mail.clone()->toString(), written);
    }
  }
}

TEST(SecureMessage, keeps_a_signature_until_the_content_changes) {
  const Keys keys = keysOf({"alice"});
  Message sender = opened(kLetter, keys);
  ASSERT_TRUE(sender.sign(keys));
  Message mail = opened(*sender.toString(), keys);
  const auto signedPart = [](const std::string& bytes) { return bytes.substr(bytes.find("\r\n\r\n")); };
  ASSERT_TRUE(mail.addHeader("X-Seen", "yes"));
  EXPECT_EQ(signedPart(*mail.toString()), signedPart(*sender.toString()));
  EXPECT_THAT(*mail.toString(), HasSubstr("X-Seen: yes"));
  LogNull quiet;
  Message changed = *mail.clone();
  ASSERT_TRUE(changed.beginTreeChange());
  changed.email2().setHeaderField("X-Tree", "yes", quiet);
  EXPECT_THAT(*changed.toString(), AllOf(HasSubstr("X-Tree: yes"), Not(HasSubstr("multipart/signed"))));
  ASSERT_TRUE(mail.setText("Another boat"));
  EXPECT_FALSE(mail.security().isSigned());
  EXPECT_THAT(*mail.toString(), Not(HasSubstr("multipart/signed")));
}

TEST(SecureMessage, is_encrypted_for_its_readers_and_nobody_else) {
  const Keys alice = keysOf({"alice"}), bob = keysOf({"bob"}), carol = keysOf({"carol"}),
             dave = keysOf({"dave"});
  Message mail = opened(kLetter, alice);
  const std::string text = mail.text();
  ASSERT_TRUE(mail.sign(alice));
  ASSERT_TRUE(mail.encrypt(alice, {.alsoFor = {"dave@example.com"}}));
  EXPECT_EQ(mail.text(), text);
  EXPECT_EQ(mail.setText("x").error().code, ErrorCode::encrypted);
  EXPECT_EQ(mail.decrypt(alice).error().code, ErrorCode::encrypted);
  const std::string written = *mail.toString();
  EXPECT_THAT(written, HasSubstr("enveloped-data"));
  for (const Keys* reader : {&bob, &carol, &dave}) {
    Message read = opened(written, *reader);
    EXPECT_EQ(read.text(), text);
    EXPECT_TRUE(read.security().isValid) << read.security().verdict;
    Message closed = *Message::parse(written);
    for (Message* each : {&read, &closed}) {
      ASSERT_TRUE(each->decrypt(*reader));
      EXPECT_FALSE(each->security().isEncrypted());
      EXPECT_TRUE(each->security().isValid) << each->security().verdict;
      EXPECT_EQ(each->text(), text);
      const Message answer = *each->reply({.from = {"", "bob@example.com"}});
      for (const Message& next : {*answer.clone(), *answer.reply({.from = {"", "carol@example.com"}})})
        EXPECT_EQ(next.toString().error().code, ErrorCode::inClear);
    }
  }
  // An answer holds what is secret only where the part that it is in was opened.
  const std::string enclosing =
      "From: dave@example.com\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n\r\nHi\r\n--b\r\n" +
      written.substr(written.find("Content-Type:")) + "\r\n--b--\r\n";
  EXPECT_FALSE(opened(enclosing, bob).reply({.from = {"", "bob@example.com"}})->toString());
  EXPECT_TRUE(Message::parse(enclosing)->reply({.from = {"", "bob@example.com"}})->toString());
  // Readers of one layer are not readers of the next.
  ASSERT_TRUE(mail.encrypt(alice, {.certificates = {carol.identities().front().fingerprint}}));
  EXPECT_FALSE(mail.decrypt(bob));
  ASSERT_TRUE(mail.decrypt(carol));
  EXPECT_EQ(mail.bcc().size(), 1U);
}

TEST(SecureMessage, says_what_is_missing_and_stays_as_it_was) {
  Keys keys = keysOf({"alice", "expired", "oscar"});
  using Operation = std::function<Result<void>(Message&)>;
  const auto sign = [&](SignOptions options) {
    return Operation([&keys, options](Message& mail) { return mail.sign(keys, options); });
  };
  const auto encrypt = [&](EncryptOptions options) {
    return Operation([&keys, options](Message& mail) { return mail.encrypt(keys, options); });
  };
  const struct {
    std::string from, to;
    Operation operation;
    ErrorCode code;
    std::string problem;
  } rows[] = {
      {"no1@example.com", "bob@example.com", sign({}), ErrorCode::noKey, "private key for no1@example.com"},
      {"bob@example.com", "bob@example.com", sign({}), ErrorCode::noKey, "private key for bob@example.com"},
      {"expired@example.com", "", sign({}), ErrorCode::noKey, "has expired: it was valid until 2002"},
      {"oscar@example.com", "", sign({}), ErrorCode::noKey, "not valid for signing mail"},
      {"", "bob@example.com", sign({}), ErrorCode::noRecipient, "missing From address"},
      {"alice@example.com", "", sign({.digest = "sha1"}), ErrorCode::badValue, "'sha1'"},
      {"alice@example.com", "", sign({.certificate = "00"}), ErrorCode::noKey, "fingerprint 00"},
      {"alice@example.com", "no1@example.com, bob@example.com, no2@example.com", encrypt({}),
       ErrorCode::noKey, "no valid certificate for no1@example.com, no2@example.com"},
      {"alice@example.com", "bob@example.com", encrypt({.alsoFor = {"no3"}}), ErrorCode::noKey, "no3"},
      {"alice@example.com", "", encrypt({}), ErrorCode::noRecipient, "no recipients"},
      {"alice@example.com", "bob@example.com\r\nResent-To: no1@example.com\r\nResent-Bcc: no2@example.com",
       encrypt({}), ErrorCode::noKey, "no valid certificate for no1@example.com, no2@example.com"},
      {"alice@example.com", "bob@example.com", encrypt({.cipher = "rc2"}), ErrorCode::badValue, "'rc2'"},
      {"alice@example.com", "bob@example.com", [&](Message& mail) { return mail.decrypt(keys); },
       ErrorCode::encrypted, "not encrypted"},
  };
  for (const auto& row : rows) {
    Message mail = *Message::parse(letterOf(row.from, row.to));
    const std::string before = *mail.toString();
    const Result<void> done = row.operation(mail);
    ASSERT_FALSE(done) << row.problem;
    EXPECT_EQ(done.error().code, row.code) << done.error().message;
    EXPECT_THAT(done.error().message, HasSubstr(row.problem));
    EXPECT_EQ(*mail.toString(), before);
    EXPECT_FALSE(mail.security().isSigned() || mail.security().isEncrypted());
  }
}

}  // namespace
}  // namespace mailtree
