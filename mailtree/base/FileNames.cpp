#include "mailtree/base/FileNames.h"

#include <algorithm>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/ShownText.h"
#include "mailtree/base/Utf.h"

namespace mailtree {
namespace {

/// Most systems allow 255 bytes, some fewer, and a number may be appended.
constexpr std::size_t kMaxNameBytes = 200;
/// A longer suffix is not taken for an extension.
constexpr std::size_t kMaxExtensionBytes = 20;

constexpr std::string_view kForbiddenElsewhere = "<>:\"|?*";

/// Device names on Windows, in every folder and with any extension.
constexpr std::string_view kDevices[] = {"con", "prn", "aux", "nul", "conin$", "conout$", "clock$"};
/// Device names when a digit follows, superscript or not.
constexpr std::string_view kNumberedDevices[] = {"com", "lpt"};
constexpr std::string_view kSuperscripts[] = {"\u00B9", "\u00B2", "\u00B3"};

bool isDeviceNumber(std::string_view text) {
  return (text.size() == 1 && isDigitAscii(text.front())) || std::ranges::count(kSuperscripts, text) > 0;
}

bool isDevice(std::string_view name) {
  const std::string_view stem = trimRight(name.substr(0, name.find('.')));
  const auto isStem = [stem](std::string_view device) { return equalsNoCase(stem, device); };
  const auto isNumbered = [stem](std::string_view device) {
    return beginsWithNoCase(stem, device) && isDeviceNumber(stem.substr(device.size()));
  };
  return std::ranges::any_of(kDevices, isStem) || std::ranges::any_of(kNumberedDevices, isNumbered);
}

bool isDotOrBlank(char c) { return c == '.' || isSpaceAscii(c); }

std::string_view trimDotsAndBlanks(std::string_view name) {
  while (!name.empty() && isDotOrBlank(name.front())) name.remove_prefix(1);
  while (!name.empty() && isDotOrBlank(name.back())) name.remove_suffix(1);
  return name;
}

std::string onlyAllowedCharacters(std::string_view name) {
  std::string out;
  out.reserve(name.size());
  for (std::size_t at = 0; at < name.size();) {
    const std::size_t begin = at;
    const char32_t c = nextCodePoint(name, at);
    const std::string_view character = name.substr(begin, at - begin);
    const bool isForbidden = character.size() == 1 && contains(kForbiddenElsewhere, character);
    out += isHarmless(c) && !isForbidden ? character : "_";
  }
  return out;
}

std::string shortened(const std::string& name) {
  if (name.size() <= kMaxNameBytes) return name;
  const auto [stem, extension] = splitFileName(name);
  const std::size_t room = kMaxNameBytes - extension.size();
  return std::string(trimDotsAndBlanks(stem.substr(0, utf8PrefixLength(stem, room)))).append(extension);
}

}  // namespace

FileNameParts splitFileName(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || name.size() - dot > kMaxExtensionBytes) return {name, {}};
  return {name.substr(0, dot), name.substr(dot)};
}

std::string numberedFileName(std::string_view name, unsigned number) {
  if (number < 2) return std::string(name);
  const auto [stem, extension] = splitFileName(name);
  return std::string(stem).append(" (").append(std::to_string(number)).append(")").append(extension);
}

std::string safeFileName(std::string_view fromMail, std::string_view otherwise) {
  std::string name = onlyAllowedCharacters(trimDotsAndBlanks(baseName(fromMail)));
  if (name.empty()) return std::string(otherwise);
  if (name.front() == '-') name.front() = '_';
  if (isDevice(name)) name.insert(0, 1, '_');
  return shortened(name);
}

}  // namespace mailtree
