// crypto/CertificateFiles.h - reads certificates and private keys in every form they are handed around in.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/DataBuffer.h"
#include "mailtree/crypto/CertificateReader.h"

namespace mailtree {

class LogBase;

/// Bytes that one file of certificates may have; a bigger one is refused.
inline constexpr std::size_t kMaxCertificateFile = std::size_t{16} << 20;

/// What was found in a file.
struct KeyMaterial {
  std::vector<RefPtr<Certificate>> certificates;
  std::vector<KeyPtr> keys;
  std::vector<std::string> problems;  ///< What could not be read, and why, in words.

  void add(Owned<Certificate> certificate);
  bool isEmpty() const noexcept { return certificates.empty() && keys.empty(); }
};

/// Reads PEM, DER, PKCS#12 and PKCS#7, found out by looking. Null is no password.
KeyMaterial readKeyMaterial(std::string_view bytes, const char* password);

/// Adds what a PKCS#12 file holds (crypto/Pkcs12Files.cpp). False when the bytes are none.
bool readPkcs12(std::string_view der, const char* password, KeyMaterial& found);

/// Adds the key in an encrypted PKCS#8 structure (crypto/Pkcs12Files.cpp). False when the bytes are none.
bool readEncryptedKey(std::string_view der, const char* password, KeyMaterial& found);

/// Adds a certificate made in another context than ours, by reading it again. False when that failed.
bool addNativeCertificate(NativeCertificate* native, KeyMaterial& found);

/// Loads a file, or what a pipe gives. False, with the reason logged, when it cannot be read or is too big.
bool loadCertificateFile(const char* path, DataBuffer& bytes, LogBase& log);

/// The regular files of a folder, in the order of their names; just `path` when it is no folder.
std::vector<std::string> certificateFilesAt(const char* path);

}  // namespace mailtree
