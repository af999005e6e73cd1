// Verdicts, reports and problems as objects of the classes written in Python.
#include <pybind11/stl.h>

#include "python/src/values.h"

namespace mailtree::python {
namespace {

/// None: not checked.
py::object toAnswer(Answer answer) {
  return answer == Answer::notChecked ? py::object(py::none()) : py::bool_(answer == Answer::yes);
}

const char* wordFor(LayerKind kind) noexcept {
  switch (kind) {
    case LayerKind::detachedSignature: return "detached_signature";
    case LayerKind::opaqueSignature: return "opaque_signature";
    case LayerKind::enveloped: return "enveloped";
    case LayerKind::authEnveloped: return "auth_enveloped";
    case LayerKind::compressed: return "compressed";
    case LayerKind::certificatesOnly: return "certificates_only";
    case LayerKind::unknown: break;
  }
  return "unknown";
}

const char* wordFor(Problem::Kind kind) noexcept {
  switch (kind) {
    case Problem::Kind::repaired: return "repaired";
    case Problem::Kind::damagedText: return "damaged_text";
    case Problem::Kind::limit: return "limit";
    case Problem::Kind::ambiguous: return "ambiguous";
    case Problem::Kind::notOpened: return "not_opened";
    case Problem::Kind::malformed: return "malformed";
    case Problem::Kind::deceptive: return "deceptive";
  }
  return "";
}

const char* wordFor(Problem::Severity severity) noexcept {
  switch (severity) {
    case Problem::Severity::note: return "note";
    case Problem::Severity::warning: return "warning";
    case Problem::Severity::danger: return "danger";
  }
  return "";
}

const char* wordFor(ReportKind kind) noexcept {
  switch (kind) {
    case ReportKind::deliveryStatus: return "delivery_status";
    case ReportKind::dispositionNotification: return "disposition_notification";
    case ReportKind::feedback: return "feedback";
  }
  return "";
}

py::object toSigner(const Signer& signer) {
  return make("Signer", orNone(signer.certificate, toCertificate), toText(signer.digest),
              toText(signer.algorithm),
              orNone(signer.signingTime, [](std::chrono::sys_seconds time) { return toDatetime(time); }),
              toAnswer(signer.digestMatched), toAnswer(signer.signatureVerified),
              toAnswer(signer.chainTrusted), toAnswer(signer.chainTrustedThen), toAnswer(signer.revoked),
              toAnswer(signer.keyUsageFit), toAnswer(signer.addressMatches), signer.isFaultless,
              toTexts(signer.weaknesses), toText(signer.problem), toText(signer.chainProblem));
}

py::object toLayer(const SecurityLayer& layer) {
  return make("SecurityLayer", wordFor(layer.kind), toText(layer.part), layer.isOpened,
              toList(layer.signers, toSigner), toText(layer.cipher), toText(layer.keyTransport),
              layer.isCipherWeak, orNone(layer.recipient, toCertificate), toCertificates(layer.certificates),
              toTexts(layer.uncovered), toText(layer.problem));
}

py::object toDifference(const FieldDifference& difference) {
  return make("FieldDifference", toText(difference.part), toText(difference.name), toText(difference.outside),
              toText(difference.inside), difference.isDisplayed);
}

py::list toFields(const std::vector<ReportField>& fields) {
  return toList(fields, [](const ReportField& field) {
    return py::make_tuple(toText(field.name), toText(field.value));
  });
}

py::object toRecipient(const ReportRecipient& recipient) {
  return make("ReportRecipient", toText(recipient.address), toText(recipient.original),
              toText(recipient.action), toText(recipient.status), toText(recipient.diagnostic),
              toFields(recipient.fields));
}

}  // namespace

py::object toCertificate(const CertificateInfo& info) {
  return make("CertificateInfo", toText(info.subject), toText(info.issuer), toText(info.serialNumber),
              toTexts(info.addresses), toDatetime(info.validFrom), toDatetime(info.validUntil),
              toText(info.keyAlgorithm), info.keyBits, toText(info.fingerprint), info.hasPrivateKey);
}

py::list toCertificates(const std::vector<CertificateInfo>& infos) { return toList(infos, toCertificate); }

py::object toSecurity(const Security& security) {
  return make("Security", security.isValid, toText(security.verdict), toList(security.layers, toLayer),
              toList(security.differences, toDifference), toText(security.from), toText(security.fromProblem),
              security.wasTrustGiven, security.isSigned(), security.isEncrypted(),
              toAnswer(security.allSignaturesValid()), security.allDecrypted());
}

py::object toReport(const Report& report) {
  return make("Report", wordFor(report.kind), toFields(report.fields), toList(report.recipients, toRecipient),
              toText(report.original), toText(report.messageId), toText(report.subject), toText(report.text));
}

py::object toProblem(const Problem& problem) {
  return make("Problem", wordFor(problem.kind), toText(problem.part), toText(problem.text),
              wordFor(problem.severity), problem.offset);
}

}  // namespace mailtree::python
