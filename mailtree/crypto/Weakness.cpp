#include "mailtree/crypto/Weakness.h"

#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <algorithm>

#include "mailtree/base/Ascii.h"

namespace mailtree {
namespace {

struct MinBits {
  const char* algorithm;
  int bits;
};
constexpr MinBits kMinBits[] = {{"RSA", 2048}, {"RSA-PSS", 2048}, {"DSA", 2048}, {"EC", 224}};

constexpr int kWeakDigests[] = {NID_md2, NID_md4, NID_md5, NID_md5_sha1, NID_sha, NID_sha1};

/// Empty when it is strong, or of a kind with only one strength.
std::string weakKeyOf(const X509* x509) {
  const EVP_PKEY* const key = X509_get0_pubkey(x509);
  const int bits = key ? EVP_PKEY_get_bits(key) : 0;
  for (const MinBits& row : kMinBits)
    if (key && EVP_PKEY_is_a(key, row.algorithm) && bits < row.bits)
      return std::string("key ") + row.algorithm + ' ' + std::to_string(bits) + " bits";
  return {};
}

int signatureDigestOf(X509* x509) {
  int digest = NID_undef;
  // Fails for an unavailable digest, such as md2; its name is reported all the same.
  X509_get_signature_info(x509, &digest, nullptr, nullptr, nullptr);
  return digest;
}

}  // namespace

std::string digestName(int nid) { return nid == NID_undef ? "unknown" : lowerCase(OBJ_nid2sn(nid)); }

bool isWeakDigest(int nid) noexcept { return std::ranges::find(kWeakDigests, nid) != std::end(kWeakDigests); }

void listWeaknesses(NativeCertificate* certificate, std::string_view whose, bool signatureCounts,
                    std::vector<std::string>& weaknesses) {
  auto* const x509 = reinterpret_cast<X509*>(certificate);
  const auto add = [&](const std::string& what) { weaknesses.push_back(std::string(whose) + what); };
  if (const std::string key = weakKeyOf(x509); !key.empty()) add(key);
  const int digest = signatureCounts ? signatureDigestOf(x509) : NID_undef;
  if (isWeakDigest(digest)) add("certificate signed with " + digestName(digest));
}

}  // namespace mailtree
