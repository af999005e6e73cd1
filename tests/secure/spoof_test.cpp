// What is done to make a reader believe that somebody said something which nobody signed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>

#include "mailtree/crypto/Cades.h"
#include "mailtree/crypto/Pkcs7Opener.h"
#include "mailtree/crypto/UnwrapInfo.h"
#include "mailtree/email/loading/layer_places.h"
#include "mailtree/mime/MimeMessage2.h"
#include "mailtree/secure/field_meaning.h"
#include "tests/secure/secure_mail.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using Uncovered = std::vector<std::string>;

const std::string kText = "Content-Type: text/plain\r\n\r\nPay Bob 10.\r\n";
const std::string kForged = "Content-Type: text/plain\r\n\r\nPay Mallory 1000.\r\n";
const std::string kFrom = "From: alice@example.com\r\n";

class Spoof : public ::testing::Test {
 protected:
  EmailPtr receive(const std::string& message) { return mailtree::receive(message, m_people.certs); }
  std::string sign(const std::string& content) { return multipartSigned(content, *m_people["alice"]); }
  static const SecureLayer& layerOf(const EmailPtr& mail, std::size_t index = 0) {
    return mail->m_common->m_secureLayers.at(index);
  }

  Identities m_people{"alice", "bob"};
  LogNull m_log;
};

std::string alternative(const std::string& first, const std::string& second) {
  return "Content-Type: multipart/alternative; boundary=alt\r\n\r\n--alt\r\n" + first + "\r\n--alt\r\n" +
         second + "\r\n--alt--\r\n";
}

TEST_F(Spoof, a_part_beside_a_signed_one_is_named_as_not_covered) {
  const struct {
    const char* what;
    std::string message;
    const char* part;
    Uncovered uncovered;
  } rows[] = {
      {"all of it signed", kFrom + sign(alternative(kText, kText)), "1", {}},
      {"behind", kFrom + alternative(sign(kText), kForged), "1.1", {"1.2"}},
      {"in front", kFrom + alternative(kForged, sign(kText)), "1.2", {"1.1"}},
      {"a tree",
       kFrom + alternative(sign(kText), sign(alternative(kForged, kForged))),
       "1.1",
       {"1.2.1", "1.2.2"}},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = receive(row.message);
    EXPECT_EQ(layerOf(mail).part, row.part) << row.what;
    EXPECT_EQ(layerOf(mail).uncovered, row.uncovered) << row.what;
  }
}

TEST_F(Spoof, a_part_behind_the_signature_is_kept_beside_the_signed_content) {
  std::string message = kFrom + sign(kText);
  const std::size_t end = message.rfind("--\r\n");
  const std::size_t line = message.rfind("\r\n--", end);
  message.insert(line, message.substr(line, end - line) + "\r\n" + kForged);
  const EmailPtr mail = receive(message);
  EXPECT_EQ(printTree(mail), "mixed(plain,plain)");
  EXPECT_EQ(layersOf(*mail), "detached-signature 1.1 valid");
  EXPECT_EQ(layerOf(mail).uncovered, (Uncovered{"1.2"}));
  EXPECT_EQ(mail->getPart(0)->m_body.view(), "Pay Bob 10.\r\n");
  EXPECT_THAT(write(*mail), Not(HasSubstr("micalg")));
}

/// "1.2" is the second part of the message.
const Email2* partOf(const Email2& mail, const std::string& number) {
  std::istringstream steps(number.substr(1));
  const Email2* node = &mail;
  char dot = 0;
  for (int step = 0; node && steps >> dot >> step;) node = node->getPartConst(step - 1);
  return node;
}

