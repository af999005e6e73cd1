// email/loading/layer_places.h - what layers cover, numbered as the finished tree has it.
#pragma once

#include <span>

#include "mailtree/crypto/UnwrapInfo.h"
#include "mailtree/email/Email2.h"

namespace mailtree {

/// Says of each layer which part of the tree it covers, and which leaves stand beside it. Loading may have moved,
/// added and removed parts since the layers were met, or left them closed: only where a part begins in the text tells
/// which one it was.
/// @param first  the first layer that was met in this message; what `fields` say of those before it stays.
void placeLayers(const Email2& root, std::span<SecureLayer> layers, std::span<InnerField> fields,
                 std::size_t first = 0);

}  // namespace mailtree
