// What `mailtree show` tells a person and a program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "mailtree/crypto/Digest.h"
#include "tests/cli/shown.h"

namespace mailtree::cli_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

TEST(Show, tells_the_shape_of_every_sample) {
  const struct {
    const char* sample;
    const char* shape;
    std::vector<int> attachments;
    int plain, html;  // -1: none
  } rows[] = {
      {"plain", "text/plain", {}, 0, -1},
      {"no-mime", "text/plain", {}, 0, -1},
      {"newsletter", "multipart/alternative(text/plain,multipart/related(text/html,image/png))", {}, 1, 3},
      {"attachments",
       "multipart/mixed(text/plain,application/pdf,text/csv,image/png,application/zip)",
       {2, 3, 4, 5},
       1,
       -1},
      {"japanese", "text/plain", {}, 0, -1},
      {"cyrillic", "text/plain", {}, 0, -1},
      {"delivery-report", "multipart/report(text/plain,message/delivery-status,message/rfc822)", {}, 1, -1},
      {"digest", "multipart/mixed(text/plain,multipart/digest(message/rfc822,message/rfc822))", {}, 1, -1},
      {"forwarded", "multipart/mixed(text/plain,message/rfc822)", {}, 1, -1},
      {"invitation",
       "multipart/mixed(multipart/alternative(text/plain,text/calendar),application/ics)",
       {4},
       2,
       -1},
      {"uuencoded", "multipart/mixed(text/plain,image/png)", {2}, 1, -1},
      {"signed", "multipart/mixed(text/plain,text/plain)", {2}, 1, -1},
      {"broken",
       "multipart/mixed(text/plain,multipart/alternative(text/plain,text/html),application/octet-stream)",
       {5},
       3,
       4},
  };
  for (const auto& row : rows) {
    const Result result = mailtree("show --json " + sample(row.sample));
    ASSERT_EQ(result.status, 0) << row.sample << result.err;
    const json message = json::parse(result.out);
    EXPECT_EQ(shapeOf(message["tree"]), row.shape) << row.sample;
    EXPECT_EQ(message["attachments"], json(row.attachments)) << row.sample;
    EXPECT_EQ(message["plain_text"], row.plain < 0 ? json() : json(row.plain)) << row.sample;
    EXPECT_EQ(message["html"], row.html < 0 ? json() : json(row.html)) << row.sample;
  }
}

TEST(Show, gives_programs_decoded_header_facts) {
  const json message = json::parse(mailtree("show --json --headers " + sample("newsletter")).out);
  EXPECT_EQ(message["schema"], 1);
  EXPECT_EQ(message["subject"], "Die Woche im Hofladen: Möhren, Äpfel und Brot 🥖");
  EXPECT_EQ(message["from"], json({{"name", "Grünkohl & Freunde"}, {"address", "brief@gruenkohl.example"}}));
  EXPECT_EQ(message["to"][0]["name"], "Jörg Müller");
  EXPECT_EQ(message["date"], "2026-04-16T06:00:00Z");
  EXPECT_EQ(message["message_id"], "<kw16.8841@gruenkohl.example>");
  EXPECT_EQ(message["headers"][0], json({"Date", "Thu, 16 Apr 2026 06:00:00 +0000"}));
  EXPECT_EQ(message["security"]["received_signed"], false);
  EXPECT_TRUE(message["limits"].empty());
  const json image = message["tree"]["parts"][1]["parts"][1];
  EXPECT_EQ(image["id"], 4);
  EXPECT_EQ(image["filename"], "logo.png");
  EXPECT_EQ(image["content_id"], "<logo.1207@gruenkohl.example>");
  EXPECT_EQ(image["disposition"], "inline");
  EXPECT_TRUE(image["text_sha256"].is_null());
}

TEST(Show, gives_a_name_without_an_address_as_such) {
  const Workspace work;
  const std::string file = work.write("a", "From: \"Drew Fossum\"\nTo: Two words\nTo: Otto <o@b>\n\n");
  const json message = json::parse(mailtree("show --json " + file).out);
  EXPECT_EQ(message["from"], json({{"name", "Drew Fossum"}, {"address", ""}}));
  EXPECT_EQ(message["to"].dump(), R"([{"address":"","name":"Two words"},{"address":"o@b","name":"Otto"}])");
  EXPECT_THAT(mailtree("show " + file).out,
              HasSubstr("From:    Drew Fossum\nTo:      Two words, Otto <o@b>\n"));
}

