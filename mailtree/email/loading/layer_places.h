// email/loading/layer_places.h - the parts that layers cover, numbered as in the finished tree.
#pragma once

#include <span>

#include "mailtree/crypto/UnwrapInfo.h"
#include "mailtree/email/Email2.h"

namespace mailtree {

/// Records for each layer the part that it covers and the leaves that it does not. Loading may have
/// moved, added or removed parts after the layers were found, so parts are identified by where they begin
/// in the text.
/// @param first  index of the first layer of this message; entries of earlier layers are not changed.
void placeLayers(const Email2& root, std::span<SecureLayer> layers, std::span<InnerField> fields,
                 std::size_t first = 0);

}  // namespace mailtree
