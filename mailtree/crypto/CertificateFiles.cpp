#include "mailtree/crypto/CertificateFiles.h"

#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "mailtree/base/Log.h"
#include "mailtree/base/Output.h"
#include "mailtree/base/internal.h"
#include "mailtree/crypto/Pem.h"
#include "mailtree/crypto/internal.h"

namespace mailtree {
namespace {

namespace fs = std::filesystem;

using CertificateStack = STACK_OF(X509);
void freeStack(CertificateStack* stack) { sk_X509_pop_free(stack, X509_free); }

// ---- one DER structure: each reader returns whether it recognized
// the bytes --------------------------------------

bool readCertificate(std::string_view der, const char*, KeyMaterial& found) {
  Owned<Certificate> certificate = CertificateReader::read(der);
  if (!certificate) return false;
  found.add(std::move(certificate));
  return true;
}

/// A PKCS#7 structure with certificates and no signature.
bool readBundle(std::string_view der, const char*, KeyMaterial& found) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(der.data());
  CMS_ContentInfo* content = CMS_ContentInfo_new_ex(contextAs<OSSL_LIB_CTX>(), nullptr);
  if (!content || !d2i_CMS_ContentInfo(&content, &bytes, static_cast<long>(der.size()))) return false;
  const Handle<CMS_ContentInfo, CMS_ContentInfo_free> owner(content);
  const Handle<CertificateStack, freeStack> certificates(CMS_get1_certs(content));
  if (!certificates) found.problems.emplace_back("a PKCS#7 structure without certificates");
  for (int i = 0; certificates && i < sk_X509_num(certificates.get()); ++i)
    addNativeCertificate(reinterpret_cast<NativeCertificate*>(sk_X509_value(certificates.get(), i)), found);
  return true;
}

bool readPlainKey(std::string_view der, const char*, KeyMaterial& found) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(der.data());
  KeyPtr key(reinterpret_cast<NativeKey*>(d2i_AutoPrivateKey_ex(
      nullptr, &bytes, static_cast<long>(der.size()), contextAs<OSSL_LIB_CTX>(), nullptr)));
  if (!key) return false;
  found.keys.push_back(std::move(key));
  return true;
}

using DerReader = bool (*)(std::string_view der, const char* password, KeyMaterial& found);

// ---- PEM --------------------------------------------------------------------------------------------------

struct BlockKind {
  std::string_view name;
  DerReader read;
};
constexpr BlockKind kBlockKinds[] = {
    {"CERTIFICATE", readCertificate},
    {"X509 CERTIFICATE", readCertificate},
    {"TRUSTED CERTIFICATE", readCertificate},  // ignores the trust settings after the certificate
    {"PKCS7", readBundle},
    {"PKCS #7 SIGNED DATA", readBundle},
    {"CMS", readBundle},
    {"ENCRYPTED PRIVATE KEY", readEncryptedKey},
    {"PRIVATE KEY", readPlainKey},
    {"RSA PRIVATE KEY", readPlainKey},
    {"EC PRIVATE KEY", readPlainKey},
    {"DSA PRIVATE KEY", readPlainKey},
};

/// Input and result of the callback below.
struct PasswordRequest {
  std::string_view password;
  bool wasAsked = false;
};

int providePassword(char* out, int capacity, int, void* request) {
  auto& asked = *static_cast<PasswordRequest*>(request);
  asked.wasAsked = true;
  if (asked.password.empty() || asked.password.size() > static_cast<std::size_t>(capacity)) return -1;
  std::memcpy(out, asked.password.data(), asked.password.size());
  return static_cast<int>(asked.password.size());
}

/// A key in the traditional form, whose encryption is described in the header lines of the block.
void readBlockWithHeader(const PemBlock& block, const char* password, KeyMaterial& found) {
  const Handle<BIO, BIO_free> text(BIO_new_mem_buf(block.text.data(), static_cast<int>(block.text.size())));
  PasswordRequest request{viewOf(password)};
  KeyPtr key(reinterpret_cast<NativeKey*>(PEM_read_bio_PrivateKey_ex(
      text.get(), nullptr, providePassword, &request, contextAs<OSSL_LIB_CTX>(), nullptr)));
  if (key) {
    found.keys.push_back(std::move(key));
    return;
  }
  if (!request.wasAsked)
    found.problems.emplace_back("damaged: an encrypted key");
  else
    found.addLocked(request.password.empty() ? "a key that needs a password" : "wrong password for a key");
}

