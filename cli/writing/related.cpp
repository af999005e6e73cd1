#include "cli/writing/related.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <unordered_set>

#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/files.h"
#include "mailtree/message/files.h"
#include "mailtree/message/media_types.h"
#include "mailtree/mime/LineLengths.h"
#include "mailtree/mime/html/CidReferences.h"

namespace mailtree::cli {
namespace {

constexpr const char* kUnknownType = "application/octet-stream";

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

bool isContentId(std::string_view id) {
  return !id.empty() && std::ranges::all_of(id, [](char c) {
    return c > ' ' && c < 0x7F && !contains("<>()[]\\\",;:", std::string_view(&c, 1));
  });
}

Exit readInlineFile(const char* option, const std::string& path, InlineFile& file) {
  if (path == "-") return usageError(option, "standard input has no name for the HTML to refer to");
  if (!readFile(path, file.bytes)) return Exit::unreadable;
  file.name = std::filesystem::path(path).filename().string();
  file.type = typeByName(file.name);
  if (file.type.empty()) file.type = kUnknownType;
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

EmailPtr createItem(_svEmailCommon& common, const InlineFile& file, LogBase& log) {
  const char* const name = file.name.c_str();
  EmailPtr item = file.byLocation
                      ? EmailPtr(Email2::createRelatedFromDataNoCid(common, name, file.bytes, log))
                      : newInlineItem(common, file.name, file.type, file.bytes, log);
  if (!item) return item;
  // By location, the library sets a type only for extensions it knows.
  if (item->m_contentType.m_type.isEmpty())
    item->setContentTypeUtf8(file.type.c_str(), name, nullptr, nullptr, 0, nullptr, nullptr, nullptr, log);
  if (!file.contentId.empty()) item->setContentId(("<" + file.contentId + ">").c_str(), log);
  if (file.byLocation) keepBytesOf(*item, log);
  return item;
}

/// Updates the references in the HTML to the items, and warns of items that the HTML does not reference.
bool updateReferences(Email2& html, const std::vector<InlineFile>& files,
                      const std::vector<EmailPtr>& items) {
  std::vector<CidTarget> targets;
  for (std::size_t i = 0; i < files.size(); ++i)
    if (!files[i].byLocation)
      targets.push_back({files[i].name, std::string(withoutBrackets(items[i]->m_contentId.view()))});
  std::string body;
  if (redirectCidReferences(html.m_body.view(), targets, body) > 0) {
    const bool wasLong = html.m_body.hasLineLonger(kMaxLine7bit);
    html.m_body.clear();
    if (!html.m_body.append(std::string_view(body))) return false;
    LogNull quiet;
    const bool isEncoded = html.m_transferEncoding.equalsIgnoreCase("base64") ||
                           html.m_transferEncoding.equalsIgnoreCase("quoted-printable");
    if (!isEncoded && !wasLong && html.m_body.hasLineLonger(kMaxLine7bit))
      html.setContentEncodingNonRecursive("quoted-printable", quiet);
  }
  for (const CidTarget& target : targets)
    if (!contains(body, cidUrlPart(target.contentId)))
      reportError("warning: the HTML does not refer to cid:" + target.name);
  return true;
}

}  // namespace

void addInlineOptions(CLI::App& verb, InlineOptions& options) {
  addRepeated(
      verb, "--inline", options.files,
      "File that the HTML refers to as cid:NAME; FILE=CID, such as logo.png=logo@x, sets its Content-ID")
      ->type_name(kFile);
  addRepeated(verb, "--inline-location", options.locations,
              "File that the HTML refers to as NAME (sets Content-Location)")
      ->type_name(kFile);
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

bool putInlineFiles(Email2& email, const std::vector<InlineFile>& files, LogBase& log) {
  if (files.empty()) return true;
  Email2* const html = email.getHtmlAlternative();
  std::vector<EmailPtr> items;
  for (const InlineFile& file : files) {
    items.push_back(createItem(*email.m_common, file, log));
    if (!items.back()) return false;
  }
  if (!html || !updateReferences(*html, files, items)) return false;
  Email2* const enclosure = relatedAround(email, *html, log);
  if (!enclosure) return false;
  for (EmailPtr& item : items) enclosure->addRelatedContent(item.release(), log);
  return true;
}

}  // namespace mailtree::cli
