// message/Part.cpp - the facts of one part.
#include "mailtree/message/Part.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <system_error>

#include "mailtree/base/FileNames.h"
#include "mailtree/base/Output.h"
#include "mailtree/crypto/Digest.h"
#include "mailtree/message/internal.h"
#include "mailtree/mime/header/ContentTypeTable.h"

namespace mailtree {
namespace {

std::string withoutBrackets(std::string_view id) {
  id = trim(id);
  if (id.starts_with('<')) id.remove_prefix(1);
  if (id.ends_with('>')) id.remove_suffix(1);
  return std::string(id);
}

/// A symbolic link that leads nowhere counts too.
bool isTaken(const std::filesystem::path& path) {
  std::error_code ignored;
  return std::filesystem::exists(std::filesystem::symlink_status(path, ignored));
}

bool writeNew(const std::string& path, std::string_view bytes, Readers readers, LogBase& log) {
  FileOutput sink;
  ProgressContext progress(nullptr);
  return sink.open(path.c_str(), log, Existing::refuse, readers) && sink.write(bytes, progress, log) &&
         sink.commit(log);
}

}  // namespace

std::string Part::id() const {
  std::string id;  // backwards, as the rows lead to the root
  const Outline& outline = m_state->outline();
  for (const PartRow* row = &outline.row(m_row); row->parent >= 0; row = &outline.row(row->parent)) {
    const std::string number = std::to_string(row->index + 1);
    id.append(number.rbegin(), number.rend()).append(".");
  }
  id += '1';
  std::ranges::reverse(id);
  return id;
}

std::string Part::type() const { return lowerCase(MessageState::rowOf(*this).contentType); }

std::string Part::name() const { return std::string(baseName(MessageState::rowOf(*this).filename)); }

std::string Part::fileName() const {
  const PartRow& row = MessageState::rowOf(*this);
  const std::string_view extension = extensionOfContentType(row.contentType);
  return safeFileName(givenFileName(row), "attachment." + std::string(extension.empty() ? "dat" : extension));
}

std::string Part::disposition() const { return lowerCase(email2().m_disposition); }
std::string Part::contentId() const { return withoutBrackets(email2().m_contentId); }
std::string Part::location() const { return header("Content-Location").value_or(std::string()); }
std::string Part::charset() const { return charsetOf(MessageState::rowOf(*this)); }
std::string Part::encoding() const { return lowerCase(email2().m_transferEncoding); }

bool Part::isText() const { return MessageState::rowOf(*this).isText(); }
bool Part::isMultipart() const { return !MessageState::rowOf(*this).isLeaf(); }
bool Part::isMessage() const { return MessageState::rowOf(*this).isMessage(); }

std::string_view Part::bytes() const { return isMultipart() ? std::string_view() : email2().m_body.view(); }

std::string Part::sha256() const { return sha256Hex(bytes()); }

Result<std::string> Part::saveIn(const std::string& folder) const {
  constexpr unsigned kMostFiles = 100'000;  // of one name
  const std::string name = fileName();
  const Readers readers = m_state->holdsSecret() ? Readers::owner : Readers::usual;
  LogMemory log;
  for (unsigned number = 1; number <= kMostFiles; ++number) {
    const std::filesystem::path path = std::filesystem::path(folder) / numberedFileName(name, number);
    if (isTaken(path)) continue;
    if (writeNew(path.string(), bytes(), readers, log)) return path.string();
    // Somebody else may have been faster.
    if (!isTaken(path))
      return Error{ErrorCode::unwritable, lastError(log, "cannot be written"), path.string()};
  }
  return Error{ErrorCode::unwritable, "there are too many files of this name", folder};
}

std::vector<Header> Part::headers() const { return headersOf(email2().m_header); }

std::optional<std::string> Part::header(std::string_view name) const {
  return headerOf(email2().m_header, name);
}

std::vector<Part> Part::parts() const {
  std::vector<Part> parts;
  const Outline& outline = m_state->outline();
  for (const int row : outline.childrenOf(outline.row(m_row))) parts.push_back(Part(*m_state, row));
  return parts;
}

const Email2& Part::email2() const { return *MessageState::rowOf(*this).node; }

}  // namespace mailtree
