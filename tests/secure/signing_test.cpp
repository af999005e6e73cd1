// Messages signed and encrypted.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "mailtree/email/internal.h"
#include "tests/secure/secure_mail.h"
#include "tests/support/fields.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class Sealing : public ::testing::Test {
 protected:
  EmailPtr detached(Email2& mail) {
    return EmailPtr(
        mail.createMultipartSigned(true, true, true, m_cades, "smime.p7s", m_people.certs, m_log));
  }
  EmailPtr opaque(Email2& mail) {
    return EmailPtr(mail.createSignedData(true, true, true, m_cades, "smime.p7m", m_people.certs, m_log));
  }
  EmailPtr encrypted(Email2& mail, int cipher = 0, int transport = 0) {
    return EmailPtr(
        mail.createPkcs7Mime(cipher, 256, transport, 0, false, "smime.p7m", m_people.certs, m_log));
  }
  EmailPtr received(Email2& message) { return receive(write(message, kPlain), m_people.certs); }
  /// What was logged since it was asked last.
  std::string log() { return std::exchange(m_log, LogMemory()).text(); }

  static constexpr WriteForm kPlain{.omitPrefix = "SVX-"};
  Identities m_people{"alice", "bob", "carol"};
  _clsCades m_cades;
  LogMemory m_log;
};

// Signing

/// The first part of a written multipart/signed.
std::string contentOf(const Email2& outer, const std::string& written) {
  const std::string boundary = "--" + std::string(outer.m_contentType.m_boundary.view());
  const std::size_t begin = written.find(boundary + "\r\n") + boundary.size() + 2;
  return written.substr(begin, written.find("\r\n" + boundary, begin) - begin);
}

TEST_F(Sealing, detached_signature_covers_the_message_as_it_would_be_written) {
  const EmailPtr mail = letter("alice", "bob", "Hello\r\n");
  const std::string plain = write(*mail, kPlain);
  const EmailPtr outer = detached(*mail);
  ASSERT_TRUE(outer) << log();
  EXPECT_EQ(printTree(outer), "signed(plain,p7s:attachment)");
  const std::string written = write(*outer, kPlain);
  EXPECT_EQ(contentOf(*outer, written), plain);
  EXPECT_EQ(writeToSink(*outer, kPlain), written);
  EXPECT_EQ(write(*mail, kPlain), plain) << "the message itself stays";
  EXPECT_THAT(written, HasSubstr("protocol=\"application/pkcs7-signature\""));
  EXPECT_THAT(written, HasSubstr("name=\"smime.p7s\""));
}

TEST_F(Sealing, anything_signed_verifies_when_it_comes_back) {
  for (const std::string& body :
       {std::string(), std::string("x"), std::string("one\ntwo\n"), std::string("one  \r\n \r\ntwo\t\r\n"),
        std::string("one\r\ntwo"), std::string("one\r\n\r\n\r\n"), std::string(".\r\n..\r\n.x"),
        std::string("From me\r\n>From you"), std::string("--x\r\n--x--\r\n"),
        std::string("begin 644 a.txt\r\n#0V%T\r\n`\r\nend\r\n"), std::string("a\0b\r\n", 5)}) {
    SCOPED_TRACE(body);
    const EmailPtr mail = letter("alice", "bob", body);
    for (const bool isDetached : {true, false}) {
      const EmailPtr signedMail = isDetached ? detached(*mail) : opaque(*mail);
      ASSERT_TRUE(signedMail) << log();
      const EmailPtr back = received(*signedMail);
      EXPECT_EQ(layersOf(*back), isDetached ? "detached-signature 1 valid" : "opaque-signature 1 valid");
      const std::string written = write(*signedMail, kPlain);
      EXPECT_EQ(write(*load(written), kPlain), written) << "kept by writing";
      EXPECT_EQ(back->m_common->m_secureLayers.at(0).signers.at(0).addressMatches, Answer::yes);
      const auto isForeign = [](const InnerField& f) { return f.name != "SVX-Bounce-Address"; };
      EXPECT_TRUE(std::ranges::none_of(back->m_common->m_innerFields, isForeign));
    }
  }
}

