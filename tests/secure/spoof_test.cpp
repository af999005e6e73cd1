// What is done to make a reader believe that somebody said something which nobody signed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <sstream>

#include "mailtree/crypto/Cades.h"
#include "mailtree/crypto/UnwrapInfo.h"
#include "mailtree/email/loading/layer_places.h"
#include "mailtree/mime/MimeMessage2.h"
#include "mailtree/secure/field_meaning.h"
#include "tests/secure/secure_mail.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

const std::string kForged = "Content-Type: text/plain\r\n\r\nPay Mallory 1000.\r\n";

/// A signature of something else.
std::string signedWrongly(const std::string& content) {
  return signedAs(content, signedBlob(kText, {{"alice"}, true}));
}

std::string alternative(const std::string& first, const std::string& second) {
  return multipart("alternative", {first, second});
}

class Spoof : public ::testing::Test {
 protected:
  EmailPtr receive(const std::string& message) { return mailtree::receive(message, m_people.certs); }
  /// Loaded as bytes, which keeps its parts apart.
  EmailPtr receiveBytes(const std::string& message) {
    DataBuffer bytes;
    bytes.append(message);
    return EmailPtr(Email2::createFromMimeDb(*new _svEmailCommon, bytes, /*discardInput=*/false,
                                             /*unwrap=*/true, m_people.certs, m_log, /*parseOption=*/false));
  }
  /// The layers of a message below a mixed root, where they stay, placed in the email tree.
  std::vector<SecureLayer> layersIn(const EmailPtr& mail, const std::string& message) {
    MimeMessage2 tree;
    UnwrapInfo info;
    _clsCades cades;
    tree.loadText(message, m_log);
    tree.unwrapSecurity3(info, cades, m_people.certs, m_log);
    placeLayers(*mail, info.m_layers, info.m_innerFields);
    return info.m_layers;
  }
  static const SecureLayer& layerOf(const EmailPtr& mail) { return mail->m_common->m_secureLayers.at(0); }

  Identities m_people{"alice", "bob"};
  LogNull m_log;
};

TEST_F(Spoof, a_part_beside_a_signed_one_is_named_as_not_covered) {
  const std::string valid = "detached-signature 1.1 valid";
  std::string after = sign(kText);
  const std::size_t end = after.rfind("--\r\n");
  const std::size_t line = after.rfind("\r\n--", end);
  after.insert(line, after.substr(line, end - line) + "\r\n" + kForged);
  const std::tuple<std::string, const char*, std::string> rows[] = {
      {sign(alternative(kText, kText)), "alternative(plain,plain)", "detached-signature 1 valid"},
      {alternative(sign(kText), kForged), "alternative(plain,plain)", valid + " but not 1.2"},
      {alternative(kForged, sign(kText)), "alternative(plain,plain)",
       "detached-signature 1.2 valid but not 1.1"},
      {alternative(sign(kText), sign(alternative(kForged, kForged))),
       "alternative(plain,alternative(plain,plain))",
       valid + " but not 1.2.1 but not 1.2.2; detached-signature 1.2 valid but not 1.1"},
      {after, "mixed(plain,plain)", valid + " but not 1.2"},  // as a third part of the multipart
  };
  for (const auto& [entity, tree, layers] : rows) {
    const EmailPtr mail = receive(kFrom + entity);
    EXPECT_EQ(printTree(mail), tree);
    EXPECT_EQ(layersOf(*mail), layers);
    EXPECT_THAT(write(*mail), testing::Not(testing::HasSubstr("micalg"))) << tree;
  }
  EXPECT_EQ(receive(kFrom + after)->getPart(0)->m_body.view(), "Pay Bob 10.\r\n");
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
    words = openBlob(node.m_body.view(), certs).content;
    words.erase(0, words.rfind("\n\r\n") + 3);
  } else if (beginsWithNoCase(node.m_contentType.m_type, "text/")) {
    words.append(node.m_body.view());
  }
  if (!words.empty()) words = std::string(trim(words)) + " ";
  for (int i = 0; i < node.getNumParts(); ++i) words += wordsOf(*node.getPartConst(i), certs);
  return words;
}

