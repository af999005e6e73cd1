#include <gtest/gtest.h>

#include "tests/secure/secure_mail.h"
#include "tests/support/dead_node.h"

namespace mailtree {
namespace {

TEST(SecurityState, the_first_report_decides_and_later_ones_only_take_back) {
  struct Report {
    bool secure, valid, decrypted;
    int numSigned, numEncrypted;
  };
  const std::pair<std::vector<Report>, const char*> rows[] = {
      {{}, "nothing"},
      {{{true, true, true, 1, 0}, {true, false, true, 1, 0}, {true, true, true, 1, 0}},
       "3 signed, 0 encrypted, invalid, decrypted"},
      {{{false, true, true, 1, 1}}, "nothing"},
      {{{true, true, true, 0, 1}, {true, true, false, 0, 1}},
       "0 signed, 2 encrypted, valid, not all decrypted"},
      // Deliberate: a report that counts nothing is followed by another first.
      {{{true, false, false, 0, 1}, {true, true, true, 1, 0}},
       "1 signed, 1 encrypted, valid, not all decrypted"},
  };
  for (const auto& [reports, sum] : rows) {
    Email2 mail;
    for (const Report& r : reports)
      mail.accumulateSecurityInfo(r.secure, r.valid, r.decrypted, r.numSigned, r.numEncrypted);
    EXPECT_EQ(sumOf(mail), sum);
  }
}

TEST(SecurityState, what_was_received_is_told_by_counts_or_by_the_node_itself) {
  const std::tuple<const char*, int, int, bool, bool> rows[] = {
      {"text/plain", 0, 0, false, false},
      {"text/plain", 2, 1, true, true},
      {"application/x-PKCS7-signature", 0, 0, true, false},
      {"application/pkcs7", 0, 0, true, false},
      {"Application/pkcs7", 0, 0, false, false},
      {"application/X-pkcs7-MIME", 0, 0, false, true},
  };
  for (const auto& [type, numSigned, numEncrypted, isSigned, isEncrypted] : rows) {
    Email2 mail;
    mail.m_contentType.m_type.setString(type);
    mail.accumulateSecurityInfo(true, true, true, numSigned, numEncrypted);
    EXPECT_EQ(mail.getReceivedSigned(), isSigned) << type << numSigned;
    EXPECT_EQ(mail.getReceivedEncrypted(), isEncrypted) << type << numSigned;
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
  EXPECT_FALSE(mail.getSignedBy(1, log) || mail.getEncryptedBy(-1, log));
}

TEST(SecurityState, a_destroyed_node_answers_the_plain_questions_and_does_nothing) {
  Identities people{"alice"};
  _clsCades cades;
  LogMemory log;
  const EmailPtr mail = letter("alice", "alice", "x");
  mail->setSendSigned(true);
  mail->accumulateSecurityInfo(true, true, true, 1, 1);
  mail->addEncryptCert(people["alice"]);
  CertificateHolder::appendNewCertHolder(people["alice"], mail->m_common->m_signerCerts, log);
  const Killed killed(*mail);
  mail->setSendSigned(false);
  mail->setSendEncrypted(true);
  mail->clearEncryptCerts();
  mail->setSigningCert(people["alice"]);
  mail->accumulateSecurityInfo(true, false, false, 1, 1);
  EXPECT_TRUE(mail->getSendSigned());
  EXPECT_EQ(sumOf(*mail), "1 signed, 1 encrypted, valid, decrypted");
  EXPECT_FALSE(mail->getSendEncrypted());
  EXPECT_EQ(mail->m_common->m_encryptCerts.getSize(), 1);
  EXPECT_FALSE(mail->getReceivedSigned() || mail->getReceivedEncrypted());
  EXPECT_FALSE(mail->getSigningCert(log) || mail->getEncryptCert(log) || mail->getSignedBy(0, log));
  EXPECT_FALSE(mail->createMultipartSigned(true, true, true, cades, "a", people.certs, log) ||
               mail->createSignedData(true, true, true, cades, "a", people.certs, log) ||
               mail->createPkcs7Mime(0, 256, 0, 0, false, "a", people.certs, log));
  EXPECT_EQ(countMessages(log), 0);
}

}  // namespace
}  // namespace mailtree
