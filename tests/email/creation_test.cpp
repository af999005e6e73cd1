// New attachments: type, name, encoding and place.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <tuple>

#include "tests/support/dead_node.h"
#include "tests/support/fields.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

LogNull quiet;

EmailPtr attachmentOf(const char* name, const char* type) {
  const RefPtr<_svEmailCommon> common(new _svEmailCommon);
  return EmailPtr(Email2::createAttachmentFromDataUtf8(
      *common, name, type, reinterpret_cast<const unsigned char*>("ab"), 2, quiet));
}

TEST(NewAttachment, gets_name_type_and_encoding) {
  // The name and type given; type, name and encoding of the part.
  const std::tuple<const char*, const char*, const char*, const char*, const char*> rows[] = {
      {"REPORT.PDF", nullptr, "application/pdf", "REPORT.PDF", "base64"},
      {"", "text/csv", "text/csv", "attach.dat", "quoted-printable"},
      {"no-dot", nullptr, "application/octet-stream", "no-dot", "base64"},
      {"a.pdf", " \t", "application/octet-stream", "a.pdf", "base64"},
      {"a.pdf", " Text/CSV ", "text/csv", "a.pdf", "quoted-printable"},
      {"C:\\dir/sub\\a.txt", nullptr, "text/plain", "a.txt", "quoted-printable"},
      {"C:\\dir\\a.txt", nullptr, "text/plain", "a.txt", "quoted-printable"},
      {"a.txt\r\nBcc: e@x.org", "text/plain", "text/plain", "a.txtBcc: e@x.org", "quoted-printable"},
  };
  for (const auto& [name, given, type, filename, encoding] : rows) {
    const EmailPtr part = attachmentOf(name, given);
    StringBuffer disposition, ownName;
    part->getContentDisposition(disposition, ownName);
    EXPECT_EQ(disposition.view(), "attachment") << name;
    EXPECT_EQ(ownName.view(), filename);
    EXPECT_EQ(part->m_contentType.m_type.view(), type) << name;
    EXPECT_EQ(part->m_transferEncoding.view(), encoding) << name;
    EXPECT_EQ(part->m_body.view(), "ab") << name;
    EXPECT_THAT(fieldNames(*loadPop3(write(*part))),  // a line break in a name makes no field
                testing::ElementsAre("Content-Type", "Content-Transfer-Encoding", "Content-Disposition"));
  }
}

TEST(NewAttachment, is_the_last_part_of_a_mixed) {
  const std::pair<const char*, const char*> rows[] = {
      {"plain", "mixed(plain,zip:attachment)"},
      {"mixed(plain,pdf)", "mixed(plain,pdf,zip:attachment)"},
      {"multipart/x-mixed-replace(plain)", "multipart/x-mixed-replace(plain,zip:attachment)"},
  };
  for (const auto& [before, after] : rows) {
    const EmailPtr mail = buildTree(before);
    DataBuffer data;
    data.append("PK");
    StringBuffer type("left over");
    ASSERT_TRUE(mail->addDataAttachmentUtf8("a.zip", nullptr, 0, data, type, quiet)) << before;
    EXPECT_EQ(printTree(mail), after);
    EXPECT_EQ(type.view(), "application/zip");
    EXPECT_EQ(data.view(), "PK") << "copied";
    EXPECT_EQ(disagreeingFields(*mail), "") << before;
  }
}

TEST(NewAttachment, of_text_is_labelled_with_its_own_charset) {
  const EmailPtr mail = buildTree("plain");
  mail->use_codepage(65001);
  DataBuffer data;
  data.append("caf\xE9");
  StringBuffer type;
  ASSERT_TRUE(mail->addDataAttachmentUtf8("a.csv", nullptr, 1252, data, type, quiet));
  EXPECT_EQ(fieldOf(*mail->getPart(1), "Content-Type"), "text/csv; charset=windows-1252; name=a.csv");
  EXPECT_TRUE(contains(write(*mail), "\r\n\r\ncaf=E9\r\n"));
}

TEST(NewAttachment, from_a_file_or_not_at_all) {
  const auto folder = std::filesystem::temp_directory_path() / "mailtree-creation-test";
  std::filesystem::create_directories(folder);
  const std::string file = (folder / "Größe.pdf").string();
  std::ofstream(file) << "%PDF";
  const EmailPtr mail = buildTree("plain");
  StringBuffer type;
  for (const std::string& missing : {(folder / "missing.pdf").string(), folder.string()}) {
    LogMemory log;
    XString path(missing.c_str());
    EXPECT_FALSE(mail->addFileAttachmentX(path, nullptr, type, log)) << missing;
    EXPECT_EQ(printTree(mail), "plain") << missing;
    EXPECT_TRUE(contains(log.text(), "Failed to create attachment from file.")) << missing;
  }
  XString path(file.c_str());
  EXPECT_TRUE(mail->addFileAttachmentX(path, nullptr, type, quiet));
  EXPECT_EQ(type.view(), "application/pdf");
  EXPECT_EQ(printTree(mail, TreeDetail::names), "mixed(plain,pdf[name=Größe.pdf,file=Größe.pdf]:attachment)");
  EXPECT_EQ(mail->getPart(1)->m_body.view(), "%PDF");
  std::filesystem::remove_all(folder);
}

TEST(NewAttachment, may_be_a_message_or_a_ready_part) {
  const std::string inner = "Subject: inner\r\n\r\n\xE9 stays\r\n";
  const EmailPtr mail = buildTree("mixed(plain,pdf)");
  DataBuffer mime;
  mime.append(inner);
  ASSERT_TRUE(mail->attachMessage(mime, quiet));
  StringBuffer type("left over");
  EXPECT_FALSE(mail->addAttachment(nullptr, type, quiet));
  EXPECT_TRUE(type.isEmpty());
  const EmailPtr zip = attachmentOf("a.zip", nullptr), unused = attachmentOf("a.zip", nullptr);
  ASSERT_TRUE(mail->addAttachment(zip.get(), type, quiet));
  EXPECT_EQ(printTree(mail), "mixed(plain,pdf,rfc822,zip:attachment)");
  EXPECT_EQ(write(*mail->getPart(2)), "Content-Type: message/rfc822\r\n\r\n" + inner);
  EXPECT_EQ(mail->extractSubpartByIndex(3), zip.get());

  const Killed dead(*mail);
  EXPECT_FALSE(mail->addAttachment(unused.get(), type, quiet) || mail->attachMessage(mime, quiet));
  EXPECT_FALSE(mail->addDataAttachmentUtf8("a", nullptr, 0, mime, type, quiet));
}

TEST(ContentTypes, deliberate_a_capital_first_letter_finds_no_type) {
  const std::pair<const char*, const char*> rows[] = {
      {"pDF", "+application/pdf"}, {"PDF", "+"}, {"", "+"}, {nullptr, "+"}};
  for (const auto& [extension, expected] : rows) {
    StringBuffer type("+");
    Email2::getTypeFromExtension(extension, type);
    EXPECT_EQ(type.view(), expected);
  }
  StringBuffer extension;
  EXPECT_TRUE(Email2::getExtensionFromType("Application/PDF", extension));
  EXPECT_FALSE(Email2::getExtensionFromType("x/y", extension));
  EXPECT_EQ(extension.view(), "pdf");
}

}  // namespace
}  // namespace mailtree