TEST(Show, hashes_text_as_utf8_with_plain_line_ends_and_bytes_as_stored) {
  const Workspace work;
  const std::string head = "Content-Type: text/plain; charset=iso-8859-1\r\n\r\n";
  const json crlf =
      json::parse(mailtree("show --json " + work.write("a", head + "caf\xE9\r\nb \r\n\r\n")).out)["tree"];
  const json lf = json::parse(mailtree("show --json " + work.write("b", head + "caf\xE9\nb")).out)["tree"];
  EXPECT_EQ(crlf["text_sha256"], lf["text_sha256"]);
  EXPECT_NE(crlf["sha256"], lf["sha256"]);
  EXPECT_EQ(lf["size"], 7) << "é takes two bytes in utf-8";
  const json damaged = shown(work.write("c", "Content-Type: text/plain; charset=utf-8\n\né é \xFF"))["tree"];
  EXPECT_EQ(damaged["sha256"], sha256Hex("é é \xFF"));
  EXPECT_EQ(damaged["text_sha256"], sha256Hex("é é \uFFFD"));
  EXPECT_THAT(mailtree("show -v " + work.path("c")).out, HasSubstr("damaged text (1)"));
}

TEST(Show, says_null_for_what_is_not_there) {
  const Workspace work;
  const Result result = mailtree("show --json " + work.write("empty.eml", ""));
  EXPECT_EQ(result.status, 0) << "an empty file is a message without fields";
  const json message = json::parse(result.out);
  for (const char* key : {"subject", "from", "date", "message_id", "html"})
    EXPECT_TRUE(message[key].is_null()) << key;
  EXPECT_EQ(message["tree"]["content_type"], "text/plain");
  EXPECT_EQ(message["tree"]["size"], 0);
  const json badDate = json::parse(
      mailtree("show --json " + work.write("d", "Date: soon\r\nReceived: x; 1 Jan 2026 00:00 +0000\r\n\r\n"))
          .out);
  EXPECT_TRUE(badDate["date"].is_null()) << "an unreadable Date does not fall through to Received";
}

TEST(Show, takes_a_folder_for_the_files_in_it_by_name) {
  const Workspace work;
  std::filesystem::create_directories(work.path("mails/below"));
  for (const char* name : {"b.eml", "a.eml", ".hidden", "below/c.eml"})
    work.write(std::string("mails/") + name, "Subject: x\r\n\r\n");
  const Result result =
      shell("cd " + work.folder().string() +
            "; mkdir empty; \"$mailtree\" show --json - mails empty mails/below/ < mails/.hidden");
  EXPECT_EQ(result.status, 0) << result.err;
  std::vector<std::string> shown;
  std::istringstream lines(result.out);
  for (std::string line; std::getline(lines, line);) shown.push_back(json::parse(line)["file"]);
  EXPECT_THAT(shown, testing::ElementsAre("-", "mails/a.eml", "mails/b.eml", "mails/below/c.eml"));
}

TEST(Show, draws_the_tree_for_a_person) {
  const Result result = mailtree("show --verbose " + sample("attachments"));
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, HasSubstr("From:    \"Ortiz, Carmen\" <carmen.ortiz@atlas.example>\n"));
  EXPECT_THAT(result.out, HasSubstr("Date:    Mon, 20 Apr 2026 20:45:09 +0000\n"))
      << "in the reader's own zone";
  EXPECT_THAT(result.out, HasSubstr("|- 1 text/plain  iso-8859-1  quoted-printable  91 B  [body]\n"));
  EXPECT_THAT(result.out,
              HasSubstr("\"Preisliste Straßen.csv\"  [attachment: Yes (disposition=attachment)]\n"));
  EXPECT_THAT(result.out, HasSubstr("`- 5 application/zip"));
  EXPECT_THAT(result.out,
              HasSubstr("\n> the offer is attached, the price list too (Lindenstraße is new).\n"));
  EXPECT_THAT(result.out, Not(HasSubstr("\033"))) << "no colour away from a terminal";
}

