// crypto/Weakness.h - digests and keys that no longer protect what is signed with them, by name.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace mailtree {

struct NativeCertificate;

/// "sha256"; "unknown" for one without a name.
std::string digestName(int nid);
/// md5, sha1, and what was before them: two contents with the same one can be made.
bool isWeakDigest(int nid) noexcept;

/// Appends what is weak about a certificate: "key RSA 1024 bits", "certificate signed with sha1".
/// @param whose  put in front of each: "authority 1: ".
/// @param signatureCounts  false for an anchor: whoever trusts one trusts its key, with any signature or none.
void listWeaknesses(NativeCertificate* certificate, std::string_view whose, bool signatureCounts,
                    std::vector<std::string>& weaknesses);

}  // namespace mailtree
