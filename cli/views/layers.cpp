#include "cli/views/layers.h"

#include <algorithm>
#include <ctime>
#include <iterator>

#include "cli/support/terminal.h"
#include "cli/support/times.h"

namespace mailtree::cli {
namespace {

using Mark = Check::Mark;

Mark markOf(bool isGood) { return isGood ? Mark::good : Mark::bad; }
Mark markOf(Answer answer) {
  return answer == Answer::notChecked ? Mark::notChecked : markOf(answer == Answer::yes);
}

/// An answer about a signer in words, or the reason why there is none.
std::string textOf(Answer answer, std::string_view yes, std::string_view no, const SignerVerdict& signer,
                   const std::string& problem) {
  if (answer == Answer::notChecked)
    return "not checked: " + (signer.certificate ? problem : "no certificate of the signer");
  return std::string(answer == Answer::yes ? yes : no);
}

std::string subjectOf(const Certificate& certificate) {
  XString subject;
  LogNull log;
  certificate.getSubjectDN(subject, log);
  return std::string(subject.view());
}

std::string issuerOf(const Certificate& certificate) {
  XString issuer;
  LogNull log;
  certificate.getIssuerDN(issuer, log);
  return std::string(issuer.view());
}

std::string listOf(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) list += (list.empty() ? "" : ", ") + text;
  return list;
}

bool coversAll(const SecureLayer& layer) {
  return layer.part == SecureLayer::kWholeMessage && layer.uncovered.empty();
}

std::string coverageOf(const SecureLayer& layer) {
  if (coversAll(layer)) return "all of the content";
  std::string text = "part " + layer.part + " only";
  return layer.uncovered.empty() ? text : text + ", not part " + listOf(layer.uncovered);
}

Check checkChain(const SignerVerdict& signer, const Verification& verification) {
  if (signer.certificate && !verification.trustGiven)
    return {Mark::notChecked, "chain", "not checked: no trust anchors given (--trust)"};
  if (signer.revoked == Answer::yes) return {Mark::bad, "chain", "revoked"};
  const bool wasTrusted = signer.chainTrustedThen == Answer::yes;
  const std::string problem = signer.chainProblem.empty() ? std::string() : ": " + signer.chainProblem;
  return {markOf(signer.chainTrusted), "chain",
          textOf(signer.chainTrusted,
                 wasTrusted || !signer.signingTime ? "trusted" : "trusted now, but not at the signing time",
                 (wasTrusted ? "trusted at the signing time, but not now" : "not trusted") + problem, signer,
                 signer.chainProblem)};
}

Check checkTime(const SignerVerdict& signer) {
  if (!signer.signingTime) return {Mark::note, "time", "not given"};
  const bool isAhead = *signer.signingTime > std::time(nullptr);
  return {
      Mark::note, "time",
      timeText(*signer.signingTime) + (isAhead ? ", which is in the future" : ", according to the signer")};
}

Check checkAddress(const SignerVerdict& signer, const Verification& verification) {
  if (!verification.fromProblem.empty()) return {Mark::bad, "address", verification.fromProblem};
  return {markOf(signer.addressMatches), "address",
          textOf(signer.addressMatches, verification.from + ", as in From",
                 "the certificate is not issued to " + verification.from + ", the address in From", signer,
                 verification.fromProblem)};
}

void addCertificateChecks(const SignerVerdict& signer, const Verification& verification,
                          std::vector<Check>& checks) {
  checks.push_back(checkChain(signer, verification));
  checks.push_back({markOf(signer.keyUsageFit), "usage",
                    textOf(signer.keyUsageFit, "the certificate is valid for signing mail",
                           "the certificate is not valid for signing mail", signer, signer.problem)});
  checks.push_back(checkTime(signer));
  checks.push_back(checkAddress(signer, verification));
}

void addSignerChecks(const SignerVerdict& signer, const Verification& verification,
                     std::vector<Check>& checks) {
  const Certificate* const certificate = signer.certificate.get();
  checks.push_back(certificate ? Check{Mark::note, "signer",
                                       nameOf(*certificate) + " (" + inQuotes(subjectOf(*certificate)) +
                                           "), issued by " + inQuotes(issuerOf(*certificate)) +
                                           ", serial number " + certificate->serialNumber()}
                               : Check{Mark::bad, "signer", "no certificate of the signer"});
  checks.push_back({markOf(signer.digestMatched), "digest",
                    signer.digest + ", " +
                        textOf(signer.digestMatched, "the content is what was signed",
                               "the content is not what was signed", signer, signer.problem)});
  const std::string key = certificate ? signer.algorithm + ", " + certificate->keyAlgorithm() + " " +
                                            std::to_string(certificate->keyBits()) + " bits, "
                                      : "";
  checks.push_back({markOf(signer.signatureVerified), "signature",
                    key + textOf(signer.signatureVerified, "verified", "not verified", signer,
                                 signer.digestMatched == Answer::no ? "its key or algorithm cannot be used"
                                                                    : signer.problem)});
  addCertificateChecks(signer, verification, checks);
  if (!signer.weaknesses.empty()) checks.push_back({Mark::note, "weak", listOf(signer.weaknesses)});
}

void addEncryptionChecks(const SecureLayer& layer, std::vector<Check>& checks) {
  checks.push_back(
      {markOf(layer.opened), "content",
       layer.opened ? "opened" : "not opened" + (layer.problem.empty() ? "" : ": " + layer.problem)});
  if (layer.recipient) checks.push_back({Mark::note, "recipient", nameOf(*layer.recipient)});
  if (!layer.cipher.empty())
    checks.push_back({Mark::note, "cipher",
                      layer.cipher + (layer.keyTransport.empty() ? "" : ", key by " + layer.keyTransport)});
  if (layer.weakCipher) checks.push_back({Mark::note, "weak", layer.cipher});
}

/// Remaining faults of a cryptographically valid signature; empty when there are none.
std::string remainingFaultsOf(const SignerVerdict& signer) {
  std::string text;
  const auto add = [&text](bool holds, std::string_view words) {
    if (holds) text.append(", ").append(words);
  };
  const bool isRevoked = signer.revoked == Answer::yes;
  add(isRevoked, "certificate revoked");
  add(signer.chainTrusted == Answer::no && !isRevoked, "signer not trusted");
  add(signer.chainTrusted == Answer::notChecked, "trust not checked");
  add(signer.keyUsageFit != Answer::yes, "certificate not for signing");
  add(signer.addressMatches != Answer::yes, "signer is not the sender");
  return text;
}

std::string weaknessesOf(const SecureLayer& layer) {
  std::string text;
  for (const SignerVerdict& signer : layer.signers)
    if (!signer.weaknesses.empty()) text += (text.empty() ? ", weak: " : ", ") + listOf(signer.weaknesses);
  return text;
}

LayerSummary summaryOfSigned(const SecureLayer& layer, const Verification& verification) {
  if (layer.signers.empty()) return {false, "signature could not be checked"};
  if (layer.hasInvalidSignature()) return {false, "signature INVALID"};
  for (const SignerVerdict& signer : layer.signers)
    if (!signer.isValid()) return {false, "signature not checked: " + signer.problem};
  const auto good = std::ranges::count_if(
      layer.signers, [&](const SignerVerdict& signer) { return isFaultless(signer, verification); });
  const auto others = std::ssize(layer.signers) - good;
  LayerSummary summary{
      good > 0 && coversAll(layer) && !verification.contradiction() && !verification.unopened(),
      "signature valid"};
  if (good == 0)
    summary.text += remainingFaultsOf(layer.signers.front());
  else if (others > 0)
    summary.text += ", but " + std::to_string(others) + " other " +
                    (others == 1 ? "signer is" : "signers are") + " not accepted";
  if (const InnerField* const field = verification.contradiction())
    summary.text += ", but not for this " + field->name;
  if (!coversAll(layer)) summary.text += ", covers " + coverageOf(layer);
  if (verification.unopened()) summary.text += ", not fully opened";
  summary.text += weaknessesOf(layer);
  return summary;
}

}  // namespace

