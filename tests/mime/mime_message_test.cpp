#include "mailtree/mime/MimeMessage2.h"

#include "mailtree/mime/address/Address.h"
#include "tests/mime/tables.h"

namespace mailtree {
namespace {

std::string field(const MimeMessage2& entity, const char* name) {
  return textOf([&](StringBuffer& out) { entity.getHeaderFieldUtf8(name, out, quiet); });
}
std::string header(const MimeMessage2& entity) {
  return textOf([&](StringBuffer& out) { entity.getQBEncodedHeader(out, quiet); });
}
std::string filename(const MimeMessage2& entity) {
  return textOf([&](StringBuffer& out) { entity.getMimeFilename(out); });
}
/// "disposition|file name"
std::string disposition(const MimeMessage2& entity) {
  return textOf([&](StringBuffer& out) { entity.getDisposition(out); }) + "|" + filename(entity);
}

/// Whether what an entity says of itself is what its header says.
void expectFieldsAgree(const MimeMessage2& entity) {
  const auto again = message(header(entity) + "\r\n\r\n");
  EXPECT_STREQ(again->getContentType(), entity.getContentType()) << header(entity);
  EXPECT_STREQ(again->getContentEncoding(), entity.getContentEncoding()) << header(entity);
  EXPECT_EQ(disposition(*again), disposition(entity)) << header(entity);
  EXPECT_TRUE(again->contentType().sameMeaning(entity.contentType())) << header(entity);
  EXPECT_TRUE(again->charset().equals(entity.charset())) << header(entity);
}

TEST(MimeMessage, reads_dispositions_as_they_are_really_written) {
  const Row rows[] = {{"attachment; filename=a.txt", "attachment|a.txt"},
                      {"ATTACHMENT", "ATTACHMENT|"},
                      {" inline ; filename=\"a; b.txt\"", "inline|a; b.txt"},
                      {"filename = \"a b.txt\"; size=3", "|a b.txt"},
                      {"", "|"}};
  expectEach(
      [](const auto& value) { return disposition(*message("Content-Disposition: " + value + "\n\n")); },
      rows);
}

TEST(MimeMessage, setters_change_member_and_field_alike) {
  MimeMessage2 entity;
  entity.setContentType("Text/Plain", true, quiet);
  EXPECT_STREQ(entity.getContentType(), "text/plain");
  entity.setNameUtf8("bé.txt", quiet);
  entity.setCharset("koi8-r", quiet);
  entity.setDisposition("attachment", quiet);
  entity.setContentEncoding("base64", quiet);
  expectFieldsAgree(entity);
  EXPECT_EQ(filename(entity), "bé.txt");
  EXPECT_EQ(entity.charset().getCodePage(), 20866);
  EXPECT_TRUE(entity.isAttachment(quiet));

  entity.setFilenameUtf8("д.txt", quiet);
  EXPECT_EQ(filename(entity), "д.txt") << "the disposition's goes before the type's";
  entity.setNameUtf8(nullptr, quiet);
  entity.setBoundary("b", quiet);
  entity.setContentType("multipart/mixed", true, quiet);
  expectFieldsAgree(entity);
  EXPECT_TRUE(entity.isMultipartMixed());

  entity.setFilenameUtf8(nullptr, quiet);
  entity.setDisposition(nullptr, quiet);
  entity.setContentEncoding(nullptr, quiet);
  expectFieldsAgree(entity);
  EXPECT_EQ(entity.header().getNumFields(), 1);

  const auto received = message("Content-Disposition: attachment; filename=a; size=3\n\n");
  received->setFilenameUtf8("b", quiet);
  EXPECT_TRUE(field(*received, "Content-Disposition").ends_with("; size=3"));
  EXPECT_EQ(filename(*received), "b");
}

TEST(MimeMessage, replacing_a_content_field_is_seen_by_what_was_parsed_from_it) {
  const auto entity = message(
      "Content-Type: text/html; charset=koi8-r\nContent-Disposition: attachment; filename=a\n"
      "Content-Transfer-Encoding: base64\nContent-Transfer-Encoding: 8bit\nContent-ID: <a@b>\n\n");
  entity->addReplaceHeaderFieldUtf8("content-type", "image/png; name=x.png", quiet);
  EXPECT_STREQ(entity->getContentType(), "image/png");
  EXPECT_EQ(entity->charset().getCodePage(), 0);
  entity->addReplaceHeaderFieldUtf8("Subject", "s", quiet);
  EXPECT_EQ(field(*entity, "subject"), "s");

  for (const char* name : {"Content-Type", "content-disposition", "CONTENT-TRANSFER-ENCODING", "Content-ID"})
    entity->addReplaceHeaderFieldUtf8(name, nullptr, quiet);
  const std::string id = textOf([&](StringBuffer& out) { entity->getContentId(out); });
  EXPECT_EQ(entity->getContentType() + disposition(*entity) + entity->getContentEncoding() + id, "|");
  EXPECT_EQ(entity->header().getNumFields(), 1) << "no second field comes into force";
}

TEST(MimeMessage, file_names_lose_their_directories_throughout_the_tree) {
  const auto root = message(
      "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: image/png; "
      "name=\"C:\\\\dir\\\\type.png\"\n"
      "Content-Disposition: attachment; size=3; filename=\"../../etc/a.png\"\n\nx\n--b\n"
      "Content-Type: image/png; name=plain.png\n\nx\n--b--\n");
  root->makeAttachmentFilenamesRelative(quiet);
  EXPECT_EQ(
      header(*root->getPart(0)),
      "Content-Type: image/png; name=type.png\r\nContent-Disposition: attachment; filename=a.png; size=3");
  expectFieldsAgree(*root->getPart(0));
  EXPECT_EQ(header(*root->getPart(1)), "Content-Type: image/png; name=plain.png");
}

TEST(MimeMessage, reads_the_addresses_of_every_field_of_a_name) {
  const auto entity = message("To: A <a@x>, b@x\nCc: no@x\nTO: =?utf-8?Q?c=40x=2C_D?= <d@x>\n\n");
  for (const int fields : {3, 2}) {
    EXPECT_EQ(entity->header().getNumFields(), fields);
    ExtPtrArray addresses;
    entity->getEmailAddresses("To", addresses, quiet);
    std::string list;
    for (int i = 0; i < addresses.getSize(); ++i)
      list.append(addresses.at<_svEmailAddress>(i)->m_address.view()).append(" ");
    EXPECT_EQ(list, "a@x b@x d@x ");
    entity->collapseMultiple("to", quiet);
  }
}

TEST(MimeMessage, the_encoded_header_is_ascii_and_means_the_same) {
  const auto entity = message("Subject: café\nX-Plain:  as it\n  came\n\n");
  const std::string encoded = "Subject: =?utf-8?Q?caf=C3=A9?=\r\nX-Plain:  as it\r\n  came";
  EXPECT_EQ(header(*entity), encoded);
  EXPECT_EQ(field(*entity, "Subject"), "café");

  MimeHeader extracted;
  extracted.m_foldLongValues = true;
  entity->extractHeader(extracted);
  EXPECT_TRUE(extracted.m_foldLongValues) << "the option is the node's, not the parser's";
  EXPECT_EQ(textOf([&](auto& out) { extracted.getMimeHeader(out, nullptr, kCpUtf8, true, quiet); }), encoded);
}

TEST(MimeMessage, moves_parts_in_and_out) {
  MimeMessage2 root;
  const auto make = [&](const char* type) {
    MimeMessage2* part = MimeMessage2::createNewObject();
    part->setContentType(type, true, quiet);
    return part;
  };
  const auto types = [&] {
    std::string text;
    for (int i = 0; i < root.getNumParts(); ++i) text += root.getPart(i)->getContentType() + " "s;
    return text;
  };
  root.newMultipartAlternative(quiet);
  EXPECT_STREQ(root.getContentType(), "multipart/alternative");
  EXPECT_FALSE(root.contentType().m_boundary.isEmpty());
  expectFieldsAgree(root);

  root.addPart(make("a/1"));
  root.addPart(make("a/2"));
  root.addPartInFront(make("a/0"));
  root.addPart(nullptr);
  EXPECT_EQ(types(), "a/0 a/1 a/2 ");
  EXPECT_EQ(root.extractPart(3), nullptr);
  EXPECT_EQ(root.extractPart(-1), nullptr);
  EXPECT_EQ(root.getPart(3), nullptr);
  Owned<MimeMessage2> taken(root.extractPart(1));
  EXPECT_EQ(types(), "a/0 a/2 ");

  root.getPart(0)->deleteObject();
  root.replacePart(0, taken.release(), quiet);
  EXPECT_EQ(types(), "a/1 a/2 ");
  root.replacePart(7, make("a/7"), quiet);
  EXPECT_EQ(types(), "a/1 a/2 ");
}

TEST(MimeMessage, bodies_are_set_copied_moved_and_cleared) {
  MimeMessage2 entity;
  _svCharset koi8;
  koi8.setByName("koi8-r");
  entity.setContentType("text/plain", true, quiet);
  entity.setMimeBody8Bit_2("\xC4", 1, koi8, /*isText=*/true, quiet);
  EXPECT_EQ(entity.getMimeBodyDb()->view(), "д");
  entity.setMimeBody8Bit_2("\xC4", 1, koi8, /*isText=*/false, quiet);
  EXPECT_EQ(entity.getMimeBodyDb()->view(), "\xC4");
  entity.setDisposition("attachment", quiet);
  entity.setMimeBody8Bit_2("\xC4", 1, koi8, /*isText=*/true, quiet);
  EXPECT_EQ(entity.getMimeBodyDb()->view(), "\xC4") << "an attached text keeps its bytes";

  DataBuffer out;
  entity.copyMimeBody(out, quiet);
  entity.copyMimeBody(out, quiet);
  EXPECT_EQ(out.view(), "\xC4\xC4");
  entity.extractMimeBody(out, quiet);
  EXPECT_EQ(out.view(), "\xC4");
  EXPECT_TRUE(entity.getMimeBodyDb()->isEmpty());
  entity.setMimeBodyBinary2(reinterpret_cast<const unsigned char*>("xy"), 2, quiet);
  EXPECT_EQ(entity.getMimeBodyDb()->view(), "xy");
  entity.setMimeBodyBinary2(nullptr, 0, quiet);
  EXPECT_TRUE(entity.getMimeBodyDb()->isEmpty());
}

TEST(MimeMessage, the_message_class_is_among_the_traits) {
  const auto entity = message("Content-Type: text/plain\nContent-Class: URN:content-classes:message\n\n");
  EXPECT_TRUE(judgeAttachment(entity->traits(), /*inMixed=*/true).isAttachment);
  EXPECT_FALSE(entity->isAttachment(quiet));
}

TEST(MimeMessage, each_way_of_loading_replaces_what_was_there) {
  const auto entity = message("Content-Type: multipart/mixed; boundary=b\nContent-ID: x\n\n--b\n\na\n--b\n");
  StringBuffer scratch;
  DataBuffer bytes;
  bytes.append("Subject: db\n\nc", 14);
  ASSERT_TRUE(entity->loadMimeComplete(StringBuffer("Subject: sb\n\na"), quiet, false));
  EXPECT_EQ(header(*entity) + entity->getContentType(), "Subject: sb");
  EXPECT_EQ(entity->getNumParts(), 0);
  EXPECT_TRUE(entity->repairs().isEmpty());
  ASSERT_TRUE(entity->loadMimeCompleteDb(bytes, quiet));
  EXPECT_EQ(entity->getMimeBodyDb()->view(), "c");
  EXPECT_EQ(bytes.getSize(), 14u);
  ASSERT_TRUE(entity->loadMimeComplete2(nullptr, 7, true, scratch, quiet, false));
  EXPECT_EQ(entity->header().getNumFields(), 0);
}

TEST(MimeMessage, content_of_another_entity_begins_with_its_first_byte) {
  int parts = kMaxParts;
  const auto read = [&](const std::string& text) {
    MimeMessage2 entity;
    EXPECT_TRUE(entity.loadContent(text, /*level=*/2, /*origin=*/0, parts, quiet));
    return entity.getContentType() + "|"s + std::string(entity.getMimeBodyDb()->view());
  };
  const Row rows[] = {{"Content-Type: text/html\n\nx", "text/html|x"},
                      {"\nContent-Type: text/html\n\nx", "|Content-Type: text/html\n\nx"},
                      {"From me Sat\nContent-Type: text/html\n\nx", "text/html|x"}};
  expectEach(read, rows);
  MimeMessage2 deep;
  deep.loadContent("Content-Type: multipart/mixed; boundary=b\n\n--b\n\nx\n--b--\n", kMaxDepth, /*origin=*/0,
                   parts, quiet);
  EXPECT_EQ(deep.getNumParts(), 0) << "no deeper than the tree it is in may be";
  EXPECT_TRUE(deep.limits().has(Limit::depth));
}

TEST(MimeMessage, takes_over_what_another_entity_holds_but_not_who_sent_it) {
  const auto outer = message(
      "Subject: out\nContent-Type: image/png; name=a\nContent-Transfer-Encoding: base64\n"
      "Content-Disposition: attachment; filename=a\nContent-ID: <a>\nX-A: 1\n\nAAAA");
  const auto inner = message(
      "Subject: in\ncontent-type: multipart/mixed;\n\tboundary=b\nX-B: 2\nContent-X: "
      "grüß\n\n--b\n\nx\n--b--\n");
  outer->adoptContent(*inner);
  EXPECT_EQ(header(*outer),
            "Subject: out\r\nX-A: 1\r\ncontent-type: multipart/mixed;\r\n\tboundary=b\r\n"
            "Content-X: =?utf-8?Q?gr=C3=BC=C3=9F?=");
  expectFieldsAgree(*outer);
  EXPECT_EQ(outer->getNumParts(), 1);
  EXPECT_TRUE(outer->getMimeBodyDb()->isEmpty());
}

TEST(MimeMessage, is_parsed_anew_from_the_bytes_it_was_received_as) {
  const auto tree = message(
      "Content-Type: multipart/signed; boundary=o\n\n--o\nContent-Type: multipart/signed; boundary=i\n\n"
      "--i\n\nx\n--i\n\ny\n--i--\n\n--o\n\nz\n--o--\n");
  MimeMessage2& inner = *tree->getPart(0);
  const std::string received(inner.receivedBytes()->view());
  EXPECT_FALSE(inner.getPart(0)->receivedBytes());
  int parts = kMaxParts;
  ASSERT_TRUE(inner.reloadReceived(/*level=*/2, parts, quiet));
  EXPECT_EQ(inner.receivedBytes()->view(), received);
  ASSERT_TRUE(inner.getPart(0)->receivedBytes());
  EXPECT_EQ(inner.getPart(0)->receivedBytes()->view(), "\nx");
  EXPECT_FALSE(tree->reloadReceived(1, parts, quiet)) << "it has none";
}

TEST(MimeMessage, a_tree_of_any_depth_is_destroyed_without_recursion) {
  auto top = Owned<MimeMessage2>(MimeMessage2::createNewObject());
  for (int i = 0; i < 200'000; ++i) {
    MimeMessage2* above = MimeMessage2::createNewObject();
    above->addPart(top.release());
    top.reset(above);
  }
}

}  // namespace
}  // namespace mailtree
