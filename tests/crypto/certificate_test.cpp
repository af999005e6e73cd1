#include "mailtree/crypto/Certificate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "mailtree/base/Log.h"
#include "tests/support/identities.h"

namespace mailtree {
namespace {

std::string described(const std::string& file) {
  const auto certificate = identity(file);
  std::string text = file + ' ' + certificate->keyAlgorithm() + std::to_string(certificate->keyBits());
  if (certificate->isFitFor(CertificateUse::sign)) text += " signs";
  if (certificate->isFitFor(CertificateUse::encrypt)) text += " encrypts";
  for (const std::string& address : certificate->emailAddresses()) text += ' ' + address;
  return text;
}

TEST(Certificate, knows_what_it_was_issued_for) {
  for (const std::string wanted : {
           "alice.pem RSA2048 signs encrypts alice@example.com",
           "dave.pem EC384 signs encrypts dave@example.com",
           "mallory.pem RSA2048 signs mallory@example.net",
           "oscar.pem RSA2048 encrypts oscar@example.com",
           "ed25519.pem ED25519256 signs",
           "webserver.pem RSA2048 webserver@example.com",       // no e-mail protection
           "root.pem RSA3072",                                  // signs certificates only
           "heidi.pem EC256 signs encrypts Heidi@EXAMPLE.com",  // no usage: any usage
           "ivan.pem EC256 signs encrypts иван@example.com",
       })
    EXPECT_EQ(described(wanted.substr(0, wanted.find(' '))), wanted);
}

TEST(Certificate, names_subject_and_issuer_in_utf8) {
  LogNull log;
  XString subject, issuer;
  const auto heidi = identity("heidi.pem");
  EXPECT_TRUE(heidi->getSubjectDN(subject, log) && heidi->getIssuerDN(issuer, log));
  EXPECT_EQ(subject.view(), "emailAddress=Heidi@EXAMPLE.com,CN=Heidi Müller");
  EXPECT_EQ(issuer.view(), "CN=Test Issuer,O=Mailtree Tests");
  EXPECT_FALSE(heidi->isSelfIssued());
  EXPECT_TRUE(identity("root.pem")->isSelfIssued());
}

TEST(Certificate, is_for_an_address_whatever_the_case_of_its_domain) {
  using namespace std::string_literals;
  const std::vector<std::tuple<const char*, std::string, bool>> rows = {
      {"alice.pem", "alice@Example.COM", true},
      {"alice.pem", "Alice@example.com", false},
      {"alice.pem", "alice@example.com.", false},
      {"alice.pem", "alice@example.com@example.net", false},
      {"alice.pem", "alice@example.com\0"s, false},
      {"alice.pem", "alice", false},
      {"alice.pem", "", false},
      {"ivan.pem", "иван@EXAMPLE.com", true},
      {"ed25519.pem", "", false},  // it has no address, and none is not one
  };
  for (const auto& [file, address, isFor] : rows)
    EXPECT_EQ(identity(file)->isForAddress(address), isFor) << file << " " << address;
}

TEST(Certificate, is_valid_from_its_first_to_its_last_second) {
  constexpr std::int64_t k2020 = 1577836800, k2070 = 3155760000;
  const auto alice = identity("alice.pem");
  EXPECT_TRUE(alice->isValidAt(k2020) && alice->isValidAt(k2070));
  EXPECT_FALSE(alice->isValidAt(k2020 - 1) || alice->isValidAt(k2070 + 1));
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

TEST(CertificateHolder, keeps_its_certificate_when_others_let_go_and_refuses_what_is_not_there) {
  LogNull log;
  ExtPtrArray copies;
  {
    ExtPtrArray holders;
    EXPECT_TRUE(CertificateHolder::appendNewCertHolder(identity("alice.pem").get(), holders, log));
    EXPECT_TRUE(CertificateHolder::appendNewCertHolder(identity("bob.pem").get(), holders, log));
    EXPECT_FALSE(CertificateHolder::appendNewCertHolder(nullptr, holders, log));
    EXPECT_TRUE(CertificateHolder::copyCertHolders(holders, copies));
  }
  ASSERT_EQ(copies.getSize(), 2);
  EXPECT_TRUE(CertificateHolder::getNthCert(copies, 1, log)->isForAddress("bob@example.com"));
  EXPECT_EQ(CertificateHolder::getNthCert(copies, 0)->refCount(), 1);
  for (const int index : {-1, 2}) EXPECT_EQ(CertificateHolder::getNthCert(copies, index, log), nullptr);
}

}  // namespace
}  // namespace mailtree
