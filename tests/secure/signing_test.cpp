#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "mailtree/email/internal.h"
#include "tests/secure/secure_mail.h"
#include "tests/support/dead_node.h"
#include "tests/support/fields.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class Signing : public ::testing::Test {
 protected:
  EmailPtr detached(Email2& mail, const char* filename = "smime.p7s") {
    return EmailPtr(mail.createMultipartSigned(true, true, true, m_cades, filename, m_people.certs, m_log));
  }
  EmailPtr opaqueOf(Email2& mail) {
    return EmailPtr(mail.createSignedData(true, true, true, m_cades, "smime.p7m", m_people.certs, m_log));
  }
  std::string log() const { return m_log.text(); }

  Identities m_people{"alice", "bob"};
  _clsCades m_cades;
  LogMemory m_log;
};

/// The first part of a written multipart/signed.
std::string contentOf(const Email2& outer, const std::string& written) {
  const std::string boundary = "--" + std::string(outer.m_contentType.m_boundary.view());
  const std::size_t begin = written.find(boundary + "\r\n") + boundary.size() + 2;
  return written.substr(begin, written.find("\r\n" + boundary, begin) - begin);
}

TEST_F(Signing, detached_signature_covers_the_message_as_it_would_be_written) {
  const EmailPtr mail = letter("alice", "bob", "Hello\r\n");
  const std::string plain = write(*mail, {.omitPrefix = "SVX-"});
  const EmailPtr outer = detached(*mail);
  ASSERT_TRUE(outer) << log();
  EXPECT_EQ(printTree(outer), "signed(plain,p7s:attachment)");
  const std::string written = write(*outer, {.omitPrefix = "SVX-"});
  EXPECT_EQ(contentOf(*outer, written), plain);
  EXPECT_EQ(writeToSink(*outer, {.omitPrefix = "SVX-"}), written);
  EXPECT_EQ(write(*mail, {.omitPrefix = "SVX-"}), plain) << "the message itself stays";
  EXPECT_THAT(written, HasSubstr("protocol=\"application/pkcs7-signature\""));
  EXPECT_THAT(written, HasSubstr("name=\"smime.p7s\""));
}

TEST_F(Signing, whatever_is_signed_verifies_when_it_comes_back) {
  struct {
    const char* what;
    std::string message;
  } const rows[] = {
      {"no body", ""},
      {"one byte", "x"},
      {"bare LF", "one\ntwo\n"},
      {"blanks at line ends", "one  \r\n \r\ntwo\t\r\n"},
      {"no final line break", "one\r\ntwo"},
      {"empty lines at the end", "one\r\n\r\n\r\n"},
      {"dots", ".\r\n..\r\n.x"},
      {"from", "From me\r\n>From you"},
      {"a boundary of nobody", "--x\r\n--x--\r\n"},
      {"uuencoded", "begin 644 a.txt\r\n#0V%T\r\n`\r\nend\r\n"},
      {"nul", std::string("a\0b\r\n", 5)},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = letter("alice", "bob", row.message);
    for (const bool isDetached : {true, false}) {
      const EmailPtr signedMail = isDetached ? detached(*mail) : opaqueOf(*mail);
      ASSERT_TRUE(signedMail) << row.what << log();
      const std::string written = write(*signedMail, {.omitPrefix = "SVX-"});
      const EmailPtr received = receive(written, m_people.certs);
      EXPECT_EQ(layersOf(*received), isDetached ? "detached-signature 1 valid" : "opaque-signature 1 valid")
          << row.what;
      EXPECT_EQ(write(*load(written), {.omitPrefix = "SVX-"}), written) << row.what << " is kept by writing";
      EXPECT_EQ(received->m_common->m_secureLayers.at(0).signers.at(0).addressMatches, Answer::yes)
          << row.what;
      const auto isForeign = [](const InnerField& f) { return f.name != "SVX-Bounce-Address"; };
      EXPECT_TRUE(std::ranges::none_of(received->m_common->m_innerFields, isForeign)) << row.what;
    }
  }
}

TEST_F(Signing, trees_and_charsets_verify_when_they_come_back) {
  for (const char* tree : {"mixed(plain,pdf:attachment)", "related(html,png)", "alternative(plain,html)",
                           "mixed(rfc822,zip[enc=base64]:attachment)"}) {
    for (const int codePage : {0, 28591, 50220, 65001}) {
      const EmailPtr mail = buildTree(tree);
      mail->use_codepage(codePage);
      mail->setFromFullUtf8("=?utf-8?Q?J=C3=BCrgen?= <alice@example.com>", m_log);
      const EmailPtr outer = detached(*mail);
      ASSERT_TRUE(outer) << tree << log();
      const EmailPtr received = receive(write(*outer), m_people.certs);
      EXPECT_TRUE(received->getAllSignaturesValid()) << tree << " in " << codePage;
    }
  }
}

