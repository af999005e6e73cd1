// mime/Limits.h - limits of parsing. Nothing is lost beyond a limit: the rest stays as bytes of the enclosing
// part, and the limit is reported. The limits on the total cost of a message are in base/LoadBudget.h, which
// other folders also use.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "mailtree/base/FlagSet.h"
#include "mailtree/base/LoadBudget.h"

namespace mailtree {

/// Depth of nested parts. Real mail stays under 10. Bounds the recursion over a tree.
inline constexpr int kMaxDepth = 100;
/// Header of one entity: bytes and fields.
inline constexpr std::size_t kMaxHeaderBytes = 4u << 20;
inline constexpr int kMaxHeaderFields = 10'000;
/// Parameters of one header value.
inline constexpr int kMaxParameters = 1'000;
/// Nested groups and comments in an address list or another structured value.
inline constexpr int kMaxCommentDepth = 3;

/// A limit exceeded while loading; values are bits.
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

/// The limits exceeded.
using LimitSet = FlagSet<Limit>;

/// The reported text of a limit, with its number inserted.
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

/// The text reported for each limit.
inline constexpr LimitText kLimitTexts[] = {
    {Limit::depth, "nesting deeper than ", kMaxDepth, " levels"},
    {Limit::parts, "more than ", kMaxParts, " parts"},
    {Limit::headerBytes, "a header of more than ", kMaxHeaderBytes >> 20, " MiB"},
    {Limit::headerFields, "a header of more than ", kMaxHeaderFields, " fields"},
    {Limit::parameters, "more than ", kMaxParameters, " parameters"},
    {Limit::layers, "more than ", kMaxUnwrappedLayers, " security layers"},
    {Limit::layerBytes, "security layers too large for the size of the message"},
    {Limit::keyTrials, "more than ", kMaxKeyTrials, " private key trials"},
};

}  // namespace mailtree
