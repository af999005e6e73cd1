// The header list: what is read from received text, what is kept, what is written, and that nothing can be
// forged.
#include "mailtree/mime/header/MimeHeader.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <string>

#include "mailtree/base/Log.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/coding/EncodedWord.h"
#include "mailtree/mime/header/ContentType.h"
#include "mailtree/mime/header/HeaderLines.h"
#include "mailtree/mime/header/HeaderParams.h"

namespace mailtree {
namespace {

using namespace std::string_literals;

LogNull quiet;

/// "Name=value|Name=value", values decoded; a line without a name as "=line".
std::string show(const MimeHeader& header) {
  std::string out;
  for (int i = 0; i < header.getNumFields(); ++i) {
    if (i > 0) out += '|';
    out.append(header.fieldName(i)).append("=").append(header.decodedValue(i));
  }
  return out;
}

std::string written(const MimeHeader& header, const char* prefix = nullptr, int codePage = 65001,
                    bool isTop = true) {
  StringBuffer out;
  header.getMimeHeader(out, prefix, codePage, isTop, quiet);
  return out.getString();
}

MimeHeader loaded(std::string_view text) {
  MimeHeader header;
  header.loadMimeHeaderText(text, quiet);
  return header;
}

std::string value(const MimeHeader& header, const char* name) {
  StringBuffer out("left over");
  header.getMimeFieldUtf8(name, out, quiet);
  return out.getString();
}

MimeHeader withField(const char* name, const char* text) {
  MimeHeader header;
  header.m_foldLongValues = true;
  header.replaceMimeFieldUtf8(name, text, quiet);
  return header;
}

// Loading

TEST(MimeHeader, a_name_ends_at_the_first_byte_that_none_may_hold) {
  for (int byte = 0; byte < 256; ++byte)
    for (std::size_t at = 0; at < 40; ++at) {
      std::string line(40, 'X');
      line[at] = static_cast<char>(byte);
      ASSERT_EQ(fieldNameSize(line), isFieldNameChar(line[at]) ? line.size() : at) << byte << " at " << at;
    }
}

TEST(MimeHeader, finds_what_was_added_under_a_name_of_a_size_that_no_field_had) {
  MimeHeader header, other;
  header.loadMimeHeaderText("To: a\r\n", quiet);
  header.addMimeField("X-Six", "1", false, quiet);
  header.replaceMimeFieldUtf8("X-Seven", "2", quiet);
  header.replaceMimeFieldUtf8(std::string(70, 'n').c_str(), "3", quiet);
  other.loadMimeHeaderText("Content-Language: en\r\n", quiet);
  header.takeFieldsBeginningWith("Content-", other);
  MimeHeader copy(header), moved;
  moved = std::move(header);
  for (const std::string& name : {"to"s, "x-six"s, "x-seven"s, std::string(70, 'N'), "content-language"s}) {
    EXPECT_GE(copy.findField(name), 0) << name;
    EXPECT_GE(moved.findField(name), 0) << name;
  }
}

TEST(MimeHeader, finds_the_fields_and_the_body) {
  const struct {
    std::string text;
    const char* fields;
    const char* body;
    bool malformed;
  } rows[] = {
      {"A: 1\r\nB: 2\r\n\r\nbody", "A=1|B=2", "body", false},
      {"A: 1\nB: 2\n\nbody", "A=1|B=2", "body", false},
      {"A: 1\rB: 2\r\rbody", "A=1|B=2", "body", false},
      {"A: 1\r\r\nB: 2\r\r\n\r\r\nbody", "A=1|B=2", "body", false},
      {"A: 1\nB: 2\r\n\r\nbody", "A=1|B=2", "body", false},
      {"A: 1\r\n 2\r\n\t3\r\n\r\n", "A=1 2\t3", "", false},
      {"A: 1\r\n \r\n 2\r\nB: 3\r\n\r\nbody", "A=1  2|B=3", "body", false},
      {"A:1\r\nB :2\r\nC \t: 3\r\n\r\n", "A=1|B=2|C=3", "", false},
      {"A:\r\n 1\r\nB:\r\n\r\n", "A=1|B=", "", false},
      {"\r\nbody: x is none\r\n", "body=x is none", "", true},
      {"\r\n\r\nA: 1\r\n\r\nbody", "A=1", "body", false},
      {" \r\n\nA: 1\r\n\r\nbody", "A=1", "body", false},
      {"\r\nno field\r\nA: 1\r\n\r\n", "", "no field\r\nA: 1\r\n\r\n", false},
      {"", "", "", true},
      {"\r\n", "", "", false},
      {"A: 1", "A=1", "", true},
      {"A: 1\r\nbody without an empty line\r\n\r\nmore", "A=1", "body without an empty line\r\n\r\nmore",
       true},
      {"body only\r\n", "", "body only\r\n", true},
      {"A: 1\r\nno field\r\nB: 2\r\n\r\nbody", "A=1|=no field|B=2", "body", true},
      {"no field\r\n folded\r\nA: 1\r\n\r\nbody", "=no field folded|A=1", "body", true},
      {"A: 1\r\nFrom x@y Mon Jan 1 00:00:00 2024\r\nB: 2\r\n\r\nbody",
       "A=1|=From x@y Mon Jan 1 00:00:00 2024|B=2", "body", true},
      {"two words: 1\r\n\r\nbody", "", "two words: 1\r\n\r\nbody", true},
      {"S\xC3\xBC: 1\r\nA: 1\r\n\r\nbody", "=S\xC3\xBC: 1|A=1", "body", true},
      {": 1\r\nA: 1\r\n\r\nbody", "=: 1|A=1", "body", true},
      {"A: 1\0002\r\n\0: 3\r\nB: 4\r\n\r\nb"s, "A=12|=: 3|B=4", "b", true},
  };
  for (const auto& row : rows) {
    MimeHeader header;
    const MimeHeader::Extent extent = header.loadFromEntity(row.text);
    EXPECT_EQ(show(header), row.fields) << row.text;
    EXPECT_EQ(row.text.substr(extent.bodyOffset), row.body) << row.text;
    EXPECT_EQ(extent.malformed, row.malformed) << row.text;
    EXPECT_LE(extent.headerSize, extent.bodyOffset) << row.text;
  }
}

TEST(MimeHeader, an_empty_line_can_end_the_header_of_a_part) {
  const std::string_view text = "\r\nSubject: of the message in a digest\r\n\r\nbody";
  MimeHeader header;
  EXPECT_EQ(header.loadFromEntity(text, MimeHeader::LeadingEmptyLines::endHeader).bodyOffset, 2u);
  EXPECT_EQ(header.getNumFields(), 0);
}

TEST(MimeHeader, what_exceeds_a_limit_belongs_to_the_body) {
  std::string fields;
  for (int i = 0; i < kMaxHeaderFields + 5; ++i) fields += "A: 1\r\n";
  std::string bytes = "A: 1\r\nB: 2\r\n";
  for (int i = 0; i < 5; ++i) bytes += " " + std::string(1 << 20, 'x') + "\r\n";
  const struct {
    const std::string& text;
    int fields;
    std::size_t bodyOffset;
    Limit limit;
  } rows[] = {
      {fields, kMaxHeaderFields, kMaxHeaderFields * 6u, Limit::headerFields},
      {bytes, 1, 6, Limit::headerBytes},  // the whole field, not the half that fits
  };
  for (const auto& row : rows) {
    MimeHeader header;
    const MimeHeader::Extent extent = header.loadFromEntity(row.text);
    EXPECT_EQ(header.getNumFields(), row.fields);
    EXPECT_EQ(extent.bodyOffset, row.bodyOffset);
    EXPECT_TRUE(extent.limits.has(row.limit));
  }
}

TEST(MimeHeader, hostile_headers_are_read_in_linear_time) {
  const char* pieces[] = {"no field\n", " \n", "a\r", "\r\n ", "x", "A: 1\nno field\n", ": x\n"};
  for (const char* piece : pieces) {
    std::string text = "A: 1\r\n";
    while (text.size() < 3'000'000) text += piece;
    const auto begin = std::chrono::steady_clock::now();
    MimeHeader header;
    header.loadFromEntity(text);
    written(loaded(text));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3)) << piece;
  }
}

