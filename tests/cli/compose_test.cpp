// What `mailtree compose` makes, and what it refuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "mailtree/crypto/Digest.h"
#include "tests/cli/shown.h"

namespace mailtree::cli_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

Result compose(const std::string& arguments) {
  return mailtree("compose --from a@x.example --subject s " + arguments);
}

/// The message that a shell line writes, as `show` reports it.
json written(const std::string& line) {
  const Workspace work;
  const Result result = shell(line + " > " + work.path("m"));
  return result.status == 0 ? shown(work.path("m")) : json(result.err);
}

json composed(const std::string& arguments) {
  return written("\"$mailtree\" compose --from a@x.example --subject s " + arguments);
}

TEST(Compose, puts_each_content_where_readers_look_for_it) {
  const Workspace work;
  const std::string pdf = " --attach " + work.write("a.pdf", "%PDF");
  const std::string mail = " --attach-message " + work.write("in.eml", "Subject: in\n\nbody\n");
  const struct {
    std::string options;
    const char* shape;
  } rows[] = {
      {"", "text/plain"},
      {"--text t", "text/plain"},
      {"--html h", "text/html"},
      {"--html h --text t", "multipart/alternative(text/plain,text/html)"},
      {"--text t" + pdf, "multipart/mixed(text/plain,application/pdf)"},
      {"--html h" + pdf + pdf, "multipart/mixed(text/html,application/pdf,application/pdf)"},
      {"--text t --html h" + pdf,
       "multipart/mixed(multipart/alternative(text/plain,text/html),application/pdf)"},
      {pdf, "multipart/mixed(application/pdf)"},
      {"--text t" + mail + pdf, "multipart/mixed(text/plain,application/pdf,message/rfc822)"},
  };
  for (const auto& row : rows) EXPECT_EQ(shapeOf(composed(row.options)["tree"]), row.shape) << row.options;
}

TEST(Compose, carries_texts_and_files_unharmed) {
  const Workspace work;
  const std::string page = "<p>Größe 🥖</p>\n", pdf("%PDF\0\r\n\xFF\n", 9),
                    csv = "Name;Preis\r\nM\xFCller;5 \x80\r\n";
  const json message = written(
      "\"$mailtree\" compose --from 'Jörg Müller <j@x.example>' --to 'Łukasz <l@y.example>' "
      "--subject 'Grüße 🥖' --text-file " +
      work.write("t", "Grüße,\nJörg\n") + " --html-file " + work.write("h", page) + " --attach '" +
      work.write("Übersicht \"1\".pdf", pdf) + "' --attach " + work.write("t.csv", csv));
  EXPECT_EQ(message["from"]["name"], "Jörg Müller");
  EXPECT_EQ(message["to"][0]["name"], "Łukasz");
  EXPECT_EQ(message["subject"], "Grüße 🥖");
  const json& mixed = message["tree"]["parts"];
  const json& texts = mixed[0]["parts"];
  EXPECT_EQ(texts[0]["sha256"], sha256Hex("Grüße,\r\nJörg\r\n"));
  EXPECT_EQ(texts[0]["charset"], "utf-8") << "both texts have one charset, and the emoji needs this one";
  EXPECT_EQ(texts[1]["content_type"], "text/html");
  EXPECT_EQ(mixed[1]["sha256"], sha256Hex(pdf));
  EXPECT_EQ(mixed[1]["filename"], "Übersicht \"1\".pdf");
  EXPECT_EQ(mixed[2]["sha256"], sha256Hex(csv)) << "an attached text keeps its bytes";
  EXPECT_TRUE(mixed[2]["charset"].is_null()) << "nobody knows it";
}

TEST(Compose, writes_only_ascii_lines_that_end_in_crlf) {
  const Workspace work;
  const std::string out = compose("--text 'ü\nzwei' --attach " + work.write("a.txt", "ü\n") +
                                  " --attach-message " + work.write("m", "Subject: x\n\ny\n"))
                              .out;
  EXPECT_EQ(std::count_if(out.begin(), out.end(), [](char c) { return static_cast<signed char>(c) < 0; }), 0);
  for (std::size_t at = out.find('\n'); at != std::string::npos; at = out.find('\n', at + 1))
    ASSERT_EQ(out[at - 1], '\r') << out.substr(0, at);
  EXPECT_THAT(out, HasSubstr("\r\n=FC\r\nzwei\r\n"));
}

