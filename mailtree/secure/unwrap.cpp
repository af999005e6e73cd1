// secure/unwrap.cpp - unwraps the security layers of a parse tree, outermost first.
//
// One walk from the top. A layer is opened and replaced by its content, which is then examined
// again, because layers may be nested in any order. A layer that cannot be opened stays unchanged.
// Content is parsed a second time only when the first parse lacks something: the received bytes of
// a multipart/signed inside another one.

#include <algorithm>
#include <new>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "mailtree/base/Log.h"
#include "mailtree/crypto/Pkcs7Opener.h"
#include "mailtree/crypto/UnwrapInfo.h"
#include "mailtree/crypto/Wipe.h"
#include "mailtree/mime/MimeMessage2.h"
#include "mailtree/secure/inner_content.h"
#include "mailtree/secure/layer_forms.h"
#include "mailtree/secure/received_signature.h"
#include "mailtree/secure/signer_match.h"

namespace mailtree {
namespace {

void setPlaces(SecureLayer& layer, const PartPath& path) {
  layer.part = path.text();
  layer.places = path.places();
}

class Unwrapper {
 public:
  Unwrapper(MimeMessage2& message, UnwrapInfo& info, SystemCerts& certs, LogBase& log) noexcept
      : m_message(message), m_info(info), m_certs(certs), m_log(log) {}

  void run() { visit(m_message, {.origin = m_message.origin()}); }

 private:
  /// The origin of a content that replaced its layer; nothing when none did.
  using Content = std::optional<Origin>;

  void visit(MimeMessage2& entity, const PartPath& path);
  void visitParts(MimeMessage2& entity, const PartPath& path);
  Content unwrapLayer(MimeMessage2& entity, const PartPath& path);
  void recordUnopened(LayerKind kind, const PartPath& path);
  void reportLimit(Limit limit);
  void reportExceededBudget();

  Content unwrapSignature(MimeMessage2& entity, const PartPath& path);
  Content open(MimeMessage2& entity, const PartPath& path);
  void replace(MimeMessage2& layer, MimeMessage2& content, const PartPath& path);
  bool verify(MimeMessage2& entity, SecureLayer& layer);
  Owned<MimeMessage2> takeSignedContent(MimeMessage2& entity, int level);
  void becomeMixed(MimeMessage2& entity, Owned<MimeMessage2> content);
  void reparseInnerSignatures(MimeMessage2& entity, int level);
  void record(SecureLayer&& layer);
  void count(const SecureLayer& layer);

