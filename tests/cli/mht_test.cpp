// What `mailtree mht` gives, and what a browser makes of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/cli/command.h"
#include "tests/support/places.h"

namespace mailtree::cli_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

// 3 x 2 pixels.
const std::string kGif =
    "Content-Type: image/gif\r\nContent-Transfer-Encoding: base64\r\n"
    "\r\nR0lGODlhAwACAIAAAAAAAP///yH5BAAAAAAALAAAAAADAAIAAAIDhI8FADs=\r\n";

std::string gif(const std::string& fields) { return "\r\n--r\r\n" + fields + "\r\n" + kGif; }

/// An HTML alternative with images beside it, and an attachment that nobody refers to.
std::string pageWithImages(const std::string& html, const std::string& images) {
  return "Subject: s\r\nContent-Type: multipart/mixed; boundary=m\r\n\r\n--m\r\n"
         "Content-Type: multipart/alternative; boundary=a\r\n\r\n--a\r\nContent-Type: "
         "text/plain\r\n\r\nplain\r\n--a\r\n"
         "Content-Type: multipart/related; boundary=r\r\n\r\n--r\r\n"
         "Content-Type: text/html; charset=iso-8859-1\r\n\r\n" +
         html + images +
         "\r\n--r--\r\n--a--\r\n--m\r\nContent-Type: application/pdf\r\n"
         "Content-Disposition: attachment; filename=x.pdf\r\nContent-ID: <x>\r\n\r\n%PDF\r\n--m--\r\n";
}

TEST(Mht, holds_the_page_first_and_what_it_refers_to_behind) {
  const Workspace work;
  const std::string file = work.write("m", pageWithImages("<img src='cid:one'>", gif("Content-ID: <one>")));
  ASSERT_EQ(mailtree("mht " + file + " -o " + work.path("p.mht")).status, 0);
  const json shown = json::parse(mailtree("show --json --headers " + work.path("p.mht")).out);
  const std::string archive = readFile(work.path("p.mht"));
  EXPECT_THAT(archive, HasSubstr("Content-Type: multipart/related; type=\"text/html\""));
  EXPECT_LT(archive.find("Content-Type: text/html; charset=utf-8"), archive.find("Content-Type: image/gif"));
  EXPECT_THAT(archive, Not(HasSubstr("%PDF")));
  EXPECT_THAT(archive, Not(HasSubstr("text/plain")));
  EXPECT_EQ(shown["subject"], "s");
}

TEST(Mht, plain_text_becomes_an_escaped_page) {
  const struct {
    std::string message, page;
  } rows[] = {
      {"Subject: a<b\r\n\r\n1 < 2 & <script>\r\n", "<title>a&lt;b</title>"},
      {"Subject: s\r\n\r\n1 < 2 & <script>\r\n", "1 &lt; 2 &amp; &lt;script&gt;\r\n</pre>"},
      {"Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n\r\n<x>\r\n--b\r\nContent-Type: "
       "image/gif\r\n\r\n"
       "GIF\r\n--b--\r\n",
       "&lt;x&gt;"},
      {"Content-Type: multipart/alternative; boundary=b\r\n\r\n--b\r\n"
       "Content-Type: text/plain\r\n\r\n<x>\r\n--b--\r\n",
       "&lt;x&gt;"},
      {"Content-Type: image/gif\r\n\r\nGIF", "</pre></body></html>"},
      {"", "</pre></body></html>"},
  };
  const Workspace work;
  for (const auto& row : rows) {
    const Result result = mailtree("mht " + work.write("m", row.message) + " -o " + work.path("p.mht"));
    EXPECT_EQ(result.status, 0) << row.message << result.err;
    EXPECT_THAT(mailtree("body --html " + work.path("p.mht")).out, HasSubstr(row.page)) << row.message;
  }
}

TEST(Mht, takes_no_address_out_of_an_encoded_word) {
  const Workspace work;
  const std::string mail = work.write("m", "From: =?utf-8?Q?=3Ceve=40x=3E?=\n\nx");
  EXPECT_EQ(mailtree("mht " + mail + " -o " + work.path("p.mht")).status, 0);
  EXPECT_THAT(mailtree("show --json " + work.path("p.mht")).out, HasSubstr("\"address\":\"\""));
}

TEST(Mht, every_sample_loads_again) {
  const Workspace work;
  for (const auto& entry : std::filesystem::directory_iterator(places::samples())) {
    ASSERT_EQ(mailtree("mht " + entry.path().string() + " -o " + work.path("p.mht")).status, 0)
        << entry.path();
    EXPECT_EQ(mailtree("body --html " + work.path("p.mht")).status, 0) << entry.path();
  }
  EXPECT_EQ(mailtree("mht " + work.path("missing")).status, 3);
}

std::string chromium() {
  if (shell("python3 -c 'import subprocess'").status != 0) return "";
  for (const char* name : {"chromium", "chromium-browser", "google-chrome"})
    if (shell(std::string("command -v ") + name).status == 0) return name;
  return "";
}

TEST(Mht, a_browser_shows_page_and_images) {
  const std::string browser = chromium();
  if (browser.empty()) GTEST_SKIP() << "Chromium or python3 is not installed";
  const Workspace work;
  const auto see = [&](const std::string& file) {
    EXPECT_EQ(mailtree("mht " + file + " -o " + work.path("p.mht")).status, 0) << file;
    const Result seen = shell("timeout 60 python3 '" + places::sourceFolder() +
                              "/tests/cli/see_in_chromium.py' " + browser + " " + work.path("p.mht"));
    return seen.status == 0 ? json::parse(seen.out) : json(seen.err);
  };
  const json newsletter = see(sample("newsletter"));
  EXPECT_EQ(newsletter["title"], "Grünkohl & Freunde") << newsletter;
  EXPECT_EQ(newsletter["images"], json::parse("[[48, 24]]")) << newsletter;

  const json located = see(work.write(
      "m", pageWithImages(
               "<title>t</title><body>\xE4<img src='a/ein bild.gif'><img src='http://o.example/b.gif'>"
               "<img src='/c.gif'><img src='cid:d@x'></body>",
               gif("Content-Location: a/ein bild.gif") + gif("Content-Location: http://o.example/b.gif") +
                   gif("Content-Location: /c.gif\r\nContent-Disposition: attachment; filename=c.gif") +
                   gif("Content-ID: <d@x>\r\nContent-Location: d.gif"))));
  EXPECT_EQ(located["images"], json::parse("[[3, 2], [3, 2], [3, 2], [3, 2]]")) << located;
  EXPECT_EQ(located["text"], "ä") << located;

  const json text = see(work.write("t", "Subject: a<b\r\n\r\n1 <b>2</b>\r\n"));
  EXPECT_EQ(text["title"], "a<b") << text;
  EXPECT_THAT(text["text"].get<std::string>(), HasSubstr("1 <b>2</b>"));
}

}  // namespace
}  // namespace mailtree::cli_test
