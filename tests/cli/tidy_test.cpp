// What `mailtree tidy` cleans up, and only when asked.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/cli/shown.h"

namespace mailtree::cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* kMail =
    "From: a@b.example\r\nSubject: x\r\nMIME-Version: 1.0\r\nContent-Type: multipart/mixed; "
    "boundary=b\r\n\r\n--b\r\n"
    "Content-Type: text/html; charset=utf-8\r\nContent-Transfer-Encoding: 8bit\r\n\r\n"
    "<html><head></head><body>vi<!-- x -->agra \xC3\xA4</body></html>\r\n--b\r\n"
    "Content-Type: image/png; name=\"C:\\\\pics\\\\a.png\"\r\nContent-Transfer-Encoding: binary\r\n"
    "Content-Disposition: attachment; filename=\"/home/me/a.png\"\r\n\r\nPNG\r\n--b--\r\n";

TEST(Tidy, does_what_each_option_says_and_nothing_else) {
  const Workspace work;
  const std::string file = work.write("mail.eml", kMail);
  const struct {
    const char* options;
    bool isUnspammed, isStripped, isEncoded;
  } rows[] = {
      {"--unspam", true, false, false},
      {"--strip-paths", false, true, false},
      {"--safe-encodings", false, false, true},
      {"--unspam --strip-paths --safe-encodings", true, true, true},
  };
  for (const auto& row : rows) {
    const std::string clean = work.path("clean.eml");
    ASSERT_EQ(mailtree("tidy " + file + " -o " + clean + ' ' + row.options).status, 0) << row.options;
    const std::string written = readFile(clean);
    const std::string page = mailtree("body --html " + clean).out;
    EXPECT_EQ(page.find("viagra") != std::string::npos, row.isUnspammed) << row.options;
    EXPECT_EQ(written.find("/home/me") == std::string::npos, row.isStripped) << row.options;
    EXPECT_EQ(written.find("pics") == std::string::npos, row.isStripped) << row.options;
    EXPECT_EQ(written.find("binary") == std::string::npos, row.isEncoded) << row.options;
    EXPECT_THAT(page, HasSubstr("ä")) << row.options;
    EXPECT_THAT(mailtree("attachments " + clean).out, HasSubstr("a.png")) << row.options;
  }
}

TEST(Tidy, page_beside_a_text_is_cleaned_where_it_stands) {
  const Workspace work;
  const std::string file = work.write(
      "mail.eml",
      "From: a@x\nMIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=b\n\n--b\n\ntext\n--b\n"
      "Content-Type: text/html\n\n<p>vi<!-- x -->agra\n--b--\n");
  const std::string clean = mailtree("tidy --unspam " + file).out;
  EXPECT_THAT(clean, HasSubstr("<p>viagra"));
  EXPECT_THAT(clean, Not(HasSubstr("<!-- x -->")));
}

TEST(Tidy, writes_to_standard_output_for_a_dash) {
  const Result result = shell("\"$mailtree\" tidy - --strip-paths -o - < " + sample("attachments"));
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("multipart/"));
}

TEST(Tidy, asks_for_an_option_and_names_what_it_cannot_read) {
  const Result nothing = mailtree("tidy " + sample("plain"));
  EXPECT_EQ(nothing.status, 2);
  EXPECT_THAT(nothing.err, HasSubstr("--strip-paths"));
  EXPECT_EQ(nothing.out, "");
  EXPECT_EQ(mailtree("tidy --unspam /nowhere/mail.eml").status, 3);
}

TEST(Tidy, warns_of_a_signature_that_may_break) {
  EXPECT_THAT(mailtree("tidy --safe-encodings " + sample("signed")).err, HasSubstr("signature"));
}

}  // namespace
}  // namespace mailtree::cli_test
