#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "mailtree/base/Log.h"
#include "mailtree/crypto/Der.h"
#include "tests/cli/command.h"
#include "tests/support/identities.h"

namespace mailtree {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

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

TEST(Certificate, is_for_an_address_in_any_case_of_its_domain) {
  const std::vector<std::tuple<const char*, std::string, bool>> rows = {
      {"alice.pem", "alice@Example.COM", true},
      {"alice.pem", "Alice@example.com", false},
      {"alice.pem", "alice@example.com.", false},
      {"alice.pem", "alice@example.com@example.net", false},
      {"alice.pem", std::string("alice@example.com\0", 18), false},
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

TEST(Certificate, passes_over_an_address_that_hides_something_after_a_control_character) {
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
  const std::string der = cli_test::readFile(identityFile("formats/certificate.der"));
  std::vector<std::string> algorithms(8);
  std::vector<std::thread> threads;
  for (std::string& algorithm : algorithms)
    threads.emplace_back([&] {
      LogNull quiet;
      const RefPtr<Certificate> certificate(Certificate::createFromDer(der, quiet));
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

// Stores of certificates

std::string contentOf(const std::string& file) { return cli_test::readFile(identityFile(file)); }

std::string nameOf(const Certificate& certificate) {
  LogNull log;
  XString name;
  EXPECT_TRUE(certificate.getSubjectDN(name, log));
  const std::string text(name.view());
  const std::size_t begin = text.find("CN=") + 3;
  return text.substr(begin, text.find(',', begin) - begin) + (certificate.hasPrivateKey() ? "*" : "");
}

/// "Alice*, Bob": Alice with her key.
template <class Certificates>
std::string namesOf(const Certificates& certificates) {
  std::string names;
  for (const auto& each : certificates) names += (names.empty() ? "" : ", ") + nameOf(*each);
  return names;
}

std::string namesIn(const SystemCerts& certs) {
  std::vector<Certificate*> all;
  for (int i = 0; i < certs.getNumCertificates(); ++i) all.push_back(certs.getCertificate(i));
  return namesOf(all);
}

/// How many were added, or why there were none.
std::string readWith(const std::string& file, const char* password) {
  SystemCerts certs;
  LogMemory log;
  const int added = certs.addFromFile(identityFile(file).c_str(), password, log);
  const std::string text = log.text();
  if (password && *password && contains(text, password)) return "tells the password";
  if (log.entries().empty()) return std::to_string(added);
  if (added) return text;
  for (const char* problem : {"needs a password", "wrong password", "no certificate or key"})
    if (contains(text, problem)) return std::string(problem, std::string_view(problem).find(' '));
  return text;
}

TEST(SystemCerts, reads_every_form_with_the_password_it_needs) {
  // Without a password, with an empty one, a wrong one, the right one.
  const std::pair<const char*, std::vector<const char*>> rows[] = {
      {"1 1 1 1",
       {"alice.pem", "alice.key", "formats/certificate.der", "formats/trusted.pem", "formats/key.der",
        "formats/key-traditional.pem", "formats/key-after-parameters.pem"}},
      {"2 2 2 2", {"chain.pem", "formats/empty-password.p12", "formats/unprotected.p12"}},
      {"3 3 3 3", {"formats/bundle.p7b", "formats/bundle.p7b.pem"}},
      {"needs needs wrong 1",
       {"formats/key-encrypted.pem", "formats/key-encrypted.der", "formats/key-traditional-encrypted.pem"}},
      {"needs needs wrong 2", {"formats/rc2-40.p12"}},
      {"needs needs wrong 4", {"alice.p12"}},
      {"no no no no", {"formats/public-key.der", "formats/revoked.der", "revoked.crl", "README.md"}},
  };
  for (const auto& [outcomes, files] : rows)
    for (const char* file : files)
      EXPECT_EQ(readWith(file, nullptr) + ' ' + readWith(file, "") + ' ' + readWith(file, "other") + ' ' +
                    readWith(file, kIdentityPassword),
                outcomes)
          << file;
}

TEST(SystemCerts, finds_the_blocks_in_any_text) {
  const std::string alice = contentOf("alice.pem"), bob = contentOf("bob.pem");
  const std::string begin = "-----BEGIN CERTIFICATE-----\n", end = "-----END CERTIFICATE-----\n";
  std::string crlf = alice + bob, oneLine = alice;
  for (std::size_t i = 0; (i = crlf.find('\n', i)) != std::string::npos; i += 2) crlf.insert(i, "\r");
  oneLine.erase(std::remove(oneLine.begin() + 28, oneLine.end() - 27, '\n'), oneLine.end() - 27);
  const std::tuple<std::string, const char*, const char*> rows[] = {
      {"Subject: CN=Alice\n" + alice + "\nand\n" + bob + "end", "Alice, Bob", ""},
      {crlf, "Alice, Bob", ""},
      {oneLine, "Alice", ""},
      {alice.substr(0, alice.size() - 1), "Alice", ""},
      {alice + begin + "AAAA\n" + end + bob, "Alice, Bob", "damaged"},
      {alice + begin + "A=B?\n" + end + bob, "Alice, Bob", "damaged"},
      {begin + "AAAA\n" + bob, "Bob", ""},
      {end + bob, "Bob", ""},
      {bob + alice.substr(0, 600), "Bob", ""},
      {begin + "AAAA\n-----END X509 CRL-----\n" + bob, "Bob", ""},
      {"-----BEGIN LETTER-----\nAAAA\n-----END LETTER-----\n" + bob, "Bob", ""},
      {begin, "", "no certificate"},
      {"", "", "no certificate"},
  };
  for (const auto& [text, names, problem] : rows) {
    SCOPED_TRACE(text);
    SystemCerts certs;
    LogMemory log;
    const int added = certs.addFromData(text, nullptr, log);
    EXPECT_EQ(added, certs.getNumCertificates());
    EXPECT_EQ(namesIn(certs), names);
    EXPECT_EQ(log.entries().empty(), *problem == '\0') << log.text();
    EXPECT_THAT(log.text(), HasSubstr(problem));
  }
}

TEST(SystemCerts, reads_a_text_of_nothing_but_beginnings_in_one_pass) {
  std::string text;
  while (text.size() < 8'000'000) text += "-----BEGIN CERTIFICATE-----\n";
  SystemCerts certs;
  LogNull log;
  EXPECT_EQ(certs.addFromData(text, nullptr, log), 0);
  EXPECT_EQ(certs.addFromData(text + contentOf("bob.pem"), nullptr, log), 1);
}

TEST(SystemCerts, survives_any_cut_and_any_changed_byte) {
  LogNull log;
  for (const char* file :
       {"alice.p12", "formats/bundle.p7b", "formats/key-encrypted.der", "formats/key.der"}) {
    const std::string whole = contentOf(file);
    for (std::size_t i = 0; i < whole.size(); i += 41) {
      SystemCerts certs;
      EXPECT_EQ(certs.addFromData(whole.substr(0, i), nullptr, log), 0) << file << " cut to " << i;
      std::string changed = whole;
      changed[i] = static_cast<char>(changed[i] ^ 0x41);
      certs.addFromData(changed, nullptr, log);
    }
  }
}

/// The DER structure with each INTEGER 2048, the usual count of rounds, being 2^31 - 1.
std::string withManyRounds(std::string_view der) {
  std::string changed;
  DerReader elements(der);
  while (const auto each = elements.next())
    changed += derOf([&](DerBackwardWriter& out) {
      const bool isCount = each->tag == kDerInteger && each->content == std::string_view("\x08\x00", 2);
      out.put(isCount                     ? "\x7F\xFF\xFF\xFF"
              : each->tag == kDerSequence ? withManyRounds(each->content)
                                          : std::string(each->content));
      out.wrap(each->tag, 0);
    });
  return changed;
}

TEST(SystemCerts, refuses_files_that_would_keep_it_busy_for_hours) {
  for (const char* file : {"alice.p12", "formats/key-encrypted.der"}) {
    SystemCerts certs;
    LogMemory log;
    EXPECT_EQ(certs.addFromData(withManyRounds(contentOf(file)), kIdentityPassword, log), 0) << file;
    EXPECT_THAT(log.text(), HasSubstr("too many rounds")) << file;
  }
}

TEST(SystemCerts, refuses_files_that_are_too_big_or_endless) {
  const cli_test::Workspace work;
  const std::string big = work.write("big.pem", contentOf("alice.pem"));
  SystemCerts certs;
  LogNull log;
  for (const int beyond : {1, 0}) {
    fs::resize_file(big, (16 << 20) + beyond);
    EXPECT_EQ(certs.addFromFile(big.c_str(), nullptr, log), 1 - beyond);
  }
  for (const char* path : {static_cast<const char*>(nullptr), "", "/dev/zero", "/", "/no/such/file"})
    EXPECT_EQ(certs.addFromFile(path, nullptr, log), 0) << (path ? path : "null");
}

TEST(SystemCerts, reads_a_folder_in_the_order_of_its_names) {
  const cli_test::Workspace work;
  fs::create_directories(work.path("below"));
  const std::pair<const char*, const char*> files[] = {
      {"bob.pem", "1.pem"}, {"alice.p12", "3.p12"}, {"README.md", "2.txt"}, {"dave.pem", "below/0.pem"}};
  for (const auto& [file, name] : files) fs::copy_file(identityFile(file), work.path(name));
  fs::create_symlink(identityFile("carol.pem"), work.path("0.pem"));
  fs::create_symlink("nowhere", work.path("4.pem"));

  SystemCerts certs, withoutPassword;
  LogMemory log;
  EXPECT_EQ(certs.addFromDirectory(work.folder().c_str(), kIdentityPassword, log), 6);
  EXPECT_EQ(namesIn(certs), "Carol, Bob, Alice*, Test Issuer, Test Root");
  EXPECT_EQ(log.text(), "");
  EXPECT_EQ(certs.addFromDirectory(work.path("nowhere").c_str(), nullptr, log), 0);
  log.m_verboseLogging = true;
  EXPECT_EQ(withoutPassword.addFromDirectory(work.folder().c_str(), nullptr, log), 2);
  EXPECT_THAT(log.text(), HasSubstr("needs a password"));
}

TEST(SystemCerts, joins_a_key_to_every_certificate_it_fits_whichever_came_first) {
  const std::pair<std::vector<const char*>, const char*> rows[] = {
      {{"alice.pem", "alice.key"}, "Alice*"},
      {{"alice.key", "alice.key", "alice.pem", "alice.pem"}, "Alice*"},
      {{"formats/key-encrypted.pem", "formats/certificate.der"}, "Alice*"},
      {{"alice.pem", "alice.key", "alice-older.pem"}, "Alice*, Alice*"},
      {{"alice.pem", "alice-older.pem", "alice.key"}, "Alice*, Alice*"},
      {{"formats/key-after-parameters.pem", "dave.pem", "carol.pem"}, "Dave, Carol*"},
      {{"ed25519.pem", "ed25519.key"}, "Ed25519*"},
      {{"impostor.key", "alice.pem"}, "Alice"},
      {{"alice.pem", "alice.p12"}, "Alice*, Test Issuer, Test Root"},
  };
  for (const auto& [files, names] : rows) {
    SystemCerts certs;
    for (const char* file : files) addIdentities(certs, {file});
    EXPECT_EQ(namesIn(certs), names) << testing::PrintToString(files);
  }
}

TEST(SystemCerts, keeps_the_certificate_with_the_key) {
  SystemCerts with, certs;
  addIdentities(with, {"alice.pem", "alice.key"});
  const RefPtr<Certificate> bare = identity("alice.pem");
  for (const auto& added : {bare, RefPtr<Certificate>(with.getCertificate(0)), bare})
    EXPECT_TRUE(certs.addCertificate(*added));
  EXPECT_EQ(namesIn(certs), "Alice*");
  EXPECT_FALSE(bare->hasPrivateKey());
  for (const int index : {-1, 1}) EXPECT_EQ(certs.getCertificate(index), nullptr) << index;
}

TEST(SystemCerts, finds_only_certificates_that_do_and_says_why_others_do_not) {
  SystemCerts certs;
  addIdentities(certs, {"alice-older.pem", "alice.pem", "alice.key", "impostor.pem", "bob.pem", "mallory.pem",
                        "mallory.key", "oscar.pem", "oscar.key", "expired.pem", "expired.key",
                        "webserver.pem", "heidi.pem", "ivan.pem", "ed25519.pem", "ed25519.key"});
  const std::tuple<const char*, bool, const char*> rows[] = {
      {"alice@example.com", true, "alice.pem"},  // the one that is valid longest; the first among equals
      {"alice@EXAMPLE.com", false, "alice.pem"},
      {"ALICE@example.com", true, ""},
      {"bob@example.com", true, "bob.pem"},
      {"bob@example.com", false, "it has no private key"},
      {"mallory@example.net", true, "key usage"},
      {"mallory@example.net", false, "mallory.pem"},
      {"oscar@example.com", false, "key usage"},
      {"expired@example.com", true, "expired or not yet valid"},
      {"иван@example.com", true, "ivan.pem"},
      {"", false, ""},
      {nullptr, false, ""},
  };
  for (const auto& [address, forEncryption, found] : rows) {
    LogMemory log;
    log.m_verboseLogging = true;
    const Certificate* const certificate = certs.findByEmailAddr(address, forEncryption, log);
    const bool isFound = std::string_view(found).ends_with(".pem");
    EXPECT_EQ(certificate ? certificate->fingerprint() : "", isFound ? identity(found)->fingerprint() : "");
    EXPECT_THAT(log.text(), HasSubstr(isFound ? "" : found)) << found;
  }
}

TEST(SystemCerts, a_revoked_certificate_is_not_found) {
  for (const bool forEncryption : {true, false})
    for (const char* anchor : {"root.pem", ""}) {
      SystemCerts certs;
      LogMemory log;
      log.m_verboseLogging = true;
      addIdentities(certs, {"chain.pem", "erin.pem", "erin.key", "alice.pem", "alice.key"});
      if (*anchor) certs.addTrustAnchors(identityFile(anchor).c_str(), log);
      EXPECT_TRUE(certs.findByEmailAddr("erin@example.com", forEncryption, log)) << anchor;
      certs.addRevocationLists(identityFile("revoked.crl").c_str(), log);
      EXPECT_FALSE(certs.findByEmailAddr("erin@example.com", forEncryption, log)) << anchor;
      EXPECT_THAT(log.text(), HasSubstr("it was revoked")) << anchor;
      EXPECT_TRUE(certs.findByEmailAddr("alice@example.com", forEncryption, log)) << anchor;
    }
}

TEST(SystemCerts, trusts_what_leads_to_an_anchor) {
  // Certificate, anchor, list, held, come with the message, time: verdict and problem.
  const char* const rows[] = {
      "alice.pem root.pem - intermediate.pem - 2025: trusted",
      "alice.pem root.pem - - intermediate.pem 2025: trusted",
      "alice.pem intermediate.pem - - - 2025: trusted",  // not self-signed
      "alice.pem alice.pem - - - 2025: trusted",
      "alice.pem root.pem - - - 2025: unable to get local issuer certificate",
      "alice.pem other-root.pem - chain.pem - 2025: self-signed certificate in certificate chain",
      "alice.pem - - chain.pem root.pem 2025: no trust anchors were given",
      "alice.pem root.pem - chain.pem - 2001: certificate is not yet valid",
      "alice.pem root.pem - chain.pem - 2071: certificate has expired",
      "impostor.pem root.pem - chain.pem other-root.pem 2025: self-signed certificate in certificate chain",
      "impostor.pem other-root.pem - - - 2025: trusted",
      "weak.pem root.pem - chain.pem - 2025: trusted",   // told elsewhere
      "oscar.pem root.pem - chain.pem - 2025: trusted",  // what it is fit for, too
      "judy.pem root.pem - web-issuer.pem - 2025: unsuitable certificate purpose",
      "erin.pem root.pem revoked.crl chain.pem - 2025: revoked certificate revoked",
      "erin.pem root.pem formats/revoked.der chain.pem - 2025: revoked certificate revoked",
      "erin.pem root.pem revoked-stale.crl chain.pem - 2025: revoked certificate revoked",
      "erin.pem root.pem revoked.crl chain.pem - 2001: revoked certificate revoked",  // at any time
      "erin.pem root.pem revoked.crl chain.pem - 2071: revoked certificate revoked",
      "erin.pem - revoked.crl chain.pem - 2025: revoked no trust anchors were given",
      "erin.pem - revoked.crl - intermediate.pem 2025: no trust anchors were given",  // came along
      "erin.pem root.pem other-root.crl chain.pem - 2025: trusted",                   // not its issuer's
      "alice.pem root.pem revoked.crl chain.pem - 2025: trusted",
      "alice.pem root.pem revoked.crl chain.pem - 2001: certificate is not yet valid",
      "alice.pem root.pem revoked-stale.crl chain.pem - 2025: trusted CRL has expired",
      "alice.pem root.pem revoked-stale.crl chain.pem - 2020: trusted",
  };
  for (const char* const row : rows) {
    std::istringstream fields(row);
    std::string certificate, anchor, list, held, other, year, verdict;
    std::getline(fields >> certificate >> anchor >> list >> held >> other >> year >> std::ws, verdict);
    SystemCerts certs;
    LogMemory log;
    if (held != "-") addIdentities(certs, {held.c_str()});
    if (anchor != "-") certs.addTrustAnchors(identityFile(anchor).c_str(), log);
    if (list != "-") certs.addRevocationLists(identityFile(list).c_str(), log);
    std::vector<RefPtr<Certificate>> others(1);
    if (other != "-") others[0] = identity(other);
    constexpr std::int64_t kDaysOfYear = 365, kSecondsOfDay = 86'400;
    const std::int64_t time = ((std::stoi(year) - 1970) * kDaysOfYear + 180) * kSecondsOfDay;
    const ChainVerdict found = certs.checkChain(*identity(certificate), others, time);
    std::string told = found.trusted ? "trusted" : "";
    if (found.revoked) told += "revoked";
    told += (told.empty() || found.problem.empty() ? "" : " ") + found.problem;
    EXPECT_EQ(told, verdict) << row;
    EXPECT_EQ(log.text(), "") << row;
  }
}

TEST(SystemCerts, a_list_that_the_issuer_did_not_sign_revokes_nobody) {
  const cli_test::Workspace work;
  std::string list = contentOf("formats/revoked.der");
  list.back() = static_cast<char>(list.back() ^ 1);
  SystemCerts certs;
  LogNull log;
  addIdentities(certs, {"chain.pem"});
  certs.addTrustAnchors(identityFile("root.pem").c_str(), log);
  ASSERT_EQ(certs.addRevocationLists(work.write("forged.crl", list).c_str(), log), 1);
  const ChainVerdict verdict = certs.checkChain(*identity("erin.pem"), {}, 1735689600);
  EXPECT_FALSE(verdict.revoked || verdict.trusted);
  EXPECT_THAT(verdict.problem, HasSubstr("CRL signature"));
}

TEST(SystemCerts, takes_anchors_and_lists_only_for_what_they_are) {
  SystemCerts certs;
  LogMemory log;
  for (const char* file : {"alice.key", "revoked.crl", "README.md", "nowhere.pem"}) {
    EXPECT_EQ(certs.addTrustAnchors(identityFile(file).c_str(), log), 0) << file;
    EXPECT_NE(std::exchange(log, LogMemory()).text(), "") << file;
  }
  EXPECT_FALSE(certs.hasTrustAnchors());
  for (const char* file : {"root.pem", "formats/certificate.der", "nowhere.crl"}) {
    EXPECT_EQ(certs.addRevocationLists(identityFile(file).c_str(), log), 0) << file;
    EXPECT_NE(std::exchange(log, LogMemory()).text(), "") << file;
  }
  EXPECT_EQ(certs.addTrustAnchorsFromData(contentOf("chain.pem"), log), 2);
  EXPECT_TRUE(certs.hasTrustAnchors());
  EXPECT_EQ(certs.getNumCertificates(), 0);
}

TEST(SystemCerts, follows_the_chain_as_far_as_it_is_held) {
  const std::tuple<const char*, std::vector<const char*>, const char*, const char*> rows[] = {
      {"alice.pem", {"root.pem"}, nullptr, ""},
      {"alice.pem", {"root.pem", "bob.pem", "intermediate.pem"}, nullptr, "Test Issuer, Test Root"},
      {"alice.pem", {"intermediate.pem"}, "root.pem", "Test Issuer, Test Root"},
      {"alice.pem", {"chain.pem"}, "intermediate.pem", "Test Issuer"},  // no further than to the anchor
      {"root.pem", {"chain.pem"}, nullptr, ""},
  };
  for (const auto& [certificate, held, anchor, chain] : rows) {
    SystemCerts certs;
    LogNull log;
    for (const char* file : held) addIdentities(certs, {file});
    if (anchor) certs.addTrustAnchors(identityFile(anchor).c_str(), log);
    EXPECT_EQ(namesOf(certs.chainOf(*identity(certificate))), chain) << testing::PrintToString(held);
  }
}

TEST(SystemCerts, reads_what_other_programs_wrote) {
  const std::string keys = places::corpus("keys");
  if (keys.empty()) GTEST_SKIP() << "MAILTREE_CORPUS names no folder with keys";
  for (const auto& entry : fs::recursive_directory_iterator(keys)) {
    const std::string kind = entry.path().extension();
    const bool isPkcs12 = kind == ".p12" || kind == ".pfx";
    if (!isPkcs12 && kind != ".pem" && kind != ".crt" && kind != ".key") continue;
    SystemCerts certs;
    LogMemory log;
    int added = 0;
    for (const char* password : {"", "nss", "123456", "no.secret"})
      if (added <= 0) added = certs.addFromFile(entry.path().c_str(), password, log);
    EXPECT_GT(added, 0) << entry.path() << log.text();
    EXPECT_TRUE(contains(namesIn(certs), "*") || !isPkcs12) << entry.path() << log.text();
  }
}

}  // namespace
}  // namespace mailtree
