// Content-Type: reading tolerantly, building in one order, comparing by meaning.
#include "mailtree/mime/header/ContentType.h"

#include <gtest/gtest.h>

#include <string>

#include "mailtree/base/Log.h"

namespace mailtree {
namespace {

std::string built(const _svContentType& type, _svCharset charset, bool withFlowed = true,
                  bool withName = true) {
  LogNull log;
  StringBuffer out;
  type.buildMimeHeaderValue(out, charset, withFlowed, withName, log);
  return out.getString();
}

TEST(ContentType, an_unusable_value_is_text_plain_with_its_parameters) {
  const struct {
    const char* value;
    bool usable;
    const char* type;
    const char* charset;
  } rows[] = {
      {"Text/HTML; Charset=UTF-8", true, "text/html", "UTF-8"},
      {"text / html", true, "text/html", ""},
      {"text/html charset=utf-8", true, "text/html", "utf-8"},
      {"text/plain; charset = \"us-ascii\";", true, "text/plain", "us-ascii"},
      {"text/plain (comment); charset=utf-8 (another)", true, "text/plain", "utf-8"},
      {"text; charset=utf-8", false, "text/plain", "utf-8"},
      {"text", false, "text/plain", ""},
      {"/", false, "text/plain", ""},
      {"text/", false, "text/plain", ""},
      {"/plain", false, "text/plain", ""},
      {"", false, "text/plain", ""},
      {"charset=utf-8", false, "text/plain", "utf-8"},
      {"a/b/c", false, "text/plain", ""},
      {"te xt/html", false, "text/plain", ""},
      {"tëxt/html", false, "text/plain", ""},
  };
  for (const auto& row : rows) {
    _svContentType type;
    _svCharset charset;
    charset.setByName("koi8-r");
    EXPECT_EQ(type.loadFromMimeHeaderValue(row.value, charset), row.usable) << row.value;
    EXPECT_STREQ(type.m_type.getString(), row.type) << row.value;
    EXPECT_STREQ(charset.getName(), row.charset) << row.value;
  }
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
  const struct {
    const char* loaded;
    const char* charset;  ///< Passed to the builder; null: what was loaded.
    bool withFlowed;
    const char* written;
  } rows[] = {
      {"text/plain; charset=utf-8", nullptr, true, "text/plain; charset=utf-8"},
      {"text/plain; charset=utf-8", "koi8-r", true, "text/plain; charset=koi8-r"},
      {"text/plain; charset=utf-8", "", true, "text/plain"},
      {"text/plain; charset=x-nobody", nullptr, true, "text/plain; charset=x-nobody"},
      {"text/plain; charset=x-nobody", "", true, "text/plain; charset=x-nobody"},
      {"text/plain; charset=x-nobody", "utf-8", true, "text/plain; charset=utf-8"},  // never two
      {"application/xml; charset=utf-8", nullptr, true, "application/xml; charset=utf-8"},
      {"application/xml; charset=utf-8", "koi8-r", true, "application/xml; charset=utf-8"},
      {"application/pdf", "utf-8", true, "application/pdf"},
      {"text/plain; format=Flowed; delsp=yes", "", true, "text/plain; format=flowed; delsp=yes"},
      {"text/plain; format=flowed; delsp=yes", "", false, "text/plain"},
      {"text/plain; format=fixed", "", false, "text/plain; format=fixed"},
      {"text/calendar; method=REQUEST; charset=utf-8", nullptr, true,
       "text/calendar; charset=utf-8; method=REQUEST"},
  };
  for (const auto& row : rows) {
    _svContentType type;
    _svCharset charset;
    type.loadFromMimeHeaderValue(row.loaded, charset);
    if (row.charset) charset.setByName(row.charset);
    if (row.charset && !*row.charset) charset.clear();
    EXPECT_EQ(built(type, charset, row.withFlowed), row.written) << row.loaded;
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
  const struct {
    const char* left;
    const char* right;
    bool same;
  } rows[] = {
      {"text/plain; a=1; b=2", "TEXT/PLAIN; B=2; a=1", true},
      {"text/plain; a=1", "text/plain; a=2", false},
      {"text/plain; a=1; b=1", "text/plain; a=1; c=1", false},
      {"text/plain", "text/html", false},
      {"multipart/mixed; boundary=a", "multipart/mixed; boundary=A", false},
      {"multipart/related; boundary=a; type=text/html", "multipart/related; type=Text/HTML; boundary=\"a\"",
       true},
      {"text/plain; format=flowed", "text/plain", false},
      {"a/b; name=x", "a/b; name*=utf-8''x", true},
      {"a/b; protocol=x", "a/b; protocol=y", false},
      {"a/b; micalg=x", "a/b", false},
      {"a/b; smime-type=x", "a/b; smime-type=y", false},
  };
  for (const auto& row : rows) {
    _svContentType left, right;
    _svCharset charset;
    left.loadFromMimeHeaderValue(row.left, charset);
    right.loadFromMimeHeaderValue(row.right, charset);
    EXPECT_EQ(left.sameMeaning(right), row.same) << row.left << " / " << row.right;
  }
}

}  // namespace
}  // namespace mailtree
