// Uudecoding: what counts as a block, what it holds, and what broken ones still give.
#include "mailtree/mime/coding/Uu.h"

#include "tests/mime/tables.h"

namespace mailtree {
namespace {

/// A text as an encoder writes it, with one line for every 45 bytes.
std::string uuencode(std::string_view bytes, char zero) {
  std::string out;
  const auto six = [&](unsigned value) { out += value ? static_cast<char>(value + 32) : zero; };
  for (std::size_t at = 0; at < bytes.size(); at += 45) {
    std::string line(bytes.substr(at, 45));
    six(static_cast<unsigned>(line.size()));
    line.resize((line.size() + 2) / 3 * 3);
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(line[i]); };
    for (std::size_t i = 0; i < line.size(); i += 3)
      for (int shift = 18; shift >= 0; shift -= 6)
        six(static_cast<unsigned>(byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2)) >> shift & 63);
    out += '\n';
  }
  return out + zero + "\nend\n";
}

/// "name|bytes" of the first block, "none" without one.
std::string decoded(std::string_view text) {
  DataBuffer out;
  Uu uu;
  out.append(std::string_view("|"));
  const bool found = uu.uu_decode(text, out);
  const std::string name = textOf([&](StringBuffer& buffer) { uu.uu_getFilename(buffer); });
  EXPECT_TRUE(found || (out.view() == "|" && name.empty())) << text;
  return found ? name + std::string(out.view()) : "none";
}

TEST(Uu, gives_back_what_was_encoded_whatever_the_size_and_the_zero) {
  for (const std::size_t size : {0, 1, 2, 3, 44, 45, 46, 90, 1000}) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + i / 256);
    for (const char zero : {'`', ' '})
      EXPECT_EQ(decoded("begin 644 a.bin\n" + uuencode(bytes, zero)), "a.bin|" + bytes) << size << zero;
  }
}

TEST(Uu, reads_what_real_mail_makes_of_a_block) {
  // "Cat" is 0V%T.
  const Row rows[] = {
      {"begin 644 cat.txt\r\n#0V%T\r\n`\r\nend\r\n", "cat.txt|Cat"},
      {"begin 644 cat.txt\r#0V%T\r`\rend\r", "cat.txt|Cat"},
      {"begin 0644 \t my cat.txt \t\n#0V%T\n`\nend\n", "my cat.txt|Cat"},
      {"begin 644 \n#0V%T\n`\nend\n", "|Cat"},
      {"begin 644 cat\n#0V%T\nis what I sent", "cat|Cat"},  // cut off in the text
      {"begin 644 cat\n#0V%T", "cat|Cat"},
      {"begin 644 cat\n#0V%T\n`\nWITH BEST REGARDS\n", "cat|Cat"},
      {"begin 644 cat\n\n#0V%T\n\n#0V%T\n\nend\n", "cat|CatCat"},
      {"begin 644 cat\n#0V%T  \t\n`  \nend  \n", "cat|Cat"},
      {"begin 644 cat\n#0V%TX\n`\nend\n", "cat|Cat"},             // a checksum
      {"begin 644 cat\n#0V%T````````````\n`\nend\n", "cat|Cat"},  // padding to full width
      {"begin 644 cat\n&0V%T\n`\nend\n", "cat|Cat\0\0\0"s},       // zeros lost at the end of a line
      {"begin 644 cat\n!0P\n`\nend\n", "cat|C"},                  // a last group cut to its bytes
      {"begin 644 a\nbegin 644 cat\n#0V%T\nend\n", "cat|Cat"}};   // a false begin before
  expectEach(decoded, rows);
}

TEST(Uu, what_does_not_decode_is_no_block) {
  for (const char* text :
       {"", "begin", "begin ", "begin 644", "begin 644 a.txt", "begin 644 a.txt\n\n\n",
        "begin 64 a.txt\n#0V%T\nend\n", "begin 06444 a.txt\n#0V%T\nend\n", "begin 688 a.txt\n#0V%T\nend\n",
        "begin 644\n#0V%T\nend\n", "> begin 644 a.txt\n#0V%T\nend\n",
        "begin 600 days from now\nand then stop.\n",
        "begin 644 a.txt\n#0V%TTHIS LINE IS MUCH TOO LONG\nend of it\n", "begin 644 a.txt\n#0v%t\n"})
    EXPECT_EQ(decoded(text), "none") << text;
}

TEST(Uu, reads_every_block_of_a_text) {
  ExtPtrArray data;
  ExtPtrArraySb names;
  ASSERT_EQ(Uu::uu_decodeMultipleDb("One:\nbegin 644 a\n#0V%T\n`\nend\nTwo, cut off:\nbegin 600 b\n!0P\n"
                                    "begin 777 c\nno data\nbegin 666 d\n`\nend\n",
                                    data, names),
            3);
  std::string blocks;
  for (int i = 0; i < 3; ++i)
    blocks.append(names.sbAt(i)->view()).append("=").append(data.at<DataBuffer>(i)->view()).append(" ");
  EXPECT_EQ(blocks, "a=Cat b=C d= ");
}

TEST(Uu, takes_time_in_proportion_to_the_text) {
  const auto read = [](const std::string& text) {
    ExtPtrArray data;
    ExtPtrArraySb names;
    EXPECT_LE(Uu::uu_decodeMultipleDb(text, data, names), 1);
  };
  expectEndsSoon(read, {"begin 644 a\n", "begin 644 ", "begin 644 a\r", "M\r", "begin ", "begin 644 a\n \n"},
                 500'000, "begin 644 x\n");
}

}  // namespace
}  // namespace mailtree