/// The texts of a part in their order, those in a closed layer too.
std::string wordsOf(const Email2& node, SystemCerts& certs) {
  std::string words;
  if (equalsNoCase(node.m_contentType.m_type, "application/pkcs7-mime")) {
    SecureLayer layer;
    DataBuffer content;
    LogNull log;
    Pkcs7Opener::open(node.m_body.view(), certs, content, layer, log);
    words.append(content.view().substr(content.view().rfind("\n\r\n") + 3));
  } else if (beginsWithNoCase(node.m_contentType.m_type, "text/")) {
    words.append(node.m_body.view());
  }
  if (!words.empty()) words = std::string(trim(words)) + " ";
  for (int i = 0; i < node.getNumParts(); ++i) words += wordsOf(*node.getPartConst(i), certs);
  return words;
}

/// Messages made by chance, with texts that all differ, and what their signatures say: "text text valid" for each.
class RandomMessage {
 public:
  RandomMessage(unsigned seed, Certificate& signer) : m_random(seed), m_signer(signer), m_text(entity(0)) {}
  std::string text() const { return kFrom + m_text; }
  std::vector<std::string> said;

 private:
  int below(int limit) { return static_cast<int>(m_random() % static_cast<unsigned>(limit)); }

  std::string entity(int depth) {
    const int kind = below(depth == 0 ? 4 : 9);
    if (kind < 5 && depth < 4) return multipart(depth);
    if (kind < 7 && said.size() < 8) return signedPart(depth);
    m_words += "t" + std::to_string(++m_texts) + " ";
    return std::string("Content-Type: text/") + (below(2) ? "plain" : "html") + "\r\n\r\nt" +
           std::to_string(m_texts) + "\r\n";
  }
  std::string multipart(int depth) {
    const char* const kTypes[] = {"mixed", "mixed", "alternative", "related"};
    const std::string name = "b" + std::to_string(++m_boundaries);
    std::string text =
        std::string("Content-Type: multipart/") + kTypes[below(4)] + "; boundary=" + name + "\r\n\r\n";
    for (int i = 1 + below(4); i > 0; --i) text += "--" + name + "\r\n" + entity(depth + 1) + "\r\n";
    return text + "--" + name + "--\r\n";
  }
  std::string signedPart(int depth) {
    const std::size_t place = said.size(), begin = m_words.size();
    said.emplace_back();
    const std::string content = entity(depth + 1);
    const bool isGood = below(3) > 0, isOpaque = content.starts_with("Content-Type: text/") && below(2);
    said[place] = m_words.substr(begin) + (isGood || isOpaque ? "valid" : "invalid");
    if (isOpaque) return opaque(content, m_signer);
    return isGood ? multipartSigned(content, m_signer)
                  : multipartSignedAs(content, signedDer(kText, m_signer, /*detached=*/true));
  }

  std::mt19937 m_random;
  Certificate& m_signer;
  std::string m_words;
  int m_texts = 0, m_boundaries = 0;
  std::string m_text;  // made last
};

TEST_F(Spoof, every_layer_points_at_what_it_covers) {
  for (unsigned seed = 0; seed < 100; ++seed) {
    const RandomMessage message(seed, *m_people["alice"]);
    DataBuffer bytes;
    bytes.append(message.text());
    const RefPtr<_svEmailCommon> common(new _svEmailCommon());
    const EmailPtr mail(Email2::createFromMimeDb(*common, bytes, /*discardInput=*/false, /*unwrap=*/true,
                                                 m_people.certs, m_log, /*parseOption=*/false));
    UnwrapInfo info;
    if (common->m_secureLayers.empty()) {  // below a mixed root, where layers stay
      MimeMessage2 tree;
      _clsCades cades;
      tree.loadText(bytes.view(), m_log);
      tree.unwrapSecurity3(info, cades, m_people.certs, m_log);
      placeLayers(*mail, info.m_layers, info.m_innerFields);
    } else {
      info.m_layers = common->m_secureLayers;
    }
    std::vector<std::string> said;
    for (const SecureLayer& layer : info.m_layers)
      said.push_back(wordsOf(*partOf(*mail, layer.part), m_people.certs) +
                     (layer.allSignaturesValid() ? "valid" : "invalid"));
    EXPECT_THAT(said, ::testing::UnorderedElementsAreArray(message.said)) << seed << '\n' << message.text();
  }
}

