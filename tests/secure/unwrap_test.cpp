#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "mailtree/mime/MimeMessage2.h"
#include "tests/secure/secure_mail.h"
#include "tests/support/dead_node.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

const std::string kTop = "From: Alice <alice@example.com>\r\nTo: bob@example.com\r\nMIME-Version: 1.0\r\n";

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  return text.replace(text.find(from), from.size(), to);
}

/// For somebody who is not here.
std::string lose(const std::string& content) { return seal(content, "carol"); }

class Unwrapping : public ::testing::Test {
 protected:
  EmailPtr receive(const std::string& entity, LogBase* log = nullptr) {
    return mailtree::receive(kTop + entity, m_people.certs, log);
  }

  Identities m_people{"alice", "bob"};
  LogNull m_log;
};

TEST_F(Unwrapping, layers_come_off_in_any_order) {
  const std::tuple<std::string, const char*, const char*> rows[] = {
      {kText, "plain", ""},
      {sign(seal(kText)), "plain", "detached-signature 1 valid; enveloped 1 open"},
      {sign(sign(sign(kText))), "plain",
       "detached-signature 1 valid; detached-signature 1 valid; detached-signature 1 valid"},
      {wrap(seal(sign(multipart("mixed", {kText, kText})))), "mixed(plain,plain)",
       "opaque-signature 1 valid; enveloped 1 open; detached-signature 1 valid"},
      {multipart("alternative", {kText, sign(seal(kText))}), "alternative(plain,plain)",
       "detached-signature 1.2 valid but not 1.1; enveloped 1.2 open"},
      {sign(multipart("mixed", {seal(kText), kText})), "mixed(plain,plain)",
       "detached-signature 1 valid; enveloped 1.1 open"},
      {sign(multipart("related", {kText, multipart("mixed", {kText, sign(kText)})})),
       "related(plain,mixed(plain,plain))",
       "detached-signature 1 valid; detached-signature 1.2.2 valid but not 1.1 but not 1.2.1"},
      // Deliberate: nothing below a mixed root is opened by loading.
      {multipart("mixed", {multipart("related", {sign(kText)}), seal(kText)}),
       "mixed(related(signed(plain,p7s)),application/pkcs7-mime:attachment)", ""},
  };
  for (const auto& [entity, tree, layers] : rows) {
    const EmailPtr mail = receive(entity);
    EXPECT_EQ(printTree(mail), tree);
    EXPECT_EQ(layersOf(*mail), layers);
  }
}

TEST_F(Unwrapping, works_in_a_mixed_root_for_those_who_ask_the_tree_itself) {
  MimeMessage2 tree;
  tree.loadText(kTop + multipart("mixed", {sign(kText), kText, seal(kText)}), m_log);
  UnwrapInfo info, again;
  _clsCades cades;
  tree.unwrapSecurity3(info, cades, m_people.certs, m_log);
  EXPECT_TRUE(info.m_hasSecureLayer && info.m_allSignaturesValid && info.m_allDataDecrypted);
  EXPECT_EQ(info.m_numSigned * 10 + info.m_numEncrypted, 11);
  EXPECT_STREQ(tree.getPart(0)->getContentType(), "text/plain");
  EXPECT_EQ(info.m_signerCerts.getSize() * 10 + info.m_decryptCerts.getSize(), 11);
  tree.getPart(0)->unwrapSecurity3(again, cades, m_people.certs, m_log);
  tree.unwrapSecurity3(again, cades, m_people.certs, m_log);
  EXPECT_TRUE(again.m_layers.empty()) << "nothing is looked at twice";
}

