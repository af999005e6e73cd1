// What `mailtree write` and `mailtree headers` give.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/cli/command.h"
#include "tests/support/places.h"

namespace mailtree::cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(Write, settles_after_one_pass_on_every_sample) {
  const Workspace work;
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(places::samples())) {
    ++count;
    for (const std::string options : {"", "--8bit-to-qp "}) {
      const std::string file = entry.path().string();
      ASSERT_EQ(mailtree("write " + options + file + " -o " + work.path("once")).status, 0) << file;
      ASSERT_EQ(mailtree("write " + options + work.path("once") + " -o " + work.path("twice")).status, 0)
          << file;
      EXPECT_EQ(readFile(work.path("once")), readFile(work.path("twice"))) << options << file;
    }
  }
  EXPECT_GE(count, 12);
}

TEST(Write, gives_back_a_plain_message_byte_for_byte) {
  for (const char* name : {"plain", "no-mime", "cyrillic", "japanese"})
    EXPECT_EQ(mailtree("write " + sample(name)).out, readFile(sample(name))) << name;
}

TEST(Write, keeps_signed_content_as_it_came) {
  const std::string received = readFile(sample("signed"));
  const std::string content = received.substr(received.find("--signed_outside"));
  EXPECT_THAT(mailtree("write --8bit-to-qp " + sample("signed")).out,
              HasSubstr(content.substr(0, content.rfind("--signed_outside--"))));
}

TEST(Write, reencodes_and_stuffs_only_when_asked) {
  const Workspace work;
  const std::string file = work.write("m",
                                      "Content-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: "
                                      "8bit\r\n\r\n.dot \xC3\xA4\r\n..two\r\n");
  EXPECT_THAT(mailtree("write " + file).out, HasSubstr("\r\n\r\n.dot \xC3\xA4\r\n..two\r\n"));
  EXPECT_THAT(mailtree("write --dot-stuff " + file).out, HasSubstr("\r\n\r\n..dot \xC3\xA4\r\n...two\r\n"));
  EXPECT_THAT(mailtree("write --8bit-to-qp " + file).out,
              HasSubstr("quoted-printable\r\n\r\n=2Edot =C3=A4\r\n=2E.two\r\n"));
}

TEST(Write, says_what_would_differ) {
  const struct {
    const char* message;
    int status;
    const char* said;
  } rows[] = {
      {"Subject: s\r\n\r\nx\r\n", 0, "nothing differs\n"},
      {"Subject: s\n\nx\n", 1, "line ends become CRLF\na reader sees no difference\n"},
      {"Subject: gr\xC3\xBC\xC3\x9F\r\nSVX-a: b\r\nContent-Transfer-Encoding: base64;\r\n\r\naG\r\nk=\r\n", 1,
       "part 0: field Subject written anew, says the same\npart 0: field SVX-a dropped\n"
       "part 0: field Content-Transfer-Encoding changed\npart 0: base64 lines refolded\n"
       "a reader sees no difference\n"},
      {"Content-Type: multipart/mixed; boundary=b\r\n\r\npre\r\n--b\r\n\r\nx\r\n--b \r\n"
       "Content-Transfer-Encoding: quoted-printable\r\n\r\n=41\r\n--b--\r\nepi",
       1,
       "part 0: text before the first part dropped\npart 0: text after the last part dropped\n"
       "part 0: blanks after boundaries dropped\npart 2: quoted-printable encoded anew\n"
       "a reader sees no difference\n"},
      {"Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n\r\nx", 1,
       "part 0: closing boundary added\na reader sees no difference\n"},
  };
  const Workspace work;
  for (const auto& row : rows) {
    const Result result = mailtree("write --check " + work.write("m", row.message));
    EXPECT_EQ(result.out, row.said) << row.message << result.err;
    EXPECT_EQ(result.status, row.status) << row.message;
  }
}

TEST(Write, leaves_internal_fields_out) {
  const Workspace work;
  const std::string file =
      work.write("m", "SVX-Bounce-Address: a@b\r\nsvz-size: 12\r\nSubject: s\r\n\r\nx\r\n");
  EXPECT_EQ(mailtree("write " + file).out, "Subject: s\r\n\r\nx\r\n");
}

TEST(Write, leaves_no_half_written_file_behind) {
  const Workspace work;
  const std::string target = work.write("out.eml", "before");
  EXPECT_EQ(mailtree("write " + work.path("missing") + " -o " + target).status, 3);
  EXPECT_EQ(readFile(target), "before");
  const Result result = mailtree("write " + sample("plain") + " -o " + work.path("no/such/folder/x.eml"));
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.err, HasSubstr("mailtree: " + work.path("no/such/folder/x.eml") + ": "));
  EXPECT_EQ(mailtree("write " + sample("plain") + " -o " + target).status, 0);
  EXPECT_EQ(readFile(target), readFile(sample("plain")));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(work.folder()),
                          std::filesystem::directory_iterator()),
            1);
}

TEST(Write, says_so_when_standard_output_is_full) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP();
  const int raw = std::system(
      ("'" + places::mailtreeCommand() + "' write " + sample("plain") + " > /dev/full 2> /dev/null").c_str());
  EXPECT_EQ(WEXITSTATUS(raw), 3);
}

TEST(Headers, prints_decoded_values_or_raw_ones) {
  EXPECT_THAT(mailtree("headers " + sample("cyrillic")).out,
              HasSubstr("From: Игорь Лебедев <lebedev@vokzal.example>\n"));
  EXPECT_EQ(mailtree("headers " + sample("cyrillic") + " subject DATE").out,
            "Sat, 18 Apr 2026 21:03:11 +0300\nВстреча на вокзале\n");
  EXPECT_THAT(mailtree("headers --raw " + sample("newsletter") + " Subject").out,
              HasSubstr("=C3=84pfel_und?=\r\n =?utf-8?Q?_Brot_"));
  EXPECT_EQ(mailtree("headers " + sample("plain") + " X-Nothing").status, 1);
  EXPECT_EQ(mailtree("headers /nonexistent").status, 3);
}

}  // namespace
}  // namespace mailtree::cli_test