TEST_F(Signing, changes_nothing_of_the_shared_settings_but_the_certificate) {
  const EmailPtr mail = letter("alice", "bob", "Gr\xC3\xBC\xC3\x9F\x65\r\n");
  _svEmailCommon& common = *mail->m_common;
  common.m_charset.setByName("latin1");
  common.m_sendSigned = common.m_sendEncrypted = true;
  common.m_idOnServer = 7;
  common.m_limits.add(Limit::parts);
  common.m_receivedSecure = true;
  common.m_numEncryptedLayers = 3;
  common.m_secureLayers.resize(2);
  for (const bool isDetached : {true, false}) {
    ASSERT_TRUE(isDetached ? detached(*mail) : opaqueOf(*mail)) << log();
    EXPECT_STREQ(common.m_charset.getName(), "latin1");
    EXPECT_TRUE(common.m_sendSigned && common.m_sendEncrypted && common.m_receivedSecure);
    EXPECT_EQ(common.m_idOnServer, 7);
    EXPECT_EQ(common.m_numEncryptedLayers, 3);
    EXPECT_EQ(common.m_secureLayers.size(), 2u);
    EXPECT_TRUE(common.m_limits.has(Limit::parts));
  }
  EXPECT_EQ(common.m_signingCert, m_people["alice"]);
}

TEST_F(Signing, is_done_with_the_certificate_set_else_with_the_one_of_the_sender) {
  const EmailPtr mail = letter("alice", "bob", "x");
  ASSERT_TRUE(detached(*mail));
  EXPECT_THAT(log(), HasSubstr("Searching for certificate based on email address..\n"));
  const int references = m_people["alice"]->refCount();
  m_log.clear();
  const EmailPtr second(Email2::createNewObject(*mail->m_common));
  ASSERT_TRUE(detached(*second)) << "no sender is needed any more";
  EXPECT_THAT(log(), HasSubstr("Using pre-specified certificate."));
  EXPECT_THAT(log(), Not(HasSubstr("Searching")));
  EXPECT_EQ(m_people["alice"]->refCount(), references);
  mail->setSigningCert(m_people["alice"]);
  EXPECT_EQ(m_people["alice"]->refCount(), references) << "the same again";
  mail->setSigningCert(m_people["bob"]);
  EXPECT_EQ(m_people["alice"]->refCount(), references - 1);
  EXPECT_EQ(mail->getSigningCert(m_log), m_people["bob"]);
}

TEST_F(Signing, fails_with_a_reason) {
  const EmailPtr stranger = letter("nobody", "bob", "x");
  EXPECT_FALSE(detached(*stranger));
  EXPECT_THAT(log(), HasSubstr("Failed to find certificate for detached digital signature"));
  EXPECT_THAT(log(), HasSubstr("nobody@example.com"));
  m_log.clear();
  EXPECT_FALSE(opaqueOf(*stranger));
  EXPECT_THAT(log(), HasSubstr("Failed to find certificate for digital signature"));
  EXPECT_THAT(log(), Not(HasSubstr("Searching")));

  const EmailPtr mail = letter("alice", "bob", "x");
  mail->setMicalg("sha-3000", m_log);
  m_log.clear();
  EXPECT_FALSE(detached(*mail));
  EXPECT_FALSE(opaqueOf(*mail)) << "label and digest never differ";
  EXPECT_THAT(log(), HasSubstr("Failed to create digitally signed email."));

  LogMemory quiet;
  m_log.clear();
  const Killed killed(*mail);
  EXPECT_FALSE(detached(*mail));
  EXPECT_FALSE(opaqueOf(*mail));
  EXPECT_EQ(countMessages(m_log), 0);
}

