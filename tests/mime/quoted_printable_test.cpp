#include "mailtree/mime/coding/QuotedPrintable.h"

#include <algorithm>
#include <memory>

#include "mailtree/mime/coding/QuotedPrintableInternal.h"
#include "tests/mime/tables.h"

namespace mailtree {
namespace {

/// In and out of buffers of exactly the right size, so that a sanitizer sees any byte too many.
std::string decoded(std::string_view text) {
  const auto exact = std::make_unique<char[]>(text.size());
  text.copy(exact.get(), text.size());
  const std::string_view in(exact.get(), text.size());
  const auto out = std::make_unique<std::uint8_t[]>(text.size());
  const std::string bytes(reinterpret_cast<const char*>(out.get()), quotedPrintable::decode(in, out.get()));
  const std::string portable(reinterpret_cast<const char*>(out.get()),
                             quotedPrintable::decodePortable(in, out.get()));
  EXPECT_EQ(bytes, portable) << text;
#if MAILTREE_HAS_AVX2_PATH
  if (hasAvx2()) {  // not chosen on a processor with wider instructions
    const std::string narrow(reinterpret_cast<const char*>(out.get()),
                             quotedPrintable::decodeAvx2(in, out.get()));
    EXPECT_EQ(narrow, portable) << text;
  }
#endif
  return bytes;
}

std::string encoded(std::string_view bytes) {
  std::string out;
  quotedPrintable::Encoder().encode(bytes, true, out);
  return out;
}

TEST(QuotedPrintable, decodes_what_is_broken) {
  const Row rows[] = {{"soft= \t\r\nbreak", "softbreak"},         {"caf=C3=A9=c3=a9", "caféé"},
                      {"soft =\r\nbreak", "soft break"},          {"soft=\nbreak", "softbreak"},
                      {"1=2 =G1 =1G ==41 =", "1=2 =G1 =1G =A "},  {"soft=\rbreak", "softbreak"},
                      {"raw \xE9 8bit\x01", "raw \xE9 8bit\x01"}, {"lf\ncr\rend", "lf\ncr\rend"},
                      {"a  =\r\n  \r\nb", "a    \r\nb"},          {"kept=20 \r\n", "kept  \r\n"}};
  const Row more[] = {{"end=", "end"},
                      {"end= ", "end"},
                      {"a=4", "a=4"},
                      {"a long enough line to be copied in blocks=3D, =\r\nfor more than one of them",
                       "a long enough line to be copied in blocks=, for more than one of them"},
                      {"forgotten  \t\r\nnext\n", "forgotten  \t\r\nnext\n"}};
  expectEach(decoded, both(rows, more));
}

TEST(QuotedPrintable, encodes_what_would_not_survive) {
  const std::string x75(75, 'x'), x76(76, 'x');
  const Row rows[] = {
      {"a=b\xC3\xA9\x7F", "a=3Db=C3=A9=7F"},
      {"blank \r\ntab\t\r\nend ", "blank=20\r\ntab=09\r\nend=20"},
      {"in side\tstays", "in side\tstays"},
      {"bare\rcr\nlf", "bare=0Dcr=0Alf"},
      {"\r\r\n\n", "=0D\r\n=0A"},
      {".\r\n..\r\nx.y", "=2E\r\n=2E.\r\nx.y"},
      {"From here\r\nFrom\r\nFromage\r\n From ", "=46rom here\r\nFrom\r\nFromage\r\n From=20"},
      {x76 + "\r\n", x76 + "\r\n"},  // full line that ends for good
      {x76, x76},
      {x76 + "y", x75 + "=\r\nxy"},
      {x75 + ".y", x75 + "=\r\n=2Ey"},  // a continuation is a line too
      {x75 + "From me", x75 + "=\r\n=46rom me"},
      {x75 + " \r\n", x75 + "=\r\n=20\r\n"},
      {x75.substr(2) + "\xE9\r\n", x75.substr(2) + "=E9\r\n"},
      {x75.substr(1) + "\xE9\r\n", x75.substr(1) + "=\r\n=E9\r\n"}};
  expectEach(encoded, rows);
}

/// What every encoded text keeps to; empty when it does.
std::string brokenRule(std::string_view text) {
  for (const std::string& line : split(text, "\r\n")) {
    if (line.size() > 76) return "too long: " + line;
    if (line.starts_with(".") || line.starts_with("From ")) return "begins badly: " + line;
    if (line.ends_with(" ") || line.ends_with("\t")) return "ends in a blank: " + line;
    const bool clean =
        std::all_of(line.begin(), line.end(), [](char c) { return (c >= ' ' && c <= '~') || c == '\t'; });
    if (!clean) return "raw byte in: " + line;
  }
  return {};
}

/// Text in which the rules meet one another often.
std::string awkwardText(std::size_t most, std::mt19937& random) {
  static const auto pieces = split(
      "\r\n|\r|\n| |\t|.|From |From|=|xxxxxxxx|\xC3\xA9|\0|abcdefghijklmnopqrstuvwxyzabcdefghijklmnopqrstuvwxyz"s,
      "|");
  return randomText(random, pieces, random() % (most / 6));
}

TEST(QuotedPrintable, decoding_gives_back_every_byte_and_every_line_is_safe) {
  std::mt19937 random(3);
  for (int round = 0; round < 3000; ++round) {
    std::string bytes = awkwardText(500, random);
    if (round % 4 == 0)
      for (char& c : bytes) c = static_cast<char>(random());
    const std::string text = encoded(bytes);
    ASSERT_EQ(decoded(text), bytes) << text;
    ASSERT_EQ(brokenRule(text), "") << text;
  }
}

TEST(QuotedPrintable, vector_and_portable_paths_agree_on_damaged_text) {
  std::mt19937 random(5);
  const std::string junk("=\r\n \t3Dg\x80\0", 10);
  for (int round = 0; round < 4000; ++round) {
    std::string text = encoded(awkwardText(500, random));
    for (unsigned damage = random() % 6; damage && !text.empty(); --damage)
      text[random() % text.size()] = junk[random() % junk.size()];
    decoded(text);  // both ways
    if (HasFailure()) FAIL() << "round " << round;
  }
}

#if MAILTREE_HAS_AVX2_PATH

TEST(QuotedPrintable, vector_and_portable_encoders_agree_whatever_can_be_read_behind) {
  if (!hasAvx2()) GTEST_SKIP() << "no such processor";
  std::mt19937 random(6);
  for (int round = 0; round < 4000; ++round) {
    std::string text = awkwardText(300, random);
    if (round % 2 == 0)
      for (char& c : text) c = static_cast<char>(random() % 4 ? 0x80 + random() % 128 : random());
    const auto exact = std::make_unique<char[]>(text.size());
    text.copy(exact.get(), text.size());
    const std::string_view bytes(exact.get(), text.size() - random() % (text.size() + 1));
    const std::size_t room = quotedPrintable::kEscapeSize * bytes.size() + quotedPrintable::kUnbrokenMargin;
    const auto vector = std::make_unique<char[]>(room), portable = std::make_unique<char[]>(room);
    char* const vectorEnd = quotedPrintable::encodeUnbrokenAvx2(bytes, text.size(), vector.get());
    char* const portableEnd = quotedPrintable::encodeUnbrokenPortable(bytes, portable.get());
    ASSERT_EQ(std::string(vector.get(), vectorEnd), std::string(portable.get(), portableEnd)) << bytes;
    ASSERT_EQ(quotedPrintable::plainLinesAvx2({exact.get(), text.size()}),
              quotedPrintable::plainLinesPortable({exact.get(), text.size()}))
        << text;
  }
}

TEST(QuotedPrintable, vector_and_portable_paths_find_the_same_plain_lines) {
  if (!hasAvx2()) GTEST_SKIP() << "no such processor";
  for (std::size_t length = 0; length < 100; ++length) {
    for (const std::string_view end : {"", "\r", "\r\n", "\n", " \r\n", "=\r\n", "\x7F\r\n"}) {
      std::string text = "\r\nfirst\r\n" + std::string(length, 'x');
      text += end;
      for (const std::string_view after : {std::string_view(), std::string_view("y\r\n.\r\nz\r\n")}) {
        const std::string all = text + std::string(after) + std::string(after.empty() ? 0 : 96, 'w');
        ASSERT_EQ(quotedPrintable::plainLinesAvx2(all), quotedPrintable::plainLinesPortable(all)) << all;
      }
    }
  }
}

#endif

TEST(QuotedPrintable, encoding_in_pieces_gives_the_same_text) {
  std::mt19937 random(4);
  for (int round = 0; round < 2000; ++round) {
    std::string bytes = awkwardText(600, random);
    if (round % 3 == 0)
      for (char& c : bytes) c = random() % 40 ? static_cast<char>(0x80 + random() % 128) : c;
    quotedPrintable::Encoder encoder;
    std::string text;
    for (std::size_t at = 0; at < bytes.size();) {
      const std::size_t n = std::min<std::size_t>(bytes.size() - at, random() % (round % 2 ? 9 : 200));
      // Pieces of a few bytes are not encoded 64 at a time, so both ways are compared.
      encoder.encode(std::string_view(bytes).substr(at, n), false, text);
      at += n;
    }
    encoder.encode({}, true, text);
    ASSERT_EQ(text, encoded(bytes)) << bytes;
  }
}

TEST(QuotedPrintable, q_payload_reads_underscore_as_space) {
  const Row rows[] = {{"a_b=5Fc", ">a b_c"}, {"=e9=E9", ">\xE9\xE9"}, {"a=4", ">a=4"}, {"=ZZ_", ">=ZZ "}};
  const auto decodedQ = [](const std::string& payload) {
    std::string out = ">";
    quotedPrintable::decodeQ(payload, out);
    return out;
  };
  expectEach(decodedQ, rows);
}

TEST(PopText, doubled_dots_at_line_beginnings_lose_one) {
  const auto processed = [](const std::string& raw) {
    DataBuffer borrowed;
    borrowed.borrowData(raw.data(), raw.size());
    borrowed.processRawPopMime();
    return std::string(borrowed.view());
  };
  const Row rows[] = {{"..", "."},
                      {"...\n..\n..", "..\n.\n."},
                      {".\r\na..b\r\n.c", ".\r\na..b\r\n.c"},
                      {"..a\r\n\r\n....\r\n.b\r\n..c", ".a\r\n\r\n...\r\n.b\r\n.c"}};
  expectEach(processed, rows);
}

}  // namespace
}  // namespace mailtree
