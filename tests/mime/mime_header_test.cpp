// The header list: what is read from received text, what is kept, what is written, and that nothing can be
// forged.
#include "mailtree/mime/header/MimeHeader.h"

#include "mailtree/base/Utf.h"
#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/header/ContentType.h"
#include "mailtree/mime/header/HeaderLines.h"
#include "mailtree/mime/header/HeaderParams.h"
#include "tests/mime/tables.h"

namespace mailtree {
namespace {

/// "Name=value|Name=value", values decoded; a line without a name as "=line".
std::string show(const MimeHeader& header) {
  std::string out;
  for (int i = 0; i < header.getNumFields(); ++i)
    out.append(i ? "|" : "").append(header.fieldName(i)).append("=").append(header.decodedValue(i));
  return out;
}

std::string written(const MimeHeader& header, const char* prefix = nullptr, int codePage = 65001,
                    bool isTop = true) {
  return textOf([&](StringBuffer& out) { header.getMimeHeader(out, prefix, codePage, isTop, quiet); });
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

MimeHeader withField(const std::string& name, const std::string& text) {
  MimeHeader header;
  header.m_foldLongValues = true;
  header.replaceMimeFieldUtf8(name.c_str(), text.c_str(), quiet);
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
  MimeHeader header = loaded("To: a\r\n"), moved;
  header.addMimeField("X-Six", "1", false, quiet);
  header.replaceMimeFieldUtf8("X-Seven", "2", quiet);
  header.replaceMimeFieldUtf8(std::string(70, 'n').c_str(), "3", quiet);
  header.takeFieldsBeginningWith("Content-", loaded("Content-Language: en\r\n"));
  MimeHeader copy(header);
  moved = std::move(header);
  for (const std::string& name : {"to"s, "x-six"s, "x-seven"s, std::string(70, 'N'), "content-language"s})
    EXPECT_TRUE(copy.findField(name) >= 0 && moved.findField(name) >= 0) << name;
}

TEST(MimeHeader, finds_the_fields_and_the_body) {
  // "fields/body", with a "!" when something is wrong
  const auto read = [](const std::string& text) {
    MimeHeader header;
    const MimeHeader::Extent extent = header.loadFromEntity(text);
    EXPECT_LE(extent.headerSize, extent.bodyOffset) << text;
    return show(header) + (extent.malformed ? "!/" : "/") + text.substr(extent.bodyOffset);
  };
  const Row plain[] = {
      {"A: 1\rB: 2\r\rbody", "A=1|B=2/body"},     {"A:\r\n 1\r\nB:\r\n\r\n", "A=1|B=/"}, {"", "!/"},
      {"A: 1\r\n 2\r\n\t3\r\n\r\n", "A=1 2\t3/"}, {"body only\r\n", "!/body only\r\n"},  {"\r\n", "/"},
      {"A:1\nB :2\nC \t: 3\n\n", "A=1|B=2|C=3/"}, {"no body:\n\nx", "!/no body:\n\nx"},  {"A: 1", "A=1!/"},
      {" \r\n\nA: 1\r\n\r\nbody", "A=1/body"},    {": 1\nA: 1\n\nx", "=: 1|A=1!/x"}};
  const Row further[] = {
      {"A: 1\r\r\nB: 2\r\r\n\r\r\nb", "A=1|B=2/b"},
      {"A: 1\n \n 2\nB: 3\n\nbody", "A=1  2|B=3/body"},
      {"\nno field\nA: 1\n\n", "/no field\nA: 1\n\n"},
      {"S\xC3\xBC: 1\nA: 1\n\nx", "=S\xC3\xBC: 1|A=1!/x"},
      {"A: 1\r\nbody without an empty line\r\n\r\nmore", "A=1!/body without an empty line\r\n\r\nmore"},
      {"A: 1\r\nno field\r\nB: 2\r\n\r\nbody", "A=1|=no field|B=2!/body"},
      {"no field\r\n folded\r\nA: 1\r\n\r\nbody", "=no field folded|A=1!/body"},
      {"A: 1\0002\r\n\0: 3\r\nB: 4\r\n\r\nb"s, "A=12|=: 3|B=4!/b"}};
  expectEach(read, both(plain, further));
  MimeHeader header;
  EXPECT_EQ(header.loadFromEntity("\nS: of a part\n\n", MimeHeader::LeadingEmptyLines::endHeader).bodyOffset,
            1u);
  EXPECT_EQ(header.getNumFields(), 0);
}

TEST(MimeHeader, what_exceeds_a_limit_belongs_to_the_body) {
  // The whole field, not the half that fits.
  const std::string bytes = "A: 1\r\nB: 2\r\n" + repeat(" " + std::string(1 << 20, 'x') + "\r\n", 5);
  const std::tuple<std::string, int, std::size_t, Limit> rows[] = {
      {repeat("A: 1\r\n", kMaxHeaderFields + 5), kMaxHeaderFields, kMaxHeaderFields * 6u,
       Limit::headerFields},
      {bytes, 1, 6, Limit::headerBytes}};
  for (const auto& [text, fields, bodyOffset, limit] : rows) {
    MimeHeader header;
    const MimeHeader::Extent extent = header.loadFromEntity(text);
    EXPECT_EQ(header.getNumFields(), fields);
    EXPECT_EQ(extent.bodyOffset, bodyOffset);
    EXPECT_TRUE(extent.limits.has(limit));
  }
}

TEST(MimeHeader, hostile_headers_are_read_in_linear_time) {
  const auto read = [](const std::string& text) {
    MimeHeader header;
    header.loadFromEntity(text);
    written(loaded(text));
  };
  expectEndsSoon(read, {"no field\n", " \n", "a\r", "\r\n ", "x", "A: 1\nno field\n", ": x\n"}, 1'000'000,
                 "A: 1\r\n");
}

TEST(MimeHeader, code_page_of_8bit_text_is_utf8_then_declared_then_detected) {
  const std::tuple<std::string, std::string, int, std::string> rows[] = {
      {"caf=E9", "", 0, "caf=E9"},
      {"caf\xC3\xA9", "", 65001, "café"},
      {"\xF0\xD2\xC9\xD7\xC5\xD4", "koi8-r", 20866, "Привет"},
      {"caf\xC3\xA9\r\nX: \xE9", "iso-8859-2", 28592, "café"},
      // Damaged
      {"caf\xC3\xA9 \xC3\r\nX: \xC3\xA9 \xC3", "iso-8859-1", 65001, "café \uFFFD"},
      {"caf\xC3\xA9 \xC3\r\nX: caf\xE9", "", 1252, "café \uFFFD"},
      {"\xC2\xB3\xFE", "windows-1251", 1251, "Вію"},
      {"CAF\xC9\x99 \xDC", "windows-1252", 1252, "CAFÉ™ Ü"},
      {"\xD6\xD0\xCE\xC4\xD6", "gb2312", 936, "中文\uFFFD"}};
  for (const auto& [bytes, charset, codePage, subject] : rows) {
    const std::string type = charset.empty() ? "" : "Content-Type: a/b; charset=" + charset;
    const MimeHeader header = loaded("Subject: " + bytes + "\r\n" + type);
    EXPECT_EQ(header.getDetectedCP(), codePage) << bytes;
    EXPECT_EQ(value(header, "subject"), subject) << bytes;
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

TEST(MimeHeader, the_first_of_a_name_is_read_in_any_case) {
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
  header.copyMimeHeaderFrom(header, quiet);
  EXPECT_EQ(show(header), "b=two|D=five");
}

TEST(MimeHeader, fields_go_by_the_begin_of_their_name) {
  MimeHeader header = loaded("X-A: 1\r\nMax-X-: 2\r\nno field\r\nx-b: 3\r\nX: 4\r\n\r\n");
  header.removeHeadersBeginningWith("");
  EXPECT_EQ(header.getNumFields(), 5);
  header.removeHeadersBeginningWith("x-");
  EXPECT_EQ(written(header), "Max-X-: 2\r\nno field\r\nX: 4");
}

TEST(MimeHeader, replacing_again_and_again_does_not_grow_the_list) {
  MimeHeader header = loaded("A: 1\r\nB: 2\r\n\r\n");
  for (int i = 0; i < 2'000; ++i)
    header.replaceMimeFieldUtf8("B", (std::string(200, 'x') + std::to_string(i)).c_str(), quiet);
  EXPECT_LT(header.heapUsage(), 100'000u);
  EXPECT_EQ(written(header), "A: 1\r\nB: " + std::string(200, 'x') + "1999");
}

TEST(MimeHeader, joining_keeps_every_value) {
  const auto joined = [](const std::string& text) {
    MimeHeader header = loaded(text);
    header.joinFields("to");
    return written(header);
  };
  const Row rows[] = {{"To: a@b\r\nX: 1\r\nto: c@d,\r\n e@f\r\nTO:\r\nTo: g@h\r\n",
                       "To: a@b,\r\n c@d,\r\n e@f,\r\n g@h\r\nX: 1"},
                      {"To: a@b\r\nX: 1\r\n", "To: a@b\r\nX: 1"},
                      {"To: a@b,\r\nTo: =?utf-8?Q?=2C?= <c@d>\r\n", "To: a@b,\r\n =?utf-8?Q?=2C?= <c@d>"}};
  expectEach(joined, rows);
  MimeHeader header = loaded("Cc: a@b\r\n");
  header.addMimeField("cc", "Jörg <c@d>", false, quiet);
  header.joinFields("Cc");
  EXPECT_EQ(value(header, "Cc"), "a@b, Jörg <c@d>");
}

// Writing

TEST(MimeHeader, received_fields_are_written_as_they_came) {
  const Row rows[] = {{"A : 1  \r\n\t2\r\nB:3\r\n\r\n", "A : 1  \r\n\t2\r\nB:3"},
                      {"A: 1\n 2\rB: \xE9\n\n", "A: 1\r\n 2\r\nB: \xE9"},
                      {"A: 1\r\n \r\n 2\r\n", "A: 1\r\n \r\n 2"},
                      {"no field\nA: 1\nnone\n more\nB: 2\n\n", "no field\r\nA: 1\r\nnone\r\n more\r\nB: 2"},
                      {"A: " + std::string(2000, 'x') + "\r\n\r\n", "A: " + std::string(2000, 'x')}};
  for (const auto& [text, lines] : rows) {
    MimeHeader header = loaded(text);
    header.m_foldLongValues = true;
    EXPECT_EQ(written(header), lines);
    EXPECT_EQ(written(header, nullptr, 20866, /*isTop=*/false), lines);
  }
  EXPECT_EQ(loaded("A: 1\r\nSVZ-Size: 5\r\nBc: 2\r\n\r\n").getMimeHeaderSize(), 13u) << "of what is written";
}

TEST(MimeHeader, a_line_without_a_name_never_ends_the_header_nor_vanishes) {
  const std::tuple<std::string, const char*, std::string> rows[] = {
      {"A: 1\r\nno field\r\nB: 2\r\n\r\n", "B", "A: 1\r\nX-Malformed-Line: no field"},
      {"no field\r\nB: 2\r\n\r\n", "B", "X-Malformed-Line: no field"},
      {"From x\r\nB: 2\r\n\r\n", "Z", "X-Malformed-Line: From x\r\nB: 2"},
      {"A: 1\r\nFrom x\r\nB: 2\r\n\r\n", "Z", "A: 1\r\nFrom x\r\nB: 2"}};
  for (const auto& [text, removed, lines] : rows) {
    MimeHeader header = loaded(text), again;
    header.removeMimeField(removed, true);
    EXPECT_EQ(written(header), lines) << text;
    EXPECT_EQ(again.loadFromEntity(lines + "\r\n\r\n").bodyOffset, lines.size() + 4) << text;
    EXPECT_EQ(written(again), lines);
  }
}

TEST(MimeHeader, internal_empty_and_root_only_fields_are_left_out) {
  const std::string all = "Date|MIME-Version|SVX-a|Content-Type2|Message-ID|X-Priority";
  const std::tuple<const char*, bool, bool, std::string> rows[] = {
      {nullptr, true, false, all},
      {"svx-", true, false, "Date|MIME-Version|Content-Type2|Message-ID|X-Priority"},
      {"", true, false, all},
      {nullptr, false, false, "SVX-a|Content-Type2"},
      {nullptr, false, true, all}};
  for (const auto& [prefix, isTop, isReceived, names] : rows) {
    MimeHeader header;
    if (isReceived) header.loadMimeHeaderText("", quiet);
    for (const std::string& name : split("svz-Size|" + all, "|"))
      header.addMimeField(name.c_str(), "1", false, quiet);
    header.addMimeField("content-type", "", false, quiet);
    header.addMimeField("Content-Transfer-Encoding", " ", false, quiet);
    std::string lines;
    for (const std::string& name : split(names, "|")) lines += (lines.empty() ? "" : "\r\n") + name + ": 1";
    EXPECT_EQ(written(header, prefix, 0, isTop), lines);
    EXPECT_EQ(header.getNumFields(), 9) << "still in the list";
  }
}

TEST(MimeHeader, set_values_are_encoded_by_the_grammar_of_their_field) {
  const std::tuple<const char*, const char*, int, const char*> rows[] = {
      {"Subject", "Grüße", 28591, "Subject: =?iso-8859-1?Q?Gr=FC=DFe?="},
      {"Subject", "", 0, "Subject:"},
      {"X-Any", "a =?koi8-r?B?8NLJ18XU?=", 20866, "X-Any: a =?koi8-r?B?8NLJ18XU?="},
      {"To", "Jörg <j@x.org>, b@x.org", 65001, "To: =?utf-8?Q?J=C3=B6rg?= <j@x.org>, b@x.org"},
      {"From", "Jörg", 65001, "From: =?utf-8?Q?J=C3=B6rg?="},
      {"To", "=?utf-8?Q?=2C?= <j@x.org>", 65001, "To: =?utf-8?Q?=2C?= <j@x.org>"},
      {"Message-ID", "<=?utf-8?Q?a?=@x>", 65001, "Message-ID: <=?utf-8?Q?a?=@x>"},
      {"Content-Type", "a/b; name=\"é\"", 28591, "Content-Type: a/b; name*=iso-8859-1''%E9; name=e"},
      {"Content-Type", "a/b; name=\"a\\\"b\"; x=\"c\"", 0, "Content-Type: a/b; name=\"a\\\"b\"; x=\"c\""},
      {"Message-ID", "<café@x>", 65001, "Message-ID: <café@x>"},
      {"Content-ID", "<café@x>", 28591, "Content-ID: <café@x>"},
      {"References", "<a@x> <é@x>", 0, "References: <a@x> <é@x>"},
      {"SVX-Bounce-Address", "=?utf-8?q?a=40b?=@é.test", 0, "SVX-Bounce-Address: =?utf-8?q?a=40b?=@é.test"},
      {"List-Id", "Café <l.x>", 65001, "List-Id: =?utf-8?Q?Caf=C3=A9?= <l.x>"},
      {"Content-Disposition", "atté; filename=\"f.txt\"", 65001, "Content-Disposition: att; filename=f.txt"},
      {"Content-Disposition", "é; filename=\"é\"", 65001,
       "Content-Disposition: attachment; filename*=utf-8''%C3%A9; filename=e"},
      {"Subject", "a\r\nBcc: b\rc\nd", 0, "Subject: a Bcc: b c d"},
      {"Sub\r\nBcc: x\xC3\xA9", "a", 0, "SubBccx: a"},
      {"\r\n: ", "a", 0, ""}};
  for (const auto& [name, text, codePage, line] : rows)
    EXPECT_EQ(written(withField(name, text), nullptr, codePage), line) << text;
}

TEST(MimeHeader, a_finished_value_is_only_folded) {
  const auto lineOf = [](const std::string& text, bool folds) {
    MimeHeader header;
    header.m_foldLongValues = folds;
    header.replaceMimeFieldUtf8_a("X", text.c_str(), /*asGiven=*/true, /*ordinary=*/true, quiet);
    return written(header);
  };
  const std::string a40(40, 'a'), a600(600, 'a');
  EXPECT_EQ(lineOf(a40 + " =?a?=\r\n " + a40, true), "X: " + a40 + " =?a?=\r\n " + a40);
  EXPECT_EQ(lineOf(a40 + " =?a?=\r\n " + a40, false), "X: " + a40 + " =?a?= " + a40);
  EXPECT_EQ(lineOf(a600 + " " + a600, false), "X: " + a600 + "\r\n " + a600) << "never longer than 998";
}

TEST(MimeHeader, a_list_that_was_set_is_written_without_addresses_too_long_for_a_line) {
  for (const auto& tooLong :
       {std::string(991, 'a') + "boss@corp.test", "a@" + std::string(1000, 'd') + ".test"}) {
    MimeHeader header;
    header.replaceMimeFieldUtf8("To", ("x@y, " + tooLong + " (a@b), z@y").c_str(), quiet);
    EXPECT_EQ(written(header), "To: x@y, z@y") << tooLong.substr(0, 20);
  }
}

/// The file name that a reader of the written field gets.
std::string filenameWritten(const std::string& name, int codePage) {
  const MimeHeader header = withField("Content-Disposition", "attachment; filename=\"" + name + "\"");
  const MimeHeader again = loaded(written(header, nullptr, codePage) + "\r\n\r\n");
  std::string scratch;
  const ParameterizedValue parsed = parseParameterizedValue(again.unfoldedValue(0, scratch));
  EXPECT_TRUE(again.getNumFields() == 1 && parsed.params.params().size() == 1) << name;
  const std::string* read = parsed.params.find("filename");
  return read ? *read : "(none)";
}

TEST(MimeHeader, a_raw_file_name_reads_back_and_forges_nothing) {
  std::vector<std::string> names = split(
      "plain.txt a\"b.txt C:\\dir\\x.txt x\\ x\\\" \" \\\\server\\x =?utf-8?Q?x?= a;b=c (x) été\".txt %41 "
      "'q'",
      " ");
  for (const std::string& name :
       {"a b.txt"s, "a.txt\"; filename*=utf-8''evil.exe; x=\""s,
        "日本語のとても長いファイル名です、本当に長いですよ.pdf"s, std::string(1500, 'n'),
        std::string(400, 'n') + std::string(700, ' ') + ".txt", std::string(950, 'n') + "\"; filename=\"x"})
    names.push_back(name);
  for (const std::string& name : names)
    for (const int codePage : {0, 65001, 28591, 50220}) EXPECT_EQ(filenameWritten(name, codePage), name);
  EXPECT_EQ(filenameWritten("a\r\nBcc: b\r\n\r\nbody", 0), "aBcc: bbody");
  const MimeHeader header = withField("Content-Disposition", "attachment; filename=\"a\r\nb\"");
  EXPECT_EQ(value(header, "content-disposition"), "attachment; filename=\"a\r\nb\"")
      << "in the list as given";
}

TEST(MimeHeader, a_disposition_set_as_a_generic_field_keeps_its_parameters) {
  MimeHeader header;
  const char* text = "attachment; filename=\"a\\\"b.txt\"; creation-date=\"Wed, 12 Feb 1997\"";
  header.replaceMimeFieldUtf8_a("Content-Disposition", text, false, true, quiet);
  EXPECT_EQ(written(header), "Content-Disposition: "s + text);
}

TEST(MimeHeader, removed_lines_as_short_as_a_line_break_do_not_come_back) {
  MimeHeader header;
  header.loadMimeHeaderText("A: 1\r\nQ:\r\nC: 2\r\nBig: " + std::string(9000, 'x') + "\r\nSubject: s\r\n",
                            quiet);
  header.removeMimeField("Big", true);
  header.replaceMimeFieldUtf8("Subject", "new", quiet);  // moves the lines in use together
  header.removeMimeField("Q", true);
  StringBuffer out;
  header.getMimeHeader(out, nullptr, kCpUtf8, true, quiet);
  EXPECT_EQ(out.view(), "A: 1\r\nC: 2\r\nSubject: new");
}

TEST(MimeHeader, 8bit_fields_become_ascii_and_mean_the_same) {
  const Row rows[] = {
      {"Subject: caf\xC3\xA9\r\nX-A: kept  as\r\n it is",
       "Subject: =?utf-8?Q?caf=C3=A9?=\r\nX-A: kept  as\r\n it is"},
      {"Subject: caf\xE9 =?utf-8?Q?=C3=A9?=\r\nContent-Type: a/b; charset=iso-8859-1",
       "Subject: =?iso-8859-1?Q?caf=E9_=E9?=\r\nContent-Type: a/b; charset=iso-8859-1"},
      {"From: =?utf-8?Q?=3Ceve=40x=3E?= \xC3\xA9", "From: =?utf-8?Q?=3Ceve=40x=3E_=C3=A9?="},
      {"To: =?utf-8?Q?=3Ceve=40x=3E=2C?=:\xC3\xA9<a@b>;, c@d (=?utf-8?Q?=29?= \xC3\xA9)",
       "To: =?utf-8?Q?=3Ceve=40x=3E=2C?=: =?utf-8?Q?=C3=A9?= <a@b>;, c@d\r\n (=?utf-8?Q?=29_=C3=A9?=)"},
      {"To: M\xC3\xBCller, J <a@b>; \"Two \xC3\xB6\", Otto <c@d>",
       "To: =?utf-8?Q?M=C3=BCller=2C_J?= <a@b>, =?utf-8?Q?Two_=C3=B6?= <>, Otto\r\n <c@d>"},
      {"List-Id: =?utf-8?Q?=3Ca.b=3E?= \xC3\xA9 x", "List-Id: =?utf-8?Q?=3Ca=2Eb=3E_=C3=A9?= x"},
      {"Content-Type: a/b; name=\"\xC3\xA9.txt\"; boundary=x",
       "Content-Type: a/b; name*=utf-8''%C3%A9.txt; name=e.txt; boundary=x"},
      // Encoding these would lose something.
      {"To: J\xC3\xB6rg (x) \xC3\xB6 <j@x.org>", "To: J\xC3\xB6rg (x) \xC3\xB6 <j@x.org>"},
      {"To: j\xC3\xB6rg@x.org", "To: j\xC3\xB6rg@x.org"}};
  for (const auto& [text, lines] : rows) {
    MimeHeader header = loaded(text);
    const std::string subject = value(header, "Subject"), from = value(header, "From");
    header.m_foldLongValues = true;
    header.encode8bitFields();
    const std::string out = written(header);
    EXPECT_EQ(out, lines) << text;
    EXPECT_EQ(value(loaded(out), "Subject"), subject) << text;
    EXPECT_EQ(value(loaded(out), "From"), from) << text;
  }
}

TEST(MimeHeader, what_is_set_reads_back_the_same) {
  std::vector<std::string> pieces =
      split("word|é|日本語|😀|=?|?=|=?utf-8?Q?x?=|=?utf-8?Q?open|\"|\\|(|,|:|\x01|\t|  | | |From ", "|");
  for (const int size : {17, 130}) pieces.push_back(std::string(static_cast<std::size_t>(size), ' '));
  for (const int size : {60, 76, 1100}) pieces.push_back(std::string(static_cast<std::size_t>(size), 'a'));
  std::mt19937 random(99);
  const int codePages[] = {0, 65001, 28591, 50220, 20866, 1200, 20127};
  for (int round = 0; round < 3000; ++round) {
    const std::string text = "[" + randomText(random, pieces, 1 + random() % 20) + "]";
    MimeHeader header = withField(round % 2 ? "Subject" : "X-Something-With-A-Longer-Name", text);
    header.m_foldLongValues = round % 3 != 0;
    const std::string out = written(header, nullptr, codePages[random() % std::size(codePages)]);
    ASSERT_TRUE(isAscii(out)) << text;
    for (const std::string& line : split(out, "\r\n")) ASSERT_LE(line.size(), 998u) << text;
    const MimeHeader again = loaded(out + "\r\n\r\nbody");
    ASSERT_EQ(again.getNumFields(), 1) << out;
    ASSERT_EQ(again.decodedValue(0), header.decodedValue(0)) << out;
  }
}

}  // namespace
}  // namespace mailtree
