#include <gtest/gtest.h>

#include <tuple>

#include "tests/support/dead_node.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

LogNull quiet;

constexpr const char* kGerman = "gr\xC3\xBC\xC3\x9F";
constexpr const char* kJapanese = "\xE6\x97\xA5";

/// A node with nothing but what is given here; a boundary for a multipart.
EmailPtr node(const char* type, std::string_view body = {}, const char* encoding = nullptr,
              int codePage = 0) {
  EmailPtr made(Email2::createNewObject00());
  made->use_codepage(codePage);
  const char* boundary = viewOf(type).starts_with("multipart/") ? "b" : nullptr;
  if (type) made->setContentTypeUtf8(type, nullptr, nullptr, nullptr, 0, boundary, nullptr, nullptr, quiet);
  if (encoding) made->setContentEncodingNonRecursive(encoding, quiet);
  made->m_body.append(body);
  return made;
}

Email2& add(Email2& parent, EmailPtr child) {
  Email2& part = *child;
  parent.insertSubPartAtIndex(child.release(), -1);
  return part;
}

std::string bodyOf(const std::string& message) {
  const std::size_t end = message.find("\r\n\r\n");
  return end == std::string::npos ? "NO BODY IN " + message : message.substr(end + 4);
}

TEST(Assembly, writes_header_empty_line_and_body_and_a_multipart_between_its_boundaries) {
  const EmailPtr root = node("multipart/mixed", "never written");
  const std::string head = "Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\n";
  EXPECT_EQ(write(*root), head + "never written") << "without parts it is a leaf";

  root->m_subParts.appendPtr(nullptr);
  EXPECT_EQ(write(*root), head + "--b--\r\n") << "a part that is null gives nothing, but there is a list";

  Email2& dead = add(*root, node("application/x-y", "1"));
  add(*root, node(nullptr, "2"));
  EXPECT_EQ(write(*root),
            head + "--b\r\nContent-Type: application/x-y\r\n\r\n1\r\n--b\r\n\r\n2\r\n--b--\r\n");

  EXPECT_EQ(writeToSink(*root), write(*root));

  StringBuffer kept("kept");
  const Killed killed(dead);
  EXPECT_EQ(write(*root), head + "--b\r\n\r\n--b\r\n\r\n2\r\n--b--\r\n") << "it goes on after a dead part";
  EXPECT_EQ(write(dead), "FAILED");
  dead.getMimeBodyEncodedUtf8(kept, quiet);
  dead.getQBEncodedMimeHeader(kept, quiet, false);
  EXPECT_EQ(kept.view(), "kept");
  EXPECT_EQ(dead.getEmailSize(quiet), 0u);
}

TEST(Assembly, leaves_fields_out_by_prefix_and_below_the_top_those_that_mean_nothing_there) {
  const EmailPtr root = node("multipart/mixed");
  Email2& part = add(*root, node("application/x-y"));
  for (const char* name : {"SVX-Note", "SVZ-Size", "MIME-Version", "Date", "Message-ID", "X-Priority"})
    for (Email2* each : {root.get(), &part}) each->setHeaderField(name, "1", quiet);
  const auto expected = [](const std::string& note) {
    return crlf("Content-Type: multipart/mixed; boundary=\"b\"\n" + note +
                "MIME-Version: 1\nDate: 1\nMessage-ID: 1\nX-Priority: 1\n\n--b\n"
                "Content-Type: application/x-y\n" +
                note + "\n\n--b--\n");
  };
  EXPECT_EQ(write(*root), expected("SVX-Note: 1\n"));
  EXPECT_EQ(write(*root, {.omitPrefix = "svx-"}), expected(""));
}

/// The transfer encodings in a text, in order.
std::string encodingsIn(const std::string& text) {
  constexpr std::string_view kName = "Content-Transfer-Encoding: ";
  std::string encodings;
  for (std::size_t at = 0; (at = text.find(kName, at)) != std::string::npos; at += kName.size())
    encodings += (encodings.empty() ? "" : " ") +
                 text.substr(at + kName.size(), text.find('\r', at) - at - kName.size());
  return encodings;
}

TEST(Assembly, turns_8bit_into_quoted_printable_when_asked_but_not_in_attached_messages) {
  // And a transfer encoding is taken from an alternative only.
  const auto rows = casesOf<3>(R"(
      plain[enc=8bit] | | 8bit            plain[enc=8BIT] | asked | quoted-printable
      plain[enc=binary] | asked | binary  rfc822[enc=8bit](plain[enc=8bit]) | asked | 8bit 8bit
      related(plain[enc=8bit],rfc822(html[enc=8bit])) | asked | 7bit quoted-printable 7bit 8bit
      alternative(plain,html) | | 7bit 7bit   alternative | |    related(html) | | 7bit 7bit)");
  for (const auto& [tree, asked, encodings] : rows) {
    const EmailPtr root = buildTree(tree);
    EXPECT_EQ(encodingsIn(write(*root, {.qpFor8bit = !asked.empty()})), encodings) << tree;
    EXPECT_EQ(encodingsIn(write(*root)), encodings) << tree;
  }
}

