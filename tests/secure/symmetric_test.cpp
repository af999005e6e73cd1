#include <gtest/gtest.h>

#include "mailtree/crypto/SymmetricCipher.h"
#include "mailtree/mime/coding/ContentCoding.h"
#include "tests/support/dead_node.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

constexpr const char* kMark = "x-original-encoding";

class Symmetric : public ::testing::Test {
 protected:
  Symmetric() { m_settings.setKey("0123456789abcdef"); }
  bool encrypt(Email2& mail) { return mail.aesStandardEncryptAnsi(m_cipher, m_settings, m_log); }
  bool decrypt(Email2& mail, bool isBinary = false) {
    return mail.aesStandardDecryptAnsi(m_cipher, isBinary, m_settings, m_log);
  }

  SymmetricCipher m_cipher;
  _svSymSettings m_settings;
  LogMemory m_log;
};

TEST_F(Symmetric, bodies_and_encodings_come_back_and_the_mark_goes) {
  for (const CipherMode mode : {CipherMode::cbc, CipherMode::gcm}) {
    m_settings.m_mode = mode;
    const EmailPtr mail =
        buildTree("mixed(plain[enc=quoted-printable,body=Hello],calendar[body=],pdf[enc=binary]:attachment)");
    const std::string before = write(*mail);
    ASSERT_TRUE(encrypt(*mail)) << m_log.text();
    EXPECT_EQ(field(*mail, kMark), "(absent)") << "it has no body";
    EXPECT_EQ(field(*mail->getPart(0), kMark), "quoted-printable");
    EXPECT_EQ(field(*mail->getPart(1), kMark), "(absent)");
    EXPECT_EQ(field(*mail->getPart(0), "Content-Transfer-Encoding"), "base64");
    EXPECT_TRUE(ContentCoding::isBase64(mail->getPart(2)->m_body.view()));
    const EmailPtr travelled = load(write(*mail));
    ASSERT_TRUE(decrypt(*mail) && decrypt(*travelled)) << m_log.text();
    EXPECT_EQ(write(*mail), before);
    EXPECT_EQ(travelled->getPart(0)->m_body.view(), "Hello");
    EXPECT_EQ(field(*travelled->getPart(0), kMark), "(absent)");
    EXPECT_EQ(travelled->getPart(2)->m_transferEncoding.view(), "binary");
  }
}

TEST_F(Symmetric, ciphertext_is_written_as_it_is_in_any_charset) {
  for (const int codePage : {28591, 1200, 50220, 65000}) {
    const EmailPtr mail = buildTree("html[body=<p>x</p>]");
    mail->use_codepage(codePage);
    ASSERT_TRUE(encrypt(*mail));
    StringBuffer twice;
    ContentCoding::encodeBase64(mail->m_body.getData2(), mail->m_body.getSize(), twice);
    const std::string written = write(*mail);
    EXPECT_EQ(written.substr(written.find("\r\n\r\n") + 4), twice.view()) << codePage;
    const EmailPtr travelled = load(written);
    EXPECT_TRUE(decrypt(*travelled)) << codePage;
    EXPECT_EQ(travelled->m_body.view(), "<p>x</p>") << codePage;
  }
}

TEST_F(Symmetric, ciphertext_under_any_label_loads_as_it_was_written) {
  for (const std::string label : {"text/plain; charset=utf-16\nContent-Transfer-Encoding: base64\n\nAG8AbABk",
                                  "text/plain; charset=utf-7\n\nold", "multipart/alternative\n\nold",
                                  "multipart/alternative\nContent-Transfer-Encoding: base64\n\nb2xk"}) {
    const EmailPtr mail = load("Content-Type: " + label);
    ASSERT_TRUE(encrypt(*mail)) << label;
    const EmailPtr travelled = load(write(*mail));
    EXPECT_TRUE(decrypt(*travelled)) << label;
    EXPECT_EQ(travelled->m_body.view(), "old") << label;
    EXPECT_EQ(load(write(*travelled))->m_body.view(), "old") << label;
  }
}

TEST_F(Symmetric, gcm_opens_a_body_only_with_its_key_in_its_place_and_as_its_type) {
  m_settings.m_mode = CipherMode::gcm;
  const std::pair<const char*, void (*)(Email2&)> rows[] = {
      {"moved", [](Email2& mail) { mail.insertSubPartAtIndex(mail.extractSubpartByIndex(0), -1); }},
      {"another type",
       [](Email2& mail) {
         LogNull log;
         mail.getPart(0)->fixContentTypeUtf8("text/html", log);
       }},
      {"taken out", [](Email2& mail) { mail.getPart(1)->m_body.clear(); }},
  };
  for (const auto& [name, change] : rows) {
    const EmailPtr mail = buildTree("mixed(plain[body=one],plain[body=two])");
    ASSERT_TRUE(encrypt(*mail));
    change(*mail);
    EXPECT_FALSE(decrypt(*mail)) << name;
  }
  m_settings.m_bindsBodies = false;
  const EmailPtr old = buildTree("plain[body=one]");
  ASSERT_TRUE(encrypt(*old));
  const EmailPtr same = load(write(*old));
  EXPECT_TRUE(decrypt(*same));
  const std::string before(old->m_body.view());
  m_settings.setKey("0123456789abcdeF");
  EXPECT_FALSE(decrypt(*old));
  EXPECT_EQ(old->m_body.view(), before);
  EXPECT_EQ(m_log.entries().back().kind, LogEntry::Kind::ContextClose);
  m_settings.setKey("0123456789abcdef");
  m_settings.m_bindsBodies = true;
  EXPECT_FALSE(decrypt(*old));
}

TEST_F(Symmetric, deliberately_nodes_done_before_a_failure_stay_changed) {
  const EmailPtr mail = buildTree("mixed(plain,html)");
  ASSERT_TRUE(encrypt(*mail));
  mail->getPart(1)->m_body.clear();
  mail->getPart(1)->m_body.append("no whole block");
  EXPECT_FALSE(decrypt(*mail));
  EXPECT_EQ(mail->getPart(0)->m_body.view(), "plain");
  EXPECT_EQ(mail->getPart(1)->m_body.view(), "no whole block");
}

TEST_F(Symmetric, ciphertext_that_is_no_base64_text_or_said_to_be_binary_is_taken_as_it_is) {
  for (const bool isBinary : {false, true}) {
    Email2 mail;
    DataBuffer plain;
    plain.append("Hello");
    ASSERT_TRUE(m_cipher.encryptAll(m_settings, plain, mail.m_body, m_log));
    EXPECT_TRUE(decrypt(mail, isBinary));
    EXPECT_EQ(mail.m_body.view(), "Hello");
    EXPECT_TRUE(mail.m_transferEncoding.isEmpty()) << "no former one is known";
  }
}

TEST_F(Symmetric, an_empty_body_decrypts_to_an_empty_body) {
  Email2 mail;
  mail.setHeaderField(kMark, "8bit", m_log);
  EXPECT_TRUE(decrypt(mail));
  EXPECT_TRUE(mail.m_body.isEmpty());
  EXPECT_EQ(mail.m_transferEncoding.view(), "8bit");
}

TEST_F(Symmetric, a_destroyed_node_stops_the_walk) {
  const EmailPtr mail = buildTree("mixed(plain,html)");
  const Killed killed(*mail->getPart(0));
  EXPECT_FALSE(encrypt(*mail));
  EXPECT_FALSE(decrypt(*mail));
  EXPECT_EQ(mail->getPart(1)->m_body.view(), "html");
}

}  // namespace
}  // namespace mailtree
