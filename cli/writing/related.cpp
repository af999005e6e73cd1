#include "cli/writing/related.h"

#include <filesystem>
#include <unordered_set>

#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/files.h"
#include "mailtree/message/files.h"
#include "mailtree/mime/html/CidReferences.h"

namespace mailtree::cli {
namespace {

struct InlineArgument {
  std::string path;
  std::optional<std::string> contentId;
};

/// Splits "FILE=CID" at the last "=", unless the whole argument is a file's name.
InlineArgument argumentOf(const std::string& text) {
  std::error_code ignored;
  const std::size_t equals = text.rfind('=');
  if (equals == std::string::npos || std::filesystem::exists(text, ignored)) return {text, std::nullopt};
  return {text.substr(0, equals), text.substr(equals + 1)};
}

/// Users may write "<logo@x>" for "logo@x".
std::string_view withoutBrackets(std::string_view id) {
  const bool hasBoth = id.size() > 1 && id.front() == '<' && id.back() == '>';
  return hasBoth ? id.substr(1, id.size() - 2) : id;
}

Exit readInlineFile(const char* option, const std::string& path, InlineFile& file) {
  if (path == "-") return usageError(option, "standard input has no name for the HTML to refer to");
  if (!readFile(path, file.bytes)) return Exit::unreadable;
  file.name = std::filesystem::path(path).filename().string();
  return Exit::fine;
}

Exit readWithContentId(const std::string& text, InlineFile& file) {
  const InlineArgument argument = argumentOf(text);
  if (argument.contentId) file.contentId = withoutBrackets(*argument.contentId);
  if (argument.contentId && !isContentId(file.contentId))
    return usageError("--inline '" + text + "'",
                      "expected a Content-ID such as logo@example.com after the =");
  return readInlineFile("--inline", argument.path, file);
}

/// Files of the same name need Content-IDs to be told apart.
Exit checkDistinct(const std::vector<InlineFile>& files) {
  for (const InlineFile& file : files)
    for (const InlineFile* other = &file + 1; other != files.data() + files.size(); ++other) {
      const bool sameId = !file.contentId.empty() && file.contentId == other->contentId;
      const bool idMissing = file.contentId.empty() || other->contentId.empty();
      if (sameId) return usageError("--inline", "'" + file.contentId + "' is a duplicate Content-ID");
      if (file.name == other->name && file.byLocation == other->byLocation && idMissing)
        return usageError("--inline", "two files are named '" + file.name + "'; give both a Content-ID");
    }
  return Exit::fine;
}

}  // namespace

void addInlineOptions(Verb verb, InlineOptions& options) {
  verb.addRepeated(
          "--inline", options.files,
          "File that the HTML refers to as cid:NAME; FILE=CID, such as logo.png=logo@x, sets its Content-ID")
      .kind(kFile);
  verb.addRepeated("--inline-location", options.locations,
                   "File that the HTML refers to as NAME (sets Content-Location)")
      .kind(kFile);
}

Exit readInlineFiles(const InlineOptions& options, std::vector<InlineFile>& files) {
  for (const std::string& argument : options.files)
    if (const Exit result = readWithContentId(argument, files.emplace_back()); result != Exit::fine)
      return result;
  for (const std::string& path : options.locations) {
    InlineFile& file = files.emplace_back();
    file.byLocation = true;
    if (const Exit result = readInlineFile("--inline-location", path, file); result != Exit::fine)
      return result;
  }
  return checkDistinct(files);
}

Exit checkReferences(const std::optional<std::string>& html, const std::vector<InlineFile>& files) {
  if (!html) return Exit::fine;
  std::unordered_set<std::string> known;
  for (const InlineFile& file : files)
    if (!file.byLocation) known.insert({file.name, file.contentId.empty() ? file.name : file.contentId});
  for (const std::string& reference : cidReferencesIn(*html))
    if (!known.contains(reference))
      return usageError("--html", "the HTML refers to cid:" + reference +
                                      ", but there is no such file; add it with --inline");
  return Exit::fine;
}

Result<void> putInlineFiles(mailtree::Message& message, const std::vector<InlineFile>& files) {
  std::vector<CidTarget> added;
  for (const InlineFile& file : files) {
    const Result<std::string> id = message.addInline(
        file.name, file.bytes.view(),
        {.contentId = file.contentId, .location = file.byLocation ? file.name : std::string()});
    if (!id) return id.error();
    if (!file.byLocation) added.push_back({file.name, *id});
  }
  if (added.empty()) return {};
  const std::string html = message.html();
  for (const CidTarget& target : added)
    if (!contains(html, cidUrlPart(target.contentId)))
      reportError("warning: the HTML does not refer to cid:" + target.name);
  return {};
}

}  // namespace mailtree::cli