TEST(Show, colours_only_when_asked_away_from_a_terminal) {
  EXPECT_THAT(mailtree("show --color " + sample("plain")).out, HasSubstr("\033[36mtext/plain\033[0m"));
  EXPECT_THAT(mailtree("show --color --no-color " + sample("plain")).status, 2);
}

TEST(Show, draws_lines_on_a_terminal_and_colours_unless_told_not_to) {
  if (!hasTerminal()) GTEST_SKIP() << "no script(1) here";
  const struct {
    const char *options, *environment;
    bool coloured;
  } rows[] = {
      {"", "", true},
      {"", "NO_COLOR=", true},
      {"", "NO_COLOR=1", false},
      {"--no-color ", "", false},
      {"--color ", "NO_COLOR=1", true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.options) + row.environment);
    const Result result = mailtreeOnTerminal("show " + (row.options + sample("newsletter")), row.environment);
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr("├─ 1"));
    EXPECT_THAT(result.out, HasSubstr("   └─ 4"));
    EXPECT_EQ(result.out.find('\033') != std::string::npos, row.coloured) << result.out;
  }
}

TEST(Show, marks_a_line_that_it_cut) {
  const Workspace work;
  std::string accents = "a";
  for (int i = 0; i < 500; ++i) accents += "\xCC\x81";  // combining: no column of its own
  const struct {
    const char* what;
    std::string line, shown;
  } rows[] = {
      {"fits", std::string(100, 'x'), std::string(100, 'x')},
      {"too wide", std::string(101, 'x'), std::string(100, 'x') + "..."},
      {"many bytes, all of them blank in the end", "x" + std::string(2000, ' '), "x"},
      {"many bytes, few columns", accents, accents.substr(0, 799) + "..."},
      {"blanks, then a word far out", "x" + std::string(2000, ' ') + "y", "x" + std::string(99, ' ') + "..."},
  };
  for (const auto& row : rows)
    EXPECT_THAT(mailtree("show " + work.write("m", "Content-Type: text/plain; charset=utf-8\r\n\r\n" +
                                                       row.line + "\r\nend\r\n"))
                    .out,
                HasSubstr("\n\n> " + row.shown + "\n> end\n"))
        << row.what;
}

TEST(Show, lets_no_control_character_of_a_mail_reach_the_terminal) {
  const Workspace work;
  const std::string file = work.write("evil\x1b[1m.eml",
                                      "Subject: =?utf-8?Q?=1B[2Jgone=C2=9B5m=7F?= \x1b]0;title\x07\r\n"
                                      "From: \x1b[31m <a@b.example>\r\n"
                                      "Content-Type: text/plain; charset=utf-8; name=\"\x1b[2J\"\r\n\r\n"
                                      "text \x1b[2J \xC2\x9B \xE2\x80\xAE \x07 end\r\n");
  for (const std::string verb : {"show ", "show --headers -v ", "show --json --headers ", "headers "}) {
    const Result result = mailtree(verb + "'" + file + "'");
    EXPECT_EQ(result.status, 0) << verb;
    for (const char* danger : {"\033", "\007", "\177", "\xC2\x9B"})
      EXPECT_THAT(result.out, Not(HasSubstr(danger))) << verb;
  }
  EXPECT_THAT(mailtree("show '" + file + "'").out, Not(HasSubstr("\xE2\x80\xAE")))
      << "no direction override either";
}