TEST(Compose, takes_a_type_behind_the_last_colon_and_paths_that_hold_one) {
  const Workspace work;
  const std::string file = work.write("t.csv", "ä"), odd = work.write("odd:text", "x");
  const struct {
    std::string argument;
    const char *type, *name, *charset;
  } rows[] = {
      {file, "text/csv", "t.csv", "utf-8"},
      {file + ":Application/X-Foo", "application/x-foo", "t.csv", ""},
      {odd, "application/octet-stream", "odd:text", ""},
      {odd + ":text/plain", "text/plain", "odd:text", ""},
      {work.write("in.EML", "Subject: in\n\nx"), "message/rfc822", "in.EML", ""},
  };
  for (const auto& row : rows) {
    const json part = composed("--attach '" + row.argument + "'")["tree"]["parts"][0];
    EXPECT_EQ(part["content_type"], row.type) << row.argument;
    EXPECT_EQ(part["filename"], row.name) << row.argument;
    EXPECT_EQ(part["charset"], *row.charset ? json(row.charset) : json()) << row.argument;
    EXPECT_NE(part["content_type"] == "message/rfc822",
              part["transfer_encoding"] == "base64" || part["transfer_encoding"] == "quoted-printable")
        << row.argument;
  }
}

TEST(Compose, reads_text_files_by_their_mark_or_by_the_charset_given) {
  const Workspace work;
  const std::string u16("\xFF\xFE\xFC\0\n\0", 6), big("\xFE\xFF\0\xFC", 4);
  const std::string u32("\xFF\xFE\0\0\xFC\0\0\0", 8);
  const struct {
    std::string bytes;
    const char* option;
    const char* body;  // null: refused
  } rows[] = {
      {"ü\n", "", "ü\r\n"},
      {"\xEF\xBB\xBFü", "", "ü"},
      {u16, "", "ü\r\n"},
      {"\xFC\x80\n", "--text-charset windows-1252", "ü€\r\n"},
      {"\xEF\xBB\xBFü", "--text-charset utf-8", "ü"},
      {"\xEF\xBB\xBFx", "--text-charset windows-1252", "ï»¿x"},
      {"\xFF\xFEx", "--text-charset iso-8859-1", "ÿþx"},
      {u32, "", "ü"},
      {u32, "--text-charset utf-32", "ü"},
      {big, "--text-charset utf-16", "ü"},
      {big, "--text-charset UTF-16BE", "ü"},
      {big.substr(2) + big.substr(2), "--text-charset utf-16be", "üü"},
      {"\xFC\n", "", nullptr},
      {std::string("a\0b", 3), "", nullptr},
      {u16 + "x", "", nullptr},
  };
  for (const auto& row : rows) {
    const std::string line = "--text-file " + work.write("t", row.bytes) + ' ' + row.option;
    if (row.body) {
      EXPECT_EQ(composed(line)["tree"]["sha256"], sha256Hex(row.body)) << row.bytes << row.option;
      continue;
    }
    const Result result = compose(line);
    EXPECT_EQ(result.status, 3) << row.bytes;
    EXPECT_THAT(result.err, HasSubstr(work.path("t") + ": ")) << row.bytes;
    EXPECT_EQ(result.out, "") << row.bytes;
  }
}

TEST(Compose, prefers_the_charset_asked_for_where_the_texts_fit) {
  const struct {
    const char* options;
    const char *plain, *html;
  } rows[] = {
      {"--charset iso-8859-2 --text Gruß --html Łódź", "iso-8859-2", "iso-8859-2"},
      {"--charset iso-8859-2 --text Gruß --html 🥖", "utf-8", "utf-8"},
      {"--charset koi8-r --text Gruß --html h", "utf-8", "utf-8"},
      {"--charset utf-8 --text plain --html ü", "utf-8", "utf-8"},
      {"--charset utf-8 --text plain --html plain", "us-ascii", "us-ascii"},
  };
  for (const auto& row : rows) {
    const json parts = composed(row.options)["tree"]["parts"];
    EXPECT_EQ(parts[0]["charset"], row.plain) << row.options;
    EXPECT_EQ(parts[1]["charset"], row.html) << row.options;
  }
}

