// Encoded words: what real mailers send, what we write, and that one reads the other.
#include "mailtree/mime/coding/EncodedWord.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "mailtree/base/Ascii.h"

namespace mailtree {
namespace {

using namespace std::string_literals;

std::string repeat(std::string_view text, std::size_t count) {
  std::string out;
  for (std::size_t i = 0; i < count; ++i) out += text;
  return out;
}

TEST(EncodedWord, decodes_what_mailers_send) {
  const struct {
    const char* value;
    const char* decoded;
  } rows[] = {
      {"plain text", "plain text"},
      {"=?utf-8?Q?caf=C3=A9?=", "café"},
      {"=?UTF-8?b?Y2Fmw6k=?= latte", "café latte"},
      {"=?iso-8859-1*fr?Q?caf=E9_noir?=", "café noir"},  // RFC 2231 language
      {"a =?utf-8?Q?b?= =?utf-8?Q?c?= d", "a bc d"},     // blanks between words go
      {"=?utf-8?Q?b?=\t  =?iso-8859-1?Q?=E9?=", "bé"},   // between charsets too
      {"=?utf-8?Q?b?= x =?utf-8?Q?c?=", "b x c"},
      {"=?utf-8?Q?b?==?utf-8?Q?c?=", "bc"},            // no blank at all
      {"x=?utf-8?Q?b?=y", "xby"},                      // no blanks around
      {"=?utf-8?B?w6k=?= =?utf-8?B?w6k=?=", "éé"},     // padding in the middle
      {"=?utf-8?B?w6?=", "\xEF\xBF\xBD"},              // a character that is not all there
      {"=?utf-8?Q?caf=C3?= =?utf-8?Q?=A9?=", "café"},  // a character cut in two
      {"=?utf-8?B?Y2Fmw6k?=", "café"},                 // padding missing
      {"=?utf-8?Q?two words?=", "two words"},          // blanks not escaped
      {"=?iso-8859-1?Q?café=E9_é?=", "caféé é"},       // half of it not escaped
      {"=?utf-8?Q?what?=20now?=3F?=", "what? now??"},  // question marks not escaped
      {"=?utf-8?Q?what? now?=", "what? now"},
      {"=?utf-8?Q?a?=be=?utf-8?Q?b?=", "abeb"},
      {"=?utf-8?Q?a?= =?x-nobody-knows?Q?b?= =?utf-8?Q?c?=", "abc"},
      {"=?x-nobody-knows?B?w6?= =?x-nobody-knows?B?qQ==?=", "é"},
      {"=?utf-8?Q?a?= =?x-nobody-knows?Q?=E9?= =?utf-8?Q?c?=", "a =?x-nobody-knows?Q?=E9?= c"},
      {"=?utf-8?Q?never ended =?utf-8?Q?ended?=", "=?utf-8?Q?never ended ended"},
      {"=?utf-8?X?abc?=", "=?utf-8?X?abc?="},
      {"=?utf-8?Q?", "=?utf-8?Q?"},
      {"=?utf-8?Q?\?=|", "|"},
      {"=?=?utf-8?Q?a?=", "=?a"},
      {"=?utf-8?Q?a=0D=0ABcc:_b=00c?=", "a  Bcc: b c"},           // no line break comes out
      {"=?us-ascii?Q?caf=C3=A9?=", "café"},                       // the label lies, the bytes are utf-8
      {"=?utf-8?Q?=E6=97=A5=E6=9C=AC=E8?=", "日本\xEF\xBF\xBD"},  // cut by the sender: still utf-8
      {"=?iso-2022-jp?B?GyRCRnxLXBsoQg==?=", "日本"},
      {"=?gb2312?B?1tDOxA==?=", "中文"},
      {"=?gb2312?B?1tDOxNY=?=", "中文\uFFFD"},
      {"=?koi8-r?B?8NLJ18XU?=", "Привет"},
  };
  for (const auto& row : rows) EXPECT_EQ(decodeEncodedWords(row.value), row.decoded) << row.value;
}

TEST(EncodedWord, hostile_text_is_read_in_linear_time) {
  const std::string rows[] = {
      repeat("=?", 1'000'000),
      repeat("=?a?b?", 300'000),
      repeat("=?utf-8?Q?x", 200'000),
      repeat("=?utf-8?Q?x?=20", 200'000),
      repeat("=?utf-8?Q?x=?=20 ?=", 100'000),
      "=?utf-8?Q?" + repeat("?=20", 500'000),
      repeat("=?a?q? ", 100'000) + repeat("?=41", 100'000),
      repeat("=?utf-8?Q?x?=41 ", 100'000) + repeat("?=41", 100'000),
      repeat("=?utf-8?B?w6k=?= ", 100'000),
      repeat("=?utf-8?Q?=FF?= =?koi8-r?Q?a?= ", 30'000),
  };
  for (const std::string& row : rows) {
    const auto begin = std::chrono::steady_clock::now();
    decodeEncodedWords(row);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3)) << row.substr(0, 40);
  }
}

TEST(EncodedWord, only_words_that_need_it_are_encoded) {
  const struct {
    const char* text;
    const char* written;
  } rows[] = {
      {"plain, with (everything) \"ASCII\"", "plain, with (everything) \"ASCII\""},
      {"ein Gruß aus Köln am Rhein", "ein =?utf-8?Q?Gru=C3=9F?= aus =?utf-8?Q?K=C3=B6ln?= am Rhein"},
      {"größte  Größe", "=?utf-8?Q?gr=C3=B6=C3=9Fte__Gr=C3=B6=C3=9Fe?="},
      {"see =?utf-8?Q?x?= there", "see =?utf-8?Q?=3D=3Futf-8=3FQ=3Fx=3F=3D?= there"},
      {"esc \x1b[0m", "esc =?utf-8?Q?=1B=5B0m?="},
      {"two\tblanks  kept", "two\tblanks  kept"},
      {"a\r\nBcc: b", "a Bcc: b"},
  };
  for (const auto& row : rows) EXPECT_EQ(encodeUnstructured(row.text, {}, 9), row.written) << row.text;
}

TEST(EncodedWord, charset_follows_the_code_page_when_it_can_carry_the_text) {
  const struct {
    int codePage;
    WordEncoding words;
    const char* text;
    const char* written;
  } rows[] = {
      {28591, WordEncoding::q, "é", "=?iso-8859-1?Q?=E9?="},
      {28591, WordEncoding::q, "Привет", "=?utf-8?Q?=D0=9F=D1=80=D0=B8=D0=B2=D0=B5=D1=82?="},
      {20866, WordEncoding::b, "Привет", "=?koi8-r?B?8NLJ18XU?="},
      {50220, WordEncoding::b, "日本", "=?iso-2022-jp?B?GyRCRnxLXBsoQg==?="},
      {936, WordEncoding::b, "中", "=?gb2312?B?1tA=?="},
      {936, WordEncoding::b, "€", "=?gb18030?B?ouM=?="},
      {20127, WordEncoding::q, "é", "=?utf-8?Q?=C3=A9?="},
      {1200, WordEncoding::b, "é", "=?utf-8?B?w6k=?="},  // NUL bytes have no place in a header
      {0, WordEncoding::q, "é", "=?utf-8?Q?=C3=A9?="},
  };
  for (const auto& row : rows) {
    std::string out;
    appendEncodedWords(row.text, {row.codePage, row.words}, 0, out);
    EXPECT_EQ(out, row.written) << row.codePage << " " << row.text;
  }
}

/// The words of an encoded text, with what each alone decodes to.
std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> words;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find(' ', at), text.size());
    words.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return words;
}

TEST(EncodedWord, long_text_becomes_words_of_at_most_75_that_cut_no_character) {
  const std::string texts[] = {repeat("Größenwahn ", 40), repeat("日本語", 60), repeat("😀", 50),
                               repeat("x", 400) + "é"};
  const int codePages[] = {65001, 50220, 54936, 28591};
  for (const std::string& text : texts)
    for (const int codePage : codePages)
      for (const WordEncoding words : {WordEncoding::q, WordEncoding::b}) {
        std::string out;
        appendEncodedWords(text, {codePage, words}, 30, out);
        SCOPED_TRACE(out.substr(0, 100));
        std::string joined;
        bool isFirst = true;
        for (const std::string& word : split(out)) {
          EXPECT_LE(word.size(), isFirst ? 46u : 75u) << word;
          const std::string decoded = decodeEncodedWords(word);
          EXPECT_EQ(decoded.find("\xEF\xBF\xBD"), std::string::npos) << word;
          joined += decoded;
          isFirst = false;
        }
        EXPECT_EQ(joined, text);
        EXPECT_EQ(decodeEncodedWords(out), text);
      }
}

TEST(Folding, lines_break_before_white_space_only) {
  const std::string a30 = repeat("a", 30), a90 = repeat("a", 90);
  const struct {
    std::string line;
    std::string folded;
  } rows[] = {
      {"Subject: short", "Subject: short"},
      {"To: " + a30 + " " + a30 + " " + a30, "To: " + a30 + " " + a30 + "\r\n " + a30},
      {"To: " + a30 + "\t" + a30 + "\t" + a30, "To: " + a30 + "\t" + a30 + "\r\n\t" + a30},
      {"To: " + a30 + " " + a30 + "    " + a30, "To: " + a30 + " " + a30 + "\r\n    " + a30},
      {"X: " + a30 + "; name=\"" + a30 + " " + a30 + "\"",
       "X: " + a30 + ";\r\n name=\"" + a30 + " " + a30 + "\""},
      {"X: \"" + a30 + " " + a30 + " " + a30 + "\"", "X: \"" + a30 + " " + a30 + "\r\n " + a30 + "\""},
      {"Message-ID: " + a90, "Message-ID: " + a90},  // an empty first line would not help
      {"Message-ID: " + a30 + a30 + "aaaaaaaaaaaa", "Message-ID:\r\n " + a30 + a30 + "aaaaaaaaaaaa"},
      {"Subject: a\r\nBcc: b", "Subject: a Bcc: b"},
      {"Subject: a\r\n b\0c"s, "Subject: a b c"},
      {"Subject: ", "Subject:"},
  };
  for (const auto& row : rows) EXPECT_EQ(foldHeaderLine(row.line), row.folded) << row.line;
}

std::size_t longestLine(const std::string& text) {
  std::size_t longest = 0;
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t end = std::min(text.find("\r\n", at), text.size());
    longest = std::max(longest, end - at);
    at = end + 2;
  }
  return longest;
}

std::string unfold(std::string text) {
  for (std::size_t at; (at = text.find("\r\n")) != std::string::npos;) text.erase(at, 2);
  return text;
}

TEST(Folding, no_line_is_longer_than_998_whatever_comes) {
  const std::string rows[] = {
      "X: " + repeat("a", 5000),
      "X: " + repeat("é", 2500),
      "X: a" + repeat(" ", 5000) + "b",
      "X: \"" + repeat("\\\" ", 2000),
      repeat("n", 3000) + ": v",
      "X: " + repeat("a", 990) + " " + repeat("b", 997) + " " + repeat("c", 998),
  };
  for (const std::string& row : rows) {
    const std::string folded = foldHeaderLine(row);
    EXPECT_LE(longestLine(folded), 998u) << row.substr(0, 20);
    EXPECT_EQ(folded.find("\r\n\r\n"), std::string::npos);
    for (std::size_t at = 0; (at = folded.find("\r\n", at)) != std::string::npos; at += 2)
      EXPECT_TRUE(isBlankAscii(folded[at + 2])) << row.substr(0, 20);
  }
}

/// Random text of pieces that meet the limits of words, lines and runs of blanks.
std::string randomText(std::mt19937& random) {
  static const std::string pieces[] = {
      "word",
      "é",
      "日本語",
      "😀",
      "=?",
      "?=",
      "=?utf-8?Q?x?=",
      "=?utf-8?B?w6k=?= =?utf-8?B?w6k=?=",
      "=?utf-8?Q?open",
      "\"",
      "\\",
      "(",
      ",",
      ";",
      "@",
      "<a@b>",
      "\x01",
      "\x7f",
      "a=",
      "?",
      "\t",
      "  ",
      " ",
      " ",
      repeat(" ", 17),
      repeat("a", 60),
      repeat("a", 77),
      repeat("b", 997),
      repeat("é", 40),
      repeat(" ", 120),
      "From ",
      "--b",
  };
  std::string text = "[";
  const std::size_t count = 1 + random() % 24;
  for (std::size_t i = 0; i < count; ++i) text += pieces[random() % std::size(pieces)];
  return text + "]";
}

TEST(EncodedWord, what_is_written_reads_back_the_same) {
  std::mt19937 random(20240607);
  const int codePages[] = {65001, 28591, 50220, 20866};
  for (int round = 0; round < 4000; ++round) {
    const std::string text = randomText(random);
    const int codePage = codePages[random() % std::size(codePages)];
    const std::string line =
        "Subject: " + encodeUnstructured(text, {codePage, preferredWordEncoding(codePage)}, 9);
    const std::string folded = foldHeaderLine(line);
    ASSERT_EQ(unfold(folded), line) << text;
    ASSERT_LE(longestLine(folded), 998u) << text;
    for (std::size_t at = 0, end = 0; at < folded.size(); at = end + 2) {
      end = std::min(folded.find("\r\n", at), folded.size());
      ASSERT_TRUE(end - at <= 76 || !mayHoldEncodedWord(folded.substr(at, end - at))) << folded;
    }
    ASSERT_EQ(decodeEncodedWords(line.substr(9)), text) << line;
  }
}

}  // namespace
}  // namespace mailtree