TEST(Assembly, gives_8bit_text_that_says_nothing_about_itself_a_label) {
  // Type, encoding, disposition, code page and body; then type and encoding as they are written.
  const std::tuple<const char*, const char*, const char*, int, std::string_view, const char*, const char*>
      rows[] = {
          {nullptr, nullptr, "", 0, kGerman, "text/plain", "quoted-printable"},
          {nullptr, "8bit", "", 0, kGerman, "text/plain", "8bit"},
          {nullptr, nullptr, "", 0, std::string_view("\xFF\0", 2), "", ""},
          {"text/html", nullptr, "", 0, kGerman, "text/html", "quoted-printable"},
          {"text/html", nullptr, "", kCpUtf8, kGerman, "text/html", ""},
          {"image/png", nullptr, "", 0, kGerman, "image/png", ""},
          {nullptr, nullptr, "Attachment", 0, kGerman, "", ""},
      };
  for (const auto& [type, encoding, disposition, codePage, body, wantedType, wantedEncoding] : rows) {
    const EmailPtr leaf = node(type, body, encoding, codePage);
    leaf->m_disposition.setString(disposition);
    const std::string text = write(*leaf);
    EXPECT_EQ(leaf->m_contentType.m_type.view(), wantedType) << text;
    EXPECT_EQ(leaf->m_transferEncoding.view(), wantedEncoding) << text;
  }
}

TEST(Assembly, writes_text_in_the_charset_of_the_email_or_relabels_it) {
  // Code page, encoding and text; then charset, body and encoding as they are written.
  const std::tuple<int, const char*, const char*, const char*, const char*, const char*> rows[] = {
      {0, "8bit", kGerman, "", kGerman, "8bit"},
      {kCpUtf8, "8bit", kGerman, "; charset=utf-8", kGerman, "8bit"},
      {kCpUsAscii, "7bit", "plain", "; charset=us-ascii", "plain", "7bit"},
      {kCpUsAscii, "8bit", kGerman, "; charset=utf-8", kGerman, "8bit"},
      {kCpUsAscii, "7bit", kGerman, "; charset=utf-8", "gr=C3=BC=C3=9F", "quoted-printable"},
      {1252, "8bit", kGerman, "; charset=windows-1252", "gr\xFC\xDF", "8bit"},
      {1252, nullptr, kJapanese, "; charset=utf-8", "=E6=97=A5", "quoted-printable"},
      {1252, "8bit", kJapanese, "; charset=utf-8", kJapanese, "8bit"},
      {936, "8bit", "\xE2\x82\xAC", "; charset=gb18030", "\xA2\xE3", "8bit"},
  };
  for (const auto& [codePage, encoding, stored, charset, body, wantedEncoding] : rows) {
    const EmailPtr leaf = node("text/plain", stored, encoding, codePage);
    for (int time = 1; time <= 2; ++time) {
      EXPECT_EQ(write(*leaf), std::string("Content-Type: text/plain") + charset +
                                  "\r\nContent-Transfer-Encoding: " + wantedEncoding + "\r\n\r\n" + body)
          << codePage << ", time " << time;
      EXPECT_EQ(leaf->m_body.view(), stored) << codePage;
    }
  }
}

TEST(Assembly, gives_html_a_structure_and_a_meta_tag_that_tells_its_charset) {
  const std::string wrong = "<html><head><meta charset=\"utf-8\"></head><body>\xC3\xBC</body></html>";
  for (const std::string& html : {wrong, std::string("\xC3\xBC")}) {
    const EmailPtr leaf = node("text/html", html, "8bit", 1252);
    const std::string written = bodyOf(write(*leaf));
    EXPECT_TRUE(containsNoCase(written, "windows-1252") && containsNoCase(written, "<body")) << written;
    EXPECT_TRUE(contains(written, "\xFC") && !containsNoCase(written, "utf-8")) << written;
    EXPECT_EQ(leaf->m_body.view(), html) << "the stored page stays";
  }
  EXPECT_EQ(bodyOf(write(*node("text/html", wrong, "8bit", kCpUtf8))), wrong);
  EXPECT_EQ(bodyOf(write(*node("text/html", "<p>x", "base64", kCpUtf16LE))), "PABwAD4AeAA=\r\n")
      << "its charset is left to the label";
}

