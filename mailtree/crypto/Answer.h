// crypto/Answer.h - kinds of layers, and answers to questions about them.
#pragma once

#include <cstdint>
#include <string_view>

#include "mailtree/base/Export.h"

namespace mailtree {

enum class LayerKind {
  detachedSignature,
  opaqueSignature,
  enveloped,
  authEnveloped,
  compressed,
  certificatesOnly,
  unknown
};

/// "detached-signature", "opaque-signature", "enveloped", "auth-enveloped", "compressed",
/// "certificates-only", "unknown".
MAILTREE_API std::string_view nameOf(LayerKind kind) noexcept;

/// The answer to one question about a signer. "Not checked" is neither good nor a sign of tampering;
/// `problem` gives the reason. Not a bool, which would turn it into a no.
enum class Answer : std::uint8_t { notChecked, no, yes };

constexpr Answer answerOf(bool value) noexcept { return value ? Answer::yes : Answer::no; }

}  // namespace mailtree
