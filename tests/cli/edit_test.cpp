// What `mailtree edit` changes, and what it leaves alone.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/cli/shown.h"
#include "tests/support/places.h"

namespace mailtree::cli_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

/// `whole` with its one occurrence of `from` replaced.
std::string replaced(std::string whole, const std::string& from, const std::string& to) {
  const std::size_t at = whole.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return at == std::string::npos ? whole : whole.replace(at, from.size(), to);
}

TEST(Edit, leaves_everything_else_byte_for_byte) {
  const struct {
    const char *sample, *options, *from, *to;
  } rows[] = {
      {"plain", "--set 'Subject: New'", "Subject: Boat for Saturday", "Subject: New"},
      {"plain", "--set 'subject: New' --set 'Subject: Newer'", "Subject: Boat for Saturday",
       "Subject: Newer"},
      {"signed", "--set 'Subject: New'", "Subject: Lease", "Subject: New"},
      {"signed", "--remove subject", "Subject: Lease\r\n", ""},
      {"attachments", "--text 'New text.'",
       "Dear all,=20\r\n\r\nthe offer is attached, the price list too (Lindenstra=DFe is "
       "new).\r\n\r\nCarmen\r\n",
       "New text.\r\n"},
      {"invitation", "--text New", "Walk through the new rooms, 2 May, 9:00 UTC, Lindenstra=C3=9Fe 4.",
       "New"},
  };
  for (const auto& row : rows) {
    const Workspace work;
    const std::string file = sample(row.sample);
    ASSERT_EQ(mailtree("write " + file + " -o " + work.path("as-is")).status, 0) << row.sample;
    ASSERT_EQ(mailtree("edit " + file + " -o " + work.path("new") + ' ' + row.options).status, 0)
        << row.options;
    EXPECT_EQ(readFile(work.path("new")), replaced(readFile(work.path("as-is")), row.from, row.to))
        << row.sample << row.options;
  }
}

TEST(Edit, changes_nothing_unasked) {
  for (const auto& entry : std::filesystem::directory_iterator(places::samples())) {
    const std::string file = entry.path().string();
    if (file.find("uuencoded") != std::string::npos)
      continue;  // gets an enclosure with a boundary drawn anew
    EXPECT_EQ(mailtree("edit " + file).out, mailtree("write " + file).out) << file;
  }
}

TEST(Edit, puts_a_text_in_place_of_the_old_one_or_beside_the_other_kind) {
  const Workspace work;
  const std::string pdf = "--attach " + work.write("a.pdf", "%PDF");
  const struct {
    std::string composed;
    const char* option;
    const char* shape;
  } rows[] = {
      {"", "--text new", "text/plain"},
      {"", "--html new", "text/html"},
      {"--text t", "--text new", "text/plain"},
      {"--text t", "--html new", "multipart/alternative(text/plain,text/html)"},
      {"--html h", "--text new", "multipart/alternative(text/plain,text/html)"},
      {"--html h", "--html new", "text/html"},
      {"--text t --html h", "--html new", "multipart/alternative(text/plain,text/html)"},
      {"--text t " + pdf, "--html new",
       "multipart/mixed(multipart/alternative(text/plain,text/html),application/pdf)"},
      {"--html h " + pdf, "--text new",
       "multipart/mixed(multipart/alternative(text/plain,text/html),application/pdf)"},
      {pdf, "--text new", "multipart/mixed(text/plain,application/pdf)"},
  };
  for (const auto& row : rows) {
    ASSERT_EQ(mailtree("compose --from a@x --subject s " + row.composed + " -o " + work.path("m")).status, 0);
    ASSERT_EQ(mailtree("edit " + work.path("m") + ' ' + row.option + " -o " + work.path("m")).status, 0);
    const json message = shown(work.path("m"));
    EXPECT_EQ(shapeOf(message["tree"]), row.shape) << row.composed << row.option;
    const bool isHtml = std::string(row.option).starts_with("--html");
    EXPECT_FALSE(message[isHtml ? "html" : "plain_text"].is_null()) << row.composed << row.option;
    EXPECT_EQ(message["attachments"].size(), row.composed.find("pdf") != std::string::npos ? 1U : 0U)
        << row.composed << row.option;
    EXPECT_THAT(readFile(work.path("m")), HasSubstr("new\r\n")) << row.composed << row.option;
  }
  const json newsletter = shown(sample("newsletter"));
  ASSERT_EQ(mailtree("edit " + sample("newsletter") + " --html neu -o " + work.path("n")).status, 0);
  EXPECT_EQ(shapeOf(shown(work.path("n"))["tree"]), shapeOf(newsletter["tree"]));
}

