// What is read when somebody else wrote it: other encodings, other contents, and hostile ones.
#include <gmock/gmock.h>
#include <zlib.h>

#include <random>

#include "mailtree/crypto/Pkcs7Internal.h"
#include "tests/crypto/pkcs7_fixtures.h"

namespace mailtree {
namespace {

using namespace std::string_view_literals;
using testing::HasSubstr;

constexpr int kCbc = static_cast<int>(ContentCipher::aesCbc);
constexpr int kGcm = static_cast<int>(ContentCipher::aesGcm);
constexpr std::string_view kFailure = "could not be decrypted";

std::string longText() {
  std::string text;
  for (int i = 0; i < 300; ++i) text += "Line " + std::to_string(i) + " of a content.\r\n";
  return text;
}

std::string indefinite(unsigned char tag, std::string_view content) {
  return std::string(1, static_cast<char>(tag)) + '\x80' + std::string(content) + std::string(2, '\0');
}

std::string element(unsigned char tag, std::string_view content) {
  return derOf([&](DerBackwardWriter& out) {
    out.put(content);
    out.wrap(tag, 0);
  });
}

/// A frame, with a content of the test's own, written as a streaming writer does: no length known beforehand.
std::string inPieces(const Pkcs7Frame& frame, std::string_view content) {
  std::string pieces;
  for (std::size_t at = 0; at < content.size(); at += 1000)
    pieces += element(kDerOctetString, content.substr(at, 1000));
  const bool isEncrypted = frame.kind == LayerKind::enveloped || frame.kind == LayerKind::authEnveloped;
  const std::string tagged =
      indefinite(derContext(0), isEncrypted ? pieces : indefinite(kDerOctetString | kDerConstructed, pieces));
  const std::string body =
      indefinite(kDerSequence, std::string(frame.before) +
                                   indefinite(kDerSequence, std::string(frame.describe) + tagged) +
                                   std::string(frame.after));
  return indefinite(kDerSequence, std::string(frame.type) + indefinite(derContext(0), body));
}

std::string inPieces(const std::string& der) {
  const auto frame = readPkcs7Frame(der);
  return inPieces(*frame, frame->content->content);
}

std::string armoured(const std::string& der) {
  static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text = "-----BEGIN CMS-----\n";
  for (std::size_t at = 0; at < der.size(); at += 3) {
    unsigned bits = 0;
    for (std::size_t i = 0; i < 3; ++i)
      bits = bits << 8 | (at + i < der.size() ? static_cast<unsigned char>(der[at + i]) : 0);
    for (std::size_t i = 0; i < 4; ++i)
      text += at + i <= der.size() ? kDigits[bits >> (18 - 6 * i) & 63] : '=';
    if (at % 48 == 45) text += '\n';
  }
  return text + "\n-----END CMS-----\n";
}

std::string compressed(std::string_view text,
                       std::string_view algorithm = "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x10\x03\x08"sv) {
  std::string packed(compressBound(static_cast<uLong>(text.size())), '\0');
  uLongf size = static_cast<uLongf>(packed.size());
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

/// The frame encoded with another content.
std::string rebuilt(const Pkcs7Frame& frame, std::string_view content) {
  DataBuffer der;
  const auto room = encodeWithRoom(frame, content.size(), 0, der);
  std::copy(content.begin(), content.end(), room->content);
  return bytesOf(der);
}

TEST(Pkcs7Open, every_encoding_opens_alike) {
  const std::string text = longText();
  EncryptAs gcm;
  gcm.cipher = kGcm;
  for (const std::string& der : {signedBlob(text), envelope(text), envelope(text, gcm), compressed(text)}) {
    const std::string_view kind = nameOf(Pkcs7Opener::kindOf(der));
    for (const std::string& form :
         {der, inPieces(der), armoured(der), "\r\n" + armoured(inPieces(der)), der + "behind"}) {
      SCOPED_TRACE(testing::Message() << kind << " " << shown(form));
      EXPECT_EQ(nameOf(Pkcs7Opener::kindOf(form)), kind);
      const Opened opened = openBlob(form);
      EXPECT_TRUE(opened.done) << opened.layer.problem;
      EXPECT_TRUE(opened.content == text);
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

  const struct {
    std::string bytes;
    LayerKind kind;
  } rows[] = {{detached, LayerKind::detachedSignature},
              {certificatesOnly, LayerKind::certificatesOnly},
              {"", LayerKind::unknown},
              {"\x30", LayerKind::unknown},
              {"From: somebody\r\n", LayerKind::unknown},
              {"-----BEGIN CMS-----\nno end", LayerKind::unknown},
              {detached.substr(0, 200), LayerKind::unknown}};
  for (const auto& row : rows)
    EXPECT_EQ(nameOf(Pkcs7Opener::kindOf(row.bytes)), nameOf(row.kind)) << shown(row.bytes);

  const Opened opened = openBlob(certificatesOnly);
  EXPECT_FALSE(opened.done);
  EXPECT_EQ(opened.layer.problem, "");
  EXPECT_EQ(opened.layer.certificates.size(), 3U);
  EXPECT_FALSE(openBlob(detached).done);
  EXPECT_THAT(openBlob(detached).layer.problem, HasSubstr("not part of"));
  EXPECT_THAT(verifyBlob(certificatesOnly, "x").problem, HasSubstr("no signature"));
}

TEST(Pkcs7Open, a_changed_signature_or_content_is_never_valid) {
  const std::string text = longText();
  const std::string opaque = signedBlob(text, {{"alice", "carol"}});
  const std::string detached = signedBlob(text, {{"carol"}, true});
  for (std::size_t i = 0; i < 1000; ++i) {
    std::string bytes = opaque;
    const std::size_t at = i * opaque.size() / 1000;
    bytes[at] = static_cast<char>(bytes[at] ^ 1 << i % 8);
    const Opened opened = openBlob(bytes);
    // A change outside of what is covered is harmless, as long as the content is the one that was signed.
    if (opened.layer.allSignaturesValid()) {
      EXPECT_TRUE(opened.content == text) << "position " << at;
    }

    std::string other = text;
    other[i * text.size() / 1000] ^= 0x20;
    if (i % 10 == 0) {
      EXPECT_FALSE(verifyBlob(detached, other).allSignaturesValid()) << i;
    }
  }
}

TEST(Pkcs7Open, a_changed_envelope_gives_nothing_out) {
  const std::string text = longText();
  for (const int cipher : {kCbc, kGcm}) {
    const std::string blob = envelope(text, {{"carol", "dave"}, cipher});
    int refused = 0;
    for (std::size_t i = 0; i < 1000; ++i) {
      std::string bytes = blob;
      const std::size_t at = i * blob.size() / 1000;
      bytes[at] = static_cast<char>(bytes[at] ^ 1 << i % 8);
      const Opened opened = openBlob(bytes);
      if (!opened.done) {
        EXPECT_EQ(opened.content, "untouched") << "position " << at;
        EXPECT_NE(opened.layer.problem, "") << "position " << at;
        ++refused;
      } else if (cipher == kGcm) {
        EXPECT_TRUE(opened.content == text) << "position " << at;
      }
    }
    EXPECT_GT(refused, cipher == kGcm ? 900 : 10) << cipher;
  }
}

TEST(Pkcs7Open, failures_to_decrypt_look_alike) {
  const std::string text = longText();
  for (const char* who : {"alice", "carol"})
    for (const int cipher : {kCbc, kGcm}) {
      const std::string blob = envelope(text, {{who}, cipher});
      const auto frame = readPkcs7Frame(blob);
      const auto set =
          frame->before.size() + static_cast<std::size_t>(frame->before.data() - blob.data()) - 3;
      const auto content = static_cast<std::size_t>(frame->content->content.data() - blob.data());
      const struct {
        const char* what;
        std::size_t at;
      } rows[] = {{"encrypted key", set},
                  {"content", content + 20},
                  {"end of the content", content + frame->content->content.size() - 20}};
      for (const auto& row : rows) {
        if (row.at == content + 20 && cipher == kCbc) continue;  // CBC does not notice
        std::string bytes = blob;
        bytes[row.at] ^= 0x55;
        const Opened opened = openBlob(bytes);
        if (opened.done) continue;  // one padding in 256 is right by chance
        EXPECT_EQ(opened.layer.problem, kFailure) << who << " " << cipher << " " << row.what;
        EXPECT_FALSE(opened.layer.recipient) << row.what;
      }
    }
}

TEST(Pkcs7Open, without_a_key_nothing_is_tried) {
  Holder bob("bob");
  const Opened opened = openBlob(envelope("x", {{"alice", "carol"}, kGcm}), bob.certs);
  EXPECT_FALSE(opened.done);
  EXPECT_EQ(opened.layer.problem, "no key for any recipient is at hand");
  EXPECT_EQ(opened.layer.cipher, "aes-256-gcm");
  EXPECT_EQ(opened.layer.keyTransport, "rsa");
}

TEST(Pkcs7Open, a_tag_that_can_be_guessed_and_authenticated_attributes_are_refused) {
  const std::string blob = envelope("x", {{"alice"}, kGcm});
  const auto frame = readPkcs7Frame(blob);
  const std::string tag(frame->mac);
  const std::string attribute = element(kDerSequence, element(kDerObjectId, "\x2A\x03"));
  const struct {
    std::string after;
    const char* problem;
  } rows[] = {
      {element(kDerOctetString, tag), ""},
      {element(kDerOctetString, tag.substr(0, 11)), "no safe size"},
      {element(kDerOctetString, tag.substr(0, 1)), "no safe size"},
      {element(kDerOctetString, ""), "no safe size"},
      {element(kDerOctetString, tag + "x"), "no safe size"},
      {element(derContext(1), attribute) + element(kDerOctetString, tag), "authenticated attributes"}};
  for (const auto& row : rows) {
    Pkcs7Frame changed = *frame;
    changed.after = row.after;
    const Opened opened = openBlob(rebuilt(changed, frame->content->content));
    EXPECT_EQ(opened.done, *row.problem == '\0') << row.problem << opened.layer.problem;
    EXPECT_THAT(opened.layer.problem, HasSubstr(row.problem));
  }
}

TEST(Pkcs7Open, compressed_content_is_unpacked_within_bounds) {
  const std::string whole = compressed(longText());
  auto cut = readPkcs7Frame(whole);
  const std::string_view packed = cut->content->content;
  const struct {
    std::string bytes;
    const char* problem;
  } rows[] = {{compressed(""), ""},
              {compressed(std::string(std::size_t{5} << 20, 'z')), ""},
              {compressed(std::string(kLeastLayerBytes + 1, '\0')), "more than is allowed"},
              {compressed("x", "\x2A\x03"), "not known"},
              {rebuilt(*cut, packed.substr(0, packed.size() / 2)), "malformed"},
              {rebuilt(*cut, "no such stream"), "malformed"},
              {withoutContent(*cut), "missing"}};
  for (const auto& row : rows) {
    const Opened opened = openBlob(row.bytes);
    EXPECT_EQ(opened.done, *row.problem == '\0') << row.problem << shown(row.bytes);
    EXPECT_THAT(opened.layer.problem, HasSubstr(row.problem));
    if (!opened.done) {
      EXPECT_EQ(opened.content, "untouched") << row.problem;
    }
  }
}

TEST(Pkcs7Open, a_layer_that_costs_more_than_is_left_stays_closed) {
  const std::string packed = compressed(std::string(1000, 'z')), locked = envelope("x"),
                    sealed = signedBlob("x");
  const struct {
    std::string bytes;
    std::size_t bytesLeft;
    int trialsLeft;
    const char* problem;
  } rows[] = {{packed, packed.size() - 1, 9, "hold more"},
              {packed, packed.size() + 999, 9, "unpacks to more"},
              {packed, packed.size() + 1000, 0, ""},
              {sealed, sealed.size() - 1, 9, "hold more"},
              {locked, locked.size() - 1, 9, "hold more"},
              {locked, locked.size(), 0, "too many tries"},
              {locked, locked.size(), 1, ""}};
  for (const auto& row : rows) {
    DataBuffer content;
    SecureLayer layer;
    LogNull log;
    LoadBudget budget;
    budget.layerBytes = row.bytesLeft;
    budget.keyTrials = row.trialsLeft;
    const bool fits = *row.problem == '\0';
    EXPECT_EQ(Pkcs7Opener::open(row.bytes, everybody(), content, layer, budget, log), fits) << row.problem;
    EXPECT_THAT(layer.problem, HasSubstr(row.problem));
    EXPECT_EQ(content.isEmpty() && (budget.lackedBytes || budget.lackedTrials), !fits) << row.problem;
    EXPECT_TRUE(!fits || budget.layerBytes + budget.keyTrials == 0) << "all of it is spent";
  }
}

TEST(Pkcs7Open, a_signature_with_a_content_of_its_own_covers_the_one_beside_it) {
  const std::string blob = signedBlob("inside");
  const SecureLayer other = verifyBlob(blob, "beside");
  EXPECT_FALSE(other.allSignaturesValid());
  EXPECT_THAT(other.problem, HasSubstr("content of its own"));
  const SecureLayer same = verifyBlob(blob, "inside");
  EXPECT_TRUE(same.allSignaturesValid());
  EXPECT_EQ(same.problem, "");
  auto frame = readPkcs7Frame(blob);
  EXPECT_FALSE(openBlob(rebuilt(*frame, "")).layer.allSignaturesValid());
}

TEST(Pkcs7Open, a_signature_is_for_the_type_that_it_names) {
  const std::string blob = signedBlob("inside");
  auto frame = readPkcs7Frame(blob);
  std::string otherType(frame->describe);
  otherType.back() = '\x05';
  frame->describe = otherType;
  const Opened opened = openBlob(rebuilt(*frame, "inside"));
  ASSERT_EQ(opened.layer.signers.size(), 1U);
  EXPECT_EQ(opened.layer.signers[0].digestMatched, Answer::yes);
  EXPECT_EQ(opened.layer.signers[0].signatureVerified, Answer::no);
  EXPECT_THAT(opened.layer.signers[0].problem, HasSubstr("another type"));
}

/// A SignedData whose signer has no signed attributes: what they were before is returned in `attributes`.
std::string withoutSignedAttributes(const std::string& der, std::string& attributes, std::string& after) {
  auto frame = readPkcs7Frame(der);
  DerReader fields(frame->after);
  const auto certificates = fields.nextIf(derContext(0));
  DerReader signer(DerReader(fields.nextIf(kDerSet)->content).nextIf(kDerSequence)->content);
  std::string rest;
  while (const auto field = signer.next()) {
    if (field->tag == derContext(0))
      attributes = element(kDerSet, field->content);
    else
      rest += field->whole;
  }
  after = std::string(certificates->whole) + element(kDerSet, element(kDerSequence, rest));
  frame->after = after;
  return rebuilt(*frame, attributes);
}

TEST(Pkcs7Open, signed_attributes_do_not_pass_for_a_signed_content) {
  std::string attributes;
  std::string after;
  // The signature over the attributes is, byte for byte, one over a content that looks like them.
  const Opened opened = openBlob(withoutSignedAttributes(signedBlob("inside"), attributes, after));
  ASSERT_EQ(opened.layer.signers.size(), 1U);
  EXPECT_FALSE(opened.layer.signers[0].isValid());
  EXPECT_THAT(opened.layer.signers[0].problem, HasSubstr("attributes of another signature"));
}

TEST(Pkcs7Open, what_is_wrong_with_a_signer_is_told) {
  const struct {
    SignAs as;
    std::vector<std::string> weaknesses;
  } weak[] = {{{{"alice"}, false, HashId::md5}, {"digest md5"}},
              {{{"weak"}, false, HashId::sha1}, {"digest sha1", "key RSA 1024 bits"}},
              {{{"alice"}, false, HashId::sha256}, {}}};
  for (const auto& row : weak) {
    const Opened opened = openBlob(signedBlob("x", row.as));
    EXPECT_TRUE(opened.layer.allSignaturesValid());
    EXPECT_EQ(opened.layer.signers.at(0).weaknesses, row.weaknesses);
  }

  SystemCerts strangers;
  const SignerVerdict unknown = openBlob(signedBlob("x"), strangers).layer.signers.at(0);
  EXPECT_TRUE(unknown.isValid());
  EXPECT_EQ(unknown.chainTrusted, Answer::notChecked);
  EXPECT_THAT(unknown.problem, HasSubstr("no trust anchors"));
}

std::string withoutCertificates(const std::string& blob, std::string_view content) {
  auto frame = readPkcs7Frame(blob);
  DerReader fields(frame->after);
  fields.nextIf(derContext(0));
  frame->after = fields.rest();
  return rebuilt(*frame, content);
}

TEST(Pkcs7Open, what_was_not_checked_is_neither_right_nor_wrong) {
  constexpr Answer kYes = Answer::yes, kNo = Answer::no, kNone = Answer::notChecked;
  const auto changed = [](std::string blob, std::string_view from, std::string_view to) {
    for (std::size_t at = 0; (at = blob.find(from, at)) != std::string::npos; at += to.size())
      blob.replace(at, to.size(), to);
    return blob;
  };
  const std::string blob = signedBlob("x");
  LogNull log;
  SystemCerts strangers, anchored;
  anchored.addTrustAnchors(identityFile("alice.pem").c_str(), log);
  const struct {
    std::string blob;
    SystemCerts& certs;
    Answer digest, signature;
    const char* problem;
  } rows[] = {
      {withoutCertificates(blob, "x"), strangers, kYes, kNone, "no certificate of the signer"},
      {withoutCertificates(blob, "y"), strangers, kNo, kNone, "the content is not the one"},
      {withoutCertificates(blob, "x"), everybody(), kYes, kYes, ""},
      {withoutCertificates(blob, "x"), anchored, kYes, kYes, ""},
      {rebuilt(*readPkcs7Frame(blob), "y"), everybody(), kNo, kYes, "the content is not the one"},
      {changed(blob, "\x60\x86\x48\x01\x65\x03\x04\x02\x01"sv, "\x60\x86\x48\x01\x65\x03\x04\x02\x7F"sv),
       everybody(), kNone, kNone, "the digest algorithm is not known"},
      {changed(blob, "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x04"sv, "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x7F"sv),
       everybody(), kNone, kNone, "there is no digest of the content in the signature"},
      {changed(blob, "\x01\x01\x01\x05\x00\x04"sv, "\x01\x01\x7F\x05\x00\x04"sv), everybody(), kYes, kNone,
       "the algorithm of the signature is not known"},
  };
  for (const auto& row : rows) {
    const SignerVerdict signer = openBlob(row.blob, row.certs).layer.signers.at(0);
    EXPECT_EQ(signer.digestMatched, row.digest) << &row - rows << signer.problem;
    EXPECT_EQ(signer.signatureVerified, row.signature) << &row - rows << signer.problem;
    EXPECT_THAT(signer.problem, HasSubstr(row.problem)) << &row - rows;
  }
}

TEST(Pkcs7Open, hostile_bytes_are_read_in_bounded_time) {
  std::string deep;
  for (int i = 0; i < 1'000'000; ++i) deep += "\x30\x80";
  EXPECT_FALSE(openBlob(deep).done);

  const std::string locked = envelope("x");
  auto envelopeFrame = readPkcs7Frame(locked);
  DerReader versionAndRecipients(envelopeFrame->before);
  const std::string version(versionAndRecipients.next()->whole);
  const auto recipients = versionAndRecipients.nextIf(kDerSet);
  std::string crowd;
  for (int i = 0; i < 50'000; ++i) crowd += recipients->content;
  const std::string before = version + element(kDerSet, crowd);
  envelopeFrame->before = before;
  EXPECT_EQ(openBlob(rebuilt(*envelopeFrame, "x")).layer.problem, "too many recipients");

  const std::string blob = signedBlob("x");
  auto frame = readPkcs7Frame(blob);
  std::string nest = element(kDerOctetString, "x");
  for (int i = 0; i < 1000; ++i) nest = indefinite(kDerOctetString | kDerConstructed, nest);
  std::string deepContent = inPieces(*frame, "");
  const std::string empty = indefinite(kDerOctetString | kDerConstructed, "");
  deepContent.replace(deepContent.find(empty), empty.size(), nest);
  EXPECT_FALSE(openBlob(deepContent).done);

  DerReader fields(frame->after);
  const std::string certificates(fields.nextIf(derContext(0))->whole);
  const auto signers = fields.nextIf(kDerSet);
  std::string many;
  for (int i = 0; i < 100'000; ++i) many += signers->content;
  const std::string after = certificates + element(kDerSet, many);
  frame->after = after;
  const Opened opened = openBlob(rebuilt(*frame, "x"));
  EXPECT_FALSE(opened.layer.allSignaturesValid());
  EXPECT_THAT(opened.layer.problem, HasSubstr("too many signers"));
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
      if (opened.layer.allSignaturesValid()) {
        EXPECT_EQ(opened.content, text) << round;
      }
    }
  }
}

}  // namespace
}  // namespace mailtree
