#include "mailtree/mime/coding/Base64.h"

#include <memory>

#include "mailtree/mime/coding/Base64Internal.h"
#include "tests/mime/tables.h"

namespace mailtree::base64 {
namespace {

using Decode = std::size_t (*)(std::string_view, std::uint8_t*) noexcept;
using Encode = std::size_t (*)(const std::uint8_t*, std::size_t, char*, std::size_t) noexcept;

/// Into a buffer of exactly the promised size, so that a sanitizer sees any byte too many.
std::string decoded(Decode how, std::string_view text) {
  const auto buffer = std::make_unique<std::uint8_t[]>(decodedCapacity(text.size()));
  const std::string exact(text);
  const std::size_t n = how(exact, buffer.get());
  return {reinterpret_cast<const char*>(buffer.get()), n};
}

std::string encoded(Encode how, std::string_view bytes, std::size_t lineLength) {
  const std::size_t size = encodedSize(bytes.size(), lineLength);
  const auto buffer = std::make_unique<char[]>(size);
  const std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
  EXPECT_EQ(how(exact.data(), exact.size(), buffer.get(), lineLength), size)
      << bytes.size() << " bytes in lines of " << lineLength;
  return {buffer.get(), size};
}

/// The code of narrower processors too, which is not chosen here.
#if MAILTREE_HAS_AVX2_PATH
const Decode kNarrowDecode = hasAvx2() ? decodeAvx2 : decodePortable;
const Encode kNarrowEncode = hasAvx2() ? encodeAvx2 : encodePortable;
#else
const Decode kNarrowDecode = decodePortable;
const Encode kNarrowEncode = encodePortable;
#endif

std::string randomBytes(std::size_t size, std::mt19937& random) {
  std::string bytes(size, '\0');
  for (char& c : bytes) c = static_cast<char>(random());
  return bytes;
}

TEST(Base64, decodes_what_is_broken) {
  const std::string line = "QUJDREVGR0hJSktMTU5PUFFSU1RVVldYWVphYmNkZWZnaGlqa2xtbm9wcXJzdHV2d3h5ejAxMjM0";
  const std::string lineBytes = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz01234";
  // Padding that is missing, halved, too much, and in the middle; a digit that is no byte; strangers.
  const Row rows[] = {
      {"Zm9v====YmFy", "foobar"},           {"Zm9vYmFy", "foobar"}, {"Zm9vYg==", "foob"}, {"", ""},
      {"Zm8=\r\nZm8=\r\n", "fofo"},         {"Zm9vYmE=", "fooba"},  {"Zm9vYmE", "fooba"}, {"Zm9vYg", "foob"},
      {"QQ==\r\nQ!UJD\r\nREVG", "AABCDEF"}, {"Z m\t9\r\nv", "foo"}, {"Zm9vYg=", "foob"},  {"Zm9vY", "foo"},
      {"Zm9v!#\x80\xFF-_YmFy", "foobar"},   {"Zm\0\x39v"s, "foo"},  {"Zm8=Zm8=", "fofo"}, {"=Zm9v", "foo"}};
  const Row more[] = {{"Zm8=\r\n\r\n_____\r\nList mailing list\r\n", "fo"},  // a footer in clear
                      {line + "\r\n" + line + "\n" + line, lineBytes + lineBytes + lineBytes},
                      {line + " \r\n \r\n" + line, lineBytes + lineBytes},
                      {line + "=\r\n" + line, lineBytes + lineBytes},
                      {"Q\r\n" + line.substr(1) + "\r\n" + line, lineBytes + lineBytes},
                      {line.substr(0, 50) + "\x81" + line.substr(50), lineBytes}};
  for (const Decode how : {&decode, &decodePortable})
    expectEach([&](const std::string& text) { return decoded(how, text); }, both(rows, more));
}

TEST(Base64, encodes_in_lines_with_a_break_after_each) {
  const std::tuple<std::string, std::size_t, std::string> rows[] = {
      {"foobar", 4, "Zm9v\r\nYmFy\r\n"},      {"f", 76, "Zg==\r\n"},       {"", 76, ""},
      {"foobarb", 8, "Zm9vYmFy\r\nYg==\r\n"}, {"\xFB\xEF\xFF", 0, "++//"}, {"fo", 0, "Zm8="}};
  for (const auto& [bytes, lineLength, text] : rows)
    EXPECT_EQ(encoded(encode, bytes, lineLength), text) << bytes;
}

TEST(Base64, vector_and_portable_paths_agree_at_every_size) {
  std::mt19937 random(1);
  for (const std::size_t lineLength : {0, 4, 28, 32, 60, 64, 76, 128, 1000}) {
    for (std::size_t size = 0; size < 400; ++size) {
      const std::string bytes = randomBytes(size, random);
      const std::string text = encoded(encodePortable, bytes, lineLength);
      std::string unixText = text;
      std::erase(unixText, '\r');
      for (const Encode how : {&encode, kNarrowEncode})
        ASSERT_EQ(encoded(how, bytes, lineLength), text) << size << " bytes in lines of " << lineLength;
      ASSERT_EQ(decoded(decodePortable, text), bytes) << size << " bytes in lines of " << lineLength;
      for (const std::string& lines : {text, unixText})
        for (const Decode how : {&decode, kNarrowDecode})
          ASSERT_EQ(decoded(how, lines), bytes) << size << " bytes in lines of " << lineLength;
    }
  }
}

TEST(Base64, vector_and_portable_paths_agree_on_damaged_text) {
  std::mt19937 random(2);
  const std::string junk("\r\n \t=-_!\0\x7F\x80\xFF", 12);
  for (int round = 0; round < 3000; ++round) {
    std::string text = encoded(encodePortable, randomBytes(random() % 600, random), random() % 3 ? 76 : 0);
    for (unsigned damage = random() % 6; damage && !text.empty(); --damage) {
      const std::size_t at = random() % text.size();
      switch (random() % 3) {
        case 0: text.insert(at, 1 + random() % 3, junk[random() % junk.size()]); break;
        case 1: text.erase(at, 1 + random() % 3); break;
        default: text[at] = junk[random() % junk.size()];
      }
    }
    ASSERT_EQ(decoded(decode, text), decoded(decodePortable, text)) << round << ": " << text;
  }
}

TEST(Base64, every_byte_value_is_a_digit_or_skipped_at_any_place) {
  const std::string digits(76, 'A');
  for (const std::string& text : {digits + "AAAA", repeat(digits + "\r\n", 6), repeat(digits + "\n", 6)}) {
    for (std::size_t at = 0; at < std::min<std::size_t>(text.size(), 4 * 78); ++at) {
      std::string changed = text;
      for (int value = 0; value < 256; ++value) {
        changed[at] = static_cast<char>(value);
        for (const Decode how : {&decode, kNarrowDecode})
          ASSERT_EQ(decoded(how, changed), decoded(decodePortable, changed))
              << "byte " << value << " at " << at << " of " << text.size();
      }
    }
  }
}

}  // namespace
}  // namespace mailtree::base64