TEST_F(Unwrapping, forms_in_which_layers_travel) {
  const std::string sealed = envelope(kText, {{"bob"}}), signature = sign(kText);
  const std::string bare = replaced(pkcs7Mime(sealed, "x"), "; name=smime.p7m; smime-type=x", "");
  const std::string octets = replaced(bare, "pkcs7-mime", "octet-stream");
  const std::string signatureFile =
      "Content-Type: application/octet-stream; name=smime.p7s\r\nContent-Disposition: attachment\r\n\r\n";
  const std::string apart = signedBlob(kText, {{"alice"}, true});
  const std::pair<const char*, std::vector<std::string>> rows[] = {
      {"enveloped 1 open",
       {replaced(pkcs7Mime(sealed, "enveloped-data"), "pkcs7-mime", "x-pkcs7-mime"),
        bare,  // nothing but the type
        pkcs7Mime(sealed, "signed-data"), replaced(octets, "attachment;", "inline;"),
        replaced(replaced(octets, "octet-stream", "octet-stream; name=SMIME.P7M"), "=smime.p7m",
                 "=att1.dat")}},
      {"opaque-signature 1 valid", {signatureFile + signedBlob(kText)}},
      {"",  // a signature of something else, another name, other octets
       {signatureFile + apart, replaced(octets, "=smime.p7m", "=a.bin"),
        replaced(pkcs7Mime("MZ\1", "x"), "pkcs7-mime", "octet-stream")}},
      {"detached-signature 1 valid",
       {replaced(signature, "/pkcs7-signature; name", "/x-pkcs7-signature; name"),
        replaced(signature, "protocol=\"application/pkcs7-signature\"; ", ""),
        replaced(signature, "/pkcs7-signature; name", "/octet-stream; name")}},
      {"opaque-signature 1 invalid", {pkcs7Mime("nonsense", "signed-data")}},
      {"enveloped 1 closed", {pkcs7Mime("nonsense", "enveloped-data")}},
      {"auth-enveloped 1 closed", {pkcs7Mime("", "authenveloped-data")}},
      {"detached-signature 1 invalid",  // one that is none, and two without a content
       {signedAs(kText, "nonsense"), pkcs7Mime(apart, "signed-data"),
        "Content-Type: multipart/signed; protocol=\"application/pkcs7-signature\"; boundary=b\r\n\r\nx"}},
  };
  for (const auto& [layers, entities] : rows)
    for (const std::string& entity : entities) EXPECT_EQ(layersOf(*receive(entity)), layers) << entity;
}

TEST_F(Unwrapping, what_cannot_be_opened_stays_wholly_and_is_counted_once) {
  const std::tuple<std::string, const char*, const char*> rows[] = {
      {lose(kText), "application/pkcs7-mime:attachment", "0 signed, 1 encrypted, valid, not all decrypted"},
      {signedAs(kText, "nonsense"), "signed(plain,p7s)", "1 signed, 0 encrypted, invalid, decrypted"},
      {multipart("alternative", {kText, signedAs(lose(kText), "nonsense")}),
       "alternative(plain,signed(application/pkcs7-mime:attachment,p7s))",
       "1 signed, 1 encrypted, invalid, not all decrypted"},
  };
  for (const auto& [entity, tree, sum] : rows) {
    const EmailPtr mail = receive(entity);
    EXPECT_EQ(printTree(mail), tree);
    EXPECT_EQ(sumOf(*mail), sum) << tree;
    EXPECT_EQ(write(*mail), write(*load(kTop + entity))) << tree;
  }
}

TEST_F(Unwrapping, signatures_of_others_are_left_alone_but_what_they_hold_is_opened) {
  const auto pgp = [](const std::string& content) {
    return multipart("signed; protocol=\"application/pgp-signature\"",
                     {content, "Content-Type: application/pgp-signature\r\n\r\nx"});
  };
  EXPECT_EQ(layersOf(*receive(pgp(kText))), "");
  const EmailPtr inside = receive(pgp(sign(kText)));
  EXPECT_EQ(layersOf(*inside), "detached-signature 1.1 valid but not 1.2")
      << "over bytes that the first parse did not keep";
  EXPECT_EQ(printTree(inside), "signed(plain,application/pgp-signature)");
  EXPECT_THAT(write(*inside), Not(HasSubstr("pkcs7"))) << "what is written is what is in the tree";
  const std::string lost = pgp(lose(kText));
  const EmailPtr closed = receive(lost);
  EXPECT_EQ(layersOf(*closed), "enveloped 1.1 closed");
  EXPECT_EQ(write(*closed), write(*load(kTop + lost))) << "nothing changed, so its bytes are kept";
}

TEST_F(Unwrapping, lines_of_a_stored_message_count_as_those_that_travelled) {
  const auto lf = [](std::string text) {
    std::erase(text, '\r');
    return text;
  };
  const auto signedOver = [](const std::string& content) { return signedBlob(content, {{"alice"}, true}); };
  const std::tuple<const char*, std::string, const char*> rows[] = {
      {"signed with CRLF, stored with LF", lf(kTop + sign(kText)), "valid"},
      {"signed and stored with LF", lf(kTop + sign(lf(kText))), "valid"},
      {"signed with LF, travelled with CRLF", kTop + signedAs(kText, signedOver(lf(kText))), "invalid"},
      {"one CR is enough to take it as it is",
       kTop + signedAs(lf(kText) + "\r\n", signedOver(kText + "\r\n")), "invalid"},
  };
  for (const auto& [what, message, verdict] : rows)
    EXPECT_EQ(layersOf(*mailtree::receive(message, m_people.certs)),
              std::string("detached-signature 1 ") + verdict)
        << what;
}