/// Messages made by chance, with texts that all differ, and what their signatures say:
/// "text text valid" for each.
class RandomMessage {
 public:
  explicit RandomMessage(unsigned seed) : m_random(seed), m_text(entity(0)) {}
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
    const bool isFaultless = below(3) > 0, isOpaque = content.starts_with("Content-Type: text/") && below(2);
    said[place] = m_words.substr(begin) + (isFaultless || isOpaque ? "valid" : "invalid");
    return isOpaque ? wrap(content) : isFaultless ? sign(content) : signedWrongly(content);
  }

  std::mt19937 m_random;
  std::string m_words;
  int m_texts = 0, m_boundaries = 0;
  std::string m_text;  // made last
};

TEST_F(Spoof, every_layer_points_at_what_it_covers) {
  for (unsigned seed = 0; seed < 100; ++seed) {
    const RandomMessage message(seed);
    const EmailPtr mail = receiveBytes(message.text());
    std::vector<SecureLayer> layers = mail->m_common->m_secureLayers;
    if (layers.empty()) layers = layersIn(mail, message.text());
    std::vector<std::string> said;
    for (const SecureLayer& layer : layers)
      said.push_back(wordsOf(*partOf(*mail, layer.part), m_people.certs) +
                     (layer.allSignaturesValid() ? "valid" : "invalid"));
    EXPECT_THAT(said, ::testing::UnorderedElementsAreArray(message.said)) << seed << '\n' << message.text();
  }
}

TEST_F(Spoof, a_layer_in_a_part_that_is_still_closed_covers_what_is_inside) {
  const std::string text = kFrom + multipart("mixed", {kForged, seal(alternative(sign(kText), kForged))});
  EXPECT_EQ(layersOf(layersIn(receive(text), text)),
            "enveloped 1.2 open; detached-signature 1.2/1.1 valid but not 1.1 but not 1.2");
}

TEST_F(Spoof, only_one_sender_can_be_the_signer) {
  const std::pair<const char*, bool> rows[] = {
      {"From: \"Bob\" <alice@EXAMPLE.com>\r\n", true},
      {"From: bob@example.com\r\n", false},
      {"From: \"alice@example.com\" <bob@example.com>\r\n", false},
      {"From: =?utf-8?Q?alice=40example.com?= <bob@example.com>\r\n", false},
      {"From: alice@example.com\r\nFrom: bob@example.com\r\n", false},
      {"From: bob@example.com\r\nfrom: alice@example.com\r\n", false},
      {"From: alice@example.com, bob@example.com\r\n", false},
      {"Sender: alice@example.com\r\n", false},
  };
  for (const auto& [header, matches] : rows)
    for (const std::string& entity : {sign(kFrom + kText), wrap(kFrom + kText)}) {
      const SignerVerdict signer = layerOf(receive(header + entity)).signers.at(0);
      EXPECT_TRUE(signer.isValid()) << header;
      EXPECT_EQ(signer.addressMatches == Answer::yes, matches) << header;
    }
}

TEST_F(Spoof, a_signature_over_something_else_is_worth_nothing) {
  for (const std::string& signedContent : {std::string(), kText})
    for (const bool detached : {true, false}) {
      const EmailPtr mail =
          receive(kFrom + signedAs(kForged, signedBlob(signedContent, {{"alice"}, detached})));
      EXPECT_EQ(sumOf(*mail), "1 signed, 0 encrypted, invalid, decrypted") << signedContent << detached;
      EXPECT_EQ(layersOf(*mail), "detached-signature 1 invalid") << signedContent << detached;
      EXPECT_EQ(mail->m_body.view(), "Pay Mallory 1000.\r\n") << "shown all the same";
    }
  EXPECT_TRUE(receive(kFrom + wrap(""))->m_body.isEmpty()) << "nothing is shown that was not signed";
}