TEST_F(Spoof, a_layer_in_a_part_that_is_still_closed_covers_what_is_inside) {
  MimeMessage2 tree;
  UnwrapInfo info;
  _clsCades cades;
  const std::string text = kFrom + "Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n" + kForged +
                           "\r\n--b\r\n" + enveloped(alternative(sign(kText), kForged), *m_people["bob"]) +
                           "\r\n--b--\r\n";
  const EmailPtr mail = receive(text);
  tree.loadText(text, m_log);
  tree.unwrapSecurity3(info, cades, m_people.certs, m_log);
  placeLayers(*mail, info.m_layers, info.m_innerFields);
  ASSERT_EQ(info.m_layers.size(), 2);
  EXPECT_EQ(info.m_layers[0].part, "1.2");
  EXPECT_EQ(info.m_layers[1].part, "1.2/1.1");
  EXPECT_EQ(info.m_layers[1].uncovered, (Uncovered{"1.1", "1.2"}));
}

TEST_F(Spoof, only_one_sender_can_be_the_signer) {
  const struct {
    const char* header;
    bool matches;
  } rows[] = {
      {"From: alice@example.com\r\n", true},
      {"From: \"Bob\" <alice@EXAMPLE.com>\r\n", true},
      {"From: Alice@example.com\r\n", false},
      {"From: bob@example.com\r\n", false},
      {"From: \"alice@example.com\" <bob@example.com>\r\n", false},
      {"From: =?utf-8?Q?alice=40example.com?= <bob@example.com>\r\n", false},
      {"From: alice@example.com\r\nFrom: bob@example.com\r\n", false},
      {"From: bob@example.com\r\nfrom: alice@example.com\r\n", false},
      {"From: alice@example.com, bob@example.com\r\n", false},
      {"Sender: alice@example.com\r\n", false},
      {"Subject: x\r\n", false},
  };
  for (const auto& row : rows) {
    for (const std::string& entity : {sign(kFrom + kText), opaque(kFrom + kText, *m_people["alice"])}) {
      const EmailPtr mail = receive(row.header + entity);
      ASSERT_TRUE(layerOf(mail).allSignaturesValid()) << row.header;
      EXPECT_EQ(layerOf(mail).signers.at(0).addressMatches == Answer::yes, row.matches) << row.header;
    }
  }
}

TEST_F(Spoof, a_signature_over_something_else_is_worth_nothing) {
  Certificate& alice = *m_people["alice"];
  const struct {
    const char* what;
    std::string der;
  } rows[] = {
      {"detached, over nothing", signedDer("", alice, /*detached=*/true)},
      {"over an empty content of its own", signedDer("", alice, /*detached=*/false)},
      {"over another content of its own", signedDer(kText, alice, /*detached=*/false)},
      {"of another message", signedDer(kText, alice, /*detached=*/true)},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = receive(kFrom + multipartSignedAs(kForged, row.der));
    EXPECT_FALSE(mail->getAllSignaturesValid()) << row.what;
    EXPECT_EQ(layersOf(*mail), "detached-signature 1 invalid") << row.what;
  }
  const EmailPtr empty = receive(kFrom + pkcs7Mime(signedDer("", alice, /*detached=*/false), "signed-data"));
  EXPECT_TRUE(empty->m_body.isEmpty()) << "nothing is shown that was not signed";
}

TEST_F(Spoof, html_around_an_encrypted_part_is_not_joined_with_it) {
  const auto html = [](const char* text) {
    return std::string("Content-Type: text/html\r\n\r\n") + text + "\r\n";
  };
  const std::string secret = enveloped(html("secret"), *m_people["bob"]);
  for (const char* subtype : {"related", "mixed"}) {
    const EmailPtr mail = receive(kFrom + "Content-Type: multipart/" + subtype +
                                  "; boundary=b\r\n\r\n--b\r\n" + html("<img src=\"http://evil/") +
                                  "\r\n--b\r\n" + secret + "\r\n--b\r\n" + html("\">") + "\r\n--b--\r\n");
    ASSERT_EQ(mail->getNumParts(), 3) << subtype;
    for (int i = 0; i < 3; ++i) {
      const std::string_view body = mail->getPart(i)->m_body.view();
      EXPECT_FALSE(contains(body, "secret") && (contains(body, "evil") || contains(body, "\">"))) << body;
    }
  }
}