TEST_F(Unwrapping, bytes_are_taken_as_received) {
  const std::string odd =
      "content-TYPE:Text/Plain;\r\n\tcharset = us-ascii (odd)\r\nX-Odd:a  b \r\n\r\n dots \r\n.\r\n\t";
  EXPECT_EQ(layersOf(*receive(sign(sign(odd)))), "detached-signature 1 valid; detached-signature 1 valid");
  EXPECT_EQ(layersOf(*receive(sign(""))), "detached-signature 1 valid") << "an empty content";
  std::string unclosed = sign(odd);
  unclosed.resize(unclosed.rfind("\r\n--"));
  EXPECT_EQ(layersOf(*receive(unclosed)), "detached-signature 1 valid") << "no end";
}

TEST_F(Unwrapping, content_fields_come_from_inside_and_all_others_stay) {
  const std::string inner =
      "Content-Type: text/html; charset=utf-8\r\nContent-Language: de\r\nSubject: inside\r\nFrom: Alice\r\n "
      "<alice@example.com>\r\nX-Inner: 1\r\nMIME-Version: 1.0\r\n\r\n<p>";
  for (const std::string& entity : {sign(inner), wrap(inner), seal(inner)}) {
    const EmailPtr mail = receive("Subject: outside\r\nContent-Description: layer\r\n" + entity);
    EXPECT_EQ(field(*mail, "Subject"), "outside");
    EXPECT_EQ(field(*mail, "Content-Language"), "de");
    for (const char* gone :
         {"X-Inner", "Content-Disposition", "Content-Description", "Content-Transfer-Encoding"})
      EXPECT_EQ(field(*mail, gone), "(absent)") << gone;
    EXPECT_TRUE(mail->m_disposition.isEmpty() && mail->m_transferEncoding.isEmpty());
    EXPECT_EQ(mail->m_contentType.m_type.view(), "text/html");
    std::string differing;
    for (const InnerField& f : mail->m_common->m_innerFields)
      differing += f.part + " " + f.name + " " + f.inside + "|" + f.outside + "\n";
    EXPECT_EQ(differing, "1 Subject inside|outside\n1 X-Inner 1|\n1 To |bob@example.com\n");
  }
}

TEST_F(Unwrapping, content_that_is_no_mime_entity_becomes_text_and_loses_nothing) {
  const std::string html = "Content-Type: text/html\r\n\r\nx";
  const std::tuple<std::string, const char*, std::string> rows[] = {
      {"Just a text.\r\nTwo lines.", "text/plain", "Just a text.\r\nTwo lines."},
      {"Note: this is no header\r\n\r\nx", "text/plain", "Note: this is no header\r\n\r\nx"},
      {"From me\r\n\r\nx", "text/plain", "From me\r\n\r\nx"},
      {"Dear Bob\r\n" + html, "text/plain", "Dear Bob\r\n" + html},
      {"From: alice@example.com\r\nSubject: Boat\r\n\r\nx", "", "x"},
      {"MIME-Version: 1.0\r\n\r\nx", "", "x"},
      {"", "", ""},
      {"\r\n" + html, "", html},
      {html, "text/html", "x"},
  };
  for (const auto& [content, type, body] : rows) {
    const EmailPtr mail = receive(seal(content));
    EXPECT_EQ(mail->m_contentType.m_type.view(), type) << content;
    EXPECT_EQ(mail->m_body.view(), body) << content;
  }
}

TEST_F(Unwrapping, ten_layers_come_off_and_the_eleventh_stays) {
  std::string entity = kText;
  for (int i = 0; i < kMaxUnwrappedLayers; ++i) entity = i % 3 == 0 ? sign(entity) : seal(entity);
  const EmailPtr ten = receive(entity), eleven = receive(seal(entity));
  EXPECT_EQ(printTree(ten), "plain");
  EXPECT_FALSE(ten->m_common->m_limits.has(Limit::layers));
  EXPECT_FALSE(eleven->m_common->m_secureLayers.back().opened);
  EXPECT_TRUE(eleven->m_common->m_limits.has(Limit::layers));
  EXPECT_EQ(printTree(eleven), "signed(plain,p7s)");
}

