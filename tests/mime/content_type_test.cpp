// Content-Type: reading tolerantly, building in one order, comparing by meaning.
#include "mailtree/mime/header/ContentType.h"

#include <limits>
#include <set>

#include "mailtree/mime/header/ContentTypeTable.h"
#include "tests/mime/tables.h"

namespace mailtree {
namespace {

std::string built(const _svContentType& type, _svCharset charset, bool withFlowed = true,
                  bool withName = true) {
  return textOf(
      [&](StringBuffer& out) { type.buildMimeHeaderValue(out, charset, withFlowed, withName, quiet); });
}

TEST(ContentType, an_unusable_value_is_text_plain_with_its_parameters) {
  // "type|charset", with a "!" when it is unusable
  const Row rows[] = {{"Text/HTML; Charset=UTF-8", "text/html|UTF-8"},  {"text / html", "text/html|"},
                      {"text/html charset=utf-8", "text/html|utf-8"},   {"text/", "text/plain|!"},
                      {"text/plain; charset = \"a\";", "text/plain|a"}, {"/plain", "text/plain|!"},
                      {"a/b (c); charset=utf-8 (d)", "a/b|utf-8"},      {"a/b/c", "text/plain|!"},
                      {"text; charset=utf-8", "text/plain|utf-8!"},     {"te xt/html", "text/plain|!"},
                      {"charset=utf-8", "text/plain|utf-8!"},           {"tëxt/html", "text/plain|!"}};
  const Row more[] = {{"/", "text/plain|!"}, {"", "text/plain|!"}};
  const auto read = [](const std::string& value) {
    _svContentType type;
    _svCharset charset;
    charset.setByName("koi8-r");
    const bool isUsable = type.loadFromMimeHeaderValue(value.c_str(), charset);
    return type.m_type.getString() + "|"s + charset.getName() + (isUsable ? "" : "!");
  };
  expectEach(read, both(rows, more));
}

TEST(ContentType, members_are_filled_and_written_in_one_order) {
  _svContentType type;
  _svCharset charset;
  ASSERT_TRUE(
      type.loadFromMimeHeaderValue("Multipart/Related; x-other=1; smime-type=signed-data; boundary=b=1; "
                                   "micalg=SHA-1; Protocol=application/x;"
                                   " TYPE=\"Text/HTML\"; name=\"n 1\"; X-Second=2",
                                   charset));
  EXPECT_STREQ(type.m_subtype.getString(), "text/html");
  EXPECT_STREQ(type.m_boundary.getString(), "b=1");
  EXPECT_EQ(built(type, charset),
            "multipart/related; name=\"n 1\"; type=\"text/html\"; protocol=\"application/x\"; micalg=SHA-1;"
            " boundary=\"b=1\"; smime-type=signed-data; x-other=1; X-Second=2");
}

TEST(ContentType, charset_and_format_are_written_where_they_belong) {
  // Loaded, passed to the builder (null: what was loaded), with format=flowed or not, written.
  const std::tuple<const char*, const char*, bool, const char*> rows[] = {
      {"text/plain; charset=utf-8", "koi8-r", true, "text/plain; charset=koi8-r"},
      {"text/plain; charset=utf-8", "", true, "text/plain"},
      {"text/plain; charset=x-nobody", nullptr, true, "text/plain; charset=x-nobody"},
      {"text/plain; charset=x-nobody", "", true, "text/plain; charset=x-nobody"},
      {"text/plain; charset=x-nobody; x=y", "utf-8", true, "text/plain; charset=utf-8; x=y"},  // never two
      {"application/xml; charset=utf-8", "koi8-r", true, "application/xml; charset=utf-8"},
      {"application/pdf", "utf-8", true, "application/pdf"},
      {"text/plain; format=Flowed; delsp=yes", "", true, "text/plain; format=flowed; delsp=yes"},
      {"text/plain; format=flowed; delsp=yes", "", false, "text/plain"},
      {"text/plain; format=fixed", "", false, "text/plain; format=fixed"},
      {"text/x; method=REQUEST; charset=utf-8", nullptr, true, "text/x; charset=utf-8; method=REQUEST"}};
  for (const auto& [value, name, withFlowed, wanted] : rows) {
    _svContentType type;
    _svCharset charset;
    type.loadFromMimeHeaderValue(value, charset);
    if (name) charset.setByName(name);
    if (name && !*name) charset.clear();
    EXPECT_EQ(built(type, charset, withFlowed), wanted) << value;
  }
}

TEST(ContentType, names_are_written_for_every_reader_or_not_at_all) {
  _svContentType type;
  type.m_type.setString("application/pdf");
  type.m_name.setString("Größe \"2\".pdf");
  EXPECT_EQ(built(type, {}),
            "application/pdf; name*=utf-8''Gr%C3%B6%C3%9Fe%20%222%22.pdf; name=\"Grose _2_.pdf\"");
  EXPECT_EQ(built(type, {}, true, false), "application/pdf");
  type.clear();
  EXPECT_EQ(built(type, {}), "");
}

TEST(ContentType, same_meaning_ignores_case_of_types_and_order_of_others) {
  const auto isSame = [](const std::string& value, const std::string& other) {
    _svContentType left, right;
    _svCharset charset;
    left.loadFromMimeHeaderValue(value.c_str(), charset);
    right.loadFromMimeHeaderValue(other.c_str(), charset);
    return left.sameMeaning(right);
  };
  const Row same[] = {{"text/plain; a=1; b=2", "TEXT/PLAIN; B=2; a=1"},
                      {"a/b; boundary=a; type=text/html", "a/b; type=Text/HTML; boundary=\"a\""},
                      {"a/b; name=x", "a/b; name*=utf-8''x"}};
  for (const auto& [left, right] : same) EXPECT_TRUE(isSame(left, right)) << left;
  const Row others[] = {{"text/plain; a=1", "text/plain; a=2"},
                        {"text/plain; a=1; b=1", "text/plain; a=1; c=1"},
                        {"text/plain", "text/html"},
                        {"multipart/mixed; boundary=a", "multipart/mixed; boundary=A"},
                        {"text/plain; format=flowed", "text/plain"},
                        {"a/b; protocol=x", "a/b; protocol=y"},
                        {"a/b; micalg=x", "a/b"},
                        {"a/b; smime-type=x", "a/b; smime-type=y"}};
  for (const auto& [left, right] : others) EXPECT_FALSE(isSame(left, right)) << left;
}

TEST(ContentTypeTable, is_a_list_of_pairs_that_an_empty_text_ends) {
  std::set<std::string> types, pairs;
  int index = 0;
  for (; *svMimeContentType(index); index += 2) {
    const std::string type = svMimeContentType(index), extension = svMimeContentType(index + 1);
    EXPECT_TRUE(!extension.empty() && pairs.insert(type + " " + extension).second)
        << type << " " << extension;
    types.insert(type);
  }
  EXPECT_GE(types.size(), 150u);
  for (const int beyond :
       {index, index + 1, index + 1000, std::numeric_limits<int>::max(), -1, std::numeric_limits<int>::min()})
    EXPECT_STREQ(svMimeContentType(beyond), "") << beyond;
}

TEST(ContentTypeTable, knows_usual_extensions_and_types) {
  const Row bothWays[] = {{"text/plain", "txt"},         {"text/html", "html"},
                          {"image/jpeg", "jpg"},         {"image/png", "png"},
                          {"application/pdf", "pdf"},    {"application/octet-stream", "bin"},
                          {"application/zip", "zip"},    {"message/rfc822", "eml"},
                          {"text/calendar", "ics"},      {"application/pkcs7-signature", "p7s"},
                          {"application/msword", "doc"}, {"audio/mpeg", "mp3"}};
  for (const auto& [type, extension] : bothWays) {
    EXPECT_EQ(extensionOfContentType(type), extension);
    EXPECT_EQ(contentTypeOfExtension(extension), type);
  }
  EXPECT_EQ(contentTypeOfExtension("HTM"), "text/html");
  EXPECT_EQ(contentTypeOfExtension("dat"), "application/octet-stream");
  EXPECT_EQ(extensionOfContentType("Image/PJPEG"), "jpg");
  for (const char* unknown : {"", "x-nobody/knows", "text", "text/plain;"})
    EXPECT_EQ(extensionOfContentType(unknown), "") << unknown;
  EXPECT_EQ(contentTypeOfExtension(""), "");
}

}  // namespace
}  // namespace mailtree
