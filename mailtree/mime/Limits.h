// mime/Limits.h - how much of a message is taken apart. Beyond a limit nothing is lost: the rest stays as
// bytes of the part in which it stands, and the limit is reported. What a message may cost in all is in
// base/LoadBudget.h, where the folders beside this one see it too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "mailtree/base/FlagSet.h"
#include "mailtree/base/LoadBudget.h"

namespace mailtree {

/// Depth of nested parts. Real mail stays under 10; recursion over a tree is bounded by this.
inline constexpr int kMaxDepth = 100;
/// Header of one entity: bytes and fields.
inline constexpr std::size_t kMaxHeaderBytes = 4u << 20;
inline constexpr int kMaxHeaderFields = 10'000;
/// Parameters of one header value.
inline constexpr int kMaxParameters = 1'000;
/// Nested groups and comments in an address list or another structured value.
inline constexpr int kMaxCommentDepth = 3;

/// A limit that was met while loading; values are bits.
enum class Limit : std::uint32_t {
  depth = 1,
  parts = 2,
  headerBytes = 4,
  headerFields = 8,
  parameters = 16,
  layers = 32,
  layerBytes = 64,
  keyTrials = 128,
};

/// The limits met.
using LimitSet = FlagSet<Limit>;

/// The words in which a limit is reported: the number goes between them.
struct LimitText {
  Limit limit;
  std::string_view before;
  std::size_t number = 0;
  std::string_view after = {};

  std::string text() const {
    std::string text(before);
    if (number != 0) text += std::to_string(number);
    return text.append(after);
  }
};

inline constexpr LimitText kLimitTexts[] = {
    {Limit::depth, "nesting deeper than ", kMaxDepth, " levels"},
    {Limit::parts, "more than ", kMaxParts, " parts"},
    {Limit::headerBytes, "a header of more than ", kMaxHeaderBytes >> 20, " MiB"},
    {Limit::headerFields, "a header of more than ", kMaxHeaderFields, " fields"},
    {Limit::parameters, "more than ", kMaxParameters, " parameters"},
    {Limit::layers, "more than ", kMaxUnwrappedLayers, " security layers"},
    {Limit::layerBytes, "more in security layers than a message of its size may hold"},
    {Limit::keyTrials, "more than ", kMaxKeyTrials, " tries of private keys"},
};

}  // namespace mailtree
