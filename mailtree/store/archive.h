// store/archive.h - compressed mailboxes, and archives of messages. Private.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "mailtree/store/FileReader.h"
#include "mailtree/store/SourceReader.h"

namespace mailtree {

/// Bytes from the beginning of a file that tell what it is.
inline constexpr std::size_t kMagicBytes = 512;

/// Whether the bytes begin a zip, a tar, or something compressed with gzip, bzip2 or zstd.
bool beginsArchive(std::string_view bytes) noexcept;

/// Opens what beginsArchive() recognizes. An error when the library was built without libarchive.
Result<std::unique_ptr<SourceReader>> openArchive(std::shared_ptr<FileReader> file,
                                                  const SourceOptions& options);
Result<std::unique_ptr<SourceReader>> openArchive(std::unique_ptr<ByteStream> stream, std::string path,
                                                  const SourceOptions& options);

}  // namespace mailtree
