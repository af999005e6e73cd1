// crypto/Pkcs7Internal.h - the outer structure of a CMS object (RFC 5652), without its content.
//
// The cryptographic library gets the structure without its content, and the content in place. Megabytes are
// not copied into or out of the library's objects, and constructed strings are handled in one place.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/LoadBudget.h"
#include "mailtree/crypto/Der.h"
#include "mailtree/crypto/SecureLayer.h"
#include "mailtree/crypto/SystemCerts.h"

struct X509_algor_st;  // of the cryptographic library

namespace mailtree {

class LogBase;

/// Certificates tried for one signer: a hostile message may contain the same one a million times.
inline constexpr int kMaxSignerCandidates = 8;
/// Certification paths built for one layer.
inline constexpr int kMaxChainChecks = 8;
inline constexpr int kMaxRecipients = 10'000;
/// Certificates read from one layer, bytes of one and of all of them. Usual ones have two thousand bytes.
inline constexpr int kMaxLayerCertificates = 1000;
inline constexpr std::size_t kMaxCertificateBytes = std::size_t{64} << 10;
inline constexpr std::size_t kMaxLayerCertificateBytes = std::size_t{512} << 10;

/// Object identifier of the content type data: arbitrary bytes.
inline constexpr std::string_view kDataType = "\x2A\x86\x48\x86\xF7\x0D\x01\x07\x01";

/// A parsed ContentInfo; all views are borrowed.
struct Pkcs7Frame {
  LayerKind kind = LayerKind::unknown;
  std::string_view type;              ///< The outer content type, a whole element.
  std::string_view before;            ///< Elements before the one that describes the content.
  std::string_view describe;          ///< The content of that one, without the encapsulated content.
  std::string_view after;             ///< Elements after it.
  std::string_view contentType;       ///< Octets of the inner object identifier.
  std::optional<DerElement> content;  ///< The octet string; nothing when the content is detached.
  std::string_view mac;               ///< authEnveloped: the tag.
  bool hasAuthenticatedAttributes = false;
};

/// Nullopt when the bytes are not a CMS structure. An incomplete structure of a known
/// type has the kind unknown.
std::optional<Pkcs7Frame> readPkcs7Frame(std::string_view ber) noexcept;

/// Number of elements of the first set among some fields, at most `most` + 1: allows a check before the
/// library reads them all.
int countFirstSet(std::string_view fields, int most) noexcept;

/// The structure without its content.
std::string withoutContent(const Pkcs7Frame& frame);

/// The octets of the frame's content: in place, or joined in `joined` when they are split. Nullopt when they
/// are malformed or memory ran out.
std::optional<std::string_view> contentOctets(const Pkcs7Frame& frame, DataBuffer& joined);

/// The gaps that the caller fills in an otherwise complete encoding.
struct Pkcs7Room {
  unsigned char* content = nullptr;
  unsigned char* mac = nullptr;
};
/// Replaces `der` with the encoding of a frame without content (and, with macSize, an empty mac as its last
/// element), leaving room for both. Nullopt when memory ran out.
std::optional<Pkcs7Room> encodeWithRoom(const Pkcs7Frame& frame, std::size_t contentSize, std::size_t macSize,
                                        DataBuffer& der);

/// Logs why nothing was built. Returns false.
bool failBuild(LogBase& log, std::string_view what);
/// The same, with the error of the cryptographic library. Returns false.
bool failBuildWithCryptoError(LogBase& log, std::string_view what);

struct NativeCms;
/// The library's object of a frame without its content, owned by the caller; null when it is malformed.
NativeCms* parseWithoutContent(const Pkcs7Frame& frame);

// Each of these subtracts its cost from the budget.

/// SignedData over these bytes: fills the layer's signers and certificates. False when it is not SignedData.
bool verifySignedData(const Pkcs7Frame& frame, std::string_view content, SystemCerts& certs,
                      SecureLayer& layer, LoadBudget& budget);
/// EnvelopedData and AuthEnvelopedData. `content` is replaced only when the result is true.
bool decryptEnvelope(const Pkcs7Frame& frame, SystemCerts& certs, DataBuffer& content, SecureLayer& layer,
                     LoadBudget& budget);
/// CompressedData (RFC 3274).
bool decompressContent(const Pkcs7Frame& frame, DataBuffer& content, SecureLayer& layer, LoadBudget& budget);

/// The number of an algorithm in the cryptographic library; 0 when it is null or unknown.
int nidOf(const X509_algor_st* algorithm);

}  // namespace mailtree