TEST_F(Unwrapping, layers_and_attached_messages_share_what_a_message_may_cost) {
  std::string many = "Content-Type: multipart/mixed; boundary=m\n\n";
  for (int i = 0; i < 30'000; ++i) many += "--m\n\n";
  const EmailPtr parts = receive(multipart("related", {wrap(many), wrap(many)}));
  EXPECT_TRUE(parts->m_common->m_limits.has(Limit::parts));
  EXPECT_EQ(parts->getPart(0)->getNumParts(), 29'999);
  EXPECT_LT(parts->getPart(1)->getNumParts(), 20'001);

  // Those that cannot be opened count too, and a message this small has a right to one of its own.
  const std::string closed = "Content-Type: application/pkcs7-mime\r\n\r\nx\r\n";
  const std::string attached =
      "Content-Type: message/rfc822\r\n\r\n" + multipart("related", {closed, closed, closed});
  const EmailPtr outer = receive(multipart("mixed", {attached, attached, attached, attached}));
  for (int i = 0; i < 4; ++i) {
    EXPECT_FALSE(outer->m_common->m_limits.has(Limit::layers)) << i;
    int counter = 0;
    const EmailPtr inner(outer->getAttachedMessage(i, counter, m_people.certs, m_log));
  }
  EXPECT_TRUE(outer->m_common->m_limits.has(Limit::layers));
}

TEST_F(Unwrapping, trees_in_layers_are_no_deeper_than_others) {
  std::string deep = kText;
  for (int i = 0; i < 60; ++i) deep = multipart("mixed", {deep});
  deep = seal(deep);
  for (int i = 0; i < 60; ++i) deep = multipart("related", {deep});
  const EmailPtr mail = receive(deep);
  EXPECT_TRUE(mail->m_common->m_limits.has(Limit::depth));
  EXPECT_THAT(write(*mail), HasSubstr("Pay Bob")) << "the rest is kept as bytes";
}

TEST_F(Unwrapping, is_told_in_the_log) {
  const std::pair<std::string, const char*> rows[] = {
      {kText, ""},
      {sign(kText), "A digitally signed email was received|All signatures are valid|num_parts_signed=1|"},
      {seal(kText), "An encrypted email was received|All data successfully decrypted|num_parts_encrypted=1|"},
      {sign(seal(kText)),
       "A signed and encrypted email was received|All signatures are valid|All data successfully decrypted|"
       "num_parts_signed=1|num_parts_encrypted=1|"},
      {signedAs(kText, signedBlob("x", {{"alice"}, true})),
       "A digitally signed email was received|Not all signatures were valid|num_parts_signed=1|"},
      {pkcs7Mime("", "enveloped-data"),
       "An encrypted email was received|Not all data was decrypted|num_parts_encrypted=1|"},
  };
  for (const auto& [entity, wanted] : rows) {
    LogMemory log;
    receive(entity, &log);
    std::string told;
    for (const LogEntry& e : log.entries())
      if (e.context.ends_with("createFromMimeObject/unwrapSecurity") &&
          e.kind != LogEntry::Kind::ContextClose)
        told += (e.tag.empty() ? "" : e.tag + "=") + e.text + "|";
    EXPECT_EQ(told.substr(std::min(told.find('A'), told.size())), wanted) << log.text();
  }
  LogMemory verbose;
  verbose.m_verboseLogging = true;
  receive(kText, &verbose);
  EXPECT_THAT(verbose.text(), testing::AllOf(HasSubstr("FromHeader"), HasSubstr("ToHeader")));
}

TEST_F(Unwrapping, is_asked_for_by_the_caller_and_done_always_by_one_way_in) {
  const std::string message = kTop + sign(kText);
  SystemCerts& certs = m_people.certs;
  DataBuffer pop3;
  pop3.append(message + ".\r\n");
  const std::function<Email2*(_svEmailCommon&, bool)> ways[] = {
      [&](_svEmailCommon& common, bool unwrap) {
        StringBuffer text(message);
        return Email2::createFromMimeText2(common, text, false, unwrap, certs, m_log, false);
      },
      [&](_svEmailCommon& common, bool unwrap) {
        DataBuffer bytes;
        bytes.append(message);
        return Email2::createFromMimeDb(common, bytes, false, unwrap, certs, m_log, false);
      },
      [&](_svEmailCommon& common, bool unwrap) {
        return Email2::createFromPop3(common, pop3, unwrap, certs, m_log);
      }};
  for (const auto& load : ways) {
    EXPECT_EQ(printTree(EmailPtr(load(*new _svEmailCommon, false))), "signed(plain,p7s)") << &load - ways;
    EXPECT_EQ(printTree(EmailPtr(load(*new _svEmailCommon, true))), "plain") << &load - ways;
  }
  const EmailPtr always(Email2::createFromMimeText2a(*new _svEmailCommon, message.data(),
                                                     static_cast<int>(message.size()), certs, m_log, false));
  EXPECT_EQ(printTree(always), "plain");
}

TEST_F(Unwrapping, certificates_of_all_layers_are_lent_by_index) {
  Identities both{"alice", "bob", "carol"};
  const EmailPtr mail = mailtree::receive(kTop + seal(sign(sign(kText, "carol"))), both.certs);
  EXPECT_EQ(mail->getSignedBy(0, m_log), both["alice"]);
  EXPECT_EQ(mail->getSignedBy(1, m_log), both["carol"]);
  EXPECT_FALSE(mail->getSignedBy(2, m_log) || mail->getEncryptedBy(1, m_log) ||
               mail->getEncryptedBy(-1, m_log));
  EXPECT_EQ(mail->getEncryptedBy(0, m_log), both["bob"]);
}

TEST(SecurityState, the_first_report_decides_and_later_ones_only_take_back) {
  struct Report {
    bool secure, valid, decrypted;
    int numSigned, numEncrypted;
  };
  const std::pair<std::vector<Report>, const char*> rows[] = {
      {{}, "nothing"},
      {{{true, true, true, 1, 0}, {true, false, true, 1, 0}, {true, true, true, 1, 0}},
       "3 signed, 0 encrypted, invalid, decrypted"},
      {{{false, true, true, 1, 1}}, "nothing"},
      {{{true, true, true, 0, 1}, {true, true, false, 0, 1}},
       "0 signed, 2 encrypted, valid, not all decrypted"},
      // Deliberate: a report that counts nothing is followed by another first.
      {{{true, false, false, 0, 1}, {true, true, true, 1, 0}},
       "1 signed, 1 encrypted, valid, not all decrypted"},
  };
  for (const auto& [reports, sum] : rows) {
    Email2 mail;
    for (const Report& r : reports)
      mail.accumulateSecurityInfo(r.secure, r.valid, r.decrypted, r.numSigned, r.numEncrypted);
    EXPECT_EQ(sumOf(mail), sum);
  }
}

TEST(SecurityState, what_was_received_is_told_by_counts_or_by_the_node_itself) {
  const std::tuple<const char*, int, int, bool, bool> rows[] = {
      {"text/plain", 0, 0, false, false},
      {"text/plain", 2, 1, true, true},
      {"application/x-PKCS7-signature", 0, 0, true, false},
      {"application/pkcs7", 0, 0, true, false},
      {"Application/pkcs7", 0, 0, false, false},
      {"application/X-pkcs7-MIME", 0, 0, false, true},
  };
  for (const auto& [type, numSigned, numEncrypted, isSigned, isEncrypted] : rows) {
    Email2 mail;
    mail.m_contentType.m_type.setString(type);
    mail.accumulateSecurityInfo(true, true, true, numSigned, numEncrypted);
    EXPECT_EQ(mail.getReceivedSigned(), isSigned) << type << numSigned;
    EXPECT_EQ(mail.getReceivedEncrypted(), isEncrypted) << type << numSigned;
  }
}

TEST(SecurityState, a_destroyed_node_answers_the_plain_questions_and_does_nothing) {
  Identities people{"alice"};
  _clsCades cades;
  LogMemory log;
  const EmailPtr mail = letter("alice", "alice", "x");
  mail->setSendSigned(true);
  mail->accumulateSecurityInfo(true, true, true, 1, 1);
  mail->addEncryptCert(people["alice"]);
  CertificateHolder::appendNewCertHolder(people["alice"], mail->m_common->m_signerCerts, log);
  const Killed killed(*mail);
  mail->setSendSigned(false);
  mail->setSendEncrypted(true);
  mail->clearEncryptCerts();
  mail->setSigningCert(people["alice"]);
  mail->accumulateSecurityInfo(true, false, false, 1, 1);
  EXPECT_TRUE(mail->getSendSigned());
  EXPECT_EQ(sumOf(*mail), "1 signed, 1 encrypted, valid, decrypted");
  EXPECT_FALSE(mail->getSendEncrypted());
  EXPECT_EQ(mail->m_common->m_encryptCerts.getSize(), 1);
  EXPECT_FALSE(mail->getReceivedSigned() || mail->getReceivedEncrypted());
  EXPECT_FALSE(mail->getSigningCert(log) || mail->getEncryptCert(log) || mail->getSignedBy(0, log));
  EXPECT_FALSE(mail->createMultipartSigned(true, true, true, cades, "a", people.certs, log) ||
               mail->createSignedData(true, true, true, cades, "a", people.certs, log) ||
               mail->createPkcs7Mime(0, 256, 0, 0, false, "a", people.certs, log));
  EXPECT_EQ(countMessages(log), 0);
}

}  // namespace
}  // namespace mailtree
