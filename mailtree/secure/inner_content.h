// secure/inner_content.h - what was found inside a layer, put in the place of the layer.
#pragma once

#include <string_view>
#include <vector>

#include "mailtree/crypto/UnwrapInfo.h"
#include "mailtree/mime/MimeMessage2.h"
#include "mailtree/secure/part_path.h"

namespace mailtree {

/// Whether the content of a layer is a MIME entity. A text may begin with a word and a colon: only a field that
/// describes content, or names a sender, makes that a header, and only when the first line is a field too. Nothing that
/// was signed or encrypted may vanish into one.
bool isMimeEntity(std::string_view bytes);

/// Parses the content of an opened layer. One that is no MIME entity, as some programs encrypt, becomes a text/plain
/// with every byte of it in the body.
/// @param parts  how many the message may still have; what is left is given back.
void loadLayerContent(std::string_view bytes, int level, Origin origin, MimeMessage2& content, int& parts,
                      LogBase& log);

/// Puts the content in the place of its layer: the Content- fields come from inside, all others stay as they stand
/// outside, where the message is displayed from. `differing` receives those that say something else inside.
void replaceLayer(MimeMessage2& layer, MimeMessage2& content, const PartPath& path,
                  std::vector<InnerField>& differing);

}  // namespace mailtree
