#include "mailtree/base/Xml.h"

#include "tests/base/tables.h"

namespace mailtree {
namespace {

std::string render(const ClsXml& element, bool fragment = true) {
  StringBuffer out;
  return element.getXml(fragment, out, quiet) ? std::string(out.view()) : "FAILED";
}

XmlHandle element(const char* tag, const std::string& content, bool cdata = false) {
  XmlHandle made(ClsXml::createNewCls());
  made->put_TagUtf8(tag);
  made->takeContent(std::string(content));
  made->put_Cdata(cdata);
  made->put_EmitCompact(true);
  return made;
}

TEST(Xml, any_text_becomes_well_formed) {
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {"a<b & c>d", "a&lt;b &amp; c&gt;d", "a<b & c>d"},
      {"x]]>y", "x]]&gt;y", "x]]]]><![CDATA[>y"},
      {"]]]>]", "]]]&gt;]", "]]]]]><![CDATA[>]"},
      {"a\r\nb", "a&#13;\nb", "a]]>&#13;<![CDATA[\nb"},
      {"\0\x1B\t\n\x7F"s, "\uFFFD\uFFFD\t\n\x7F", "\uFFFD\uFFFD\t\n\x7F"},
      {"\uFFFE \uFFFF \uFEFF \uFFFD", "\uFFFD \uFFFD \uFEFF \uFFFD", "\uFFFD \uFFFD \uFEFF \uFFFD"},
      {"\xE4 \xED\xA0\x80 Grüße", "\uFFFD \uFFFD\uFFFD\uFFFD Grüße", "\uFFFD \uFFFD\uFFFD\uFFFD Grüße"},
      {std::string(70, 'a') + "<b", std::string(70, 'a') + "&lt;b", std::string(70, 'a') + "<b"}};
  for (const auto& [text, plain, cdata] : rows) {
    EXPECT_EQ(render(*element("t", text)), "<t>" + plain + "</t>");
    EXPECT_EQ(render(*element("t", text, true)), "<t><![CDATA[" + cdata + "]]></t>");
  }
}

TEST(Xml, any_name_becomes_one) {
  const Row rows[] = {
      {"subject", "subject"}, {"a b<c>", "a-b-c-"}, {"1st", "_1st"},  {"-", "_-"},   {"", "_"},
      {"x-a.b_c", "x-a.b_c"}, {"ns:tag", "ns-tag"}, {"größ", "größ"}, {"\xFF", "_-"}};
  for (const auto& [name, tag] : rows) EXPECT_EQ(element(name.c_str(), "")->tag(), tag) << name;
}

TEST(Xml, indents_only_where_there_is_no_text) {
  const XmlHandle root = element("r", "");
  const XmlHandle list(root->newChild("list", nullptr, nullptr));
  XmlHandle(list->newChild("item", "1", nullptr));
  const XmlHandle mixed(root->newChild("mixed", "text", nullptr));
  const XmlHandle inner(mixed->newChild("inner", nullptr, nullptr));
  XmlHandle(inner->newChild("leaf", nullptr, nullptr));
  EXPECT_EQ(render(*root), "<r><list><item>1</item></list><mixed><inner><leaf/></inner>text</mixed></r>");
  root->put_EmitCompact(false);
  EXPECT_EQ(render(*root, /*fragment=*/false),
            "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<r>\n  <list>\n    <item>1</item>\n  </list>\n"
            "  <mixed><inner><leaf/></inner>text</mixed>\n</r>\n");
}

TEST(Xml, text_too_long_for_a_parser_is_interrupted_between_characters) {
  for (const std::string_view piece : {"ä", "&", "\x01"}) {
    std::string text = "a";
    while (text.size() < 2'000'000) text += piece;
    for (const bool cdata : {false, true}) {
      const std::string xml = render(*element("t", text, cdata));
      std::size_t longest = 0, done = 0;
      for (std::size_t at; (at = xml.find("<!---->", done)) != std::string::npos; done = at + 7)
        longest = std::max(longest, at - done);
      EXPECT_TRUE(done > 0 && std::max(longest, xml.size() - done) < 10'000'000) << piece << cdata;
      EXPECT_EQ(xml.find("\xEF\xBF\xBD") == std::string::npos, piece != "\x01") << piece << cdata;
    }
  }
  EXPECT_LT(render(*element(std::string(60'000, 'x').c_str(), "")).size(), 50'000u);
}

TEST(Xml, a_handle_outlives_its_document_and_depth_costs_no_stack) {
  XmlHandle root = element("r", "");
  XmlHandle deepest(root->newChild("e", nullptr, nullptr));
  for (int i = 0; i < 200'000; ++i) deepest.reset(deepest->newChild("e", nullptr, nullptr));
  deepest->put_ContentUtf8("kept");
  EXPECT_NE(render(*root).find("<e>kept</e>"), std::string::npos);
  root.reset();
  deepest->put_EmitCompact(true);
  EXPECT_EQ(render(*deepest), "<e>kept</e>");
}

}  // namespace
}  // namespace mailtree
