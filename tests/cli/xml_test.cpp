// What `mailtree xml` and `mailtree tree` give.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/cli/command.h"
#include "tests/support/places.h"

namespace mailtree::cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

/// A program line that reads XML from standard input and fails when it is not well formed; empty when there is none.
std::string xmlParser() {
  if (shell("xmllint --version").status == 0) return "xmllint --noout -";
  const std::string python = "python3 -c 'import sys, xml.dom.minidom as d; d.parse(sys.stdin.buffer)'";
  return shell("echo '<a/>' | " + python).status == 0 ? python : "";
}

TEST(XmlCommand, a_parser_accepts_every_sample_in_both_forms) {
  const std::string parser = xmlParser();
  if (parser.empty()) GTEST_SKIP() << "there is neither xmllint nor python3";
  ASSERT_NE(shell("echo '<a>&</a>' | " + parser).status, 0);
  const Workspace work;
  const std::string hostile = work.write(
      "hostile",
      std::string("Subject: \x01 ]]> \xFF <&>\r\nX<>: 1\r\n-: 2\r\n\r\n]]> \0 \x1B \xEF\xBF\xBF\r\n", 52));
  std::string files = hostile;
  for (const auto& entry : std::filesystem::directory_iterator(places::samples()))
    files += ' ' + entry.path().string();
  const Result result =
      shell("for f in " + files + "; do for form in '' --indent; do \"$mailtree\" xml $form \"$f\" | " +
            parser + " || echo \"$f\" $form; done; done");
  EXPECT_EQ(result.out, "") << result.err;
}

TEST(XmlCommand, parser_gives_back_the_exact_text) {
  if (shell("python3 -c 'import xml.etree.ElementTree'").status != 0) GTEST_SKIP() << "there is no python3";
  const Workspace work;
  const std::string body = "one\r\n\r\n]]> <&>\n\ttwo\rthree\r\n";
  const std::string file = work.write("m", "Subject: =?utf-8?Q?=C3=A4?=  b\r\n\r\n" + body);
  const Result result =
      shell("\"$mailtree\" xml " + file +
            " | python3 -c 'import sys, xml.etree.ElementTree as e; r = e.parse(sys.stdin.buffer).getroot();"
            "sys.stdout.buffer.write((r.find(\"subject\").text + \"|\" + r.find(\"body\").text).encode())'");
  EXPECT_EQ(result.out, "ä  b|" + body) << result.err;
}

TEST(XmlCommand, writes_a_file_and_leaves_internal_fields_out) {
  const Workspace work;
  const std::string file = work.write(
      "m", "SVX-Bounce-Address: a@b\r\nsvz-size: 12\r\nsvx-Bounce-Address: c@d\r\nSubject: s\r\n\r\nx\r\n");
  EXPECT_EQ(mailtree("xml " + file + " -o " + work.path("out.xml")).status, 0);
  EXPECT_EQ(readFile(work.path("out.xml")),
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<mime_message><subject>s</subject>"
            "<body><![CDATA[x]]>&#13;<![CDATA[\n]]></body></mime_message>\n");
  EXPECT_EQ(mailtree("xml " + file + " --indent").out,
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<mime_message>\n  <subject>s</subject>\n"
            "  <body><![CDATA[x]]>&#13;<![CDATA[\n]]></body>\n</mime_message>\n");
  EXPECT_EQ(mailtree("xml " + work.path("missing")).status, 3);
  EXPECT_EQ(mailtree("xml " + file + " -o " + work.path("no/such/x.xml")).status, 3);
}

TEST(TreeCommand, shows_the_structure_and_steers_no_terminal) {
  EXPECT_THAT(mailtree("tree " + sample("newsletter")).out,
              HasSubstr("  multipart_related:\n    ContentType: multipart/related; type=\"text/html\""));
  const Workspace work;
  const std::string file = work.write(
      "m", "Subject: =?utf-8?Q?=1B[31mred=C2=9B=E2=80=AE?=\r\nContent-Type: text/\x1B[1m\r\n\r\nx");
  const Result result = mailtree("tree " + file);
  EXPECT_EQ(result.status, 0);
  for (const char* unsafe : {"\x1B", "\xC2\x9B", "\u202E"}) EXPECT_THAT(result.out, Not(HasSubstr(unsafe)));
  EXPECT_EQ(mailtree("tree " + work.path("missing")).status, 3);
}

}  // namespace
}  // namespace mailtree::cli_test
