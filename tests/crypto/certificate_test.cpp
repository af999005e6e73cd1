#include "mailtree/crypto/Certificate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "mailtree/base/Log.h"
#include "tests/support/identities.h"

namespace mailtree {
namespace {

constexpr std::int64_t k2020 = 1577836800, k2070 = 3155760000;

TEST(Certificate, knows_what_it_was_issued_for) {
  const struct {
    const char* file;
    const char* algorithm;
    int bits;
    bool signs, encrypts;
    std::vector<std::string> addresses;
  } rows[] = {
      {"alice.pem", "RSA", 2048, true, true, {"alice@example.com"}},
      {"carol.pem", "EC", 256, true, true, {"carol@example.com"}},
      {"dave.pem", "EC", 384, true, true, {"dave@example.com"}},
      {"weak.pem", "RSA", 1024, true, true, {"weak@example.com"}},
      {"mallory.pem", "RSA", 2048, true, false, {"mallory@example.net"}},
      {"oscar.pem", "RSA", 2048, false, true, {"oscar@example.com"}},
      {"ed25519.pem", "ED25519", 256, true, false, {}},
      {"webserver.pem", "RSA", 2048, false, false, {"webserver@example.com"}},  // no e-mail protection
      {"root.pem", "RSA", 3072, false, false, {}},                              // signs certificates only
      {"heidi.pem", "EC", 256, true, true, {"Heidi@EXAMPLE.com"}},              // no usage: any usage
      {"ivan.pem", "EC", 256, true, true, {"иван@example.com"}},
  };
  for (const auto& row : rows) {
    const auto certificate = identity(row.file);
    ASSERT_TRUE(certificate) << row.file;
    EXPECT_EQ(certificate->keyAlgorithm(), row.algorithm) << row.file;
    EXPECT_EQ(certificate->keyBits(), row.bits) << row.file;
    EXPECT_EQ(certificate->isFitFor(CertificateUse::sign), row.signs) << row.file;
    EXPECT_EQ(certificate->isFitFor(CertificateUse::encrypt), row.encrypts) << row.file;
    EXPECT_EQ(certificate->emailAddresses(), row.addresses) << row.file;
  }
}

TEST(Certificate, names_subject_and_issuer_in_utf8) {
  LogNull log;
  XString name;
  const auto heidi = identity("heidi.pem");
  EXPECT_TRUE(heidi->getSubjectDN(name, log));
  EXPECT_EQ(name.view(), "emailAddress=Heidi@EXAMPLE.com,CN=Heidi Müller");
  EXPECT_TRUE(heidi->getIssuerDN(name, log));
  EXPECT_EQ(name.view(), "CN=Test Issuer,O=Mailtree Tests");
  EXPECT_FALSE(heidi->isSelfIssued());
  EXPECT_TRUE(identity("root.pem")->isSelfIssued());
}

TEST(Certificate, is_for_an_address_whatever_the_case_of_its_domain) {
  const struct {
    const char* file;
    std::string address;
    bool isFor;
  } rows[] = {
      {"alice.pem", "alice@example.com", true},
      {"alice.pem", "alice@Example.COM", true},
      {"alice.pem", "Alice@example.com", false},
      {"alice.pem", "alice@example.co", false},
      {"alice.pem", "alice@example.com.", false},
      {"alice.pem", "malice@example.com", false},
      {"alice.pem", "alice@example.com@example.net", false},
      {"alice.pem", std::string("alice@example.com\0", 18), false},
      {"alice.pem", "alice", false},
      {"alice.pem", "", false},
      {"heidi.pem", "Heidi@example.com", true},
      {"heidi.pem", "heidi@example.com", false},
      {"ivan.pem", "иван@EXAMPLE.com", true},
      {"ed25519.pem", "", false},  // it has no address, and none is not one
  };
  for (const auto& row : rows)
    EXPECT_EQ(identity(row.file)->isForAddress(row.address), row.isFor) << row.file << " " << row.address;
}

TEST(Certificate, is_valid_from_its_first_to_its_last_second) {
  const struct {
    const char* file;
    std::int64_t from, until;
  } rows[] = {{"alice.pem", k2020, k2070}, {"expired.pem", 978307200, 1009843200}};
  for (const auto& row : rows) {
    const auto certificate = identity(row.file);
    EXPECT_FALSE(certificate->isValidAt(row.from - 1)) << row.file;
    EXPECT_TRUE(certificate->isValidAt(row.from)) << row.file;
    EXPECT_TRUE(certificate->isValidAt(row.until)) << row.file;
    EXPECT_FALSE(certificate->isValidAt(row.until + 1)) << row.file;
  }
}

TEST(Certificate, is_read_whole_or_not_at_all) {
  LogMemory log;
  const std::string der(identity("alice.pem")->der().view());
  for (std::size_t size = 0; size < der.size(); ++size)
    ASSERT_EQ(Certificate::createFromDer(std::string_view(der).substr(0, size), log), nullptr) << size;
  EXPECT_FALSE(log.entries().empty());
  const RefPtr<Certificate> whole(Certificate::createFromDer(der + "\r\n", log));
  ASSERT_TRUE(whole);
  EXPECT_EQ(whole->der().view(), der);
  EXPECT_EQ(whole->fingerprint(), identity("formats/certificate.der")->fingerprint());
}

TEST(Certificate, passes_over_an_address_that_hides_something_behind_a_control_character) {
  LogNull log;
  for (const char hidden : {'\0', '\n', '\r'}) {
    std::string der(identity("alice.pem")->der().view());
    der[der.find("alice@example.com") + 13] = hidden;
    const RefPtr<Certificate> certificate(Certificate::createFromDer(der, log));
    ASSERT_TRUE(certificate) << int{hidden};
    EXPECT_TRUE(certificate->emailAddresses().empty()) << int{hidden};
    EXPECT_FALSE(certificate->isForAddress("alice@example")) << int{hidden};
  }
}

TEST(Certificate, is_read_by_several_threads_of_which_any_is_the_first) {
  DataBuffer der;
  LogNull log;
  ASSERT_TRUE(der.loadFileUtf8(identityFile("formats/certificate.der").c_str(), log));
  std::vector<std::string> algorithms(8);
  std::vector<std::thread> threads;
  for (std::string& algorithm : algorithms)
    threads.emplace_back([&] {
      LogNull quiet;
      const RefPtr<Certificate> certificate(Certificate::createFromDer(der.view(), quiet));
      if (certificate) algorithm = certificate->keyAlgorithm();
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(algorithms, testing::Each("RSA"));
}

TEST(CertificateHolder, keeps_its_certificate_when_others_let_go) {
  LogNull log;
  ExtPtrArray copies;
  {
    ExtPtrArray holders;
    ASSERT_TRUE(CertificateHolder::appendNewCertHolder(identity("alice.pem").get(), holders, log));
    ASSERT_TRUE(CertificateHolder::appendNewCertHolder(identity("bob.pem").get(), holders, log));
    ASSERT_TRUE(CertificateHolder::copyCertHolders(holders, copies));
  }
  ASSERT_EQ(copies.getSize(), 2);
  EXPECT_TRUE(CertificateHolder::getNthCert(copies, 1, log)->isForAddress("bob@example.com"));
  EXPECT_EQ(CertificateHolder::getNthCert(copies, 0)->refCount(), 1);
}

TEST(CertificateHolder, refuses_what_is_not_there) {
  LogNull log;
  ExtPtrArray holders;
  EXPECT_EQ(CertificateHolder::createFromCert(nullptr, log), nullptr);
  EXPECT_FALSE(CertificateHolder::appendNewCertHolder(nullptr, holders, log));
  EXPECT_EQ(holders.getSize(), 0);
  for (const int index : {-1, 0, 1}) EXPECT_EQ(CertificateHolder::getNthCert(holders, index, log), nullptr);
}

}  // namespace
}  // namespace mailtree
