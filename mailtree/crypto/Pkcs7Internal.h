// crypto/Pkcs7Internal.h - the outer shape of a CMS structure (RFC 5652), apart from its content.
//
// The cryptographic library is given the structure without its content, and the content where it lies: megabytes
// are then neither copied into the library's objects nor out of them, and whether the encoding came in pieces is
// decided in one place.
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

/// Certificates tried for one signer: a hostile message may name the same one a million times.
inline constexpr int kMaxSignerCandidates = 8;
/// Ways to an anchor looked for in one layer.
inline constexpr int kMaxChainChecks = 8;
inline constexpr int kMaxRecipients = 10'000;
/// Certificates read of one layer, bytes of one and of all of them. Those of people have two thousand bytes.
inline constexpr int kMaxLayerCertificates = 1000;
inline constexpr std::size_t kMaxCertificateBytes = std::size_t{64} << 10;
inline constexpr std::size_t kMaxLayerCertificateBytes = std::size_t{512} << 10;

/// Object identifier of a content that is only bytes.
inline constexpr std::string_view kDataType = "\x2A\x86\x48\x86\xF7\x0D\x01\x07\x01";

/// A ContentInfo taken apart; all views are borrowed.
struct Pkcs7Frame {
  LayerKind kind = LayerKind::unknown;
  std::string_view type;              ///< The outer content type, a whole element.
  std::string_view before;            ///< Elements in front of the one that describes the content.
  std::string_view describe;          ///< What is in that one, the content left out.
  std::string_view after;             ///< Elements behind it.
  std::string_view contentType;       ///< Octets of the inner object identifier.
  std::optional<DerElement> content;  ///< The octet string; nothing when the content is elsewhere.
  std::string_view mac;               ///< authEnveloped: the tag.
  bool hasAuthenticatedAttributes = false;
};

/// Nothing when the bytes are no CMS structure. Of a known kind with something missing: unknown.
std::optional<Pkcs7Frame> readPkcs7Frame(std::string_view ber) noexcept;

/// Elements of the first set among some fields, up to one more than `most`: to be known before the library is
/// made to read them all.
int countOfFirstSet(std::string_view fields, int most) noexcept;

/// The structure with its content left out.
std::string withoutContent(const Pkcs7Frame& frame);

/// The octets of the frame's content: where they lie, or put together in `joined` when they came in pieces.
/// Nothing when they are malformed or memory ran out.
std::optional<std::string_view> contentOctets(const Pkcs7Frame& frame, DataBuffer& joined);

/// Where the caller is to write in an encoding whose other bytes are all there.
struct Pkcs7Room {
  unsigned char* content = nullptr;
  unsigned char* mac = nullptr;
};
/// Replaces `der` by the encoding of a frame that has no content (and, with macSize, an empty mac as its last
/// element) with room for both. Nothing when memory ran out.
std::optional<Pkcs7Room> encodeWithRoom(const Pkcs7Frame& frame, std::size_t contentSize, std::size_t macSize,
                                        DataBuffer& der);

/// Logs why nothing was built. False.
bool buildRefused(LogBase& log, std::string_view what);
/// The same, with what the cryptographic library has to say about it. False.
bool buildFailed(LogBase& log, std::string_view what);

struct NativeCms;
/// The library's own object of a frame without its content, owned by the caller; null when it is malformed.
NativeCms* parseWithoutContent(const Pkcs7Frame& frame);

// What each of these costs is taken off the budget.

/// SignedData over these bytes: fills the layer's signers and certificates. False when it is no SignedData.
bool verifySignedData(const Pkcs7Frame& frame, std::string_view content, SystemCerts& certs,
                      SecureLayer& layer, LoadBudget& budget);
/// EnvelopedData and AuthEnvelopedData. `content` is replaced when the result is true.
bool decryptEnvelope(const Pkcs7Frame& frame, SystemCerts& certs, DataBuffer& content, SecureLayer& layer,
                     LoadBudget& budget);
/// CompressedData (RFC 3274).
bool unpackCompressed(const Pkcs7Frame& frame, DataBuffer& content, SecureLayer& layer, LoadBudget& budget);

/// The number by which the cryptographic library knows an algorithm; 0 when it is null or unknown.
int nidOf(const X509_algor_st* algorithm);

}  // namespace mailtree
