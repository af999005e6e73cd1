// What `mailtree extract` writes, and what a mail cannot make it write.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <sstream>
#include <vector>

#include "tests/cli/command.h"

namespace mailtree::cli_test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::string percentEncoded(const std::string& bytes) {
  std::string out;
  for (const char c : bytes) {
    char escape[4];
    std::snprintf(escape, sizeof escape, "%%%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
    out += escape;
  }
  return out;
}

/// A message with one attachment for each name; what they hold are their numbers.
std::string messageWith(const std::vector<std::string>& names) {
  std::string text = "Content-Type: multipart/mixed; boundary=b\r\n\r\n";
  for (std::size_t i = 0; i < names.size(); ++i)
    text += "--b\r\nContent-Type: application/x-thing\r\nContent-Disposition: attachment; filename*=utf-8''" +
            percentEncoded(names[i]) + "\r\n\r\n" + std::to_string(i) + "\r\n";
  return text + "--b--\r\n";
}

TEST(Extract, makes_every_name_safe) {
  const std::string kilo(1000, 'x');
  const struct {
    std::string given, safe;
  } rows[] = {
      {"report.pdf", "report.pdf"},
      {"../../etc/passwd", "passwd"},
      {"C:\\TEMP\\..\\evil.bat", "evil.bat"},
      {"..", "part-4.dat"},
      {"folder/", "part-5.dat"},
      {" . .bashrc. . ", "bashrc"},
      {"-rf", "_rf"},
      {"a\tb\x1b[2J\x7F.txt", "a_b_[2J_.txt"},
      {"photo\xE2\x80\xAEgpj.exe", "photo_gpj.exe"},
      {"\xEF\xBB\xBF\xC2\x85.txt", "__.txt"},
      {"p\u00ADa\u180Ey\u200Bp\u2060a\u206Fl\U000E0041.e\u2064xe", "p_a_y_p_a_l_.e_xe"},
      {"\u0645\u200C\u200D.txt", "\u0645\u200C\u200D.txt"},
      {"stream:hidden<1>|?*\".txt", "stream_hidden_1_____.txt"},
      {"CON", "_CON"},
      {"nul.tar.gz", "_nul.tar.gz"},
      {"Com7 .txt", "_Com7 .txt"},
      {"lpt\xC2\xB2", "_lpt\xC2\xB2"},
      {"console.log", "console.log"},
      {"com10", "com10"},
      {"Stra\xC3\x9F"
       "e \xF0\x9F\xA5\x96.txt",
       "Stra\xC3\x9F"
       "e \xF0\x9F\xA5\x96.txt"},
      {kilo + ".pdf", kilo.substr(0, 196) + ".pdf"},
      {"y" + std::string(500, '.') + ".long" + kilo, "y"},
      {"\xC3\xA4" + kilo.substr(0, 194) + "\xC3\xA4\xC3\xA4.pdf", "\xC3\xA4" + kilo.substr(0, 194) + ".pdf"},
  };
  std::vector<std::string> names;
  for (const auto& row : rows) names.push_back(row.given);
  const Workspace work;
  const Result result = mailtree("extract --dry-run " + work.write("m", messageWith(names)));
  const std::vector<std::string> lines = linesOf(result.out);
  ASSERT_EQ(lines.size(), names.size()) << result.err;
  for (std::size_t i = 0; i < names.size(); ++i) EXPECT_EQ(lines[i], rows[i].safe) << rows[i].given;
}

class ExtractTest : public testing::Test {
 protected:
  Result extract(const std::string& options, const std::string& message) const {
    return mailtree("extract --dir " + folder() + " " + options + " " + m_work.write("m.eml", message));
  }
  std::string folder() const { return m_work.path("out"); }
  std::string file(const std::string& name) const { return folder() + "/" + name; }
  std::string content(const std::string& name) const { return readFile(file(name)); }
  long count() const {
    return fs::exists(folder()) ? std::distance(fs::directory_iterator(folder()), {}) : 0;
  }

