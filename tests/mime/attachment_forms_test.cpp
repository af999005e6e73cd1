// Attachments in the forms of older systems, as parsed mail holds them.
#include <gtest/gtest.h>

#include <string>

#include "mailtree/base/Log.h"
#include "mailtree/mime/MimeMessage2.h"

namespace mailtree {
namespace {

std::string filenameOf(const MimeMessage2& entity) {
  StringBuffer name;
  entity.getMimeFilename(name);
  return name.extractString();
}

std::string dispositionOf(const MimeMessage2& entity) {
  StringBuffer disposition;
  entity.getDisposition(disposition);
  return disposition.extractString();
}

TEST(AttachmentForms, an_apple_pair_gives_its_data_fork_as_an_attachment) {
  const std::string kResourceFork =
      "--b\nContent-Type: application/applefile; name=\"resource.sit\"\n\nfork\n";
  const struct {
    const char* what;
    std::string parts;
    const char* type;
    const char* name;
    const char* body;
  } rows[] = {
      {"resource fork first",
       kResourceFork + "--b\nContent-Type: image/gif; name=\"pic.gif\"\n\ndata\n--b--\n", "image/gif",
       "pic.gif", "data"},
      {"data fork first",
       "--b\nContent-Type: image/gif; name=\"pic.gif\"\n\ndata\n" + kResourceFork + "--b--\n", "image/gif",
       "pic.gif", "data"},
      {"the only name is on the resource fork",
       kResourceFork + "--b\nContent-Type: image/gif\n\ndata\n--b--\n", "image/gif", "resource.sit", "data"},
      {"no data fork", kResourceFork + "--b--\n", nullptr, nullptr, nullptr},
  };
  for (const auto& row : rows) {
    LogNull log;
    MimeMessage2 pair;
    pair.loadText("Content-Type: Multipart/AppleDouble; boundary=b\n\n" + row.parts, log);
    const Owned<MimeMessage2> fork(pair.getAppleDoubleAttachment(log));
    ASSERT_EQ(fork != nullptr, row.type != nullptr) << row.what;
    if (!fork) continue;
    EXPECT_STREQ(fork->getContentType(), row.type) << row.what;
    EXPECT_EQ(filenameOf(*fork), row.name) << row.what;
    EXPECT_EQ(dispositionOf(*fork), "attachment") << row.what;
    EXPECT_EQ(fork->getMimeBodyDb()->view(), row.body) << row.what;
  }

  LogNull log;
  MimeMessage2 mixed;
  mixed.loadText("Content-Type: multipart/mixed; boundary=b\n\n--b\n\ndata\n--b--\n", log);
  EXPECT_EQ(mixed.getAppleDoubleAttachment(log), nullptr);
}

TEST(AttachmentForms, a_uuencoded_body_is_decoded_in_place) {
  const struct {
    const char* what;
    const char* message;
    const char* encoding;
    const char* name;
    const char* body;
  } rows[] = {
      {"named in the header",
       "Content-Type: image/gif; name=x.gif\nContent-Transfer-Encoding: x-UUENCODE\n\nbegin 644 "
       "c:\\cat.gif\n#0V%T\n`\nend\n",
       "base64", "x.gif", "Cat"},
      {"named in the block",
       "Content-Type: image/gif\nContent-Transfer-Encoding: X-UUencode\n\nbegin 644 "
       "c:\\cat.gif\n#0V%T\n`\nend\n",
       "base64", "cat.gif", "Cat"},
      {"no block", "Content-Type: image/gif\nContent-Transfer-Encoding: X-UUencode\n\nCat", "X-UUencode", "",
       "Cat"},
      {"another encoding", "Content-Type: image/gif\n\nbegin 644 a\n#0V%T\n`\nend", "", "",
       "begin 644 a\n#0V%T\n`\nend"},
  };
  for (const auto& row : rows) {
    LogNull log;
    MimeMessage2 entity;
    entity.loadText(row.message, log);
    entity.uuDecodeAttachment(log);
    EXPECT_STREQ(entity.getContentEncoding(), row.encoding) << row.what;
    EXPECT_EQ(filenameOf(entity), row.name) << row.what;
    EXPECT_EQ(entity.getMimeBodyDb()->view(), row.body) << row.what;
  }
}

}  // namespace
}  // namespace mailtree