TEST_F(Sealing, trees_and_charsets_verify_when_they_come_back) {
  for (const char* tree : {"mixed(plain,pdf:attachment)", "related(html,png)", "alternative(plain,html)",
                           "mixed(rfc822,zip[enc=base64]:attachment)"})
    for (const int codePage : {0, 28591, 50220, 65001}) {
      const EmailPtr mail = buildTree(tree);
      mail->use_codepage(codePage);
      mail->setFromFullUtf8("=?utf-8?Q?J=C3=BCrgen?= <alice@example.com>", m_log);
      const EmailPtr outer = detached(*mail);
      EXPECT_TRUE(outer && received(*outer)->getAllSignaturesValid()) << tree << " in " << codePage << log();
      EXPECT_EQ(field(*outer, "X-MS-Has-Attach"), contains(tree, "attachment") ? "yes" : "(absent)") << tree;
    }
}

TEST_F(Sealing, changes_nothing_of_the_shared_settings_but_the_certificate) {
  const EmailPtr mail = letter("alice", "bob", "Gr\xC3\xBC\xC3\x9F\x65\r\n");
  _svEmailCommon& common = *mail->m_common;
  common.m_charset.setByName("latin1");
  common.m_sendSigned = common.m_sendEncrypted = common.m_receivedSecure = true;
  common.m_idOnServer = 7;
  common.m_limits.add(Limit::parts);
  common.m_numEncryptedLayers = 3;
  common.m_secureLayers.resize(2);
  for (const bool isDetached : {true, false}) {
    ASSERT_TRUE(isDetached ? detached(*mail) : opaque(*mail)) << log();
    EXPECT_STREQ(common.m_charset.getName(), "latin1");
    EXPECT_TRUE(common.m_sendSigned && common.m_sendEncrypted && common.m_receivedSecure);
    EXPECT_TRUE(common.m_idOnServer == 7 && common.m_limits.has(Limit::parts));
    EXPECT_TRUE(common.m_numEncryptedLayers == 3 && common.m_secureLayers.size() == 2);
  }
  EXPECT_EQ(common.m_signingCert, m_people["alice"]);
}

TEST_F(Sealing, is_signed_with_the_certificate_set_else_with_the_one_of_the_sender) {
  const EmailPtr mail = letter("alice", "bob", "x");
  ASSERT_TRUE(detached(*mail));
  EXPECT_THAT(log(), HasSubstr("Searching for certificate based on email address..\n"));
  const int references = m_people["alice"]->refCount();
  const EmailPtr second(Email2::createNewObject(*mail->m_common));
  ASSERT_TRUE(detached(*second)) << "no sender is needed any more";
  EXPECT_THAT(log(),
              testing::AllOf(HasSubstr("Using pre-specified certificate."), Not(HasSubstr("Searching"))));
  mail->setSigningCert(m_people["alice"]);
  EXPECT_EQ(m_people["alice"]->refCount(), references) << "the same again";
  mail->setSigningCert(m_people["bob"]);
  EXPECT_EQ(m_people["alice"]->refCount(), references - 1);
  EXPECT_EQ(mail->getSigningCert(m_log), m_people["bob"]);
}

TEST_F(Sealing, signing_fails_with_a_reason) {
  const EmailPtr stranger = letter("nobody", "bob", "x"), mail = letter("alice", "bob", "x");
  EXPECT_FALSE(detached(*stranger));
  EXPECT_THAT(log(), testing::AllOf(HasSubstr("Failed to find certificate for detached digital signature"),
                                    HasSubstr("nobody@example.com")));
  EXPECT_FALSE(opaque(*stranger));
  EXPECT_THAT(log(), testing::AllOf(HasSubstr("Failed to find certificate for digital signature"),
                                    Not(HasSubstr("Searching"))));
  mail->setMicalg("sha-3000", m_log);
  EXPECT_FALSE(detached(*mail) || opaque(*mail)) << "label and digest never differ";
  EXPECT_THAT(log(), HasSubstr("Failed to create digitally signed email."));
}

