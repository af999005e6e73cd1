#include "mailtree/crypto/SystemCerts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "mailtree/base/Log.h"
#include "tests/support/identities.h"
#include "tests/support/places.h"

namespace mailtree {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::int64_t k2021 = 1609459200, k2025 = 1735689600, k2001 = 990000000, k2071 = 3190000000;

std::string contentOf(const std::string& file) {
  DataBuffer bytes;
  LogNull log;
  EXPECT_TRUE(bytes.loadFileUtf8(identityFile(file).c_str(), log)) << file;
  return std::string(bytes.view());
}

std::string nameOf(const Certificate* certificate) {
  LogNull log;
  XString name;
  if (!certificate || !certificate->getSubjectDN(name, log)) return "-";
  const std::string text(name.view());
  const std::size_t begin = text.find("CN=") + 3;
  return text.substr(begin, text.find(',', begin) - begin);
}

/// Of this process alone: tests run side by side.
fs::path temporaryPath(const std::string& name) {
  return fs::path(testing::TempDir()) / ("mailtree-" + std::to_string(getpid()) + "-" + name);
}

/// "Alice*": with its key.
std::vector<std::string> namesIn(const SystemCerts& certs) {
  std::vector<std::string> names;
  for (int i = 0; i < certs.getNumCertificates(); ++i)
    names.push_back(nameOf(certs.getCertificate(i)) + (certs.getCertificate(i)->hasPrivateKey() ? "*" : ""));
  return names;
}

// ---- forms ------------------------------------------------------------------------------------------------------

TEST(SystemCerts, reads_every_form_with_the_password_it_needs) {
  const char* const kNone = nullptr;
  const struct {
    const char* file;
    std::vector<const char*> passwords;
    int added;
    const char* problem;  // null: it is read
  } rows[] = {
      {"alice.pem", {kNone, "", "secret", "other"}, 1, nullptr},
      {"alice.key", {kNone, "", "secret", "other"}, 1, nullptr},
      {"chain.pem", {kNone}, 2, nullptr},
      {"alice.p12", {"secret"}, 4, nullptr},
      {"alice.p12", {kNone, ""}, 0, "needs a password"},
      {"alice.p12", {"other", "Secret", "secret "}, 0, "wrong password"},
      {"formats/rc2-40.p12", {"secret"}, 2, nullptr},
      {"formats/rc2-40.p12", {"other"}, 0, "wrong password"},
      {"formats/empty-password.p12", {kNone, "", "other"}, 2, nullptr},
      {"formats/unprotected.p12", {kNone, "", "other"}, 2, nullptr},
      {"formats/certificate.der", {kNone, "other"}, 1, nullptr},
      {"formats/trusted.pem", {kNone}, 1, nullptr},
      {"formats/bundle.p7b", {kNone}, 3, nullptr},
      {"formats/bundle.p7b.pem", {kNone}, 3, nullptr},
      {"formats/key.der", {kNone, "other"}, 1, nullptr},
      {"formats/key-traditional.pem", {kNone, "other"}, 1, nullptr},
      {"formats/key-after-parameters.pem", {kNone}, 1, nullptr},
      {"formats/key-encrypted.pem", {"secret"}, 1, nullptr},
      {"formats/key-encrypted.pem", {kNone, ""}, 0, "needs a password"},
      {"formats/key-encrypted.pem", {"other"}, 0, "wrong password"},
      {"formats/key-encrypted.der", {"secret"}, 1, nullptr},
      {"formats/key-encrypted.der", {kNone}, 0, "needs a password"},
      {"formats/key-encrypted.der", {"other"}, 0, "wrong password"},
      {"formats/key-traditional-encrypted.pem", {"secret"}, 1, nullptr},
      {"formats/key-traditional-encrypted.pem", {kNone, ""}, 0, "needs a password"},
      {"formats/key-traditional-encrypted.pem", {"other"}, 0, "wrong password"},
      {"formats/public-key.der", {kNone}, 0, "no certificate and no key"},
      {"formats/revoked.der", {kNone}, 0, "no certificate and no key"},
      {"revoked.crl", {kNone}, 0, "no certificate and no key"},
      {"README.md", {kNone}, 0, "no certificate and no key"},
  };
  for (const auto& row : rows)
    for (const char* password : row.passwords) {
      const std::string about = std::string(row.file) + " with " + (password ? password : "none");
      SystemCerts certs;
      LogMemory log;
      EXPECT_EQ(certs.addFromFile(identityFile(row.file).c_str(), password, log), row.added) << about;
      EXPECT_EQ(log.entries().empty(), row.problem == nullptr) << about << log.text();
      EXPECT_THAT(log.text(), HasSubstr(row.problem ? row.problem : "")) << about;
      EXPECT_FALSE(password && *password && contains(log.text(), password)) << about;
    }
}

TEST(SystemCerts, finds_the_blocks_in_any_text) {
  const std::string alice = contentOf("alice.pem"), bob = contentOf("bob.pem");
  const std::string begin = "-----BEGIN CERTIFICATE-----\n", end = "-----END CERTIFICATE-----\n";
  const auto withCrlf = [](std::string text) {
    for (std::size_t i = 0; (i = text.find('\n', i)) != std::string::npos; i += 2) text.insert(i, "\r");
    return text;
  };
  std::string oneLine = alice;
  oneLine.erase(std::remove(oneLine.begin() + 28, oneLine.end() - 27, '\n'), oneLine.end() - 27);
  const struct {
    const char* about;
    std::string text;
    std::vector<std::string> names;
    const char* problem;
  } rows[] = {
      {"two", alice + bob, {"Alice", "Bob"}, ""},
      {"text around them", "Subject: CN=Alice\n" + alice + "\nand\n" + bob + "end", {"Alice", "Bob"}, ""},
      {"CRLF", withCrlf(alice + bob), {"Alice", "Bob"}, ""},
      {"one long line", oneLine, {"Alice"}, ""},
      {"no last line break", alice.substr(0, alice.size() - 1), {"Alice"}, ""},
      {"damage between", alice + begin + "AAAA\n" + end + bob, {"Alice", "Bob"}, "damaged"},
      {"no base64 between", alice + begin + "A=B?\n" + end + bob, {"Alice", "Bob"}, "damaged"},
      {"a beginning without end", begin + "AAAA\n" + bob, {"Bob"}, ""},
      {"an end without beginning", end + bob, {"Bob"}, ""},
      {"cut off", bob + alice.substr(0, 600), {"Bob"}, ""},
      {"another name at the end", begin + "AAAA\n-----END X509 CRL-----\n" + bob, {"Bob"}, ""},
      {"an unknown block", "-----BEGIN LETTER-----\nAAAA\n-----END LETTER-----\n" + bob, {"Bob"}, ""},
      {"only a beginning", begin, {}, "no certificate"},
      {"nothing", "", {}, "no certificate"},
  };
  for (const auto& row : rows) {
    SystemCerts certs;
    LogMemory log;
    EXPECT_EQ(certs.addFromData(row.text, nullptr, log), static_cast<int>(row.names.size())) << row.about;
    EXPECT_EQ(namesIn(certs), row.names) << row.about;
    EXPECT_EQ(log.entries().empty(), std::string_view(row.problem).empty()) << row.about << log.text();
    EXPECT_THAT(log.text(), HasSubstr(row.problem)) << row.about;
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
std::string withManyRounds(const std::string& der) {
  std::string changed;
  for (std::size_t at = 0; at < der.size();) {
    const auto first = static_cast<unsigned char>(der[at + 1]);
    const std::size_t lengthBytes = first < 0x80 ? 0 : first & 0x7FU;
    std::size_t size = lengthBytes ? 0 : first;
    for (std::size_t i = 0; i < lengthBytes; ++i)
      size = size * 256 + static_cast<unsigned char>(der[at + 2 + i]);
    std::string content = der.substr(at + 2 + lengthBytes, size);
    if (der[at] == 0x02 && content == std::string("\x08\x00", 2)) content = "\x7F\xFF\xFF\xFF";
    if (der[at] == 0x30) content = withManyRounds(content);
    changed += der[at];
    if (content.size() < 0x80)
      changed += static_cast<char>(content.size());
    else
      changed += {'\x82', static_cast<char>(content.size() >> 8), static_cast<char>(content.size())};
    changed += content;
    at += 2 + lengthBytes + size;
  }
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
  const fs::path big = temporaryPath("big.pem");
  std::ofstream(big) << contentOf("alice.pem");
  fs::resize_file(big, (16 << 20) + 1);
  SystemCerts certs;
  LogNull log;
  EXPECT_EQ(certs.addFromFile(big.c_str(), nullptr, log), 0);
  fs::resize_file(big, 16 << 20);
  EXPECT_EQ(certs.addFromFile(big.c_str(), nullptr, log), 1);
  fs::remove(big);
  for (const char* path : {static_cast<const char*>(nullptr), "", "/dev/zero", "/", "/no/such/file"})
    EXPECT_EQ(certs.addFromFile(path, nullptr, log), 0) << (path ? path : "null");
}

TEST(SystemCerts, reads_a_folder_in_the_order_of_its_names) {
  const fs::path folder = temporaryPath("folder");
  fs::remove_all(folder);
  fs::create_directories(folder / "below");
  fs::copy_file(identityFile("bob.pem"), folder / "1.pem");
  fs::copy_file(identityFile("alice.p12"), folder / "3.p12");
  fs::copy_file(identityFile("README.md"), folder / "2.txt");
  fs::copy_file(identityFile("dave.pem"), folder / "below" / "0.pem");
  fs::create_symlink(identityFile("carol.pem"), folder / "0.pem");
  fs::create_symlink("nowhere", folder / "4.pem");

  SystemCerts certs;
  LogMemory log;
  EXPECT_EQ(certs.addFromDirectory(folder.c_str(), "secret", log), 6);
  EXPECT_THAT(namesIn(certs), ElementsAre("Carol", "Bob", "Alice*", "Test Issuer", "Test Root"));
  EXPECT_THAT(log.entries(), IsEmpty()) << log.text();

  SystemCerts withoutPassword;
  log.m_verboseLogging = true;
  EXPECT_EQ(withoutPassword.addFromDirectory(folder.c_str(), nullptr, log), 2);
  EXPECT_THAT(log.text(), HasSubstr("needs a password"));

  EXPECT_EQ(certs.addFromDirectory((folder / "nowhere").c_str(), nullptr, log), 0);
  fs::remove_all(folder);
}

// ---- holding ----------------------------------------------------------------------------------------------------

TEST(SystemCerts, joins_a_key_to_every_certificate_it_fits_whichever_came_first) {
  const struct {
    std::vector<const char*> files;
    std::vector<std::string> names;
  } rows[] = {
      {{"alice.pem", "alice.key"}, {"Alice*"}},
      {{"alice.key", "alice.pem"}, {"Alice*"}},
      {{"alice.key", "alice.key", "alice.pem", "alice.pem"}, {"Alice*"}},
      {{"formats/key-encrypted.pem", "formats/certificate.der"}, {"Alice*"}},
      {{"alice.pem", "alice.key", "alice-older.pem"}, {"Alice*", "Alice*"}},
      {{"alice.pem", "alice-older.pem", "alice.key"}, {"Alice*", "Alice*"}},
      {{"formats/key-after-parameters.pem", "dave.pem", "carol.pem"}, {"Dave", "Carol*"}},
      {{"ed25519.pem", "ed25519.key"}, {"Ed25519*"}},
      {{"impostor.key", "alice.pem"}, {"Alice"}},
      {{"alice.pem", "alice.p12"}, {"Alice*", "Test Issuer", "Test Root"}},
      {{"alice.p12", "alice.pem"}, {"Alice*", "Test Issuer", "Test Root"}},
  };
  for (const auto& row : rows) {
    SystemCerts certs;
    LogMemory log;
    for (const char* file : row.files) certs.addFromFile(identityFile(file).c_str(), kIdentityPassword, log);
    EXPECT_EQ(namesIn(certs), row.names) << testing::PrintToString(row.files);
  }
}

TEST(SystemCerts, keeps_the_certificate_with_the_key) {
  SystemCerts with, certs;
  addIdentities(with, {"alice.pem", "alice.key"});
  const RefPtr<Certificate> bare = identity("alice.pem");
  for (const auto& added : {bare, RefPtr<Certificate>(with.getCertificate(0)), bare}) {
    EXPECT_TRUE(certs.addCertificate(*added));
    EXPECT_EQ(certs.getNumCertificates(), 1);
  }
  EXPECT_TRUE(certs.getCertificate(0)->hasPrivateKey());
  EXPECT_FALSE(bare->hasPrivateKey());
  for (const int index : {-1, 1}) EXPECT_EQ(certs.getCertificate(index), nullptr) << index;
}

// ---- finding ----------------------------------------------------------------------------------------------------

TEST(SystemCerts, finds_only_certificates_that_do) {
  SystemCerts certs;
  addIdentities(certs, {"alice-older.pem", "alice.pem", "alice.key", "impostor.pem", "bob.pem", "mallory.pem",
                        "mallory.key", "oscar.pem", "oscar.key", "expired.pem", "expired.key",
                        "webserver.pem", "heidi.pem", "ivan.pem", "ed25519.pem", "ed25519.key"});
  const struct {
    const char* address;
    bool forEncryption;
    const char* found;  // its file; null: none
  } rows[] = {
      {"alice@example.com", true, "alice.pem"},  // the one that is valid longest; the first among equals
      {"alice@example.com", false, "alice.pem"},
      {"alice@EXAMPLE.com", true, "alice.pem"},
      {"ALICE@example.com", true, nullptr},
      {"bob@example.com", true, "bob.pem"},
      {"bob@example.com", false, nullptr},  // no key
      {"mallory@example.net", true, nullptr},
      {"mallory@example.net", false, "mallory.pem"},
      {"oscar@example.com", true, "oscar.pem"},
      {"oscar@example.com", false, nullptr},
      {"expired@example.com", true, nullptr},
      {"expired@example.com", false, nullptr},
      {"webserver@example.com", true, nullptr},
      {"Heidi@example.com", true, "heidi.pem"},
      {"иван@example.com", true, "ivan.pem"},
      {"nobody@example.com", true, nullptr},
      {"", false, nullptr},
      {nullptr, false, nullptr},
  };
  for (const auto& row : rows) {
    LogMemory log;
    const Certificate* const found = certs.findByEmailAddr(row.address, row.forEncryption, log);
    const std::string about =
        std::string(row.address ? row.address : "null") + (row.forEncryption ? " to" : " by");
    EXPECT_EQ(found ? found->fingerprint() : "", row.found ? identity(row.found)->fingerprint() : "")
        << about;
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
      EXPECT_NE(certs.findByEmailAddr("erin@example.com", forEncryption, log), nullptr) << anchor;
      certs.addRevocationLists(identityFile("revoked.crl").c_str(), log);
      EXPECT_EQ(certs.findByEmailAddr("erin@example.com", forEncryption, log), nullptr) << anchor;
      EXPECT_THAT(log.text(), HasSubstr("it was revoked")) << anchor;
      EXPECT_NE(certs.findByEmailAddr("alice@example.com", forEncryption, log), nullptr) << anchor;
    }
}

TEST(SystemCerts, says_why_a_certificate_was_passed_over) {
  const struct {
    const char* address;
    bool forEncryption;
    const char* reason;
  } rows[] = {
      {"expired@example.com", true, "not valid now"},
      {"bob@example.com", false, "private key is not held"},
      {"mallory@example.net", true, "key usage"},
  };
  SystemCerts certs;
  addIdentities(certs, {"bob.pem", "expired.pem", "mallory.pem"});
  for (const auto& row : rows) {
    LogMemory log;
    log.m_verboseLogging = true;
    EXPECT_EQ(certs.findByEmailAddr(row.address, row.forEncryption, log), nullptr) << row.address;
    EXPECT_THAT(log.text(), HasSubstr(row.reason)) << row.address;
  }
}

// ---- trusting ---------------------------------------------------------------------------------------------------

TEST(SystemCerts, trusts_what_leads_to_an_anchor) {
  const struct {
    const char* certificate;
    const char* anchor;  // null: none
    const char* list;
    const char* held;
    const char* other;  // came with the message
    std::int64_t time;
    bool trusted, revoked;
    const char* problem;
  } rows[] = {
      {"alice.pem", "root.pem", nullptr, "intermediate.pem", nullptr, k2025, true, false, ""},
      {"alice.pem", "root.pem", nullptr, nullptr, "intermediate.pem", k2025, true, false, ""},
      {"alice.pem", "intermediate.pem", nullptr, nullptr, nullptr, k2025, true, false,
       ""},  // not self-signed
      {"alice.pem", "alice.pem", nullptr, nullptr, nullptr, k2025, true, false, ""},
      {"alice.pem", "root.pem", nullptr, nullptr, nullptr, k2025, false, false, "unable to get"},
      {"alice.pem", "other-root.pem", nullptr, "chain.pem", nullptr, k2025, false, false, "self-signed"},
      {"alice.pem", nullptr, nullptr, "chain.pem", "root.pem", k2025, false, false,
       "no trust anchors were given"},
      {"alice.pem", "root.pem", nullptr, "chain.pem", nullptr, k2001, false, false, "not yet valid"},
      {"alice.pem", "root.pem", nullptr, "chain.pem", nullptr, k2071, false, false, "expired"},
      {"impostor.pem", "root.pem", nullptr, "chain.pem", "other-root.pem", k2025, false, false,
       "self-signed"},
      {"impostor.pem", "other-root.pem", nullptr, nullptr, nullptr, k2025, true, false, ""},
      {"expired.pem", "intermediate.pem", nullptr, nullptr, nullptr, k2025, false, false, "expired"},
      {"weak.pem", "root.pem", nullptr, "chain.pem", nullptr, k2025, true, false, ""},  // told elsewhere
      {"oscar.pem", "root.pem", nullptr, "chain.pem", nullptr, k2025, true, false,
       ""},  // what it is fit for, too
      {"judy.pem", "root.pem", nullptr, "web-issuer.pem", nullptr, k2025, false, false, "purpose"},
      {"erin.pem", "root.pem", nullptr, "chain.pem", nullptr, k2025, true, false, ""},
      {"erin.pem", "root.pem", "revoked.crl", "chain.pem", nullptr, k2025, false, true, "revoked"},
      {"erin.pem", "root.pem", "formats/revoked.der", "chain.pem", nullptr, k2025, false, true, "revoked"},
      {"erin.pem", "root.pem", "revoked-stale.crl", "chain.pem", nullptr, k2025, false, true, "revoked"},
      {"erin.pem", "root.pem", "revoked.crl", "chain.pem", nullptr, k2001, false, true, ""},  // at any time
      {"erin.pem", "root.pem", "revoked.crl", "chain.pem", nullptr, k2071, false, true, "revoked"},
      {"erin.pem", nullptr, "revoked.crl", "chain.pem", nullptr, k2025, false, true, "no trust anchors"},
      {"erin.pem", nullptr, "revoked.crl", nullptr, "intermediate.pem", k2025, false, false,
       "no trust anchors"},  // what came along is not looked into
      {"erin.pem", "root.pem", "other-root.crl", "chain.pem", nullptr, k2025, true, false,
       ""},  // not its issuer's
      {"alice.pem", "root.pem", "revoked.crl", "chain.pem", nullptr, k2025, true, false, ""},
      {"alice.pem", "root.pem", "revoked.crl", "chain.pem", nullptr, k2001, false, false,
       "certificate is not yet"},
      {"alice.pem", "root.pem", "revoked-stale.crl", "chain.pem", nullptr, k2025, true, false,
       "CRL has expired"},
      {"alice.pem", "root.pem", "revoked-stale.crl", "chain.pem", nullptr, k2021 - 9, true, false, ""},
  };
  for (const auto& row : rows) {
    const std::string about = std::string(row.certificate) + " by " + (row.anchor ? row.anchor : "none") +
                              " " + (row.list ? row.list : "") + " at " + std::to_string(row.time);
    SystemCerts certs;
    LogMemory log;
    if (row.held) addIdentities(certs, {row.held});
    if (row.anchor) certs.addTrustAnchors(identityFile(row.anchor).c_str(), log);
    if (row.list) certs.addRevocationLists(identityFile(row.list).c_str(), log);
    std::vector<RefPtr<Certificate>> others(1);
    if (row.other) others[0] = identity(row.other);
    const ChainVerdict verdict = certs.checkChain(*identity(row.certificate), others, row.time);
    EXPECT_EQ(verdict.trusted, row.trusted) << about << ": " << verdict.problem;
    EXPECT_EQ(verdict.revoked, row.revoked) << about << ": " << verdict.problem;
    EXPECT_THAT(verdict.problem, HasSubstr(row.problem)) << about;
    EXPECT_EQ(verdict.problem.empty(), row.trusted && !*row.problem) << about << ": " << verdict.problem;
    EXPECT_THAT(log.entries(), IsEmpty()) << about << log.text();
  }
}

TEST(SystemCerts, a_list_that_the_issuer_did_not_sign_revokes_nobody) {
  const fs::path file = temporaryPath("forged.crl");
  std::string list = contentOf("formats/revoked.der");
  list.back() = static_cast<char>(list.back() ^ 1);
  std::ofstream(file, std::ios::binary) << list;
  SystemCerts certs;
  LogNull log;
  addIdentities(certs, {"chain.pem"});
  certs.addTrustAnchors(identityFile("root.pem").c_str(), log);
  ASSERT_EQ(certs.addRevocationLists(file.c_str(), log), 1);
  const ChainVerdict verdict = certs.checkChain(*identity("erin.pem"), {}, k2025);
  EXPECT_FALSE(verdict.revoked);
  EXPECT_FALSE(verdict.trusted);
  EXPECT_THAT(verdict.problem, HasSubstr("CRL signature"));
  fs::remove(file);
}

TEST(SystemCerts, takes_anchors_and_lists_only_for_what_they_are) {
  SystemCerts certs;
  for (const char* file : {"alice.key", "revoked.crl", "README.md", "nowhere.pem"}) {
    LogMemory log;
    EXPECT_EQ(certs.addTrustAnchors(identityFile(file).c_str(), log), 0) << file;
    EXPECT_FALSE(log.entries().empty()) << file;
  }
  EXPECT_FALSE(certs.hasTrustAnchors());
  for (const char* file : {"root.pem", "formats/certificate.der", "nowhere.crl"}) {
    LogMemory log;
    EXPECT_EQ(certs.addRevocationLists(identityFile(file).c_str(), log), 0) << file;
    EXPECT_FALSE(log.entries().empty()) << file;
  }
  LogNull log;
  EXPECT_EQ(certs.addTrustAnchorsFromData(contentOf("chain.pem"), log), 2);
  EXPECT_TRUE(certs.hasTrustAnchors());
  EXPECT_EQ(certs.getNumCertificates(), 0);
}

TEST(SystemCerts, follows_the_chain_as_far_as_it_is_held) {
  const struct {
    const char* certificate;
    std::vector<const char*> held;
    const char* anchor;
    std::vector<std::string> chain;
  } rows[] = {
      {"alice.pem", {}, nullptr, {}},
      {"alice.pem", {"root.pem"}, nullptr, {}},
      {"alice.pem", {"root.pem", "bob.pem", "intermediate.pem"}, nullptr, {"Test Issuer", "Test Root"}},
      {"alice.pem", {"intermediate.pem"}, "root.pem", {"Test Issuer", "Test Root"}},
      {"alice.pem", {"chain.pem"}, "intermediate.pem", {"Test Issuer"}},  // no further than to the anchor
      {"root.pem", {"chain.pem"}, nullptr, {}},
  };
  for (const auto& row : rows) {
    SystemCerts certs;
    LogNull log;
    for (const char* file : row.held) addIdentities(certs, {file});
    if (row.anchor) certs.addTrustAnchors(identityFile(row.anchor).c_str(), log);
    std::vector<std::string> chain;
    for (const auto& each : certs.chainOf(*identity(row.certificate))) chain.push_back(nameOf(each.get()));
    EXPECT_EQ(chain, row.chain) << row.certificate << " in " << testing::PrintToString(row.held);
  }
}

// ---- files that others wrote ------------------------------------------------------------------------------------

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
    const std::vector<std::string> names = namesIn(certs);
    const auto hasKey = [](const std::string& name) { return name.back() == '*'; };
    const bool withKey = std::any_of(names.begin(), names.end(), hasKey);
    EXPECT_TRUE(withKey || !isPkcs12) << entry.path() << log.text();
  }
}

}  // namespace
}  // namespace mailtree
