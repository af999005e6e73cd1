// What `mailtree attachments` lists.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/cli/command.h"

namespace mailtree::cli_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

TEST(Attachments, stand_in_a_table_with_their_reason_when_verbose) {
  EXPECT_EQ(mailtree("attachments " + sample("attachments")).out,
            "No  Part  Name                    Type              Size\n"
            " 0     2  offer 2026.pdf          application/pdf  584 B\n"
            " 1     3  Preisliste Straßen.csv  text/csv          48 B\n"
            " 2     4  Küche.png               image/png        769 B\n"
            " 3     5  notes.zip               application/zip  154 B\n");
  EXPECT_THAT(
      mailtree("attachments -v " + sample("attachments")).out,
      HasSubstr(
          "\n 3     5  notes.zip               application/zip  154 B  Yes (disposition=attachment)\n"));
}

TEST(Attachments, are_the_same_for_programs_as_show_tells) {
  for (const char* name : {"attachments", "broken", "signed", "invitation"}) {
    const json shown = json::parse(mailtree("show --json " + sample(name)).out);
    const json listed = json::parse(mailtree("attachments --json " + sample(name)).out);
    ASSERT_EQ(listed["attachments"].size(), shown["attachments"].size()) << name;
    for (std::size_t i = 0; i < listed["attachments"].size(); ++i) {
      const json& attachment = listed["attachments"][i];
      EXPECT_EQ(attachment["number"], i) << name;
      EXPECT_EQ(attachment["id"], shown["attachments"][i]) << name;
      EXPECT_THAT(attachment["reason"], testing::StartsWith("Yes")) << name;
    }
  }
}

TEST(Attachments, that_are_not_there_are_a_no) {
  const Result table = mailtree("attachments " + sample("forwarded"));
  EXPECT_EQ(table.status, 1);
  EXPECT_EQ(table.out, "");
  const Result forPrograms = mailtree("attachments --json " + sample("plain"));
  EXPECT_EQ(forPrograms.status, 1);
  EXPECT_EQ(json::parse(forPrograms.out)["attachments"], json::array());
}

TEST(Attachments, do_not_drive_the_terminal_by_their_names) {
  const Workspace work;
  const std::string file =
      work.write("m",
                 "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: application/x\x1b[2J\n"
                 "Content-Disposition: attachment; filename*=utf-8''%1B%5B2J%E2%80%AEgpj.exe\n\nx\n--b--\n");
  const Result result = mailtree("attachments -v " + file);
  EXPECT_EQ(result.status, 0);
  for (const char* danger : {"\033", "\xE2\x80\xAE"})
    EXPECT_THAT(result.out, testing::Not(HasSubstr(danger)));
  EXPECT_THAT(result.out, HasSubstr("gpj.exe"));
  EXPECT_THAT(mailtree("attachments " +
                       work.write("n", "Content-Type: application/zip; name=\"a.pdf  text/plain\"\n\nx\n"))
                  .out,
              HasSubstr("  \"a.pdf  text/plain\"  application/zip"))
      << "no name passes for two columns";
}

}  // namespace
}  // namespace mailtree::cli_test
