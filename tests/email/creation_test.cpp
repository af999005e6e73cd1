// New attachments: type, name, encoding and place.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/dead_node.h"
#include "tests/support/fields.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

EmailPtr attachmentOf(const char* name, const char* type) {
  LogNull log;
  const RefPtr<_svEmailCommon> common(new _svEmailCommon);
  return EmailPtr(Email2::createAttachmentFromDataUtf8(*common, name, type,
                                                       reinterpret_cast<const unsigned char*>("ab"), 2, log));
}

TEST(NewAttachment, gets_name_type_and_encoding) {
  const struct {
    const char *name, *given, *type, *filename, *encoding;
  } rows[] = {
      {"report.pdf", nullptr, "application/pdf", "report.pdf", "base64"},
      {"REPORT.PDF", nullptr, "application/pdf", "REPORT.PDF", "base64"},
      {nullptr, nullptr, "application/octet-stream", "attach.dat", "base64"},
      {"", "text/csv", "text/csv", "attach.dat", "quoted-printable"},
      {"no-dot", nullptr, "application/octet-stream", "no-dot", "base64"},
      {"x.unheard-of", nullptr, "application/octet-stream", "x.unheard-of", "base64"},
      {"a.pdf", " \t", "application/octet-stream", "a.pdf", "base64"},
      {"a.pdf", " Text/CSV ", "text/csv", "a.pdf", "quoted-printable"},
      {"a.pdf", "textual/thing", "textual/thing", "a.pdf", "quoted-printable"},
      {"/home/me/a.txt", nullptr, "text/plain", "a.txt", "quoted-printable"},
      {"C:\\dir/sub\\a.txt", nullptr, "text/plain", "a.txt", "quoted-printable"},
      {"C:\\dir\\a.txt", nullptr, "text/plain", "a.txt", "quoted-printable"},
      {"Größe 1.zip", nullptr, "application/zip", "Größe 1.zip", "base64"},
      {"a.txt\r\nBcc: evil@example.com", "text/plain", "text/plain", "a.txtBcc: evil@example.com",
       "quoted-printable"},
  };
  for (const auto& row : rows) {
    const EmailPtr part = attachmentOf(row.name, row.given);
    StringBuffer disposition, filename;
    part->getContentDisposition(disposition, filename);
    EXPECT_EQ(part->m_contentType.m_type.view(), row.type) << row.filename;
    EXPECT_EQ(filename.view(), row.filename);
    EXPECT_EQ(disposition.view(), "attachment") << row.filename;
    EXPECT_EQ(part->m_transferEncoding.view(), row.encoding) << row.filename;
    EXPECT_EQ(part->m_body.view(), "ab") << row.filename;
    EXPECT_THAT(fieldNames(*part),
                ElementsAre("Content-Type", "Content-Transfer-Encoding", "Content-Disposition"));
    const EmailPtr reread = load(write(*part));  // a line break in a name makes no field
    EXPECT_EQ(field(*reread, "Bcc"), "(absent)") << row.filename;
  }
}