TEST_F(Signing, label_and_digest_are_the_ones_asked_for) {
  const struct {
    const char *micalg, *label, *digest;
  } rows[] = {
      {"", "micalg=sha1", "sha1"},
      {"sha-256", "micalg=sha-256", "sha256"},
      {"SHA 512", "micalg=\"SHA 512\"", "sha512"},
      {" sha384 ", "micalg=sha384", "sha384"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = letter("alice", "bob", "x");
    if (*row.micalg) mail->setMicalg(row.micalg, m_log);
    for (const bool isDetached : {true, false}) {
      const EmailPtr signedMail = isDetached ? detached(*mail) : opaqueOf(*mail);
      ASSERT_TRUE(signedMail) << row.micalg << log();
      EXPECT_THAT(std::string(fieldOf(*signedMail, "Content-Type")), HasSubstr(row.label)) << row.micalg;
      const EmailPtr received = receive(write(*signedMail), m_people.certs);
      EXPECT_EQ(received->m_common->m_secureLayers.at(0).signers.at(0).digest, row.digest) << row.micalg;
    }
  }
}

TEST_F(Signing, deliberately_micalg_keeps_its_blanks_and_protocol_loses_them) {
  Email2 mail;
  mail.m_contentType.m_protocol.setString(" p ");
  mail.setMicalg(" sha1 ", m_log);
  StringBuffer micalg;
  mail.getMicalg(micalg);
  EXPECT_EQ(micalg.view(), " sha1 ");
  EXPECT_EQ(mail.m_contentType.m_protocol.view(), "p");
}

TEST_F(Signing, internal_fields_are_left_out_of_a_detached_content_alone) {
  const EmailPtr mail = letter("alice", "bob", "x");
  mail->setHeaderField("SVX-Bounce-Address", "bounces@example.com", m_log);
  const EmailPtr outer = detached(*mail);
  EXPECT_EQ(field(*outer->getPart(0), "SVX-Bounce-Address"), "(absent)");
  EXPECT_EQ(field(*outer, "SVX-Bounce-Address"), "bounces@example.com");
  EXPECT_EQ(
      outer->m_header.findField("SVX-Bounce-Address", outer->m_header.findField("SVX-Bounce-Address") + 1),
      -1)
      << "once";
  EXPECT_THAT(std::string(opaqueOf(*mail)->m_body.view()), HasSubstr("SVX-Bounce-Address: bounces@"));
}

TEST_F(Signing, outer_header_has_what_a_reader_needs) {
  const EmailPtr mail = letter("alice", "bob", "x");
  mail->addRecipient(3, "", "carol@example.com", m_log);
  mail->setHeaderField("Disposition-Notification-To", "alice@example.com", m_log);
  mail->setContentDispositionUtf8("attachment", "a.txt", m_log);
  const EmailPtr outer = detached(*mail);
  for (const char* gone : {"Disposition-Notification-To", "Content-Transfer-Encoding", "Content-Disposition"})
    EXPECT_EQ(field(*outer, gone), "(absent)") << gone;
  for (const char* kept : {"From", "To", "Subject", "Date", "Message-ID", "MIME-Version"})
    EXPECT_EQ(field(*outer, kept), field(*mail, kept)) << kept;
  EXPECT_EQ(outer->getNumRecipients(1), 1);
  EXPECT_EQ(outer->getNumRecipients(3), 1) << "as a record";
  EXPECT_EQ(field(*outer, "Bcc"), "(absent)");
  EXPECT_EQ(fieldNames(*outer->getPart(1)),
            (std::vector<std::string>{"Content-Transfer-Encoding", "Content-Type", "Content-Disposition"}));
}

TEST_F(Signing, attachments_are_announced) {
  const struct {
    const char *tree, *mark;
  } rows[] = {{"plain", "(absent)"}, {"mixed(plain,pdf:attachment)", "yes"}};
  for (const auto& row : rows) {
    const EmailPtr mail = buildTree(row.tree);
    mail->setFromFullUtf8("alice@example.com", m_log);
    EXPECT_EQ(field(*detached(*mail), "X-MS-Has-Attach"), row.mark) << row.tree;
  }
}

TEST_F(Signing, signed_content_is_written_anew_once_it_changed) {
  const EmailPtr outer = detached(*letter("alice", "bob", "Hello"));
  outer->getPart(0)->m_body.append("!");
  EXPECT_EQ(layersOf(*receive(write(*outer), m_people.certs)), "detached-signature 1 invalid");
}

TEST_F(Signing, copied_fields_leave_out_those_of_the_content) {
  Email2 target;
  MimeHeader source;
  source.loadMimeHeaderText(
      "Subject: a\r\ncontent-DISPOSITION: inline\r\nX-A: 1\r\nX-A: 2\r\nContent-Transfer-Encoding: 8bit\r\n"
      "disposition-notification-to: a@b.c\r\nContent-Description: d\r\n",
      m_log);
  const int before = target.getNumHeaderFields();
  EXPECT_TRUE(target.copyHeadersForMultipartSigned(source, m_log));
  EXPECT_EQ(target.getNumHeaderFields(), before + 4);
  EXPECT_EQ(field(target, "Content-Description"), "d");
  EXPECT_EQ(field(target, "Content-Transfer-Encoding"), "7bit") << "its own";
}

}  // namespace
}  // namespace mailtree
