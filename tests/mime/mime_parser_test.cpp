#include "mailtree/mime/MimeParser.h"

#include "tests/mime/tables.h"

namespace mailtree {
namespace {

std::string replaceAll(std::string text, std::string_view from, std::string_view to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

std::string marksOf(const MimeMessage2& entity) {
  const std::pair<Repair, const char*> marks[] = {{Repair::boundaryMissing, "!unsplit"},
                                                  {Repair::boundaryUnclosed, "!unclosed"},
                                                  {Repair::contentType, "!type"},
                                                  {Repair::headerSyntax, "!header"},
                                                  {Repair::charset, "!charset"}};
  std::string text;
  for (const auto& [repair, mark] : marks)
    if (entity.repairs().has(repair)) text += mark;
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

std::string treeOf(std::string_view mime) { return print(*message(mime)); }

/// Every row with each kind of line break.
template <std::size_t N>
void expectTrees(const Row (&rows)[N]) {
  for (const char* lineBreak : {"\n", "\r\n", "\r"})
    expectEach([&](const std::string& mime) { return treeOf(replaceAll(mime, "\n", lineBreak)); }, rows);
}

#define TYPE "Content-Type: "
#define CODED "Content-Transfer-Encoding: "
#define MIXED TYPE "multipart/mixed; boundary=b\n\n"
#define RELATED TYPE "multipart/related; boundary=i\n\n"
#define PLAIN TYPE "text/plain\n\n"

TEST(MimeParser, splits_multiparts_at_their_boundaries) {
  const Row rows[] = {
      {"", "-="},
      {MIXED "preamble\n--b\n" PLAIN "one\n--b\n" TYPE "text/html\n\ntwo\n\n--b--\nepilogue\n",
       "m/mixed(text/plain=one, text/html=two|)"},
      {MIXED "--b\n" PLAIN "one\n--b--", "m/mixed(text/plain=one)"},
      {MIXED "--b\n" PLAIN "--b--\n", "m/mixed(text/plain=)"},
      {MIXED "--b\n\nno header\n--b\n\n\nblank first\n--b--\n", "m/mixed(-=no header, -=|blank first)"},
      {TYPE "multipart/digest; boundary=b\n\n--b\n\nSubject: x\n\nhello\n--b\n" PLAIN "p\n--b--\n",
       "m/digest(message/rfc822=Subject: x||hello, text/plain=p)"},
      {TYPE "message/rfc822\n\n" MIXED "--b\n\none\n--b--\n",
       "message/rfc822=Content-Type: multipart/mixed; boundary=b||--b||one|--b--|"},
      // A field that must be single is the first.
      {TYPE "text/html\n" TYPE "text/plain\n" CODED "7bit\n" CODED "base64\n\nb25l", "text/html=b25l"},
      {TYPE "text\n\none", "text/plain!type=one"}};
  expectTrees(rows);
}

TEST(MimeParser, a_boundary_is_a_whole_line) {
  const Row rows[] = {{MIXED "--b \t\n\none\n--b--  \nx\n", "m/mixed(-=one)"},
                      {MIXED "--b\n\nx --b\n --b\n--bb\n--b x\n-- b\n---b\n--\n--B\n--b---\n--b--\n",
                       "m/mixed(-=x --b| --b|--bb|--b x|-- b|---b|--|--B|--b---)"},
                      {TYPE "multipart/mixed; boundary=\"b \"\n\n--b\n\none\n--b--\n", "m/mixed(-=one)"},
                      {TYPE "multipart/mixed;\n boundary=\"a (b): c\"\n\n--a (b): c\n\none\n--a (b): c--\n",
                       "m/mixed(-=one)"}};
  expectTrees(rows);
}

TEST(MimeParser, tells_boundaries_apart_that_begin_alike) {
  // The line that opens "a--" is the line that closes "a": the innermost has it. One boundary for both: after
  // the inner one is closed it is the outer one's.
  const char* const pairs[][2] = {{"a", "ab"},  {"ab", "a"},  {"a", "a-"},
                                  {"x", "x y"}, {"a", "a--"}, {"a", "a"}};
  for (const auto& [outer, inner] : pairs) {
    const std::string text =
        TYPE "multipart/mixed; boundary=\"O\"\n\n--O\n" TYPE
             "multipart/related; boundary=\"I\"\n\n--I\n\none\n--I\n\ntwo\n--I--\n--O\n\n"
             "three\n--O--\n";
    EXPECT_EQ(treeOf(replaceAll(replaceAll(text, "O", outer), "I", inner)),
              "m/mixed(m/related(-=one, -=two), -=three)")
        << outer << " " << inner;
  }
}

TEST(MimeParser, multiparts_end_where_they_must) {
  const Row rows[] = {
      {MIXED "--b\n\none\n", "m/mixed!unclosed(-=one|)"},
      {MIXED "--b\n\none\n--b", "m/mixed!unclosed(-=one)"},
      {MIXED "--b\n" RELATED "--i\n\none\n--b\n\ntwo\n--b--\n", "m/mixed(m/related!unclosed(-=one), -=two)"},
      {MIXED "--b\n" RELATED "--i\n\none\n--b--\n", "m/mixed(m/related!unclosed(-=one))"},
      {MIXED "--b\n" RELATED "only text\n--b\n\ntwo\n--b--\n", "m/mixed(m/related!unsplit=only text, -=two)"},
      {MIXED "nothing but the end\n--b--\n", "m/mixed!unsplit=nothing but the end"},
      {TYPE "multipart/mixed\n\n--b\n\none\n--b--\n", "m/mixed!unsplit=--b||one|--b--|"},
      {TYPE "multipart/mixed; boundary=\"  \"\n\n--\n\none\n----\n", "m/mixed!unsplit=--||one|----|"},
      {MIXED "--b\n\none\n--b--\n--b\n\nepilogue\n", "m/mixed(-=one)"},
      // The empty line of a header is missing.
      {TYPE "multipart/mixed; boundary=b\n--b\n" PLAIN "one\n--b--\n", "m/mixed!header(text/plain=one)"},
      {MIXED "--b\n" TYPE "text/html\n--b\n\ntwo\n--b--\n", "m/mixed(text/html!header=, -=two)"}};
  expectTrees(rows);
}

TEST(MimeParser, nothing_of_a_part_sticks_to_a_multipart_whose_header_ends_at_a_boundary) {
  const auto root = message(TYPE "multipart/mixed; boundary=b\n--b\nContent-Disposition: attachment\n" CODED
                                 "base64\n\nb25l\n--b--\n");
  EXPECT_EQ(print(*root), "m/mixed!header(-=one)");
  EXPECT_STREQ(root->getContentEncoding(), "");
  EXPECT_EQ(textOf([&](StringBuffer& out) { root->getDisposition(out); }), "");
  EXPECT_EQ(root->header().getNumFields(), 1);
}

TEST(MimeParser, a_long_header_without_an_empty_line_loses_nothing) {
  std::string header;
  while (header.size() < 100'000) header += "X-Field: " + std::to_string(header.size()) + "\n";
  const auto root = message(MIXED "--b\n" + header + "--b\n\ntwo\n--b--\n");
  ASSERT_EQ(root->getNumParts(), 2);
  const MimeMessage2& first = *root->getPart(0);
  const std::string fields = textOf([&](StringBuffer& out) {
    first.header().getMimeHeader(out, nullptr, kCpUtf8, /*isTop=*/false, quiet);
  });
  const std::string all =
      replaceAll(fields, "\r\n", "\n") + "\n" + std::string(first.getMimeBodyDb()->view());
  EXPECT_EQ(all + (first.getMimeBodyDb()->isEmpty() ? "" : "\n"), header);
  EXPECT_EQ(print(*root->getPart(1)), "-=two");
}

TEST(MimeParser, skips_what_stores_put_before_a_message) {
  for (const char* prologue : {"\xEF\xBB\xBF", "From me@example.org Thu Jan  1 00:00:00 1970\n",
                               ">From me\r\n", "\xEF\xBB\xBF\x46rom me\n>From you\n"})
    EXPECT_EQ(treeOf(std::string(prologue) + PLAIN "one"), "text/plain=one") << prologue;
  const auto root = message("From : a@example.org\n\nFrom here on text");
  EXPECT_TRUE(root->header().hasField("From", quiet));
  EXPECT_EQ(print(*root), "-=From here on text");
}

TEST(MimeParser, undoes_transfer_encodings) {
  const Row rows[] = {
      {" BASE64 ; x=y\n\nb25l", "one"},         {"(a (nested) comment) base64 (b)\n\nb25l", "one"},
      {"Quoted-Printable,\n\n=41", "A"},        {"8bit\n\n=41", "=41"},
      {"(never closed base64\n\nb25l", "b25l"}, {"\n\n=41", "=41"}};
  expectEach([](const std::string& rest) { return treeOf(CODED + rest).substr(2); }, rows);
}

TEST(MimeParser, a_transfer_encoded_multipart_is_split_after_decoding) {
  // --b\r\nContent-Type: text/plain\r\n\r\none\r\n--b--\r\n
#define ENCODED "LS1iDQpDb250ZW50LVR5cGU6IHRleHQvcGxhaW4NCg0Kb25lDQotLWItLQ0K\n"
  const Row rows[] = {
      {CODED "base64\n" MIXED ENCODED, "m/mixed(text/plain=one)"},
      {TYPE "multipart/mixed; boundary=o\n\n--o\n" CODED "base64\n" MIXED ENCODED "--o--\n",
       "m/mixed(m/mixed(text/plain=one))"},
      {CODED "base64\n" MIXED "--b\n\none\n--b--\n", "m/mixed(-=one)"},  // labelled so, but in the clear
      {CODED "base64\n" MIXED "b25l", "m/mixed!unsplit=one"}};
  expectEach(treeOf, rows);
}

TEST(MimeParser, keeps_bytes_that_are_no_text) {
  const std::string bytes("a\0b\xFF\r\r\n\0\r", 9);
  const auto root = message(MIXED "--b\n\n" + bytes + "\r\n--b--\n");
  ASSERT_EQ(root->getNumParts(), 1);
  EXPECT_EQ(root->getPart(0)->getMimeBodyDb()->view(), bytes);
}

TEST(MimeParser, text_comes_in_utf8_unless_it_is_attached) {
  const std::tuple<const char*, const char*, const char*, int, bool> rows[] = {
      {"text/plain; charset=iso-8859-1", "caf\xE9", "café", kCpLatin1, false},
      {"text/plain; charset=utf-8", "café", "café", kCpUtf8, false},
      {"text/plain; charset=us-ascii", "café", "café", kCpUtf8, true},
      {"text/plain; charset=x-nobody-knows", "\x1B$BF|\x1B(B", "日", 50220, true},
      {"text/plain; charset=utf-16le\n" CODED "base64", "6QA=", "é", kCpUtf16LE, false},
      {"text/plain; charset=iso-8859-1\n" CODED "quoted-printable", "=E9", "é", kCpLatin1, false},
      {"text/plain", "caf\xE9", "caf\xE9", 0, false},
      {"text/plain; charset=iso-8859-1\nContent-Disposition: attachment", "\xE9", "\xE9", kCpLatin1, false},
      {"text/plain; name=a; charset=iso-8859-1\n" CODED "base64", "6Q==", "\xE9", kCpLatin1, false},
      {"application/json; charset=iso-8859-1", "\xE9", "\xE9", kCpLatin1, false}};
  for (const auto& [type, bytes, body, codePage, isRepaired] : rows) {
    SCOPED_TRACE(std::string(type) + " / " + bytes);
    const auto root = message(std::string(TYPE) + type + "\n\n" + bytes);
    EXPECT_EQ(root->getMimeBodyDb()->view(), body);
    EXPECT_EQ(root->charset().getCodePage(), codePage);
    EXPECT_EQ(root->repairs().has(Repair::charset), isRepaired);
  }
  const auto root = message(TYPE "text/plain; charset=X-Nobody\n\ncafé");
  EXPECT_EQ(textOf([&](StringBuffer& out) { root->getCharset(out); }), "X-Nobody") << "told as written";
}

TEST(MimeParser, parts_with_the_same_content_type_are_each_judged_by_their_own_text) {
#define ASCII_PART "--b\n" TYPE "text/plain; charset=us-ascii; x=y\n\n"
  const auto root = message(MIXED ASCII_PART "café\n" ASCII_PART "cafe\n" ASCII_PART "café\n--b\n" TYPE
                                             "text/plain; charset=us-ascii; x=z\n\nx\n--b--");
  EXPECT_EQ(print(*root),
            "m/mixed(text/plain!charset=café, text/plain=cafe, text/plain!charset=café, text/plain=x)");
  std::string seen;
  for (int i = 0; i < 4; ++i)
    seen += std::to_string(root->getPart(i)->charset().getCodePage()) +
            *root->getPart(i)->contentType().m_otherParams.find("x") + " ";
  EXPECT_EQ(seen, "65001y 20127y 65001y 20127z ");
}

std::string receivedBytesOf(MimeMessage2* part) {
  const auto bytes = part->extractReceivedBytes();
  return bytes ? std::string(bytes->view()) : "(none)";
}

TEST(MimeParser, signed_parts_keep_their_bytes_as_received) {
  const std::string first = TYPE " text/plain;\r\n  charset=us-ascii\r\n\r\none \r\n";
  const std::string second = TYPE "multipart/signed; boundary=i\r\n\r\npre\r\n--i\r\n\r\nx\r\n--i--\r\npost";
  const std::string third = "X: header only\r\n";
  const auto root = message(
      TYPE "multipart/mixed; boundary=m\r\n\r\n--m\r\n" TYPE "multipart/signed; boundary=s\r\n\r\n--s\r\n" +
      first + "\r\n--s\r\n" + second + "\r\n--s\r\n" + third + "\r\n--s--\r\n--m\r\n\r\nlast\r\n--m--\r\n");
  EXPECT_EQ(print(*root), "m/mixed(m/signed(text/plain=one |, m/signed(-=x), -=), -=last)");
  EXPECT_FALSE(root->getPart(0)->isSignedContent());
  MimeMessage2* const signature = root->getPart(0);
  EXPECT_EQ(receivedBytesOf(signature->getPart(0)), first);
  EXPECT_EQ(receivedBytesOf(signature->getPart(1)), second);
  EXPECT_EQ(receivedBytesOf(signature->getPart(2)), third);
  EXPECT_FALSE(signature->getPart(1)->getPart(0)->isSignedContent()) << "its bytes are kept further out";
  const auto unclosed = message(TYPE "multipart/signed; boundary=s\n\n--s\n\none\n");
  EXPECT_EQ(receivedBytesOf(unclosed->getPart(0)), "\none\n");
}

// Limits

/// "depth" of a tree and the error that loading it gave.
std::string depthAndError(int levels, std::string& deepestBody) {
  std::string mime, end;
  for (int i = 1; i < levels; ++i) {
    const std::string boundary = "b" + std::to_string(i);
    mime += TYPE "multipart/mixed; boundary=" + boundary + "\n\n--" + boundary + "\n";
    end = "\n--" + boundary + "--" + end;
  }
  LogMemory log;
  const auto root = message(mime + PLAIN "deep" + end + "\n", log);
  int depth = 1;
  MimeMessage2* deepest = root.get();
  for (; deepest->getNumParts(); deepest = deepest->getPart(0)) ++depth;
  deepestBody = deepest->getMimeBodyDb()->view();
  return std::to_string(depth) + (root->limits().has(Limit::depth) ? "!" : " ") + log.text();
}

TEST(MimeParser, nesting_beyond_the_limit_stays_as_bytes) {
  std::string body;
  EXPECT_EQ(depthAndError(kMaxDepth, body), "100 ");
  EXPECT_EQ(depthAndError(kMaxDepth + 50, body),
            "100!error: Limit exceeded: nesting deeper than 100 levels\n");
  EXPECT_NE(body.find("\n\ndeep\n"), std::string::npos);
}

TEST(MimeParser, parts_beyond_the_limit_stay_as_bytes_of_the_last) {
  const auto flat = [](int parts) {
    return MIXED + repeat("--b\n" CODED "base64\n\nb25l\n", static_cast<std::size_t>(parts)) + "--b--\n";
  };
  const auto whole = message(flat(kMaxParts - 1));
  EXPECT_EQ(whole->getNumParts(), kMaxParts - 1);
  EXPECT_TRUE(whole->limits().isEmpty());

  LogMemory log;
  const auto root = message(flat(kMaxParts + 1), log);
  ASSERT_EQ(root->getNumParts(), kMaxParts - 1);
  EXPECT_TRUE(root->limits().has(Limit::parts));
  EXPECT_EQ(log.text(), "error: Limit exceeded: more than 50000 parts\n");
  EXPECT_EQ(print(*root->getPart(kMaxParts - 3)), "-=one");
  // Two parts too many, and raw, so that all comes out as it came in.
  EXPECT_EQ(print(*root->getPart(kMaxParts - 2)),
            "-=b25l|--b|Content-Transfer-Encoding: base64||b25l|--b|Content-Transfer-Encoding: base64||b25l");
  EXPECT_STREQ(root->getPart(kMaxParts - 2)->getContentEncoding(), "");
}

TEST(MimeParser, too_many_parameters_are_told) {
  std::string mime = TYPE "text/plain";
  for (int i = 0; i <= kMaxParameters; ++i) mime += "; p" + std::to_string(i) + "=1";
  const auto root = message(mime + "\n\none");
  EXPECT_TRUE(root->limits().has(Limit::parameters));
  EXPECT_EQ(print(*root), "text/plain=one");
}

}  // namespace
}  // namespace mailtree
