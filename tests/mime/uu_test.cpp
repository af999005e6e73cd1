// Uudecoding: what counts as a block, what it holds, and what broken ones still give.
#include "mailtree/mime/coding/Uu.h"

#include <gtest/gtest.h>

#include <string>

namespace mailtree {
namespace {

/// A text as an encoder writes it, with one line for every 45 bytes.
std::string uuencode(std::string_view bytes, char zero) {
  std::string out;
  const auto six = [&](unsigned value) { out += value ? static_cast<char>(value + 32) : zero; };
  for (std::size_t at = 0; at < bytes.size(); at += 45) {
    const std::string_view line = bytes.substr(at, 45);
    six(static_cast<unsigned>(line.size()));
    for (std::size_t i = 0; i < line.size(); i += 3) {
      const auto byte = [&](std::size_t k) {
        return k < line.size() ? static_cast<unsigned char>(line[k]) : 0u;
      };
      const unsigned bits = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
      for (int shift = 18; shift >= 0; shift -= 6) six(bits >> shift & 63);
    }
    out += '\n';
  }
  return out + zero + "\nend\n";
}

std::string everyByte(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + i / 256);
  return bytes;
}

TEST(Uu, gives_back_what_was_encoded_whatever_the_size_and_the_zero) {
  for (const std::size_t size : {0, 1, 2, 3, 44, 45, 46, 90, 1000}) {
    for (const char zero : {'`', ' '}) {
      const std::string bytes = everyByte(size);
      DataBuffer out;
      Uu uu;
      EXPECT_TRUE(uu.uu_decode("begin 644 a.bin\n" + uuencode(bytes, zero), out)) << size << zero;
      EXPECT_EQ(out.view(), bytes) << size << zero;
    }
  }
}

TEST(Uu, reads_what_real_mail_makes_of_a_block) {
  // "Cat" is 0V%T.
  const struct {
    const char* what;
    std::string_view text;
    const char* name;
    std::string_view bytes;
  } rows[] = {
      {"CRLF", "begin 644 cat.txt\r\n#0V%T\r\n`\r\nend\r\n", "cat.txt", "Cat"},
      {"bare CR", "begin 644 cat.txt\r#0V%T\r`\rend\r", "cat.txt", "Cat"},
      {"text around", "Hello,\n\nbegin 644 cat.txt\n#0V%T\n`\nend\nBye\n", "cat.txt", "Cat"},
      {"four digits, blanks around the name", "begin 0644 \t my cat.txt \t\n#0V%T\n`\nend\n", "my cat.txt",
       "Cat"},
      {"no name", "begin 644 \n#0V%T\n`\nend\n", "", "Cat"},
      {"8-bit name", "begin 600 Fr\xF6sche\n#0V%T\n`\nend\n", "Fr\xF6sche", "Cat"},
      {"no zero line", "begin 644 cat\n#0V%T\nend\n", "cat", "Cat"},
      {"no end", "begin 644 cat\n#0V%T\n`\nand more", "cat", "Cat"},
      {"cut off in the text", "begin 644 cat\n#0V%T\nis what I sent", "cat", "Cat"},
      {"cut off at the end", "begin 644 cat\n#0V%T", "cat", "Cat"},
      {"capitals after the zero line", "begin 644 cat\n#0V%T\n`\nWITH BEST REGARDS\n", "cat", "Cat"},
      {"blank lines between", "begin 644 cat\n\n#0V%T\n\n#0V%T\n\nend\n", "cat", "CatCat"},
      {"trailing blanks", "begin 644 cat\n#0V%T  \t\n`  \nend  \n", "cat", "Cat"},
      {"a checksum", "begin 644 cat\n#0V%TX\n`\nend\n", "cat", "Cat"},
      {"padding to full width", "begin 644 cat\n#0V%T````````````\n`\nend\n", "cat", "Cat"},
      {"zeros lost at the end of a line", "begin 644 cat\n&0V%T\n`\nend\n", "cat",
       std::string_view("Cat\0\0\0", 6)},
      {"a last group cut to its bytes", "begin 644 cat\n!0P\n`\nend\n", "cat", "C"},
      {"an empty file", "begin 644 empty\n`\nend\n", "empty", ""},
      {"a false begin before", "begin 644 of the\nyear\nbegin 644 cat\n#0V%T\nend\n", "cat", "Cat"},
      {"a block that never starts before another", "begin 644 a\nbegin 644 cat\n#0V%T\nend\n", "cat", "Cat"},
  };
  for (const auto& row : rows) {
    DataBuffer out;
    StringBuffer name("was:");
    Uu uu;
    out.append(std::string_view("was:"));
    EXPECT_TRUE(uu.uu_decode(row.text, out)) << row.what;
    uu.uu_getFilename(name);
    EXPECT_EQ(out.view(), "was:" + std::string(row.bytes)) << row.what;
    EXPECT_EQ(name.view(), "was:" + std::string(row.name)) << row.what;
  }
}

TEST(Uu, what_does_not_decode_is_no_block) {
  const std::string_view rows[] = {
      "",
      "begin",
      "begin ",
      "begin 644",
      "begin 644 a.txt",
      "begin 644 a.txt\n",
      "begin 644 a.txt\n\n\n",
      "begin 64 a.txt\n#0V%T\nend\n",
      "begin 06444 a.txt\n#0V%T\nend\n",
      "begin 688 a.txt\n#0V%T\nend\n",
      "begin 644\n#0V%T\nend\n",
      "> begin 644 a.txt\n#0V%T\nend\n",
      "begin 600 days from now\nand then stop.\n",
      "begin 644 a.txt\n#0V%TTHIS LINE IS MUCH TOO LONG\nend of it\n",
      "begin 644 a.txt\n#0v%t\n",
  };
  for (const std::string_view text : rows) {
    DataBuffer out;
    StringBuffer name;
    Uu uu;
    out.append(std::string_view("was"));
    EXPECT_FALSE(uu.uu_decode(text, out)) << text;
    uu.uu_getFilename(name);
    EXPECT_EQ(out.view(), "was") << text;
    EXPECT_EQ(name.view(), "") << text;
  }
}

TEST(Uu, reads_every_block_of_a_text) {
  const std::string text =
      "One:\nbegin 644 a\n#0V%T\n`\nend\nTwo, cut off:\nbegin 600 b\n!0P\nbegin 777 c\nno data\nbegin 666 "
      "d\n`\nend\n";
  ExtPtrArray data;
  ExtPtrArraySb names;
  ASSERT_EQ(Uu::uu_decodeMultipleDb(text, data, names), 3);
  ASSERT_EQ(data.getSize(), 3);
  ASSERT_EQ(names.getSize(), 3);
  const struct {
    const char* name;
    const char* bytes;
  } rows[] = {{"a", "Cat"}, {"b", "C"}, {"d", ""}};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(names.sbAt(i)->view(), rows[i].name);
    EXPECT_EQ(data.at<DataBuffer>(i)->view(), rows[i].bytes) << rows[i].name;
  }
}

TEST(Uu, takes_time_in_proportion_to_the_text) {
  // A megabyte of each; anything quadratic would be felt in minutes.
  for (const std::string_view piece :
       {"begin 644 a\n", "begin 644 ", "begin 644 a\r", "M\r", "begin ", "begin 644 a\n \n"}) {
    std::string text = "begin 644 x\n";
    while (text.size() < 1'000'000) text += piece;
    ExtPtrArray data;
    ExtPtrArraySb names;
    EXPECT_LE(Uu::uu_decodeMultipleDb(text, data, names), 1) << piece;
  }
}

}  // namespace
}  // namespace mailtree