TEST(Show, says_in_a_form_of_its_own_what_the_message_says) {
  const Workspace work;
  const std::string good = "signature valid, signer trusted; signer a@b.c";
  const std::string file =
      work.write("m", "Subject: x\r\nSigned: " + good +
                          "\r\nContent-Transfer-Encoding: [body]\r\nContent-Type: text/plain; " +
                          "charset=\"x  [signature valid]\"; name=\"a\\\"  [signature "
                          "valid]\xEF\xBC\xBBok\xEF\xBC\xBD\"\r\n\r\n" +
                          "Signed:  " + good + "\r\n`- 1 text/plain  [signature valid]\r\n");
  for (const std::string options : {"", "--headers ", "-v "}) {
    const std::string out = mailtree("show " + options + file).out;
    EXPECT_THAT(out, Not(HasSubstr("\nSigned:  s"))) << options;
    EXPECT_THAT(out, Not(HasSubstr("\n`-"))) << options;
    const std::string tree = out.substr(out.find("\n0 text/plain"));
    EXPECT_THAT(tree.substr(0, tree.find('\n', 1)), Not(HasSubstr(" [signature"))) << out;
    EXPECT_THAT(tree, HasSubstr("  \"a\\\"  \\[signature valid\\]\\u{ff3b}ok\\u{ff3d}\"")) << out;
  }
  EXPECT_THAT(mailtree("show --headers " + file).out, HasSubstr("\n> Signed: " + good + "\n"));
  EXPECT_THAT(mailtree("show --headers " + file).out, HasSubstr("\n\nSigned:  no\n"));
}

TEST(Show, breaks_a_long_value_before_the_terminal_does) {
  if (!hasTerminal()) GTEST_SKIP() << "no script(1) here";
  const Workspace work;
  std::string fields, body;
  // A subject, and a line of text, after which the rest would begin a line of an 80-column terminal.
  for (const char* filler : {"x", "\xE2\x9C\x85"}) {
    std::string wide;
    for (int i = 0; i < 71; ++i) wide += filler;
    fields += "Subject: " + wide + "Signed:  signature valid\r\n";
    body += wide + "xxxxxxxSigned:  signature valid\r\n";
  }
  const std::string file =
      work.write("m", "Content-Type: text/plain; charset=utf-8\r\n" + fields + "\r\n" + body);
  for (const std::string verb : {"show --no-color ", "show --no-color --headers ", "headers "}) {
    std::istringstream lines(mailtreeOnTerminal(verb + file, "").out);
    for (std::string line; std::getline(lines, line);) {
      std::size_t columns = 0;  // as a terminal may count at most
      for (const char c : line) columns += (c & 0xC0) == 0xC0 ? 2 : (c & 0x80) == 0 && c != '\r';
      EXPECT_LE(columns, 80) << line;
    }
  }
}

TEST(Show, escapes_for_programs_what_a_terminal_may_obey) {
  const Workspace work;
  const std::string file = work.write("m", "Subject: a\u202Eb\u2066\u061C\U000E0041\u200Dü\n\n");
  const std::string out = mailtree("show --json " + file).out;
  EXPECT_THAT(out, HasSubstr("\"a\\u202eb\\u2066\\u061c\\udb40\\udc41\u200Dü\""));
  EXPECT_EQ(json::parse(out)["subject"], "a\u202Eb\u2066\u061C\U000E0041\u200Dü");
}

TEST(Show, reads_attached_8bit_text_without_a_label_as_letters) {
  const struct {
    const char *text, *read;
  } rows[] = {
      {"Viele Gr\xFC\xDF"
       "e",
       "Viele Grüße"},
      {"\xFF\xFE"
       "ab",
       "ÿþab"},
      {"\xFE\xFF"
       "abcd",
       "þÿabcd"},
  };
  const std::string head =
      "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: text/csv\n"
      "Content-Disposition: attachment\n\n";
  const Workspace work;
  for (const auto& row : rows)
    EXPECT_EQ(shown(work.write("m", head + row.text + "\n--b--\n"))["tree"]["parts"][0]["text_sha256"],
              sha256Hex(row.read))
        << row.read;
}

TEST(Show, names_what_it_repaired) {
  const std::string out = mailtree("show -v " + sample("broken")).out;
  for (const char* repair :
       {"closing boundary missing", "wrong or unknown charset", "unusable content type", "broken header"})
    EXPECT_THAT(out, HasSubstr(repair));
  EXPECT_THAT(mailtree("show " + sample("broken")).out, HasSubstr("[repaired]"));
  EXPECT_THAT(mailtree("show -v " + sample("plain")).out, Not(HasSubstr("repaired")));
}