TEST_F(Sealing, label_and_digest_are_the_ones_asked_for) {
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"", "micalg=sha1", "sha1"},
      {"SHA 512", "micalg=\"SHA 512\"", "sha512"},
      {" sha384 ", "micalg=sha384", "sha384"},
  };
  for (const auto& [micalg, label, digest] : rows) {
    const EmailPtr mail = letter("alice", "bob", "x");
    mail->m_contentType.m_protocol.setString(" p ");
    if (*micalg) mail->setMicalg(micalg, m_log);
    StringBuffer kept;
    mail->getMicalg(kept);
    EXPECT_EQ(kept.view(), micalg) << "deliberately with its blanks, which the protocol loses";
    EXPECT_EQ(mail->m_contentType.m_protocol.view(), *micalg ? "p" : " p ");
    for (const bool isDetached : {true, false}) {
      const EmailPtr signedMail = isDetached ? detached(*mail) : opaque(*mail);
      EXPECT_THAT(fieldOf(*signedMail, "Content-Type"), HasSubstr(label)) << micalg;
      const SecureLayer layer = received(*signedMail)->m_common->m_secureLayers.at(0);
      EXPECT_EQ(layer.signers.at(0).digest, digest) << micalg;
    }
  }
}

TEST_F(Sealing, outer_header_has_what_a_reader_needs) {
  const EmailPtr mail = letter("alice", "bob", "x");
  mail->addRecipient(3, "", "carol@example.com", m_log);
  mail->setHeaderField("Disposition-Notification-To", "alice@example.com", m_log);
  mail->setHeaderField("SVX-Bounce-Address", "bounces@example.com", m_log);
  mail->setContentDispositionUtf8("attachment", "a.txt", m_log);
  const EmailPtr outer = detached(*mail);
  std::vector<std::string> kept = fieldNames(*mail);
  for (const char* gone : {"Disposition-Notification-To", "Content-Transfer-Encoding", "Content-Disposition"})
    std::erase(kept, gone);
  kept.emplace_back("X-MS-Has-Attach");
  EXPECT_THAT(fieldNames(*outer), testing::UnorderedElementsAreArray(kept)) << "each once";
  for (const char* name :
       {"From", "To", "Subject", "Date", "Message-ID", "MIME-Version", "SVX-Bounce-Address"})
    EXPECT_EQ(field(*outer, name), field(*mail, name));
  EXPECT_EQ(outer->getNumRecipients(1), 1);
  EXPECT_EQ(outer->getNumRecipients(3), 1) << "as a record";
  EXPECT_EQ(field(*outer->getPart(0), "SVX-Bounce-Address"), "(absent)");
  EXPECT_THAT(std::string(opaque(*mail)->m_body.view()), HasSubstr("SVX-Bounce-Address: bounces@"));
  EXPECT_EQ(fieldNames(*outer->getPart(1)),
            (std::vector<std::string>{"Content-Transfer-Encoding", "Content-Type", "Content-Disposition"}));
}

TEST_F(Sealing, signed_content_is_written_anew_once_it_changed) {
  const EmailPtr outer = detached(*letter("alice", "bob", "Hello"));
  outer->getPart(0)->m_body.append("!");
  EXPECT_EQ(layersOf(*received(*outer)), "detached-signature 1 invalid");
}

TEST_F(Sealing, copied_fields_leave_out_those_of_the_content) {
  Email2 target;
  MimeHeader source;
  source.loadMimeHeaderText("Subject: a\r\ncontent-DISPOSITION: inline\r\nX-A: 1\r\nX-A: 2\r\n", m_log);
  std::vector<std::string> fields = fieldNames(target);
  EXPECT_TRUE(target.copyHeadersForMultipartSigned(source, m_log));
  fields.insert(fields.end(), {"Subject", "X-A", "X-A"});
  EXPECT_EQ(fieldNames(target), fields);
}

// Encrypting