TEST(MimeHeader, code_page_of_8bit_text_is_utf8_then_declared_then_detected) {
  const struct {
    const char* text;
    int codePage;
    const char* subject;
  } rows[] = {
      {"Subject: caf=E9\r\n", 0, "caf=E9"},
      {"Subject: caf\xC3\xA9\r\n", 65001, "café"},
      {"Subject: caf\xE9\r\nContent-Type: text/plain; charset=iso-8859-2\r\n", 28592, "café"},
      {"Subject: \xF0\xD2\xC9\xD7\xC5\xD4\r\nContent-Type: text/plain; charset=koi8-r\r\n", 20866, "Привет"},
      {"Subject: caf\xC3\xA9\r\nX: \xE9\r\nContent-Type: text/plain; charset=iso-8859-2\r\n", 28592, "café"},
      {"Subject: caf\xC3\xA9\r\nContent-Type: text/plain; charset=koi8-r\r\n", 65001, "café"},
      // Damaged
      {"Subject: caf\xC3\xA9 \xC3\r\nX: \xC3\xA9 \xC3\r\nContent-Type: a/b; charset=iso-8859-1\r\n", 65001,
       "café \uFFFD"},
      {"Subject: caf\xC3\xA9 \xC3\r\nX: caf\xE9\r\n", 1252, "café \uFFFD"},
      {"Subject: \xD7\xD3\xA3\r\nContent-Type: a/b; charset=koi8-r\r\n", 20866, "всё"},
      {"Subject: \xC2\xB3\xFE\r\nContent-Type: a/b; charset=windows-1251\r\n", 1251, "Вію"},
      {"Subject: CAF\xC9\x99 \xDC\r\nContent-Type: a/b; charset=windows-1252\r\n", 1252, "CAFÉ™ Ü"},
      {"Subject: \xD6\xD0\xCE\xC4\xD6\r\nContent-Type: a/b; charset=gb2312\r\n", 936, "中文\uFFFD"},
  };
  for (const auto& row : rows) {
    const MimeHeader header = loaded(row.text);
    EXPECT_EQ(header.getDetectedCP(), row.codePage) << row.text;
    EXPECT_EQ(value(header, "subject"), row.subject) << row.text;
  }
  EXPECT_TRUE(isValidUtf8(value(loaded("Subject: \x81\xFF\xFE\x8D\r\n"), "Subject")));
}

