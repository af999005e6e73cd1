#include "cli/writing/files.h"

#include <CLI/CLI.hpp>
#include <filesystem>

#include "mailtree/message/tree_changes.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/files.h"
#include "cli/writing/media_types.h"
#include "mailtree/base/Utf.h"

namespace mailtree::cli {
namespace {

constexpr std::string_view kMessageType = "message/rfc822";

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

Exit readAttachment(const std::string& argument, AttachedFile& file) {
  const FileArgument given = fileOf(argument);
  if (beginsWithNoCase(given.type, "multipart/"))
    return usageError("--attach", "'" + argument + "': a file cannot have a multipart type");
  if (!readFile(given.path, file.bytes)) return Exit::unreadable;
  if (given.path != "-") file.name = std::filesystem::path(given.path).filename().string();
  file.type = given.type.empty() ? typeByName(file.name) : given.type;
  // Files are sent in base64, which is not allowed for messages (RFC 2046, 5.2.1).
  file.isMessage = equalsNoCase(file.type, kMessageType);
  return Exit::fine;
}

/// The library can make a multipart/mixed too, but would leave the old Content-Disposition on it.
void ensureMixed(Email2& email, LogBase& log) {
  labelUntypedBody(email, log);
  if (!moveIntoMixed(email, log) && email.getNumParts() == 0 && !email.isMultipart())
    enclose(email, "multipart/mixed", log);
}

/// The code page to label a text file with; 0 when it is unknown.
int codePageOf(const DataBuffer& bytes) {
  return !bytes.is7bit(0) && isValidUtf8(bytes.view()) ? kCpUtf8 : 0;
}

bool attachMessage(Email2& email, AttachedFile& file, LogBase& log) {
  DataBuffer mime;
  if (file.bytes.containsBareCRLF()) {
    StringBuffer lines(file.bytes.view());
    if (!lines.toCRLF() || !mime.append(lines)) return false;
  } else {
    mime.takeData(file.bytes);
  }
  const bool is7bit = mime.is7bit(0);
  if (!email.attachMessage(mime, log)) return false;
  Email2& part = *email.getPart(email.getNumParts() - 1);
  if (!is7bit) part.setContentEncodingNonRecursive("8bit", log);
  if (!file.name.empty()) part.setContentDispositionUtf8("attachment", file.name.c_str(), log);
  return true;
}

}  // namespace

int AttachOptions::countOfStandardInput() const {
  int count = 0;
  for (const std::string& argument : files) count += fileOf(argument).path == "-";
  for (const std::string& path : messages) count += path == "-";
  return count;
}

void addAttachOptions(CLI::App& verb, AttachOptions& options) {
  addRepeated(
      verb, "--attach", options.files,
      "File to attach; FILE:TYPE (list:text/csv), unless that is a file's name, gives its media type");
  addRepeated(verb, "--attach-message", options.messages, "Message file to attach as message/rfc822");
}

Exit readAttachedFiles(const AttachOptions& options, std::vector<AttachedFile>& files) {
  for (const std::string& argument : options.files) {
    const Exit result = readAttachment(argument, files.emplace_back());
    if (result != Exit::fine) return result;
  }
  for (const std::string& path : options.messages) {
    AttachedFile& file = files.emplace_back();
    file.isMessage = true;
    if (!readFile(path, file.bytes)) return Exit::unreadable;
  }
  return Exit::fine;
}

bool attach(Email2& email, AttachedFile& file, LogBase& log) {
  ensureMixed(email, log);
  if (file.isMessage) return attachMessage(email, file, log);
  StringBuffer unused;
  return email.addDataAttachmentUtf8(file.name.c_str(), file.type.empty() ? nullptr : file.type.c_str(),
                                     codePageOf(file.bytes), file.bytes, unused, log);
}

}  // namespace mailtree::cli
