// base/LoadBudget.h - limits the total cost of one message, including all its parts and layers.
//
// A few hundred bytes can contain nested layers of compressed content, each with as many parts as a message
// may have, attached a thousand times. So a message, its layers and the messages attached to it share one
// budget. The figures keep any input under 1 MB within half a second and 256 MB. Cost that grows with the
// bytes received needs no budget: attachments in base64 may have any size.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace mailtree {

/// Parts of one message, leaves and multiparts; uuencoded blocks count too.
inline constexpr int kMaxParts = 50'000;
/// Security layers unwrapped in one message.
inline constexpr int kMaxUnwrappedLayers = 10;
/// Input and output bytes of the layers of a message: at least this many, and more for each
/// byte received. Text compresses to a tenth of its size, and three layers around a large
/// attachment take its bytes three times.
inline constexpr std::size_t kMinLayerBytes = std::size_t{16} << 20;
inline constexpr std::size_t kLayerBytesPerByte = 16;
/// Private keys tried for one message. One trial per layer is usual; each takes milliseconds.
inline constexpr int kMaxKeyTrials = 16;
/// Signers of one message.
inline constexpr int kMaxSigners = 64;
/// Cost of verifying signatures, in operations on single bits: some 50 ms of work, or sixteen signers with
/// P-521. A hostile message uses the largest keys, and lists each of them for every signer.
inline constexpr std::uint64_t kMaxKeyWork = 128'000'000'000;

struct LoadBudget {
  int parts = kMaxParts;
  int layers = kMaxUnwrappedLayers;
  std::size_t layerBytes = kMinLayerBytes;
  int keyTrials = kMaxKeyTrials;
  int signers = kMaxSigners;
  std::uint64_t keyWork = kMaxKeyWork;
  bool outOfBytes = false;   ///< The last layer was not opened because it contains too much.
  bool outOfTrials = false;  ///< The last layer was not opened because it needs too many keys.

  static LoadBudget ofMessage(std::size_t size) noexcept {
    LoadBudget budget;
    budget.layerBytes = std::max(kMinLayerBytes, size * kLayerBytesPerByte);
    return budget;
  }

  /// Continues with a message attached to the first one. It gets what is left, but at least what an ordinary
  /// message of its size needs: a digest may hold thousands, and a program may open the same one repeatedly.
  void topUpFor(std::size_t size) noexcept {
    constexpr std::size_t kBytesPerPart = 1'000;
    constexpr std::size_t kBytesPerLayer = 1'500;
    constexpr std::uint64_t kWorkPerByte = 1'000'000;
    const auto shareOf = [size](std::size_t bytesEach, int most) {
      return static_cast<int>(std::min(size / bytesEach, static_cast<std::size_t>(most)));
    };
    const int minLayers = shareOf(kBytesPerLayer, kMaxUnwrappedLayers);
    parts = std::max(parts, shareOf(kBytesPerPart, kMaxParts));
    layers = std::max({layers, minLayers, 1});
    layerBytes = std::max(layerBytes, size * kLayerBytesPerByte);
    keyTrials = std::max(keyTrials, minLayers);
    signers = std::max({signers, minLayers, 1});
    keyWork = std::max(keyWork, std::min(size * kWorkPerByte, kMaxKeyWork));
    outOfBytes = outOfTrials = false;
  }

  /// Spends bytes on a layer; false, with outOfBytes set, when too few are left.
  bool takeLayerBytes(std::size_t size) noexcept {
    outOfBytes = size > layerBytes;
    if (!outOfBytes) layerBytes -= size;
    return !outOfBytes;
  }
};

}  // namespace mailtree