  Workspace m_work;
};

TEST_F(ExtractTest, writes_attachments_byte_for_byte_into_a_folder_that_it_makes) {
  const Result result = mailtree("extract " + sample("attachments") + " --dir " + file("deep"));
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(linesOf(result.out),
              ElementsAre(file("deep/offer 2026.pdf"), file("deep/Preisliste Straßen.csv"),
                          file("deep/Küche.png"), file("deep/notes.zip")));
  EXPECT_EQ(content("deep/Preisliste Straßen.csv"),
            "Stra\xDF"
            "e;Gr\xF6\xDF"
            "e;Preis\r\nLindenstra\xDF"
            "e 4;82 m\xB2;950 \x80\r\n");
  EXPECT_THAT(content("deep/offer 2026.pdf"), testing::StartsWith("%PDF-1.4\n"));
}

TEST_F(ExtractTest, takes_a_part_an_attachment_or_every_leaf) {
  const struct {
    const char *options, *sample;
    int status;
    std::vector<std::string> names;
  } rows[] = {
      {"--attachment 2", "attachments", 0, {"Küche.png"}},
      {"--attachment 4", "attachments", 1, {}},
      {"--part 5", "attachments", 0, {"notes.zip"}},
      {"--part 0", "attachments", 1, {}},
      {"--part 6", "attachments", 1, {}},
      {"--all", "newsletter", 0, {"part-1.txt", "part-3.html", "logo.png"}},
      {"--all",
       "digest",
       0,
       {"part-1.txt", "First swift of the year.eml", "Re_ First swift of the year.eml"}},
      {"--all", "forwarded", 0, {"part-1.txt", "Keys.eml"}},
      {"", "forwarded", 1, {}},
      {"", "plain", 1, {}},
  };
  for (const auto& row : rows) {
    const Result result =
        mailtree("extract --dry-run " + std::string(row.options) + " " + sample(row.sample));
    EXPECT_EQ(result.status, row.status) << row.options << ' ' << row.sample;
    EXPECT_EQ(linesOf(result.out), row.names) << row.options << ' ' << row.sample;
    EXPECT_EQ(result.err.empty(), row.status == 0) << row.options << ' ' << row.sample;
  }
}

TEST_F(ExtractTest, gives_bodies_as_utf8_and_attached_messages_as_they_were_sent) {
  const std::string inner =
      "Subject: =?utf-8?Q?Angebot_1/2?=\r\nContent-Type: text/plain; charset=iso-8859-1\r\n\r\ncaf\xE9";
  const Result result = extract("--all",
                                "Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\nContent-Type: "
                                "text/plain; charset=iso-8859-1\r\n"
                                "\r\nsch\xF6n\r\n--b\r\nContent-Type: message/rfc822\r\n\r\n" +
                                    inner + "\r\n--b--\r\n");
  EXPECT_THAT(linesOf(result.out), ElementsAre(file("part-1.txt"), file("Angebot 1_2.eml")));
  EXPECT_EQ(content("part-1.txt"), "schön");
  EXPECT_EQ(content("Angebot 1_2.eml"), inner);
}

TEST_F(ExtractTest, finds_free_names_and_overwrites_only_by_force) {
  const std::string message = messageWith({"a.txt", "A.TXT", "a (2).txt", "noext", "noext"});
  EXPECT_EQ(extract("--force", message).status, 0);
  EXPECT_EQ(count(), 5) << "parts of one message never overwrite each other";
  EXPECT_EQ(content("a.txt"), "0");
  EXPECT_EQ(content("A (2).TXT"), "1");
  EXPECT_EQ(content("a (2) (2).txt"), "2");
  EXPECT_EQ(content("noext (2)"), "4");

  const std::string other = messageWith({"noext", "other"});
  EXPECT_THAT(linesOf(extract("--attachment 0", other).out), ElementsAre(file("noext (3)")));
  EXPECT_EQ(content("noext"), "3");
  ASSERT_EQ(::chmod(file("noext").c_str(), 0600), 0);
  EXPECT_THAT(linesOf(extract("--attachment 0 --force", other).out), ElementsAre(file("noext")));
  EXPECT_EQ(content("noext"), "0");
  EXPECT_EQ(fs::status(file("noext")).permissions(), fs::perms(0600));
}

TEST_F(ExtractTest, never_follows_a_symbolic_link) {
  const std::string victim = m_work.write("victim", "precious");
  fs::create_directory(folder());
  fs::create_symlink(victim, file("a.txt"));
  fs::create_symlink(m_work.path("nowhere"), file("b.txt"));
  const std::string message = messageWith({"a.txt", "b.txt"});

  EXPECT_THAT(linesOf(extract("", message).out), ElementsAre(file("a (2).txt"), file("b (2).txt")));
  EXPECT_TRUE(fs::is_symlink(file("a.txt")));
  EXPECT_EQ(extract("--force", message).status, 0);
  EXPECT_FALSE(fs::is_symlink(file("a.txt"))) << "the link gave way";
  EXPECT_EQ(content("a.txt"), "0");
  EXPECT_EQ(readFile(victim), "precious");
  EXPECT_FALSE(fs::exists(m_work.path("nowhere")));
}

TEST_F(ExtractTest, goes_on_after_a_file_that_it_cannot_write) {
  fs::create_directories(file("a.txt/full"));
  const Result result = extract("--force", messageWith({"a.txt", "b.txt"}));
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(linesOf(result.out), ElementsAre(file("b.txt")));
  EXPECT_THAT(result.err, HasSubstr("a.txt: Is a directory\n"));
  EXPECT_EQ(count(), 2) << "no temporary is left";
  EXPECT_EQ(mailtree("extract --dir " + file("b.txt") + " " + sample("attachments")).status, 3);
}

TEST_F(ExtractTest, writes_nothing_in_a_dry_run_and_says_what_it_would) {
  const std::string message = messageWith({"a.txt", "a.txt"});
  EXPECT_THAT(linesOf(extract("--dry-run", message).out), ElementsAre(file("a.txt"), file("a (2).txt")));
  EXPECT_FALSE(fs::exists(folder()));
}

TEST_F(ExtractTest, gives_one_part_to_standard_output_or_to_a_file_of_the_users_choice) {
  const std::string select = "extract --attachment 1 " + sample("attachments");
  const std::string csv = mailtree(select + " -o -").out;
  EXPECT_THAT(csv, HasSubstr("Lindenstra\xDF"
                             "e 4;82 m\xB2;950 \x80\r\n"));
  const std::string chosen = m_work.write("chosen", "mine");
  EXPECT_EQ(mailtree(select + " -o " + chosen).status, 3);
  EXPECT_EQ(readFile(chosen), "mine");
  EXPECT_EQ(mailtree(select + " --force -o " + chosen).out, chosen + "\n");
  EXPECT_EQ(readFile(chosen), csv);
}

TEST(Extract, needs_to_know_which_part_goes_where) {
  for (const char* options :
       {"-o -", "--all -o -", "--part 1 --all", "--attachment -1", "--part 1 --attachment 0", "--part x",
        "--part 1 -o x --dir y", "--part 1 -o ''", "--dir ''"})
    EXPECT_EQ(mailtree("extract " + sample("attachments") + " " + options).status, 2) << options;
  EXPECT_EQ(mailtree("extract /no/such/file").status, 3);
  EXPECT_THAT(mailtree("extract --help").out, HasSubstr("Example:\n  mailtree extract"));
}

}  // namespace
}  // namespace mailtree::cli_test