TEST(Show, goes_on_after_a_file_it_cannot_read) {
  const Workspace work;
  const std::string inFile = sample("plain") + "/x";
  const Result result = mailtree("show " + sample("plain") + " " + work.path("missing") + " " + inFile + " " +
                                 sample("no-mime"));
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.out, HasSubstr("Boat for Saturday"));
  EXPECT_THAT(result.out, HasSubstr("no MIME at all"));
  EXPECT_THAT(result.err, HasSubstr("mailtree: " + work.path("missing") + ": No such file or directory\n"));
  EXPECT_THAT(result.err, HasSubstr("mailtree: " + inFile + ": Not a directory\n"));
  EXPECT_EQ(mailtree("show ''").err, "mailtree: '': No such file or directory\n");
}

TEST(Show, reads_standard_input) {
  EXPECT_THAT(mailtree("show - < " + sample("plain")).out, HasSubstr("Boat for Saturday"));
  EXPECT_THAT(mailtree("show --json - < " + sample("plain")).out, HasSubstr("\"file\":\"-\""));
  EXPECT_THAT(mailtree("show - < /dev/null").status, 0);
  EXPECT_EQ(mailtree("show - <&-").err, "mailtree: -: Bad file descriptor\n");
  EXPECT_EQ(mailtree("show - < /").err, "mailtree: -: Is a directory\n");
}

TEST(Command, reads_standard_input_from_where_it_stands) {
  const Workspace work;
  const std::string file = work.write("m", "Subject: first\nSubject: second\n\ntext\n");
  EXPECT_EQ(shell("(read line; \"$mailtree\" headers - subject) < " + file).out, "second\n");
  const std::string large = work.write("large", "Subject: s\n\n" + std::string(300'000, 'x') + "\n");
  EXPECT_EQ(shell("cat " + large + " | \"$mailtree\" write -").out.size(),
            mailtree("write " + large).out.size());
}

TEST(Command, takes_brackets_and_braces_in_arguments_literally) {
  const Workspace work;
  for (const char* name : {"[draft]", "[a,b]", "[]", "{}", "[", "[[x]]", "a,b"}) {
    work.write(name, std::string("Subject: in ") + name + "\n[Subject]: odd\n\ntext\n");
    const std::string inside = "cd " + work.folder().string() + " && \"$mailtree\" ";
    const std::string quoted = std::string("'") + name + "'";
    EXPECT_THAT(shell(inside + "show " + quoted).out, HasSubstr(std::string("Subject: in ") + name + "\n"));
    EXPECT_THAT(shell(inside + "show --json " + quoted + " " + quoted).out,
                HasSubstr("\"file\":\"" + std::string(name) + "\""));
    EXPECT_EQ(shell(inside + "headers " + quoted + " '[Subject]'").out, "odd\n") << name;
    EXPECT_EQ(shell(inside + "write " + quoted + " -o '[out]'").status, 0) << name;
    EXPECT_TRUE(std::filesystem::remove(work.path("[out]"))) << name;
  }
}

TEST(Show, reports_a_limit_and_still_gives_the_result) {
  const Workspace work;
  std::string deep, ends;
  for (int i = 0; i < 150; ++i)
    deep += "Content-Type: multipart/mixed; boundary=b" + std::to_string(i) + "\r\n\r\n--b" +
            std::to_string(i) + "\r\n";
  for (int i = 149; i >= 0; --i) ends += "\r\n--b" + std::to_string(i) + "--\r\n";
  const Result result = mailtree("show --json " + work.write("deep.eml", deep + "\r\nbottom" + ends));
  EXPECT_EQ(result.status, 4);
  EXPECT_EQ(json::parse(result.out)["limits"], json({"nesting deeper than 100 levels"}));
  EXPECT_THAT(result.err, HasSubstr("nesting deeper than 100 levels"));
}

TEST(Command, answers_wrong_usage_with_status_2_and_help_with_an_example) {
  for (const char* line :
       {"", "nosuchverb", "show", "show --nosuch x", "write", "headers", "write a b c", "write a -o ''"}) {
    const Result result = mailtree(line);
    EXPECT_EQ(result.status, 2) << line;
    EXPECT_THAT(result.err, HasSubstr("mailtree: ")) << line;
    EXPECT_EQ(result.out, "") << line;
  }
  for (const std::string verb : {"show", "write", "headers"}) {
    const Result result = mailtree(verb + " --help");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr("Example:\n  mailtree " + verb)) << verb;
  }
}

}  // namespace
}  // namespace mailtree::cli_test
