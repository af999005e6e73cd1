#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "mailtree/mime/MimeMessage2.h"
#include "tests/secure/secure_mail.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

const std::string kText = "Content-Type: text/plain\r\n\r\nHello\r\n";
const std::string kTop = "From: Alice <alice@example.com>\r\nTo: bob@example.com\r\nMIME-Version: 1.0\r\n";

std::string multipart(const char* subtype, std::initializer_list<std::string> parts) {
  static int count = 0;
  const std::string boundary = "part" + std::to_string(++count) + "trap";
  std::string out = std::string("Content-Type: multipart/") + subtype + "; boundary=" + boundary + "\r\n\r\n";
  for (const std::string& part : parts) out += "--" + boundary + "\r\n" + part + "\r\n";
  return out + "--" + boundary + "--\r\n";
}

class Unwrapping : public ::testing::Test {
 protected:
  EmailPtr receive(const std::string& entity, LogBase* log = nullptr) {
    return mailtree::receive(kTop + entity, m_people.certs, log);
  }
  std::string sign(const std::string& content) { return multipartSigned(content, *m_people["alice"]); }
  std::string wrap(const std::string& content) { return opaque(content, *m_people["alice"]); }
  std::string lock(const std::string& content) { return enveloped(content, *m_people["bob"]); }
  /// For somebody who is not here.
  std::string lose(const std::string& content) { return enveloped(content, *m_others["carol"]); }

  Identities m_people{"alice", "bob"};
  Identities m_others{"carol"};
  LogNull m_log;
};

