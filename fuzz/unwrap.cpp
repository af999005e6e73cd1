// Security layers of received messages, with keys. The first byte of the input says what the rest is: a CMS
// blob, a detached signature, or a whole message. Any input loads; totals agree with the layers; an unopened
// layer keeps its bytes; the result can be written and loaded again.
#include <string>

#include "fuzz/messages.h"
#include "mailtree/mime/coding/ContentCoding.h"

using namespace mailtree;

namespace {

constexpr const char* kContent = "Content-Type: text/plain\r\n\r\nHello\r\n";

SystemCerts& keys() {
  static SystemCerts certs;
  if (certs.getNumCertificates() > 0) return certs;
  LogNull log;
  for (const char* name : {"alice.pem", "alice.key", "bob.pem", "bob.key", "carol.pem", "carol.key"})
    certs.addFromFile((std::string(MAILTREE_TEST_DATA "/secure/") + name).c_str(), nullptr, log);
  certs.addTrustAnchors(MAILTREE_TEST_DATA "/secure/root.pem", log);
  fuzz::require(certs.getNumCertificates() == 3, "the keys can be read");
  return certs;
}

std::string base64(std::string_view bytes) {
  StringBuffer text;
  ContentCoding::encodeBase64(bytes.data(), bytes.size(), text);
  return text.extractString();
}

std::string messageOf(unsigned char form, std::string_view bytes) {
  const std::string from = "From: alice@example.com\r\n";
  const std::string inBase64 = "Content-Transfer-Encoding: base64\r\n\r\n";
  switch (form % 3) {
    case 0: return from + "Content-Type: application/pkcs7-mime\r\n" + inBase64 + base64(bytes);
    case 1:
      return from +
             "Content-Type: multipart/signed; protocol=\"application/pkcs7-signature\"; "
             "boundary=b\r\n\r\n--b\r\n" +
             kContent + "\r\n--b\r\nContent-Type: application/pkcs7-signature\r\n" + inBase64 +
             base64(bytes) + "\r\n--b--\r\n";
    default: return std::string(bytes);
  }
}

EmailPtr receive(const std::string& message) {
  LogMemory log;
  EmailPtr root(Email2::createFromMimeText2a(*new _svEmailCommon, message.data(),
                                             static_cast<int>(message.size()), keys(), log, false));
  fuzz::require(root != nullptr, "any input loads");
  return root;
}

void requireConsistentTotals(const _svEmailCommon& common) {
  bool valid = true, decrypted = true;
  int numSigned = 0, numEncrypted = 0;
  for (const SecureLayer& layer : common.m_secureLayers) {
    numSigned += layer.isSigned();
    numEncrypted += layer.isEncrypted();
    if (layer.isSigned()) valid &= layer.opened && layer.allSignaturesValid();
    if (layer.isEncrypted()) decrypted &= layer.opened;
    fuzz::require(layer.opened || !layer.problem.empty() || layer.kind == LayerKind::certificatesOnly,
                  "an unopened layer has a reason");
  }
  fuzz::require(numSigned == common.m_numSignedLayers && numEncrypted == common.m_numEncryptedLayers,
                "every layer counts once");
  fuzz::require(common.m_secureLayers.size() <= static_cast<std::size_t>(kMaxUnwrappedLayers),
                "the number of layers is limited");
  if (!common.m_receivedSecure) return;
  fuzz::require(valid == common.m_allSignaturesValid && decrypted == common.m_allDataDecrypted,
                "the totals agree with the layers");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = fuzz::textOf(data, size);
  if (input.empty()) return 0;
  const auto form = static_cast<unsigned char>(input.front());
  const std::string_view bytes = input.substr(1);
  const EmailPtr root = receive(messageOf(form, bytes));
  const _svEmailCommon& common = *root->m_common;
  requireConsistentTotals(common);
  const bool isUnopened = common.m_secureLayers.size() == 1 && !common.m_secureLayers[0].opened;
  const bool holdsFiles = contains(bytes, "begin 6");  // uuencoded files are taken out of any body
  if (form % 3 == 0 && isUnopened && !holdsFiles)
    fuzz::require(root->m_body.view() == bytes, "an unopened layer keeps its bytes");
  const std::string written = fuzz::write(*root, false);
  requireConsistentTotals(*receive(written)->m_common);
  return 0;
}
