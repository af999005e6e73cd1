#include "cli/views/layers.h"

#include <algorithm>
#include <chrono>
#include <iterator>

#include "cli/support/terminal.h"
#include "mailtree/message/times.h"

namespace mailtree::cli {
namespace {

using Mark = Check::Mark;

Mark markOf(bool isGood) { return isGood ? Mark::good : Mark::bad; }
Mark markOf(Answer answer) {
  return answer == Answer::notChecked ? Mark::notChecked : markOf(answer == Answer::yes);
}

/// An answer about a signer in words, or the reason why there is none.
std::string textOf(Answer answer, std::string_view yes, std::string_view no, const Signer& signer,
                   const std::string& problem) {
  if (answer == Answer::notChecked)
    return "not checked: " + (signer.certificate ? problem : "no certificate of the signer");
  return std::string(answer == Answer::yes ? yes : no);
}

std::string listOf(const std::vector<std::string>& texts) {
  std::string list;
  for (const std::string& text : texts) list += (list.empty() ? "" : ", ") + text;
  return list;
}

std::string coverageOf(const SecurityLayer& layer) {
  if (layer.coversAll()) return "all of the content";
  std::string text = "part " + layer.part + " only";
  return layer.uncovered.empty() ? text : text + ", not part " + listOf(layer.uncovered);
}

Check checkChain(const Signer& signer, const Security& security) {
  if (signer.certificate && !security.wasTrustGiven)
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

Check checkTime(const Signer& signer) {
  if (!signer.signingTime) return {Mark::note, "time", "not given"};
  const bool isAhead = *signer.signingTime > std::chrono::system_clock::now();
  return {
      Mark::note, "time",
      timeText(*signer.signingTime) + (isAhead ? ", which is in the future" : ", according to the signer")};
}

Check checkAddress(const Signer& signer, const Security& security) {
  if (!security.fromProblem.empty()) return {Mark::bad, "address", security.fromProblem};
  return {markOf(signer.addressMatches), "address",
          textOf(signer.addressMatches, security.from + ", as in From",
                 "the certificate is not issued to " + security.from + ", the address in From", signer,
                 security.fromProblem)};
}

void addCertificateChecks(const Signer& signer, const Security& security, std::vector<Check>& checks) {
  checks.push_back(checkChain(signer, security));
  checks.push_back({markOf(signer.keyUsageFit), "usage",
                    textOf(signer.keyUsageFit, "the certificate is valid for signing mail",
                           "the certificate is not valid for signing mail", signer, signer.problem)});
  checks.push_back(checkTime(signer));
  checks.push_back(checkAddress(signer, security));
}

void addSignerChecks(const Signer& signer, const Security& security, std::vector<Check>& checks) {
  const CertificateInfo* const certificate = signer.certificate ? &*signer.certificate : nullptr;
  checks.push_back(certificate ? Check{Mark::note, "signer",
                                       nameOf(*certificate) + " (" + inQuotes(certificate->subject) +
                                           "), issued by " + inQuotes(certificate->issuer) +
                                           ", serial number " + certificate->serialNumber}
                               : Check{Mark::bad, "signer", "no certificate of the signer"});
  checks.push_back({markOf(signer.digestMatched), "digest",
                    signer.digest + ", " +
                        textOf(signer.digestMatched, "the content is what was signed",
                               "the content is not what was signed", signer, signer.problem)});
  const std::string key = certificate ? signer.algorithm + ", " + certificate->keyAlgorithm + " " +
                                            std::to_string(certificate->keyBits) + " bits, "
                                      : "";
  checks.push_back({markOf(signer.signatureVerified), "signature",
                    key + textOf(signer.signatureVerified, "verified", "not verified", signer,
                                 signer.digestMatched == Answer::no ? "its key or algorithm cannot be used"
                                                                    : signer.problem)});
  addCertificateChecks(signer, security, checks);
  if (!signer.weaknesses.empty()) checks.push_back({Mark::note, "weak", listOf(signer.weaknesses)});
}

void addEncryptionChecks(const SecurityLayer& layer, std::vector<Check>& checks) {
  checks.push_back(
      {markOf(layer.isOpened), "content",
       layer.isOpened ? "opened" : "not opened" + (layer.problem.empty() ? "" : ": " + layer.problem)});
  if (layer.recipient) checks.push_back({Mark::note, "recipient", nameOf(*layer.recipient)});
  if (!layer.cipher.empty())
    checks.push_back({Mark::note, "cipher",
                      layer.cipher + (layer.keyTransport.empty() ? "" : ", key by " + layer.keyTransport)});
  if (layer.isCipherWeak) checks.push_back({Mark::note, "weak", layer.cipher});
}

/// Remaining faults of a cryptographically valid signature; empty when there are none.
std::string remainingFaultsOf(const Signer& signer) {
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

std::string weaknessesOf(const SecurityLayer& layer) {
  std::string text;
  for (const Signer& signer : layer.signers)
    if (!signer.weaknesses.empty()) text += (text.empty() ? ", weak: " : ", ") + listOf(signer.weaknesses);
  return text;
}

LayerSummary summaryOfSigned(const SecurityLayer& layer, const Security& security) {
  if (layer.signers.empty()) return {false, "signature could not be checked"};
  if (layer.hasInvalidSignature()) return {false, "signature INVALID"};
  for (const Signer& signer : layer.signers)
    if (!signer.isValid()) return {false, "signature not checked: " + signer.problem};
  const auto good =
      std::ranges::count_if(layer.signers, [&](const Signer& signer) { return signer.isFaultless; });
  const auto others = std::ssize(layer.signers) - good;
  LayerSummary summary{good > 0 && layer.coversAll() && !security.contradiction() && !security.unopened(),
                       "signature valid"};
  if (good == 0)
    summary.text += remainingFaultsOf(layer.signers.front());
  else if (others > 0)
    summary.text += ", but " + std::to_string(others) + " other " +
                    (others == 1 ? "signer is" : "signers are") + " not accepted";
  if (const FieldDifference* const field = security.contradiction())
    summary.text += ", but not for this " + field->name;
  if (!layer.coversAll()) summary.text += ", covers " + coverageOf(layer);
  if (security.unopened()) summary.text += ", not fully opened";
  summary.text += weaknessesOf(layer);
  return summary;
}

}  // namespace

std::vector<Check> checksOf(const SecurityLayer& layer, const Security& security) {
  std::vector<Check> checks;
  checks.push_back({layer.isSigned() ? markOf(layer.coversAll()) : Mark::note, "covers", coverageOf(layer)});
  for (const Signer& signer : layer.signers) addSignerChecks(signer, security, checks);
  if (layer.isSigned() && !layer.problem.empty()) checks.push_back({Mark::bad, "problem", layer.problem});
  if (!layer.isSigned()) addEncryptionChecks(layer, checks);
  return checks;
}

LayerSummary summaryOf(const SecurityLayer& layer, const Security& security) {
  if (layer.isSigned()) return summaryOfSigned(layer, security);
  if (layer.kind == LayerKind::certificatesOnly) return {true, "certificates only"};
  const std::string where = layer.part == "1" ? "" : ", part " + layer.part;
  const std::string weak = layer.isCipherWeak ? ", weak" : "";
  const std::string kind = layer.isEncrypted()                   ? "encrypted"
                           : layer.kind == LayerKind::compressed ? "compressed"
                                                                 : "unknown layer";
  return {layer.isOpened, kind + (layer.isOpened ? "" : ", not opened") + where + weak};
}

std::string verdictOf(const Security& security) {
  const bool lacksAnchors = !security.wasTrustGiven && security.verdict.ends_with("no trust anchors given");
  return security.verdict + (lacksAnchors ? " (--trust)" : "");
}

std::string nameOfSigner(const SecurityLayer& layer, const Security& security) {
  for (const Signer& signer : layer.signers)
    if (signer.isFaultless) return security.from;
  const bool isKnown = !layer.signers.empty() && layer.signers.front().certificate;
  return isKnown ? nameOf(*layer.signers.front().certificate) : std::string();
}

std::string nameOf(const CertificateInfo& certificate) {
  return wordOrQuoted(certificate.addresses.empty() ? certificate.subject : certificate.addresses.front());
}

}  // namespace mailtree::cli
