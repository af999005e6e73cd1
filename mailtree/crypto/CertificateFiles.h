// crypto/CertificateFiles.h - reads certificates and private keys in all usual file formats.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/DataBuffer.h"
#include "mailtree/crypto/CertificateReader.h"

namespace mailtree {

class LogBase;

/// Maximum size of a certificate file in bytes; a larger one is refused.
inline constexpr std::size_t kMaxCertificateFile = std::size_t{16} << 20;

/// The content of a file.
struct KeyMaterial {
  std::vector<RefPtr<Certificate>> certificates;
  std::vector<KeyPtr> keys;
  std::vector<std::string> problems;  ///< What could not be read, with the reason.
  bool isLocked = false;              ///< Something was not opened by the password, or for lack of one.

  void add(Owned<Certificate> certificate);
  void addLocked(std::string problem);
  bool isEmpty() const noexcept { return certificates.empty() && keys.empty(); }
};

/// Reads PEM, DER, PKCS#12 and PKCS#7, and detects the format. Null means no password.
KeyMaterial readKeyMaterial(std::string_view bytes, const char* password);

/// Adds the content of a PKCS#12 file (crypto/Pkcs12Files.cpp). False when the bytes are not one.
bool readPkcs12(std::string_view der, const char* password, KeyMaterial& found);

/// Adds the key of an encrypted PKCS#8 structure (crypto/Pkcs12Files.cpp). False when the bytes are not one.
bool readEncryptedKey(std::string_view der, const char* password, KeyMaterial& found);

/// Adds a certificate of another library context by reading it again. False when that failed.
bool addNativeCertificate(NativeCertificate* native, KeyMaterial& found);

/// Loads a file or the content of a pipe. False, with the reason logged, when it cannot
/// be read or is too large.
bool loadCertificateFile(const char* path, DataBuffer& bytes, LogBase& log);

/// The regular files of a folder, sorted by name; just `path` when it is not a folder.
std::vector<std::string> certificateFilesAt(const char* path);

}  // namespace mailtree
