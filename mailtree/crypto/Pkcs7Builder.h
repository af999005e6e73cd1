// crypto/Pkcs7Builder.h - signatures and envelopes in the Cryptographic Message Syntax (RFC 5652).
#pragma once

#include "mailtree/base/Containers.h"
#include "mailtree/base/DataBuffer.h"
#include "mailtree/crypto/Cades.h"
#include "mailtree/crypto/DataSource.h"
#include "mailtree/crypto/Hash.h"
#include "mailtree/crypto/SystemCerts.h"

namespace mailtree {

/// Content ciphers as numbered by the enveloping operations.
enum class ContentCipher : int {
  aesCbc = 0,     ///< RFC 3565; supported by every S/MIME client.
  aesGcm = 1,     ///< RFC 5084: AuthEnvelopedData (RFC 5083), which detects changes.
  tripleDes = 2,  ///< For old clients.
};

/// How the content key is encrypted for an RSA recipient; an EC recipient always gets it by ECDH (RFC 5753).
enum class KeyTransport : int { pkcs1 = 0, oaep = 1 };

/// On failure every function returns false with the reason logged and `der` empty.
class Pkcs7Builder {
 public:
  /// SignedData over the exact bytes of a source.
  /// @param detached         true: the content is left out of `der`.
  /// @param includeChain     includes all known certificates up to the trust anchor; else only the signer's.
  /// @param hashId           a HashId; unknown ones fail.
  /// @param signingTime      includes signing time and supported ciphers as signed attributes.
  /// @param signingCertificate  includes the signing-certificate-v2 attribute, which ties the signature to
  ///                            the certificate (RFC 5035; CAdES-BES).
  /// @param signerCerts      CertificateHolder of every signer, each with its private key.
  static bool createPkcs7Signature(_svDataSource& content, DataBuffer& unused, bool detached,
                                   bool includeChain, int hashId, bool signingTime, bool signingCertificate,
                                   _clsCades& cades, ExtPtrArray& signerCerts, SystemCerts& certs,
                                   DataBuffer& der, LogBase& log);

  /// EnvelopedData, or AuthEnvelopedData for GCM, over the bytes of a source.
  /// @param size             bytes of the content; a source with a different size fails.
  /// @param binary           true: the exact bytes; false: a text whose line breaks become CRLF.
  /// @param cipher           a ContentCipher.
  /// @param keyBits          128, 192 or 256 for AES; 0: 256. Ignored for triple DES.
  /// @param recipients       CertificateHolder of every recipient.
  /// @param keyTransport     a KeyTransport.
  /// @param oaepHash         a HashId, of the OAEP padding; 0: sha256.
  /// @param bySubjectKeyId   identifies recipients by subject key identifier, where they have one, instead of
  ///                         issuer and serial number.
  static bool createPkcs7Enveloped(_svDataSource& content, long long size, bool binary, int cipher,
                                   int keyBits, ExtPtrArray& recipients, int keyTransport, int oaepHash,
                                   bool bySubjectKeyId, SystemCerts& certs, DataBuffer& der, LogBase& log);
};

}  // namespace mailtree
