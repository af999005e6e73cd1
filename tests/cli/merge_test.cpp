// What `mailtree merge` makes of a table, and what it refuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "tests/cli/command.h"

namespace mailtree::cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::string kTemplate =
    "From: News <news@x.org>\r\nTo: \"{{name}}\" <{{email}}>\r\nSubject: Hi {{name}}\r\nMessage-ID: "
    "<old@x>\r\nMIME-Version: 1.0\r\nContent-Type: multipart/alternative; boundary=b\r\n\r\n"
    "--b\r\nContent-Type: text/plain; charset=us-ascii\r\n\r\nDear {{name}},\r\nFrom us.\r\n>From "
    "them.\r\n"
    "--b\r\nContent-Type: text/html; charset=us-ascii\r\n\r\n<p>Dear {{name}}</p>\r\n--b--\r\n";

std::string merge(const Workspace& work, const std::string& table, const std::string& options) {
  return "merge " + work.write("t.eml", kTemplate) + " --data " + work.write("d.csv", table) + ' ' + options;
}

std::string first(const Workspace& work) { return readFile(work.path("out/000001.eml")); }

TEST(Merge, reads_every_form_of_table) {
  const struct {
    std::string table, name;
  } rows[] = {
      {"name,email\nAnn,a@x.org\n", "Ann"},
      {"name,email\r\nAnn,a@x.org", "Ann"},
      {"email,name,more\ra@x.org,Ann,\r", "Ann"},
      {"\xEF\xBB\xBFname,email\n\n\nAnn,a@x.org\n\n", "Ann"},
      {"\"name\",\"email\"\n\"Doe, Ann\",\"a@x.org\"\n", "Doe, Ann"},
      {"name,email\n\"Ann \"\"A\"\" D\",a@x.org\n", "Ann \"A\" D"},
      {"name,email\n\"Ann\r\nBcc: e@x.org\",a@x.org\n", "Ann Bcc: e@x.org"},
      {"name,email\n{{email}},a@x.org\n", "{{email}}"},
      {"name,email\n,a@x.org\n", ""},
  };
  for (const auto& row : rows) {
    const Workspace work;
    const Result result = mailtree(merge(work, row.table, "--dir " + work.path("out")));
    EXPECT_EQ(result.status, 0) << row.table << result.err;
    EXPECT_EQ(result.out, "1 message\n");
    EXPECT_THAT(first(work),
                HasSubstr("\r\nSubject: Hi" + (row.name.empty() ? "" : ' ' + row.name) + "\r\n"));
    const std::string header = first(work).substr(0, first(work).find("\r\n\r\n"));
    EXPECT_THAT(header, HasSubstr("a@x.org")) << row.table;
    EXPECT_THAT(header, Not(HasSubstr("\nBcc: e"))) << row.table;
  }
}

TEST(Merge, template_tells_nothing_of_itself_and_need_not_have_copies) {
  const Workspace work;
  const std::string file =
      work.write("t.eml",
                 "Received: from a by b\nMessage-ID: <1@x>\nMessage-ID: <2@x>\nTo: {{to}}\nCc: {{cc}}\n"
                 "MIME-Version: 1.0\n\nHi {{name}},\nbye\n");
  const std::string table = work.write("d.csv", "to,cc,name\na@x.org,,Jörg\nb@x.org,c@x.org,\"A\nB\"\n");
  ASSERT_EQ(mailtree("merge " + file + " --data " + table + " --dir " + work.path("out")).status, 0);
  const std::string one = first(work), two = readFile(work.path("out/000002.eml"));
  for (const char* gone : {"Received", "@x>", "Cc:", "=0A", "{{"}) EXPECT_THAT(one, Not(HasSubstr(gone)));
  EXPECT_THAT(one, HasSubstr("Hi J=F6rg,\r\nbye"));
  EXPECT_THAT(two, HasSubstr("\r\nCc: c@x.org\r\n"));
  EXPECT_THAT(two, HasSubstr("Hi A\r\nB,\r\nbye"));
}

