#include "mailtree/secure/inner_content.h"

#include <new>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/secure/displayed_fields.h"
#include "mailtree/secure/field_meaning.h"

namespace mailtree {
namespace {

constexpr std::string_view kContentPrefix = "Content-";
constexpr std::string_view kMimeVersion = "MIME-Version";

bool isLineBreak(char c) noexcept { return c == '\r' || c == '\n'; }

/// Whether a field distinguishes a header from text that begins with words and colons: one that describes
/// content, or names a sender.
bool identifiesHeader(std::string_view name) noexcept {
  return beginsWithNoCase(name, kContentPrefix) || equalsNoCase(name, kMimeVersion) ||
         equalsNoCase(name, "From");
}

/// The fields of a header, indexed: it may have thousands, and so may the header it is compared with.
class OuterFields {
 public:
  explicit OuterFields(const MimeHeader& header) {
    for (int i = 0; i < header.getNumFields(); ++i)
      add(lowerCase(header.fieldName(i)), header.decodedValue(i), comparedValue(header, i));
  }

  /// The value of this header that differs from another one, empty when the field is missing; null when
  /// they agree. All fields of a name that a message has once must agree: it is unknown which one a
  /// mail client displays.
  const std::string* differingValue(const std::string& lowerName, const std::string& compared) const {
    static const std::string kNothing;
    const auto found = m_values.find(lowerName);
    if (found == m_values.end()) return &kNothing;
    const Values& values = found->second;
    if (!m_lines.contains(lowerName + ':' + compared)) return &values.first;
    if (!isDisplayedField(lowerName) || !values.another) return nullptr;
    return compared == values.comparedFirst ? &*values.another : &values.first;
  }
  /// Null when there is none of that name.
  const std::string* first(const std::string& lowerName) const {
    const auto found = m_values.find(lowerName);
    return found == m_values.end() ? nullptr : &found->second.first;
  }

 private:
  struct Values {
    std::string first, comparedFirst;
    std::optional<std::string> another;  ///< One that differs from the first.
  };

  void add(std::string lowerName, std::string value, std::string compared) {
    m_lines.insert(lowerName + ':' + compared);
    const auto [place, isFirst] = m_values.try_emplace(std::move(lowerName));
    Values& values = place->second;
    if (isFirst) {
      values.first = std::move(value);
      values.comparedFirst = std::move(compared);
    } else if (!values.another && compared != values.comparedFirst) {
      values.another = std::move(value);
    }
  }

  std::unordered_set<std::string> m_lines;
  std::unordered_map<std::string, Values> m_values;
};

bool isCompared(std::string_view name) noexcept {
  return !name.empty() && !beginsWithNoCase(name, kContentPrefix) && !equalsNoCase(name, kMimeVersion);
}

/// A content with a sender has the fields of the message: a field that is only outside was added later.
void listAdded(const MimeHeader& inside, const OuterFields& outer, const PartPath& path,
               std::vector<InnerField>& differing) {
  if (inside.findField("From") < 0) return;
  for (const std::string_view name : kDisplayedFields) {
    const std::string* const added = inside.findField(name) < 0 ? outer.first(lowerCase(name)) : nullptr;
    if (added) differing.push_back({path.text(), std::string(name), {}, *added});
  }
}

/// A long outer value is not copied for each of thousands of inner fields of its name.
constexpr std::size_t kMaxRepeatedValue = 200;

std::string shortened(const std::string& value) {
  return value.size() <= kMaxRepeatedValue
             ? value
             : value.substr(0, utf8PrefixLength(value, kMaxRepeatedValue)) + "...";
}

void listDiffering(const MimeHeader& inside, const MimeHeader& outside, const PartPath& path,
                   std::vector<InnerField>& differing) {
  const OuterFields outer(outside);
  std::unordered_set<std::string> listed;
  for (int i = 0; i < inside.getNumFields(); ++i) {
    const std::string_view name = inside.fieldName(i);
    if (!isCompared(name)) continue;
    std::string lowerName = lowerCase(name);
    const std::string* const other = outer.differingValue(lowerName, comparedValue(inside, i));
    if (!other) continue;
    const bool isFirst = listed.insert(std::move(lowerName)).second;
    differing.push_back(
        {path.text(), std::string(name), inside.decodedValue(i), isFirst ? *other : shortened(*other)});
  }
  listAdded(inside, outer, path, differing);
}

}  // namespace

bool isMimeEntity(std::string_view bytes) {
  if (bytes.empty() || isLineBreak(bytes.front())) return true;
  MimeHeader header;
  header.loadFromEntity(bytes, MimeHeader::LeadingEmptyLines::endHeader);
  if (header.fieldName(0).empty()) return false;
  for (int i = 0; i < header.getNumFields(); ++i)
    if (identifiesHeader(header.fieldName(i))) return true;
  return false;
}

void loadLayerContent(std::string_view bytes, int level, Origin origin, MimeMessage2& content, int& parts,
                      LogBase& log) {
  const bool isEntity = isMimeEntity(bytes);
  if (!content.loadContent(isEntity ? bytes : std::string_view(), level, origin, parts, log))
    throw std::bad_alloc();
  if (isEntity) return;
  content.setContentType("text/plain", /*refreshHeader=*/true, log);
  if (!content.getMimeBodyDb()->append(bytes)) throw std::bad_alloc();
}

void replaceLayer(MimeMessage2& layer, MimeMessage2& content, const PartPath& path,
                  std::vector<InnerField>& differing) {
  listDiffering(content.header(), layer.header(), path, differing);
  layer.adoptContent(content);
}

}  // namespace mailtree