TEST_F(Spoof, html_around_an_encrypted_part_is_not_joined_with_it) {
  const auto html = [](const std::string& text) { return "Content-Type: text/html\r\n\r\n" + text + "\r\n"; };
  for (const char* subtype : {"related", "mixed"}) {
    const EmailPtr mail = receive(
        kFrom + multipart(subtype, {html("<img src=\"http://evil/"), seal(html("secret")), html("\">")}));
    ASSERT_EQ(mail->getNumParts(), 3) << subtype;
    for (int i = 0; i < 3; ++i) {
      const std::string_view body = mail->getPart(i)->m_body.view();
      EXPECT_FALSE(contains(body, "secret") && (contains(body, "evil") || contains(body, "\">"))) << body;
    }
  }
}

std::string attached(const std::string& message) { return "Content-Type: message/rfc822\r\n\r\n" + message; }

TEST_F(Spoof, a_signed_message_inside_another_does_not_speak_for_it) {
  const EmailPtr mail =
      receive("From: mallory@example.com\r\n" + multipart("mixed", {kForged, attached(kFrom + sign(kText))}));
  int counter = 0;
  const EmailPtr inner(mail->getAttachedMessage(0, counter, m_people.certs, m_log));
  ASSERT_TRUE(inner);
  EXPECT_EQ(printTree(inner), "plain") << "its layer is unwrapped";
  EXPECT_EQ(sumOf(*mail), "nothing");
  EXPECT_FALSE(mail->getReceivedSigned() || mail->getAllSignaturesValid() || mail->getSignedBy(0, m_log));
  EXPECT_EQ(layersOf(*mail), "");
}

TEST_F(Spoof, an_attached_message_takes_nothing_from_the_signed_one_around_it) {
  const EmailPtr mail =
      receive(kFrom + sign(multipart("mixed", {kText, attached(kFrom + signedWrongly(kForged))})));
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
  for (const int cipher : {kCbc, kGcm})
    for (const std::size_t fromEnd : {1u, 17u, 40u}) {
      std::string changed = envelope(kText, {{"bob"}, cipher});
      changed[changed.size() - fromEnd] ^= 1;
      const EmailPtr mail = receive(kFrom + pkcs7Mime(changed, "enveloped-data"));
      if (mail->getAllDataDecrypted() && cipher == kCbc) continue;  // garbage, by its nature
      EXPECT_FALSE(contains(layersOf(*mail), "open")) << fromEnd;
      EXPECT_EQ(mail->m_body.view(), changed) << fromEnd;
    }
}

// Tampering

/// The signed content as a reader sees it: everything of the tree but the outer header.
std::string shownTo(const Email2& node) {
  std::string out(node.m_contentType.m_type.view());
  out.append(":").append(node.m_body.view()).append("(");
  for (int i = 0; i < node.getNumParts(); ++i) out += shownTo(*node.getPartConst(i));
  return out + ")";
}

/// Whether every displayed part is covered by a good signature.
bool claimsToBeGood(const Email2& mail) {
  const auto isFaultless = [](const SecureLayer& layer) {
    return layer.isSigned() && layer.allSignaturesValid() && layer.part == "1" && layer.uncovered.empty();
  };
  return mail.getAllSignaturesValid() && std::ranges::any_of(mail.m_common->m_secureLayers, isFaultless);
}

TEST_F(Spoof, no_changed_byte_of_what_was_signed_is_called_valid) {
  const std::string content = alternative(
      kText,
      "Content-Type: text/html\r\nContent-Transfer-Encoding: base64\r\n\r\nPHA+UGF5IEJvYiAxMC48L3A+\r\n");
  const std::pair<const char*, std::string> rows[] = {{"detached", sign(content)},
                                                      {"opaque", wrap(content)},
                                                      {"cbc", seal(sign(content))},
                                                      {"gcm", seal(sign(content), "bob", kGcm)}};
  constexpr std::size_t kPositions = 500;  // of each of the four
  for (const auto& [what, entity] : rows) {
    const std::string message = kFrom + entity, good = shownTo(*receive(message));
    for (std::size_t at = kFrom.size() + 1; at < message.size(); at += message.size() / kPositions) {
      std::string changed = message;
      changed[at] = static_cast<char>(changed[at] ^ (1 << (at % 7)));
      const EmailPtr mail = receive(changed);
      const bool isOpenGcm =
          std::string_view(what) == "gcm" && mail->getReceivedEncrypted() && mail->getAllDataDecrypted();
      if (!claimsToBeGood(*mail) && !isOpenGcm) continue;
      EXPECT_EQ(shownTo(*mail), good) << what << " at " << at << ": " << changed.substr(at - 1, 20);
    }
  }
}

