// email/creation/parts.cpp - common code for new attachments and related items.
#include "mailtree/email/creation/internal.h"
#include "mailtree/mime/header/ContentTypeTable.h"

namespace mailtree {
namespace {

/// Fields of a new message that a part does not need.
constexpr const char* kMessageFields[] = {"Date", "X-Mailer", "X-Priority", "MIME-Version", "Message-ID"};

/// An empty type is handled here, because setting it would keep the present one.
void setType(Email2& part, const StringBuffer& type, const StringBuffer& name, LogBase& log) {
  if (type.isEmpty()) {
    part.removeHeaderField("Content-Type");
    part.m_contentType.m_name.setString(name);
    return;
  }
  part.setContentTypeUtf8(type.getString(), name.getString(), nullptr, nullptr, 0, nullptr, nullptr, nullptr,
                          log);
}

}  // namespace

EmailPtr createPart(_svEmailCommon& common) {
  EmailPtr part(Email2::createNewObject(common));
  if (!part) return part;
  for (const char* field : kMessageFields) part->removeHeaderField(field);
  return part;
}

StringBuffer workingName(std::string_view path) {
  StringBuffer name(path);
  if (name.containsChar('/')) name.replaceCharUtf8('\\', '/');
  return name;
}

StringBuffer shortName(std::string_view workingName) {
  const std::size_t slash = workingName.rfind('/');
  const std::size_t separator = slash != std::string_view::npos ? slash : workingName.rfind('\\');
  return oneLine(separator == std::string_view::npos ? workingName : workingName.substr(separator + 1));
}

std::string_view typeByName(std::string_view name) noexcept {
  const std::size_t dot = name.rfind('.');
  return dot == std::string_view::npos ? kUnknownType : contentTypeOfExtension(name.substr(dot + 1));
}

void setTypeAndEncoding(Email2& part, std::string_view type, std::string_view name, LogBase& log) {
  setType(part, copyOf(trim(type)), copyOf(name), log);
  const bool isText = part.m_contentType.m_type.beginsWithIgnoreCase("text");
  setTransferEncoding(part, isText ? "quoted-printable" : "base64", log);
}

}  // namespace mailtree
