#include "mailtree/mime/MimeMessage2.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mailtree/base/Log.h"
#include "mailtree/mime/address/Address.h"

namespace mailtree {
namespace {

class MimeMessage : public testing::Test {
 protected:
  std::string field(const MimeMessage2& entity, const char* name) {
    StringBuffer value;
    entity.getHeaderFieldUtf8(name, value, log);
    return std::string(value.view());
  }
  std::string filename(const MimeMessage2& entity) {
    StringBuffer value;
    entity.getMimeFilename(value);
    return std::string(value.view());
  }
  std::string disposition(const MimeMessage2& entity) {
    StringBuffer value;
    entity.getDisposition(value);
    return std::string(value.view());
  }
  std::string header(const MimeMessage2& entity) {
    StringBuffer text;
    entity.getQBEncodedHeader(text, log);
    return std::string(text.view());
  }
  /// Whether what an entity says of itself is what its header says.
  void expectFieldsAgree(const MimeMessage2& entity) {
    MimeMessage2 again;
    ASSERT_TRUE(again.loadText(header(entity) + "\r\n\r\n", log));
    EXPECT_STREQ(again.getContentType(), entity.getContentType()) << header(entity);
    EXPECT_STREQ(again.getContentEncoding(), entity.getContentEncoding()) << header(entity);
    EXPECT_EQ(disposition(again), disposition(entity)) << header(entity);
    EXPECT_EQ(filename(again), filename(entity)) << header(entity);
    EXPECT_TRUE(again.contentType().sameMeaning(entity.contentType())) << header(entity);
    EXPECT_TRUE(again.charset().equals(entity.charset())) << header(entity);
  }

