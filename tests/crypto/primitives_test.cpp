// Digests, ciphers and where their bytes come from.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Log.h"
#include "mailtree/crypto/DataSource.h"
#include "mailtree/crypto/Digest.h"
#include "mailtree/crypto/Hash.h"
#include "mailtree/crypto/SymmetricCipher.h"

namespace mailtree {
namespace {

TEST(HashNames, are_known_however_they_are_written) {
  const std::pair<HashId, std::vector<const char*>> rows[] = {
      {HashId::sha1, {"sha1", nullptr, "", "-"}},  // none is sha1
      {HashId::sha256, {"SHA-256", "Sha 256"}},
      {HashId::sha384, {" sha-384\t"}},
      {HashId::sha512, {"sha--512"}},
      {HashId::md5, {"md5"}},
      {HashId::unknown, {"sha2", "sha2567", "rsa-sha256", "sha256,sha1"}},
  };
  for (const auto& [id, names] : rows)
    for (const char* name : names)
      EXPECT_EQ(_svHash::hashId(name), static_cast<int>(id)) << (name ? name : "null");
}

TEST(HashNames, lead_back_to_their_number) {
  for (int id = 1; id <= 5; ++id)
    EXPECT_EQ(_svHash::hashId(std::string(_svHash::nameOf(id)).c_str()), id) << _svHash::nameOf(id);
  for (const int id : {-1, 0, 6}) EXPECT_EQ(_svHash::nameOf(id), "") << id;
}

TEST(Digest, is_the_standard_one) {
  EXPECT_EQ(sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(MemorySource, gives_its_bytes_once) {
  _svMemoryDataSource source;
  EXPECT_EQ(source.next(), "");  // nothing was given to it: the end, not a failure
  source.initializeMemSource("abcdef", 3);
  EXPECT_EQ(source.next(), "abc");
  EXPECT_EQ(source.next(), "");
  StringBuffer text("short");  // short enough to move when its owner does
  source.takeStringBuffer(text);
  EXPECT_TRUE(text.isEmpty());
  EXPECT_EQ(source.next(), "short");
  source.initializeMemSource(nullptr, 7);
  EXPECT_EQ(source.next(), "");
}

std::string fromHex(std::string_view hex) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
    bytes += static_cast<char>(hexValue(hex[i]) * 16 + hexValue(hex[i + 1]));
  return bytes;
}

DataBuffer bufferOf(std::string_view bytes) {
  DataBuffer buffer;
  buffer.append(bytes);
  return buffer;
}

constexpr CipherMode kAllModes[] = {CipherMode::cbc, CipherMode::ctr, CipherMode::gcm};

struct Encryption {
  explicit Encryption(CipherMode mode, std::size_t keySize = 16) {
    settings.m_mode = mode;
    EXPECT_TRUE(settings.setKey(std::string(keySize, 'k')));
  }
  std::string encrypt(std::string_view text) {
    DataBuffer encrypted;
    EXPECT_TRUE(cipher.encryptAll(settings, bufferOf(text), encrypted, log));
    return std::string(encrypted.view());
  }
  /// The text, or "refused"; a refusal must leave nothing.
  std::string decrypt(std::string_view bytes) {
    DataBuffer out = bufferOf("old");
    const bool done = cipher.decryptAll(settings, bufferOf(bytes), out, log);
    EXPECT_TRUE(done || out.isEmpty());
    return done ? std::string(out.view()) : "refused";
  }

  _svSymSettings settings;
  SymmetricCipher cipher;
  LogNull log;
};

// NIST SP 800-38A, F.2.5 and F.5.1; test case 3 of the proposal of GCM.
TEST(SymmetricCipher, gives_what_the_standards_give) {
  Encryption cbc(CipherMode::cbc), ctr(CipherMode::ctr), gcm(CipherMode::gcm);
  const std::string text = fromHex("6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51");
  cbc.settings.setKey(fromHex("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4"));
  cbc.settings.setIv(fromHex("000102030405060708090a0b0c0d0e0f"));
  const std::string encrypted = cbc.encrypt(text);
  EXPECT_EQ(encrypted.size(), 48U);  // a block of padding more
  EXPECT_EQ(encrypted.substr(0, 32),
            fromHex("f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"));
  ctr.settings.setKey(fromHex("2b7e151628aed2a6abf7158809cf4f3c"));
  EXPECT_EQ(ctr.decrypt(fromHex("f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff"
                                "874d6191b620e3261bef6864990db6ce9806f66b7970fdff8617187bb9fffdff")),
            text);
  gcm.settings.setKey(fromHex("feffe9928665731c6d6a8f9467308308"));
  EXPECT_EQ(gcm.decrypt(fromHex("cafebabefacedbaddecaf88842831ec2217774244b7221b784d0d49ce3aa212f2c02a4e035c1"
                                "7e2329aca12e21d514b25466931c7d8f6a5aac84aa051ba30b396a0aac973d58e091473f5985"
                                "4d5c2af327cd64a62cf35abd2ba6fab4")),
            fromHex("d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a721c3c0c95956809532fcf0e24"
                    "49a6b525b16aedf5aa0de657ba637b391aafd255"));
}

TEST(SymmetricCipher, takes_every_size_there_and_back) {
  for (const CipherMode mode : kAllModes)
    for (const std::size_t keySize : {16, 24, 32})
      for (std::size_t size = 0; size <= 33; ++size) {
        Encryption run(mode, keySize);
        const std::string text(size, 'x'), encrypted = run.encrypt(text);
        ASSERT_EQ(run.decrypt(encrypted), text) << static_cast<int>(mode) << " " << keySize << " " << size;
        ASSERT_NE(run.encrypt(text), encrypted) << "the same vector twice";
      }
}

TEST(SymmetricCipher, fixes_the_vector_in_cbc_only) {
  for (const CipherMode mode : kAllModes) {
    Encryption run(mode);
    ASSERT_TRUE(run.settings.setIv(std::string(16, 'v')));
    const std::string once = run.encrypt("text");
    EXPECT_EQ(once == run.encrypt("text"), mode == CipherMode::cbc) << static_cast<int>(mode);
    EXPECT_EQ(run.decrypt(once), "text") << static_cast<int>(mode);
  }
}

TEST(SymmetricCipher, gcm_refuses_every_change_and_another_key) {
  Encryption run(CipherMode::gcm);
  const std::string encrypted = run.encrypt("what was said");
  for (std::size_t bit = 0; bit < encrypted.size() * 8; ++bit) {
    std::string changed = encrypted;
    changed[bit / 8] = static_cast<char>(changed[bit / 8] ^ (1 << (bit % 8)));
    ASSERT_EQ(run.decrypt(changed), "refused") << bit;
  }
  for (std::size_t size = 1; size < encrypted.size(); ++size)
    ASSERT_EQ(run.decrypt(encrypted.substr(0, size)), "refused") << size;
  EXPECT_EQ(run.decrypt(encrypted + "x"), "refused");
  ASSERT_TRUE(run.settings.setKey(std::string(16, 'l')));
  EXPECT_EQ(run.decrypt(encrypted), "refused");
}

TEST(SymmetricCipher, cbc_refuses_broken_blocks_and_padding) {
  Encryption run(CipherMode::cbc);
  std::string encrypted = run.encrypt(std::string(20, 'x'));  // vector and two blocks
  for (std::size_t size = 1; size < encrypted.size(); ++size)
    ASSERT_EQ(run.decrypt(encrypted.substr(0, size)), "refused") << size;
  encrypted[31] = static_cast<char>(encrypted[31] ^ 0x10);  // the last byte of padding, 12, becomes 28
  EXPECT_EQ(run.decrypt(encrypted), "refused");
}

TEST(SymmetricCipher, leaves_an_empty_body_empty_but_asks_for_a_key) {
  Encryption run(CipherMode::gcm);
  EXPECT_EQ(run.decrypt(""), "");
  _svSymSettings unset;
  DataBuffer out;
  EXPECT_FALSE(run.cipher.decryptAll(unset, DataBuffer(), out, run.log));
  EXPECT_FALSE(run.cipher.encryptAll(unset, bufferOf("x"), out, run.log));
}

TEST(SymmetricCipher, works_in_place) {
  Encryption run(CipherMode::gcm);
  DataBuffer body = bufferOf("body");
  ASSERT_TRUE(run.cipher.encryptAll(run.settings, body, body, run.log));
  EXPECT_NE(body.view(), "body");
  ASSERT_TRUE(run.cipher.decryptAll(run.settings, body, body, run.log));
  EXPECT_EQ(body.view(), "body");
}

TEST(SymmetricSettings, take_only_sizes_that_aes_has) {
  _svSymSettings settings;
  for (std::size_t size = 0; size <= 64; ++size) {
    const bool isKey = size == 16 || size == 24 || size == 32;
    EXPECT_EQ(settings.setKey(std::string(size, 'k')), isKey) << size;
    EXPECT_EQ(settings.setIv(std::string(size, 'v')), size == 16) << size;
    EXPECT_EQ(settings.deriveKey("p", "s", 1, static_cast<int>(size) * 8), isKey) << size;
  }
  EXPECT_EQ(settings.key().size(), 32U);  // what was refused changed nothing
  EXPECT_FALSE(settings.deriveKey("p", "s", 0, 128) || settings.deriveKey("p", "s", 1, 129) ||
               settings.deriveKey("p", "s", 1, -128));
  EXPECT_TRUE(settings.deriveKey("", "", 1, 128));
}

TEST(SymmetricSettings, derive_the_key_that_others_derive) {
  _svSymSettings settings;
  ASSERT_TRUE(settings.deriveKey("password", "salt", 4096, 256));
  EXPECT_EQ(settings.key(), fromHex("c5e478d59288c841aa530db6845c4c8d962893a001ce4e11a4963873aa98134a"));
}

}  // namespace
}  // namespace mailtree
