#include "mailtree/crypto/Hash.h"

#include <algorithm>
#include <iterator>

#include "mailtree/base/Ascii.h"

namespace mailtree {
namespace {

struct HashRow {
  std::string_view name;
  HashId id;
};
constexpr HashRow kHashes[] = {
    {"sha1", HashId::sha1},     {"sha256", HashId::sha256}, {"sha384", HashId::sha384},
    {"sha512", HashId::sha512}, {"md5", HashId::md5},
};

constexpr bool isSeparator(char c) noexcept { return c == '-' || isSpaceAscii(c); }

/// Whether a name, ignoring case, hyphens and blanks, is this one.
bool isNamed(std::string_view written, std::string_view name) noexcept {
  for (const char c : written) {
    if (isSeparator(c)) continue;
    if (name.empty() || toLowerAscii(c) != name.front()) return false;
    name.remove_prefix(1);
  }
  return name.empty();
}

}  // namespace

int _svHash::hashId(const char* name) noexcept {
  const std::string_view written = viewOf(name);
  if (isNamed(written, "")) return static_cast<int>(HashId::sha1);
  const auto* const row =
      std::ranges::find_if(kHashes, [&](const HashRow& each) { return isNamed(written, each.name); });
  return static_cast<int>(row == std::end(kHashes) ? HashId::unknown : row->id);
}

std::string_view _svHash::nameOf(int hashId) noexcept {
  const auto* const row =
      std::ranges::find_if(kHashes, [&](const HashRow& each) { return static_cast<int>(each.id) == hashId; });
  return row == std::end(kHashes) ? std::string_view() : row->name;
}

}  // namespace mailtree
