#include <gtest/gtest.h>

#include "tests/secure/secure_mail.h"
#include "tests/support/dead_node.h"

namespace mailtree {
namespace {

struct Report {
  bool secure, valid, decrypted;
  int numSigned, numEncrypted;
};

TEST(SecurityState, the_first_report_decides_and_later_ones_only_take_back) {
  const struct {
    const char* what;
    std::vector<Report> reports;
    bool secure, valid, decrypted;
  } rows[] = {
      {"nothing", {}, false, false, false},
      {"valid, invalid, valid",
       {{true, true, true, 1, 0}, {true, false, true, 1, 0}, {true, true, true, 1, 0}},
       true,
       false,
       true},
      {"insecure", {{false, true, true, 1, 1}}, false, false, false},
      {"first counts nothing", {{true, true, false, 0, 0}}, true, true, false},
      {"decrypted, failed", {{true, true, true, 0, 1}, {true, true, false, 0, 1}}, true, true, false},
  };
  for (const auto& row : rows) {
    Email2 mail;
    for (const Report& r : row.reports)
      mail.accumulateSecurityInfo(r.secure, r.valid, r.decrypted, r.numSigned, r.numEncrypted);
    EXPECT_EQ(mail.m_common->m_receivedSecure, row.secure) << row.what;
    EXPECT_EQ(mail.getAllSignaturesValid(), row.valid) << row.what;
    EXPECT_EQ(mail.getAllDataDecrypted(), row.decrypted) << row.what;
  }
}

TEST(SecurityState, deliberately_a_report_that_counts_nothing_is_followed_by_another_first) {
  Email2 mail;
  mail.accumulateSecurityInfo(true, false, false, 0, 1);
  mail.accumulateSecurityInfo(true, true, true, 1, 0);
  EXPECT_TRUE(mail.getAllSignaturesValid());
  EXPECT_FALSE(mail.getAllDataDecrypted()) << "which counted";
}

TEST(SecurityState, what_was_received_is_told_by_counts_or_by_the_node_itself) {
  const struct {
    const char* type;
    int numSigned, numEncrypted;
    bool isSigned, isEncrypted;
  } rows[] = {
      {"text/plain", 0, 0, false, false},
      {"text/plain", 2, 1, true, true},
      {"application/x-PKCS7-signature", 0, 0, true, false},
      {"application/pkcs7", 0, 0, true, false},
      {"Application/pkcs7", 0, 0, false, false},
      {"application/X-pkcs7-MIME", 0, 0, false, true},
      {"multipart/signed", 0, 0, false, false},
  };
  for (const auto& row : rows) {
    Email2 mail;
    mail.m_contentType.m_type.setString(row.type);
    mail.accumulateSecurityInfo(true, true, true, row.numSigned, row.numEncrypted);
    EXPECT_EQ(mail.getReceivedSigned(), row.isSigned) << row.type << row.numSigned;
    EXPECT_EQ(mail.getReceivedEncrypted(), row.isEncrypted) << row.type << row.numSigned;
  }
}

TEST(SecurityState, certificates_are_lent_by_index) {
  Identities people{"-alice"};
  LogNull log;
  Email2 mail;
  EXPECT_FALSE(mail.getSignedBy(0, log));
  CertificateHolder::appendNewCertHolder(people["alice"], mail.m_common->m_signerCerts, log);
  CertificateHolder::appendNewCertHolder(people["alice"], mail.m_common->m_decryptCerts, log);
  EXPECT_EQ(mail.getSignedBy(0, log), people["alice"]);
  EXPECT_EQ(mail.getEncryptedBy(0, log), people["alice"]);
  EXPECT_FALSE(mail.getSignedBy(1, log));
  EXPECT_FALSE(mail.getEncryptedBy(-1, log));
}

TEST(SecurityState, a_destroyed_node_answers_the_plain_questions_and_no_others) {
  Identities people{"-alice"};
  LogMemory log;
  Email2 mail;
  mail.setSendSigned(true);
  mail.accumulateSecurityInfo(true, true, true, 1, 1);
  mail.addEncryptCert(people["alice"]);
  const Killed killed(mail);
  mail.setSendSigned(false);
  mail.setSendEncrypted(true);
  mail.clearEncryptCerts();
  mail.setSigningCert(people["alice"]);
  mail.accumulateSecurityInfo(true, false, false, 1, 1);
  EXPECT_TRUE(mail.getSendSigned() && mail.getAllSignaturesValid() && mail.getAllDataDecrypted());
  EXPECT_FALSE(mail.getSendEncrypted());
  EXPECT_EQ(mail.m_common->m_encryptCerts.getSize(), 1);
  EXPECT_FALSE(mail.getReceivedSigned() || mail.getReceivedEncrypted());
  EXPECT_FALSE(mail.getSigningCert(log) || mail.getEncryptCert(log) || mail.getSignedBy(0, log));
  EXPECT_EQ(countMessages(log), 0);
}

}  // namespace
}  // namespace mailtree
