#include "mailtree/message/media_types.h"

#include "mailtree/mime/header/Token.h"

namespace mailtree {

bool isMediaType(std::string_view text) {
  const std::size_t slash = text.find('/');
  return slash != std::string_view::npos && isToken(text.substr(0, slash)) && isToken(text.substr(slash + 1));
}

std::string typeByName(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos) return {};
  StringBuffer extension(std::string_view(name).substr(dot + 1)), type;
  extension.toLowerCase();
  Email2::getTypeFromExtension(extension.getString(), type);
  return type.extractString();
}

}  // namespace mailtree
