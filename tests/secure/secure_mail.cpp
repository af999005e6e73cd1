#include "tests/secure/secure_mail.h"

#include <stdexcept>

#include "mailtree/mime/coding/ContentCoding.h"
#include "tests/support/messages.h"
#include "tests/support/places.h"

namespace mailtree {
namespace {

std::string pathOf(std::string_view name) { return (places::testData() + "/secure/").append(name); }

ExtPtrArray& listed(Certificate& certificate, ExtPtrArray& list) {
  LogNull log;
  CertificateHolder::appendNewCertHolder(&certificate, list, log);
  return list;
}

std::string base64(std::string_view bytes) {
  StringBuffer text;
  ContentCoding::encodeBase64(bytes.data(), bytes.size(), text);
  return text.extractString();
}

std::string_view wordOf(const SecureLayer& layer) {
  if (!layer.isSigned()) return layer.opened ? "open" : "closed";
  return layer.opened && layer.allSignaturesValid() ? "valid" : "invalid";
}

}  // namespace

Identities::Identities(std::initializer_list<const char*> names) {
  LogMemory log;
  certs.addTrustAnchors(pathOf("root.pem").c_str(), log);
  certs.addFromFile(pathOf("chain.pem").c_str(), nullptr, log);
  for (const std::string_view name : names) {
    const bool isPublic = name.starts_with('-');
    const std::string file(name.substr(isPublic ? 1 : 0));
    const int read = certs.addFromFile(pathOf(file + ".pem").c_str(), nullptr, log) +
                     (isPublic ? 0 : certs.addFromFile(pathOf(file + ".key").c_str(), nullptr, log));
    if (read == 0) throw std::runtime_error("no identity " + file + "\n" + log.text());
  }
}

Certificate* Identities::operator[](const char* name) {
  const std::string address = std::string(name) + "@example.com";
  for (int i = 0; i < certs.getNumCertificates(); ++i)
    if (certs.getCertificate(i)->isForAddress(address)) return certs.getCertificate(i);
  throw std::runtime_error("nobody is called " + address);
}

EmailPtr letter(const char* from, const char* to, std::string_view body) {
  LogNull log;
  EmailPtr mail(new Email2());
  mail->setFromFullUtf8((std::string(from) + "@example.com").c_str(), log);
  mail->addRecipient(1, "", (std::string(to) + "@example.com").c_str(), log);
  mail->setHeaderField("Subject", "A letter", log);
  mail->m_body.append(body);
  return mail;
}

std::string signedDer(std::string_view content, Certificate& signer, bool detached, HashId hash) {
  LogNull log;
  ExtPtrArray signers;
  SystemCerts certs;
  _clsCades cades;
  DataBuffer unused, der;
  _svMemoryDataSource source;
  source.initializeMemSource(content.data(), static_cast<unsigned>(content.size()));
  Pkcs7Builder::createPkcs7Signature(source, unused, detached, /*includeChain=*/false, static_cast<int>(hash),
                                     /*signingTime=*/true, /*signingCertificate=*/false, cades,
                                     listed(signer, signers), certs, der, log);
  return std::string(der.view());
}

std::string envelopedDer(std::string_view content, Certificate& recipient, ContentCipher cipher) {
  LogNull log;
  ExtPtrArray recipients;
  SystemCerts certs;
  DataBuffer der;
  _svMemoryDataSource source;
  source.initializeMemSource(content.data(), static_cast<unsigned>(content.size()));
  Pkcs7Builder::createPkcs7Enveloped(source, static_cast<long long>(content.size()), /*binary=*/true,
                                     static_cast<int>(cipher), 256, listed(recipient, recipients), 0, 0,
                                     /*bySubjectKeyId=*/false, certs, der, log);
  return std::string(der.view());
}

std::string multipartSignedAs(std::string_view content, std::string_view der) {
  static int count = 0;
  const std::string boundary = "sig" + std::to_string(++count) + "gis";
  return "Content-Type: multipart/signed; protocol=\"application/pkcs7-signature\"; micalg=sha-256; "
         "boundary=" +
         boundary + "\r\n\r\n--" + boundary + "\r\n" + std::string(content) + "\r\n--" + boundary +
         "\r\nContent-Type: application/pkcs7-signature; name=smime.p7s\r\n"
         "Content-Transfer-Encoding: base64\r\n\r\n" +
         base64(der) + "\r\n--" + boundary + "--\r\n";
}

std::string multipartSigned(std::string_view content, Certificate& signer) {
  return multipartSignedAs(content, signedDer(content, signer, /*detached=*/true));
}

std::string pkcs7Mime(std::string_view der, const char* smimeType) {
  return std::string("Content-Type: application/pkcs7-mime; name=smime.p7m; smime-type=") + smimeType +
         "\r\nContent-Transfer-Encoding: base64\r\nContent-Disposition: attachment; "
         "filename=smime.p7m\r\n\r\n" +
         base64(der);
}

std::string opaque(std::string_view content, Certificate& signer) {
  return pkcs7Mime(signedDer(content, signer, /*detached=*/false), "signed-data");
}

std::string enveloped(std::string_view content, Certificate& recipient, ContentCipher cipher) {
  return pkcs7Mime(envelopedDer(content, recipient, cipher), "enveloped-data");
}

EmailPtr receive(std::string_view message, SystemCerts& certs, LogBase* log) {
  LogNull quiet;
  StringBuffer mime(message);
  return EmailPtr(Email2::createFromMimeText2(*new _svEmailCommon, mime, /*discardInput=*/true,
                                              /*unwrap=*/true, certs, log ? *log : quiet,
                                              /*parseOption=*/false));
}

std::string layersOf(const Email2& root) {
  std::string out;
  for (const SecureLayer& layer : root.m_common->m_secureLayers) {
    if (!out.empty()) out += "; ";
    out.append(nameOf(layer.kind)).append(" ").append(layer.part).append(" ").append(wordOf(layer));
  }
  return out;
}

}  // namespace mailtree