TEST(Merge, names_terms_that_it_cannot_fill) {
  const Workspace work;
  const std::string table = work.write("d.csv", "to,first name\na@x.org,Ann\n");
  const auto complaint = [&](const std::string& message) {
    return mailtree("merge --dry-run --to-field to --data " + table + ' ' + work.write("t.eml", message)).err;
  };
  EXPECT_THAT(complaint("From: a@x\n\n\nHi {{first\nname}}\n"),
              HasSubstr("text/plain part, line 2: {{first name}} is broken over two lines"));
  EXPECT_THAT(
      complaint("From: a@x\nMIME-Version: 1.0\nContent-Type: message/rfc822\n\nSubject: {{first name}}\n\n"),
      HasSubstr("warning: terms in an attached message"));
}

TEST(Merge, names_the_line_of_what_is_wrong_and_writes_nothing) {
  const struct {
    const char *table, *complaint;
  } rows[] = {
      {"", "d.csv: there is no header row"},
      {"name,email\n", "d.csv: no rows stand below the header"},
      {"name,email\nAnn,a@x.org\n\nBob\n", "line 4: 1 field where the header has 2"},
      {"name,email\n\"A\nB\",a@x.org\nBob,b@x.org,\n", "line 4: 3 fields where the header has 2"},
      {"name,email,name\nAnn,a@x.org,B\n", "line 1: the column 'name' stands there twice"},
      {"name,email,\nAnn,a@x.org,B\n", "line 1: column 3 has no name"},
      {"name,mail\nAnn,a@x.org\n", "t.eml: field To: no column for {{email}}"},
      {"email\na@x.org\n", "t.eml: field To: no column for {{name}}"},
      {"name,email\nAnn,a@x.org\nBob,bob\n", "line 3: To: 'bob': there is no at sign"},
      {"name,email\nAnn,\"a@x.org, b@x.org\"\n", "line 2: To: "},
      {"name,email\nAnn,a@x.org\n\"\n\n\xFF\",b@x.org\n", "line 3: it is not utf-8"},
      {"name,email\nAnn \"A\" D,a@x.org\n", "line 2: a quote stands in a field that does not begin with one"},
      {"name,email\n\"Ann\"D,a@x.org\n", "line 2: text stands behind a closing quote"},
      {"name,email\nA,a@x.org\n\"Ann\n,a@x.org\n", "line 3: a quote is never closed"},
  };
  for (const auto& row : rows)
    for (const char* target : {"--dir ", "--mbox "}) {
      const Workspace work;
      const Result result = mailtree(merge(work, row.table, target + work.path("out")));
      EXPECT_THAT(result.err, HasSubstr(row.complaint)) << row.table;
      EXPECT_NE(result.status, 0) << row.table;
      EXPECT_FALSE(std::filesystem::exists(work.path("out"))) << row.table;
    }
}

TEST(Merge, escapes_values_in_html_only) {
  for (const bool raw : {false, true}) {
    const Workspace work;
    const std::string table = "name,email\n\"<b>\"\"&'\",a@x.org\n";
    mailtree(merge(work, table, "--dir " + work.path("out") + (raw ? " --raw-html" : "")));
    EXPECT_THAT(first(work), HasSubstr("\r\nDear <b>\"&',"));
    EXPECT_THAT(first(work), HasSubstr(raw ? "Dear <b>\"&'<" : "Dear &lt;b&gt;&quot;&amp;&#39;<"));
  }
}

TEST(Merge, gives_every_message_an_identifier_and_the_recipient_of_its_row) {
  const Workspace work;
  const std::string table = "name,email,who\nA,a@x.org,Zoë <z@x.org>\nB,b@x.org,y@x.org\n";
  ASSERT_EQ(mailtree(merge(work, table, "--to-field who --dir " + work.path("out"))).status, 0);
  EXPECT_THAT(first(work), HasSubstr("To: =?utf-8?Q?Zo=C3=AB?= <z@x.org>\r\nSubject"));
  std::set<std::string> ids;
  for (const char* name : {"out/000001.eml", "out/000002.eml"}) {
    const std::string text = readFile(work.path(name));
    const std::size_t at = text.find("Message-ID: <");
    ASSERT_NE(at, std::string::npos) << text;
    ids.insert(text.substr(at, text.find('>', at) - at));
  }
  EXPECT_EQ(ids.size(), 2u);
  EXPECT_THAT(first(work), Not(HasSubstr("<old@x>")));
  const Result bad = mailtree(merge(work, table, "--to-field nobody --dry-run"));
  EXPECT_EQ(bad.status, 2) << bad.err;
}

