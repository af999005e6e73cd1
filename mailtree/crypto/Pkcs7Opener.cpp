#include "mailtree/crypto/Pkcs7Opener.h"

#include <openssl/cms.h>

#include <string>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Log.h"
#include "mailtree/crypto/Pem.h"
#include "mailtree/crypto/Pkcs7Internal.h"
#include "mailtree/crypto/internal.h"

namespace mailtree {
namespace {

constexpr std::string_view kArmour = "-----BEGIN ";
constexpr std::string_view kTooMuch = "not opened: the layers of the message are too large";

/// The bytes inside PEM armour, decoded into `decoded`; the bytes themselves without armour.
std::string_view withoutArmour(std::string_view bytes, DataBuffer& decoded) {
  if (!trimLeft(bytes).starts_with(kArmour)) return bytes;
  const auto block = PemReader(bytes).next();
  if (!block || !decodePemBody(*block, decoded)) return {};
  return decoded.view();
}

bool failed(SecureLayer& layer, std::string_view problem, LogBase& log) {
  layer.problem = problem;
  log.logError(problem);
  return false;
}

bool openSigned(const Pkcs7Frame& frame, SystemCerts& certs, DataBuffer& content, SecureLayer& layer,
                LoadBudget& budget, LogBase& log) {
  DataBuffer joined;
  const auto octets = contentOctets(frame, joined);
  if (!octets) return failed(layer, "the signed content is malformed", log);
  if (!verifySignedData(frame, *octets, certs, layer, budget)) return failed(layer, layer.problem, log);
  if (frame.contentType != kDataType) log.logInfo("The type of the signed content is not data.");
  if (joined.isEmpty() && !joined.append(*octets)) return failed(layer, "out of memory", log);
  content.takeData(joined);
  return true;
}

bool openLayer(const Pkcs7Frame& frame, SystemCerts& certs, DataBuffer& content, SecureLayer& layer,
               LoadBudget& budget, LogBase& log) {
  switch (frame.kind) {
    case LayerKind::opaqueSignature: return openSigned(frame, certs, content, layer, budget, log);
    case LayerKind::enveloped:
    case LayerKind::authEnveloped:
      return decryptEnvelope(frame, certs, content, layer, budget) || failed(layer, layer.problem, log);
    case LayerKind::compressed:
      return decompressContent(frame, content, layer, budget) || failed(layer, layer.problem, log);
    case LayerKind::certificatesOnly: verifySignedData(frame, {}, certs, layer, budget); return false;
    case LayerKind::detachedSignature:
      return failed(layer, "the signature does not contain the signed content", log);
    case LayerKind::unknown: break;
  }
  return failed(layer, "unknown kind of security layer", log);
}

/// A detached signature with an embedded content: what it covers is the part next to it.
void compareWithEmbedded(const Pkcs7Frame& frame, std::string_view content, SecureLayer& layer) {
  if (!frame.content || !layer.problem.empty()) return;
  DataBuffer joined;
  const auto embedded = contentOctets(frame, joined);
  if (!embedded || *embedded != content)
    layer.problem = "the signature contains different content than the part it signs";
}

}  // namespace

int nidOf(const X509_ALGOR* algorithm) {
  const ASN1_OBJECT* name = nullptr;
  if (algorithm) X509_ALGOR_get0(&name, nullptr, nullptr, algorithm);
  return name ? OBJ_obj2nid(name) : NID_undef;
}

NativeCms* parseWithoutContent(const Pkcs7Frame& frame) {
  const std::string bare = withoutContent(frame);
  CMS_ContentInfo* cms = CMS_ContentInfo_new_ex(contextAs<OSSL_LIB_CTX>(), nullptr);
  if (!cms) return nullptr;
  const auto* at = reinterpret_cast<const unsigned char*>(bare.data());
  if (!d2i_CMS_ContentInfo(&cms, &at, static_cast<long>(bare.size()))) {
    CMS_ContentInfo_free(cms);
    return nullptr;
  }
  return reinterpret_cast<NativeCms*>(cms);
}

bool Pkcs7Opener::verifyDetached(std::string_view der, std::string_view content, SystemCerts& certs,
                                 SecureLayer& layer, LogBase& log) {
  LoadBudget budget = LoadBudget::ofMessage(der.size() + content.size());
  return verifyDetached(der, content, certs, layer, budget, log);
}

bool Pkcs7Opener::verifyDetached(std::string_view der, std::string_view content, SystemCerts& certs,
                                 SecureLayer& layer, LoadBudget& budget, LogBase& log) {
  return neverThrow(false, [&] {
    const QuietErrors quiet;
    if (!budget.takeLayerBytes(der.size() + content.size())) return failed(layer, kTooMuch, log);
    DataBuffer decoded;
    const auto frame = readPkcs7Frame(withoutArmour(der, decoded));
    layer.kind = LayerKind::detachedSignature;
    const bool isSignedData =
        frame && (frame->kind == LayerKind::opaqueSignature || frame->kind == LayerKind::detachedSignature ||
                  frame->kind == LayerKind::certificatesOnly);
    if (!isSignedData) return failed(layer, "the signature is malformed", log);
    if (!verifySignedData(*frame, content, certs, layer, budget)) return failed(layer, layer.problem, log);
    if (layer.signers.empty() && layer.problem.empty()) layer.problem = "no signature";
    compareWithEmbedded(*frame, content, layer);
    return true;
  });
}

bool Pkcs7Opener::open(std::string_view der, SystemCerts& certs, DataBuffer& content, SecureLayer& layer,
                       LogBase& log) {
  LoadBudget budget = LoadBudget::ofMessage(der.size());
  return open(der, certs, content, layer, budget, log);
}

bool Pkcs7Opener::open(std::string_view der, SystemCerts& certs, DataBuffer& content, SecureLayer& layer,
                       LoadBudget& budget, LogBase& log) {
  return neverThrow(false, [&] {
    const QuietErrors quiet;
    if (!budget.takeLayerBytes(der.size())) return failed(layer, kTooMuch, log);
    DataBuffer decoded;
    const auto frame = readPkcs7Frame(withoutArmour(der, decoded));
    if (!frame) return failed(layer, "unknown kind of security layer", log);
    layer.kind = frame->kind;
    return openLayer(*frame, certs, content, layer, budget, log);
  });
}

LayerKind Pkcs7Opener::kindOf(std::string_view der) noexcept {
  return neverThrow(LayerKind::unknown, [&] {
    DataBuffer decoded;
    const auto frame = readPkcs7Frame(withoutArmour(der, decoded));
    return frame ? frame->kind : LayerKind::unknown;
  });
}

}  // namespace mailtree