TEST_F(Spoof, a_signed_message_inside_another_does_not_speak_for_it) {
  const std::string forwarded = kFrom + sign(kText);
  const EmailPtr mail =
      receive("From: mallory@example.com\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n" +
              kForged + "\r\n--b\r\nContent-Type: message/rfc822\r\n\r\n" + forwarded + "\r\n--b--\r\n");
  EXPECT_EQ(layersOf(*mail), "");
  int counter = 0;
  const EmailPtr inner(mail->getAttachedMessage(0, counter, m_people.certs, m_log));
  ASSERT_TRUE(inner);
  EXPECT_EQ(printTree(inner), "plain") << "its layer is taken off";
  EXPECT_FALSE(mail->m_common->m_receivedSecure || mail->getReceivedSigned() ||
               mail->getAllSignaturesValid());
  EXPECT_EQ(layersOf(*mail), "");
  EXPECT_FALSE(mail->getSignedBy(0, m_log));
}

TEST_F(Spoof, an_attached_message_takes_nothing_from_the_signed_one_around_it) {
  const std::string bad = kFrom + multipartSignedAs(kForged, signedDer(kText, *m_people["alice"], true));
  const EmailPtr mail =
      receive(kFrom + sign("Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n" + kText +
                           "\r\n--b\r\nContent-Type: message/rfc822\r\n\r\n" + bad + "\r\n--b--\r\n"));
  for (const char* options : {"", "NoUnwrapAttachedMessage"}) {
    LogNull log;
    log.m_options.setString(options);
    int counter = 0;
    const EmailPtr inner(mail->getAttachedMessage(0, counter, m_people.certs, log));
    EXPECT_EQ(printTree(inner), *options ? "signed(plain,p7s)" : "plain");
    EXPECT_TRUE(mail->getAllSignaturesValid());
    EXPECT_EQ(layersOf(*mail), "detached-signature 1 valid");
    EXPECT_TRUE(mail->getSignedBy(0, m_log) && !mail->getSignedBy(1, m_log));
  }
}

TEST_F(Spoof, a_failed_decryption_releases_nothing) {
  for (const ContentCipher cipher : {ContentCipher::aesCbc, ContentCipher::aesGcm}) {
    std::string der = envelopedDer(kText, *m_people["bob"], cipher);
    for (const std::size_t fromEnd : {1u, 17u, 40u}) {
      std::string changed = der;
      changed[changed.size() - fromEnd] ^= 1;
      const EmailPtr mail = receive(kFrom + pkcs7Mime(changed, "enveloped-data"));
      if (mail->getAllDataDecrypted() && cipher == ContentCipher::aesCbc) continue;  // garbage, by its nature
      EXPECT_EQ(layersOf(*mail).find("open"), std::string::npos) << fromEnd;
      EXPECT_EQ(mail->m_body.view(), changed) << fromEnd;
    }
  }
}

// Tampering

/// The signed content as a reader sees it: everything of the tree but the outer header.
std::string shown(const Email2& node) {
  std::string out(node.m_contentType.m_type.view());
  out.append(":").append(node.m_body.view()).append("(");
  for (int i = 0; i < node.getNumParts(); ++i) out += shown(*node.getPartConst(i));
  return out + ")";
}

/// Whether every displayed part is covered by a good signature.
bool claimsToBeGood(const Email2& mail) {
  const auto& layers = mail.m_common->m_secureLayers;
  if (!mail.getAllSignaturesValid()) return false;
  for (const SecureLayer& layer : layers)
    if (layer.isSigned() && layer.allSignaturesValid() && layer.part == "1" && layer.uncovered.empty())
      return true;
  return false;
}

