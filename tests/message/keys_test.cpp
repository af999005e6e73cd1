#include <gmock/gmock.h>

#include <cstdlib>

#include "mailtree/message/Keys.h"
#include "tests/support/identities.h"

namespace mailtree {
namespace {

const std::string kNowhere = identityFile("no-such.pem");

TEST(Keys, takes_a_file_whole_or_says_why_not) {
  const struct {
    std::string file, password;
    std::size_t identities, certificates;
    std::string problem;  ///< Part of it; empty: the file is taken.
  } rows[] = {
      {"alice.p12", "secret", 1, 3, ""},
      {"alice.p12", "no", 0, 0, "wrong password"},
      {"alice.p12", "", 0, 0, "needs a password"},
      {"formats/key-encrypted.pem", "no", 0, 0, "wrong password"},
      {"formats/empty-password.p12", "", 1, 1, ""},
      {"chain.pem", "", 0, 2, ""},
      {"formats/public-key.der", "", 0, 0, "no certificate or key"},
      {"no-such.pem", "", 0, 0, "No such file"},
  };
  for (const auto& row : rows) {
    Keys keys;
    const Result<void> added = keys.addFile(identityFile(row.file), row.password);
    ASSERT_EQ(added.has_value(), row.problem.empty()) << row.file;
    EXPECT_THAT(added ? std::string() : added.error().message, testing::HasSubstr(row.problem));
    EXPECT_EQ(keys.identities().size(), row.identities) << row.file;
    EXPECT_EQ(keys.certificates().size(), row.certificates) << row.file;
  }
}

TEST(Keys, a_key_joins_its_certificate) {
  Keys keys;
  ASSERT_TRUE(keys.addFile(identityFile("carol.key")));
  ASSERT_TRUE(keys.addFile(identityFile("carol.pem")));
  ASSERT_EQ(keys.identities().size(), 1U);
  EXPECT_THAT(keys.identities().front().addresses, testing::ElementsAre("carol@example.com"));
  EXPECT_EQ(keys.identities().front().keyAlgorithm, "EC");
  EXPECT_LT(keys.identities().front().validFrom, std::chrono::system_clock::now());
}

TEST(Keys, trust_comes_from_files_and_from_the_host_when_asked) {
  const auto hostTrust = [](Keys& keys, const std::string& file) {
    setenv("SSL_CERT_FILE", file.c_str(), /*overwrite=*/1);
    unsetenv("SSL_CERT_DIR");
    const Result<void> added = keys.addSystemTrust();
    unsetenv("SSL_CERT_FILE");
    return added;
  };
  Keys keys;
  EXPECT_EQ(keys.addTrust(kNowhere).error().code, ErrorCode::unreadable);
  EXPECT_EQ(keys.addRevocationList(identityFile("root.pem")).error().code, ErrorCode::noKey);
  EXPECT_FALSE(hostTrust(keys, kNowhere)) << "a place that was given has no substitute";
  EXPECT_FALSE(keys.hasTrust());
  EXPECT_TRUE(hostTrust(keys, identityFile("root.pem")));
  EXPECT_TRUE(keys.hasTrust());
  EXPECT_TRUE(keys.certificates().empty());
}

}  // namespace
}  // namespace mailtree