TEST(Merge, quotes_lines_in_a_mailbox_that_read_like_its_own) {
  const Workspace work;
  ASSERT_EQ(mailtree(merge(work, "name,email\nA,a@x.org\nB,b@x.org\n", "--mbox " + work.path("m"))).status,
            0);
  const std::string mailbox = readFile(work.path("m"));
  EXPECT_TRUE(mailbox.starts_with("From news@x.org ")) << mailbox;
  EXPECT_THAT(mailbox, HasSubstr("\nDear A,\n>From us.\n>>From them.\n"));
  EXPECT_THAT(mailbox, HasSubstr("--b--\n\nFrom news@x.org "));
  EXPECT_THAT(mailbox, Not(HasSubstr("\r")));
}

TEST(Merge, replaces_files_only_when_forced) {
  const std::string table = "name,email\nA,a@x.org\nB,b@x.org\n";
  for (const std::string name : {"000002.eml", "m"}) {
    const Workspace work;
    work.write(name, "mine");
    const std::string target = name == "m" ? "--mbox " + work.path("m") : "--dir " + work.path("");
    const Result refused = mailtree(merge(work, table, target));
    EXPECT_EQ(refused.status, 3) << name;
    EXPECT_THAT(refused.err, HasSubstr(name + ": is there already"));
    EXPECT_EQ(readFile(work.path(name)), "mine");
    EXPECT_FALSE(std::filesystem::exists(work.path("000001.eml")));
    EXPECT_EQ(mailtree(merge(work, table, target + " --force")).status, 0) << name;
    EXPECT_THAT(readFile(work.path(name)), HasSubstr("b@x.org")) << name;
  }
}

TEST(Merge, takes_a_table_from_a_pipe_and_stops_where_it_is_told) {
  const Workspace work;
  const std::string form = work.write("t.eml", kTemplate);
  const Result result = shell("printf 'name,email\\nA,a@x.org\\nB,b@x.org\\n' | \"$mailtree\" merge " + form +
                              " --data - --limit 1 --dir " + work.path("out"));
  EXPECT_EQ(result.out, "1 message\n") << result.err;
  EXPECT_THAT(first(work), HasSubstr("Hi A"));
  EXPECT_FALSE(std::filesystem::exists(work.path("out/000002.eml")));
  const Result dry = mailtree(merge(work, "name,email\nA,a@x.org\n", "--dry-run --dir " + work.path("dry")));
  EXPECT_EQ(dry.out, "1 message\n");
  EXPECT_FALSE(std::filesystem::exists(work.path("dry")));
}

TEST(Merge, finds_terms_of_another_form) {
  const Workspace work;
  const std::string form =
      work.write("f.eml", "To: a@x.org\r\nSubject: {{kept}} [name]\r\n\r\n[name] [[x\r\n");
  const std::string table = work.write("d.csv", "name\nZoë\n");
  const Result result =
      mailtree("merge " + form + " --key '[%s]' --data " + table + " --dir " + work.path("out"));
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(first(work), HasSubstr("Subject: {{kept}} =?utf-8?Q?Zo=C3=AB?="));
  for (const char* key : {"%s", "{{%s", "{{name}}", "{%s%s}"})
    EXPECT_EQ(mailtree("merge " + form + " --dry-run --data " + table + " --key '" + key + "'").status, 2)
        << key;
}

TEST(Merge, draws_how_far_it_is_on_a_terminal) {
  if (!hasTerminal()) GTEST_SKIP() << "no program to make a terminal";
  const Workspace work;
  const Result result =
      mailtreeOnTerminal(merge(work, "name,email\nA,a@x.org\n", "--mbox " + work.path("m")), "");
  EXPECT_THAT(result.out, HasSubstr(" 1 rows"));
  EXPECT_THAT(result.out, HasSubstr("\r\x1b[K1 message"));
}

}  // namespace
}  // namespace mailtree::cli_test
