#include "mailtree/secure/inner_content.h"

#include <new>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "mailtree/base/Ascii.h"

namespace mailtree {
namespace {

constexpr std::string_view kContentPrefix = "Content-";
constexpr std::string_view kMimeVersion = "MIME-Version";

bool isLineBreak(char c) noexcept { return c == '\r' || c == '\n'; }

/// A text may begin with a word and a colon. Only a field that describes content makes it a header, and only when its
/// first line is a field too; nothing that was signed or encrypted may vanish into one.
bool isMimeEntity(std::string_view bytes, const MimeMessage2& content) noexcept {
  if (bytes.empty() || isLineBreak(bytes.front())) return true;
  const MimeHeader& header = content.header();
  if (header.fieldName(0).empty()) return false;
  for (int i = 0; i < header.getNumFields(); ++i) {
    const std::string_view name = header.fieldName(i);
    if (beginsWithNoCase(name, kContentPrefix) || equalsNoCase(name, kMimeVersion)) return true;
  }
  return false;
}

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = toLowerAscii(c);
  return lower;
}

/// A value as it is compared: where a line was folded says nothing.
std::string singleSpaced(std::string_view value) {
  std::string out;
  for (const char c : trim(value))
    if (!isSpaceAscii(c) || !out.ends_with(' ')) out += isSpaceAscii(c) ? ' ' : c;
  return out;
}

/// The fields of a header, to be asked many times: a header may have thousands, and so may the one it is compared
/// with.
class OuterFields {
 public:
  explicit OuterFields(const MimeHeader& header) {
    for (int i = 0; i < header.getNumFields(); ++i) {
      const std::string name = lowerCase(header.fieldName(i));
      const std::string value = header.decodedValue(i);
      m_lines.insert(name + ':' + singleSpaced(value));
      m_first.emplace(name, value);
    }
  }
  bool has(const std::string& lowerName, std::string_view value) const {
    return m_lines.contains(lowerName + ':' + singleSpaced(value));
  }
  std::string first(const std::string& lowerName) const {
    const auto found = m_first.find(lowerName);
    return found == m_first.end() ? std::string() : found->second;
  }

 private:
  std::unordered_set<std::string> m_lines;
  std::unordered_map<std::string, std::string> m_first;
};

bool isCompared(std::string_view name) noexcept {
  return !name.empty() && !beginsWithNoCase(name, kContentPrefix) && !equalsNoCase(name, kMimeVersion);
}

void listDiffering(const MimeHeader& inside, const MimeHeader& outside, const PartPath& path,
                   std::vector<InnerField>& differing) {
  const OuterFields outer(outside);
  for (int i = 0; i < inside.getNumFields(); ++i) {
    const std::string_view name = inside.fieldName(i);
    if (!isCompared(name)) continue;
    const std::string lowerName = lowerCase(name);
    std::string value = inside.decodedValue(i);
    if (outer.has(lowerName, value)) continue;
    differing.push_back({path.text(), std::string(name), std::move(value), outer.first(lowerName)});
  }
}

}  // namespace

void loadLayerContent(std::string_view bytes, int level, MimeMessage2& content, LogBase& log) {
  if (!content.loadContent(bytes, level, log)) throw std::bad_alloc();
  if (isMimeEntity(bytes, content)) return;
  if (!content.loadContent({}, level, log)) throw std::bad_alloc();
  content.setContentType("text/plain", /*refreshHeader=*/true, log);
  if (!content.getMimeBodyDb()->append(bytes)) throw std::bad_alloc();
}

void replaceLayer(MimeMessage2& layer, MimeMessage2& content, const PartPath& path,
                  std::vector<InnerField>& differing) {
  listDiffering(content.header(), layer.header(), path, differing);
  layer.adoptContent(content);
}

}  // namespace mailtree
