// crypto/Pkcs7Builder.h - signatures and envelopes in the Cryptographic Message Syntax (RFC 5652).
#pragma once

#include "mailtree/base/Containers.h"
#include "mailtree/base/DataBuffer.h"
#include "mailtree/crypto/Cades.h"
#include "mailtree/crypto/DataSource.h"
#include "mailtree/crypto/Hash.h"
#include "mailtree/crypto/SystemCerts.h"

namespace mailtree {

/// Content ciphers as the enveloping operations number them.
enum class ContentCipher : int {
  aesCbc = 0,     ///< RFC 3565; what every reader of encrypted mail knows.
  aesGcm = 1,     ///< RFC 5084: AuthEnvelopedData (RFC 5083), which a change is noticed in.
  tripleDes = 2,  ///< For readers that know nothing younger.
};

/// How the content key travels to an RSA recipient; an EC recipient always gets it by ECDH (RFC 5753).
enum class KeyTransport : int { pkcs1 = 0, oaep = 1 };

/// Failure: false, with the reason logged, and `der` empty.
class Pkcs7Builder {
 public:
  /// SignedData over the bytes of a source, exactly as they stand.
  /// @param detached         true: the content is left out of `der`.
  /// @param includeChain     all certificates up to the anchor go along, as far as they are held; else the
  ///                         signer's alone.
  /// @param hashId           a HashId; unknown ones fail.
  /// @param signingTime      the time and the ciphers understood go along as signed attributes.
  /// @param signingCertificate  the signing-certificate-v2 attribute ties the signature to this very certificate
  ///                         (RFC 5035; CAdES-BES).
  /// @param signerCerts      CertificateHolder of every signer, each with its private key.
  static bool createPkcs7Signature(_svDataSource& content, DataBuffer& unused, bool detached,
                                   bool includeChain, int hashId, bool signingTime, bool signingCertificate,
                                   _clsCades& cades, ExtPtrArray& signerCerts, SystemCerts& certs,
                                   DataBuffer& der, LogBase& log);

  /// EnvelopedData, or AuthEnvelopedData for GCM, over the bytes of a source.
  /// @param size             bytes of the content; a source that gives another number fails.
  /// @param binary           true: the bytes as they stand; false: a text whose line ends become CRLF.
  /// @param cipher           a ContentCipher.
  /// @param keyBits          128, 192 or 256 for AES; 0: 256. Without meaning for triple DES.
  /// @param recipients       CertificateHolder of every recipient.
  /// @param keyTransport     a KeyTransport.
  /// @param oaepHash         a HashId, of the OAEP padding; 0: sha256.
  /// @param bySubjectKeyId   recipients are named by subject key identifier, where they have one, instead of
  ///                         issuer and serial number.
  static bool createPkcs7Enveloped(_svDataSource& content, long long size, bool binary, int cipher,
                                   int keyBits, ExtPtrArray& recipients, int keyTransport, int oaepHash,
                                   bool bySubjectKeyId, SystemCerts& certs, DataBuffer& der, LogBase& log);
};

}  // namespace mailtree
