#include "cli/secure/verification.h"

#include <algorithm>

#include "mailtree/message/tree_changes.h"
#include "cli/support/files.h"
#include "cli/support/terminal.h"
#include "mailtree/crypto/Cades.h"
#include "mailtree/crypto/UnwrapInfo.h"
#include "mailtree/email/loading/layer_places.h"
#include "mailtree/mime/MimeMessage2.h"
#include "mailtree/secure/displayed_fields.h"
#include "mailtree/secure/layer_forms.h"

namespace mailtree::cli {
namespace {

bool mayHoldLayers(Email2& root) {
  bool found = false;
  walk(root, [&found](const Email2& node) {
    const std::string_view type = node.m_contentType.m_type;
    found = found || mayBeLayer(type, node.m_dispFilename) || mayBeLayer(type, node.m_contentType.m_name);
  });
  return found;
}

/// Loading unwraps no layers below a multipart/mixed. They are found in a separate parse tree and then
/// located in the message's tree, where they stay.
void findLayersBelowMixed(std::string_view bytes, SystemCerts& certs, Verification& verification) {
  MimeMessage2 root;
  UnwrapInfo info;
  _clsCades cades;
  LogNull log;
  info.m_budget = LoadBudget::ofMessage(bytes.size());
  if (!root.loadText(bytes, info.m_budget.parts, log) || !root.isMultipartMixed()) return;
  root.unwrapSecurity3(info, cades, certs, log);
  verification.layers = std::move(info.m_layers);
  verification.innerFields = std::move(info.m_innerFields);
  placeLayers(*verification.message.root, verification.layers, verification.innerFields);
  verification.message.common->m_limits.add(root.limits());
}

/// A mail client may show only one of two From fields or addresses, so neither is taken to be the signer's,
/// even when one is empty.
void readFrom(Verification& verification) {
  const MimeHeader& header = verification.message.root->m_header;
  ExtPtrArray addresses;
  std::string scratch;
  int fields = 0;
  for (int row = header.findField("From"); row >= 0; row = header.findField("From", row + 1), ++fields)
    _svEmailAddress::parseAndLoadList(header.unfoldedValue(row, scratch), addresses);
  if (fields > 1)
    verification.fromProblem = "more than one From field";
  else if (addresses.getSize() == 1)
    verification.from = wordOrQuoted(addresses.at<_svEmailAddress>(0)->m_address.view());
  else
    verification.fromProblem =
        addresses.getSize() == 0 ? "missing From address" : "more than one From address";
}

std::string withProblem(std::string text, const std::string& problem) {
  return problem.empty() ? text : text + ": " + problem;
}

/// Why a signature is cryptographically invalid, or was not checked.
std::string cryptographicFaultOf(const SignerVerdict& signer) {
  if (signer.digestMatched == Answer::no) return "the content is not what was signed";
  return signer.isInvalid() ? signer.problem : "the signature was not checked: " + signer.problem;
}

/// The worst fault of a signature; empty when there is none.
std::string faultOf(const SignerVerdict& signer, const Verification& verification) {
  if (!signer.isValid()) return cryptographicFaultOf(signer);
  if (signer.revoked == Answer::yes) return "the signer's certificate is revoked";
  if (signer.keyUsageFit != Answer::yes) return "the signer's certificate is not valid for signing mail";
  if (signer.addressMatches != Answer::yes)
    return verification.fromProblem.empty() ? "the signer's certificate is not issued to " + verification.from
                                            : verification.fromProblem;
  if (!verification.trustGiven) return "the chain was not checked: no trust anchors given (--trust)";
  if (signer.chainTrusted == Answer::yes) return {};
  const char* const answer =
      signer.chainTrusted == Answer::no ? "the chain is not trusted" : "the chain was not checked";
  return withProblem(answer, signer.chainProblem);
}

/// Empty when all signatures are cryptographically valid and at least one has no fault.
std::string faultOf(const SecureLayer& layer, const Verification& verification) {
  if (layer.signers.empty()) return withProblem("a signature could not be checked", layer.problem);
  // Invalid signatures come before unchecked ones.
  for (const bool isWrong : {true, false})
    for (const SignerVerdict& signer : layer.signers)
      if (isWrong ? signer.isInvalid() : !signer.isValid())
        return withProblem(cryptographicFaultOf(signer), layer.problem);
  std::string first;
  for (const SignerVerdict& signer : layer.signers) {
    std::string fault = faultOf(signer, verification);
    if (fault.empty()) return {};
    if (first.empty()) first = std::move(fault);
  }
  return first;
}

std::string signerOf(const SecureLayer& layer, const Verification& verification) {
  std::string weak;
  for (const SignerVerdict& signer : layer.signers)
    for (const std::string& weakness : signer.weaknesses)
      weak += (weak.empty() ? ", but with something weak: " : ", ") + weakness;
  return "all of the content is signed by " + verification.from + weak;
}

/// A signature without any fault that covers all of the content; null, with the reason, when there is none.
const SecureLayer* faultlessLayer(const Verification& verification, std::string& reason) {
  for (const SecureLayer& layer : verification.layers) {
    if (!layer.isSigned()) continue;
    std::string fault = faultOf(layer, verification);
    if (fault.empty() && (layer.part != SecureLayer::kWholeMessage || !layer.uncovered.empty()))
      fault = "only part " + layer.part + " is covered by a signature";
    if (fault.empty()) return &layer;
    if (reason.empty()) reason = std::move(fault);
  }
  return nullptr;
}

const char* contradictionOf(const InnerField& field) {
  if (field.inside.empty()) return " is displayed but missing from the signed content";
  if (field.outside.empty()) return " of the signed content is not displayed";
  return " differs between the signed content and the display";
}

Verdict judge(const Verification& verification) {
  const SecureLayer* const unopened = verification.unopened();
  if (!verification.isSigned())
    return {false,
            unopened ? withProblem("encrypted and could not be opened", unopened->problem) : "not signed"};
  // One invalid signature makes the message invalid.
  for (const SecureLayer& layer : verification.layers)
    if (layer.isSigned() && layer.hasInvalidSignature()) return {false, faultOf(layer, verification)};
  for (const SecureLayer& layer : verification.layers)
    if (layer.isSigned() && !layer.allSignaturesValid()) return {false, faultOf(layer, verification)};
  std::string reason;
  const SecureLayer* const good = faultlessLayer(verification, reason);
  if (!good) return {false, reason};
  // Unreadable content may be from anyone.
  if (unopened)
    return {false, withProblem("the signed content is encrypted and could not be opened", unopened->problem)};
  if (const InnerField* const field = verification.contradiction())
    return {false, "the field " + field->name + contradictionOf(*field)};
  return {true, signerOf(*good, verification)};
}

template <class Wanted>
bool anyLayer(const Verification& verification, Wanted&& wanted) {
  return std::ranges::any_of(verification.layers, wanted);
}

}  // namespace

bool Verification::isSigned() const { return anyLayer(*this, &SecureLayer::isSigned); }

bool Verification::isEncrypted() const { return anyLayer(*this, &SecureLayer::isEncrypted); }

Answer Verification::allSignaturesValid() const {
  if (!isSigned() || anyLayer(*this, &SecureLayer::hasInvalidSignature)) return Answer::no;
  const bool isAnyUnchecked = anyLayer(
      *this, [](const SecureLayer& layer) { return layer.isSigned() && !layer.allSignaturesValid(); });
  return isAnyUnchecked ? Answer::notChecked : Answer::yes;
}

bool Verification::allDecrypted() const { return isEncrypted() && !unopened(); }

const SecureLayer* Verification::unopened() const {
  const auto found = std::ranges::find_if(
      layers, [](const SecureLayer& layer) { return layer.isEncrypted() && !layer.opened; });
  return found == layers.end() ? nullptr : &*found;
}

const InnerField* Verification::contradiction() const {
  const auto found = std::ranges::find_if(innerFields, [](const InnerField& field) {
    return field.part == SecureLayer::kWholeMessage && isDisplayedField(field.name);
  });
  return found == innerFields.end() ? nullptr : &*found;
}

std::optional<Verification> verifyMessage(const std::string& path, Keys& keys) {
  DataBuffer bytes;
  if (!readFile(path, bytes)) return std::nullopt;
  std::optional<Message> message = loadMessage(path, bytes, keys.store);
  if (!message) return std::nullopt;
  Verification verification{std::move(*message), {}, {}, {}, {}, keys.store.hasTrustAnchors(), {}};
  verification.layers = std::move(verification.message.common->m_secureLayers);
  verification.innerFields = std::move(verification.message.common->m_innerFields);
  if (verification.layers.empty() && mayHoldLayers(*verification.message.root))
    findLayersBelowMixed(bytes.view(), keys.store, verification);
  readFrom(verification);
  verification.verdict = judge(verification);
  return verification;
}

bool isFaultless(const SignerVerdict& signer, const Verification& verification) {
  return faultOf(signer, verification).empty();
}

}  // namespace mailtree::cli
