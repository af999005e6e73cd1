#include "mailtree/mime/header/ContentType.h"

#include <algorithm>
#include <array>
#include <string>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Log.h"

namespace mailtree {

constinit std::atomic<bool> _svContentType::m_noFormatFlowed = false;

namespace {

constexpr std::string_view kAssumedType = "text/plain";

/// Parameters with a member of their own, in output order.
struct MemberParam {
  std::string_view name;
  StringBuffer _svContentType::*member;
};

constexpr MemberParam kNameParam = {"name", &_svContentType::m_name};
constexpr MemberParam kMemberParams[] = {
    {"type", &_svContentType::m_subtype},         {"protocol", &_svContentType::m_protocol},
    {"micalg", &_svContentType::m_micalg},        {"boundary", &_svContentType::m_boundary},
    {"smime-type", &_svContentType::m_smimeType},
};

bool isText(std::string_view type) noexcept { return beginsWithNoCase(type, "text/"); }

constexpr bool isTypeChar(char c) noexcept {
  constexpr std::string_view kDelimiters = " ()<>@,;:\\\"[]?=";
  return !isControlAscii(c) && !is8bit(c) && kDelimiters.find(c) == std::string_view::npos;
}

/// Characters of a type, mapped to lower case; 0: not allowed.
constexpr std::array<char, 256> kTypeChars = [] {
  std::array<char, 256> table{};
  for (std::size_t c = 0; c < table.size(); ++c)
    if (isTypeChar(static_cast<char>(c))) table[c] = toLowerAscii(static_cast<char>(c));
  return table;
}();

/// Reads "type/subtype" in lower case, blanks around the slash allowed; false when the value is not one.
bool readType(std::string_view value, std::string& type) {
  const std::size_t slash = value.find('/');
  if (slash == std::string_view::npos) return false;
  const std::string_view major = trimRight(value.substr(0, slash)), minor = trimLeft(value.substr(slash + 1));
  if (major.empty() || minor.empty() || contains(minor, "/")) return false;
  type.append(major).append("/").append(minor);
  for (char& c : type) {
    c = kTypeChars[static_cast<unsigned char>(c)];
    if (c == '\0') return false;
  }
  return true;
}

/// The member that holds the parameter, null when it has none.
StringBuffer* memberFor(_svContentType& type, std::string_view name) noexcept {
  if (equalsNoCase(name, kNameParam.name)) return &(type.*kNameParam.member);
  for (const MemberParam& row : kMemberParams)
    if (equalsNoCase(name, row.name)) return &(type.*row.member);
  return nullptr;
}

void appendMember(const _svContentType& type, const MemberParam& row, int codePage, std::string& out) {
  const std::string_view value = (type.*row.member).view();
  if (value.empty()) return;
  const bool needsNoRfc2231 =
      value.size() <= kMaxPlainParameter && !contains(value, "\"") && !contains(value, "\\") &&
      std::none_of(value.begin(), value.end(), [](char c) { return is8bit(c) || isControlAscii(c); });
  // Quotes around a boundary are always valid, and some programs truncate an unquoted one.
  if (row.member == &_svContentType::m_boundary && needsNoRfc2231) {
    out.append("; ").append(row.name).append("=\"").append(value).append("\"");
    return;
  }
  const bool isName = row.member == &_svContentType::m_name;
  appendParam(row.name, value, codePage, isName, out);
}

bool containsEqual(const std::vector<_svParamSet::Param>& params, const _svParamSet::Param& wanted) noexcept {
  return std::any_of(params.begin(), params.end(), [&wanted](const _svParamSet::Param& param) {
    return param.value == wanted.value && equalsNoCase(param.name, wanted.name);
  });
}

bool sameParams(const _svParamSet& left, const _svParamSet& right) noexcept {
  const auto &a = left.params(), &b = right.params();
  if (a.size() != b.size()) return false;
  const auto holdsAll = [](const auto& all, const auto& wanted) {
    for (std::size_t i = 0; i < wanted.size(); ++i) {
      const bool isInPlace = all[i].value == wanted[i].value && equalsNoCase(all[i].name, wanted[i].name);
      if (!isInPlace && !containsEqual(all, wanted[i])) return false;
    }
    return true;
  };
  return holdsAll(a, b) && holdsAll(b, a);
}

}  // namespace

bool _svContentType::loadFromMimeHeaderValue(const char* value, _svCharset& charset, LogBase& log) {
  return neverThrow(false, [&] {
    const bool usable = loadFromMimeHeaderValue(viewOf(value), charset);
    if (!usable && log.m_verboseLogging) log.LogDataSb("unusableContentType", viewOf(value));
    return usable;
  });
}

bool _svContentType::loadFromMimeHeaderValue(std::string_view value, _svCharset& charset) {
  clear();
  charset.clear();
  bool usable = false;
  readParameters(
      value,
      [&](std::string_view type) {
        usable = readType(type, m_type.text());
        if (!usable) m_type.setString(kAssumedType);
      },
      [&](std::string_view name, std::string_view text) { takeParam(name, text, charset); });
  m_subtype.toLowerCase();
  m_subtype.trim2();
  return usable;
}

void _svContentType::takeParam(std::string_view name, std::string_view value, _svCharset& charset) {
  if (StringBuffer* member = memberFor(*this, name)) {
    member->setString(value);
    return;
  }
  if (equalsNoCase(name, "format") && equalsNoCase(trim(value), "flowed")) {
    m_formatFlowed = true;
    return;
  }
  if (equalsNoCase(name, "charset")) {
    charset.setByName(value);
    if (charset.getCodePage() > 0 && isText(m_type)) return;
  }
  m_otherParams.addParam(name, value);
}

void _svContentType::buildMimeHeaderValue(StringBuffer& out, _svCharset& charset, bool withFlowed,
                                          bool withName, LogBase&) const {
  if (m_type.isEmpty()) return;
  neverThrow(false, [&] {
    std::string value(m_type.view());
    const int codePage = charset.getCodePage();
    const bool withCharset = isText(m_type) && *charset.getName() != '\0';
    if (withCharset) appendParam("charset", charset.getName(), codePage, false, value);
    if (m_formatFlowed && withFlowed) value += "; format=flowed";
    if (withName) appendMember(*this, kNameParam, codePage, value);
    for (const MemberParam& row : kMemberParams) appendMember(*this, row, codePage, value);
    for (const _svParamSet::Param& param : m_otherParams.params()) {
      if (withCharset && equalsNoCase(param.name, "charset")) continue;
      if (m_formatFlowed && equalsNoCase(param.name, "format")) continue;
      if (m_formatFlowed && !withFlowed && equalsNoCase(param.name, "delsp")) continue;
      appendParam(param.name, param.value, codePage, false, value);
    }
    return out.append(value);
  });
}

void _svContentType::clear() {
  m_type.clear();
  m_name.clear();
  for (const MemberParam& row : kMemberParams) (this->*row.member).clear();
  m_formatFlowed = false;
  m_otherParams.clear();
}

bool _svContentType::sameMeaning(const _svContentType& other) const noexcept {
  return m_type.equalsIgnoreCase(other.m_type) && m_subtype.equalsIgnoreCase(other.m_subtype) &&
         m_formatFlowed == other.m_formatFlowed && m_name.equals(other.m_name) &&
         m_protocol.equals(other.m_protocol) && m_micalg.equals(other.m_micalg) &&
         m_boundary.equals(other.m_boundary) && m_smimeType.equals(other.m_smimeType) &&
         sameParams(m_otherParams, other.m_otherParams);
}

}  // namespace mailtree
