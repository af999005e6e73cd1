// Both directions between this and the openssl command. Skips where that is not installed.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/crypto/pkcs7_fixtures.h"
#include "tests/support/places.h"

namespace mailtree {
namespace {

constexpr int kCbc = static_cast<int>(ContentCipher::aesCbc);
constexpr int kGcm = static_cast<int>(ContentCipher::aesGcm);
constexpr int kTriple = static_cast<int>(ContentCipher::tripleDes);
constexpr int kOaep = static_cast<int>(KeyTransport::oaep);

/// The peer does not stream an empty content.
bool cannotWrite(const std::string& arguments, const std::string& text) {
  return text.empty() && arguments.find("-stream") != std::string::npos;
}

class Pkcs7Peer : public testing::Test {
 protected:
  void SetUp() override {
    if (std::system("openssl version >/dev/null 2>&1") != 0) GTEST_SKIP() << "no openssl command";
    m_folder = std::filesystem::path(testing::TempDir()) / ("mailtree_peer_" + std::to_string(::getpid()));
    std::filesystem::create_directory(m_folder);
  }
  void TearDown() override {
    if (!m_folder.empty()) std::filesystem::remove_all(m_folder);
  }

  std::string path(const char* name) const { return (m_folder / name).string(); }
  void write(const char* name, std::string_view bytes) const {
    std::ofstream(path(name), std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
  std::string read(const char* name) const {
    std::ifstream file(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  /// Runs "openssl cms" on exact bytes in DER; false when it said no.
  bool cms(const std::string& arguments) const {
    std::filesystem::remove(path("out"));
    const std::string command = "cd '" + places::testData() + "/secure" + "' && openssl cms -binary -out '" +
                                path("out") + "' " + arguments + " 2>'" + path("errors") + "'";
    return std::system(command.c_str()) == 0;
  }
  std::string in() const { return " -in '" + path("in") + "'"; }

  const std::vector<std::string> m_texts = {"", "x", "bare\nline feeds  \nno last",
                                            std::string(100'000, 'l')};

 private:
  std::filesystem::path m_folder;
};

TEST_F(Pkcs7Peer, verifies_what_was_signed_here) {
  const SignAs rows[] = {
      {{"alice"}},
      {{"alice"}, true},
      {{"bob"}, false, HashId::sha384, true, true, true, true},
      {{"bob"}, true, HashId::sha512, true},
      {{"carol"}, false, HashId::sha256, false, true, true},
      {{"dave"}, true, HashId::sha384},
      {{"alice"}, true, HashId::sha1, true, true, false, true},
      {{"alice", "carol", "dave"}, false, HashId::sha512, true, true, true, true},
  };
  for (const SignAs& row : rows)
    for (const std::string& text : m_texts) {
      write("in", signedBlob(text, row));
      write("content", text);
      const std::string content = row.detached ? " -content '" + path("content") + "'" : "";
      EXPECT_TRUE(cms("-verify -inform DER -CAfile root.pem" + content + in()) && read("out") == text)
          << &row - rows << " " << shown(text) << read("errors");
    }
}

TEST_F(Pkcs7Peer, decrypts_what_was_encrypted_here) {
  const EncryptAs rows[] = {
      {{"alice", "carol"}, kCbc, 128},
      {{"alice", "carol"}, kCbc, 256, kOaep},
      {{"alice", "carol"}, kGcm, 128, kOaep, static_cast<int>(HashId::sha512)},
      {{"alice", "carol"}, kGcm, 256, 0, 0, true},
      {{"alice", "carol"}, kTriple},
  };
  for (const EncryptAs& row : rows)
    for (const std::string& text : m_texts)
      for (const std::string& who : row.recipients) {
        write("in", envelope(text, row));
        EXPECT_TRUE(cms("-decrypt -inform DER -recip " + who + ".pem -inkey " + who + ".key" + in()) &&
                    read("out") == text)
            << &row - rows << " " << who << " " << shown(text) << read("errors");
      }
}

TEST_F(Pkcs7Peer, signs_what_is_verified_here) {
  const char* const rows[] = {
      "-signer alice.pem -inkey alice.key",
      "-signer alice.pem -inkey alice.key -nodetach",
      "-signer alice.pem -inkey alice.key -nodetach -stream -md sha512",
      "-signer alice.pem -inkey alice.key -noattr -md sha1",
      "-signer carol.pem -inkey carol.key -noattr -nodetach",
      "-signer bob.pem -inkey bob.key -keyopt rsa_padding_mode:pss -keyid -md sha384",
      "-signer bob.pem -inkey bob.key -noattr -keyopt rsa_padding_mode:pss -nodetach",
      "-signer dave.pem -inkey dave.key -cades -nodetach -nocerts",
      "-signer alice.pem -inkey alice.key -signer carol.pem -inkey carol.key -nosmimecap -nodetach",
  };
  for (const std::string row : rows)
    for (const std::string& text : m_texts) {
      SCOPED_TRACE(row + " " + shown(text));
      if (cannotWrite(row, text)) continue;
      write("in", text);
      ASSERT_TRUE(cms("-sign -outform DER " + row + in())) << read("errors");
      const std::string blob = read("out");
      const bool isOpaque = row.find("-nodetach") != std::string::npos;
      const Opened opened = isOpaque ? openBlob(blob) : Opened{};
      const SecureLayer layer = isOpaque ? opened.layer : verifyBlob(blob, text);
      EXPECT_TRUE(layer.allSignaturesValid());
      EXPECT_TRUE(!isOpaque || opened.content == text);
      for (const auto& signer : layer.signers) EXPECT_EQ(signer.problem, "");
    }
}

TEST_F(Pkcs7Peer, encrypts_what_is_decrypted_here) {
  const struct {
    std::string arguments;
    const char* cipher;
    const char* transport;
  } rows[] = {
      {"-aes128 alice.pem", "aes-128-cbc", "rsa"},
      {"-aes256 -stream alice.pem bob.pem", "aes-256-cbc", "rsa"},
      {"-aes-256-gcm alice.pem", "aes-256-gcm", "rsa"},
      {"-aes-128-gcm -stream -keyid carol.pem", "aes-128-gcm", "ecdh"},
      {"-aes192 -recip alice.pem -keyopt rsa_padding_mode:oaep -keyopt rsa_oaep_md:sha256", "aes-192-cbc",
       "rsa-oaep"},
      {"-aes256 -recip dave.pem -keyopt ecdh_kdf_md:sha384", "aes-256-cbc", "ecdh"},
      {"-aes256 -recip carol.pem -keyopt ecdh_cofactor_mode:1", "aes-256-cbc", "ecdh"},
      {"-des3 alice.pem", "3des-cbc", "rsa"},
      {"-provider default -provider legacy -rc2 alice.pem", "rc2-cbc", "rsa"},
      {"-provider default -provider legacy -des alice.pem", "des-cbc", "rsa"},
  };
  for (const auto& row : rows)
    for (const std::string& text : m_texts) {
      SCOPED_TRACE(row.arguments + " " + shown(text));
      if (cannotWrite(row.arguments, text)) continue;
      write("in", text);
      ASSERT_TRUE(cms("-encrypt -outform DER" + in() + " " + row.arguments)) << read("errors");
      const Opened opened = openBlob(read("out"));
      EXPECT_TRUE(opened.done && opened.content == text) << opened.layer.problem;
      EXPECT_EQ(opened.layer.cipher, row.cipher);
      EXPECT_EQ(opened.layer.keyTransport, row.transport);
    }
}

}  // namespace
}  // namespace mailtree
