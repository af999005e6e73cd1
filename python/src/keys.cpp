#include "python/src/keys.h"

#include <pybind11/stl.h>

#include "python/src/mail.h"
#include "python/src/values.h"

namespace mailtree::python {
namespace {

template <class F>
void add(KeyRing& ring, F&& f) {
  unlocked(ring.mutex, [&] { check(f(ring.keys)); });
}

template <class F>
auto ask(KeyRing& ring, F&& f) {
  return locked(ring.mutex, [&] { return f(std::as_const(ring.keys)); });
}

std::string reprOf(KeyRing& ring) {
  return ask(ring, [](const Keys& keys) {
    return "<mailtree.Keys: " + std::to_string(keys.identities().size()) + " identities, " +
           std::to_string(keys.certificates().size()) + " certificates" +
           (keys.hasTrust() ? ", trust anchors>" : ">");
  });
}

}  // namespace

void addKeys(py::module_& module) {
  py::class_<KeyRing, KeyRingPtr> type(
      module, "Keys", py::is_final(),
      R"(The keys that messages are opened, verified, signed and encrypted with.

They are in memory only, and wiped at the end. Files are PEM, DER, PKCS#12 or PKCS#7.

>>> import mailtree
>>> keys = mailtree.Keys()
>>> keys.add_file("tests/data/secure/alice.p12", password="secret")
>>> keys.identities[0].addresses
['alice@example.com']
)");
  refusePickling(type);
  type.def(py::init<>())
      .def(
          "add_file",
          [](KeyRing& ring, const Path& path, const Text& password) {
            add(ring, [&](Keys& keys) { return keys.addFile(path.value, password.string()); });
          },
          py::arg("path"), py::arg("password") = "", "Adds the certificates and private keys of a file.")
      .def(
          "add_data",
          [](KeyRing& ring, const Bytes& data, const Text& password) {
            add(ring, [&](Keys& keys) { return keys.addData(data.view(), password.string()); });
          },
          py::arg("data"), py::arg("password") = "", "The same from bytes.")
      .def(
          "add_folder",
          [](KeyRing& ring, const Path& path, const Text& password) {
            add(ring, [&](Keys& keys) { return keys.addFolder(path.value, password.string()); });
          },
          py::arg("path"), py::arg("password") = "",
          "Adds every file of a folder that holds certificates or keys; others are skipped.")
      .def(
          "add_trust",
          [](KeyRing& ring, const Path& path) {
            add(ring, [&](Keys& keys) { return keys.addTrust(path.value); });
          },
          py::arg("path"), "Adds trust anchors, from a file or every file of a folder.")
      .def(
          "add_system_trust",
          [](KeyRing& ring) { add(ring, [](Keys& keys) { return keys.addSystemTrust(); }); },
          "Adds the trust anchors of the host.")
      .def(
          "add_revocation_list",
          [](KeyRing& ring, const Path& path) {
            add(ring, [&](Keys& keys) { return keys.addRevocationList(path.value); });
          },
          py::arg("path"),
          "Adds a revocation list (PEM or DER); from then on chains are checked for revocation.")
      .def_property_readonly(
          "identities",
          [](KeyRing& ring) {
            return toCertificates(ask(ring, [](const Keys& keys) { return keys.identities(); }));
          },
          "Certificates with their private key: a list of CertificateInfo.")
      .def_property_readonly(
          "certificates",
          [](KeyRing& ring) {
            return toCertificates(ask(ring, [](const Keys& keys) { return keys.certificates(); }));
          },
          "All certificates, identities included; no trust anchors.")
      .def_property_readonly(
          "has_trust", [](KeyRing& ring) { return ask(ring, [](const Keys& k) { return k.hasTrust(); }); },
          "Whether there are trust anchors.")
      .def("__repr__", [](KeyRing& ring) { return toText(reprOf(ring)); });
}

}  // namespace mailtree::python
