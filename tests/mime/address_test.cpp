#include "mailtree/mime/address/Address.h"

#include "mailtree/mime/coding/EncodedWord.h"
#include "tests/mime/tables.h"

namespace mailtree {
namespace {

// "name|address" of every entry, joined by "; ".
std::string shown(const ExtPtrArray& list) {
  std::string text;
  for (int i = 0; i < list.getSize(); ++i) {
    const auto& entry = *list.at<_svEmailAddress>(i);
    text.append(i ? "; " : "").append(entry.m_name.view()).append("|").append(entry.m_address.view());
  }
  return text;
}

std::string listOf(std::string_view text) {
  ExtPtrArray list;
  const int count = _svEmailAddress::parseAndLoadList(text, list);
  EXPECT_EQ(count, list.getSize()) << text;
  return shown(list);
}

TEST(AddressReading, TakesTheFormsOfTheStandard) {
  const Row rows[] = {
      {R"("Joe \"Q\" \\ Public" <joe@x.y>)", R"(Joe "Q" \ Public|joe@x.y)"},
      {"Joe   Q\t Public <a@[192.0.2.1]>, x@[IPv6:20::1]", "Joe Q Public|a@[192.0.2.1]; |x@[IPv6:20::1]"},
      {"a@b, Friends: c@d, e@f;, g@h", "|a@b; |c@d; |e@f; |g@h"},
      {R"("very odd"@x.y, "plain"@z, "a,b"@c)", R"(|"very odd"@x.y; |plain@z; |"a,b"@c)"},
      // Obsolete forms
      {"Mary <@node.test,@n2.test:mary@example.net>", "Mary|mary@example.net"},
      {"Joe <john.q. public@x>, jdoe@test . example", "Joe|john.q.public@x; |jdoe@test.example"},
      {"a . b @ c . d, , ,c@d,", "|a.b@c.d; |c@d"},
      {R"("a b" . c @ d)", R"(|"a b.c"@d)"}};
  expectEach(listOf, rows);
}

TEST(AddressReading, ReadsPlainEntriesAsItReadsOthers) {
  // A comment leaves the plain way.
  for (const std::string entry : {"a@b.c",
                                  " a.b-c_d+e@f-g.h ",
                                  "<a@b>",
                                  "A Name <a@b>",
                                  "A  Name <a@b>",
                                  "A Name<a@b>",
                                  "O'N. & Co! <a@b>",
                                  "\"A, (B) @ <C>\" <a@b>",
                                  "\" A \" <a@b>",
                                  "\"\" <a@b>",
                                  "\"A\\\"B\" <a@b>",
                                  "\"A\" B <a@b>",
                                  "=?utf-8?q?M=C3=BC_?= =?utf-8?q?l?= <a@b>",
                                  "\"=?utf-8?q?a?=\" <a@b>",
                                  "A = B ? C <a@b>",
                                  "é <a@b>",
                                  "A <a@b> B",
                                  "A <a@ b>",
                                  "A <a>",
                                  "A a@b",
                                  "a@b c@d",
                                  "'a@b'",
                                  "A\tB <a@b>",
                                  "A <a@b"})
    for (const std::string end : {"", ",", ";", ", x@y"})
      EXPECT_EQ(listOf(entry + end), listOf(entry + "()" + end)) << entry << end;
}

TEST(AddressReading, DropsCommentsAndTakesOneForAMissingName) {
  const Row rows[] = {
      {R"(Pete(A nice \) chap) <pete(his account)@silly.test(his host)>)", "Pete|pete@silly.test"},
      {"<a@b> (Name), Name <a@b> (remark), (=?utf-8?Q?J=C3=BCrgen?=) a@b, (only a comment), c@d (B)",
       "Name|a@b; Name|a@b; Jürgen|a@b; B|c@d"},
      {"a@b (1(2(3(4)3)2)1)", /* the fourth level is ordinary text */ "1(2(3(4)3)2|a@b"}};
  expectEach(listOf, rows);
}

TEST(AddressReading, TakesListsAsPeopleSendThem) {
  const Row rows[] = {
      {"Doe, Jane <jane@x>, Roe, R., PhD <r@x>", "Doe, Jane|jane@x; Roe, R., PhD|r@x"},
      {"a, b, c, d, e <x@y>", "|a; |b; |c; |d; e|x@y"},  // too many commas for one name
      {"root; Jane <jane@x>", "|root; Jane|jane@x"},
      {"John Q. Public <j@x>, Dr. Who <w@x>, Dr. w@x", "John Q. Public|j@x; Dr. Who|w@x; Dr.|w@x"},
      {"Name <a@b, c@d>, e@f>, <<a@b>>, Name <<c@d>>, Name a@b, Name <a@b",
       "Name|a@b; |c@d; |e@f; |a@b; Name|c@d; Name|a@b; Name|a@b"},
      {"mailto:a@b, Name <mailto:c@d>, MAILTO: e@f", "|a@b; Name|c@d; |e@f"},
      {R"("a@b" <a@b>, 'c@d' <'c@d'>, e@f <e@f>, "g@h")", "a@b|a@b; 'c@d'|c@d; e@f|e@f; |g@h"},
      {"a@b c@d, <a@b> Jane <c@d> <e@f> g@h", "|a@b; |c@d; |a@b; Jane|c@d; |e@f; |g@h"},
      {R"(Name <remark> <a@b>, DOMAIN\user <a@b>)", R"(Name <remark>|a@b; DOMAIN\user|a@b)"},
      {"a@b <>, Name <>, x, @c@d <y z>, w, N <>", "|a@b; |x; |@c@d; |w"},
      {"Nathaniel <nsb>, dnd (Dan), Several words, and a@b", "Nathaniel|nsb; Dan|dnd; and|a@b"},
      {"\"John <a@b>", "John|a@b"},
      {"John (unclosed <a@b>, c@d", "John (unclosed|a@b; |c@d"},
      {R"("Gr öße", <a@b>, "Doe, Jane", <jane@x>, root, <r@x>)", "Gr öße|a@b; Doe, Jane|jane@x; |root; |r@x"},
      {R"("Two words", Otto <o@b>, "Doe", Jane <jane@x>)", "Otto|o@b; Doe, Jane|jane@x"},
      {R"("\"Peter Müller\"" <p@x>, a@b@c, Jörg <jörg@ü.test>)",
       "Peter Müller|p@x; |a@b@c; Jörg|jörg@ü.test"},
      {"@, <>, \"\", ;:", ""},
      {"\"A\r\n \0B\"\r\n <a\0@b\r\n>"s, "A B|a@b"}};
  expectEach(listOf, rows);
}

TEST(AddressReading, DecodesNamesAndNeverTakesAnAddressOutOfAnEncodedWord) {
  const Row rows[] = {{"=?utf-8?Q?J=C3=BCrgen?= =?utf-8?B?IFNjaG1pZHQ=?= <j@x>", "Jürgen Schmidt|j@x"},
                      {R"("=?utf-8?Q?M=C3=BCller,?= X" <a@b>)", "Müller, X|a@b"},
                      {"=?utf-8?Q?Foo, Bar:)?= <a@b>, c@d", "Foo, Bar:)|a@b; |c@d"},
                      {"=?utf-8?Q?Eve_=3Ceve=40evil.test=3E?=, =?utf-8?Q?eve@evil.test?=", ""},
                      {"=?utf-8?Q?Eve_=3Ceve=40evil.test=3E=2C?= <a@b>", "Eve <eve@evil.test>,|a@b"},
                      {"=?utf-8?Q?a=0D=0ABcc:_x@y?= <a@b>", "a  Bcc: x@y|a@b"}};
  expectEach(listOf, rows);
}

TEST(AddressReading, SingleTakesTheFirstWithAnAtAndElseChangesNothing) {
  const std::pair<const char*, const char*> rows[] = {
      {"Jane <j@x>, b@c", "Jane|j@x"}, {"root, b@c", "|b@c"}, {"J <root>", nullptr}, {nullptr, nullptr}};
  for (const auto& [text, found] : rows) {
    _svEmailAddress address;
    address.m_name.setFromUtf8("Old");
    address.m_address.setFromUtf8("old@x");
    EXPECT_EQ(address.loadSingleEmailAddr(text, false, quiet), found != nullptr) << text;
    EXPECT_EQ(address.m_name.getUtf8() + "|"s + address.m_address.getUtf8(), found ? found : "Old|old@x")
        << text;
  }
}

TEST(AddressReading, EndsSoonOnHostileText) {
  expectEndsSoon(listOf,
                 {"(", "<", "\"", "<a", "((a)", "<@a,", "<@a,(", "=?a?q?x ", "a, ", "@[", "\\\"", "\"a\" "},
                 500'000);
  ExtPtrArray list;
  EXPECT_EQ(_svEmailAddress::parseAndLoadList(repeat("Name <a@b>, ", 10'000), list), 10'000);
}

std::string written(const ExtPtrArray& list, bool forHeader, int codePage = 65001, bool useQ = true) {
  return textOf([&](StringBuffer& out) {
    _svEmailAddress::emitAsMimeField(list, codePage, true, forHeader, useQ, out, quiet);
  });
}

std::string written(const std::vector<Row>& entries, bool forHeader, int codePage = 65001, bool useQ = true) {
  ExtPtrArray list;
  for (const auto& [name, address] : entries) {
    auto* entry = _svEmailAddress::createNewObject();
    entry->m_name.setFromUtf8(name.c_str());
    entry->m_address.setFromUtf8(address.c_str());
    list.appendObject(entry);
  }
  return written(list, forHeader, codePage, useQ);
}

TEST(AddressWriting, QuotesNamesAndEncodesThemForHeaders) {
  const std::tuple<Row, std::string, std::string> rows[] = {
      {{"", "a@b"}, "a@b", "a@b"},
      {{"Jane Doe", "a@b"}, "Jane Doe <a@b>", "Jane Doe <a@b>"},
      {{R"(a "b" \c)", "a@b"}, R"("a \"b\" \\c" <a@b>)", R"("a \"b\" \\c" <a@b>)"},
      {{"Jürgen", "a@b"}, "Jürgen <a@b>", "=?utf-8?Q?J=C3=BCrgen?= <a@b>"},
      {{"=?x?q?y?=", "a@b"}, "=?x?q?y?= <a@b>", "=?utf-8?Q?=3D=3Fx=3Fq=3Fy=3F=3D?= <a@b>"},
      {{"Jane", ""}, "Jane", "Jane"},
      {{"eve@evil.test", ""}, "\"eve@evil.test\"", "=?utf-8?Q?eve=40evil=2Etest?="},
      {{"\"Jane\"", "a@b"}, R"("\"Jane\"" <a@b>)", "=?utf-8?Q?=22Jane=22?= <a@b>"},
      {{"", ""}, "", ""},
      {{"", "root"}, "<root>", "<root>"}};
  for (const auto& [entry, display, header] : rows) {
    EXPECT_EQ(written({entry}, /*forHeader=*/false), display);
    EXPECT_EQ(written({entry}, /*forHeader=*/true), header);
  }
  EXPECT_EQ(written({{"Jürgen", "a@b"}}, true, 28591, true), "=?iso-8859-1?Q?J=FCrgen?= <a@b>");
  EXPECT_EQ(written({{"Юрий", "a@b"}}, true, 28591, false), "=?utf-8?B?0K7RgNC40Lk=?= <a@b>") << "not Latin";
}

TEST(AddressReading, GivesNamesWithoutAnAddressToWhoAsks) {
  const Row rows[] = {{R"("Drew Fossum", "Otto", root, Jörg)", "Drew Fossum|; Otto|; |root; Jörg|"},
                      {"=?utf-8?Q?eve@evil.test?=, Name <>, N <y z>", "eve@evil.test|; Name|; N <y z>|"},
                      {"undisclosed-recipients:; (none), <>", ""}};
  for (const auto& [text, found] : rows) {
    ExtPtrArray list;
    _svEmailAddress::parseAndLoadEntries(text, list);
    EXPECT_EQ(shown(list), found) << text;
    EXPECT_TRUE(readsAsEntries(written(list, true), list)) << written(list, true);
  }
}

// The text written, for anything that was set, reads back as exactly the entries that were meant.
TEST(AddressWriting, WritesNothingThatReadsBackAsMore) {
  const std::pair<Row, const char*> rows[] = {{{"a@b, c@d", "e@f"}, "a@b, c@d|e@f"},
                                              {{"x\" <evil@x>, \"y", "a@b"}, "x\" <evil@x>, \"y|a@b"},
                                              {{"tail\\", "a@b"}, "tail\\|a@b"},
                                              {{"Name\r\nBcc: evil@x", "a@b"}, "NameBcc: evil@x|a@b"},
                                              {{"(", "a@b"}, "(|a@b"},
                                              {{"Jörg", "root"}, "Jörg|root"}};
  const Row addresses[] = {
      {"a@b>, <c@d", R"("a@bc"@d)"}, {"a b@c d", "ab@cd"},        {"\"a\"b\"@c", R"("a\"b"@c)"},
      {"\"a b\"@c", "\"a b\"@c"},    {"\"a\\\"@c", R"("a\\"@c)"}, {"a(b@c)d", R"("a(b"@cd)"},
      {"x:y;z@c", R"("x:y;z"@c)"},   {"ä..b.@ü.c", "ä..b.@ü.c"},  {"a@[192.0.2.1]", "a@[192.0.2.1]"}};
  const Row rest[] = {{"a@b\r\nBcc: c@d", R"("a@bBcc:c"@d)"},
                      {"=?utf-8?q?x@b=?u?q?c", "=?utf-8?q?x@b=u?q?c"}};
  const auto readBack = [](const Row& entry, std::string_view found) {
    for (const bool forHeader : {false, true}) {
      const std::string text = written({{"First", "1@x"}, entry, {"Last", "2@x"}}, forHeader);
      EXPECT_EQ(listOf(text), "First|1@x; " + std::string(found) + "; Last|2@x") << text;
      EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos) << text;
    }
  };
  for (const auto& [entry, found] : rows) readBack(entry, found);
  for (const auto& [address, found] : both(addresses, rest)) readBack({"", address}, "|" + found);
}

// A line is cut by force where it has no blank: in an address that would make another one of it.
TEST(AddressWriting, KeepsWhatIsTooLongForALineOutOfHeadersAndCutsNames) {
  const std::string a = std::string(900, 'a'), kept = std::string(890, 'a') + "@b.test", n1500(1500, 'n');
  const std::pair<Row, std::string> rows[] = {
      {{"", std::string(996, 'a') + "boss@corp.test"}, ""},
      {{"Jane", "a@" + std::string(990, 'd') + ".victim.test"}, ""},
      {{"", a + "@b"}, ""},
      {{"", kept}, "|" + kept},
      {{"", "\"" + std::string(450, '"') + "\"@b"}, ""},  // every quote in it takes an escape
      {{n1500, "a@b"}, n1500 + "|a@b"},
      {{"." + n1500, kept}, "." + n1500 + "|" + kept},
      {{std::string(401, '"'), kept}, std::string(401, '"') + "|" + kept},
      {{"a" + std::string(700, ' ') + "b", "a@b"}, "a" + std::string(700, ' ') + "b|a@b"}};
  for (const auto& [entry, found] : rows) {
    SCOPED_TRACE(entry.first.substr(0, 20) + " " + entry.second.substr(0, 20));
    const std::string text = written({{"First", "1@x"}, entry, {"Last", "2@x"}}, /*forHeader=*/true);
    std::string unfolded;
    for (const std::string& line : split(foldHeaderLine("To: " + text), "\r\n")) {
      EXPECT_LE(line.size(), 998u);
      unfolded += line;
    }
    EXPECT_EQ(listOf(unfolded.substr(4)), "First|1@x; " + found + (found.empty() ? "" : "; ") + "Last|2@x");
    EXPECT_EQ(written({entry}, /*forHeader=*/false).find(entry.second) == std::string::npos,
              entry.second.starts_with('"'))
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
