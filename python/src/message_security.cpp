// S/MIME: the verdict on a message, signing, encrypting and decrypting.
#include <pybind11/stl.h>

#include "python/src/keys.h"
#include "python/src/mail.h"
#include "python/src/values.h"

namespace mailtree::python {
namespace {

using M = Message;

/// Changes a message with keys.
template <class F>
void secure(Mail& mail, KeyRing& ring, F&& f) {
  change(mail, [&](M& message) {
    const std::lock_guard lock(ring.mutex);
    check(f(message, std::as_const(ring.keys)));
  });
}

py::object verify(Mail& mail, const KeyRingPtr& ring) {
  const std::string bytes = bytesOf(mail, kWhole);
  const Security security = [&] {
    const py::gil_scoped_release released;
    return withKeys(ring,
                    [&](const Keys* keys) { return M(valueOf(M::parse(bytes, {.keys = keys}))).security(); });
  }();
  return toSecurity(security);
}

}  // namespace

void addMessageSecurity(MailClass& type) {
  type.def_property_readonly(
      "security",
      [](const Mail& mail) { return toSecurity(ask(mail, [](const M& m) { return m.security(); })); },
      "The verdict on signatures and encryption, as of reading: a Security.");
  type.def("verify", &verify, py::arg("keys") = nullptr,
           R"(The verdict with these keys and trust anchors, on the message as it is now.

>>> import mailtree
>>> keys = mailtree.Keys()
>>> security = mailtree.open("samples/signed.eml").verify(keys)
>>> security.is_signed, security.all_signatures_valid
(True, True)
)");
  type.def(
      "sign",
      [](Mail& mail, KeyRing& ring, const Text& digest, bool opaque, const Text& certificate, bool pss,
         bool chain, bool time, bool certificateId, const Text& fileName) {
        const SignOptions options = {digest.string(), opaque, certificate.string(), pss,
                                     chain,           time,   certificateId,        fileName.string()};
        secure(mail, ring, [&](M& m, const Keys& keys) { return m.sign(keys, options); });
      },
      py::arg("keys"), py::kw_only(), py::arg("digest") = "sha256", py::arg("opaque") = false,
      py::arg("certificate") = "", py::arg("pss") = false, py::arg("chain") = true, py::arg("time") = true,
      py::arg("certificate_id") = true, py::arg("file_name") = "",
      "Signs with the identity of the From address, or with that of a certificate's fingerprint.");
  type.def(
      "encrypt",
      [](Mail& mail, KeyRing& ring, const Text& cipher, const py::iterable& alsoFor,
         const py::iterable& certificates, bool oaep, const Text& fileName) {
        const EncryptOptions options = {cipher.string(), textsFrom(alsoFor), textsFrom(certificates), oaep,
                                        fileName.string()};
        secure(mail, ring, [&](M& m, const Keys& keys) { return m.encrypt(keys, options); });
      },
      py::arg("keys"), py::kw_only(), py::arg("cipher") = "aes-256-cbc", py::arg("also_for") = py::tuple(),
      py::arg("certificates") = py::tuple(), py::arg("oaep") = false, py::arg("file_name") = "",
      "Encrypts for every recipient, and for nobody else: name yourself in also_for to read your own copy.");
  type.def(
      "decrypt",
      [](Mail& mail, KeyRing& ring) {
        secure(mail, ring, [](M& m, const Keys& keys) { return m.decrypt(keys); });
      },
      py::arg("keys"), "Removes the encryption for good; signatures inside stay.");
  type.def(
      "recipients_without_certificate",
      [](Mail& mail, KeyRing& ring) {
        return toTexts(unlocked(mail.mutex, [&] {
          const M& message = mail.open().message;
          const std::lock_guard lock(ring.mutex);
          return message.recipientsWithoutCertificate(ring.keys);
        }));
      },
      py::arg("keys"), "The recipients for whom encrypt() would fail.");
}

}  // namespace mailtree::python
