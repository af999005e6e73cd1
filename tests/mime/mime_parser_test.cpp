#include "mailtree/mime/MimeParser.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Log.h"

namespace mailtree {
namespace {

std::string replaceAll(std::string text, std::string_view from, std::string_view to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

std::string marksOf(const MimeMessage2& entity) {
  const struct {
    Repair repair;
    const char* mark;
  } marks[] = {{Repair::boundaryMissing, "!unsplit"},
               {Repair::boundaryUnclosed, "!unclosed"},
               {Repair::contentType, "!type"},
               {Repair::headerSyntax, "!header"},
               {Repair::charset, "!charset"}};
  std::string text;
  for (const auto& row : marks)
    if (entity.repairs().has(row.repair)) text += row.mark;
  return text;
}

/// "type!repairs=body" of a leaf, "type!repairs(part, part)" of what has parts; "-" where there is no type,
/// "multipart/" shortened to "m/", every line break shown as "|".
std::string print(const MimeMessage2& entity) {
  std::string text = *entity.getContentType() ? entity.getContentType() : "-";
  text = replaceAll(text, "multipart/", "m/") + marksOf(entity);
  const std::string body = replaceAll(std::string(entity.getMimeBodyDb()->view()), "\r\n", "\n");
  if (entity.getNumParts() == 0 || !body.empty())
    text += "=" + replaceAll(replaceAll(body, "\r", "|"), "\n", "|");
  if (entity.getNumParts() == 0) return text;
  text += "(";
  for (int i = 0; i < entity.getNumParts(); ++i) text += (i ? ", " : "") + print(*entity.getPart(i));
  return text + ")";
}

std::string treeOf(std::string_view mime) {
  LogNull log;
  MimeMessage2 root;
  EXPECT_TRUE(root.loadText(mime, log));
  return print(root);
}

struct Row {
  const char* mime;
  const char* tree;
};

/// Every row with each kind of line break.
void expectTrees(const std::vector<Row>& rows) {
  for (const Row& row : rows)
    for (const char* lineBreak : {"\n", "\r\n", "\r"}) {
      const std::string mime = replaceAll(row.mime, "\n", lineBreak);
      EXPECT_EQ(treeOf(mime), row.tree) << row.mime << "\nwith " << testing::PrintToString(lineBreak);
    }
}

#define MIXED "Content-Type: multipart/mixed; boundary=b\n\n"
#define PLAIN "Content-Type: text/plain\n\n"

TEST(MimeParser, splits_multiparts_at_their_boundaries) {
  expectTrees({
      {"", "-="},
      {"Subject: x\n\nhello\n", "-=hello|"},
      {PLAIN "one\n\ntwo\n", "text/plain=one||two|"},
      {MIXED "preamble\n--b\n" PLAIN "one\n--b\nContent-Type: text/html\n\ntwo\n\n--b--\nepilogue\n",
       "m/mixed(text/plain=one, text/html=two|)"},
      {MIXED "--b\n" PLAIN "one\n--b--", "m/mixed(text/plain=one)"},
      {MIXED "--b\n" PLAIN "--b--\n", "m/mixed(text/plain=)"},
      {MIXED "--b\n\nno header\n--b\n\n\nblank first\n--b--\n", "m/mixed(-=no header, -=|blank first)"},
      {MIXED "--b\n\nNote: no field\n--b--\n", "m/mixed(-=Note: no field)"},
      {"Content-Type: multipart/mixed; boundary=o\n\n--o\n"
       "Content-Type: multipart/alternative; boundary=i\n\n--i\n" PLAIN "one\n--i\n" PLAIN
       "two\n--i--\n\n--o\n" PLAIN "three\n--o--\n",
       "m/mixed(m/alternative(text/plain=one, text/plain=two), text/plain=three)"},
      {"Content-Type: multipart/digest; boundary=b\n\n--b\n\nSubject: x\n\nhello\n--b\n" PLAIN "p\n--b--\n",
       "m/digest(message/rfc822=Subject: x||hello, text/plain=p)"},
      {"Content-Type: message/rfc822\n\n" MIXED "--b\n\none\n--b--\n",
       "message/rfc822=Content-Type: multipart/mixed; boundary=b||--b||one|--b--|"},
      {"Content-Type: message/delivery-status\n\nA: b\n\nC: d\n", "message/delivery-status=A: b||C: d|"},
  });
}

TEST(MimeParser, a_boundary_is_a_whole_line) {
  expectTrees({
      {MIXED "--b \t\n\none\n--b--  \nx\n", "m/mixed(-=one)"},
      {MIXED "--b\n\nx --b\n --b\n--bb\n--b x\n-- b\n---b\n--\n--B\n--b---\n--b--\n",
       "m/mixed(-=x --b| --b|--bb|--b x|-- b|---b|--|--B|--b---)"},
      {"Content-Type: multipart/mixed; boundary=\"b \"\n\n--b\n\none\n--b--\n", "m/mixed(-=one)"},
      {"Content-Type: multipart/mixed; boundary=----=_Next\n\n------=_Next\n\none\n------=_Next--\n",
       "m/mixed(-=one)"},
      {"Content-Type: multipart/mixed;\n boundary=\"a (b): c\"\n\n--a (b): c\n\none\n--a (b): c--\n",
       "m/mixed(-=one)"},
  });
}

TEST(MimeParser, tells_boundaries_apart_that_begin_alike) {
  const auto nest = [](std::string outer, std::string inner) {
    return "Content-Type: multipart/mixed; boundary=\"" + outer + "\"\n\n--" + outer +
           "\nContent-Type: multipart/related; boundary=\"" + inner + "\"\n\n--" + inner + "\n\none\n--" +
           inner + "\n\ntwo\n--" + inner + "--\n--" + outer + "\n\nthree\n--" + outer + "--\n";
  };
  for (const auto& [outer, inner] : {std::pair{"a", "ab"}, {"ab", "a"}, {"a", "a-"}, {"x", "x y"}})
    EXPECT_EQ(treeOf(nest(outer, inner)), "m/mixed(m/related(-=one, -=two), -=three)")
        << outer << " " << inner;
  // The line that opens the one is the line that closes the other: the innermost has it.
  EXPECT_EQ(treeOf(nest("a", "a--")), "m/mixed(m/related(-=one, -=two), -=three)");
  // One boundary for both: after the inner one is closed it is the outer one's.
  EXPECT_EQ(treeOf(nest("a", "a")), "m/mixed(m/related(-=one, -=two), -=three)");
}

TEST(MimeParser, multiparts_end_where_they_must) {
  const std::string inner = "Content-Type: multipart/related; boundary=i\n\n";
  const struct {
    std::string mime;
    const char* tree;
  } rows[] = {
      {MIXED "--b\n\none\n", "m/mixed!unclosed(-=one|)"},
      {MIXED "--b\n\none\n--b\n", "m/mixed!unclosed(-=one)"},
      {MIXED "--b\n\none\n--b", "m/mixed!unclosed(-=one)"},
      {MIXED "--b\n" + inner + "--i\n\none\n--b\n\ntwo\n--b--\n",
       "m/mixed(m/related!unclosed(-=one), -=two)"},
      {MIXED "--b\n" + inner + "--i\n\none\n--b--\n", "m/mixed(m/related!unclosed(-=one))"},
      {MIXED "--b\n" + inner + "only text\n--b\n\ntwo\n--b--\n",
       "m/mixed(m/related!unsplit=only text, -=two)"},
      {MIXED "no boundary\n-- \nanywhere\n", "m/mixed!unsplit=no boundary|-- |anywhere|"},
      {MIXED "nothing but the end\n--b--\n", "m/mixed!unsplit=nothing but the end"},
      {"Content-Type: multipart/mixed\n\n--b\n\none\n--b--\n", "m/mixed!unsplit=--b||one|--b--|"},
      {"Content-Type: multipart/mixed; boundary=\"\"\n\n--\n\none\n----\n", "m/mixed!unsplit=--||one|----|"},
      {"Content-Type: multipart/mixed; boundary=\"  \"\n\n--\n\none\n----\n",
       "m/mixed!unsplit=--||one|----|"},
      {MIXED "--b\n\none\n--b--\n--b\n\nepilogue\n", "m/mixed(-=one)"},
  };
  for (const auto& row : rows) expectTrees({{row.mime.c_str(), row.tree}});
}

TEST(MimeParser, a_header_ends_at_a_boundary_when_its_empty_line_is_missing) {
  EXPECT_EQ(treeOf("Content-Type: multipart/mixed; boundary=b\n--b\n" PLAIN "one\n--b--\n"),
            "m/mixed!header(text/plain=one)");
  // Nothing of the part's header may stick to the multipart.
  LogNull log;
  MimeMessage2 root;
  ASSERT_TRUE(
      root.loadText("Content-Type: multipart/mixed; boundary=b\n--b\nContent-Disposition: attachment\n"
                    "Content-Transfer-Encoding: base64\n\nb25l\n--b--\n",
                    log));
  EXPECT_EQ(print(root), "m/mixed!header(-=one)");
  EXPECT_STREQ(root.getContentEncoding(), "");
  StringBuffer disposition;
  root.getDisposition(disposition);
  EXPECT_TRUE(disposition.isEmpty());
  EXPECT_EQ(root.header().getNumFields(), 1);

  EXPECT_EQ(treeOf(MIXED "--b\nContent-Type: text/html\n--b\n\ntwo\n--b--\n"),
            "m/mixed(text/html!header=, -=two)");
}

TEST(MimeParser, a_long_header_without_an_empty_line_loses_nothing) {
  std::string header;
  while (header.size() < 100'000) header += "X-Field: " + std::to_string(header.size()) + "\n";
  LogNull log;
  MimeMessage2 root;
  ASSERT_TRUE(root.loadText(MIXED "--b\n" + header + "--b\n\ntwo\n--b--\n", log));
  ASSERT_EQ(root.getNumParts(), 2);
  const MimeMessage2& first = *root.getPart(0);
  StringBuffer fields;
  first.header().getMimeHeader(fields, nullptr, kCpUtf8, /*isTop=*/false, log);
  const std::string all = replaceAll(std::string(fields.view()), "\r\n", "\n") + "\n" +
                          std::string(first.getMimeBodyDb()->view());
  EXPECT_EQ(all + (first.getMimeBodyDb()->isEmpty() ? "" : "\n"), header);
  EXPECT_EQ(print(*root.getPart(1)), "-=two");
}

TEST(MimeParser, skips_what_stores_put_before_a_message) {
  for (const char* prologue :
       {"\xEF\xBB\xBF", "From me@example.org Thu Jan  1 00:00:00 1970\n", ">From me@example.org\r\n",
        "\xEF\xBB\xBF"
        "From me\n>From you\n"})
    EXPECT_EQ(treeOf(std::string(prologue) + PLAIN "one"), "text/plain=one") << prologue;
  LogNull log;
  MimeMessage2 root;
  ASSERT_TRUE(root.loadText("From : a@example.org\n\nFrom here on text", log));
  EXPECT_TRUE(root.header().hasField("From", log));
  EXPECT_EQ(print(root), "-=From here on text");
}

TEST(MimeParser, undoes_transfer_encodings) {
  const struct {
    const char* encoding;
    const char* body;
    const char* decoded;
  } rows[] = {
      {"base64", "b25l\ndHdv\n", "onetwo"},
      {" BASE64 ; x=y", "b25l", "one"},
      {"\"base64\"", "b25l", "one"},
      {"(a (nested) comment) base64 (b)", "b25l", "one"},
      {"quoted-printable", "a=3Db =\nc", "a=b c"},
      {"Quoted-Printable,", "=41", "A"},
      {"8bit", "=41", "=41"},
      {"x-uuencode", "begin 644 a", "begin 644 a"},
      {"(never closed base64", "b25l", "b25l"},
      {"", "=41", "=41"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(treeOf(std::string("Content-Transfer-Encoding: ") + row.encoding + "\n\n" + row.body),
              std::string("-=") + row.decoded)
        << row.encoding;
}

TEST(MimeParser, a_transfer_encoded_multipart_is_split_after_decoding) {
  // --b\r\nContent-Type: text/plain\r\n\r\none\r\n--b--\r\n
  const char* const encoded = "LS1iDQpDb250ZW50LVR5cGU6IHRleHQvcGxhaW4NCg0Kb25lDQotLWItLQ0K\n";
  const std::string header =
      "Content-Transfer-Encoding: base64\nContent-Type: multipart/mixed; boundary=b\n\n";
  EXPECT_EQ(treeOf(header + encoded), "m/mixed(text/plain=one)");
  EXPECT_EQ(treeOf("Content-Type: multipart/mixed; boundary=o\n\n--o\n" + header + encoded + "--o--\n"),
            "m/mixed(m/mixed(text/plain=one))");
  EXPECT_EQ(treeOf(header + "--b\n\none\n--b--\n"), "m/mixed(-=one)") << "labelled so, but in the clear";
  EXPECT_EQ(treeOf(header + "b25l"), "m/mixed!unsplit=one");
}

TEST(MimeParser, a_field_that_must_be_single_is_the_first) {
  EXPECT_EQ(treeOf("Content-Type: text/html\nContent-Type: text/plain\nContent-Transfer-Encoding: 7bit\n"
                   "Content-Transfer-Encoding: base64\n\nb25l"),
            "text/html=b25l");
}

TEST(MimeParser, an_unusable_content_type_counts_as_plain_text) {
  EXPECT_EQ(treeOf("Content-Type: text\n\none"), "text/plain!type=one");
  EXPECT_EQ(treeOf("Content-Type: multipart\n\none"), "text/plain!type=one");
}

TEST(MimeParser, keeps_bytes_that_are_no_text) {
  const std::string bytes("a\0b\xFF\r\r\n\0\r", 9);
  LogNull log;
  MimeMessage2 root;
  ASSERT_TRUE(root.loadText(MIXED "--b\n\n" + bytes + "\r\n--b--\n", log));
  ASSERT_EQ(root.getNumParts(), 1);
  EXPECT_EQ(root.getPart(0)->getMimeBodyDb()->view(), bytes);
}

TEST(MimeParser, text_comes_in_utf8_unless_it_is_attached) {
  const struct {
    const char* header;
    const char* bytes;
    const char* body;
    int codePage;
    bool isRepaired;
  } rows[] = {
      {"Content-Type: text/plain; charset=iso-8859-1", "caf\xE9", "caf\xC3\xA9", kCpLatin1, false},
      {"Content-Type: text/html; charset=koi8-r", "\xC4\xC1", "\xD0\xB4\xD0\xB0", 20866, false},
      {"Content-Type: text/plain; charset=utf-8", "caf\xC3\xA9", "caf\xC3\xA9", kCpUtf8, false},
      {"Content-Type: text/plain; charset=us-ascii", "caf\xC3\xA9", "caf\xC3\xA9", kCpUtf8, true},
      {"Content-Type: text/plain; charset=x-nobody-knows", "caf\xC3\xA9", "caf\xC3\xA9", kCpUtf8, true},
      {"Content-Type: text/plain; charset=us-ascii", "cafe", "cafe", kCpUsAscii, false},
      {"Content-Type: text/plain; charset=x-nobody-knows", "\x1B$BF|\x1B(B", "日", 50220, true},
      {"Content-Type: text/plain; charset=utf-16le\nContent-Transfer-Encoding: base64", "6QA=", "\xC3\xA9",
       kCpUtf16LE, false},
      {"Content-Type: text/plain; charset=iso-8859-1\nContent-Transfer-Encoding: quoted-printable", "=E9",
       "\xC3\xA9", kCpLatin1, false},
      {"Content-Type: text/plain", "caf\xE9", "caf\xE9", 0, false},
      {"Content-Type: text/plain; charset=iso-8859-1\nContent-Disposition: attachment", "caf\xE9", "caf\xE9",
       kCpLatin1, false},
      {"Content-Type: text/plain; name=a.txt; charset=iso-8859-1\nContent-Transfer-Encoding: base64",
       "6Q==", "\xE9", kCpLatin1, false},
      {"Content-Type: application/json; charset=iso-8859-1", "\xE9", "\xE9", kCpLatin1, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.header) + " / " + row.bytes);
    LogNull log;
    MimeMessage2 root;
    ASSERT_TRUE(root.loadText(std::string(row.header) + "\n\n" + row.bytes, log));
    EXPECT_EQ(root.getMimeBodyDb()->view(), row.body);
    EXPECT_EQ(root.charset().getCodePage(), row.codePage);
    EXPECT_EQ(root.repairs().has(Repair::charset), row.isRepaired);
  }
}

TEST(MimeParser, parts_with_the_same_content_type_are_each_judged_by_their_own_text) {
#define ASCII_PART "--b\nContent-Type: text/plain; charset=us-ascii; x=y\n\n"
  const std::string mime =
      MIXED ASCII_PART "caf\xC3\xA9\n" ASCII_PART "cafe\n" ASCII_PART
                       "caf\xC3\xA9\n--b\nContent-Type: text/plain; charset=us-ascii; x=z\n\nx\n--b--";
#undef ASCII_PART
  LogNull log;
  MimeMessage2 root;
  ASSERT_TRUE(root.loadText(mime, log));
  EXPECT_EQ(print(root),
            "m/mixed(text/plain!charset=caf\xC3\xA9, text/plain=cafe, text/plain!charset=caf\xC3\xA9, "
            "text/plain=x)");
  const struct {
    int codePage;
    const char* x;
  } rows[] = {{kCpUtf8, "y"}, {kCpUsAscii, "y"}, {kCpUtf8, "y"}, {kCpUsAscii, "z"}};
  for (int i = 0; i < 4; ++i) {
    const MimeMessage2& part = *root.getPart(i);
    EXPECT_EQ(part.charset().getCodePage(), rows[i].codePage) << i;
    EXPECT_EQ(*part.contentType().m_otherParams.find("x"), rows[i].x) << i;
  }
}

TEST(MimeParser, a_charset_that_was_wrong_is_still_told_as_written) {
  LogNull log;
  MimeMessage2 root;
  StringBuffer charset;
  ASSERT_TRUE(root.loadText("Content-Type: text/plain; charset=X-Nobody\n\ncaf\xC3\xA9", log));
  root.getCharset(charset);
  EXPECT_STREQ(charset.getString(), "X-Nobody");
}

std::string receivedBytesOf(MimeMessage2* part) {
  const auto bytes = part->extractReceivedBytes();
  return bytes ? std::string(bytes->view()) : "(none)";
}

TEST(MimeParser, signed_parts_keep_their_bytes_as_received) {
  const std::string first = "Content-Type:  text/plain;\r\n  charset=us-ascii\r\n\r\none \r\n";
  const std::string second =
      "Content-Type: multipart/signed; boundary=i\r\n\r\npre\r\n--i\r\n\r\nx\r\n--i--\r\npost";
  const std::string third = "X: header only\r\n";
  LogNull log;
  MimeMessage2 root;
  ASSERT_TRUE(
      root.loadText("Content-Type: multipart/mixed; boundary=m\r\n\r\n--m\r\n"
                    "Content-Type: multipart/signed; boundary=s\r\n\r\n--s\r\n" +
                        first + "\r\n--s\r\n" + second + "\r\n--s\r\n" + third +
                        "\r\n--s--\r\n--m\r\n\r\nlast\r\n--m--\r\n",
                    log));
  EXPECT_EQ(print(root), "m/mixed(m/signed(text/plain=one |, m/signed(-=x), -=), -=last)");
  EXPECT_FALSE(root.getPart(0)->isSignedContent());
  EXPECT_FALSE(root.getPart(1)->isSignedContent());
  MimeMessage2* const signature = root.getPart(0);
  EXPECT_EQ(receivedBytesOf(signature->getPart(0)), first);
  EXPECT_EQ(receivedBytesOf(signature->getPart(1)), second);
  EXPECT_EQ(receivedBytesOf(signature->getPart(2)), third);
  EXPECT_FALSE(signature->getPart(1)->getPart(0)->isSignedContent()) << "its bytes are kept further out";

  ASSERT_TRUE(root.loadText("Content-Type: multipart/signed; boundary=s\n\n--s\n\none\n", log));
  EXPECT_EQ(receivedBytesOf(root.getPart(0)), "\none\n") << "unclosed";
}

// Limits

std::string nested(int levels) {
  std::string mime, end;
  for (int i = 1; i < levels; ++i) {
    const std::string boundary = "b" + std::to_string(i);
    mime += "Content-Type: multipart/mixed; boundary=" + boundary + "\n\n--" + boundary + "\n";
    end = "\n--" + boundary + "--" + end;
  }
  return mime + PLAIN "deep" + end + "\n";
}

int depthOf(const MimeMessage2& root) {
  int depth = 1;
  for (const MimeMessage2* entity = &root; entity->getNumParts(); entity = entity->getPart(0)) ++depth;
  return depth;
}

std::string errorsOf(const LogMemory& log) {
  std::string errors;
  for (const LogEntry& entry : log.entries())
    if (entry.kind == LogEntry::Kind::Error) errors += entry.text + "\n";
  return errors;
}

TEST(MimeParser, nesting_beyond_the_limit_stays_as_bytes) {
  LogMemory log;
  MimeMessage2 root;
  ASSERT_TRUE(root.loadText(nested(kMaxDepth), log));
  EXPECT_EQ(depthOf(root), kMaxDepth);
  EXPECT_TRUE(root.limits().isEmpty());

  ASSERT_TRUE(root.loadText(nested(kMaxDepth + 50), log));
  EXPECT_EQ(depthOf(root), kMaxDepth);
  EXPECT_TRUE(root.limits().has(Limit::depth));
  EXPECT_EQ(errorsOf(log), "Limit met: nesting deeper than 100 levels\n");
  const MimeMessage2* deepest = &root;
  while (deepest->getNumParts()) deepest = deepest->getPart(0);
  EXPECT_TRUE(deepest->getMimeBodyDb()->containsSubstring("\n\ndeep\n", 0));
}

std::string flat(int parts) {
  std::string mime = MIXED;
  for (int i = 0; i < parts; ++i) mime += "--b\nContent-Transfer-Encoding: base64\n\nb25l\n";
  return mime + "--b--\n";
}

TEST(MimeParser, parts_beyond_the_limit_stay_as_bytes_of_the_last) {
  LogMemory log;
  MimeMessage2 root;
  ASSERT_TRUE(root.loadText(flat(kMaxParts - 1), log));
  EXPECT_EQ(root.getNumParts(), kMaxParts - 1);
  EXPECT_TRUE(root.limits().isEmpty());

  ASSERT_TRUE(root.loadText(flat(kMaxParts + 1), log));
  ASSERT_EQ(root.getNumParts(), kMaxParts - 1);
  EXPECT_TRUE(root.limits().has(Limit::parts));
  EXPECT_EQ(errorsOf(log), "Limit met: more than 50000 parts\n");
  EXPECT_EQ(print(*root.getPart(kMaxParts - 3)), "-=one");
  // Two parts too many, and raw, so that all comes out as it came in.
  EXPECT_EQ(print(*root.getPart(kMaxParts - 2)),
            "-=b25l|--b|Content-Transfer-Encoding: base64||b25l|--b|Content-Transfer-Encoding: base64||b25l");
  EXPECT_STREQ(root.getPart(kMaxParts - 2)->getContentEncoding(), "");
}

TEST(MimeParser, too_many_parameters_are_told) {
  std::string mime = "Content-Type: text/plain";
  for (int i = 0; i <= kMaxParameters; ++i) mime += "; p" + std::to_string(i) + "=1";
  LogNull log;
  MimeMessage2 root;
  ASSERT_TRUE(root.loadText(mime + "\n\none", log));
  EXPECT_TRUE(root.limits().has(Limit::parameters));
  EXPECT_EQ(print(root), "text/plain=one");
}

}  // namespace
}  // namespace mailtree
