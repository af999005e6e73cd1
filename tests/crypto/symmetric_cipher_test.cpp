#include "mailtree/crypto/SymmetricCipher.h"

#include <gtest/gtest.h>

#include <string>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Log.h"

namespace mailtree {
namespace {

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
const char* const kModeNames[] = {"cbc", "ctr", "gcm"};

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
  /// Whether it was accepted; a refusal must leave nothing.
  bool decrypt(std::string_view bytes) {
    out.append("old");
    const bool done = cipher.decryptAll(settings, bufferOf(bytes), out, log);
    EXPECT_TRUE(done || out.isEmpty());
    return done;
  }

  _svSymSettings settings;
  SymmetricCipher cipher;
  DataBuffer out;
  LogNull log;
};

// NIST SP 800-38A, F.2 and F.5; the GCM vector is test case 3 of the mode's proposal.
constexpr std::string_view kText =
    "6bc1bee22e409f96e93d7e117393172aae2d8a571e03ac9c9eb76fac45af8e51"
    "30c81c46a35ce411e5fbc1191a0a52eff69f2445df4f9b17ad2b417be66c3710";
const struct {
  const char* name;
  CipherMode mode;
  std::string_view key, iv, text, encrypted;
} kVectors[] = {
    {"F.2.1 CBC-AES128", CipherMode::cbc, "2b7e151628aed2a6abf7158809cf4f3c",
     "000102030405060708090a0b0c0d0e0f", kText,
     "7649abac8119b246cee98e9b12e9197d5086cb9b507219ee95db113a917678b2"
     "73bed6b8e3c1743b7116e69e222295163ff1caa1681fac09120eca307586e1a7"},
    {"F.2.3 CBC-AES192", CipherMode::cbc, "8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b",
     "000102030405060708090a0b0c0d0e0f", kText,
     "4f021db243bc633d7178183a9fa071e8b4d9ada9ad7dedf4e5e738763f69145a"
     "571b242012fb7ae07fa9baac3df102e008b0e27988598881d920a9e64f5615cd"},
    {"F.2.5 CBC-AES256", CipherMode::cbc, "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4",
     "000102030405060708090a0b0c0d0e0f", kText,
     "f58c4c04d6e5f1ba779eabfb5f7bfbd69cfc4e967edb808d679f777bc6702c7d"
     "39f23369a9d9bacfa530e26304231461b2eb05e2c39be9fcda6c19078c6a9d1b"},
    {"F.5.1 CTR-AES128", CipherMode::ctr, "2b7e151628aed2a6abf7158809cf4f3c",
     "f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff", kText,
     "874d6191b620e3261bef6864990db6ce9806f66b7970fdff8617187bb9fffdff"
     "5ae4df3edbd5d35e5b4f09020db03eab1e031dda2fbe03d1792170a0f3009cee"},
    {"F.5.5 CTR-AES256", CipherMode::ctr, "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4",
     "f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff", kText,
     "601ec313775789a5b7a7f504bbf3d228f443e3ca4d62b59aca84e990cacaf5c5"
     "2b0930daa23de94ce87017ba2d84988ddfc9c58db67aada613c2dd08457941a6"},
    {"GCM case 3", CipherMode::gcm, "feffe9928665731c6d6a8f9467308308", "cafebabefacedbaddecaf888",
     "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a72"
     "1c3c0c95956809532fcf0e2449a6b525b16aedf5aa0de657ba637b391aafd255",
     "42831ec2217774244b7221b784d0d49ce3aa212f2c02a4e035c17e2329aca12e"
     "21d514b25466931c7d8f6a5aac84aa051ba30b396a0aac973d58e091473f59854d5c2af327cd64a62cf35abd2ba6fab4"},
};

TEST(SymmetricCipher, gives_what_the_standards_give) {
  for (const auto& row : kVectors) {
    Encryption run(row.mode);
    ASSERT_TRUE(run.settings.setKey(fromHex(row.key))) << row.name;
    if (row.mode != CipherMode::cbc) {
      ASSERT_TRUE(run.decrypt(fromHex(row.iv) + fromHex(row.encrypted))) << row.name;
      EXPECT_EQ(run.out.view(), fromHex(row.text)) << row.name;
      continue;
    }
    ASSERT_TRUE(run.settings.setIv(fromHex(row.iv))) << row.name;
    const std::string encrypted = run.encrypt(fromHex(row.text));
    ASSERT_EQ(encrypted.size(), 80U) << row.name;  // a block of padding more
    EXPECT_EQ(encrypted.substr(0, 64), fromHex(row.encrypted)) << row.name;
  }
}

TEST(SymmetricCipher, takes_every_size_there_and_back) {
  for (const CipherMode mode : kAllModes)
    for (const std::size_t keySize : {16, 24, 32})
      for (std::size_t size = 0; size <= 33; ++size) {
        Encryption run(mode, keySize);
        const std::string text(size, 'x');
        const std::string encrypted = run.encrypt(text);
        ASSERT_TRUE(run.decrypt(encrypted)) << kModeNames[static_cast<int>(mode)] << keySize << " " << size;
        ASSERT_EQ(run.out.view(), text) << kModeNames[static_cast<int>(mode)] << keySize << " " << size;
        ASSERT_NE(run.encrypt(text), encrypted) << "the same vector twice";
      }
}

TEST(SymmetricCipher, fixes_the_vector_in_cbc_only) {
  for (const CipherMode mode : kAllModes) {
    Encryption run(mode);
    ASSERT_TRUE(run.settings.setIv(std::string(16, 'v')));
    const std::string once = run.encrypt("text");
    EXPECT_EQ(once == run.encrypt("text"), mode == CipherMode::cbc) << kModeNames[static_cast<int>(mode)];
    EXPECT_TRUE(run.decrypt(once)) << kModeNames[static_cast<int>(mode)];
    EXPECT_EQ(run.out.view(), "text") << kModeNames[static_cast<int>(mode)];
  }
}

TEST(SymmetricCipher, gcm_refuses_every_change_and_another_key) {
  Encryption run(CipherMode::gcm);
  const std::string encrypted = run.encrypt("what was said");
  for (std::size_t bit = 0; bit < encrypted.size() * 8; ++bit) {
    std::string changed = encrypted;
    changed[bit / 8] = static_cast<char>(changed[bit / 8] ^ (1 << (bit % 8)));
    ASSERT_FALSE(run.decrypt(changed)) << bit;
  }
  for (std::size_t size = 1; size < encrypted.size(); ++size)
    ASSERT_FALSE(run.decrypt(encrypted.substr(0, size))) << size;
  EXPECT_FALSE(run.decrypt(encrypted + "x"));
  ASSERT_TRUE(run.settings.setKey(std::string(16, 'l')));
  EXPECT_FALSE(run.decrypt(encrypted));
}

TEST(SymmetricCipher, cbc_refuses_broken_blocks_and_padding) {
  Encryption run(CipherMode::cbc);
  const std::string encrypted = run.encrypt(std::string(20, 'x'));  // vector and two blocks
  for (std::size_t size = 1; size < encrypted.size(); ++size)
    ASSERT_FALSE(run.decrypt(encrypted.substr(0, size))) << size;
  std::string changed = encrypted;
  changed[31] = static_cast<char>(changed[31] ^ 0x10);  // the last byte of padding, 12, becomes 28
  EXPECT_FALSE(run.decrypt(changed));
}

TEST(SymmetricCipher, leaves_an_empty_body_empty_but_asks_for_a_key) {
  for (const CipherMode mode : kAllModes) {
    Encryption run(mode);
    EXPECT_TRUE(run.decrypt("")) << kModeNames[static_cast<int>(mode)];
    EXPECT_TRUE(run.out.isEmpty()) << kModeNames[static_cast<int>(mode)];
    _svSymSettings unset;
    EXPECT_FALSE(run.cipher.decryptAll(unset, DataBuffer(), run.out, run.log));
    EXPECT_FALSE(run.cipher.encryptAll(unset, bufferOf("x"), run.out, run.log));
  }
}

TEST(SymmetricCipher, works_in_place) {
  Encryption run(CipherMode::gcm, 32);
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
  EXPECT_FALSE(settings.deriveKey("p", "s", 0, 128));
  EXPECT_FALSE(settings.deriveKey("p", "s", 1, 129));
  EXPECT_FALSE(settings.deriveKey("p", "s", 1, -128));
  EXPECT_TRUE(settings.deriveKey("", "", 1, 128));
}

TEST(SymmetricSettings, derive_the_key_that_others_derive) {
  const struct {
    int iterations;
    std::string_view key;
  } rows[] = {
      {1, "120fb6cffcf8b32c43e7225256c4f837a86548c92ccc35480805987cb70be17b"},
      {2, "ae4d0c95af6b46d32d0adff928f06dd02a303f8ef3c251dfd6e2d85a95474c43"},
      {4096, "c5e478d59288c841aa530db6845c4c8d962893a001ce4e11a4963873aa98134a"},
  };
  for (const auto& row : rows) {
    _svSymSettings settings;
    ASSERT_TRUE(settings.deriveKey("password", "salt", row.iterations, 256)) << row.iterations;
    EXPECT_EQ(settings.key(), fromHex(row.key)) << row.iterations;
  }
}

}  // namespace
}  // namespace mailtree