TEST_F(Spoof, no_changed_byte_of_what_was_signed_is_called_valid) {
  const std::string content = alternative(
      kText,
      "Content-Type: text/html\r\nContent-Transfer-Encoding: base64\r\n\r\nPHA+UGF5IEJvYiAxMC48L3A+\r\n");
  const struct {
    const char* what;
    std::string message;
  } rows[] = {
      {"detached", kFrom + sign(content)},
      {"opaque", kFrom + opaque(content, *m_people["alice"])},
      {"cbc", kFrom + enveloped(sign(content), *m_people["bob"])},
      {"gcm", kFrom + enveloped(sign(content), *m_people["bob"], ContentCipher::aesGcm)},
  };
  constexpr std::size_t kPositions = 500;  // of each of the four
  for (const auto& row : rows) {
    const std::string good = shown(*receive(row.message));
    const std::size_t step = std::max<std::size_t>(1, row.message.size() / kPositions);
    for (std::size_t at = kFrom.size() + 1; at < row.message.size(); at += step) {
      std::string changed = row.message;
      changed[at] = static_cast<char>(changed[at] ^ (1 << (at % 7)));
      const EmailPtr mail = receive(changed);
      const bool isOpenGcm =
          std::string_view(row.what) == "gcm" && mail->getReceivedEncrypted() && mail->getAllDataDecrypted();
      if (!claimsToBeGood(*mail) && !isOpenGcm) continue;
      EXPECT_EQ(shown(*mail), good) << row.what << " at " << at << ": " << changed.substr(at - 1, 20);
    }
  }
}

TEST_F(Spoof, split_related_blocks_are_not_joined_across_the_edge_of_a_layer) {
  const auto related = [](const std::string& text) {
    return "Content-Type: multipart/related; boundary=rel\r\n\r\n--rel\r\nContent-Type: text/html\r\n\r\n" +
           text + "\r\n--rel--\r\n";
  };
  const std::string forged = related("FORGED"), genuine = related("GENUINE");
  const std::string joined = "alternative(related(html,html))",
                    apart = "alternative(related(html),related(html))";
  const struct {
    const char* what;
    std::string message;
    std::string tree;
  } rows[] = {
      {"decrypted and plain", alternative(forged, enveloped(genuine, *m_people["bob"])), apart},
      {"signed and not signed", alternative(sign(genuine), forged), apart},
      {"both inside one signature", sign(alternative(genuine, genuine)), joined},
      {"no layer", alternative(genuine, genuine), joined},
  };
  for (const auto& row : rows) {
    DataBuffer bytes;
    bytes.append(kFrom + row.message);
    const RefPtr<_svEmailCommon> common(new _svEmailCommon());
    const EmailPtr mail(Email2::createFromMimeDb(*common, bytes, /*discardInput=*/false, /*unwrap=*/true,
                                                 m_people.certs, m_log, /*parseOption=*/false));
    EXPECT_EQ(printTree(mail), row.tree) << row.what;
  }
}

