#include "mailtree/crypto/Hash.h"

#include <gtest/gtest.h>

#include <string>

#include "mailtree/crypto/DataSource.h"
#include "mailtree/crypto/Digest.h"

namespace mailtree {
namespace {

TEST(HashNames, are_known_however_they_are_written) {
  const struct {
    const char* name;
    HashId id;
  } rows[] = {
      {"sha1", HashId::sha1},          {"SHA-1", HashId::sha1},
      {"sha256", HashId::sha256},      {"SHA-256", HashId::sha256},
      {"Sha 256", HashId::sha256},     {" sha-384\t", HashId::sha384},
      {"sha--512", HashId::sha512},    {"md5", HashId::md5},
      {"MD-5", HashId::md5},           {"sha2", HashId::unknown},
      {"sha2567", HashId::unknown},    {"sha-25", HashId::unknown},
      {"rsa-sha256", HashId::unknown}, {"sha256,sha1", HashId::unknown},
      {"none", HashId::unknown},
  };
  for (const auto& row : rows) EXPECT_EQ(_svHash::hashId(row.name), static_cast<int>(row.id)) << row.name;
}

TEST(HashNames, empty_is_sha1) {
  for (const char* name : {static_cast<const char*>(nullptr), "", " ", "-"})
    EXPECT_EQ(_svHash::hashId(name), static_cast<int>(HashId::sha1)) << (name ? name : "null");
}

TEST(HashNames, lead_back_to_their_number) {
  for (int id = 1; id <= 5; ++id)
    EXPECT_EQ(_svHash::hashId(std::string(_svHash::nameOf(id)).c_str()), id) << _svHash::nameOf(id);
  for (const int id : {-1, 0, 6, 99}) EXPECT_EQ(_svHash::nameOf(id), "") << id;
}

TEST(Digest, is_the_standard_one) {
  EXPECT_EQ(sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(sha256Hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
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
  EXPECT_EQ(source.next(), "");
  source.initializeMemSource(nullptr, 7);
  EXPECT_EQ(source.next(), "");
}

}  // namespace
}  // namespace mailtree