void readBlock(const PemBlock& block, const char* password, KeyMaterial& found) {
  const QuietErrors quiet;
  const auto* const kind = std::ranges::find(kBlockKinds, block.name, &BlockKind::name);
  if (kind == std::end(kBlockKinds)) return;  // parameters, public keys, revocation lists
  if (kind->read == readPlainKey && contains(block.body, "Proc-Type:"))
    return readBlockWithHeader(block, password, found);
  DataBuffer der;
  const WipedAtEnd wiped(der);
  if (!decodePemBody(block, der) || !kind->read(der.view(), password, found))
    found.problems.push_back("damaged: " + std::string(block.name));
}

void readPem(std::string_view text, const char* password, KeyMaterial& found) {
  PemReader reader(text);
  while (const auto block = reader.next()) readBlock(*block, password, found);
}

// ---- DER --------------------------------------------------------------------------------------------------

void readDer(std::string_view der, const char* password, KeyMaterial& found) {
  constexpr DerReader kReaders[] = {readCertificate, readPkcs12, readBundle, readEncryptedKey, readPlainKey};
  std::ranges::any_of(kReaders, [&](DerReader read) {
    const QuietErrors quiet;
    return read(der, password, found);
  });
}

std::size_t expectedSize(const char* path) {
  std::error_code error;
  const auto size = fs::file_size(path, error);
  return error || size == 0 ? kMaxCertificateFile : static_cast<std::size_t>(size);
}

}  // namespace

void KeyMaterial::add(Owned<Certificate> certificate) {
  if (certificate) certificates.emplace_back(certificate.release());
}

void KeyMaterial::addLocked(std::string problem) {
  isLocked = true;
  problems.push_back(std::move(problem));
}

bool addNativeCertificate(NativeCertificate* native, KeyMaterial& found) {
  unsigned char* der = nullptr;
  const int size = i2d_X509(reinterpret_cast<X509*>(native), &der);
  if (size <= 0) return false;
  const auto free = [](unsigned char* bytes) { OPENSSL_free(bytes); };
  const std::unique_ptr<unsigned char, decltype(free)> owner(der, free);
  return readCertificate({reinterpret_cast<const char*>(der), static_cast<std::size_t>(size)}, nullptr,
                         found);
}

KeyMaterial readKeyMaterial(std::string_view bytes, const char* password) {
  const QuietErrors quiet;
  KeyMaterial found;
  if (bytes.size() > kMaxCertificateFile)
    found.problems.emplace_back("too large for certificates");
  else if (PemReader::looksLikePem(bytes))
    readPem(bytes, password, found);
  else
    readDer(bytes, password, found);
  if (found.isEmpty() && found.problems.empty()) found.problems.emplace_back("no certificate or key");
  return found;
}

bool loadCertificateFile(const char* path, DataBuffer& bytes, LogBase& log) {
  wipe(bytes);
  const FilePtr file(std::fopen(path ? path : "", "rbe"));
  if (!file) return logHostError(log, path, errno), false;
  std::setvbuf(file.get(), nullptr, _IONBF, 0);  // no key in a buffer that is not wiped
  // Never grown, because growing would not wipe either; one byte more than allowed, to notice a larger file.
  const std::size_t room = std::min(expectedSize(path), kMaxCertificateFile) + 1;
  unsigned char* const out = bytes.appendUninitialized(room);
  if (!out) return logHostError(log, path, ENOMEM), false;
  errno = 0;
  const std::size_t got = std::fread(out, 1, room, file.get());
  if (std::ferror(file.get())) {
    logHostError(log, path, errno ? errno : EIO);
    return wipe(bytes), false;
  }
  if (got == room) {
    logHostError(log, path, EFBIG);
    return wipe(bytes), false;
  }
  bytes.shorten(room - got);
  return true;
}

std::vector<std::string> certificateFilesAt(const char* path) {
  std::error_code error;
  std::vector<std::string> files;
  if (!fs::is_directory(viewOf(path), error)) return {std::string(viewOf(path))};
  for (fs::directory_iterator at(viewOf(path), error), end; !error && at != end; at.increment(error)) {
    std::error_code unknown;
    if (at->is_regular_file(unknown)) files.push_back(at->path().string());
  }
  std::ranges::sort(files);
  return files;
}

}  // namespace mailtree