TEST_F(Spoof, a_layer_too_many_is_met_and_not_believed) {
  std::string nested = kText,
              signedTen = multipartSignedAs(kForged, signedDer(kText, *m_people["alice"], true));
  std::string siblings;
  for (int i = 0; i < 10; ++i) {
    nested = enveloped(nested, *m_people["bob"]);
    signedTen = sign(signedTen);
    siblings += "--alt\r\n" + opaque(kText, *m_people["alice"]) + "\r\n";
  }
  nested = enveloped(nested, *m_people["bob"]);
  siblings = "Content-Type: multipart/alternative; boundary=alt\r\n\r\n" + siblings + "--alt\r\n" +
             multipartSignedAs(kForged, signedDer(kText, *m_people["alice"], true)) + "\r\n--alt\r\n" +
             multipartSignedAs(kForged, signedDer(kText, *m_people["alice"], true)) + "\r\n--alt--\r\n";
  const struct {
    const char* what;
    std::string message;
    int numSigned, numEncrypted;
    bool valid, decrypted;
    std::size_t listed;
  } rows[] = {
      {"envelopes", nested, 0, 11, true, false, 11},
      {"signatures", signedTen, 11, 0, false, true, 11},
      {"side by side", siblings, 12, 0, false, true, 11},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = receive(kFrom + row.message);
    EXPECT_EQ(mail->m_common->m_numSignedLayers, row.numSigned) << row.what;
    EXPECT_EQ(mail->m_common->m_numEncryptedLayers, row.numEncrypted) << row.what;
    EXPECT_EQ(mail->getAllSignaturesValid(), row.valid) << row.what;
    EXPECT_EQ(mail->getAllDataDecrypted(), row.decrypted) << row.what;
    EXPECT_EQ(mail->m_common->m_secureLayers.size(), row.listed) << row.what;
  }
}

TEST_F(Spoof, a_field_added_around_the_signed_ones_is_listed) {
  const std::string inner = "From: alice@example.com\r\nSubject: Boat\r\n" + kText;
  const struct {
    const char* header;
    std::string name, inside, outside;  // no name: nothing is listed
  } rows[] = {
      {"Subject: Boat\r\n", "", "", ""},
      {"Subject: Boat\r\nReceived: here\r\n", "", "", ""},
      {"Subject: Fraud\r\nSubject: Boat\r\n", "Subject", "Boat", "Fraud"},
      {"Subject: Boat\r\nSubject: Fraud\r\n", "Subject", "Boat", "Fraud"},
      {"Subject: \r\nSubject: Boat\r\n", "Subject", "Boat", ""},
      {"", "Subject", "Boat", ""},
      {"Subject: Boat\r\nReply-To: mallory@example.net\r\n", "Reply-To", "", "mallory@example.net"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = receive(kFrom + row.header + sign(inner));
    const std::vector<InnerField>& fields = mail->m_common->m_innerFields;
    ASSERT_EQ(fields.size(), row.name.empty() ? 0 : 1) << row.header;
    if (fields.empty()) continue;
    EXPECT_EQ(fields[0].name, row.name) << row.header;
    EXPECT_EQ(fields[0].inside, row.inside) << row.header;
    EXPECT_EQ(fields[0].outside, row.outside) << row.header;
  }
}

TEST_F(Spoof, a_field_contradicts_only_one_that_says_something_else) {
  const struct {
    const char *name, *inside, *outside;
    bool same;
  } rows[] = {
      {"From", "\"Alice B\" <alice@example.com>", "=?utf-8?q?Alice?=  B\r\n <alice@EXAMPLE.com>", true},
      {"From", "alice@example.com (Alice)", "Alice <alice@example.com>", true},
      {"From", "Alice <alice@example.com>", "Bob <alice@example.com>", false},
      {"Cc", "a@b.c, d@e.f", "a@b.c, Mallory Malice, d@e.f", false},
      {"Cc", "A <a@b.c>", "A <a@b.c> (really Mallory)", false},
      {"Date", "Mon, 20 Apr 2026 11:30:00 +0200", "20 Apr 2026 09:30:00 GMT", true},
      {"Date", "Mon, 20 Apr 2026 11:30:00 +0200", "Mon, 20 Apr 2026 11:30:00 +0100", false},
      {"Date", "today", "tomorrow", false},
      {"Subject", "a@b.c", "a@B.c", false},
  };
  const auto compared = [](const std::string& field) {
    MimeHeader header;
    header.loadFromEntity(field + "\r\n\r\n");
    return comparedValue(header, 0);
  };
  for (const auto& row : rows) {
    const std::string name = std::string(row.name) + ": ";
    EXPECT_EQ(compared(name + row.inside) == compared(name + row.outside), row.same) << name << row.outside;
  }
}

}  // namespace
}  // namespace mailtree
