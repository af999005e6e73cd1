// Both directions between this and the openssl command. Skips where that is not installed.
#include "tests/cli/command.h"
#include "tests/crypto/pkcs7_fixtures.h"

namespace mailtree {
namespace {

const std::string kTexts[] = {"", "bare\nline feeds  \nno last", std::string(100'000, 'l')};

class Pkcs7Peer : public testing::Test {
 protected:
  void SetUp() override {
    if (cli_test::shell("openssl version").status != 0) GTEST_SKIP() << "no openssl command";
  }
  /// What "openssl cms" makes of these bytes, in the folder of identities.
  std::string cms(const std::string& in, const std::string& arguments) const {
    m_work.write("in", in);
    const auto result = cli_test::shell("cd '" + identityFile("") + "' && openssl cms -binary -in " +
                                        m_work.path("in") + " -out " + m_work.path("out") + " " + arguments);
    return result.status == 0 ? cli_test::readFile(m_work.path("out")) : "FAILED " + result.err;
  }
  cli_test::Workspace m_work;
};

TEST_F(Pkcs7Peer, verifies_what_was_signed_here) {
  const SignAs rows[] = {
      {{"alice"}, true},
      {{"bob"}, true, HashId::sha512, true},
      {{"alice"}, true, HashId::sha1, true, true, false, true},
      {{"alice", "carol", "dave"}, false, HashId::sha512, true, true, true, true},
  };
  for (const SignAs& row : rows)
    for (const std::string& text : kTexts) {
      const std::string content = row.detached ? " -content " + m_work.write("content", text) : "";
      EXPECT_TRUE(cms(signedBlob(text, row), "-verify -inform DER -CAfile root.pem" + content) == text)
          << &row - rows << " " << shown(text);
    }
}

TEST_F(Pkcs7Peer, decrypts_what_was_encrypted_here) {
  const EncryptAs rows[] = {
      {{"alice", "carol"}, kCbc, 128},
      {{"alice", "carol"}, kGcm, 128, kOaep, static_cast<int>(HashId::sha512)},
      {{"alice", "carol"}, kGcm, 256, 0, 0, true},
      {{"alice", "carol"}, kTriple},
  };
  for (const EncryptAs& row : rows)
    for (const std::string& text : kTexts)
      for (const std::string& who : row.recipients)
        EXPECT_TRUE(cms(envelope(text, row),
                        "-decrypt -inform DER -recip " + who + ".pem -inkey " + who + ".key") == text)
            << &row - rows << " " << who << " " << shown(text);
}

/// The peer does not stream an empty content.
bool canWrite(const std::string& arguments, const std::string& text) {
  return !text.empty() || !contains(arguments, "-stream");
}

TEST_F(Pkcs7Peer, signs_what_is_verified_here) {
  for (const std::string row : {
           "-signer alice.pem -inkey alice.key -nodetach -stream -md sha512",
           "-signer alice.pem -inkey alice.key -noattr -md sha1",
           "-signer carol.pem -inkey carol.key -noattr -nodetach",
           "-signer bob.pem -inkey bob.key -keyopt rsa_padding_mode:pss -keyid -md sha384",
           "-signer bob.pem -inkey bob.key -noattr -keyopt rsa_padding_mode:pss -nodetach",
           "-signer dave.pem -inkey dave.key -cades -nodetach -nocerts",
           "-signer alice.pem -inkey alice.key -signer carol.pem -inkey carol.key -nosmimecap -nodetach",
       })
    for (const std::string& text : kTexts) {
      if (!canWrite(row, text)) continue;
      const std::string blob = cms(text, "-sign -outform DER " + row);
      const bool isOpaque = contains(row, "-nodetach");
      const Opened opened = isOpaque ? openBlob(blob) : Opened{true, text, verifyBlob(blob, text)};
      EXPECT_TRUE(opened.content == text && opened.layer.allSignaturesValid()) << row << " " << shown(text);
      for (const auto& signer : opened.layer.signers) EXPECT_EQ(signer.problem, "") << row;
    }
}

TEST_F(Pkcs7Peer, encrypts_what_is_decrypted_here) {
  const std::pair<std::string, std::string> rows[] = {
      {"-aes256 -stream alice.pem bob.pem", "aes-256-cbc rsa"},
      {"-aes-256-gcm alice.pem", "aes-256-gcm rsa"},
      {"-aes-128-gcm -stream -keyid carol.pem", "aes-128-gcm ecdh"},
      {"-aes192 -recip alice.pem -keyopt rsa_padding_mode:oaep -keyopt rsa_oaep_md:sha256",
       "aes-192-cbc rsa-oaep"},
      {"-aes256 -recip dave.pem -keyopt ecdh_kdf_md:sha384", "aes-256-cbc ecdh"},
      {"-aes256 -recip carol.pem -keyopt ecdh_cofactor_mode:1", "aes-256-cbc ecdh"},
      {"-provider default -provider legacy -rc2 alice.pem", "rc2-cbc rsa"},
      {"-provider default -provider legacy -des alice.pem", "des-cbc rsa"},
  };
  for (const auto& [arguments, how] : rows)
    for (const std::string& text : kTexts) {
      if (!canWrite(arguments, text)) continue;
      const Opened opened = openBlob(cms(text, "-encrypt -outform DER " + arguments));
      EXPECT_TRUE(opened.done && opened.content == text) << arguments << opened.layer.problem;
      EXPECT_EQ(opened.layer.cipher + " " + opened.layer.keyTransport, how) << arguments;
    }
}

}  // namespace
}  // namespace mailtree
