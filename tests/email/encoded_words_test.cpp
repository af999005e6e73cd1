#include <gtest/gtest.h>

#include "tests/support/messages.h"

namespace mailtree {
namespace {

TEST(EncodedWord, is_built_of_bytes_and_charset) {
  const struct {
    std::string_view bytes;
    const char* charset;
    const char* b;
    const char* q;  ///< of what stands between the marks; null: nothing is appended.
  } rows[] = {
      {"gr\xC3\xBC\xC3\x9F", "utf-8", "=?utf-8?B?Z3LDvMOf?=", "=?utf-8?Q?gr=C3=BC=C3=9F?="},
      {"gr\xFC\xDF", "ISO-8859-1", "=?ISO-8859-1?B?Z3L83w==?=", "=?ISO-8859-1?Q?gr=FC=DF?="},
      {"Last, First", "utf-8", "=?utf-8?B?TGFzdCwgRmlyc3Q=?=", "=?utf-8?Q?Last=2C_First?="},
      {"\xEF\xBB\xBFx", "utf-8", "=?utf-8?B?eA==?=", "=?utf-8?Q?x?="},
      {"\xEF\xBB\xBF", "UTF-8", "", ""},
      {"\xEF\xBB\xBF", "iso-8859-1", "=?iso-8859-1?B?77u/?=", "=?iso-8859-1?Q?=EF=BB=BF?="},
      // Deliberate: an empty charset stays empty with B and becomes utf-8 with Q.
      {"x", "", "=??B?eA==?=", "=?utf-8?Q?x?="},
      {"\xEF\xBB\xBF", "", "=??B?77u/?=", ""},
      {"x", nullptr, "", ""},
      {"", "utf-8", "", ""},
  };
  for (const auto& row : rows) {
    const auto* data = reinterpret_cast<const unsigned char*>(row.bytes.data());
    const long size = static_cast<long>(row.bytes.size());
    StringBuffer b("+"), q("+");
    Email2::bEncodeData(data, size, row.charset, b);
    Email2::qEncodeData(data, size, row.charset, q);
    EXPECT_EQ(b.view(), std::string("+") + row.b) << row.bytes << " " << viewOf(row.charset);
    EXPECT_EQ(q.view(), std::string("+") + row.q) << row.bytes << " " << viewOf(row.charset);
  }
}

TEST(EncodedWord, is_one_however_long_and_none_without_data) {
  const std::string bytes(9'999, '\xE9');
  StringBuffer out;
  Email2::bEncodeData(reinterpret_cast<const unsigned char*>(bytes.data()), 9'999, "iso-8859-1", out);
  EXPECT_EQ(out.view().find("=?", 1), std::string_view::npos);
  EXPECT_EQ(out.getSize(), std::string_view("=?iso-8859-1?B?").size() + 2 + 9'999 / 3 * 4);
  out.clear();
  Email2::bEncodeData(nullptr, 5, "utf-8", out);
  Email2::qEncodeData(reinterpret_cast<const unsigned char*>("x"), -1, "utf-8", out);
  EXPECT_TRUE(out.isEmpty());
}

TEST(EncodedHeader, is_rendered_for_the_charset_of_the_email) {
  const struct {
    int codePage;
    const char* subject;
  } rows[] = {
      {0, "Subject: =?utf-8?"},
      {1252, "Subject: =?windows-1252?"},
      {kCpUtf8, "Subject: =?utf-8?"},
  };
  LogNull log;
  for (const auto& row : rows) {
    const EmailPtr root(Email2::createNewObject00());
    root->use_codepage(row.codePage);
    root->setHeaderField("SVX-Kept", "1", log);
    root->setHeaderField("Subject", "gr\xC3\xBC\xC3\x9F", log);
    StringBuffer out("+");
    root->getQBEncodedMimeHeader(out, log, true);
    EXPECT_TRUE(out.beginsWith("+SVX-Kept: 1\r\n")) << out.getString();
    EXPECT_TRUE(containsNoCase(out, row.subject)) << out.getString();
    EXPECT_FALSE(out.endsWith("\n"));
  }
}

}  // namespace
}  // namespace mailtree
