// tests/secure/secure_mail.h - identities, and secure messages in one line.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "mailtree/email/Email2.h"
#include "mailtree/mime/coding/ContentCoding.h"
#include "tests/crypto/pkcs7_fixtures.h"

namespace mailtree {

inline const std::string kText = "Content-Type: text/plain\r\n\r\nPay Bob 10.\r\n";
inline const std::string kFrom = "From: alice@example.com\r\n";

/// Certificates and keys by name, under the anchor "root". A name that begins with "-"
/// has its certificate only.
struct Identities {
  Identities(std::initializer_list<std::string> names) {
    LogMemory log;
    certs.addTrustAnchors(identityFile("root.pem").c_str(), log);
    addIdentities(certs, {"chain.pem"});
    for (const std::string& name : names) {
      const std::string file = name.substr(name.starts_with('-') ? 1 : 0);
      addIdentities(certs, {(file + ".pem").c_str()});
      if (file == name) addIdentities(certs, {(file + ".key").c_str()});
    }
  }
  /// Of NAME@example.com.
  Certificate* operator[](const std::string& name) const {
    for (int i = 0; i < certs.getNumCertificates(); ++i)
      if (certs.getCertificate(i)->isForAddress(name + "@example.com")) return certs.getCertificate(i);
    return nullptr;
  }

  SystemCerts certs;
};

/// A message with a body, from one to another; both names without "@example.com".
inline EmailPtr letter(const std::string& from, const std::string& to, std::string_view body) {
  LogNull log;
  EmailPtr mail(new Email2());
  mail->setFromFullUtf8((from + "@example.com").c_str(), log);
  mail->addRecipient(1, "", (to + "@example.com").c_str(), log);
  mail->setHeaderField("Subject", "A letter", log);
  mail->m_body.append(body);
  return mail;
}

// MIME entities: header and body, no other fields, lines ended by CRLF. What is in them is signed
// or encrypted as it is.

/// `type` is a subtype with its parameters.
inline std::string multipart(const std::string& type, std::initializer_list<std::string> parts) {
  static int count = 0;
  const std::string boundary = "part" + std::to_string(++count) + "trap";
  std::string out = "Content-Type: multipart/" + type + "; boundary=" + boundary + "\r\n\r\n";
  for (const std::string& part : parts) out += "--" + boundary + "\r\n" + part + "\r\n";
  return out + "--" + boundary + "--\r\n";
}

/// With the Content-Type line's text after "application/".
inline std::string base64Entity(const std::string& type, std::string_view bytes) {
  StringBuffer text;
  ContentCoding::encodeBase64(bytes.data(), bytes.size(), text);
  return "Content-Type: application/" + type + "\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
         text.extractString();
}

inline std::string signedAs(const std::string& content, std::string_view der) {
  return multipart("signed; protocol=\"application/pkcs7-signature\"; micalg=sha-256",
                   {content, base64Entity("pkcs7-signature; name=smime.p7s", der)});
}

inline std::string sign(const std::string& content, const std::string& signer = "alice") {
  return signedAs(content, signedBlob(content, {{signer}, true}));
}

inline std::string pkcs7Mime(std::string_view der, const std::string& smimeType) {
  return base64Entity("pkcs7-mime; name=smime.p7m; smime-type=" + smimeType +
                          "\r\nContent-Disposition: attachment; filename=smime.p7m",
                      der);
}

inline std::string wrap(const std::string& content) { return pkcs7Mime(signedBlob(content), "signed-data"); }

inline std::string seal(const std::string& content, const std::string& reader = "bob", int cipher = kCbc) {
  return pkcs7Mime(envelope(content, {{reader}, cipher, 256}), "enveloped-data");
}

/// The way a program loads it, layers unwrapped.
inline EmailPtr receive(const std::string& message, SystemCerts& certs, LogBase* log = nullptr) {
  LogNull quiet;
  StringBuffer mime(message);
  return EmailPtr(Email2::createFromMimeText2(*new _svEmailCommon, mime, /*discardInput=*/true,
                                              /*unwrap=*/true, certs, log ? *log : quiet,
                                              /*parseOption=*/false));
}

/// "detached-signature 1.2 valid but not 1.1; enveloped 1.2 closed": the layers met, from outside in, and
/// what is displayed beside a signed one.
inline std::string layersOf(const std::vector<SecureLayer>& layers) {
  std::string out;
  for (const SecureLayer& layer : layers) {
    if (!out.empty()) out += "; ";
    out.append(nameOf(layer.kind)).append(" ").append(layer.part);
    if (layer.isSigned())
      out += layer.opened && layer.allSignaturesValid() ? " valid" : " invalid";
    else
      out += layer.opened ? " open" : " closed";
    for (const std::string& part : layer.uncovered) out += " but not " + part;
  }
  return out;
}
inline std::string layersOf(const Email2& root) { return layersOf(root.m_common->m_secureLayers); }

/// What is reported of all of them: "1 signed, 2 encrypted, valid, not all decrypted".
inline std::string sumOf(const Email2& root) {
  const _svEmailCommon& common = *root.m_common;
  if (!common.m_receivedSecure) return "nothing";
  return std::to_string(common.m_numSignedLayers) + " signed, " +
         std::to_string(common.m_numEncryptedLayers) + " encrypted, " +
         (root.getAllSignaturesValid() ? "valid, " : "invalid, ") +
         (root.getAllDataDecrypted() ? "decrypted" : "not all decrypted");
}

}  // namespace mailtree