TEST(NewAttachment, is_the_last_part_of_a_mixed) {
  const struct {
    const char *before, *after;
  } rows[] = {
      {"plain", "mixed(plain,zip:attachment)"},
      {"plain[body=]", "mixed(zip:attachment)"},
      {"none[body=]", "mixed(zip:attachment)"},
      {"alt(plain,html)", "mixed(alternative(plain,html),zip:attachment)"},
      {"related(html,png)", "mixed(related(html,png),zip:attachment)"},
      {"mixed(plain,pdf)", "mixed(plain,pdf,zip:attachment)"},
      {"multipart/x-mixed-replace(plain)", "multipart/x-mixed-replace(plain,zip:attachment)"},
      {"report(plain,delivery)", "mixed(report(plain,delivery),zip:attachment)"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = buildTree(row.before);
    LogNull log;
    DataBuffer data;
    data.append("PK");
    StringBuffer type("left over");
    ASSERT_TRUE(mail->addDataAttachmentUtf8("a.zip", nullptr, 0, data, type, log)) << row.before;
    EXPECT_EQ(printTree(mail), row.after) << row.before;
    EXPECT_EQ(type.view(), "application/zip") << row.before;
    EXPECT_EQ(data.view(), "PK") << "copied";
    EXPECT_EQ(disagreeingFields(*mail), "") << row.before;
  }
}

TEST(NewAttachment, of_text_is_labelled_with_its_own_charset) {
  const EmailPtr mail = buildTree("plain");
  mail->use_codepage(65001);
  LogNull log;
  DataBuffer data;
  data.append("caf\xE9");
  StringBuffer type;
  ASSERT_TRUE(mail->addDataAttachmentUtf8("a.csv", nullptr, 1252, data, type, log));
  const std::string written = write(*mail);
  EXPECT_THAT(written, HasSubstr("text/csv; charset=windows-1252"));
  EXPECT_THAT(written, HasSubstr("caf=E9"));
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
    EXPECT_THAT(log.text(), HasSubstr("Failed to create attachment from file.")) << missing;
  }
  LogNull log;
  XString path(file.c_str());
  EXPECT_TRUE(mail->addFileAttachmentX(path, nullptr, type, log));
  EXPECT_EQ(type.view(), "application/pdf");
  EXPECT_EQ(printTree(mail, TreeDetail::names), "mixed(plain,pdf[name=Größe.pdf,file=Größe.pdf]:attachment)");
  EXPECT_EQ(mail->getPart(1)->m_body.view(), "%PDF");
  std::filesystem::remove_all(folder);
}

TEST(NewAttachment, may_be_a_message_or_a_ready_part) {
  const std::string inner = "Subject: inner\r\n\r\n\xE9 stays\r\n";
  const EmailPtr mail = buildTree("mixed(plain,pdf)");
  LogNull log;
  DataBuffer mime;
  mime.append(inner);
  ASSERT_TRUE(mail->attachMessage(mime, log));
  StringBuffer type("left over");
  EXPECT_FALSE(mail->addAttachment(nullptr, type, log));
  EXPECT_TRUE(type.isEmpty());
  ASSERT_TRUE(mail->addAttachment(attachmentOf("a.zip", nullptr).release(), type, log));
  EXPECT_EQ(printTree(mail), "mixed(plain,pdf,rfc822,zip:attachment)");
  EXPECT_EQ(mail->getPart(2)->m_body.view(), inner);
  EXPECT_THAT(fieldNames(*mail->getPart(2)), ElementsAre("Content-Type"));
  EXPECT_THAT(write(*mail), HasSubstr("Content-Type: message/rfc822\r\n\r\n" + inner));
}

TEST(NewAttachment, is_refused_by_a_dead_node_which_takes_nothing) {
  const EmailPtr mail = buildTree("plain");
  const EmailPtr part = attachmentOf("a.zip", nullptr);
  const Killed dead(*mail);
  LogNull log;
  StringBuffer type;
  DataBuffer data;
  EXPECT_FALSE(mail->addAttachment(part.get(), type, log));
  EXPECT_FALSE(mail->addDataAttachmentUtf8("a", nullptr, 0, data, type, log));
  EXPECT_FALSE(mail->attachMessage(data, log));
}

TEST(ContentTypes, deliberate_a_capital_first_letter_finds_no_type) {
  const struct {
    const char *extension, *type;
  } rows[] = {{"pdf", "application/pdf"},
              {"pDF", "application/pdf"},
              {"PDF", ""},
              {"", ""},
              {nullptr, ""},
              {"no", ""}};
  for (const auto& row : rows) {
    StringBuffer type("+");
    Email2::getTypeFromExtension(row.extension, type);
    EXPECT_EQ(type.view(), "+" + std::string(row.type)) << viewOf(row.extension);
  }
  StringBuffer extension;
  EXPECT_TRUE(Email2::getExtensionFromType("Application/PDF", extension));
  EXPECT_FALSE(Email2::getExtensionFromType("x/y", extension));
  EXPECT_EQ(extension.view(), "pdf");
}

}  // namespace
}  // namespace mailtree
