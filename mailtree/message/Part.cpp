// message/Part.cpp - the facts of one part.
#include "mailtree/message/Part.h"

#include <string>

#include "mailtree/base/FileNames.h"
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

}  // namespace

std::string Part::id() const {
  std::string id;
  const Outline& outline = m_state->outline();
  for (const PartRow* row = &outline.row(m_row); row->parent >= 0; row = &outline.row(row->parent))
    id.insert(0, "." + std::to_string(row->index + 1));
  return id.insert(0, "1");
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
std::string Part::charset() const { return MessageState::rowOf(*this).charset; }
std::string Part::encoding() const { return lowerCase(email2().m_transferEncoding); }

bool Part::isText() const { return MessageState::rowOf(*this).isText(); }
bool Part::isMultipart() const { return !MessageState::rowOf(*this).isLeaf(); }
bool Part::isMessage() const { return MessageState::rowOf(*this).isMessage(); }

std::string_view Part::bytes() const { return isMultipart() ? std::string_view() : email2().m_body.view(); }

std::string Part::sha256() const { return sha256Hex(bytes()); }

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
