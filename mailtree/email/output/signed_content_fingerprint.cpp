// email/output/signed_content_fingerprint.cpp - detects whether signed content has changed.
//
// A digest of everything that output reads is stored with the received bytes and computed again before they
// are written. It detects changes by the caller, not forgery, so it is made for speed: four independent lanes
// of multiplications, 32 bytes per step.

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "mailtree/email/internal.h"

namespace mailtree {
namespace {

class ContentDigest {
 public:
  /// Adds a text with its length, so that adjacent texts cannot be confused.
  void add(std::string_view text) noexcept;
  void add(std::uint64_t number) noexcept { mix(m_lanes[0], number); }
  std::array<std::uint64_t, 2> finish() const noexcept;

 private:
  static constexpr std::size_t kWord = sizeof(std::uint64_t);
  static constexpr std::size_t kLanes = 4;

  static std::uint64_t load(const char* bytes, std::size_t size) noexcept {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, size);
    return word;
  }
  /// A bijection of the lane for every word, so no earlier input is lost.
  static void mix(std::uint64_t& lane, std::uint64_t word) noexcept {
    lane = std::rotl((lane ^ word) * 0xD6E8FEB86659FD93u, 29);
  }
  static std::uint64_t scramble(std::uint64_t word) noexcept {
    word = (word ^ (word >> 31)) * 0x9FB21C651E98DF25u;
    return word ^ (word >> 29);
  }

  std::uint64_t m_lanes[kLanes] = {0x243F6A8885A308D3u, 0x13198A2E03707344u, 0xA4093822299F31D0u,
                                   0x082EFA98EC4E6C89u};
};

void ContentDigest::add(std::string_view text) noexcept {
  add(text.size());
  const char* at = text.data();
  std::size_t left = text.size();
  for (; left >= kLanes * kWord; at += kLanes * kWord, left -= kLanes * kWord)
    for (std::size_t i = 0; i < kLanes; ++i) mix(m_lanes[i], load(at + i * kWord, kWord));
  for (std::size_t i = 0; left > 0; ++i) {
    const std::size_t size = std::min(left, kWord);
    mix(m_lanes[i], load(at, size));
    at += size, left -= size;
  }
}

std::array<std::uint64_t, 2> ContentDigest::finish() const noexcept {
  std::array<std::uint64_t, 2> result = {1, 2};
  for (const std::uint64_t lane : m_lanes)
    for (std::uint64_t& half : result) half = scramble(half + scramble(lane ^ (half << 1)));
  return result;
}

void addHeader(const MimeHeader& header, ContentDigest& digest) noexcept {
  digest.add(static_cast<std::uint64_t>(header.getNumFields()));
  for (int i = 0; i < header.getNumFields(); ++i) {
    digest.add(header.fieldName(i));
    digest.add(header.rawValue(i));
  }
}

void addContentType(const _svContentType& type, ContentDigest& digest) noexcept {
  for (const StringBuffer* text : {&type.m_type, &type.m_name, &type.m_protocol, &type.m_micalg,
                                   &type.m_boundary, &type.m_smimeType, &type.m_subtype})
    digest.add(text->view());
  digest.add(std::uint64_t{type.m_formatFlowed});
  digest.add(type.m_otherParams.params().size());
  for (const _svParamSet::Param& param : type.m_otherParams.params()) {
    digest.add(std::string_view(param.name));
    digest.add(std::string_view(param.value));
  }
}

void addNode(const Email2& node, ContentDigest& digest) noexcept {
  addHeader(node.m_header, digest);
  addContentType(node.m_contentType, digest);
  for (const StringBuffer* text : {&node.m_disposition, &node.m_dispFilename, &node.m_transferEncoding})
    digest.add(text->view());
  digest.add(static_cast<std::uint64_t>(node.m_attachCodePage));
  digest.add(node.m_body.view());
  digest.add(static_cast<std::uint64_t>(node.m_subParts.getSize()));
}

}  // namespace

std::array<std::uint64_t, 2> contentFingerprint(const Email2& node) {
  ContentDigest digest;
  walkTree(node, [&](const Email2& part) {
    addNode(part, digest);
    return Walk::descend;
  });
  return digest.finish();
}

void storeReceivedContent(Email2& node, DataBuffer&& bytes) {
  auto received = std::make_unique<ReceivedContent>();
  received->bytes = std::move(bytes);
  received->fingerprint = contentFingerprint(node);
  node.m_received = std::move(received);
}

void storeReceivedContent(Email2& node, StringBuffer&& text) {
  auto received = std::make_unique<ReceivedContent>();
  received->text = std::move(text);
  received->bytes.borrowData(received->text.getString(), received->text.getSize());
  received->fingerprint = contentFingerprint(node);
  node.m_received = std::move(received);
}

const DataBuffer* unchangedReceivedContent(const Email2& node) {
  if (!node.m_received || contentFingerprint(node) != node.m_received->fingerprint) return nullptr;
  return &node.m_received->bytes;
}

}  // namespace mailtree
