#include "cli/writing/files.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/files.h"
#include "mailtree/message/files.h"
#include "mailtree/message/media_types.h"

namespace mailtree::cli {
namespace {

constexpr const char* kMessageType = "message/rfc822";
constexpr const char* kUnnamed = "attach.dat";  ///< A file from standard input.

struct FileArgument {
  std::string path;
  std::string type;
};

/// Splits "FILE:TYPE" at the last colon if a media type follows it, unless the whole argument is
/// a file's name.
FileArgument fileOf(const std::string& argument) {
  std::error_code ignored;
  const std::size_t colon = argument.rfind(':');
  const bool isWhole = colon == std::string::npos || !isMediaType(argument.substr(colon + 1)) ||
                       std::filesystem::exists(argument, ignored);
  if (isWhole) return {argument, {}};
  return {argument.substr(0, colon), argument.substr(colon + 1)};
}

}  // namespace

bool AttachedFile::isMessage() const { return equalsNoCase(type, kMessageType); }

int AttachOptions::countOfStandardInput() const {
  int count = 0;
  for (const std::string& argument : files) count += fileOf(argument).path == "-";
  for (const std::string& path : messages) count += path == "-";
  return count;
}

void addAttachOptions(Verb verb, AttachOptions& options) {
  verb.addRepeated(
          "--attach", options.files,
          "File to attach; FILE:TYPE (list:text/csv), unless that is a file's name, gives its media type")
      .kind(kFile);
  verb.addRepeated("--attach-message", options.messages, "Message file to attach as message/rfc822")
      .kind(kFile);
}

std::optional<std::string> problemOfAttachment(const std::string& argument) {
  const FileArgument given = fileOf(argument);
  if (beginsWithNoCase(given.type, "multipart/")) return "a file cannot have a multipart type";
  errno = 0;
  const FilePtr file(std::fopen(given.path.c_str(), "rbe"));
  if (file) std::fgetc(file.get());  // a folder can be opened but not read
  if (file && !std::ferror(file.get())) return std::nullopt;
  return std::generic_category().message(errno);
}

Exit readAttachedFile(const std::string& argument, AttachedFile& file) {
  const FileArgument given = fileOf(argument);
  if (beginsWithNoCase(given.type, "multipart/"))
    return usageError("--attach", "'" + argument + "': a file cannot have a multipart type");
  if (!readFile(given.path, file.bytes)) return Exit::unreadable;
  file.name = given.path == "-" ? kUnnamed : std::filesystem::path(given.path).filename().string();
  file.type = given.type.empty() ? typeByName(file.name) : given.type;
  return Exit::fine;
}

Exit readAttachedFiles(const AttachOptions& options, std::vector<AttachedFile>& files) {
  for (const std::string& argument : options.files) {
    const Exit result = readAttachedFile(argument, files.emplace_back());
    if (result != Exit::fine) return result;
  }
  for (const std::string& path : options.messages) {
    AttachedFile& file = files.emplace_back();
    file.type = kMessageType;
    if (!readFile(path, file.bytes)) return Exit::unreadable;
  }
  return Exit::fine;
}

Result<void> attach(mailtree::Message& message, const AttachedFile& file) {
  return message.attach(file.name, file.bytes.view(), {.type = file.type});
}

bool attach(Email2& email, AttachedFile& file, LogBase& log) {
  return file.isMessage()
             ? attachMessageTo(email, file.name, file.bytes, log)
             : attachFileTo(email, file.name, file.type, codePageToLabel(file.bytes.view()), file.bytes, log);
}

}  // namespace mailtree::cli
