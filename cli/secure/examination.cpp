#include "cli/secure/examination.h"

#include <algorithm>

#include "cli/message/structure.h"
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

/// Loading takes nothing off below a multipart/mixed. What is there is looked at in a parse tree of its own, and found
/// again in that of the message, where the layers stay.
void lookBelowMixed(std::string_view bytes, SystemCerts& certs, Examined& examined) {
  MimeMessage2 root;
  UnwrapInfo info;
  _clsCades cades;
  LogNull log;
  info.m_budget = LoadBudget::ofMessage(bytes.size());
  if (!root.loadText(bytes, info.m_budget.parts, log) || !root.isMultipartMixed()) return;
  root.unwrapSecurity3(info, cades, certs, log);
  examined.layers = std::move(info.m_layers);
  examined.innerFields = std::move(info.m_innerFields);
  placeLayers(*examined.message.root, examined.layers, examined.innerFields);
  examined.message.common->m_limits.add(root.limits());
}

/// A reader who sees one of two From fields, or one of two addresses, must not be told that a signature is by it: not
/// even where one of the fields is empty.
void readFrom(Examined& examined) {
  const MimeHeader& header = examined.message.root->m_header;
  ExtPtrArray addresses;
  std::string scratch;
  int fields = 0;
  for (int row = header.findField("From"); row >= 0; row = header.findField("From", row + 1), ++fields)
    _svEmailAddress::parseAndLoadList(header.unfoldedValue(row, scratch), addresses);
  if (fields > 1)
    examined.fromProblem = "there is more than one From field";
  else if (addresses.getSize() == 1)
    examined.from = wordOrQuoted(addresses.at<_svEmailAddress>(0)->m_address.view());
  else
    examined.fromProblem =
        addresses.getSize() == 0 ? "there is no From address" : "there is more than one From address";
}

std::string withProblem(std::string text, const std::string& problem) {
  return problem.empty() ? text : text + ": " + problem;
}

/// Why the mathematics of a signature does not hold, or was not checked.
std::string mathematicalFaultOf(const SignerVerdict& signer) {
  if (signer.digestMatched == Answer::no) return "the content is not what was signed";
  return signer.isInvalid() ? signer.problem : "the signature was not checked: " + signer.problem;
}

/// The gravest thing that is wrong with a signature; empty when nothing is.
std::string faultOf(const SignerVerdict& signer, const Examined& examined) {
  if (!signer.isValid()) return mathematicalFaultOf(signer);
  if (signer.revoked == Answer::yes) return "the signer's certificate is revoked";
  if (signer.keyUsageFit != Answer::yes) return "the signer's certificate is not meant for signing mail";
  if (signer.addressMatches != Answer::yes)
    return examined.fromProblem.empty() ? "the signer's certificate is not issued to " + examined.from
                                        : examined.fromProblem;
  if (!examined.trustGiven) return "the chain was not checked: no trust anchors given (--trust)";
  if (signer.chainTrusted == Answer::yes) return {};
  const char* const answer =
      signer.chainTrusted == Answer::no ? "the chain is not trusted" : "the chain was not checked";
  return withProblem(answer, signer.chainProblem);
}

/// Empty when the mathematics of every signer holds and everything is right about one of them.
std::string faultOf(const SecureLayer& layer, const Examined& examined) {
  if (layer.signers.empty()) return withProblem("a signature could not be checked", layer.problem);
  // What is wrong goes before what was not checked.
  for (const bool isWrong : {true, false})
    for (const SignerVerdict& signer : layer.signers)
      if (isWrong ? signer.isInvalid() : !signer.isValid())
        return withProblem(mathematicalFaultOf(signer), layer.problem);
  std::string first;
  for (const SignerVerdict& signer : layer.signers) {
    std::string fault = faultOf(signer, examined);
    if (fault.empty()) return {};
    if (first.empty()) first = std::move(fault);
  }
  return first;
}

std::string signerOf(const SecureLayer& layer, const Examined& examined) {
  std::string weak;
  for (const SignerVerdict& signer : layer.signers)
    for (const std::string& weakness : signer.weaknesses)
      weak += (weak.empty() ? ", but by something weak: " : ", ") + weakness;
  return "all of the content is signed by " + examined.from + weak;
}

