// mime/html/EnrichedText.h - text/enriched (RFC 1896) and its forerunner text/richtext (RFC 1341) as plain
// text.
#pragma once

#include <string>
#include <string_view>

namespace mailtree {

enum class EnrichedForm { enriched, richtext };

/// Returns the text without its formatting commands, parameters and comments, its lines ending in LF. Single
/// line breaks join lines in both, as their authors meant.
std::string textOfEnriched(std::string_view text, EnrichedForm form);

}  // namespace mailtree
