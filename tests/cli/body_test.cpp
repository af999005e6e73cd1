// What `mailtree body` prints.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/cli/command.h"

namespace mailtree::cli_test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST(Body, is_plain_text_else_html_and_status_1_without_one) {
  const struct {
    const char *what, *options, *message;
    int status;
    const char* out;
  } rows[] = {
      {"mail without a type", "", "Subject: s\n\nno type\n", 0, "no type\n"},
      {"8-bit mail without a type", "", "Subject: s\n\nsch\xF6n und gr\xFC\xDFlich\n", 0,
       "schön und grüßlich\n"},
      {"latin-1", "", "Content-Type: text/plain; charset=iso-8859-1\n\ncaf\xE9", 0, "café"},
      {"damaged utf-8", "", "Content-Type: text/plain; charset=utf-8\n\né é \xFF", 0, "é é \uFFFD"},
      {"both", "",
       "Content-Type: multipart/alternative; boundary=b\n\n--b\nContent-Type: text/plain\n\nt\n--b\n"
       "Content-Type: text/html\n\n<p>h\n--b--\n",
       0, "t"},
      {"both, HTML wanted", "--html",
       "Content-Type: multipart/alternative; boundary=b\n\n--b\nContent-Type: "
       "text/plain\n\nt\n--b\nContent-Type: text/html\n\n<p>h\n--b--\n",
       0, "<p>h"},
      {"HTML alone", "", "Content-Type: text/html\n\n<p>h", 0, "<p>h"},
      {"HTML alone, text wanted", "--text", "Content-Type: text/html\n\n<p>h", 1, ""},
      {"text alone, HTML wanted", "--html", "Content-Type: text/plain\n\nt", 1, ""},
      {"an empty body is one", "", "Content-Type: text/plain\n\n", 0, ""},
      {"attached text is none", "",
       "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: text/plain\n"
       "Content-Disposition: attachment\n\nt\n--b--\n",
       1, ""},
      {"inline text with a file name, by its own label", "",
       "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: text/plain; charset=iso-8859-1\n"
       "Content-Disposition: inline; filename=a.txt\n\ncaf\xE9\n--b--\n",
       0, "café"},
      {"a signed text with a file attached beside it", "",
       "Content-Type: multipart/mixed; boundary=a\n\n--a\nContent-Type: multipart/signed; boundary=b\n\n"
       "--b\nContent-Type: text/plain\n\nsigned\n--b\n"
       "Content-Type: application/pkcs7-signature\n\nx\n--b--\n"
       "--a\nContent-Disposition: attachment; filename=f.txt\nContent-Type: text/plain\n\nfile\n--a--\n",
       0, "signed"},
      {"a report, by the alternatives of its first part", "",
       "Content-Type: multipart/report; boundary=b\n\n--b\nContent-Type: multipart/alternative; "
       "boundary=c\n\n"
       "--c\nContent-Type: text/plain\n\nfailed\n--c--\n--b\nContent-Type: "
       "message/delivery-status\n\nAction: x\n"
       "--b--\n",
       0, "failed"},
  };
  const Workspace work;
  for (const auto& row : rows) {
    const std::string file = work.write("m", row.message);
    const Result result = mailtree("body " + std::string(row.options) + " " + file);
    EXPECT_EQ(result.status, row.status) << row.what;
    EXPECT_EQ(result.out, row.out) << row.what;
    EXPECT_EQ(result.err.empty(), row.status == 0) << row.what << result.err;
  }
}

TEST(Body, comes_in_any_charset_with_a_warning_for_what_it_lacks) {
  const struct {
    const char* charset;
    int status;
    const char *out, *warning;
  } rows[] = {
      {"UTF-8", 0, "é Ж\n", ""},
      {"iso-8859-1", 0, "\xE9 ?\n", "do not exist in iso-8859-1"},
      {"windows-1251", 0, "? \xC6\n", "do not exist in windows-1251"},
      {"us-ascii", 0, "? ?\n", "do not exist in us-ascii"},
      {"no-such-charset", 2, "", "unknown charset: no-such-charset"},
      {"''", 2, "", "unknown charset"},
  };
  const Workspace work;
  const std::string file = work.write("m", "Content-Type: text/plain; charset=utf-8\n\né Ж\n");
  for (const auto& row : rows) {
    const Result result = mailtree("body " + file + " --charset " + row.charset);
    EXPECT_EQ(result.status, row.status) << row.charset;
    EXPECT_EQ(result.out, row.out) << row.charset;
    EXPECT_THAT(result.err, HasSubstr(row.warning));
  }
}

TEST(Body, reaches_a_terminal_as_harmless_lines_and_a_file_byte_for_byte) {
  const Workspace work;
  const std::string text =
      "a\x1b[2J\tb\r\n\xE2\x80\xAE"
      "c";
  const std::string file = work.write("m", "Content-Type: text/plain; charset=utf-8\r\n\r\n" + text);
  EXPECT_EQ(mailtree("body " + file).out, text);
  if (!hasTerminal()) GTEST_SKIP() << "no script(1) here";
  EXPECT_THAT(mailtreeOnTerminal("body " + file, "").out, StartsWith("a\xEF\xBF\xBD[2J\tb\r\n\xEF\xBF\xBD"
                                                                     "c\r\n"));
  for (const char* verb :
       {"write ", "xml ", "mht ", "tidy --safe-encodings ", "edit --remove X ", "write -o /dev/tty "})
    EXPECT_THAT(
        mailtreeOnTerminal(verb + file, "").out,
        testing::Not(testing::AnyOf(testing::HasSubstr("\x1b[2J"), testing::HasSubstr("\xE2\x80\xAE"))))
        << verb;
}

TEST(Body, asks_for_one_kind_of_one_message) {
  for (const char* line : {"body", "body --text --html x", "body x y"})
    EXPECT_EQ(mailtree(line).status, 2) << line;
  EXPECT_EQ(mailtree("body /no/such/file").status, 3);
  EXPECT_THAT(mailtree("body --help").out, HasSubstr("Example:\n  mailtree body"));
}

}  // namespace
}  // namespace mailtree::cli_test