TEST(Assembly, brings_line_ends_of_utf16_to_crlf_without_tearing_its_units) {
  const auto written = [](const char* encoding) {
    return bodyOf(write(*node("text/plain", "a\n\xE6\x97\xA5", encoding, kCpUtf16LE)));
  };
  EXPECT_EQ(written("binary"), std::string_view("a\0\r\0\n\0\xE5\x65", 8));
  EXPECT_EQ(written("base64"), "YQAKAOVl\r\n");
}

TEST(EncodedBody, follows_encoding_line_ends_and_destination) {
  // Encoding, body, whether line ends are brought to CRLF and dots doubled; the text and what a sink gets.
  const std::tuple<const char*, const char*, bool, bool, const char*, const char*> rows[] = {
      {"7bit", "a\rb\n", true, false, "a\r\nb\r\n", "a\r\nb\r\n"},
      {"7bit", "a\nb", false, false, "a\nb", "a\nb"},
      {"BASE64", "a\nb", true, true, "YQpi\r\n", "YQpi\r\n"},
      {"Quoted-Printable", "a=\r\nb", true, true, "a=3D\r\nb", "a=3D\r\nb"},
      {"7bit", ".a\n.b\r.c", true, true, ".a\r\n.b\r\n.c", "..a\r\n..b\r\n..c"},
      {"8bit", "\n.\n.", false, true, "\n.\n.", "\n..\n.."},
  };
  for (const auto& [encoding, given, normalize, dotStuff, text, toSink] : rows) {
    const EmailPtr leaf = node("text/plain", {}, encoding);
    DataBuffer body, bytes;
    body.append(viewOf(given));
    StringBuffer out("+"), unused;
    MemoryOutput sink(bytes);
    ProgressContext progress(nullptr);
    EXPECT_TRUE(leaf->getEncodedBody(body, out, progress, quiet, false, nullptr, dotStuff, normalize));
    EXPECT_EQ(out.view(), std::string("+") + text) << encoding << given;
    EXPECT_TRUE(leaf->getEncodedBody(body, unused, progress, quiet, false, &sink, dotStuff, normalize));
    EXPECT_EQ(bytes.view(), toSink) << encoding << given;
    EXPECT_TRUE(unused.isEmpty());
  }
}

TEST(Assembly, says_in_the_header_what_the_body_is) {
  const std::string latin =
      "Content-Type: text/plain; charset=iso-8859-1\nx-original-encoding: 8bit\n\ngr\xFC\xDF";
  const std::string utf16 =
      "Content-Type: multipart/appledouble; boundary=b\n\n--b\nContent-Type: text/plain; "
      "charset=utf-16le\nContent-Transfer-Encoding: base64\n\naABpAA==\n\n--b--\n";
  const std::string headless = "Content-Type: multipart/mixed; boundary=b\n\n--b\n\nA: b\n\n--b--\n";
  const std::pair<std::string, std::string> rows[] = {
      {"Content-Transfer-Encoding:\nContent-Transfer-Encoding: base64\n\naGk=\n",
       "Content-Transfer-Encoding: base64\n\naGk=\n"},
      {"Content-Transfer-Encoding: quoted-printable; (x)\n\n=41=20\n",
       "Content-Transfer-Encoding: quoted-printable\n\nA=20\n"},
      {"Content-Transfer-Encoding: BASE64\n\naGk=\n", "Content-Transfer-Encoding: BASE64\n\naGk=\n"},
      {"Content-Transfer-Encoding: 7bit (x)\n\na", "Content-Transfer-Encoding: 7bit (x)\n\na"},
      {"Content-Type: multipart/alternative\nContent-Transfer-Encoding: base64\n\naGk=\n",
       "Content-Type: multipart/alternative\n\nhi"},
      {latin, latin},
      {utf16, utf16},
      {headless, headless},
      {"SVZ-x: y\n\n\nFrom: ceo@x.org\n", "MIME-Version: 1.0\n\n\nFrom: ceo@x.org\n"},
      {"SVZ-x: y\n\nno field: x\n", "\nno field: x\n"},
  };
  for (const auto& [message, written] : rows) EXPECT_EQ(writeToSink(*load(crlf(message))), crlf(written));

  // Some servers take a bare CR for a line end.
  const std::string file = "Content-Type: application/x-y\n\na\r.b";
  const auto stuffed = [](const std::string& message) {
    return writeToSink(*load(crlf(message)), {.dotStuff = true});
  };
  EXPECT_EQ(writeToSink(*load(crlf(file))), crlf(file));
  EXPECT_EQ(stuffed(file),
            crlf("Content-Type: application/x-y\nContent-Transfer-Encoding: base64\n\nYQ0uYg==\n"));
  EXPECT_EQ(stuffed("Content-Type: text/plain\n\na\r.b"), crlf("Content-Type: text/plain\n\na\n..b"));
  EXPECT_EQ(stuffed("Content-Type: message/rfc822\n\nA: b\n\na\r.b"), "FAILED");
}