TEST(Compose, refuses_what_is_no_address_and_says_which_and_why) {
  const struct {
    const char *address, *named, *reason;
  } rows[] = {
      {"", "''", "no address"},
      {"anna", "'anna'", "no at sign"},
      {"@x", "'@x'", "before the at sign"},
      {"anna@", "'anna@'", "after the at sign"},
      {"a@b@c", "'a@b@c'", "more than one at sign"},
      {"an na@x", "'an na@x'", "blank"},
      {"a@x y", "'a@x y'", "blank"},
      {"a@x..y", "'a@x..y'", "domain"},
      {"a@x.", "'a@x.'", "domain"},
      {"a@-x.example", "'a@-x.example'", "domain"},
      {"a@x-.example", "'a@x-.example'", "domain"},
      {"\"\"@x", "'\"\"@x'", "before the at sign"},
      {".a@x", "'.a@x'", "a dot"},
      {"a.@x", "'a.@x'", "a dot"},
      {"a..b@x", "'a..b@x'", "a dot"},
      {"\"unclosed <a@x>", "'\"unclosed <a@x>'", "a quote or a comment"},
      {"\"a\\\" <a@x>", "'\"a\\\" <a@x>'", "a quote or a comment"},
      {"(c <a@x>", "'(c <a@x>'", "a quote or a comment"},
      {"c) <a@x>", "'c) <a@x>'", "a quote or a comment"},
      {"a@[1*2]", "'a@[1*2]'", "domain"},
      {"a@=?utf-8?Q?x?=", "'a@=?utf-8?Q?x?='", "domain"},
      {"<a@x", "'<a@x'", "bracket"},
      {"Bob <a@x> foo", "'Bob <a@x> foo'", "bracket"},
      {"Team: a@x;", "'Team: a@x;'", "outside quotes"},
      {"b@y, Berg, Anna <a@x>", "'Berg'", "no at sign"},
      {"a@x,,b@y", "''", "no address"},
      {"a\x01@x", "", "control character"},
      {"a\xFF@x", "", "utf-8"},
  };
  for (const char* option : {"--from", "--to", "--cc", "--bcc", "--reply-to"}) {
    for (const auto& row : rows) {
      const std::string sender = option == std::string("--from") ? "" : "--from a@x ";
      const Result result =
          mailtree("compose " + sender + "--subject s " + option + " '" + row.address + "'");
      EXPECT_EQ(result.status, 2) << option << row.address;
      EXPECT_EQ(result.out, "") << option << row.address;
      EXPECT_THAT(result.err, testing::AllOf(HasSubstr("mailtree: " + std::string(option)),
                                             HasSubstr(row.named), HasSubstr(row.reason)))
          << row.address;
    }
  }
  EXPECT_THAT(compose("--reply-to 'a@x, b@y'").err, HasSubstr("more than one address"));
  EXPECT_EQ(compose("--to '" + std::string(250, 'a') + "@x.example'").status, 2);
}

TEST(Compose, takes_addresses_in_every_good_form) {
  const json message = composed(
      "--to 'a@x, \"Berg, B\" <b@[1.2.3.4]>' --to 'c@y (Jo)' --to '\"d e\"@z' --to '\"(\" (\"\\)) <e@x-1.z>' "
      "--cc 'Dieter (Köln) <d@bücher.example>'");
  const json to = {{{"name", ""}, {"address", "a@x"}},
                   {{"name", "Berg, B"}, {"address", "b@[1.2.3.4]"}},
                   {{"name", "Jo"}, {"address", "c@y"}},
                   {{"name", ""}, {"address", "\"d e\"@z"}},
                   {{"name", "("}, {"address", "e@x-1.z"}}};
  EXPECT_EQ(message["to"], to);
  EXPECT_EQ(message["cc"][0]["address"], "d@bücher.example");
}

TEST(Compose, tells_hidden_recipients_to_the_envelope_only) {
  const Workspace work;
  const std::string options =
      "--to 'b@x, B <b@X>' --cc c@x --cc C@x --bcc h@x --bcc b@x --header 'Sender: s@x' --envelope-out " +
      work.path("e");
  EXPECT_THAT(compose(options).out, Not(HasSubstr("h@x")));
  const json envelope = {{"reverse_path", "a@x.example"}, {"recipients", {"b@x", "c@x", "C@x", "h@x"}}};
  EXPECT_EQ(json::parse(readFile(work.path("e"))), envelope);
  EXPECT_THAT(compose(options + " --keep-bcc").out, HasSubstr("\r\nBcc: h@x, b@x\r\n"));
  EXPECT_EQ(json::parse(readFile(work.path("e"))), envelope);
}

TEST(Compose, takes_very_many_recipients) {
  const Workspace work;
  const auto start = std::chrono::steady_clock::now();
  std::string recipients;
  for (int i = 0; i < 20000; ++i) recipients += "--to\na" + std::to_string(i) + "@x.example\n";
  const Result result = shell("xargs -s 1900000 < " + work.write("r", recipients) +
                              " \"$mailtree\" compose --from a@x --subject s --envelope-out " +
                              work.path("e") + " -o " + work.path("m"));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(json::parse(readFile(work.path("e")))["recipients"].size(), 20000U);
  EXPECT_EQ(shown(work.path("m"))["to"].size(), 20000U);
}