  LogNull log;
};

TEST_F(MimeMessage, reads_dispositions_as_they_are_really_written) {
  const struct {
    const char* value;
    const char* disposition;
    const char* filename;
  } rows[] = {
      {"attachment; filename=a.txt", "attachment", "a.txt"},
      {"ATTACHMENT", "ATTACHMENT", ""},
      {" inline ; filename=\"a; b.txt\"", "inline", "a; b.txt"},
      {"\"attachment\"; filename=a.txt", "attachment", "a.txt"},
      {"filename=a.txt", "", "a.txt"},
      {"filename = \"a b.txt\"; size=3", "", "a b.txt"},
      {"; filename=a.txt", "", "a.txt"},
      {"attachment filename=\"a.txt\"", "attachment", "a.txt"},
      {"attachment, filename=a.txt", "attachment", "a.txt"},
      {"attachment; filename*=utf-8''%C3%A9.txt", "attachment", "\xC3\xA9.txt"},
      {"attachment; filename=\"=?utf-8?Q?=C3=A9?=.txt\"", "attachment", "\xC3\xA9.txt"},
      {"", "", ""},
  };
  for (const auto& row : rows) {
    MimeMessage2 entity;
    ASSERT_TRUE(entity.loadText(std::string("Content-Disposition: ") + row.value + "\n\n", log));
    EXPECT_EQ(disposition(entity), row.disposition) << row.value;
    EXPECT_EQ(filename(entity), row.filename) << row.value;
  }
}

TEST_F(MimeMessage, the_filename_is_the_dispositions_before_the_types) {
  MimeMessage2 entity;
  ASSERT_TRUE(entity.loadText("Content-Type: text/plain; name=type.txt\n\n", log));
  EXPECT_EQ(filename(entity), "type.txt");
  entity.setFilenameUtf8("disposition.txt", log);
  EXPECT_EQ(filename(entity), "disposition.txt");
}

TEST_F(MimeMessage, setters_change_member_and_field_alike) {
  MimeMessage2 entity;
  entity.setContentType("Text/Plain", true, log);
  EXPECT_STREQ(entity.getContentType(), "text/plain");
  entity.setNameUtf8("b\xC3\xA9.txt", log);
  entity.setCharset("koi8-r", log);
  entity.setDisposition("attachment", log);
  entity.setContentEncoding("base64", log);
  expectFieldsAgree(entity);
  EXPECT_EQ(filename(entity), "b\xC3\xA9.txt");
  EXPECT_EQ(entity.charset().getCodePage(), 20866);
  EXPECT_TRUE(entity.isAttachment(log));

  entity.setFilenameUtf8("\xD0\xB4.txt", log);
  entity.setNameUtf8(nullptr, log);
  entity.setBoundary("b", log);
  entity.setContentType("multipart/mixed", true, log);
  expectFieldsAgree(entity);
  EXPECT_EQ(filename(entity), "\xD0\xB4.txt");
  EXPECT_TRUE(entity.isMultipartMixed());

  entity.setFilenameUtf8(nullptr, log);
  entity.setDisposition(nullptr, log);
  entity.setContentEncoding(nullptr, log);
  expectFieldsAgree(entity);
  EXPECT_EQ(entity.header().getNumFields(), 1);
}

TEST_F(MimeMessage, a_new_filename_leaves_the_other_parameters_of_the_disposition) {
  MimeMessage2 entity;
  ASSERT_TRUE(entity.loadText("Content-Disposition: attachment; filename=a; size=3\n\n", log));
  entity.setFilenameUtf8("b", log);
  EXPECT_TRUE(field(entity, "Content-Disposition").ends_with("; size=3"));
  EXPECT_EQ(filename(entity), "b");
}

TEST_F(MimeMessage, replacing_a_content_field_is_seen_by_what_was_parsed_from_it) {
  MimeMessage2 entity;
  ASSERT_TRUE(
      entity.loadText("Content-Type: text/html; charset=koi8-r\nContent-Disposition: attachment; filename=a\n"
                      "Content-Transfer-Encoding: base64\nContent-Transfer-Encoding: 8bit\n"
                      "Content-ID: <a@b>\n\n",
                      log));
  entity.addReplaceHeaderFieldUtf8("content-type", "image/png; name=x.png", log);
  EXPECT_STREQ(entity.getContentType(), "image/png");
  EXPECT_EQ(entity.charset().getCodePage(), 0);
  entity.addReplaceHeaderFieldUtf8("Subject", "s", log);
  EXPECT_EQ(field(entity, "subject"), "s");

  for (const char* name : {"Content-Type", "content-disposition", "CONTENT-TRANSFER-ENCODING", "Content-ID"})
    entity.addReplaceHeaderFieldUtf8(name, nullptr, log);
  EXPECT_STREQ(entity.getContentType(), "");
  EXPECT_EQ(disposition(entity) + filename(entity) + entity.getContentEncoding(), "");
  StringBuffer id;
  entity.getContentId(id);
  EXPECT_TRUE(id.isEmpty());
  EXPECT_EQ(entity.header().getNumFields(), 1) << "no second field comes into force";
}

TEST_F(MimeMessage, file_names_lose_their_directories_throughout_the_tree) {
  MimeMessage2 root;
  ASSERT_TRUE(
      root.loadText("Content-Type: multipart/mixed; boundary=b\n\n--b\n"
                    "Content-Type: image/png; name=\"C:\\\\dir\\\\type.png\"\n"
                    "Content-Disposition: attachment; size=3; filename=\"../../etc/a.png\"\n\nx\n--b\n"
                    "Content-Type: image/png; name=plain.png\n\nx\n--b--\n",
                    log));
  root.makeAttachmentFilenamesRelative(log);
  const MimeMessage2& first = *root.getPart(0);
  EXPECT_EQ(filename(first), "a.png");
  EXPECT_STREQ(first.contentType().m_name.getString(), "type.png");
  EXPECT_EQ(header(first).find("etc"), std::string::npos) << header(first);
  EXPECT_NE(field(first, "Content-Disposition").find("size=3"), std::string::npos);
  expectFieldsAgree(first);
  EXPECT_EQ(header(*root.getPart(1)), "Content-Type: image/png; name=plain.png");
}

TEST_F(MimeMessage, reads_the_addresses_of_every_field_of_a_name) {
  MimeMessage2 entity;
  ASSERT_TRUE(entity.loadText("To: A <a@x>, b@x\nCc: no@x\nTO: =?utf-8?Q?c=40x=2C_D?= <d@x>\n\n", log));
  ExtPtrArray addresses;
  entity.getEmailAddresses("To", addresses, log);
  std::string list;
  for (int i = 0; i < addresses.getSize(); ++i)
    list += std::string(addresses.at<_svEmailAddress>(i)->m_address.getUtf8()) + " ";
  EXPECT_EQ(list, "a@x b@x d@x ");

  entity.collapseMultiple("to", log);
  ExtPtrArray joined;
  entity.getEmailAddresses("To", joined, log);
  EXPECT_EQ(joined.getSize(), 3);
  EXPECT_EQ(entity.header().getNumFields(), 2);
}

TEST_F(MimeMessage, the_encoded_header_is_ascii_and_means_the_same) {
  MimeMessage2 entity;
  ASSERT_TRUE(entity.loadText("Subject: caf\xC3\xA9\nX-Plain:  as it\n  came\n\n", log));
  const std::string text = header(entity);
  for (const char c : text) EXPECT_FALSE(is8bit(c)) << text;
  EXPECT_NE(text.find("X-Plain:  as it\r\n  came"), std::string::npos) << text;
  MimeHeader again;
  again.loadMimeHeaderText(text, log);
  EXPECT_EQ(again.decodedValue(again.findField("Subject")), "caf\xC3\xA9");
  EXPECT_EQ(field(entity, "Subject"), "caf\xC3\xA9");

  MimeHeader extracted;
  extracted.m_foldLongValues = true;
  entity.extractHeader(extracted);
  EXPECT_TRUE(extracted.m_foldLongValues) << "the option is the node's, not the parser's";
  StringBuffer written;
  extracted.getMimeHeader(written, nullptr, kCpUtf8, true, log);
  EXPECT_EQ(std::string(written.view()), text);
}

TEST_F(MimeMessage, moves_parts_in_and_out) {
  const auto make = [&](const char* type) {
    MimeMessage2* part = MimeMessage2::createNewObject();
    part->setContentType(type, true, log);
    return part;
  };
  const auto types = [](const MimeMessage2& entity) {
    std::string text;
    for (int i = 0; i < entity.getNumParts(); ++i)
      text += std::string(entity.getPart(i)->getContentType()) + " ";
    return text;
  };
  MimeMessage2 root;
  root.newMultipartAlternative(log);
  EXPECT_STREQ(root.getContentType(), "multipart/alternative");
  EXPECT_FALSE(root.contentType().m_boundary.isEmpty());
  expectFieldsAgree(root);

  root.addPart(make("a/1"));
  root.addPart(make("a/2"));
  root.addPartInFront(make("a/0"));
  root.addPart(nullptr);
  EXPECT_EQ(types(root), "a/0 a/1 a/2 ");

  EXPECT_EQ(root.extractPart(3), nullptr);
  EXPECT_EQ(root.extractPart(-1), nullptr);
  EXPECT_EQ(root.getPart(3), nullptr);
  Owned<MimeMessage2> taken(root.extractPart(1));
  EXPECT_STREQ(taken->getContentType(), "a/1");
  EXPECT_EQ(types(root), "a/0 a/2 ");

  root.getPart(0)->deleteObject();
  root.replacePart(0, taken.release(), log);
  EXPECT_EQ(types(root), "a/1 a/2 ");
  root.replacePart(7, make("a/7"), log);
  EXPECT_EQ(types(root), "a/1 a/2 ");
}

TEST_F(MimeMessage, bodies_are_set_copied_moved_and_cleared) {
  MimeMessage2 entity;
  _svCharset koi8;
  koi8.setByName("koi8-r");
  entity.setContentType("text/plain", true, log);
  entity.setMimeBody8Bit_2("\xC4", 1, koi8, /*isText=*/true, log);
  EXPECT_EQ(entity.getMimeBodyDb()->view(), "\xD0\xB4");
  entity.setMimeBody8Bit_2("\xC4", 1, koi8, /*isText=*/false, log);
  EXPECT_EQ(entity.getMimeBodyDb()->view(), "\xC4");
  entity.setDisposition("attachment", log);
  entity.setMimeBody8Bit_2("\xC4", 1, koi8, /*isText=*/true, log);
  EXPECT_EQ(entity.getMimeBodyDb()->view(), "\xC4") << "an attached text keeps its bytes";

  DataBuffer out;
  entity.copyMimeBody(out, log);
  entity.copyMimeBody(out, log);
  EXPECT_EQ(out.view(), "\xC4\xC4");
  entity.extractMimeBody(out, log);
  EXPECT_EQ(out.view(), "\xC4");
  EXPECT_TRUE(entity.getMimeBodyDb()->isEmpty());
  entity.setMimeBodyBinary2(reinterpret_cast<const unsigned char*>("xy"), 2, log);
  EXPECT_EQ(entity.getMimeBodyDb()->view(), "xy");
  entity.setMimeBodyBinary2(nullptr, 0, log);
  EXPECT_TRUE(entity.getMimeBodyDb()->isEmpty());
}

TEST_F(MimeMessage, the_message_class_is_among_the_traits) {
  MimeMessage2 entity;
  ASSERT_TRUE(
      entity.loadText("Content-Type: text/plain\nContent-Class: URN:content-classes:message\n\n", log));
  EXPECT_TRUE(judgeAttachment(entity.traits(), /*inMixed=*/true).isAttachment);
  EXPECT_FALSE(entity.isAttachment(log));
}

TEST_F(MimeMessage, each_way_of_loading_replaces_what_was_there) {
  MimeMessage2 entity;
  ASSERT_TRUE(
      entity.loadText("Content-Type: multipart/mixed; boundary=b\nContent-ID: x\n\n--b\n\na\n--b\n", log));
  StringBuffer scratch;
  DataBuffer bytes;
  bytes.append("Subject: db\n\nc", 14);
  ASSERT_TRUE(entity.loadMimeComplete(StringBuffer("Subject: sb\n\na"), log, false));
  EXPECT_EQ(field(entity, "Subject"), "sb");
  EXPECT_EQ(entity.getNumParts(), 0);
  EXPECT_STREQ(entity.getContentType(), "");
  EXPECT_TRUE(entity.repairs().isEmpty());
  ASSERT_TRUE(entity.loadMimeCompleteDb(bytes, log));
  EXPECT_EQ(entity.getMimeBodyDb()->view(), "c");
  EXPECT_EQ(bytes.getSize(), 14u);
  ASSERT_TRUE(entity.loadMimeComplete2(nullptr, 7, true, scratch, log, false));
  EXPECT_EQ(entity.header().getNumFields(), 0);
}

TEST_F(MimeMessage, content_of_another_entity_begins_with_its_first_byte) {
  int parts = kMaxParts;
  const struct {
    const char *text, *type, *body;
  } rows[] = {
      {"Content-Type: text/html\n\nx", "text/html", "x"},
      {"\nContent-Type: text/html\n\nx", "", "Content-Type: text/html\n\nx"},
      {"From me Sat\nContent-Type: text/html\n\nx", "text/html", "x"},
      {"", "", ""},
  };
  for (const auto& row : rows) {
    MimeMessage2 entity;
    ASSERT_TRUE(entity.loadContent(row.text, /*level=*/2, /*origin=*/0, parts, log));
    EXPECT_STREQ(entity.getContentType(), row.type) << row.text;
    EXPECT_EQ(entity.getMimeBodyDb()->view(), row.body) << row.text;
  }
  MimeMessage2 deep;
  deep.loadContent("Content-Type: multipart/mixed; boundary=b\n\n--b\n\nx\n--b--\n", kMaxDepth, /*origin=*/0,
                   parts, log);
  EXPECT_EQ(deep.getNumParts(), 0) << "no deeper than the tree in which it stands may be";
  EXPECT_TRUE(deep.limits().has(Limit::depth));
}

TEST_F(MimeMessage, takes_over_what_another_entity_holds_but_not_who_sent_it) {
  MimeMessage2 outer, inner;
  outer.loadText(
      "Subject: out\nContent-Type: image/png; name=a\nContent-Transfer-Encoding: base64\n"
      "Content-Disposition: attachment; filename=a\nContent-ID: <a>\nX-A: 1\n\nAAAA",
      log);
  inner.loadText(
      "Subject: in\ncontent-type: multipart/mixed;\n\tboundary=b\nX-B: 2\nContent-X: "
      "gr\xC3\xBC\xC3\x9F\n\n--b\n\nx\n--b--\n",
      log);
  outer.adoptContent(inner);
  EXPECT_EQ(header(outer),
            "Subject: out\r\nX-A: 1\r\ncontent-type: multipart/mixed;\r\n\tboundary=b\r\n"
            "Content-X: =?utf-8?Q?gr=C3=BC=C3=9F?=");
  expectFieldsAgree(outer);
  EXPECT_EQ(outer.getNumParts(), 1);
  EXPECT_TRUE(outer.getMimeBodyDb()->isEmpty());
  EXPECT_EQ(filename(outer) + disposition(outer) + outer.getContentEncoding(), "");
}

TEST_F(MimeMessage, is_parsed_anew_from_the_bytes_it_was_received_as) {
  MimeMessage2 tree;
  tree.loadText(
      "Content-Type: multipart/signed; boundary=o\n\n--o\nContent-Type: multipart/signed; boundary=i\n\n"
      "--i\n\nx\n--i\n\ny\n--i--\n\n--o\n\nz\n--o--\n",
      log);
  MimeMessage2& inner = *tree.getPart(0);
  const std::string received(inner.receivedBytes()->view());
  EXPECT_FALSE(inner.getPart(0)->receivedBytes());
  int parts = kMaxParts;
  ASSERT_TRUE(inner.reloadReceived(/*level=*/2, parts, log));
  EXPECT_EQ(inner.receivedBytes()->view(), received);
  ASSERT_TRUE(inner.getPart(0)->receivedBytes());
  EXPECT_EQ(inner.getPart(0)->receivedBytes()->view(), "\nx");
  EXPECT_FALSE(tree.reloadReceived(1, parts, log)) << "it has none";
}

TEST_F(MimeMessage, a_tree_of_any_depth_is_destroyed_without_recursion) {
  auto top = Owned<MimeMessage2>(MimeMessage2::createNewObject());
  for (int i = 0; i < 200'000; ++i) {
    MimeMessage2* above = MimeMessage2::createNewObject();
    above->addPart(top.release());
    top.reset(above);
  }
}

}  // namespace
}  // namespace mailtree
