// What is read when somebody else wrote it: other encodings, other contents, and hostile ones.
#include <gmock/gmock.h>
#include <zlib.h>

#include <random>

#include "mailtree/crypto/Pkcs7Internal.h"
#include "mailtree/mime/coding/ContentCoding.h"
#include "tests/cli/command.h"
#include "tests/crypto/pkcs7_fixtures.h"

namespace mailtree {
namespace {

using namespace std::string_view_literals;
using testing::HasSubstr;

std::string indefinite(unsigned char tag, std::string_view content) {
  return std::string(1, static_cast<char>(tag)) + '\x80' + std::string(content) + std::string(2, '\0');
}

std::string element(unsigned char tag, std::string_view content) {
  return derOf([&](DerBackwardWriter& out) {
    out.put(content);
    out.wrap(tag, 0);
  });
}

std::string repeated(std::string_view piece, int times) {
  std::string text;
  for (int i = 0; i < times; ++i) text += piece;
  return text;
}

const std::string kLong = repeated("A line of the content.\r\n", 300);

/// A frame, with a content of the test's own, written as a streaming writer does: no length known beforehand.
std::string inPieces(const Pkcs7Frame& frame, std::string_view content) {
  std::string pieces;
  for (std::size_t at = 0; at < content.size(); at += 1000)
    pieces += element(kDerOctetString, content.substr(at, 1000));
  const bool isEncrypted = frame.kind == LayerKind::enveloped || frame.kind == LayerKind::authEnveloped;
  const std::string tagged =
      indefinite(derContext(0), isEncrypted ? pieces : indefinite(kDerOctetString | kDerConstructed, pieces));
  const std::string info = indefinite(kDerSequence, std::string(frame.describe) + tagged);
  const std::string body =
      indefinite(kDerSequence, std::string(frame.before) + info + std::string(frame.after));
  return indefinite(kDerSequence, std::string(frame.type) + indefinite(derContext(0), body));
}

std::string inPieces(const std::string& der) {
  const auto frame = readPkcs7Frame(der);
  return inPieces(*frame, frame->content->content);
}

std::string armoured(const std::string& der) {
  StringBuffer text;
  ContentCoding::encodeBase64(der.data(), der.size(), text);
  return "-----BEGIN CMS-----\n" + text.extractString() + "\n-----END CMS-----\n";
}

std::string compressed(std::string_view text,
                       std::string_view algorithm = "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x10\x03\x08") {
  uLongf size = compressBound(static_cast<uLong>(text.size()));
  std::string packed(size, '\0');
  compress2(reinterpret_cast<Bytef*>(packed.data()), &size, reinterpret_cast<const Bytef*>(text.data()),
            static_cast<uLong>(text.size()), 1);
  packed.resize(size);
  const std::string info =
      element(kDerSequence, element(kDerObjectId, "\x2A\x86\x48\x86\xF7\x0D\x01\x07\x01") +
                                element(derContext(0), element(kDerOctetString, packed)));
  const std::string body =
      element(kDerInteger, "\0"sv) + element(kDerSequence, element(kDerObjectId, algorithm)) + info;
  return element(kDerSequence, element(kDerObjectId, "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x10\x01\x09") +
                                   element(derContext(0), element(kDerSequence, body)));
}

/// The frame encoded with another content and, when given, other elements after it.
std::string rebuilt(Pkcs7Frame frame, std::string_view content, std::string_view after = {}) {
  if (!after.empty()) frame.after = after;
  DataBuffer der;
  const auto room = encodeWithRoom(frame, content.size(), 0, der);
  std::copy(content.begin(), content.end(), room->content);
  return bytesOf(der);
}

/// "done", or the problem of one that stays closed and gives nothing out.
std::string outcomeOf(const Opened& opened) {
  if (opened.done) return opened.layer.problem.empty() ? "done" : "done: " + opened.layer.problem;
  EXPECT_EQ(opened.content, "untouched");
  return opened.layer.problem;
}

std::string withFlippedBit(std::string bytes, std::size_t at) {
  bytes[at] = static_cast<char>(bytes[at] ^ 1 << at % 8);
  return bytes;
}

TEST(Pkcs7Open, every_encoding_opens_alike) {
  for (const std::string& der :
       {signedBlob(kLong), envelope(kLong), envelope(kLong, {{"alice"}, kGcm}), compressed(kLong)}) {
    const std::string_view kind = nameOf(Pkcs7Opener::kindOf(der));
    for (const std::string& form :
         {der, inPieces(der), armoured(der), "\r\n" + armoured(inPieces(der)), der + "behind"}) {
      SCOPED_TRACE(testing::Message() << kind << " " << shown(form));
      EXPECT_EQ(nameOf(Pkcs7Opener::kindOf(form)), kind);
      const Opened opened = openBlob(form);
      EXPECT_EQ(outcomeOf(opened), "done");
      EXPECT_TRUE(opened.content == kLong);
      EXPECT_EQ(opened.layer.allSignaturesValid(), opened.layer.isSigned());
    }
  }
}

TEST(Pkcs7Open, the_kind_is_told_from_the_first_fields) {
  const std::string detached = signedBlob("x", {{"alice"}, true});
  auto frame = readPkcs7Frame(detached);
  const auto certificates = DerReader(frame->after).nextIf(derContext(0));
  const std::string bundle = std::string(certificates->whole) + element(kDerSet, "");
  frame->after = bundle;
  const std::string certificatesOnly = withoutContent(*frame);
  EXPECT_EQ(nameOf(Pkcs7Opener::kindOf(detached)), "detached-signature");
  EXPECT_EQ(nameOf(Pkcs7Opener::kindOf(certificatesOnly)), "certificates-only");
  for (const std::string& bytes : {std::string(), std::string("\x30"), std::string("From: somebody\r\n"),
                                   std::string("-----BEGIN CMS-----\nno end"), detached.substr(0, 200)})
    EXPECT_EQ(nameOf(Pkcs7Opener::kindOf(bytes)), "unknown") << shown(bytes);
  const Opened opened = openBlob(certificatesOnly);
  EXPECT_EQ(outcomeOf(opened), "");
  EXPECT_EQ(opened.layer.certificates.size(), 3U);
  EXPECT_EQ(outcomeOf(openBlob(detached)), "the signature does not contain the signed content");
  EXPECT_EQ(verifyBlob(certificatesOnly, "x").problem, "no signature");
}

TEST(Pkcs7Open, a_changed_signature_or_content_is_never_valid) {
  const std::string opaque = signedBlob(kLong, {{"alice", "carol"}});
  const std::string detached = signedBlob(kLong, {{"carol"}, true});
  // A change outside of what is covered is harmless, as long as the content is the one that was signed.
  for (std::size_t at = 0; at < opaque.size(); at += opaque.size() / 1000) {
    const Opened opened = openBlob(withFlippedBit(opaque, at));
    EXPECT_TRUE(!opened.layer.allSignaturesValid() || opened.content == kLong) << at;
  }
  for (std::size_t at = 0; at < kLong.size(); at += kLong.size() / 100)
    EXPECT_FALSE(verifyBlob(detached, withFlippedBit(kLong, at)).allSignaturesValid()) << at;
}

TEST(Pkcs7Open, a_changed_envelope_gives_nothing_out) {
  for (const int cipher : {kCbc, kGcm}) {
    const std::string blob = envelope(kLong, {{"carol", "dave"}, cipher});
    int refused = 0;
    for (std::size_t i = 0; i < 1000; ++i) {
      const Opened opened = openBlob(withFlippedBit(blob, i * blob.size() / 1000));
      refused += opened.done ? 0 : 1;
      EXPECT_NE(outcomeOf(opened), "") << i;
      EXPECT_TRUE(!opened.done || cipher == kCbc || opened.content == kLong) << i;
    }
    EXPECT_GT(refused, cipher == kGcm ? 900 : 10) << cipher;
  }
}

TEST(Pkcs7Open, failures_to_decrypt_look_alike) {
  for (const char* who : {"alice", "carol"})
    for (const int cipher : {kCbc, kGcm}) {
      const std::string blob = envelope(kLong, {{who}, cipher});
      const auto frame = readPkcs7Frame(blob);
      const auto offsetOf = [&](const char* at) { return static_cast<std::size_t>(at - blob.data()); };
      const std::string_view content = frame->content->content;
      for (const std::size_t at : {offsetOf(frame->before.end()) - 3, offsetOf(content.begin()) + 20,
                                   offsetOf(content.end()) - 20}) {
        std::string bytes = blob;
        bytes[at] ^= 0x55;
        const Opened opened = openBlob(bytes);
        if (opened.done && cipher == kCbc)
          continue;  // it does not notice, or one padding in 256 is right by chance
        EXPECT_EQ(outcomeOf(opened), "could not be decrypted") << who << " " << cipher << " " << at;
        EXPECT_FALSE(opened.layer.recipient);
      }
    }
}

TEST(Pkcs7Open, without_a_key_nothing_is_tried) {
  SystemCerts bob;
  addIdentities(bob, {"bob.pem", "bob.key"});
  const Opened opened = openBlob(envelope("x", {{"alice", "carol"}, kGcm}), bob);
  EXPECT_EQ(outcomeOf(opened), "no private key of any recipient");
  EXPECT_EQ(opened.layer.cipher + " " + opened.layer.keyTransport, "aes-256-gcm rsa");
}

TEST(Pkcs7Open, a_tag_that_can_be_guessed_and_authenticated_attributes_are_refused) {
  const std::string blob = envelope("x", {{"alice"}, kGcm});
  const auto frame = readPkcs7Frame(blob);
  const std::string tag(frame->mac);
  const std::string attribute =
      element(derContext(1), element(kDerSequence, element(kDerObjectId, "\x2A\x03")));
  const std::string unsafe = "the authentication tag has an unsafe size";
  const std::pair<std::string, std::string> rows[] = {
      {element(kDerOctetString, tag), "done"},
      {element(kDerOctetString, tag.substr(0, 11)), unsafe},
      {element(kDerOctetString, ""), unsafe},
      {element(kDerOctetString, tag + "x"), unsafe},
      {attribute + element(kDerOctetString, tag), "authenticated attributes are not supported"}};
  for (const auto& [after, outcome] : rows)
    EXPECT_EQ(outcomeOf(openBlob(rebuilt(*frame, frame->content->content, after))), outcome);
}

TEST(Pkcs7Open, compressed_content_is_unpacked_within_bounds) {
  const std::string whole = compressed(kLong);
  const auto cut = readPkcs7Frame(whole);
  const std::string_view packed = cut->content->content;
  const std::pair<std::string, const char*> rows[] = {
      {compressed(""), "done"},
      {compressed(std::string(std::size_t{5} << 20, 'z')), "done"},
      {compressed(std::string(kMinLayerBytes + 1, '\0')), "the decompressed content is too large"},
      {compressed("x", "\x2A\x03"), "unknown compression algorithm"},
      {rebuilt(*cut, packed.substr(0, packed.size() / 2)), "the compressed content is malformed"},
      {rebuilt(*cut, "no such stream"), "the compressed content is malformed"},
      {withoutContent(*cut), "the compressed content is missing"}};
  for (const auto& [bytes, outcome] : rows) EXPECT_EQ(outcomeOf(openBlob(bytes)), outcome) << shown(bytes);
}

TEST(Pkcs7Open, a_layer_that_costs_more_than_is_left_stays_closed) {
  const std::string packed = compressed(std::string(1000, 'z')), locked = envelope("x"),
                    sealed = signedBlob("x");
  const std::tuple<std::string, std::size_t, int, const char*> rows[] = {
      {packed, packed.size() - 1, 9, "are too large"},
      {packed, packed.size() + 999, 9, "content is too large"},
      {packed, packed.size() + 1000, 0, ""},
      {sealed, sealed.size() - 1, 9, "are too large"},
      {locked, locked.size(), 0, "too many key trials"},
      {locked, locked.size(), 1, ""}};
  for (const auto& [bytes, bytesLeft, trialsLeft, problem] : rows) {
    DataBuffer content;
    SecureLayer layer;
    LogNull log;
    LoadBudget budget;
    budget.layerBytes = bytesLeft;
    budget.keyTrials = trialsLeft;
    const bool fits = *problem == '\0';
    EXPECT_EQ(Pkcs7Opener::open(bytes, everybody(), content, layer, budget, log), fits) << problem;
    EXPECT_THAT(layer.problem, HasSubstr(problem));
    EXPECT_EQ(content.isEmpty() && (budget.outOfBytes || budget.outOfTrials), !fits) << problem;
    EXPECT_TRUE(!fits || budget.layerBytes + budget.keyTrials == 0) << "all of it is spent";
  }
}

TEST(Pkcs7Open, a_signature_with_a_content_of_its_own_covers_the_one_beside_it) {
  const SecureLayer other = verifyBlob(signedBlob("x"), "y"), same = verifyBlob(signedBlob("x"), "x");
  EXPECT_FALSE(other.allSignaturesValid());
  EXPECT_EQ(other.problem, "the signature contains different content than the part it signs");
  EXPECT_TRUE(same.allSignaturesValid() && same.problem.empty()) << same.problem;
}

/// A SignedData whose signer has no signed attributes, over what they were.
std::string withoutSignedAttributes(const std::string& der) {
  const auto frame = readPkcs7Frame(der);
  DerReader fields(frame->after);
  const std::string certificates(fields.nextIf(derContext(0))->whole);
  DerReader signer(DerReader(fields.nextIf(kDerSet)->content).nextIf(kDerSequence)->content);
  std::string attributes, rest;
  while (const auto field = signer.next())
    if (field->tag == derContext(0))
      attributes = element(kDerSet, field->content);
    else
      rest += field->whole;
  return rebuilt(*frame, attributes, certificates + element(kDerSet, element(kDerSequence, rest)));
}

std::string withoutCertificates(const std::string& blob, std::string_view content) {
  const auto frame = readPkcs7Frame(blob);
  DerReader fields(frame->after);
  fields.nextIf(derContext(0));
  return rebuilt(*frame, content, fields.rest());
}

TEST(Pkcs7Open, what_was_not_checked_is_neither_right_nor_wrong) {
  const auto changed = [](std::string blob, std::string_view from, std::string_view to) {
    for (std::size_t at = 0; (at = blob.find(from, at)) != std::string::npos; at += to.size())
      blob.replace(at, to.size(), to);
    return blob;
  };
  const std::string blob = signedBlob("x");
  auto otherType = readPkcs7Frame(blob);
  const std::string description =
      std::string(otherType->describe.substr(0, otherType->describe.size() - 1)) + '\x05';
  otherType->describe = description;
  LogNull log;
  SystemCerts strangers, anchored;
  anchored.addTrustAnchors(identityFile("alice.pem").c_str(), log);
  const std::tuple<std::string, SystemCerts&, const char*> rows[] = {
      {signedBlob("x", {{"alice"}, false, HashId::md5}), everybody(), "yyyy- rsa md5 [digest md5]"},
      {signedBlob("x", {{"weak"}, false, HashId::sha1}), everybody(),
       "yyyy- rsa sha1 [digest sha1] [key RSA 1024 bits]"},
      {blob, strangers, "yy-y- rsa sha256 no trust anchors were given"},
      {withoutCertificates(blob, "x"), strangers, "y----  sha256 no certificate of the signer"},
      {withoutCertificates(blob, "y"), strangers, "n----  sha256 the content is not the signed content"},
      {withoutCertificates(blob, "x"), everybody(), "yyyy- rsa sha256"},
      {withoutCertificates(blob, "x"), anchored, "yyyy- rsa sha256"},
      {rebuilt(*readPkcs7Frame(blob), "y"), everybody(),
       "nyyy- rsa sha256 the content is not the signed content"},
      {changed(blob, "\x60\x86\x48\x01\x65\x03\x04\x02\x01", "\x60\x86\x48\x01\x65\x03\x04\x02\x7F"),
       everybody(), "--yy- rsa unknown unknown digest algorithm"},
      {changed(blob, "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x04", "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x7F"),
       everybody(), "--yy- rsa sha256 the signature has no digest of the content"},
      {changed(blob, "\x01\x01\x01\x05\x00\x04"sv, "\x01\x01\x7F\x05\x00\x04"sv), everybody(),
       "y-yy- rsa sha256 the signature algorithm is unknown or does not match the signer's key"},
      {rebuilt(*otherType, "x"), everybody(), "ynyy- rsa sha256 the signature is for another content type"},
      // The signature over the attributes is, byte for byte, one over a content that looks like them.
      {withoutSignedAttributes(blob), everybody(),
       "-nyy- rsa sha256 the content may be the attributes of another signature"},
  };
  for (const auto& [bytes, certs, verdict] : rows)
    EXPECT_EQ(told(openBlob(bytes, certs).layer.signers.at(0)), verdict);
}

TEST(Pkcs7Open, hostile_bytes_are_read_in_bounded_time) {
  EXPECT_FALSE(openBlob(repeated("\x30\x80", 1'000'000)).done);

  const std::string locked = envelope("x");
  auto recipientFrame = readPkcs7Frame(locked);
  DerReader versionAndRecipients(recipientFrame->before);
  const std::string version(versionAndRecipients.next()->whole);
  const std::string before =
      version + element(kDerSet, repeated(versionAndRecipients.nextIf(kDerSet)->content, 10'001));
  recipientFrame->before = before;
  EXPECT_EQ(outcomeOf(openBlob(rebuilt(*recipientFrame, "x"))), "too many recipients");

  const std::string blob = signedBlob("x");
  const auto frame = readPkcs7Frame(blob);
  std::string nest = element(kDerOctetString, "x");
  for (int i = 0; i < 1000; ++i) nest = indefinite(kDerOctetString | kDerConstructed, nest);
  std::string deepContent = inPieces(*frame, "");
  const std::string empty = indefinite(kDerOctetString | kDerConstructed, "");
  EXPECT_FALSE(openBlob(deepContent.replace(deepContent.find(empty), empty.size(), nest)).done);

  DerReader fields(frame->after);
  const std::string certificates(fields.nextIf(derContext(0))->whole);
  const std::string signers = element(kDerSet, repeated(fields.nextIf(kDerSet)->content, 100'000));
  EXPECT_EQ(outcomeOf(openBlob(rebuilt(*frame, "x", certificates + signers))), "done: too many signers");
}

TEST(Pkcs7Open, no_damage_makes_it_fall) {
  std::mt19937 random(7);
  const std::string text(300, 't');
  for (const std::string& der :
       {signedBlob(text, {{"carol"}}), envelope(text, {{"carol"}, kGcm}), envelope(text, {{"carol"}}),
        compressed(text), inPieces(signedBlob(text, {{"carol"}}))}) {
    for (std::size_t size = 0; size < der.size(); size += 3)
      EXPECT_FALSE(openBlob(der.substr(0, size)).layer.allSignaturesValid());
    for (int round = 0; round < 500; ++round) {
      std::string bytes = der;
      for (int change = 0; change < 3; ++change) bytes[random() % bytes.size()] = static_cast<char>(random());
      const Opened opened = openBlob(bytes);
      EXPECT_TRUE(!opened.layer.allSignaturesValid() || opened.content == text) << round;
    }
  }
}

// ---- what the openssl command wrote; skipped where that is not installed
// -----------------------------------------

class Pkcs7Peer : public testing::Test {
 protected:
  void SetUp() override {
    if (cli_test::shell("openssl version").status != 0) GTEST_SKIP() << "no openssl command";
  }
  /// What it opens to here, from contents of several sizes, as long as that is the content.
  std::vector<Opened> openedFrom(const std::string& arguments) const {
    std::vector<Opened> all;
    for (const std::string& text :
         {std::string("bare\nline feeds  \nno last"), std::string(100'000, 'l'), std::string()}) {
      if (text.empty() && contains(arguments, "-stream")) continue;  // which it cannot do
      const auto result =
          cli_test::shell("cd '" + identityFile("") + "' && openssl cms -binary -outform DER -in " +
                          m_work.write("in", text) + " " + arguments);
      const bool isDetached = contains(arguments, "-sign ") && !contains(arguments, "-nodetach");
      all.push_back(isDetached ? Opened{true, text, verifyBlob(result.out, text)} : openBlob(result.out));
      EXPECT_TRUE(all.back().done && all.back().content == text) << arguments << shown(text) << result.err;
    }
    return all;
  }
  cli_test::Workspace m_work;
};

TEST_F(Pkcs7Peer, signs_what_is_verified_here) {
  for (const char* const arguments : {
           "-sign -signer alice.pem -inkey alice.key -nodetach -stream -md sha512",
           "-sign -signer alice.pem -inkey alice.key -noattr -md sha1",
           "-sign -signer carol.pem -inkey carol.key -noattr -nodetach",
           "-sign -signer bob.pem -inkey bob.key -keyopt rsa_padding_mode:pss -keyid -md sha384",
           "-sign -signer bob.pem -inkey bob.key -noattr -keyopt rsa_padding_mode:pss -nodetach",
           "-sign -signer dave.pem -inkey dave.key -cades -nodetach -nocerts",
           "-sign -signer alice.pem -inkey alice.key -signer carol.pem -inkey carol.key -nosmimecap "
           "-nodetach",
       })
    for (const Opened& opened : openedFrom(arguments)) {
      EXPECT_TRUE(opened.layer.allSignaturesValid()) << arguments;
      for (const auto& signer : opened.layer.signers) EXPECT_EQ(signer.problem, "") << arguments;
    }
}

TEST_F(Pkcs7Peer, encrypts_what_is_decrypted_here) {
  const std::pair<const char*, std::string> rows[] = {
      {"-encrypt -aes256 -stream alice.pem bob.pem", "aes-256-cbc rsa"},
      {"-encrypt -aes-256-gcm alice.pem", "aes-256-gcm rsa"},
      {"-encrypt -aes-128-gcm -stream -keyid carol.pem", "aes-128-gcm ecdh"},
      {"-encrypt -aes192 -recip alice.pem -keyopt rsa_padding_mode:oaep -keyopt rsa_oaep_md:sha256",
       "aes-192-cbc rsa-oaep"},
      {"-encrypt -aes256 -recip dave.pem -keyopt ecdh_kdf_md:sha384", "aes-256-cbc ecdh"},
      {"-encrypt -aes256 -recip carol.pem -keyopt ecdh_cofactor_mode:1", "aes-256-cbc ecdh"},
      {"-encrypt -provider default -provider legacy -rc2 alice.pem", "rc2-cbc rsa"},
      {"-encrypt -provider default -provider legacy -des alice.pem", "des-cbc rsa"},
  };
  for (const auto& [arguments, how] : rows)
    for (const Opened& opened : openedFrom(arguments))
      EXPECT_EQ(opened.layer.cipher + " " + opened.layer.keyTransport, how) << arguments;
}

}  // namespace
}  // namespace mailtree