  MimeMessage2& m_message;
  UnwrapInfo& m_info;
  SystemCerts& m_certs;
  LogBase& m_log;
  std::optional<std::string> m_sender;  ///< Read at the first layer: most messages have none.
  int m_reloads = 0;
  int m_opened = 0;
  bool m_hasUnopened = false;  ///< A layer was not opened because there were too many.
};

/// The recursion is bounded: the content of a layer is parsed at its own depth.
void Unwrapper::visit(MimeMessage2& entity, const PartPath& path) {
  const auto layersBefore = static_cast<std::ptrdiff_t>(m_info.m_layers.size());
  if (const Content content = unwrapLayer(entity, path))
    visit(entity, path.content(*content));
  else
    visitParts(entity, path);

  // A layer was unwrapped here or below: the received bytes contain what was replaced.
  if (std::any_of(m_info.m_layers.begin() + layersBefore, m_info.m_layers.end(),
                  [](const SecureLayer& layer) { return layer.opened; }))
    std::ignore = entity.extractReceivedBytes();
}

void Unwrapper::visitParts(MimeMessage2& entity, const PartPath& path) {
  entity.markUnwrapped();
  if (isMultipartSigned(entity)) reparseInnerSignatures(entity, path.level + 1);
  for (int i = 0; i < entity.getNumParts(); ++i) {
    MimeMessage2& part = *entity.getPart(i);
    visit(part, path.part(i, part.origin()));
  }
}

Unwrapper::Content Unwrapper::unwrapLayer(MimeMessage2& entity, const PartPath& path) {
  const bool isDetached = hasDetachedSignature(entity);
  if (!isDetached && !isPkcs7Mime(entity)) return std::nullopt;
  if (!m_sender) m_sender = soleSender(m_message, m_log);
  // Layers that could not be opened count too: each costs a check of every key.
  if (m_info.m_budget.layers <= 0) {
    recordUnopened(isDetached ? LayerKind::detachedSignature : kindOf(entity), path);
    return std::nullopt;
  }
  --m_info.m_budget.layers;
  return isDetached ? unwrapSignature(entity, path) : open(entity, path);
}

/// A layer beyond the limit: it was found, but nothing is known about it. Only the first is recorded, because
/// there may be thousands.
void Unwrapper::recordUnopened(LayerKind kind, const PartPath& path) {
  SecureLayer layer;
  layer.kind = kind;
  setPlaces(layer, path);
  layer.problem = "not opened: too many layers";
  reportLimit(Limit::layers);
  if (std::exchange(m_hasUnopened, true)) return count(layer);
  record(std::move(layer));
}

void Unwrapper::reportLimit(Limit limit) {
  if (m_message.limits().has(limit)) return;
  m_message.addLimit(limit);
  m_log.logError(limit == Limit::layers
                     ? "Limit exceeded: too many security layers; the next one was not opened."
                     : "Limit exceeded: cost of a security layer; it was not opened.");
}

/// Reports the limits that kept the last layer closed.
void Unwrapper::reportExceededBudget() {
  LoadBudget& budget = m_info.m_budget;
  if (std::exchange(budget.outOfBytes, false)) reportLimit(Limit::layerBytes);
  if (std::exchange(budget.outOfTrials, false)) reportLimit(Limit::keyTrials);
}

// Detached signatures

Unwrapper::Content Unwrapper::unwrapSignature(MimeMessage2& entity, const PartPath& path) {
  constexpr int kContentAndSignature = 2;
  const bool hasMore = entity.getNumParts() > kContentAndSignature;
  SecureLayer layer;
  layer.opened = verify(entity, layer);
  reportExceededBudget();
  layer.kind = LayerKind::detachedSignature;
  setPlaces(layer, layer.opened && hasMore ? path.part(0, entity.getPart(0)->origin()) : path);
  matchSender(layer, *m_sender);
  const bool opened = layer.opened;
  record(std::move(layer));
  if (!opened) return std::nullopt;

  Owned<MimeMessage2> content = takeSignedContent(entity, hasMore ? path.level + 1 : path.level);
  if (hasMore) {
    becomeMixed(entity, std::move(content));
    return std::nullopt;
  }
  replace(entity, *content, path);
  return content->origin();
}

bool Unwrapper::verify(MimeMessage2& entity, SecureLayer& layer) {
  const MimeMessage2* const content = entity.getPart(0);
  const MimeMessage2* const signature = signaturePart(entity);
  const DataBuffer* const received = content ? content->receivedBytes() : nullptr;
  if (received && signature &&
      verifyReceived(signature->getMimeBodyDb()->view(), received->view(), m_certs, layer, m_info.m_budget,
                     m_log))
    return true;
  if (layer.problem.empty()) layer.problem = "no readable signature";
  return false;
}

/// The content, as parsed with the message; parsed again when signatures inside it need their received bytes.
Owned<MimeMessage2> Unwrapper::takeSignedContent(MimeMessage2& entity, int level) {
  Owned<MimeMessage2> content(entity.extractPart(0));
  if (containsDetachedSignature(*content) && !content->reloadReceived(level, m_info.m_budget.parts, m_log))
    throw std::bad_alloc();
  std::ignore = content->extractReceivedBytes();
  return content;
}

/// Parts added after the signature are kept, next to the signed content, where they are visibly unsigned.
void Unwrapper::becomeMixed(MimeMessage2& entity, Owned<MimeMessage2> content) {
  for (int i = 0; i < entity.getNumParts(); ++i) std::ignore = entity.getPart(i)->extractReceivedBytes();
  entity.addPartInFront(content.release());
  const MimeMessage2* const signature = signaturePart(entity);
  int index = 1;
  while (entity.getPart(index) != signature) ++index;
  const Owned<MimeMessage2> removed(entity.extractPart(index));
  const StringBuffer boundary(entity.contentType().m_boundary);
  // Replaces the whole field: protocol and digest were those of the signature.
  entity.addReplaceHeaderFieldUtf8("Content-Type", "multipart/mixed", m_log);
  entity.setBoundary(boundary.getString(), m_log);
}

/// The parser keeps the received bytes for the outermost multipart/signed only. If that one stays, such as an
/// OpenPGP signature, those inside it get theirs by a second parse; not too often, because each is a copy.
void Unwrapper::reparseInnerSignatures(MimeMessage2& entity, int level) {
  for (int i = 0; i < entity.getNumParts(); ++i) {
    MimeMessage2& part = *entity.getPart(i);
    if (!part.receivedBytes() || !containsDetachedSignature(part)) continue;
    if (m_reloads++ >= kMaxUnwrappedLayers) return reportLimit(Limit::layers);
    if (!part.reloadReceived(level, m_info.m_budget.parts, m_log)) throw std::bad_alloc();
  }
}

// Other layers

Unwrapper::Content Unwrapper::open(MimeMessage2& entity, const PartPath& path) {
  SecureLayer layer;
  DataBuffer bytes;
  const WipedAtEnd wiped(bytes);
  const bool opened =
      Pkcs7Opener::open(entity.getMimeBodyDb()->view(), m_certs, bytes, layer, m_info.m_budget, m_log);
  reportExceededBudget();
  if (layer.kind == LayerKind::unknown) layer.kind = claimedKind(entity);
  layer.opened = opened;
  setPlaces(layer, path);
  matchSender(layer, *m_sender);
  record(std::move(layer));
  if (!opened) return std::nullopt;

  // Beyond the origins of every message and every other content.
  const Origin origin = Origin(++m_opened) << 48;
  MimeMessage2 content;
  loadLayerContent(bytes.view(), path.level, origin, content, m_info.m_budget.parts, m_log);
  replace(entity, content, path);
  return origin;
}

/// The layer is the one recorded last.
void Unwrapper::replace(MimeMessage2& layer, MimeMessage2& content, const PartPath& path) {
  std::vector<InnerField>& fields = m_info.m_innerFields;
  const std::size_t before = fields.size();
  replaceLayer(layer, content, path, fields);
  for (std::size_t i = before; i < fields.size(); ++i) fields[i].layer = m_info.m_layers.size() - 1;
}

void Unwrapper::record(SecureLayer&& layer) {
  count(layer);
  for (const SignerVerdict& signer : layer.signers)
    if (signer.certificate)
      CertificateHolder::appendNewCertHolder(signer.certificate.get(), m_info.m_signerCerts, m_log);
  if (layer.opened && layer.recipient)
    CertificateHolder::appendNewCertHolder(layer.recipient.get(), m_info.m_decryptCerts, m_log);
  m_info.m_layers.push_back(std::move(layer));
}

void Unwrapper::count(const SecureLayer& layer) {
  if (layer.isSigned()) {
    ++m_info.m_numSigned;
    m_info.m_allSignaturesValid &= layer.opened && layer.allSignaturesValid();
  }
  if (layer.isEncrypted()) {
    ++m_info.m_numEncrypted;
    m_info.m_allDataDecrypted &= layer.opened;
  }
  m_info.m_hasSecureLayer |= layer.isSigned() || layer.isEncrypted();
}

/// The parts of a message that could not be examined are not unwrapped on their own: a part would count as
/// the whole message, and its sender as the sender of the message.
void markAllUnwrapped(MimeMessage2& entity) noexcept {
  entity.markUnwrapped();
  for (int i = 0; i < entity.getNumParts(); ++i) markAllUnwrapped(*entity.getPart(i));
}

}  // namespace

void MimeMessage2::unwrapSecurity3(UnwrapInfo& info, _clsCades& /*cades*/, SystemCerts& certs, LogBase& log) {
  if (m_isUnwrapped) return;
  const bool finished = neverThrow(false, [&] {
    Unwrapper(*this, info, certs, log).run();
    return true;
  });
  if (finished) return;
  markAllUnwrapped(*this);
  info.m_allSignaturesValid = info.m_allDataDecrypted = false;
  log.logError("Out of memory while unwrapping security layers.");
}

}  // namespace mailtree