TEST(MimeHeader, loading_text_reports_charset_and_content_type) {
  MimeHeader header;
  _svCharset charset;
  _svContentType type;
  header.loadMimeHeaderText("content-type: Text/HTML;\r\n charset=koi8-r\r\nContent-Type: a/b\r\n", &charset,
                            &type, quiet);
  EXPECT_EQ(charset.getCodePage(), 20866);
  EXPECT_STREQ(type.m_type.getString(), "text/html");
  header.loadMimeHeaderText("A: b\r\n", &charset, &type, quiet);
  EXPECT_STREQ(type.m_type.getString(), "text/html") << "left alone without a field";
}

// Reading and changing

TEST(MimeHeader, the_first_of_a_name_is_read_whatever_its_case) {
  const MimeHeader header = loaded("Subject: =?utf-8?Q?a?=\r\n =?utf-8?Q?b?=\r\nSUBJECT: second\r\n");
  StringBuffer out("left over");
  EXPECT_EQ(value(header, "sUBJECT"), "ab");
  EXPECT_TRUE(header.getMimeFieldUtf8_2("Subject and more", 7, out, quiet));
  EXPECT_FALSE(header.getMimeFieldUtf8("Subj", out, quiet));
  EXPECT_EQ(out.getSize(), 0u) << "emptied when absent";
  EXPECT_FALSE(header.getMimeFieldUtf8(nullptr, out, quiet));
  EXPECT_FALSE(header.getFieldValueUtf8(2, out, quiet));
  EXPECT_FALSE(header.getFieldNameUtf8(-1, out, quiet));
  EXPECT_TRUE(header.hasHeaderMatchingUtf8("subject", "SEC*", false, quiet));
  EXPECT_FALSE(header.hasHeaderMatchingUtf8("subject", "SEC*", true, quiet));
}