TEST(Compose, writes_nothing_when_something_is_wrong) {
  const Workspace work;
  const std::string out = work.write("out", "before"), envelope = work.write("e", "before");
  const std::string both = " -o " + out + " --envelope-out ";
  std::filesystem::create_symlink(out, work.path("link"));
  const struct {
    std::string options;
    int status;
    std::string complaint;
  } rows[] = {
      {"--attach " + work.path("nix.pdf") + both + envelope, 3, work.path("nix.pdf") + ": "},
      {"--attach " + work.path("nix") + ":text/plain" + both + envelope, 3, work.path("nix") + ": "},
      {"--attach-message " + work.path("nix") + both + envelope, 3, work.path("nix") + ": "},
      {"--html-file " + work.path("nix") + both + envelope, 3, work.path("nix") + ": "},
      {"--attach " + out + ":multipart/mixed" + both + envelope, 2, "--attach: "},
      {"--text a --text-file b" + both + envelope, 2, "excludes"},
      {"--text-file - --attach -" + both + envelope, 2, "standard input"},
      {"--charset nix" + both + envelope, 2, "--charset: 'nix': no charset of that name"},
      {"--charset utf-16" + both + envelope, 2, "--charset: 'utf-16': mail text cannot"},
      {"--charset utf-7" + both + envelope, 2, "--charset: 'utf-7': mail text cannot"},
      {"--text-charset nix" + both + envelope, 2, "--text-charset: 'nix'"},
      {"--date 2026-01-01" + both + envelope, 2, "--date: "},
      {"--date 'Fri, 30 Feb 2026 10:00:00 +0000'" + both + envelope, 2, "--date: "},
      {"--date 'Fri, 21 Nov 2026 08:30:00 +0100'" + both + envelope, 2, "day of the week"},
      {"--date '21 Nov 2026 08:30:00 +0160'" + both + envelope, 2, "--date: "},
      {"--date '21 Nov 1899 08:30:00 +0100'" + both + envelope, 2, "--date: "},
      {"--text t" + both + out, 2, "--envelope-out: "},
      {"--text t" + both + work.path("./new/../out"), 2, "--envelope-out: "},
      {"--text t" + both + work.path("link"), 2, "--envelope-out: "},
      {"--text t -o " + work.path("./new") + " --envelope-out " + work.path("new"), 2, "--envelope-out: "},
      {"--text t --envelope-out -", 2, "--envelope-out: "},
      {"--text t" + both + work.path("no/folder"), 3, work.path("no/folder") + ": "},
      {"--text t -o " + work.path("no/folder") + " --envelope-out " + envelope, 3,
       work.path("no/folder") + ": "},
  };
  for (const auto& row : rows) {
    const Result result = mailtree("compose --from a@x --subject s " + row.options + " < /dev/null");
    EXPECT_EQ(result.status, row.status) << row.options;
    EXPECT_THAT(result.err, HasSubstr(row.complaint)) << row.options;
    EXPECT_EQ(readFile(out) + readFile(envelope), "beforebefore") << row.options;
  }
}

TEST(Compose, takes_further_fields_and_refuses_what_would_forge_them) {
  const std::string out = compose(
                              "--date 'Sat, 21 Nov 2026 08:30:00 +0100' --header 'X-A: 1' --header 'X-A:ü' "
                              "--header 'X-Priority: 1' --header 'To: q@x' --to p@x")
                              .out;
  for (const char* line :
       {"Date: Sat, 21 Nov 2026 08:30:00 +0100", "X-A: 1", "X-A: =?utf-8?", "X-Priority: 1", "To: p@x, q@x"})
    EXPECT_THAT(out, HasSubstr("\r\n" + std::string(line))) << line;
  EXPECT_THAT(out, Not(HasSubstr("3 (Normal)")));

  for (const char* field : {"X: a\nBcc: evil@x", "X: a\rb", "X y: a", "X-ü: a", ": a", "none", "X: \x01",
                            "X: \xFF", "Content-Type: text/html", "SVX-Bounce-Address: a@x", "from: b@x",
                            "Subject: t", "Date: Sat, 21 Nov 2026 08:30:00 +0100", "Reply-To: b@x",
                            "Return-Path: <b@x>", "Resent-Bcc: b@x", "Resent-To: nobody"}) {
    const Result result = compose("--header '" + std::string(field) + "'");
    EXPECT_EQ(result.status, 2) << field;
    EXPECT_EQ(result.out, "") << field;
    EXPECT_THAT(result.err, HasSubstr("mailtree: --header")) << field;
  }
  EXPECT_EQ(mailtree("compose --from a@x --subject 'a\nBcc: evil@x'").status, 2);
}

}  // namespace
}  // namespace mailtree::cli_test
