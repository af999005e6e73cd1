// store/maildir.h - names of messages in a Maildir. Private.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace mailtree {

/// The letters after ":2,", which programs on some file systems write as ";2," or "!2,".
std::string_view maildirFlags(std::string_view name) noexcept;

/// A name without its flags, which stays the same.
std::string_view maildirKey(std::string_view name) noexcept;

/// "Archive/2026" of a folder ".Archive.2026" (Maildir++).
std::string maildirFolderName(std::string_view folder);

/// Where the message of a path is now, after another program changed its flags or moved it from new/ to cur/.
std::optional<std::string> findRenamed(const std::string& path);

}  // namespace mailtree