TEST(MimeHeader, changes_keep_the_place_and_take_the_callers_name) {
  MimeHeader header = loaded("A: 1\r\nB: 2\r\nA: 3\r\nC: 4\r\n");
  header.replaceMimeFieldUtf8("b", "two", quiet);
  header.replaceMimeFieldUtf8("D", "five", quiet);
  header.addMimeField("a", "6", false, quiet);
  EXPECT_EQ(show(header), "A=1|b=two|A=3|C=4|D=five|a=6");
  header.removeMimeField("A", false);
  EXPECT_EQ(show(header), "b=two|A=3|C=4|D=five|a=6");
  header.removeMimeField("A", true);
  header.replaceMimeFieldUtf8("c", nullptr, quiet);
  EXPECT_EQ(show(header), "b=two|D=five");
  header.copyMimeHeaderFrom(header, quiet);
  EXPECT_EQ(show(header), "b=two|D=five");
}

TEST(MimeHeader, fields_go_by_the_begin_of_their_name) {
  MimeHeader header = loaded("X-A: 1\r\nMax-X-: 2\r\nno field\r\nx-b: 3\r\nX: 4\r\n\r\n");
  header.removeHeadersBeginningWith("");
  header.removeHeadersBeginningWith(nullptr);
  EXPECT_EQ(header.getNumFields(), 5);
  header.removeHeadersBeginningWith("x-");
  EXPECT_EQ(written(header), "Max-X-: 2\r\nno field\r\nX: 4");
}