TEST(Edit, destroys_nothing_to_make_room_for_a_text_or_file) {
  const Workspace work;
  const std::string pdf = " --attach " + work.write("a.pdf", "%PDF");
  const std::string loose = "Content-Type: multipart/mixed; boundary=b\n\n--b\n\nold\n--b\n";
  const struct {
    std::string message, options, shape, kept;
  } rows[] = {
      {"\nold\n", "--text new", "text/plain", "MIME-Version: 1.0"},
      {"\nold\n", "--html new", "multipart/alternative(text/plain,text/html)", "old"},
      {"\nold \xE9t\xE9\n", "--text new" + pdf, "multipart/mixed(text/plain,application/pdf)", "new"},
      {loose + "Content-Type: image/png\n\nPNG\n--b--\n", "--html new",
       "multipart/mixed(multipart/alternative(text/plain,text/html),image/png)", "PNG"},
      {"Content-Type: text/calendar\n\nBEGIN:VCALENDAR\n", "--text new",
       "multipart/alternative(text/plain,text/calendar)", "BEGIN:VCALENDAR"},
      {"Content-Type: image/png\nContent-Disposition: inline; filename=p.png\n\nPNG\n",
       "--text new --html new", "multipart/mixed(multipart/alternative(text/plain,text/html),image/png)",
       "filename=\"p.png\"\r\n\r\nPNG"},
      {"Content-Type: text/plain; charset=koi8-r\nContent-Disposition: inline; filename=k.txt\n\n\xC1\n",
       "--text new\xC3\xA9", "multipart/mixed(text/plain,text/plain)",
       "charset=koi8-r\r\nContent-Disposition: inline; filename=\"k.txt\"\r\n\r\n\xC1\r\n"},
      {"Content-Type: message/rfc822\n\nSubject: inner\n\nold\n", "--text new" + pdf,
       "multipart/mixed(text/plain,message/rfc822,application/pdf)", "Subject: inner"},
      {loose + "Content-Type: text/html\nContent-Disposition: attachment\n\n<p>page</p>\n--b--\n",
       "--html new", "multipart/mixed(multipart/alternative(text/plain,text/html),text/html)", "<p>page</p>"},
      {"Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: text/plain; name=log.txt\n"
       "Content-Transfer-Encoding: base64\n\nbG9n\n--b--\n",
       "--text new", "multipart/mixed(text/plain,text/plain)", "bG9n"},
      {"Content-Type: multipart/alternative; boundary=c\n\nlost\n", "--text new" + pdf,
       "multipart/mixed(multipart/alternative(text/plain),text/plain,application/pdf)", "lost"},
      {"Content-Type: application/pkcs7-mime; smime-type=enveloped-data\n\nMII=\n", "--set 'X-A: 1'" + pdf,
       "multipart/mixed(application/pkcs7-mime,application/pdf)", "MII="},
  };
  for (const auto& row : rows) {
    const std::string file = work.write("m", "From: a@x\n" + row.message), out = work.path("out");
    ASSERT_EQ(mailtree("edit " + file + ' ' + row.options + " -o " + out).status, 0)
        << row.message << row.options;
    EXPECT_EQ(shapeOf(shown(out)["tree"]), row.shape) << row.message << row.options;
    EXPECT_THAT(readFile(out), HasSubstr(row.kept)) << row.message << row.options;
    if (row.options.find("new") == std::string::npos) continue;
    EXPECT_THAT(mailtree("body " + out).out, HasSubstr(row.options.starts_with("--text") ? "new" : "old"))
        << row.message << row.options;
  }
}

TEST(Edit, refuses_what_would_hide_or_destroy_the_message) {
  const Workspace work;
  const struct {
    std::string message, options, complaint;
  } rows[] = {
      {"application/pkcs7-mime", "--text new", "encrypted: its text cannot be changed"},
      {"multipart/encrypted; boundary=b", "--html new", "encrypted: its text cannot be changed"},
      {"multipart/digest; boundary=b\n\n--b\n\nSubject: s\n\nx\n--b--", "--text new",
       "would not be read as its body (multipart/digest)"},
      {"application/pdf", "--drop-attachments", "attachment 0 is the whole message"},
      {"application/pdf", "--drop-attachment 0", "attachment 0 is the whole message"},
  };
  for (const auto& row : rows) {
    const std::string file = work.write("m", "Content-Type: " + row.message + "\n\nx\n");
    const Result result = mailtree("edit " + file + ' ' + row.options);
    EXPECT_EQ(result.status, 1) << row.message << row.options;
    EXPECT_EQ(result.out, "") << row.message << row.options;
    EXPECT_THAT(result.err, HasSubstr(row.complaint)) << row.message << row.options;
  }
}

