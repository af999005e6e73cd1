// tests/secure/secure_mail.h - identities, and secure messages in one line.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

#include "mailtree/crypto/Pkcs7Builder.h"
#include "mailtree/email/Email2.h"

namespace mailtree {

/// Certificates and keys of tests/data/secure, by name, under the anchor "root". A name that begins with "-" has
/// its certificate only.
struct Identities {
  explicit Identities(std::initializer_list<const char*> names);
  /// Of NAME@example.com.
  Certificate* operator[](const char* name);

  SystemCerts certs;
};

/// A message with a body, from one to another; both names without "@example.com".
EmailPtr letter(const char* from, const char* to, std::string_view body);

/// The bytes signed or encrypted as they stand. An empty text when it failed.
std::string signedDer(std::string_view content, Certificate& signer, bool detached,
                      HashId hash = HashId::sha256);
std::string envelopedDer(std::string_view content, Certificate& recipient,
                         ContentCipher cipher = ContentCipher::aesCbc);

/// The same as a MIME entity: header and body, no other fields, lines ended by CRLF.
std::string multipartSigned(std::string_view content, Certificate& signer);
std::string multipartSignedAs(std::string_view content, std::string_view der);
std::string pkcs7Mime(std::string_view der, const char* smimeType);
std::string opaque(std::string_view content, Certificate& signer);
std::string enveloped(std::string_view content, Certificate& recipient,
                      ContentCipher cipher = ContentCipher::aesCbc);

/// The way a program loads it, layers taken off.
EmailPtr receive(std::string_view message, SystemCerts& certs, LogBase* log = nullptr);

/// "detached 1 valid; enveloped 1.2 closed": the layers met, from outside in.
std::string layersOf(const Email2& root);

}  // namespace mailtree
