// crypto/Weakness.h - names the digests and keys that no longer protect a signature.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace mailtree {

struct NativeCertificate;

/// "sha256"; "unknown" for one without a name.
std::string digestName(int nid);
/// md5, sha1 and older: collisions can be made.
bool isWeakDigest(int nid) noexcept;

/// Appends the weaknesses of a certificate: "key RSA 1024 bits", "certificate signed with sha1".
/// @param whose  prefix of each: "authority 1: ".
/// @param signatureCounts  false for a trust anchor, whose key is trusted with any signature or none.
void listWeaknesses(NativeCertificate* certificate, std::string_view whose, bool signatureCounts,
                    std::vector<std::string>& weaknesses);

}  // namespace mailtree