TEST(MimeHeader, replacing_again_and_again_does_not_grow_the_list) {
  MimeHeader header = loaded("A: 1\r\nB: 2\r\n\r\n");
  for (int i = 0; i < 20'000; ++i)
    header.replaceMimeFieldUtf8("B", (std::string(200, 'x') + std::to_string(i)).c_str(), quiet);
  EXPECT_LT(header.heapUsage(), 100'000u);
  EXPECT_EQ(written(header), "A: 1\r\nB: " + std::string(200, 'x') + "19999");
}

TEST(MimeHeader, joining_keeps_every_value) {
  const struct {
    const char* text;
    const char* joined;
  } rows[] = {
      {"To: a@b\r\nX: 1\r\nto: c@d,\r\n e@f\r\nTO:\r\nTo: g@h\r\n",
       "To: a@b,\r\n c@d,\r\n e@f,\r\n g@h\r\nX: 1"},
      {"To: a@b\r\nX: 1\r\n", "To: a@b\r\nX: 1"},
      {"To: a@b,\r\nTo: =?utf-8?Q?=2C?= <c@d>\r\n", "To: a@b,\r\n =?utf-8?Q?=2C?= <c@d>"},
  };
  for (const auto& row : rows) {
    MimeHeader header = loaded(row.text);
    header.joinFields("to");
    EXPECT_EQ(written(header), row.joined) << row.text;
  }
  MimeHeader header = loaded("Cc: a@b\r\n");
  header.addMimeField("cc", "Jörg <c@d>", false, quiet);
  header.joinFields("Cc");
  EXPECT_EQ(value(header, "Cc"), "a@b, Jörg <c@d>");
}

// Writing

TEST(MimeHeader, received_fields_are_written_as_they_came) {
  const struct {
    std::string text;
    std::string written;
  } rows[] = {
      {"A : 1  \r\n\t2\r\nB:3\r\n\r\n", "A : 1  \r\n\t2\r\nB:3"},
      {"A: 1\n 2\rB: \xE9\n\n", "A: 1\r\n 2\r\nB: \xE9"},
      {"A: 1\r\n \r\n 2\r\n", "A: 1\r\n \r\n 2"},
      {"no field\r\nA: 1\r\nagain none\r\n more\r\nB: 2\r\n\r\n",
       "no field\r\nA: 1\r\nagain none\r\n more\r\nB: 2"},
      {"A: " + std::string(2000, 'x') + "\r\n\r\n", "A: " + std::string(2000, 'x')},
  };
  for (const auto& row : rows) {
    MimeHeader header = loaded(row.text);
    header.m_foldLongValues = true;
    EXPECT_EQ(written(header), row.written);
    EXPECT_EQ(written(header, nullptr, 20866, /*isTop=*/false), row.written)
        << "code page and place change nothing";
  }
}

TEST(MimeHeader, size_counts_the_lines_that_are_written) {
  EXPECT_EQ(loaded("A: 1\r\nSVZ-Size: 5\r\nBc: 2\r\n\r\n").getMimeHeaderSize(),
            std::string_view("A: 1\r\nBc: 2\r\n").size());
}

TEST(MimeHeader, a_line_without_a_name_never_ends_the_header_nor_vanishes) {
  const struct {
    const char* text;
    const char* removed;
    const char* written;
  } rows[] = {
      {"A: 1\r\nno field\r\nB: 2\r\n\r\n", "B", "A: 1\r\nX-Malformed-Line: no field"},
      {"no field\r\nB: 2\r\n\r\n", "B", "X-Malformed-Line: no field"},
      {"From x\r\nB: 2\r\n\r\n", "Z", "X-Malformed-Line: From x\r\nB: 2"},
      {"A: 1\r\nFrom x\r\nB: 2\r\n\r\n", "Z", "A: 1\r\nFrom x\r\nB: 2"},
      {"A: 1\r\nno field", "Z", "A: 1\r\nX-Malformed-Line: no field"},
  };
  for (const auto& row : rows) {
    MimeHeader header = loaded(row.text);
    header.removeMimeField(row.removed, true);
    const std::string text = written(header);
    EXPECT_EQ(text, row.written) << row.text;
    MimeHeader again;
    EXPECT_EQ(again.loadFromEntity(text + "\r\n\r\n").bodyOffset, text.size() + 4) << row.text;
    EXPECT_EQ(written(again), text);
  }
}

TEST(MimeHeader, internal_empty_and_root_only_fields_are_left_out) {
  const struct {
    const char* prefix;
    bool isTop;
    bool received;
    const char* names;
  } rows[] = {
      {nullptr, true, false, "Date:|MIME-Version:|SVX-a:|Content-Type2:|Message-ID:|X-Priority:|"},
      {"svx-", true, false, "Date:|MIME-Version:|Content-Type2:|Message-ID:|X-Priority:|"},
      {"", true, false, "Date:|MIME-Version:|SVX-a:|Content-Type2:|Message-ID:|X-Priority:|"},
      {nullptr, false, false, "SVX-a:|Content-Type2:|"},
      {nullptr, false, true, "Date:|MIME-Version:|SVX-a:|Content-Type2:|Message-ID:|X-Priority:|"},
  };
  for (const auto& row : rows) {
    MimeHeader header;
    if (row.received) header.loadMimeHeaderText("", quiet);
    for (const char* name :
         {"Date", "MIME-Version", "SVX-a", "svz-Size", "Content-Type2", "Message-ID", "X-Priority"})
      header.addMimeField(name, "1", false, quiet);
    header.addMimeField("content-type", "", false, quiet);
    header.addMimeField("Content-Transfer-Encoding", " ", false, quiet);
    std::string names;
    const std::string text = written(header, row.prefix, 0, row.isTop);
    for (std::size_t at = 0; at < text.size(); at = std::min(text.find("\r\n", at), text.size() - 2) + 2)
      names += text.substr(at, text.find(':', at) + 1 - at) + "|";
    EXPECT_EQ(names, row.names);
    EXPECT_EQ(header.getNumFields(), 9) << "still in the list";
  }
}

TEST(MimeHeader, set_values_are_encoded_by_the_grammar_of_their_field) {
  const struct {
    const char* name;
    const char* text;
    int codePage;
    const char* line;
  } rows[] = {
      {"Subject", "Grüße", 65001, "Subject: =?utf-8?Q?Gr=C3=BC=C3=9Fe?="},
      {"Subject", "Grüße", 28591, "Subject: =?iso-8859-1?Q?Gr=FC=DFe?="},
      {"Subject", "Привет", 20866, "Subject: =?koi8-r?B?8NLJ18XU?="},
      {"Subject", "Привет", 28591, "Subject: =?utf-8?Q?=D0=9F=D1=80=D0=B8=D0=B2=D0=B5=D1=82?="},
      {"Subject", "", 0, "Subject:"},
      {"X-Any", "a =?koi8-r?B?8NLJ18XU?=", 20866, "X-Any: a =?koi8-r?B?8NLJ18XU?="},
      {"To", "Jörg Müller <j@x.org>, b@x.org", 65001,
       "To: =?utf-8?Q?J=C3=B6rg_M=C3=BCller?= <j@x.org>, b@x.org"},
      {"From", "Jörg", 65001, "From: =?utf-8?Q?J=C3=B6rg?="},
      {"To", "=?utf-8?Q?=2C?= <j@x.org>", 65001, "To: =?utf-8?Q?=2C?= <j@x.org>"},
      {"Message-ID", "<=?utf-8?Q?a?=@x>", 65001, "Message-ID: <=?utf-8?Q?a?=@x>"},
      {"Content-Type", "text/plain; name=\"é\"", 28591,
       "Content-Type: text/plain; name*=iso-8859-1''%E9; name=e"},
      {"Content-Type", "text/plain; name=\"a\\\"b\"; x=\"c\"", 0,
       "Content-Type: text/plain; name=\"a\\\"b\"; x=\"c\""},
      {"Message-ID", "<café@x>", 65001, "Message-ID: <café@x>"},
      {"Content-ID", "<café@x>", 28591, "Content-ID: <café@x>"},
      {"References", "<a@x> <é@x>", 0, "References: <a@x> <é@x>"},
      {"SVX-Bounce-Address", "=?utf-8?q?a=40b?=@é.test", 0, "SVX-Bounce-Address: =?utf-8?q?a=40b?=@é.test"},
      {"List-Id", "Café <l.x>", 65001, "List-Id: =?utf-8?Q?Caf=C3=A9?= <l.x>"},
      {"Content-Disposition", "atté; filename=\"f.txt\"", 65001, "Content-Disposition: att; filename=f.txt"},
      {"Content-Disposition", "é; filename=\"é\"", 65001,
       "Content-Disposition: attachment; filename*=utf-8''%C3%A9; filename=e"},
      {"Content-Type", "téxt/plain; name=x", 65001, "Content-Type: txt/plain; name=x"},
      {"Subject", "a\r\nBcc: b\rc\nd", 0, "Subject: a Bcc: b c d"},
      {"Sub\r\nBcc: x\xC3\xA9", "a", 0, "SubBccx: a"},
      {"\r\n: ", "a", 0, ""},
  };
  for (const auto& row : rows)
    EXPECT_EQ(written(withField(row.name, row.text), nullptr, row.codePage), row.line) << row.text;
}

TEST(MimeHeader, a_finished_value_is_only_folded) {
  MimeHeader header;
  header.m_foldLongValues = true;
  const std::string a40(40, 'a');
  header.replaceMimeFieldUtf8_a("X", (a40 + " =?a?=\r\n " + a40).c_str(), /*asGiven=*/true, /*ordinary=*/true,
                                quiet);
  EXPECT_EQ(written(header), "X: " + a40 + " =?a?=\r\n " + a40);
  header.m_foldLongValues = false;
  EXPECT_EQ(written(header), "X: " + a40 + " =?a?= " + a40);
  header.replaceMimeFieldUtf8_a("X", (std::string(600, 'a') + " " + std::string(600, 'b')).c_str(), true,
                                true, quiet);
  EXPECT_EQ(written(header), "X: " + std::string(600, 'a') + "\r\n " + std::string(600, 'b'))
      << "never longer than 998";
}

TEST(MimeHeader, a_list_that_was_set_is_written_without_addresses_too_long_for_a_line) {
  for (const std::string& tooLong :
       {std::string(991, 'a') + "boss@corp.test", "a@" + std::string(1000, 'd') + ".test"}) {
    MimeHeader header;
    header.replaceMimeFieldUtf8("To", ("x@y, " + tooLong + " (a@b), z@y").c_str(), quiet);
    EXPECT_EQ(written(header), "To: x@y, z@y") << tooLong.substr(0, 20);
  }
}

/// The file name that a reader of the written field gets.
std::string filenameWritten(const std::string& field, int codePage) {
  MimeHeader header = withField("Content-Disposition", field.c_str());
  MimeHeader again = loaded(written(header, nullptr, codePage) + "\r\n\r\n");
  EXPECT_EQ(again.getNumFields(), 1) << field;
  std::string scratch;
  const ParameterizedValue parsed = parseParameterizedValue(again.unfoldedValue(0, scratch));
  EXPECT_EQ(parsed.params.params().size(), 1u) << field;
  const std::string* name = parsed.params.find("filename");
  return name ? *name : "(none)";
}

TEST(MimeHeader, a_raw_file_name_reads_back_and_forges_nothing) {
  const std::string names[] = {"plain.txt",
                               "a b.txt",
                               "a\"b.txt",
                               "C:\\dir\\x.txt",
                               "x\\",
                               "x\\\"",
                               "\"",
                               "\\\\server\\x",
                               "a.txt\"; filename*=utf-8''evil.exe; x=\"",
                               "日本語のとても長いファイル名です、本当に長いですよ.pdf",
                               "=?utf-8?Q?x?=",
                               "a;b=c",
                               "(x)",
                               "été\".txt",
                               "%41",
                               "'q'",
                               std::string(1500, 'n'),
                               std::string(400, 'n') + std::string(700, ' ') + ".txt",
                               std::string(950, 'n') + "\"; filename=\"x"};
  for (const std::string& name : names)
    for (const int codePage : {0, 65001, 28591, 50220})
      EXPECT_EQ(filenameWritten("attachment; filename=\"" + name + "\"", codePage), name);
  EXPECT_EQ(filenameWritten("attachment; filename=\"a\r\nBcc: b\r\n\r\nbody\"", 0), "aBcc: bbody");
  MimeHeader header = withField("Content-Disposition", "attachment; filename=\"a\r\nb\"");
  EXPECT_EQ(value(header, "content-disposition"), "attachment; filename=\"a\r\nb\"")
      << "stays in the list as given";
}

TEST(MimeHeader, a_disposition_set_as_a_generic_field_keeps_its_parameters) {
  MimeHeader header;
  const char* text = "attachment; filename=\"a\\\"b.txt\"; creation-date=\"Wed, 12 Feb 1997\"";
  header.replaceMimeFieldUtf8_a("Content-Disposition", text, false, true, quiet);
  EXPECT_EQ(written(header), "Content-Disposition: "s + text);
}

TEST(MimeHeader, 8bit_fields_become_ascii_and_mean_the_same) {
  const struct {
    const char* text;
    const char* written;
  } rows[] = {
      {"Subject: caf\xC3\xA9\r\nX-A: kept  as\r\n it is\r\n",
       "Subject: =?utf-8?Q?caf=C3=A9?=\r\nX-A: kept  as\r\n it is"},
      {"Subject: caf\xE9 =?utf-8?Q?=C3=A9?=\r\nContent-Type: text/plain; charset=iso-8859-1\r\n",
       "Subject: =?iso-8859-1?Q?caf=E9_=E9?=\r\nContent-Type: text/plain; charset=iso-8859-1"},
      {"From: J\xC3\xB6rg <j@x.org>\r\n", "From: =?utf-8?Q?J=C3=B6rg?= <j@x.org>"},
      {"From: =?utf-8?Q?=3Ceve=40x=3E?= \xC3\xA9\r\n", "From: =?utf-8?Q?=3Ceve=40x=3E_=C3=A9?="},
      {"To: =?utf-8?Q?=3Ceve=40x=3E=2C?=:\xC3\xA9<a@b>;, c@d (=?utf-8?Q?=29?= \xC3\xA9)\r\n",
       "To: =?utf-8?Q?=3Ceve=40x=3E=2C?=: =?utf-8?Q?=C3=A9?= <a@b>;, c@d\r\n (=?utf-8?Q?=29_=C3=A9?=)"},
      {"To: M\xC3\xBCller, J <a@b>; \"Two \xC3\xB6\", Otto <c@d>\r\n",
       "To: =?utf-8?Q?M=C3=BCller=2C_J?= <a@b>, =?utf-8?Q?Two_=C3=B6?= <>, Otto\r\n <c@d>"},
      {"List-Id: =?utf-8?Q?=3Ca.b=3E?= \xC3\xA9 x\r\n", "List-Id: =?utf-8?Q?=3Ca=2Eb=3E_=C3=A9?= x"},
      {"Content-Type: a/b; name=\"\xC3\xA9.txt\"; boundary=x\r\n",
       "Content-Type: a/b; name*=utf-8''%C3%A9.txt; name=e.txt; boundary=x"},
  };
  for (const auto& row : rows) {
    MimeHeader header = loaded(row.text);
    const std::string subject = value(header, "Subject"), from = value(header, "From");
    header.m_foldLongValues = true;
    header.encode8bitFields();
    const std::string out = written(header);
    EXPECT_EQ(out, row.written) << row.text;
    EXPECT_EQ(value(loaded(out), "Subject"), subject) << row.text;
    EXPECT_EQ(value(loaded(out), "From"), from) << row.text;
  }
}

TEST(MimeHeader, 8bit_address_lists_stay_where_encoding_would_lose_something) {
  for (const char* text : {"To: J\xC3\xB6rg (x) \xC3\xB6 <j@x.org>", "To: j\xC3\xB6rg@x.org"}) {
    MimeHeader header = loaded(text);
    header.encode8bitFields();
    EXPECT_EQ(written(header), text);
  }
}

TEST(MimeHeader, what_is_set_reads_back_the_same) {
  static const std::string pieces[] = {"word",
                                       "é",
                                       "日本語",
                                       "😀",
                                       "=?",
                                       "?=",
                                       "=?utf-8?Q?x?=",
                                       "=?utf-8?Q?open",
                                       "\"",
                                       "\\",
                                       "(",
                                       ",",
                                       ":",
                                       "\x01",
                                       "\t",
                                       "  ",
                                       " ",
                                       " ",
                                       std::string(17, ' '),
                                       std::string(60, 'a'),
                                       std::string(76, 'b'),
                                       std::string(1100, 'c'),
                                       std::string(130, ' '),
                                       "From "};
  std::mt19937 random(99);
  const int codePages[] = {0, 65001, 28591, 50220, 20866, 1200, 20127};
  for (int round = 0; round < 3000; ++round) {
    std::string text = "[";
    for (std::size_t n = 1 + random() % 20; n > 0; --n) text += pieces[random() % std::size(pieces)];
    text += "]";
    MimeHeader header = withField(round % 2 ? "Subject" : "X-Something-With-A-Longer-Name", text.c_str());
    header.m_foldLongValues = round % 3 != 0;
    const std::string out = written(header, nullptr, codePages[random() % std::size(codePages)]);
    ASSERT_TRUE(isAscii(out)) << text;
    for (std::size_t at = 0; at < out.size(); at = std::min(out.find("\r\n", at), out.size() - 2) + 2)
      ASSERT_LE(std::min(out.find("\r\n", at), out.size()) - at, 998u) << text;
    const MimeHeader again = loaded(out + "\r\n\r\nbody");
    ASSERT_EQ(again.getNumFields(), 1) << out;
    ASSERT_EQ(again.decodedValue(0), header.decodedValue(0)) << out;
  }
}

}  // namespace
}  // namespace mailtree