/// A signature that covers everything and in which everything is right; null when there is none, with the reason.
const SecureLayer* goodLayer(const Examined& examined, std::string& reason) {
  for (const SecureLayer& layer : examined.layers) {
    if (!layer.isSigned()) continue;
    std::string fault = faultOf(layer, examined);
    if (fault.empty() && (layer.part != SecureLayer::kWholeMessage || !layer.uncovered.empty()))
      fault = "only part " + layer.part + " is covered by a signature";
    if (fault.empty()) return &layer;
    if (reason.empty()) reason = std::move(fault);
  }
  return nullptr;
}

const char* contradictionOf(const InnerField& field) {
  if (field.inside.empty()) return " that is displayed is not in the signed content";
  if (field.outside.empty()) return " of the signed content is not the one displayed";
  return " is another one inside than the one displayed";
}

Verdict judge(const Examined& examined) {
  const SecureLayer* const unopened = examined.unopened();
  if (!examined.isSigned())
    return {false,
            unopened ? withProblem("encrypted, and could not be opened", unopened->problem) : "not signed"};
  // A wrong signature anywhere is a wrong message, whatever another one says.
  for (const SecureLayer& layer : examined.layers)
    if (layer.isSigned() && layer.hasInvalidSignature()) return {false, faultOf(layer, examined)};
  for (const SecureLayer& layer : examined.layers)
    if (layer.isSigned() && !layer.allSignaturesValid()) return {false, faultOf(layer, examined)};
  std::string reason;
  const SecureLayer* const good = goodLayer(examined, reason);
  if (!good) return {false, reason};
  // What nobody here can read may be anything, the work of somebody else included.
  if (unopened)
    return {false, withProblem("the signed content is encrypted and could not be opened", unopened->problem)};
  if (const InnerField* const field = examined.contradiction())
    return {false, "the field " + field->name + contradictionOf(*field)};
  return {true, signerOf(*good, examined)};
}

template <class Wanted>
bool anyLayer(const Examined& examined, Wanted&& wanted) {
  return std::ranges::any_of(examined.layers, wanted);
}

}  // namespace

bool Examined::isSigned() const { return anyLayer(*this, &SecureLayer::isSigned); }

bool Examined::isEncrypted() const { return anyLayer(*this, &SecureLayer::isEncrypted); }

Answer Examined::allSignaturesValid() const {
  if (!isSigned() || anyLayer(*this, &SecureLayer::hasInvalidSignature)) return Answer::no;
  const bool isAnyUnchecked = anyLayer(
      *this, [](const SecureLayer& layer) { return layer.isSigned() && !layer.allSignaturesValid(); });
  return isAnyUnchecked ? Answer::notChecked : Answer::yes;
}

bool Examined::allDecrypted() const { return isEncrypted() && !unopened(); }

const SecureLayer* Examined::unopened() const {
  const auto found = std::ranges::find_if(
      layers, [](const SecureLayer& layer) { return layer.isEncrypted() && !layer.opened; });
  return found == layers.end() ? nullptr : &*found;
}

const InnerField* Examined::contradiction() const {
  const auto found = std::ranges::find_if(innerFields, [](const InnerField& field) {
    return field.part == SecureLayer::kWholeMessage && isDisplayedField(field.name);
  });
  return found == innerFields.end() ? nullptr : &*found;
}

std::optional<Examined> examine(const std::string& path, Keys& keys) {
  DataBuffer bytes;
  if (!readFile(path, bytes)) return std::nullopt;
  std::optional<Message> message = loadMessage(path, bytes, keys.store);
  if (!message) return std::nullopt;
  Examined examined{std::move(*message), {}, {}, {}, {}, keys.store.hasTrustAnchors(), {}};
  examined.layers = std::move(examined.message.common->m_secureLayers);
  examined.innerFields = std::move(examined.message.common->m_innerFields);
  if (examined.layers.empty() && mayHoldLayers(*examined.message.root))
    lookBelowMixed(bytes.view(), keys.store, examined);
  readFrom(examined);
  examined.verdict = judge(examined);
  return examined;
}

bool isGood(const SignerVerdict& signer, const Examined& examined) {
  return faultOf(signer, examined).empty();
}

}  // namespace mailtree::cli
