// What `mailtree messages` lists, and what it writes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <vector>

#include "tests/cli/command.h"

namespace mailtree::cli_test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::HasSubstr;

constexpr const char* kInnermost =
    "Subject: Innermost\r\nDate: Wed, 1 Apr 2026 12:00:00 +0000\r\n\r\nDeep.\r\n";

/// A message with one in a digest, and one attached that has two in it.
std::string nest() {
  const std::string middle =
      std::string("From: =?utf-8?q?B=C3=A4r?= <bear@wood.example>\r\nSubject: Middle\r\n") +
      "Content-Type: multipart/mixed; boundary=m\r\n\r\n" + "--m\r\nContent-Type: message/rfc822\r\n\r\n" +
      kInnermost + "\r\n--m\r\nContent-Type: message/global\r\n\r\nSubject: Wälder\r\n\r\n\r\n--m--";
  return "Content-Type: multipart/mixed; boundary=o\r\n\r\n--o\r\nContent-Type: multipart/digest; "
         "boundary=d\r\n"
         "\r\n--d\r\n\r\nSubject: Entry\r\n\r\nFirst.\r\n--d--\r\n--o\r\n"
         "Content-Type: message/rfc822; name=\"../m.eml\"\r\n\r\n" +
         middle + "\r\n--o--\r\n";
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST(Messages, are_listed_with_those_inside_them) {
  const Workspace work;
  const Result result = mailtree("messages " + work.write("m.eml", nest()));
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out,
            "No   Part  Date               Size  From                     Subject\n"
            "0    2     -                  24 B  -                        Entry\n"
            "1    3     -                 280 B  Bär <bear@wood.example>  Middle\n"
            "1/0  3/1   2026-04-01 12:00   67 B  -                        Innermost\n"
            "1/1  3/2   -                  20 B  -                        Wälder\n");
}

TEST(Messages, are_told_to_programs) {
  const json list = json::parse(mailtree("messages --json " + sample("forwarded")).out);
  EXPECT_EQ(list["messages"], json::parse(R"([{"number": "0", "part": "2", "subject": "Keys",
      "from": {"name": "Janitor", "address": "janitor@harbour.example"}, "date": "2026-04-22T18:15:00Z",
      "message_id": "<keys@harbour.example>", "size": 448, "filename": "Keys.eml"}])"));
}

TEST(Messages, are_written_byte_for_byte_under_names_of_their_own) {
  const Workspace work;
  const std::string file = work.write("m.eml", nest());
  const Result all = mailtree("messages --all --dir " + work.path("out") + " " + file);
  EXPECT_EQ(all.status, 0) << all.err;
  const std::vector<std::string> paths = linesOf(all.out);
  ASSERT_EQ(paths.size(), 4u);
  for (const std::string& path : paths) {
    EXPECT_EQ(fs::path(path).parent_path(), work.folder() / "out");
    EXPECT_EQ(fs::path(path).extension(), ".eml");
  }
  EXPECT_EQ(readFile(paths[2]), kInnermost);
  EXPECT_THAT(paths[2], HasSubstr("/e_20260401_120000_"));
  EXPECT_THAT(readFile(paths[1]), HasSubstr(readFile(paths[3])));

  const Result one = mailtree("messages --extract 1/0 --dir " + work.path("out") + " " + file);
  ASSERT_EQ(linesOf(one.out).size(), 1u) << one.err;
  EXPECT_EQ(readFile(linesOf(one.out)[0]), kInnermost);
  EXPECT_EQ(std::distance(fs::directory_iterator(work.path("out")), {}), 5);
}

TEST(Messages, go_to_standard_output_or_a_file_that_is_not_there_yet) {
  const Workspace work;
  const std::string file = work.write("m.eml", nest());
  EXPECT_EQ(mailtree("messages --extract 1/0 -o - " + file).out, kInnermost);
  const std::string taken = work.write("taken", "mine");
  EXPECT_EQ(mailtree("messages --extract 1/0 -o " + taken + " " + file).status, 3);
  EXPECT_EQ(readFile(taken), "mine");
  EXPECT_EQ(mailtree("messages --extract 1/0 --force -o " + taken + " " + file).status, 0);
  EXPECT_EQ(readFile(taken), kInnermost);
}

TEST(Messages, answer_with_a_status) {
  const Workspace work;
  const std::string file = work.write("m.eml", nest());
  const struct {
    std::string arguments;
    int status;
  } rows[] = {
      {sample("plain"), 1},
      {"--json " + sample("plain"), 1},
      {"--all --dir " + work.path("none") + " " + sample("plain"), 1},
      {"--extract 1/2 --dir " + work.path("none") + " " + file, 1},
      {"--extract 01 --dir " + work.path("none") + " " + file, 1},
      {"--extract 1/ " + file, 2},
      {"--extract /1 " + file, 2},
      {"--extract 1//0 " + file, 2},
      {"--extract '' " + file, 2},
      {"--extract 1 --all " + file, 2},
      {"--all --json " + file, 2},
      {"--all -o x " + file, 2},
      {"--all --dir " + file + " " + file, 3},
  };
  for (const auto& row : rows)
    EXPECT_EQ(mailtree("messages " + row.arguments).status, row.status) << row.arguments;
  EXPECT_FALSE(fs::exists(work.path("none"))) << "no folder for nothing";
}

TEST(Messages, deeper_than_any_real_ones_are_a_limit) {
  const Workspace work;
  std::string text = "Subject: x\n\n\n";
  for (int i = 0; i < 150; ++i) text.insert(0, "Content-Type: message/rfc822\n\n");
  const Result result = mailtree("messages " + work.write("m.eml", text));
  EXPECT_EQ(result.status, 4);
  EXPECT_EQ(linesOf(result.out).size(), 102u);
  EXPECT_THAT(result.err, HasSubstr("nesting deeper"));
}

TEST(Messages, do_not_drive_the_terminal) {
  const Workspace work;
  const std::string file = work.write("m",
                                      "Content-Type: message/rfc822\n\nFrom: =?utf-8?q?=1B[2J?= "
                                      "<a\x1b[2J@b>\nSubject: \x1b[2J=?utf-8?q?=1B?=\n"
                                      "Message-ID: \xE2\x80\xAE\n\n\x1b[2J");
  for (const char* option : {"", "--json "})
    for (const char* danger : {"\033", "\xE2\x80\xAE"})
      EXPECT_THAT(mailtree(std::string("messages ") + option + file).out, testing::Not(HasSubstr(danger)));
}

}  // namespace
}  // namespace mailtree::cli_test