TEST_F(Spoof, split_related_blocks_are_not_joined_across_the_edge_of_a_layer) {
  const auto related = [](const std::string& text) {
    return multipart("related", {"Content-Type: text/html\r\n\r\n" + text});
  };
  const std::string forged = related("FORGED"), genuine = related("GENUINE");
  const std::string joined = "alternative(related(html,html))",
                    apart = "alternative(related(html),related(html))";
  const std::pair<std::string, std::string> rows[] = {{alternative(forged, seal(genuine)), apart},
                                                      {alternative(sign(genuine), forged), apart},
                                                      {sign(alternative(genuine, genuine)), joined},
                                                      {alternative(genuine, genuine), joined}};
  for (const auto& [entity, tree] : rows) EXPECT_EQ(printTree(receiveBytes(kFrom + entity)), tree) << entity;
}

TEST_F(Spoof, a_layer_too_many_is_met_and_not_believed) {
  std::string nested = kText, signedTen = signedWrongly(kForged);
  for (int i = 0; i < 11; ++i) nested = seal(nested);
  for (int i = 0; i < 10; ++i) signedTen = sign(signedTen);
  const std::string good = wrap(kText), bad = signedWrongly(kForged);
  const std::string siblings =
      multipart("alternative", {good, good, good, good, good, good, good, good, good, good, bad, bad});
  const std::pair<std::string, const char*> rows[] = {
      {nested, "0 signed, 11 encrypted, valid, not all decrypted"},
      {signedTen, "11 signed, 0 encrypted, invalid, decrypted"},
      {siblings, "12 signed, 0 encrypted, invalid, decrypted"},
  };
  for (const auto& [entity, sum] : rows) {
    const EmailPtr mail = receive(kFrom + entity);
    EXPECT_EQ(sumOf(*mail), sum);
    EXPECT_EQ(mail->m_common->m_secureLayers.size(), 11) << sum;
  }
}

TEST_F(Spoof, a_field_added_around_the_signed_ones_is_listed) {
  const std::string inner = kFrom + "Subject: Boat\r\n" + kText;
  const std::pair<const char*, const char*> rows[] = {
      {"Subject: Boat\r\nReceived: here\r\n", ""},
      {"Subject: Fraud\r\nSubject: Boat\r\n", "Subject: Boat|Fraud"},
      {"Subject: Boat\r\nSubject: Fraud\r\n", "Subject: Boat|Fraud"},
      {"Subject: \r\nSubject: Boat\r\n", "Subject: Boat|"},
      {"", "Subject: Boat|"},
      {"Subject: Boat\r\nReply-To: mallory@example.net\r\n", "Reply-To: |mallory@example.net"},
  };
  for (const auto& [header, listed] : rows) {
    std::string differing;
    const EmailPtr mail = receive(kFrom + header + sign(inner));
    for (const InnerField& each : mail->m_common->m_innerFields)
      differing += each.name + ": " + each.inside + "|" + each.outside;
    EXPECT_EQ(differing, listed) << header;
  }
}

TEST_F(Spoof, a_field_contradicts_only_one_that_says_something_else) {
  const std::tuple<const char*, const char*, const char*, bool> rows[] = {
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
  const auto compared = [](const std::string& name, const std::string& value) {
    MimeHeader header;
    header.loadFromEntity(name + ": " + value + "\r\n\r\n");
    return comparedValue(header, 0);
  };
  for (const auto& [name, inside, outside, same] : rows)
    EXPECT_EQ(compared(name, inside) == compared(name, outside), same) << name << outside;
}

}  // namespace
}  // namespace mailtree
