#include "mailtree/mime/address/Address.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "mailtree/base/Log.h"
#include "mailtree/mime/coding/EncodedWord.h"

namespace mailtree {
namespace {

// "name|address" of every entry, joined by "; ".
std::string shown(const ExtPtrArray& list) {
  std::string text;
  for (int i = 0; i < list.getSize(); ++i) {
    const auto& entry = *list.at<_svEmailAddress>(i);
    if (i > 0) text += "; ";
    text.append(entry.m_name.view()).append("|").append(entry.m_address.view());
  }
  return text;
}

std::string listOf(std::string_view text) {
  ExtPtrArray list;
  const int count = _svEmailAddress::parseAndLoadList(text, list);
  EXPECT_EQ(count, list.getSize()) << text;
  return shown(list);
}

struct ListRow {
  const char* text;
  const char* found;
};

void expectLists(std::initializer_list<ListRow> rows) {
  for (const ListRow& row : rows) EXPECT_EQ(listOf(row.text), row.found) << row.text;
}

TEST(AddressReading, TakesTheFormsOfTheStandard) {
  expectLists({
      {"john@example.org", "|john@example.org"},
      {"John Doe <jdoe@machine.example>", "John Doe|jdoe@machine.example"},
      {"Mary Smith <mary@x.test>, jdoe@example.org, Who? <one@y.test>",
       "Mary Smith|mary@x.test; |jdoe@example.org; Who?|one@y.test"},
      {R"("Joe \"Q\" \\ Public" <joe@x.y>)", R"(Joe "Q" \ Public|joe@x.y)"},
      {"Joe   Q\t Public <j@x>", "Joe Q Public|j@x"},
      {"John <a@[192.0.2.1]>, x@[IPv6:2001:db8::1]", "John|a@[192.0.2.1]; |x@[IPv6:2001:db8::1]"},
      {"A Group:Ed Jones <joe@where.test>,John <jdoe@one.test>;",
       "Ed Jones|joe@where.test; John|jdoe@one.test"},
      {"a@b, Friends: c@d, e@f;, g@h", "|a@b; |c@d; |e@f; |g@h"},
      {"undisclosed-recipients:;", ""},
      {"unlisted: ; (no To-header on input)", ""},
      {R"("very odd"@x.y, "plain"@z, "a,b"@c)", R"(|"very odd"@x.y; |plain@z; |"a,b"@c)"},
  });
}

TEST(AddressReading, DropsCommentsAndTakesOneForAMissingName) {
  expectLists({
      {R"(Pete(A nice \) chap) <pete(his account)@silly.test(his host)>)", "Pete|pete@silly.test"},
      {"nsb@thumper.test (Nathaniel B.)", "Nathaniel B.|nsb@thumper.test"},
      {"<a@b> (Name)", "Name|a@b"},
      {"Name <a@b> (remark)", "Name|a@b"},
      {"(Name) a@b, (only a comment), c@d", "Name|a@b; |c@d"},
      {"a@b (A), c@d (B)", "A|a@b; B|c@d"},
      {"a@b (=?utf-8?Q?J=C3=BCrgen?=)", "Jürgen|a@b"},
      {"a@b (x (y (z)))", "x (y (z))|a@b"},
      {"a@b (1(2(3(4)3)2)1)", /* the fourth level is ordinary text */ "1(2(3(4)3)2|a@b"},
  });
}

TEST(AddressReading, TakesObsoleteForms) {
  expectLists({
      {"Mary <@node.test,@n2.test:mary@example.net>", "Mary|mary@example.net"},
      {"Joe <john.q. public@example.com>, jdoe@test . example",
       "Joe|john.q.public@example.com; |jdoe@test.example"},
      {"a . b @ c . d", "|a.b@c.d"},
      {"a@b, , ,c@d,", "|a@b; |c@d"},
      {R"("a b" . c @ d)", R"(|"a b.c"@d)"},
  });
}

TEST(AddressReading, TakesListsAsPeopleSendThem) {
  expectLists({
      {"a@b; c@d;e@f", "|a@b; |c@d; |e@f"},
      {"Doe, Jane <jane@x>, Roe, R., PhD <r@x>", "Doe, Jane|jane@x; Roe, R., PhD|r@x"},
      {"abel, baker, carl@flash", "|abel; |baker; |carl@flash"},
      {"a, b, c, d, e <x@y>", "|a; |b; |c; |d; e|x@y"},  // too many commas for one name
      {"root; Jane <jane@x>", "|root; Jane|jane@x"},
      {"John Q. Public <j@x>, Dr. Who <w@x>, Dr. w@x", "John Q. Public|j@x; Dr. Who|w@x; Dr.|w@x"},
      {"Name <a@b, c@d>, e@f>", "Name|a@b; |c@d; |e@f"},
      {"Name <a@b", "Name|a@b"},
      {"Name a@b", "Name|a@b"},
      {"<<a@b>>, Name <<c@d>>", "|a@b; Name|c@d"},
      {"mailto:a@b, Name <mailto:c@d>, MAILTO: e@f", "|a@b; Name|c@d; |e@f"},
      {R"("a@b" <a@b>, 'c@d' <'c@d'>, e@f <e@f>, "g@h")", "a@b|a@b; 'c@d'|c@d; e@f|e@f; |g@h"},
      {"a@b c@d", "|a@b; |c@d"},
      {"<a@b> Jane <c@d> <e@f> g@h", "|a@b; Jane|c@d; |e@f; |g@h"},
      {"Name <remark> <a@b>", "Name <remark>|a@b"},
      {"a@b <>, Name <>, x, @c@d <y z>, w, N <>", "|a@b; |x; |@c@d; |w"},
      {"Nathaniel <nsb>, dnd (Dan)", "Nathaniel|nsb; Dan|dnd"},
      {"Several words, and a@b", "and|a@b"},
      {"\"John <a@b>", "John|a@b"},
      {"John (unclosed <a@b>, c@d", "John (unclosed|a@b; |c@d"},
      {R"(DOMAIN\user <a@b>)", R"(DOMAIN\user|a@b)"},
      {R"("Gr öße", <a@b>, "Doe, Jane", <jane@x>, root, <r@x>)", "Gr öße|a@b; Doe, Jane|jane@x; |root; |r@x"},
      {R"("Two words", Otto <o@b>, "Doe", Jane <jane@x>)", "Otto|o@b; Doe, Jane|jane@x"},
      {R"("\"Peter Müller\"" <p@x>)", "Peter Müller|p@x"},
      {"a@b@c", "|a@b@c"},
      {"Jörg <jörg@bücher.example>", "Jörg|jörg@bücher.example"},
      {"", ""},
      {"@, <>, \"\", ;:", ""},
  });
}

TEST(AddressReading, DecodesNamesOnly) {
  expectLists({
      {"=?utf-8?Q?J=C3=BCrgen?= =?utf-8?B?IFNjaG1pZHQ=?= <j@x>", "Jürgen Schmidt|j@x"},
      {R"("=?utf-8?Q?M=C3=BCller,?= X" <a@b>)", "Müller, X|a@b"},
      {"=?utf-8?Q?Foo,_Bar:)?= <a@b>, c@d", "Foo, Bar:)|a@b; |c@d"},
      {"=?utf-8?Q?M=C3=BCller, Jan?= <a@b>", "Müller, Jan|a@b"},
      {"=?utf-8?Q?a=40b?= <c@d>", "a@b|c@d"},
  });
}

TEST(AddressReading, NeverTakesAnAddressOutOfAnEncodedWord) {
  expectLists({
      {"=?utf-8?Q?Eve_=3Ceve=40evil.test=3E?=", ""},
      {"=?utf-8?Q?Eve_=3Ceve=40evil.test=3E=2C?= <a@b>", "Eve <eve@evil.test>,|a@b"},
      {"=?utf-8?B?ZXZlQGV2aWwudGVzdA==?=", ""},
      {"=?utf-8?Q?eve@evil.test?=", ""},
      {"=?utf-8?Q?a=0D=0ABcc:_x@y?= <a@b>", "a  Bcc: x@y|a@b"},
  });
}

TEST(AddressReading, KeepsLineBreaksAndNulOut) {
  const std::string text("\"A\r\n \0B\"\r\n <a\0@b\r\n>", 20);
  EXPECT_EQ(listOf(text), "A B|a@b");
}

TEST(AddressReading, SingleTakesTheFirstWithAnAtAndElseChangesNothing) {
  const struct {
    const char* text;
    bool ok;
    const char* found;
  } rows[] = {
      {"Jane <jane@x>, b@c", true, "Jane|jane@x"},
      {"root, b@c", true, "|b@c"},
      {"Group: a@b;", true, "|a@b"},
      {"root", false, "Old|old@x"},
      {"Jane <root>", false, "Old|old@x"},
      {"=?utf-8?Q?a=40b?=", false, "Old|old@x"},
      {"", false, "Old|old@x"},
      {nullptr, false, "Old|old@x"},
  };
  LogNull log;
  for (const auto& row : rows) {
    _svEmailAddress address;
    address.m_name.setFromUtf8("Old");
    address.m_address.setFromUtf8("old@x");
    EXPECT_EQ(address.loadSingleEmailAddr(row.text, false, log), row.ok) << row.text;
    EXPECT_EQ(std::string(address.m_name.view()) + "|" + address.m_address.getUtf8(), row.found) << row.text;
  }
}

TEST(AddressReading, EndsSoonOnHostileText) {
  const auto repeated = [](std::string_view unit, int times) {
    std::string text;
    for (int i = 0; i < times; ++i) text += unit;
    return text;
  };
  // A quadratic reader would take minutes for each.
  for (const char* unit :
       {"(", "<", "\"", "<a", "((a)", "<@a,", "<@a,(", "=?a?q?x ", "a, ", "@[", "\\\"", "\"a\" "})
    listOf(repeated(unit, 300'000));
  ExtPtrArray list;
  EXPECT_EQ(_svEmailAddress::parseAndLoadList(repeated("Name <a@b>, ", 10'000), list), 10'000);
}

struct Entry {
  const char* name;
  const char* address;
};

std::string written(const ExtPtrArray& list, bool forHeader = true, int codePage = 65001, bool useQ = true) {
  LogNull log;
  StringBuffer out;
  _svEmailAddress::emitAsMimeField(list, codePage, true, forHeader, useQ, out, log);
  return out.getString();
}

std::string written(std::initializer_list<Entry> entries, bool forHeader, int codePage = 65001,
                    bool useQ = true) {
  ExtPtrArray list;
  for (const Entry& entry : entries) {
    auto* address = _svEmailAddress::createNewObject();
    address->m_name.setFromUtf8(entry.name);
    address->m_address.setFromUtf8(entry.address);
    list.appendObject(address);
  }
  return written(list, forHeader, codePage, useQ);
}

TEST(AddressWriting, QuotesNamesAndEncodesThemForHeaders) {
  const struct {
    Entry entry;
    const char* display;
    const char* header;
  } rows[] = {
      {{"", "a@b"}, "a@b", "a@b"},
      {{"Jane Doe", "a@b"}, "Jane Doe <a@b>", "Jane Doe <a@b>"},
      {{"Doe, Jane", "a@b"}, "\"Doe, Jane\" <a@b>", "\"Doe, Jane\" <a@b>"},
      {{"John Q. Public", "a@b"}, "\"John Q. Public\" <a@b>", "\"John Q. Public\" <a@b>"},
      {{R"(a "b" \c)", "a@b"}, R"("a \"b\" \\c" <a@b>)", R"("a \"b\" \\c" <a@b>)"},
      {{"Jürgen", "a@b"}, "Jürgen <a@b>", "=?utf-8?Q?J=C3=BCrgen?= <a@b>"},
      {{"Müller, J", "a@b"}, "\"Müller, J\" <a@b>", "=?utf-8?Q?M=C3=BCller=2C_J?= <a@b>"},
      {{"=?x?q?y?=", "a@b"}, "=?x?q?y?= <a@b>", "=?utf-8?Q?=3D=3Fx=3Fq=3Fy=3F=3D?= <a@b>"},
      {{"Jane", ""}, "Jane", "Jane"},
      {{"eve@evil.test", ""}, "\"eve@evil.test\"", "=?utf-8?Q?eve=40evil=2Etest?="},
      {{"\"Jane\"", "a@b"}, R"("\"Jane\"" <a@b>)", "=?utf-8?Q?=22Jane=22?= <a@b>"},
      {{"", ""}, "", ""},
      {{"", "root"}, "<root>", "<root>"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(written({row.entry}, /*forHeader=*/false), row.display) << row.entry.name;
    EXPECT_EQ(written({row.entry}, /*forHeader=*/true), row.header) << row.entry.name;
  }
}

TEST(AddressWriting, TakesTheEncodingAsked) {
  EXPECT_EQ(written({{"Jürgen", "a@b"}}, true, 28591, true), "=?iso-8859-1?Q?J=FCrgen?= <a@b>");
  EXPECT_EQ(written({{"Jürgen", "a@b"}}, true, 65001, false), "=?utf-8?B?SsO8cmdlbg==?= <a@b>");
  EXPECT_EQ(written({{"Юрий", "a@b"}}, true, 28591, false),
            "=?utf-8?B?0K7RgNC40Lk=?= <a@b>");  // it cannot carry it
  EXPECT_EQ(written({{"Jürgen", "a@b"}}, true, 0, true), "=?utf-8?Q?J=C3=BCrgen?= <a@b>");
}

TEST(AddressReading, GivesNamesWithoutAnAddressToWhoAsks) {
  const struct {
    const char* text;
    const char* found;
  } rows[] = {
      {R"("Drew Fossum", "Otto", root, Jörg)", "Drew Fossum|; Otto|; |root; Jörg|"},
      {"=?utf-8?Q?eve@evil.test?=, Name <>, N <y z>", "eve@evil.test|; Name|; N <y z>|"},
      {"undisclosed-recipients:; (none), <>", ""},
  };
  for (const auto& row : rows) {
    ExtPtrArray list;
    _svEmailAddress::parseAndLoadEntries(row.text, list);
    EXPECT_EQ(shown(list), row.found) << row.text;
    EXPECT_TRUE(readsAsEntries(written(list), list)) << written(list);
  }
}

// Whatever was set, the text written reads back as exactly the entries that were meant.
TEST(AddressWriting, WritesNothingThatReadsBackAsMore) {
  const struct {
    Entry entry;
    const char* name;  // As read back, like the address.
    const char* address;
  } rows[] = {
      {{"Jane", "a@b"}, "Jane", "a@b"},
      {{"a@b, c@d", "e@f"}, "a@b, c@d", "e@f"},
      {{"x\" <evil@x>, \"y", "a@b"}, "x\" <evil@x>, \"y", "a@b"},
      {{"tail\\", "a@b"}, "tail\\", "a@b"},
      {{"Name\r\nBcc: evil@x", "a@b"}, "NameBcc: evil@x", "a@b"},
      {{"(", "a@b"}, "(", "a@b"},
      {{"", "a@b>, <c@d"}, "", R"("a@bc"@d)"},
      {{"", "a@b,c@d"}, "", R"("a@bc"@d)"},
      {{"", "a@b\r\nBcc: c@d"}, "", R"("a@bBcc:c"@d)"},
      {{"", "a b@c d"}, "", "ab@cd"},
      {{"", "\"a b\"@c"}, "", "\"a b\"@c"},
      {{"", "\"a\"b\"@c"}, "", R"("a\"b"@c)"},
      {{"", "\"a\\\"@c"}, "", R"("a\\"@c)"},
      {{"", "a(b@c)d"}, "", R"("a(b"@cd)"},
      {{"", "x:y;z@c"}, "", R"("x:y;z"@c)"},
      {{"", "a..b.@c"}, "", "a..b.@c"},
      {{"", "a@[192.0.2.1]"}, "", "a@[192.0.2.1]"},
      {{"", "=?utf-8?q?x@b=?u?q?c"}, "", "=?utf-8?q?x@b=u?q?c"},
      {{"", "jörg@bücher.example"}, "", "jörg@bücher.example"},
      {{"", "root"}, "", "root"},
      {{"Jörg", "root"}, "Jörg", "root"},
  };
  for (const auto& row : rows) {
    for (const bool forHeader : {false, true}) {
      const std::string text = written({{"First", "1@x"}, row.entry, {"Last", "2@x"}}, forHeader);
      ExtPtrArray list;
      ASSERT_EQ(_svEmailAddress::parseAndLoadList(text, list), 3) << row.entry.address << " wrote " << text;
      EXPECT_STREQ(list.at<_svEmailAddress>(1)->m_name.getUtf8(), row.name) << text;
      EXPECT_STREQ(list.at<_svEmailAddress>(1)->m_address.getUtf8(), row.address) << text;
      EXPECT_STREQ(list.at<_svEmailAddress>(2)->m_address.getUtf8(), "2@x") << text;
      EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos) << text;
    }
  }
}

// A line is cut by force where it has no blank: in an address that would make another one of it.
TEST(AddressWriting, KeepsWhatIsTooLongForALineOutOfHeadersAndCutsNames) {
  const std::string a = std::string(900, 'a'), kept = std::string(890, 'a') + "@b.test";
  const struct {
    std::string name;
    std::string address;
    std::string found;  // From the folded field.
  } rows[] = {
      {"", std::string(996, 'a') + "boss@corp.test", ""},
      {"Jane", "a@" + std::string(990, 'd') + ".victim.test", ""},
      {"", a + "@b", ""},
      {"", kept, "|" + kept},
      {"", "\"" + std::string(450, '"') + "\"@b", ""},  // every quote in it takes an escape
      {std::string(1500, 'n'), "a@b", std::string(1500, 'n') + "|a@b"},
      {"." + std::string(1500, 'n'), kept, "." + std::string(1500, 'n') + "|" + kept},
      {std::string(401, '"'), kept, std::string(401, '"') + "|" + kept},
      {"a" + std::string(700, ' ') + "b", "a@b", "a" + std::string(700, ' ') + "b|a@b"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name.substr(0, 20) + " " + row.address.substr(0, 20));
    const Entry entry{row.name.c_str(), row.address.c_str()};
    const std::string text = written({{"First", "1@x"}, entry, {"Last", "2@x"}}, /*forHeader=*/true);
    std::string line = foldHeaderLine("To: " + text);
    std::size_t longest = 0, begin = 0;
    for (std::size_t end; (end = line.find("\r\n", begin)) != std::string::npos;) {
      longest = std::max(longest, end - begin);
      line.erase(end, 2);
      begin = end;
    }
    EXPECT_LE(std::max(longest, line.size() - begin), 998u);
    const std::string between = row.found.empty() ? "" : row.found + "; ";
    EXPECT_EQ(listOf(line.substr(4)), "First|1@x; " + between + "Last|2@x");
    EXPECT_EQ(written({entry}, /*forHeader=*/false).find(row.address) == std::string::npos,
              row.address.starts_with('"'))
        << "shown whole";
  }
}

TEST(AddressObject, CopiesReplacesAndClears) {
  _svEmailAddress address, copy;
  address.m_name.setFromUtf8("Jane at old");
  address.m_address.setFromUtf8("jane@old.test");
  address.replaceString("old", "new");
  copy.copyEmailAddress(address);
  address.clearEmailAddress();
  EXPECT_STREQ(copy.m_name.getUtf8(), "Jane at new");
  EXPECT_STREQ(copy.m_address.getUtf8(), "jane@new.test");
  EXPECT_TRUE(address.m_name.isEmpty() && address.m_address.isEmpty());
}

}  // namespace
}  // namespace mailtree