TEST_F(Unwrapping, layers_come_off_in_any_order) {
  const struct {
    std::string entity;
    const char *tree, *layers;
  } rows[] = {
      {kText, "plain", ""},
      {sign(kText), "plain", "detached-signature 1 valid"},
      {wrap(kText), "plain", "opaque-signature 1 valid"},
      {lock(kText), "plain", "enveloped 1 open"},
      {lock(sign(kText)), "plain", "enveloped 1 open; detached-signature 1 valid"},
      {sign(lock(kText)), "plain", "detached-signature 1 valid; enveloped 1 open"},
      {sign(sign(kText)), "plain", "detached-signature 1 valid; detached-signature 1 valid"},
      {sign(sign(sign(kText))), "plain",
       "detached-signature 1 valid; detached-signature 1 valid; detached-signature 1 valid"},
      {wrap(lock(sign(multipart("mixed", {kText, kText})))), "mixed(plain,plain)",
       "opaque-signature 1 valid; enveloped 1 open; detached-signature 1 valid"},
      {multipart("alternative", {kText, sign(lock(kText))}), "alternative(plain,plain)",
       "detached-signature 1.2 valid; enveloped 1.2 open"},
      {sign(multipart("mixed", {lock(kText), kText})), "mixed(plain,plain)",
       "detached-signature 1 valid; enveloped 1.1 open"},
      {sign(multipart("related", {kText, multipart("mixed", {kText, sign(kText)})})),
       "related(plain,mixed(plain,plain))", "detached-signature 1 valid; detached-signature 1.2.2 valid"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = receive(row.entity);
    EXPECT_EQ(printTree(mail), row.tree) << row.layers;
    EXPECT_EQ(layersOf(*mail), row.layers);
  }
}

TEST_F(Unwrapping, deliberately_nothing_below_a_mixed_root_is_opened_by_loading) {
  const EmailPtr mail = receive(multipart("mixed", {multipart("related", {sign(kText)}), lock(kText)}));
  EXPECT_EQ(printTree(mail), "mixed(related(signed(plain,p7s)),application/pkcs7-mime:attachment)");
  EXPECT_EQ(layersOf(*mail), "");
}

TEST_F(Unwrapping, works_in_a_mixed_root_for_those_who_ask_the_tree_itself) {
  MimeMessage2 tree;
  tree.loadText(kTop + multipart("mixed", {sign(kText), kText, lock(kText)}), m_log);
  UnwrapInfo info;
  _clsCades cades;
  tree.unwrapSecurity3(info, cades, m_people.certs, m_log);
  EXPECT_TRUE(info.m_hasSecureLayer && info.m_allSignaturesValid && info.m_allDataDecrypted);
  EXPECT_EQ(info.m_numSigned * 10 + info.m_numEncrypted, 11);
  EXPECT_STREQ(tree.getPart(0)->getContentType(), "text/plain");
  EXPECT_EQ(info.m_signerCerts.getSize() * 10 + info.m_decryptCerts.getSize(), 11);
  UnwrapInfo again;
  tree.getPart(0)->unwrapSecurity3(again, cades, m_people.certs, m_log);
  tree.unwrapSecurity3(again, cades, m_people.certs, m_log);
  EXPECT_TRUE(again.m_layers.empty()) << "nothing is looked at twice";
}

TEST_F(Unwrapping, forms_in_which_layers_travel) {
  const std::string der = envelopedDer(kText, *m_people["bob"]);
  const auto replaced = [](std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
  };
  const std::string bare = replaced(pkcs7Mime(der, "x"), "; name=smime.p7m; smime-type=x", "");
  const auto asSignatureFile = [&](bool detached) {
    return "Content-Type: application/octet-stream; name=smime.p7s\r\nContent-Disposition: "
           "attachment\r\n\r\n" +
           signedDer(kText, *m_people["alice"], detached);
  };
  const struct {
    const char* what;
    std::string entity;
    const char* layers;
  } rows[] = {
      {"x- type", replaced(pkcs7Mime(der, "enveloped-data"), "pkcs7-mime", "x-pkcs7-mime"),
       "enveloped 1 open"},
      {"nothing but the type", bare, "enveloped 1 open"},
      {"wrong smime-type", pkcs7Mime(der, "signed-data"), "enveloped 1 open"},
      {"octet-stream by name",
       replaced(replaced(bare, "pkcs7-mime", "octet-stream"), "attachment;", "inline;"), "enveloped 1 open"},
      {"octet-stream attached", replaced(bare, "pkcs7-mime", "octet-stream"), "enveloped 1 open"},
      {"octet-stream by the name of its type alone, in capitals",
       replaced(replaced(bare, "pkcs7-mime", "octet-stream; name=SMIME.P7M"), "; filename=smime.p7m",
                "; filename=att1.dat"),
       "enveloped 1 open"},
      {"octet-stream signed, by the name of a signature", asSignatureFile(false), "opaque-signature 1 valid"},
      {"octet-stream with a signature of something else", asSignatureFile(true), ""},
      {"octet-stream of another name",
       replaced(replaced(bare, "pkcs7-mime", "octet-stream"), "attachment; filename=smime.p7m",
                "inline; filename=a.bin"),
       ""},
      {"octet-stream of other octets",
       replaced(replaced(pkcs7Mime("MZ\1", "x"), "pkcs7-mime", "octet-stream"), "attachment;", "inline;"),
       ""},
      {"x- signature", replaced(sign(kText), "/pkcs7-signature; name", "/x-pkcs7-signature; name"),
       "detached-signature 1 valid"},
      {"no protocol", replaced(sign(kText), "protocol=\"application/pkcs7-signature\"; ", ""),
       "detached-signature 1 valid"},
      {"signature of no type", replaced(sign(kText), "/pkcs7-signature; name", "/octet-stream; name"),
       "detached-signature 1 valid"},
      {"unreadable", pkcs7Mime("nonsense", "signed-data"), "opaque-signature 1 invalid"},
      {"unreadable too", pkcs7Mime("nonsense", "enveloped-data"), "enveloped 1 closed"},
      {"nothing", pkcs7Mime("", "authenveloped-data"), "auth-enveloped 1 closed"},
      {"signature that is none", multipartSignedAs(kText, "nonsense"), "detached-signature 1 invalid"},
      {"signature without a content",
       "Content-Type: multipart/signed; protocol=\"application/pkcs7-signature\"; boundary=b\r\n\r\nx",
       "detached-signature 1 invalid"},
      {"opaque signature without its content",
       pkcs7Mime(signedDer(kText, *m_people["alice"], /*detached=*/true), "signed-data"),
       "detached-signature 1 invalid"},
  };
  for (const auto& row : rows) EXPECT_EQ(layersOf(*receive(row.entity)), row.layers) << row.what;
}

TEST_F(Unwrapping, what_cannot_be_opened_stays_wholly_and_is_counted_once) {
  const struct {
    std::string entity;
    const char* tree;
    int numSigned, numEncrypted;
  } rows[] = {
      {lose(kText), "application/pkcs7-mime:attachment", 0, 1},
      {multipart("alternative", {kText, lose(kText)}), "alternative(plain,application/pkcs7-mime:attachment)",
       0, 1},
      {multipartSignedAs(kText, "nonsense"), "signed(plain,p7s)", 1, 0},
      {multipart("alternative", {kText, multipartSignedAs(lose(kText), "nonsense")}),
       "alternative(plain,signed(application/pkcs7-mime:attachment,p7s))", 1, 1},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = receive(row.entity);
    EXPECT_EQ(printTree(mail), row.tree);
    EXPECT_EQ(mail->m_common->m_numSignedLayers, row.numSigned) << row.tree;
    EXPECT_EQ(mail->m_common->m_numEncryptedLayers, row.numEncrypted) << row.tree;
    EXPECT_EQ(mail->getAllSignaturesValid(), row.numSigned == 0) << row.tree;
    EXPECT_EQ(mail->getAllDataDecrypted(), row.numEncrypted == 0) << row.tree;
    EXPECT_EQ(write(*mail), write(*load(kTop + row.entity))) << row.tree;
  }
}

TEST_F(Unwrapping, an_invalid_signature_is_taken_off_and_said_to_be_invalid) {
  std::string changed = sign(kText);
  changed.replace(changed.find("Hello"), 5, "Hallo");
  const EmailPtr mail = receive(changed);
  EXPECT_EQ(layersOf(*mail), "detached-signature 1 invalid");
  EXPECT_EQ(mail->m_body.view(), "Hallo\r\n");
  EXPECT_TRUE(mail->m_common->m_receivedSecure);
  EXPECT_FALSE(mail->getAllSignaturesValid());
}

TEST_F(Unwrapping, signatures_of_others_are_left_alone_but_what_they_hold_is_opened) {
  const auto pgp = [](const std::string& content) {
    return "Content-Type: multipart/signed; protocol=\"application/pgp-signature\"; "
           "boundary=pgp\r\n\r\n--pgp\r\n" +
           content + "\r\n--pgp\r\nContent-Type: application/pgp-signature\r\n\r\nx\r\n--pgp--\r\n";
  };
  EXPECT_EQ(layersOf(*receive(pgp(kText))), "");
  const EmailPtr inside = receive(pgp(sign(kText)));
  EXPECT_EQ(layersOf(*inside), "detached-signature 1.1 valid")
      << "over bytes that the first parse did not keep";
  EXPECT_EQ(printTree(inside), "signed(plain,application/pgp-signature)");
  EXPECT_THAT(write(*inside), Not(HasSubstr("pkcs7"))) << "what is written is what stands in the tree";
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
  const std::string lfContent = lf(kText);
  const struct {
    const char* what;
    std::string message;
    const char* layers;
  } rows[] = {
      {"signed with CRLF, stored with LF", lf(kTop + sign(kText)), "detached-signature 1 valid"},
      {"signed and stored with LF", lf(kTop + sign(lfContent)), "detached-signature 1 valid"},
      {"signed with LF, travelled with CRLF",
       kTop + multipartSignedAs(kText, signedDer(lfContent, *m_people["alice"], true)),
       "detached-signature 1 invalid"},
      {"one CR is enough to take it as it stands",
       kTop + multipartSignedAs("Content-Type: text/plain\n\nHello\r\n",
                                signedDer(kText, *m_people["alice"], true)),
       "detached-signature 1 invalid"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(layersOf(*mailtree::receive(row.message, m_people.certs)), row.layers) << row.what;
}

TEST_F(Unwrapping, bytes_are_taken_as_received) {
  const std::string odd =
      "content-TYPE:Text/Plain;\r\n\tcharset = us-ascii (odd)\r\nX-Odd:a  b \r\n\r\n dots \r\n.\r\n\t";
  EXPECT_EQ(layersOf(*receive(sign(odd))), "detached-signature 1 valid");
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
  for (const std::string& entity : {sign(inner), wrap(inner), lock(inner)}) {
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
  const struct {
    std::string content;
    const char *type, *body;
  } rows[] = {
      {"Just a text.\r\nTwo lines.", "text/plain", "Just a text.\r\nTwo lines."},
      {"Note: this is no header\r\n\r\nx", "text/plain", "Note: this is no header\r\n\r\nx"},
      {"From me\r\n\r\nx", "text/plain", "From me\r\n\r\nx"},
      {"Dear Bob\r\nContent-Type: text/html\r\n\r\nx", "text/plain",
       "Dear Bob\r\nContent-Type: text/html\r\n\r\nx"},
      {"From: alice@example.com\r\nSubject: Boat\r\n\r\nx", "", "x"},
      {"", "", ""},
      {"\r\nContent-Type: text/html\r\n\r\nx", "", "Content-Type: text/html\r\n\r\nx"},
      {"Content-Type: text/html\r\n\r\nx", "text/html", "x"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = receive(lock(row.content));
    EXPECT_EQ(mail->m_contentType.m_type.view(), row.type) << row.content;
    EXPECT_EQ(mail->m_body.view(), row.body) << row.content;
    EXPECT_EQ(layersOf(*mail), "enveloped 1 open");
  }
}

TEST_F(Unwrapping, ten_layers_come_off_and_the_eleventh_stays) {
  std::string entity = kText;
  for (int i = 0; i < kMaxUnwrappedLayers; ++i) entity = i % 3 == 0 ? sign(entity) : lock(entity);
  const EmailPtr ten = receive(entity);
  EXPECT_EQ(printTree(ten), "plain");
  EXPECT_FALSE(ten->m_common->m_limits.has(Limit::layers));
  const EmailPtr eleven = receive(lock(entity));
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
  std::string attached = kTop + "Content-Type: multipart/mixed; boundary=a\r\n\r\n";
  for (int i = 0; i < 4; ++i)
    attached += "--a\r\nContent-Type: message/rfc822\r\n\r\n" +
                multipart("related", {closed, closed, closed}) + "\r\n";
  const EmailPtr outer = mailtree::receive(attached + "--a--\r\n", m_people.certs);
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
  deep = lock(deep);
  for (int i = 0; i < 60; ++i) deep = multipart("related", {deep});
  const EmailPtr mail = receive(deep);
  EXPECT_TRUE(mail->m_common->m_limits.has(Limit::depth));
  EXPECT_THAT(write(*mail), HasSubstr("Hello")) << "the rest is kept as bytes";
}

TEST_F(Unwrapping, is_told_in_the_log) {
  const struct {
    std::string entity;
    const char* log;
  } rows[] = {
      {kText, ""},
      {sign(kText), "A digitally signed email was received|All signatures are valid|num_parts_signed=1|"},
      {lock(kText), "An encrypted email was received|All data successfully decrypted|num_parts_encrypted=1|"},
      {sign(lock(kText)),
       "A signed and encrypted email was received|All signatures are valid|All data successfully decrypted|"
       "num_parts_signed=1|num_parts_encrypted=1|"},
      {multipartSignedAs(kText, signedDer("x", *m_people["alice"], true)),
       "A digitally signed email was received|Not all signatures were valid|num_parts_signed=1|"},
      {pkcs7Mime("", "enveloped-data"),
       "An encrypted email was received|Not all data was decrypted|num_parts_encrypted=1|"},
  };
  for (const auto& row : rows) {
    LogMemory log;
    const EmailPtr mail = receive(row.entity, &log);
    std::string told;
    for (const LogEntry& e : log.entries())
      if (e.context.ends_with("createFromMimeObject/unwrapSecurity") &&
          e.kind != LogEntry::Kind::ContextClose)
        told += (e.tag.empty() ? "" : e.tag + "=") + e.text + "|";
    const std::size_t outcome = told.find("A");
    EXPECT_EQ(outcome == std::string::npos ? "" : told.substr(outcome), row.log) << log.text();
  }
  LogMemory verbose;
  verbose.m_verboseLogging = true;
  receive(kText, &verbose);
  EXPECT_THAT(verbose.text(), HasSubstr("FromHeader"));
  EXPECT_THAT(verbose.text(), HasSubstr("ToHeader"));
}

TEST_F(Unwrapping, is_asked_for_by_the_caller_and_done_always_by_one_way_in) {
  const std::string message = kTop + sign(kText);
  SystemCerts& certs = m_people.certs;
  const struct {
    const char* way;
    std::function<Email2*(_svEmailCommon&, bool)> load;
    bool always;
  } ways[] = {
      {"text",
       [&](_svEmailCommon& common, bool unwrap) {
         StringBuffer text(message);
         return Email2::createFromMimeText2(common, text, false, unwrap, certs, m_log, false);
       },
       false},
      {"text and length",
       [&](_svEmailCommon& common, bool) {
         return Email2::createFromMimeText2a(common, message.data(), static_cast<int>(message.size()), certs,
                                             m_log, false);
       },
       true},
      {"bytes",
       [&](_svEmailCommon& common, bool unwrap) {
         DataBuffer bytes;
         bytes.append(message);
         return Email2::createFromMimeDb(common, bytes, false, unwrap, certs, m_log, false);
       },
       false},
      {"pop3",
       [&](_svEmailCommon& common, bool unwrap) {
         DataBuffer bytes;
         bytes.append(message + ".\r\n");
         return Email2::createFromPop3(common, bytes, unwrap, certs, m_log);
       },
       false},
  };
  for (const auto& way : ways) {
    for (const bool unwrap : {false, true}) {
      const EmailPtr mail(way.load(*new _svEmailCommon, unwrap));
      EXPECT_EQ(printTree(mail), unwrap || way.always ? "plain" : "signed(plain,p7s)") << way.way;
    }
  }
}

TEST_F(Unwrapping, certificates_of_further_layers_are_added) {
  Identities both{"alice", "bob", "carol"};
  const std::string twice = multipartSigned(multipartSigned(kText, *both["carol"]), *both["alice"]);
  const EmailPtr mail = mailtree::receive(kTop + lock(twice), both.certs);
  ASSERT_TRUE(mail->getSignedBy(0, m_log) && mail->getSignedBy(1, m_log));
  EXPECT_TRUE(mail->getSignedBy(0, m_log)->isForAddress("alice@example.com"));
  EXPECT_TRUE(mail->getSignedBy(1, m_log)->isForAddress("carol@example.com"));
  EXPECT_FALSE(mail->getSignedBy(2, m_log));
  EXPECT_TRUE(mail->getEncryptedBy(0, m_log)->isForAddress("bob@example.com"));
}

}  // namespace
}  // namespace mailtree
