// Encoded words: what real mailers send, what we write, and that one reads the other.
#include "mailtree/mime/coding/EncodedWord.h"

#include "mailtree/base/Ascii.h"
#include "tests/mime/tables.h"

namespace mailtree {
namespace {

TEST(EncodedWord, decodes_what_mailers_send) {
  const Row words[] = {{"=?UTF-8?b?Y2Fmw6k=?= latte", "café latte"},
                       {"=?utf-8?Q?b?= x =?utf-8?Q?c?=", "b x c"},
                       {"=?utf-8?X?abc?=", "=?utf-8?X?abc?="},
                       {"=?utf-8?Q?", "=?utf-8?Q?"},
                       {"=?utf-8?Q?\?=|", "|"},
                       {"=?=?utf-8?Q?a?=", "=?a"},
                       {"=?us-ascii?Q?caf=C3=A9?=", "café"},
                       {"=?gb2312?B?1tDOxNY=?=", "中文\uFFFD"}};
  const Row rows[] = {
      {"=?iso-8859-1*fr?Q?caf=E9_noir?=", "café noir"},  // RFC 2231 language
      {"a =?utf-8?Q?b?= =?utf-8?Q?c?= d", "a bc d"},     // blanks between words go
      {"=?utf-8?Q?b?=\t  =?iso-8859-1?Q?=E9?=", "bé"},   // between charsets too
      {"=?utf-8?Q?caf=C3?= =?utf-8?Q?=A9?=", "café"},    // a character cut in two
      {"=?iso-8859-1?Q?café=E9_é?=", "caféé é"},         // half of it not escaped
      {"=?utf-8?Q?what?=20now?=3F?=", "what? now??"},    // question marks not escaped
      {"=?utf-8?Q?a?=be=?utf-8?Q?b?=", "abeb"},
      {"=?utf-8?Q?a?= =?x-nobody-knows?Q?b?= =?utf-8?Q?c?=", "abc"},
      {"=?x-nobody-knows?B?w6?= =?x-nobody-knows?B?qQ==?=", "é"},
      {"=?utf-8?Q?a?= =?x-nobody-knows?Q?=E9?= =?utf-8?Q?c?=", "a =?x-nobody-knows?Q?=E9?= c"},
      {"=?utf-8?Q?never ended =?utf-8?Q?ended?=", "=?utf-8?Q?never ended ended"},
      {"=?utf-8?Q?a=0D=0ABcc:_b=00c?=", "a  Bcc: b c"},     // no line break comes out
      {"=?utf-8?Q?=E6=97=A5=E6=9C=AC=E8?=", "日本\uFFFD"},  // cut by the sender: still utf-8
      {"=?iso-2022-jp?B?GyRCRnxLXBsoQg==?=", "日本"},
      {"=?iso-2022-jp?B?GyRCRnw=?= =?ISO-2022-JP?B?S1wbKEI=?=", "日本"}};  // no way back to ASCII between
  expectEach(decodeEncodedWords, both(words, rows));
}

TEST(EncodedWord, hostile_text_is_read_in_linear_time) {
  expectEndsSoon(decodeEncodedWords,
                 {"=?", "=?a?b?", "=?utf-8?Q?x", "=?utf-8?Q?x?=20",
                  "=?utf-8?Q?x=?=20 ?=", "=?utf-8?B?w6k=?= ", "=?utf-8?Q?=FF?= =?koi8-r?Q?a?= ",
                  "=?utf-8?Q?" + repeat("?=20", 200'000), repeat("=?a?q? ", 50'000) + repeat("?=41", 50'000),
                  repeat("=?utf-8?Q?x?=41 ", 50'000) + repeat("?=41", 50'000)});
}

TEST(EncodedWord, only_words_that_need_it_are_encoded) {
  const Row rows[] = {
      {"ein Gruß aus Köln am Rhein", "ein =?utf-8?Q?Gru=C3=9F?= aus =?utf-8?Q?K=C3=B6ln?= am Rhein"},
      {"größte  Größe", "=?utf-8?Q?gr=C3=B6=C3=9Fte__Gr=C3=B6=C3=9Fe?="},
      {"see =?utf-8?Q?x?= there", "see =?utf-8?Q?=3D=3Futf-8=3FQ=3Fx=3F=3D?= there"},
      {"esc \x1b[0m", "esc =?utf-8?Q?=1B=5B0m?="},
      {"two\tblanks  kept", "two\tblanks  kept"},
      {"a\r\nBcc: b", "a Bcc: b"}};
  expectEach([](const auto& text) { return encodeUnstructured(text, {}, 9); }, rows);
}

std::string encoded(std::string_view text, int codePage, WordEncoding words, std::size_t column = 0) {
  std::string out;
  appendEncodedWords(text, {codePage, words}, column, out);
  return out;
}

TEST(EncodedWord, charset_follows_the_code_page_when_it_can_carry_the_text) {
  const std::tuple<int, WordEncoding, const char*, const char*> rows[] = {
      {28591, WordEncoding::q, "é", "=?iso-8859-1?Q?=E9?="},
      {28591, WordEncoding::q, "да", "=?utf-8?Q?=D0=B4=D0=B0?="},
      {50220, WordEncoding::b, "日本", "=?iso-2022-jp?B?GyRCRnxLXBsoQg==?="},
      {936, WordEncoding::b, "中", "=?gb2312?B?1tA=?="},
      {936, WordEncoding::b, "€", "=?gb18030?B?ouM=?="},
      {1200, WordEncoding::b, "é", "=?utf-8?B?w6k=?="},  // NUL bytes have no place in a header
      {0, WordEncoding::q, "é", "=?utf-8?Q?=C3=A9?="}};
  for (const auto& [codePage, words, text, out] : rows)
    EXPECT_EQ(encoded(text, codePage, words), out) << codePage << " " << text;
}

TEST(EncodedWord, long_text_becomes_words_of_at_most_75_that_cut_no_character) {
  for (const std::string& text :
       {repeat("Größenwahn ", 40), repeat("日本語", 60), repeat("😀", 50), repeat("x", 400) + "é"})
    for (const int codePage : {65001, 50220, 54936, 28591})
      for (const WordEncoding words : {WordEncoding::q, WordEncoding::b}) {
        const std::string out = encoded(text, codePage, words, 30);
        SCOPED_TRACE(out.substr(0, 100));
        std::string joined;
        for (const std::string& word : split(out, " ")) {
          EXPECT_LE(word.size(), joined.empty() ? 46u : 75u) << word;
          joined += decodeEncodedWords(word);
        }
        EXPECT_EQ(joined, text);
        EXPECT_EQ(decodeEncodedWords(out), text);
      }
}

TEST(Folding, lines_break_before_white_space_only) {
  // "A" means thirty letters.
  const Row rows[] = {{"To: A\tA\tA", "To: A\tA\r\n\tA"},
                      {"To: A A    A", "To: A A\r\n    A"},
                      {"x: A; name=\"A A\"", "x: A;\r\n name=\"A A\""},
                      {"x: \"A A A\"", "x: \"A A\r\n A\""},
                      {"Message-ID: AAA", "Message-ID: AAA"},  // an empty first line would not help
                      {"Message-ID: AAaaaaaaaaaaaa", "Message-ID:\r\n AAaaaaaaaaaaaa"},
                      {"Subject: a\r\nBcc: b", "Subject: a Bcc: b"},
                      {"Subject: a\r\n b\0c"s, "Subject: a b c"},
                      {"Subject: ", "Subject:"}};
  const auto widened = [](const std::string& text) {
    std::string out;
    for (const char c : text) out += c == 'A' ? std::string(30, 'a') : std::string(1, c);
    return out;
  };
  for (const auto& [line, folded] : rows) EXPECT_EQ(foldHeaderLine(widened(line)), widened(folded)) << line;
}

TEST(Folding, no_line_is_longer_than_998_for_any_text) {
  for (const std::string& row :
       {"X: " + repeat("a", 5000), "X: " + repeat("é", 2500), "X: a" + repeat(" ", 5000) + "b",
        "X: \"" + repeat("\\\" ", 2000), repeat("n", 3000) + ": v",
        "X: " + repeat("a", 990) + " " + repeat("b", 997) + " " + repeat("c", 998)}) {
    const auto lines = split(foldHeaderLine(row), "\r\n");
    for (std::size_t i = 0; i < lines.size(); ++i) {
      EXPECT_TRUE(lines[i].size() <= 998 && !lines[i].empty()) << row.substr(0, 20);
      EXPECT_TRUE(i == 0 || isBlankAscii(lines[i][0])) << row.substr(0, 20);
    }
  }
}

TEST(EncodedWord, what_is_written_reads_back_the_same) {
  // Pieces that meet the limits of words, lines and runs of blanks.
  std::vector<std::string> pieces = split(
      "word|é|日本語|😀|=?|?=|=?utf-8?Q?x?=|=?utf-8?B?w6k=?= =?utf-8?B?w6k=?=|=?utf-8?Q?open|\"|\\|(|,|;|@|"
      "<a@b>|\x01|\x7f|a=|?|\t|  | | |From |--b",
      "|");
  pieces.insert(pieces.end(), {repeat(" ", 17), repeat("a", 60), repeat("a", 77), repeat("b", 997),
                               repeat("é", 40), repeat(" ", 120)});
  std::mt19937 random(20240607);
  const int codePages[] = {65001, 28591, 50220, 20866};
  for (int round = 0; round < 4000; ++round) {
    const std::string text = "[" + randomText(random, pieces, 1 + random() % 24) + "]";
    const int codePage = codePages[random() % std::size(codePages)];
    const std::string line =
        "Subject: " + encodeUnstructured(text, {codePage, preferredWordEncoding(codePage)}, 9);
    std::string unfolded;
    for (const std::string& part : split(foldHeaderLine(line), "\r\n")) {
      ASSERT_LE(part.size(), mayHoldEncodedWord(part) ? 76u : 998u) << text;
      unfolded += part;
    }
    ASSERT_EQ(unfolded, line) << text;
    ASSERT_EQ(decodeEncodedWords(line.substr(9)), text) << line;
  }
}

}  // namespace
}  // namespace mailtree