TEST_F(Sealing, every_recipient_and_nobody_else_reads_it) {
  const std::tuple<int, int, const char*, const char*> rows[] = {
      {0, 0, "smime-type=enveloped-data", "enveloped 1 open"},
      {1, 0, "smime-type=authEnveloped-data", "auth-enveloped 1 open"},
      {0, 1, "smime-type=enveloped-data", "enveloped 1 open"},
  };
  for (const auto& [cipher, transport, smimeType, layers] : rows) {
    const EmailPtr mail = letter("alice", "bob", "For two\r\n");
    mail->addRecipient(2, "", "carol@example.com", m_log);
    mail->setHeaderField("SVX-Secret", "x", m_log);
    const EmailPtr message = encrypted(*mail, cipher, transport);
    ASSERT_TRUE(message) << log();
    const std::string written = write(*message, kPlain);
    EXPECT_THAT(written, testing::AllOf(HasSubstr(smimeType), HasSubstr("Subject: A letter"),
                                        Not(HasSubstr("For two"))));
    for (const char* reader : {"bob", "carol"}) {
      Identities one{reader};
      const EmailPtr back = receive(written, one.certs);
      EXPECT_EQ(layersOf(*back), layers) << reader;
      EXPECT_EQ(sumOf(*back), "0 signed, 1 encrypted, valid, decrypted");
      EXPECT_EQ(back->m_body.view(), "For two\r\n") << reader;
      EXPECT_EQ(back->getEncryptedBy(0, m_log), one[reader]);
      const auto isSecret = [](const InnerField& inner) { return inner.name == "SVX-Secret"; };
      EXPECT_TRUE(std::ranges::any_of(back->m_common->m_innerFields, isSecret)) << "it goes along inside";
    }
    Identities alice{"alice", "-bob"};
    EXPECT_FALSE(receive(written, alice.certs)->getAllDataDecrypted());
  }
}

TEST_F(Sealing, certificates_given_stand_before_those_of_the_recipients) {
  const EmailPtr mail = letter("alice", "nobody", "x");
  mail->addEncryptCert(nullptr);
  mail->setEncryptCert(m_people["alice"]);
  mail->setEncryptCert(m_people["bob"]);
  mail->setEncryptCert(mail->getEncryptCert(m_log));
  EXPECT_EQ(mail->getEncryptCert(m_log), m_people["bob"]);
  const EmailPtr message = encrypted(*mail);
  ASSERT_TRUE(message);
  EXPECT_THAT(log(), testing::AllOf(HasSubstr("Using explicit certificates for encryption."),
                                    HasSubstr("Using explicitly specified certificates..."),
                                    Not(HasSubstr("toAddr"))));
  Identities bob{"bob"}, alice{"alice"};
  EXPECT_TRUE(receive(write(*message), bob.certs)->getAllDataDecrypted());
  EXPECT_FALSE(receive(write(*message), alice.certs)->getAllDataDecrypted());
  mail->clearEncryptCerts();
  EXPECT_FALSE(mail->getEncryptCert(m_log));
}

TEST_F(Sealing, every_recipient_is_looked_up_before_it_fails) {
  const EmailPtr mail = letter("alice", "bob", "x");
  mail->addRecipient(2, "", "nobody@example.com", m_log);
  mail->addRecipient(2, "", "carol@example.com", m_log);
  mail->addRecipient(3, "", "noone@example.com", m_log);
  m_log.clear();
  EXPECT_FALSE(encrypted(*mail));
  std::string seen;
  for (const LogEntry& entry : m_log.entries())
    if (entry.kind == LogEntry::Kind::Data || entry.kind == LogEntry::Kind::Error)
      seen += entry.tag + (entry.tag.find("DN") == std::string::npos ? "=" + entry.text : "") + "\n";
  EXPECT_EQ(seen,
            "toAddr=bob@example.com\nto_certDN\n"
            "ccAddr=nobody@example.com\nNoCertificateFound=nobody@example.com\n"
            "ccAddr=carol@example.com\ncc_certDN\n"
            "bccAddr=noone@example.com\nNoCertificateFound=noone@example.com\n"
            "=Failed to find one or more certificates for encryption\n");
}

TEST_F(Sealing, encrypting_fails_with_a_reason) {
  Email2 mail;
  EXPECT_FALSE(encrypted(mail));
  EXPECT_THAT(log(), HasSubstr("No recipients for encryption."));
  mail.setEncryptCert(m_people["bob"]);
  EXPECT_FALSE(encrypted(mail, /*cipher=*/99));
  EXPECT_THAT(log(), HasSubstr("Failed to encrypt message"));
}

}  // namespace
}  // namespace mailtree