TEST(Edit, keeps_recipients_and_fields_in_step) {
  const Workspace work;
  const std::string file = work.write(
      "m", "From: a@x\r\nTo: old@x\r\nCc: c@x\r\nX-A: 1\r\nX-A: 2\r\nBcc: h@x\r\nSubject: s\r\n\r\nx\r\n");
  const Result result = mailtree(
      "edit " + file +
      " --set 'To: Jörg <j@x>, b@x' --remove cc --set 'X-A: 3' --set 'Bcc: n@x' --set 'From: N <n@x>'");
  EXPECT_EQ(result.out,
            "From: N <n@x>\r\nTo: =?utf-8?Q?J=C3=B6rg?= <j@x>, b@x\r\nBcc: n@x\r\nSubject: s\r\nX-A: "
            "3\r\n\r\nx\r\n");
  EXPECT_EQ(mailtree("edit " + file + " --remove BCC --remove x-a --remove To --remove Cc").out,
            "From: a@x\r\nSubject: s\r\n\r\nx\r\n");
}

TEST(Edit, drops_attachments_by_their_number_in_the_message_given) {
  const Workspace work;
  const std::string pdf = work.write("neu.pdf", "%PDF");
  const struct {
    std::string options;
    std::vector<std::string> left;
  } rows[] = {
      {"", {"offer 2026.pdf", "Preisliste Straßen.csv", "Küche.png", "notes.zip"}},
      {"--drop-attachment 0 --drop-attachment 1 --drop-attachment 0", {"Küche.png", "notes.zip"}},
      {"--drop-attachment 3 --attach " + pdf,
       {"offer 2026.pdf", "Preisliste Straßen.csv", "Küche.png", "neu.pdf"}},
      {"--drop-attachments --attach " + pdf, {"neu.pdf"}},
      {"--drop-attachment 1 --text neu", {"offer 2026.pdf", "Küche.png", "notes.zip"}},
  };
  for (const auto& row : rows) {
    ASSERT_EQ(mailtree("edit " + sample("attachments") + ' ' + row.options + " -o " + work.path("m")).status,
              0);
    std::vector<std::string> names;
    const json message = shown(work.path("m"));
    for (const json& part : message["tree"]["parts"])
      if (!part["filename"].is_null()) names.push_back(part["filename"]);
    EXPECT_EQ(names, row.left) << row.options;
  }
}

TEST(Edit, writes_nothing_when_something_is_wrong) {
  const Workspace work;
  const std::string out = work.write("out", "before"), file = sample("attachments");
  const struct {
    std::string arguments;
    int status;
    std::string complaint;
  } rows[] = {
      {file + " --drop-attachment 0 --drop-attachment 4", 1, "no attachment 4"},
      {file + " --drop-attachment -1", 1, "no attachment -1"},
      {file + " --drop-attachment x", 2, "x"},
      {file + " --drop-attachment 0 --drop-attachments", 2, "excludes"},
      {file + " --set 'To: nobody'", 2, "--set 'To: nobody': 'nobody': there is no at sign"},
      {file + " --set 'Subject: a\nBcc: evil@x'", 2, "line break"},
      {file + " --set 'Content-Type: text/html'", 2, "follows from the content"},
      {file + " --remove Content-Type", 2, "follows from the content"},
      {file + " --remove 'a b'", 2, "--remove 'a b'"},
      {file + " --attach " + work.path("nix"), 3, work.path("nix") + ": "},
      {work.path("nix") + " --set 'X: y'", 3, work.path("nix") + ": "},
      {"- --text-file -", 2, "standard input"},
  };
  for (const auto& row : rows) {
    const Result result = mailtree("edit " + row.arguments + " -o " + out + " < /dev/null");
    EXPECT_EQ(result.status, row.status) << row.arguments;
    EXPECT_THAT(result.err, HasSubstr(row.complaint)) << row.arguments;
    EXPECT_EQ(readFile(out), "before") << row.arguments;
  }
}

TEST(Edit, warns_when_signed_content_changes_and_only_then) {
  EXPECT_THAT(mailtree("edit --text new " + sample("signed")).err,
              HasSubstr("warning: the message is signed"));
  EXPECT_EQ(shapeOf(json::parse(shell("\"$mailtree\" edit --text new " + sample("signed") +
                                      " 2> /dev/null | \"$mailtree\" show --json -")
                                    .out)["tree"]),
            "multipart/mixed(text/plain,text/plain)");
  EXPECT_EQ(mailtree("edit --set 'Subject: new' " + sample("signed")).err, "");
  EXPECT_EQ(mailtree("edit --text new " + sample("plain")).err, "");
}

}  // namespace
}  // namespace mailtree::cli_test
