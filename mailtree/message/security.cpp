// message/security.cpp - the verdict on a message: whether it really is from its From address.
#include "mailtree/message/Security.h"

#include <algorithm>
#include <utility>

#include "mailtree/base/Log.h"
#include "mailtree/base/ShownText.h"
#include "mailtree/crypto/Cades.h"
#include "mailtree/crypto/SystemCerts.h"
#include "mailtree/email/loading/layer_places.h"
#include "mailtree/message/internal.h"
#include "mailtree/message/tree_changes.h"
#include "mailtree/mime/MimeMessage2.h"
#include "mailtree/secure/displayed_fields.h"
#include "mailtree/secure/layer_forms.h"

namespace mailtree {
namespace {

bool mayHoldLayers(Email2& root) {
  bool found = false;
  walk(root, [&found](const Email2& node) {
    const std::string_view type = node.m_contentType.m_type;
    found = found || mayBeLayer(type, node.m_dispFilename) || mayBeLayer(type, node.m_contentType.m_name);
  });
  return found;
}

// ---- values of what loading found -------------------------------------------------------------------------

std::optional<CertificateInfo> infoIn(const RefPtr<Certificate>& certificate) {
  if (!certificate) return std::nullopt;
  return infoOf(*certificate);
}

Signer valueOf(const SignerVerdict& signer) {
  Signer value;
  value.certificate = infoIn(signer.certificate);
  value.digest = signer.digest;
  value.algorithm = signer.algorithm;
  if (signer.signingTime)
    value.signingTime = std::chrono::sys_seconds(std::chrono::seconds(*signer.signingTime));
  value.digestMatched = signer.digestMatched;
  value.signatureVerified = signer.signatureVerified;
  value.chainTrusted = signer.chainTrusted;
  value.chainTrustedThen = signer.chainTrustedThen;
  value.revoked = signer.revoked;
  value.keyUsageFit = signer.keyUsageFit;
  value.addressMatches = signer.addressMatches;
  value.weaknesses = signer.weaknesses;
  value.problem = signer.problem;
  value.chainProblem = signer.chainProblem;
  return value;
}

SecurityLayer valueOf(const SecureLayer& layer) {
  SecurityLayer value;
  value.kind = layer.kind;
  value.part = layer.part;
  value.isOpened = layer.opened;
  for (const SignerVerdict& signer : layer.signers) value.signers.push_back(valueOf(signer));
  value.cipher = layer.cipher;
  value.keyTransport = layer.keyTransport;
  value.isCipherWeak = layer.weakCipher;
  value.recipient = infoIn(layer.recipient);
  for (const RefPtr<Certificate>& certificate : layer.certificates)
    value.certificates.push_back(infoOf(*certificate));
  value.uncovered = layer.uncovered;
  value.problem = layer.problem;
  return value;
}

FieldDifference valueOf(const InnerField& field) {
  return {field.part, field.name, field.outside, field.inside, isDisplayedField(field.name)};
}

/// A mail client may show only one of two From fields or addresses, so neither is taken to be the signer's,
/// even when one is empty.
void readFrom(const MimeHeader& header, Security& security) {
  ExtPtrArray addresses;
  std::string scratch;
  int fields = 0;
  for (int row = header.findField("From"); row >= 0; row = header.findField("From", row + 1), ++fields)
    _svEmailAddress::parseAndLoadList(header.unfoldedValue(row, scratch), addresses);
  if (fields > 1)
    security.fromProblem = "more than one From field";
  else if (addresses.getSize() == 1)
    security.from = wordOrQuoted(addresses.at<_svEmailAddress>(0)->m_address.view());
  else
    security.fromProblem = addresses.getSize() == 0 ? "missing From address" : "more than one From address";
}

// ---- the verdict ------------------------------------------------------------------------------------------

std::string withProblem(const std::string& text, const std::string& problem) {
  return problem.empty() ? text : text + ": " + problem;
}

/// Why a signature is cryptographically invalid, or was not checked.
std::string cryptographicFaultOf(const Signer& signer) {
  if (signer.digestMatched == Answer::no) return "the content is not what was signed";
  return signer.isInvalid() ? signer.problem : "the signature was not checked: " + signer.problem;
}

/// The worst fault of a signature; empty when there is none.
std::string faultOf(const Signer& signer, const Security& security) {
  if (!signer.isValid()) return cryptographicFaultOf(signer);
  if (signer.revoked == Answer::yes) return "the signer's certificate is revoked";
  if (signer.keyUsageFit != Answer::yes) return "the signer's certificate is not valid for signing mail";
  if (signer.addressMatches != Answer::yes)
    return security.fromProblem.empty() ? "the signer's certificate is not issued to " + security.from
                                        : security.fromProblem;
  if (!security.wasTrustGiven) return "the chain was not checked: no trust anchors given";
  if (signer.chainTrusted == Answer::yes) return {};
  const char* const answer =
      signer.chainTrusted == Answer::no ? "the chain is not trusted" : "the chain was not checked";
  return withProblem(answer, signer.chainProblem);
}

/// Empty when all signatures are cryptographically valid and at least one has no fault.
std::string faultOf(const SecurityLayer& layer, const Security& security) {
  if (layer.signers.empty()) return withProblem("a signature could not be checked", layer.problem);
  // Invalid signatures come before unchecked ones.
  for (const bool isWrong : {true, false})
    for (const Signer& signer : layer.signers)
      if (isWrong ? signer.isInvalid() : !signer.isValid())
        return withProblem(cryptographicFaultOf(signer), layer.problem);
  std::string first;
  for (const Signer& signer : layer.signers) {
    std::string fault = faultOf(signer, security);
    if (fault.empty()) return {};
    if (first.empty()) first = std::move(fault);
  }
  return first;
}

std::string signerOf(const SecurityLayer& layer, const Security& security) {
  std::string weak;
  for (const Signer& signer : layer.signers)
    for (const std::string& weakness : signer.weaknesses)
      weak += (weak.empty() ? ", but with something weak: " : ", ") + weakness;
  return "all of the content is signed by " + security.from + weak;
}

/// A signature without any fault that covers all of the content; null, with the reason, when there is none.
const SecurityLayer* faultlessLayer(const Security& security, std::string& reason) {
  for (const SecurityLayer& layer : security.layers) {
    if (!layer.isSigned()) continue;
    std::string fault = faultOf(layer, security);
    if (fault.empty() && !layer.coversAll()) fault = "only part " + layer.part + " is covered by a signature";
    if (fault.empty()) return &layer;
    if (reason.empty()) reason = std::move(fault);
  }
  return nullptr;
}

const char* contradictionOf(const FieldDifference& field) {
  if (field.inside.empty()) return " is displayed but missing from the signed content";
  if (field.outside.empty()) return " of the signed content is not displayed";
  return " differs between the signed content and the display";
}

struct Verdict {
  bool isValid = false;
  std::string text;  ///< The signer, or the worst fault.
};

Verdict judge(const Security& security) {
  const SecurityLayer* const unopened = security.unopened();
  if (!security.isSigned())
    return {false,
            unopened ? withProblem("encrypted and could not be opened", unopened->problem) : "not signed"};
  // One invalid signature makes the message invalid.
  for (const SecurityLayer& layer : security.layers)
    if (layer.isSigned() && layer.hasInvalidSignature()) return {false, faultOf(layer, security)};
  for (const SecurityLayer& layer : security.layers)
    if (layer.isSigned() && !layer.allSignaturesValid()) return {false, faultOf(layer, security)};
  std::string reason;
  const SecurityLayer* const good = faultlessLayer(security, reason);
  if (!good) return {false, reason};
  // Unreadable content may be from anyone.
  if (unopened)
    return {false, withProblem("the signed content is encrypted and could not be opened", unopened->problem)};
  if (const FieldDifference* const field = security.contradiction())
    return {false, "the field " + field->name + contradictionOf(*field)};
  return {true, signerOf(*good, security)};
}

bool anyLayer(const Security& security, auto&& wanted) {
  return std::ranges::any_of(security.layers, wanted);
}

}  // namespace

void findLayersBelowMixed(MessageState& state, std::string_view bytes, SystemCerts& certs,
                          LoadBudget* budget) {
  if (!state.layers.empty() || !mayHoldLayers(state.root())) return;
  MimeMessage2 root;
  UnwrapInfo info;
  _clsCades cades;
  LogNull log;
  info.m_budget = budget ? *budget : LoadBudget::ofMessage(bytes.size());
  if (!root.loadText(bytes, info.m_budget.parts, log) || !root.isMultipartMixed()) return;
  root.unwrapSecurity3(info, cades, certs, log);
  if (budget) *budget = info.m_budget;
  state.layers = std::move(info.m_layers);
  state.innerFields = std::move(info.m_innerFields);
  placeLayers(state.root(), state.layers, state.innerFields);
  state.opened.common->m_limits.add(root.limits());
}

Security securityOf(const MessageState& state) {
  Security security;
  for (const SecureLayer& layer : state.layers) security.layers.push_back(valueOf(layer));
  for (const InnerField& field : state.innerFields) security.differences.push_back(valueOf(field));
  security.wasTrustGiven = state.wasTrustGiven;
  readFrom(state.root().m_header, security);
  for (SecurityLayer& layer : security.layers)
    for (Signer& signer : layer.signers) signer.isFaultless = faultOf(signer, security).empty();
  Verdict verdict = judge(security);
  security.isValid = verdict.isValid;
  security.verdict = std::move(verdict.text);
  return security;
}

bool SecurityLayer::hasInvalidSignature() const noexcept {
  return std::ranges::any_of(signers, &Signer::isInvalid);
}

bool SecurityLayer::allSignaturesValid() const noexcept {
  return !signers.empty() && std::ranges::all_of(signers, &Signer::isValid);
}

bool Security::isSigned() const { return anyLayer(*this, &SecurityLayer::isSigned); }

bool Security::isEncrypted() const { return anyLayer(*this, &SecurityLayer::isEncrypted); }

Answer Security::allSignaturesValid() const {
  if (!isSigned() || anyLayer(*this, &SecurityLayer::hasInvalidSignature)) return Answer::no;
  const bool isAnyUnchecked = anyLayer(
      *this, [](const SecurityLayer& layer) { return layer.isSigned() && !layer.allSignaturesValid(); });
  return isAnyUnchecked ? Answer::notChecked : Answer::yes;
}

bool Security::allDecrypted() const { return isEncrypted() && !unopened(); }

const SecurityLayer* Security::unopened() const {
  const auto found = std::ranges::find_if(
      layers, [](const SecurityLayer& layer) { return layer.isEncrypted() && !layer.isOpened; });
  return found == layers.end() ? nullptr : &*found;
}

const FieldDifference* Security::contradiction() const {
  const auto found = std::ranges::find_if(differences, [](const FieldDifference& field) {
    return field.part == SecureLayer::kWholeMessage && field.isDisplayed;
  });
  return found == differences.end() ? nullptr : &*found;
}

const Security& Message::security() const {
  if (!m_state->cachedSecurity) m_state->cachedSecurity = securityOf(*m_state);
  return *m_state->cachedSecurity;
}

}  // namespace mailtree
