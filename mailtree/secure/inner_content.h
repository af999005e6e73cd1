// secure/inner_content.h - replaces a layer with its content.
#pragma once

#include <string_view>
#include <vector>

#include "mailtree/crypto/UnwrapInfo.h"
#include "mailtree/mime/MimeMessage2.h"
#include "mailtree/secure/part_path.h"

namespace mailtree {

/// Whether the content of a layer is a MIME entity. A text may begin with a word and a colon: only a field
/// that describes content, or names a sender, makes it a header, and only when the first line is a field too.
/// No signed or encrypted text may disappear into a header.
bool isMimeEntity(std::string_view bytes);

/// Parses the content of an opened layer. Content that is not a MIME entity, which some programs encrypt,
/// becomes a text/plain with every byte of it in the body.
/// @param parts  parts the message may still have; the parts used are subtracted from it.
void loadLayerContent(std::string_view bytes, int level, Origin origin, MimeMessage2& content, int& parts,
                      LogBase& log);

/// Replaces the layer with its content: the Content- fields come from inside, all others stay as they are
/// outside, which is displayed. `differing` receives those with a different value inside.
void replaceLayer(MimeMessage2& layer, MimeMessage2& content, const PartPath& path,
                  std::vector<InnerField>& differing);

}  // namespace mailtree