/// Counts writes, keeps nothing, and can be told to fail.
class CountingSink final : public _svOutput {
 public:
  explicit CountingSink(int goodWrites = 1'000'000) : m_goodWrites(goodWrites) {}
  int m_writes = 0;

 protected:
  bool put(std::string_view, LogBase&) override { return m_writes++ < m_goodWrites; }

 private:
  int m_goodWrites;
};

/// How many bytes were written, or -1 for a failure.
std::int64_t writeInto(CountingSink& sink, Email2& root, bool dotStuff = false, LogBase& log = quiet) {
  StringBuffer unused;
  ProgressContext progress(nullptr);
  const bool written =
      root.assembleMimeBody2(unused, &sink, dotStuff, nullptr, progress, log, 0, false, true);
  return written ? static_cast<std::int64_t>(progress.bytesDone()) : -1;
}

TEST(Assembly, writes_many_dots_to_a_sink_in_few_pieces) {
  std::string dots;
  for (int i = 0; i < 100'000; ++i) dots += ".\r\n";
  CountingSink sink;
  EXPECT_EQ(writeInto(sink, *node(nullptr, dots), true), 2 + 400'000);
  EXPECT_LT(sink.m_writes, 200);
}

TEST(Assembly, stops_at_the_first_failed_write_wherever_it_is) {
  const EmailPtr root = buildTree("mixed(related(png),plain)");
  CountingSink whole;
  ASSERT_GT(writeInto(whole, *root), 0);
  ASSERT_GT(whole.m_writes, 10);
  for (int good = 0; good < whole.m_writes; ++good) {
    CountingSink sink(good);
    EXPECT_EQ(writeInto(sink, *root), -1) << good;
    EXPECT_EQ(sink.m_writes, good + 1) << "nothing is written after a failure";
  }
  for (const bool verbose : {false, true}) {
    LogMemory log;
    log.m_verboseLogging = verbose;
    CountingSink sink(1);  // the header goes through
    EXPECT_EQ(writeInto(sink, *root, false, log), -1);
    EXPECT_EQ(contains(log.text(), "Failed to write boundary to output."), verbose) << log.text();
  }
}

TEST(BodyEncoded, is_given_in_its_transfer_encoding_or_in_base64_when_it_holds_a_nul) {
  const std::tuple<const char*, std::string_view, const char*> rows[] = {
      {"Base64", "abc", "YWJj\r\n"},
      {"quoted-printable", "a=\xC3\xBC", "a=3D=C3=BC"},
      {"8bit", "a=\xC3\xBC\n", "a=\xC3\xBC\n"},
      {"7bit", std::string_view("a\0b", 3), "YQBi\r\n"},
  };
  for (const auto& [encoding, body, text] : rows) {
    StringBuffer out("old");
    node("text/plain", body, encoding, 1252)->getMimeBodyEncodedUtf8(out, quiet);
    EXPECT_EQ(out.view(), text) << encoding;
  }
}

TEST(EmailSize, is_estimated_by_its_own_rules) {
  const auto header = [](const EmailPtr& each) { return each->m_header.getMimeHeaderSize(); };
  const EmailPtr leaf = node("text/plain", std::string(1000, 'x'), "quoted-printable");
  EXPECT_EQ(leaf->getEmailSize(quiet), 1000 + header(leaf) + 4);
  const EmailPtr file = node("image/png", std::string(57 * 3, 'x'), "BASE64");
  EXPECT_EQ(file->getEmailSize(quiet), 3 * 78 + header(file) + 4);

  const EmailPtr root = node("multipart/mixed");
  root->m_subParts.appendPtr(nullptr);
  EXPECT_EQ(root->getEmailSize(quiet), header(root) + 4 + 1 + 6);
  const Email2& part = add(*root, node("text/plain", "12345"));
  EXPECT_EQ(root->getEmailSize(quiet), header(root) + 4 + (1 + 4 + part.getEmailSize(quiet)) + 1 + 6);

  root->setHeaderField("SVZ-Size", "123456", quiet);
  root->setHeaderField("SVZ-HeaderOnly", "true", quiet);
  EXPECT_EQ(root->getEmailSize(quiet), 123456u);
}

}  // namespace
}  // namespace mailtree
