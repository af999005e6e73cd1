#include <gtest/gtest.h>

#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

/// A node with nothing but what is given here; a boundary for a multipart.
EmailPtr node(const char* type, std::string_view body = {}, const char* encoding = nullptr,
              int codePage = 0) {
  LogNull log;
  EmailPtr made(Email2::createNewObject00());
  made->use_codepage(codePage);
  const char* boundary = viewOf(type).starts_with("multipart/") ? "b" : nullptr;
  if (type) made->setContentTypeUtf8(type, nullptr, nullptr, nullptr, 0, boundary, nullptr, nullptr, log);
  if (encoding) made->setContentEncodingNonRecursive(encoding, log);
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

TEST(Assembly, writes_a_leaf_as_header_empty_line_and_body) {
  EXPECT_EQ(write(*node("application/x-y", "body\r\n")), "Content-Type: application/x-y\r\n\r\nbody\r\n");
  EXPECT_EQ(write(*node("application/x-y")), "Content-Type: application/x-y\r\n\r\n");
  EXPECT_EQ(write(*node(nullptr, "body")), "\r\nbody") << "without a header one line break is enough";
}

TEST(Assembly, writes_a_multipart_between_its_boundaries) {
  const EmailPtr root = node("multipart/mixed", "never written");
  const std::string head = "Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\n";
  EXPECT_EQ(write(*root), head + "never written") << "without parts it is a leaf";

  root->m_subParts.appendPtr(nullptr);
  EXPECT_EQ(write(*root), head + "--b--\r\n") << "a part that is null gives nothing, but there is a list";

  add(*root, node("application/x-y", "1"));
  add(*root, node(nullptr, "2"));
  EXPECT_EQ(write(*root),
            head + "--b\r\nContent-Type: application/x-y\r\n\r\n1\r\n--b\r\n\r\n2\r\n--b--\r\n");
}

TEST(Assembly, appends_to_a_text_and_leaves_it_alone_when_there_is_a_sink) {
  LogNull log;
  ProgressContext progress(nullptr);
  StringBuffer text("before ");
  EXPECT_TRUE(
      node(nullptr, "x")->assembleMimeBody2(text, nullptr, false, nullptr, progress, log, 0, false, true));
  EXPECT_STREQ(text.getString(), "before \r\nx");
  for (const char* tree :
       {"plain", "mixed(alternative(plain,html[enc=quoted-printable]),pdf:attachment,rfc822)"}) {
    const EmailPtr root = buildTree(tree);
    EXPECT_EQ(writeToSink(*root), write(*root)) << tree;
  }
}

TEST(Assembly, leaves_fields_with_the_prefix_out_at_every_level) {
  LogNull log;
  const EmailPtr root = node("multipart/mixed");
  Email2& part = add(*root, node("application/x-y"));
  for (Email2* each : {root.get(), &part}) {
    each->setHeaderField("SVX-Note", "1", log);
    each->setHeaderField("SVZ-Size", "1", log);
  }
  const std::string all = write(*root);
  EXPECT_NE(all.find("SVX-Note", all.find("SVX-Note") + 1), std::string::npos) << all;
  const std::string without = write(*root, {.omitPrefix = "svx-"});
  EXPECT_FALSE(contains(without, "SVX-") || contains(without, "SVZ-")) << without;
}

TEST(Assembly, leaves_out_below_the_top_what_means_nothing_in_a_body_part) {
  const EmailPtr root(new Email2);
  LogNull log;
  root->setContentTypeUtf8("multipart/mixed", nullptr, nullptr, nullptr, 0, "b", nullptr, nullptr, log);
  root->insertSubPartAtIndex(Email2::createNewObject(*root->m_common), -1);
  const std::string text = write(*root);
  const std::size_t part = text.find("--b\r\n");
  for (const char* name : {"MIME-Version:", "Date:", "Message-ID:", "X-Priority:"}) {
    EXPECT_LT(text.find(name), part) << name;
    EXPECT_EQ(text.find(name, part), std::string::npos) << name;
  }
}

TEST(Assembly, turns_8bit_into_quoted_printable_when_asked_but_not_in_attached_messages) {
  const struct {
    const char* tree;
    bool asked;
    const char* encodings;
  } rows[] = {
      {"plain[enc=8bit]", false, "8bit"},
      {"plain[enc=8bit]", true, "quoted-printable"},
      {"plain[enc=8BIT]", true, "quoted-printable"},
      {"pdf[enc=8bit]:attachment", true, "quoted-printable"},
      {"plain[enc=binary]", true, "binary"},
      {"rfc822[enc=8bit]", true, "8bit"},
      {"rfc822[enc=8bit](plain[enc=8bit])", true, "8bit 8bit"},
      {"Message/Global[enc=8bit]", true, "quoted-printable"},
      {"mixed[enc=8bit](plain[enc=8bit],rfc822(plain[enc=8bit]),html[enc=8bit])", true,
       "quoted-printable quoted-printable 7bit 8bit quoted-printable"},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildTree(row.tree);
    write(*root, {.qpFor8bit = row.asked});
    std::string members, fields;
    std::vector<const Email2*> open{root.get()};
    while (!open.empty()) {
      const Email2& each = *open.back();
      open.pop_back();
      for (int i = each.getNumParts(); i-- > 0;) open.push_back(each.getPartConst(i));
      members.append(members.empty() ? "" : " ").append(each.m_transferEncoding.view());
      fields.append(fields.empty() ? "" : " ").append(field(each, "Content-Transfer-Encoding"));
    }
    EXPECT_EQ(members, row.encodings) << row.tree;
    EXPECT_EQ(fields, row.encodings) << row.tree;
  }
}

TEST(Assembly, gives_8bit_text_that_says_nothing_about_itself_a_label) {
  const std::string_view text = "gr\xC3\xBC\xC3\x9F";
  const struct {
    const char* type;
    const char* encoding;
    const char* disposition;
    int codePage;
    std::string_view body;
    const char* wantedType;
    const char* wantedEncoding;
  } rows[] = {
      {nullptr, nullptr, nullptr, 0, text, "text/plain", "quoted-printable"},
      {nullptr, nullptr, nullptr, kCpUtf8, text, "text/plain", "quoted-printable"},
      {nullptr, "8bit", nullptr, 0, text, "text/plain", "8bit"},
      {nullptr, nullptr, nullptr, 0, "ascii", "", ""},
      {nullptr, nullptr, nullptr, 0, std::string_view("\xFF\0", 2), "", ""},
      {"text/html", nullptr, nullptr, 0, text, "text/html", "quoted-printable"},
      {"text/html", "7bit", nullptr, 0, text, "text/html", "7bit"},
      {"text/html", nullptr, nullptr, kCpUtf8, text, "text/html", ""},
      {"image/png", nullptr, nullptr, 0, text, "image/png", ""},
      {nullptr, nullptr, "Attachment", 0, text, "", ""},
  };
  for (const auto& row : rows) {
    const EmailPtr leaf = node(row.type, row.body, row.encoding, row.codePage);
    if (row.disposition) leaf->m_disposition.setString(row.disposition);
    write(*leaf);
    const std::string what = std::string(row.type ? row.type : "no type") + ", " +
                             (row.encoding ? row.encoding : "no encoding") + ", " +
                             std::to_string(row.codePage) + ", " + std::string(row.body);
    EXPECT_STREQ(leaf->m_contentType.m_type.getString(), row.wantedType) << what;
    EXPECT_STREQ(leaf->m_transferEncoding.getString(), row.wantedEncoding) << what;
  }
}

TEST(Assembly, removes_the_transfer_encoding_of_an_alternative_only) {
  const struct {
    const char* tree;
    const char* encoding;
  } rows[] = {
      {"alternative(plain,html)", "(absent)"},
      {"alternative", "(absent)"},
      {"mixed(plain,html)", "7bit"},
      {"related(html)", "7bit"},
  };
  for (const auto& row : rows) {
    const EmailPtr root = buildTree(row.tree);
    write(*root);
    EXPECT_EQ(field(*root, "Content-Transfer-Encoding"), row.encoding) << row.tree;
  }
}

TEST(Assembly, writes_text_in_the_charset_of_the_email_or_relabels_it) {
  const std::string_view german = "gr\xC3\xBC\xC3\x9F";
  const std::string_view japanese = "\xE6\x97\xA5";
  const struct {
    int codePage;
    const char* encoding;
    std::string_view stored;
    const char* charset;
    std::string_view body;
    const char* wantedEncoding;
  } rows[] = {
      {0, "8bit", german, "", german, "8bit"},
      {kCpUtf8, "8bit", german, "utf-8", german, "8bit"},
      {kCpUtf8, "7bit", german, "utf-8", german, "7bit"},
      {kCpUsAscii, "7bit", "plain", "us-ascii", "plain", "7bit"},
      {kCpUsAscii, "8bit", german, "utf-8", german, "8bit"},
      {kCpUsAscii, "7bit", german, "utf-8", "gr=C3=BC=C3=9F", "quoted-printable"},
      {1252, "8bit", german, "windows-1252", "gr\xFC\xDF", "8bit"},
      {1252, "quoted-printable", german, "windows-1252", "gr=FC=DF", "quoted-printable"},
      {1252, "base64", german, "windows-1252", "Z3L83w==\r\n", "base64"},
      {1252, "7bit", japanese, "utf-8", "=E6=97=A5", "quoted-printable"},
      {1252, nullptr, japanese, "utf-8", "=E6=97=A5", "quoted-printable"},
      {1252, "8bit", japanese, "utf-8", japanese, "8bit"},
      {1252, "base64", japanese, "utf-8", "5pel\r\n", "base64"},
      {50220, "7bit", japanese, "iso-2022-jp", "\x1B$BF|\x1B(B", "7bit"},
      {936, "8bit", japanese, "gb2312", "\xC8\xD5", "8bit"},
      {936, "8bit", "\xE2\x82\xAC", "gb18030", "\xA2\xE3", "8bit"},
  };
  for (const auto& row : rows) {
    const EmailPtr leaf = node("text/plain", row.stored, row.encoding, row.codePage);
    const std::string what = std::to_string(row.codePage) + " " + (row.encoding ? row.encoding : "none") +
                             " " + std::string(row.stored);
    for (int time = 1; time <= 2; ++time) {
      const std::string text = write(*leaf);
      EXPECT_EQ(bodyOf(text), row.body) << what << ", time " << time;
      EXPECT_EQ(contains(text, "charset="), *row.charset != 0) << what;
      EXPECT_TRUE(containsNoCase(text, row.charset)) << what << "\n" << text;
      EXPECT_STREQ(leaf->m_transferEncoding.getString(), row.wantedEncoding) << what;
      EXPECT_EQ(leaf->m_body.view(), row.stored) << what;
    }
  }
}

TEST(Assembly, never_converts_what_is_no_text_leaf) {
  LogNull log;
  const EmailPtr file = node("text/plain", "gr\xC3\xBC\xC3\x9F\n", "8bit", 1252);
  file->setContentDispositionUtf8("attachment", "a.txt", log);
  EXPECT_EQ(bodyOf(write(*file)), "gr\xC3\xBC\xC3\x9F\n");
  EXPECT_EQ(bodyOf(write(*node("application/json", "\"\xC3\xBC\"\n", "8bit", 1252))), "\"\xC3\xBC\"\n");
}

TEST(Assembly, gives_html_a_structure_and_a_meta_tag_that_tells_its_charset) {
  const std::string page = "<html><head></head><body>\xC3\xBC</body></html>";
  const std::string wrong = "<html><head><meta charset=\"utf-8\"></head><body>\xC3\xBC</body></html>";
  const struct {
    int codePage;
    std::string body;
    const char*
        charset;  ///< declared in the page that is written; null: the page is written as it is stored.
  } rows[] = {
      {1252, page, "windows-1252"},       {1252, wrong, "windows-1252"}, {1252, "\xC3\xBC", "windows-1252"},
      {kCpUtf8, wrong, nullptr},          {kCpUtf8, page, nullptr},      {0, page, nullptr},
      {1252, "<p>\xE6\x97\xA5", nullptr},  // cannot be carried: utf-8 as it stands
  };
  for (const auto& row : rows) {
    const EmailPtr leaf = node("text/html", row.body, "8bit", row.codePage);
    const std::string written = bodyOf(write(*leaf));
    if (!row.charset) {
      EXPECT_EQ(written, row.body) << row.codePage;
      continue;
    }
    EXPECT_TRUE(containsNoCase(written, row.charset)) << written;
    EXPECT_TRUE(containsNoCase(written, "<body")) << written;
    EXPECT_TRUE(contains(written, "\xFC")) << written;
    EXPECT_FALSE(containsNoCase(written, "utf-8")) << written;
    EXPECT_EQ(leaf->m_body.view(), row.body) << "the stored page stays";
  }
}

TEST(Assembly, leaves_html_in_utf16_and_its_charset_to_the_label) {
  const EmailPtr leaf = node("text/html", "<p>x", "base64", kCpUtf16LE);
  EXPECT_EQ(bodyOf(write(*leaf)), "PABwAD4AeAA=\r\n");
}

TEST(Assembly, brings_line_ends_of_utf16_to_crlf_without_tearing_its_units) {
  const struct {
    const char* encoding;
    std::string_view body;
  } rows[] = {
      {"binary", std::string_view("a\0\r\0\n\0\xE5\x65", 8)},
      {"base64", "YQAKAOVl\r\n"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(bodyOf(write(*node("text/plain", "a\n\xE6\x97\xA5", row.encoding, kCpUtf16LE))), row.body)
        << row.encoding;
}

struct EncodedBodyRow {
  const char* encoding;
  const char* body;
  bool normalize;
  bool dotStuff;
  const char* text;  ///< Appended to a text.
  const char* sink;  ///< Written to a sink; null: the same.
};

TEST(EncodedBody, follows_encoding_line_ends_and_destination) {
  const EncodedBodyRow rows[] = {
      {"7bit", "a\nb", true, false, "a\r\nb", nullptr},
      {"7bit", "a\rb\r\n", true, false, "a\r\nb\r\n", nullptr},
      {"7bit", "a\nb", false, false, "a\nb", nullptr},
      {"BASE64", "a\nb", true, true, "YQpi\r\n", nullptr},
      {"Quoted-Printable", "a=\r\nb", true, true, "a=3D\r\nb", nullptr},
      {"unknown", "x=\xFF", true, false, "x=\xFF", nullptr},
      {"", "x=\xFF", true, false, "x=\xFF", nullptr},
      {"7bit", "", true, true, "", nullptr},
      {"7bit", ".a\r\n.b\r\n..\r\nc.", false, true, ".a\r\n.b\r\n..\r\nc.", "..a\r\n..b\r\n...\r\nc."},
      {"7bit", ".a\n.b\r.c", true, true, ".a\r\n.b\r\n.c", "..a\r\n..b\r\n..c"},
      {"7bit", "a.b", false, true, "a.b", nullptr},
      {"8bit", "\n.\n.", false, true, "\n.\n.", "\n..\n.."},
      {"8bit", ".", false, true, ".", ".."},
  };
  LogNull log;
  for (const auto& row : rows) {
    const EmailPtr leaf = node("text/plain", {}, row.encoding);
    DataBuffer body, bytes;
    body.append(viewOf(row.body));
    StringBuffer text("+"), unused;
    MemoryOutput sink(bytes);
    ProgressContext progress(nullptr);
    const std::string what = std::string(row.encoding) + ": " + row.body;
    EXPECT_TRUE(leaf->getEncodedBody(body, text, progress, log, false, nullptr, row.dotStuff, row.normalize))
        << what;
    EXPECT_EQ(text.view(), std::string("+") + row.text) << what;
    EXPECT_TRUE(leaf->getEncodedBody(body, unused, progress, log, false, &sink, row.dotStuff, row.normalize))
        << what;
    EXPECT_EQ(bytes.view(), row.sink ? row.sink : row.text) << what;
    EXPECT_TRUE(unused.isEmpty()) << what;
  }
}

TEST(Assembly, says_in_the_header_what_the_body_is) {
  const std::string bareCr = "Content-Type: application/x-y\n\na\r.b";
  const std::string utf16 =
      "Content-Type: multipart/appledouble; boundary=b\n\n--b\nContent-Type: text/plain; "
      "charset=utf-16le\nContent-Transfer-Encoding: base64\n\naABpAA==\n\n--b--\n";
  const struct {
    std::string message;
    std::string written;
    bool dotStuff = false;
  } rows[] = {
      {"Content-Transfer-Encoding:\nContent-Transfer-Encoding: base64\n\naGk=\n",
       "Content-Transfer-Encoding: base64\n\naGk=\n"},
      {"Content-Transfer-Encoding: quoted-printable; (x)\n\n=41=20\n",
       "Content-Transfer-Encoding: quoted-printable\n\nA=20\n"},
      {"Content-Transfer-Encoding: BASE64\n\naGk=\n", "Content-Transfer-Encoding: BASE64\n\naGk=\n"},
      {"Content-Transfer-Encoding: 7bit (x)\n\na", "Content-Transfer-Encoding: 7bit (x)\n\na"},
      {"Content-Type: multipart/alternative\nContent-Transfer-Encoding: base64\n\naGk=\n",
       "Content-Type: multipart/alternative\n\nhi"},
      {"Content-Type: text/plain; charset=iso-8859-1\nx-original-encoding: 8bit\n\ngr\xFC\xDF",
       "Content-Type: text/plain; charset=iso-8859-1\nx-original-encoding: 8bit\n\ngr\xFC\xDF"},
      {utf16, utf16},
      {"SVZ-x: y\n\n\nFrom: ceo@x.org\n", "MIME-Version: 1.0\n\n\nFrom: ceo@x.org\n"},
      {"SVZ-x: y\n\nno field: x\n", "\nno field: x\n"},
      {"Content-Type: multipart/mixed; boundary=b\n\n--b\n\nA: b\n\n--b--\n",
       "Content-Type: multipart/mixed; boundary=b\n\n--b\n\nA: b\n\n--b--\n"},
      {bareCr, bareCr},
      {bareCr, "Content-Type: application/x-y\nContent-Transfer-Encoding: base64\n\nYQ0uYg==\n", true},
      {"Content-Type: text/plain\n\na\r.b", "Content-Type: text/plain\n\na\n..b", true},
      {"Content-Type: message/rfc822\n\nA: b\n\na\r.b", "FAILED", true},
  };
  for (const auto& row : rows) {
    const std::string written = writeToSink(*load(crlf(row.message)), {.dotStuff = row.dotStuff});
    EXPECT_EQ(written, crlf(row.written)) << row.message;
  }
}

/// Counts writes, keeps nothing, and can be told to fail.
class CountingSink final : public _svOutput {
 public:
  explicit CountingSink(int goodWrites) : m_goodWrites(goodWrites) {}
  int m_writes = 0;
  std::size_t m_largest = 0;

 protected:
  bool put(std::string_view bytes, LogBase&) override {
    m_largest = std::max(m_largest, bytes.size());
    return m_writes++ < m_goodWrites;
  }

 private:
  int m_goodWrites;
};

TEST(EncodedBody, doubles_many_dots_in_few_writes) {
  std::string dots;
  for (int i = 0; i < 100'000; ++i) dots += ".\r\n";
  const EmailPtr leaf = node("application/x-y");
  DataBuffer body;
  body.append(std::string_view(dots));
  CountingSink sink(1'000'000);
  LogNull log;
  StringBuffer unused;
  ProgressContext progress(nullptr);
  EXPECT_TRUE(leaf->getEncodedBody(body, unused, progress, log, false, &sink, true, false));
  EXPECT_EQ(progress.bytesDone(), dots.size() + 100'000);
  EXPECT_LT(sink.m_writes, 200);
}

TEST(Assembly, writes_a_large_body_to_a_sink_in_bounded_pieces) {
  const std::string large(8 << 20, 'x');
  for (const char* encoding : {"base64", "quoted-printable"}) {
    const EmailPtr root = node("application/x-y", large, encoding);
    CountingSink sink(1'000'000);
    LogNull log;
    StringBuffer unused;
    ProgressContext progress(nullptr);
    EXPECT_TRUE(root->assembleMimeBody2(unused, &sink, false, nullptr, progress, log, 0, false, true))
        << encoding;
    EXPECT_GT(progress.bytesDone(), large.size()) << encoding;
    EXPECT_LT(sink.m_largest, std::size_t{1} << 20) << encoding;
  }
}

TEST(Assembly, stops_at_the_first_failed_write_wherever_it_is) {
  const EmailPtr root = node("multipart/mixed");
  add(*root, node("multipart/related"))
      .insertSubPartAtIndex(node("image/png", "12345", "base64").release(), -1);
  add(*root, node("text/plain", "words", "7bit"));
  CountingSink whole(1'000);
  LogNull log;
  StringBuffer unused;
  ProgressContext first(nullptr);
  ASSERT_TRUE(root->assembleMimeBody2(unused, &whole, false, nullptr, first, log, 0, false, true));
  ASSERT_GT(whole.m_writes, 10);
  for (int good = 0; good < whole.m_writes; ++good) {
    CountingSink sink(good);
    ProgressContext progress(nullptr);
    EXPECT_FALSE(root->assembleMimeBody2(unused, &sink, false, nullptr, progress, log, 0, false, true))
        << good;
    EXPECT_EQ(sink.m_writes, good + 1) << "nothing is written after a failure";
  }
}

TEST(Assembly, says_only_that_a_boundary_could_not_be_written_and_only_when_verbose) {
  const EmailPtr root = node("multipart/mixed");
  add(*root, node("text/plain", "words", "7bit"));
  for (const bool verbose : {false, true}) {
    LogMemory log;
    log.m_verboseLogging = verbose;
    CountingSink sink(1);  // the header goes through
    StringBuffer unused;
    ProgressContext progress(nullptr);
    EXPECT_FALSE(root->assembleMimeBody2(unused, &sink, false, nullptr, progress, log, 0, false, true));
    EXPECT_EQ(contains(log.text(), "Failed to write boundary to output."), verbose) << log.text();
  }
}

TEST(Assembly, goes_on_after_a_dead_subpart) {
  const EmailPtr root = node("multipart/mixed");
  Email2& dead = add(*root, node("application/x-y", "dead"));
  add(*root, node(nullptr, "alive"));
  writeMarker(dead.m_magic, 0);
  EXPECT_EQ(bodyOf(write(*root)), "--b\r\n\r\n--b\r\n\r\nalive\r\n--b--\r\n");
  EXPECT_EQ(write(dead), "FAILED");
  StringBuffer kept("kept");
  LogNull log;
  dead.getMimeBodyEncodedUtf8(kept, log);
  dead.getQBEncodedMimeHeader(kept, log, false);
  EXPECT_STREQ(kept.getString(), "kept");
  EXPECT_EQ(dead.getEmailSize(log), 0u);
  writeMarker(dead.m_magic, kEmailMarker);
}

TEST(Assembly, refuses_a_tree_that_is_deeper_than_it_can_follow) {
  LogMemory log;
  const EmailPtr root(Email2::createNewObject00());
  Email2* deepest = root.get();
  for (int i = 0; i < 100'000; ++i)
    deepest = &add(*deepest, EmailPtr(Email2::createNewObject0(*root->m_common)));
  DataBuffer bytes;
  MemoryOutput sink(bytes);
  ProgressContext progress(nullptr);
  StringBuffer unused;
  EXPECT_FALSE(root->assembleMimeBody2(unused, &sink, false, nullptr, progress, log, 0, false, true));
  EXPECT_TRUE(contains(log.text(), "too deep"));
  EXPECT_EQ(root->getEmailSize(log), 100'001u * 4 + 100'000u * (4 + 6));
}

TEST(BodyEncoded, is_given_in_its_transfer_encoding_or_in_base64_when_it_holds_a_nul) {
  const struct {
    const char* encoding;
    std::string_view body;
    const char* text;
  } rows[] = {
      {"Base64", "abc", "YWJj\r\n"},
      {"quoted-printable", "a=\xC3\xBC", "a=3D=C3=BC"},
      {"8bit", "a=\xC3\xBC\n", "a=\xC3\xBC\n"},
      {"7bit", std::string_view("a\0b", 3), "YQBi\r\n"},
      {"", "", ""},
  };
  LogNull log;
  for (const auto& row : rows) {
    StringBuffer out("old");
    node("text/plain", row.body, row.encoding, 1252)->getMimeBodyEncodedUtf8(out, log);
    EXPECT_STREQ(out.getString(), row.text) << row.encoding << " " << row.body;
  }
}

TEST(EmailSize, is_estimated_by_its_own_rules) {
  LogNull log;
  const auto header = [](const EmailPtr& each) { return each->m_header.getMimeHeaderSize(); };
  const EmailPtr leaf = node("text/plain", std::string(1000, 'x'), "quoted-printable");
  EXPECT_EQ(leaf->getEmailSize(log), 1000 + header(leaf) + 4);
  const EmailPtr file = node("image/png", std::string(57 * 3, 'x'), "BASE64");
  EXPECT_EQ(file->getEmailSize(log), 3 * 78 + header(file) + 4);

  const EmailPtr root = node("multipart/mixed");
  EXPECT_EQ(root->getEmailSize(log), header(root) + 4);
  root->m_subParts.appendPtr(nullptr);
  EXPECT_EQ(root->getEmailSize(log), header(root) + 4 + 1 + 6);
  const Email2& part = add(*root, node("text/plain", "12345"));
  EXPECT_EQ(root->getEmailSize(log), header(root) + 4 + (1 + 4 + part.getEmailSize(log)) + 1 + 6);

  root->setHeaderField("SVZ-Size", "123456", log);
  root->setHeaderField("SVZ-HeaderOnly", "true", log);
  EXPECT_EQ(root->getEmailSize(log), 123456u);
}

}  // namespace
}  // namespace mailtree
