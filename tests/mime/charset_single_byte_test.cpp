#include <memory>

#include "mailtree/mime/CharsetInternal.h"
#include "tests/mime/tables.h"

namespace mailtree {
namespace {

#if MAILTREE_HAS_AVX2_PATH

using Decode = char* (*)(const SingleByteCodec&, std::string_view, char*, bool&) noexcept;

/// The text and whether it is whole. In and out of buffers of exactly the promised size, so that a sanitizer sees any
/// byte too many.
std::pair<std::string, bool> decoded(Decode how, const SingleByteCodec& codec, std::string_view bytes) {
  const auto exact = std::make_unique<char[]>(bytes.size());
  bytes.copy(exact.get(), bytes.size());
  std::size_t room = kSingleByteMargin;
  for (const char c : bytes) room += packedLength(codec.utf8[static_cast<unsigned char>(c)]);
  const auto out = std::make_unique<char[]>(room);
  bool isWhole = true;
  char* const end = how(codec, {exact.get(), bytes.size()}, out.get(), isWhole);
  return {std::string(out.get(), end), isWhole};
}

TEST(CharsetSingleByte, vector_and_portable_paths_agree_in_every_code_page) {
  if (!hasAvx2()) GTEST_SKIP() << "no such processor";
  std::mt19937 random(1);
  for (const SingleByteCodec& codec : kSingleByteCodecs) {
    for (int round = 0; round < 300; ++round) {
      // From ASCII with a few others to nothing but others.
      const unsigned share = random() % 17;
      std::string bytes(random() % 200, 'a');
      for (char& c : bytes)
        if (random() % 16 < share) c = static_cast<char>(random());
      ASSERT_EQ(decoded(decodeSingleByteAvx2, codec, bytes), decoded(decodeSingleBytePortable, codec, bytes))
          << codec.codePage << ": " << testing::PrintToString(bytes);
      ASSERT_EQ(count8bitAvx2(bytes), count8bitPortable(bytes)) << testing::PrintToString(bytes);
    }
  }
}

TEST(CharsetSingleByte, every_byte_of_every_code_page_is_the_same_in_every_place) {
  if (!hasAvx2()) GTEST_SKIP() << "no such processor";
  for (const SingleByteCodec& codec : kSingleByteCodecs) {
    for (unsigned value = 0x80; value < 0x100; ++value) {
      std::string bytes(33, 'a');
      bytes[value % 33] = static_cast<char>(value);
      const PackedUtf8 packed = codec.utf8[value];
      std::string utf8 = bytes;
      char character[4];
      storePacked(packed, character);
      utf8.replace(value % 33, 1, character, packedLength(packed));
      ASSERT_EQ(decoded(decodeSingleByteAvx2, codec, bytes), std::pair(utf8, (packed & kPackedDamage) == 0))
          << codec.codePage << " " << value;
    }
  }
}

#endif

}  // namespace
}  // namespace mailtree
