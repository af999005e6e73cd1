#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/secure/secure_mail.h"
#include "tests/support/dead_node.h"
#include "tests/support/messages.h"

namespace mailtree {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class Enveloping : public ::testing::Test {
 protected:
  EmailPtr encrypted(Email2& mail, int cipher = 0, int transport = 0) {
    return EmailPtr(
        mail.createPkcs7Mime(cipher, 256, transport, 0, false, "smime.p7m", m_people.certs, m_log));
  }
  std::string log() const { return m_log.text(); }

  Identities m_people{"alice", "bob", "carol"};
  LogMemory m_log;
};

TEST_F(Enveloping, every_recipient_and_nobody_else_reads_it) {
  const struct {
    const char* what;
    int cipher, transport;
    const char *smimeType, *layers;
  } rows[] = {
      {"cbc", 0, 0, "smime-type=enveloped-data", "enveloped 1 open"},
      {"gcm", 1, 0, "smime-type=authEnveloped-data", "auth-enveloped 1 open"},
      {"oaep", 0, 1, "smime-type=enveloped-data", "enveloped 1 open"},
      {"3des", 2, 0, "smime-type=enveloped-data", "enveloped 1 open"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = letter("alice", "bob", "For two\r\n");
    mail->addRecipient(2, "", "carol@example.com", m_log);
    mail->setHeaderField("SVX-Secret", "x", m_log);
    const EmailPtr message = encrypted(*mail, row.cipher, row.transport);
    ASSERT_TRUE(message) << row.what << log();
    const std::string written = write(*message, {.omitPrefix = "SVX-"});
    EXPECT_THAT(written, HasSubstr(row.smimeType)) << row.what;
    EXPECT_THAT(written, Not(HasSubstr("For two")));
    EXPECT_THAT(written, HasSubstr("Subject: A letter"));
    for (const char* reader : {"bob", "carol"}) {
      Identities one{reader};
      const EmailPtr received = receive(written, one.certs);
      EXPECT_EQ(layersOf(*received), row.layers) << row.what << reader;
      EXPECT_EQ(received->m_body.view(), "For two\r\n") << row.what << reader;
      EXPECT_EQ(received->getEncryptedBy(0, m_log)->fingerprint(), one[reader]->fingerprint());
      EXPECT_TRUE(received->getReceivedEncrypted() && received->getAllDataDecrypted());
      const auto isSecret = [](const InnerField& inner) { return inner.name == "SVX-Secret"; };
      EXPECT_TRUE(std::ranges::any_of(received->m_common->m_innerFields, isSecret)) << "it goes along inside";
    }
    Identities alice{"alice", "-bob"};
    EXPECT_FALSE(receive(written, alice.certs)->getAllDataDecrypted()) << row.what;
  }
}

TEST_F(Enveloping, certificates_given_stand_before_those_of_the_recipients) {
  const EmailPtr mail = letter("alice", "nobody", "x");
  mail->addEncryptCert(nullptr);
  mail->setEncryptCert(m_people["alice"]);
  mail->setEncryptCert(m_people["bob"]);
  mail->setEncryptCert(mail->getEncryptCert(m_log));
  EXPECT_EQ(mail->getEncryptCert(m_log), m_people["bob"]);
  const EmailPtr message = encrypted(*mail);
  ASSERT_TRUE(message);
  EXPECT_THAT(log(), HasSubstr("Using explicit certificates for encryption."));
  EXPECT_THAT(log(), HasSubstr("Using explicitly specified certificates..."));
  EXPECT_THAT(log(), Not(HasSubstr("toAddr")));
  Identities bob{"bob"}, alice{"alice"};
  EXPECT_TRUE(receive(write(*message), bob.certs)->getAllDataDecrypted());
  EXPECT_FALSE(receive(write(*message), alice.certs)->getAllDataDecrypted());
  mail->clearEncryptCerts();
  EXPECT_FALSE(mail->getEncryptCert(m_log));
}

TEST_F(Enveloping, every_recipient_is_looked_up_before_it_fails) {
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

TEST_F(Enveloping, fails_with_a_reason) {
  Email2 mail;
  EXPECT_FALSE(encrypted(mail));
  EXPECT_THAT(log(), HasSubstr("No recipients for encryption."));
  mail.setEncryptCert(m_people["bob"]);
  EXPECT_FALSE(encrypted(mail, /*cipher=*/99));
  EXPECT_THAT(log(), HasSubstr("Failed to encrypt message"));
  m_log.clear();
  const Killed killed(mail);
  EXPECT_FALSE(encrypted(mail));
  EXPECT_EQ(countMessages(m_log), 0);
}

}  // namespace
}  // namespace mailtree
