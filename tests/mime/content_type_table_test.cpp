#include "mailtree/mime/header/ContentTypeTable.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <string>

namespace mailtree {
namespace {

TEST(ContentTypeTable, is_a_list_of_pairs_that_an_empty_text_ends) {
  std::set<std::string> types, pairs;
  int index = 0;
  for (; *svMimeContentType(index); index += 2) {
    const std::string type = svMimeContentType(index), extension = svMimeContentType(index + 1);
    EXPECT_NE(extension, "") << type;
    EXPECT_TRUE(pairs.insert(type + " " + extension).second) << type << " " << extension << " is there twice";
    types.insert(type);
  }
  EXPECT_GE(types.size(), 150u);
  for (const int beyond :
       {index, index + 1, index + 1000, std::numeric_limits<int>::max(), -1, std::numeric_limits<int>::min()})
    EXPECT_STREQ(svMimeContentType(beyond), "") << beyond;
}

TEST(ContentTypeTable, knows_usual_extensions_and_types) {
  const struct {
    const char* type;
    const char* extension;
  } bothWays[] = {
      {"text/plain", "txt"},         {"text/html", "html"},
      {"image/jpeg", "jpg"},         {"image/png", "png"},
      {"application/pdf", "pdf"},    {"application/octet-stream", "bin"},
      {"application/zip", "zip"},    {"message/rfc822", "eml"},
      {"text/calendar", "ics"},      {"application/pkcs7-signature", "p7s"},
      {"application/msword", "doc"}, {"audio/mpeg", "mp3"},
  };
  for (const auto& row : bothWays) {
    EXPECT_EQ(extensionOfContentType(row.type), row.extension);
    EXPECT_EQ(contentTypeOfExtension(row.extension), row.type);
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