std::vector<Check> checksOf(const SecureLayer& layer, const Verification& verification) {
  std::vector<Check> checks;
  checks.push_back({layer.isSigned() ? markOf(coversAll(layer)) : Mark::note, "covers", coverageOf(layer)});
  for (const SignerVerdict& signer : layer.signers) addSignerChecks(signer, verification, checks);
  if (layer.isSigned() && !layer.problem.empty()) checks.push_back({Mark::bad, "problem", layer.problem});
  if (!layer.isSigned()) addEncryptionChecks(layer, checks);
  return checks;
}

LayerSummary summaryOf(const SecureLayer& layer, const Verification& verification) {
  if (layer.isSigned()) return summaryOfSigned(layer, verification);
  if (layer.kind == LayerKind::certificatesOnly) return {true, "certificates only"};
  const std::string where = layer.part == SecureLayer::kWholeMessage ? "" : ", part " + layer.part;
  const std::string weak = layer.weakCipher ? ", weak" : "";
  const std::string kind = layer.isEncrypted()                   ? "encrypted"
                           : layer.kind == LayerKind::compressed ? "compressed"
                                                                 : "unknown layer";
  return {layer.opened, kind + (layer.opened ? "" : ", not opened") + where + weak};
}

std::string nameOfSigner(const SecureLayer& layer, const Verification& verification) {
  for (const SignerVerdict& signer : layer.signers)
    if (isFaultless(signer, verification)) return verification.from;
  const bool isKnown = !layer.signers.empty() && layer.signers.front().certificate;
  return isKnown ? nameOf(*layer.signers.front().certificate) : std::string();
}

std::string nameOf(const Certificate& certificate) {
  return wordOrQuoted(certificate.emailAddresses().empty() ? subjectOf(certificate)
                                                           : certificate.emailAddresses().front());
}

}  // namespace mailtree::cli
