#include "mailtree/mime/ContentType.h"

#include <algorithm>
#include <string>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Log.h"

namespace mailtree {

namespace {

constexpr std::string_view kAssumedType = "text/plain";

/// Parameters with a member of their own, in the order in which they are written.
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

/// Reads "type/subtype" in lower case, blanks around the slash allowed; false when it is nothing of the kind.
bool readType(std::string_view value, std::string& type) {
  const std::size_t slash = value.find('/');
  if (slash == std::string_view::npos) return false;
  const std::string_view major = trim(value.substr(0, slash)), minor = trim(value.substr(slash + 1));
  if (major.empty() || minor.empty()) return false;
  type.append(major).append("/").append(minor);
  std::size_t slashes = 0;
  for (char& c : type) {
    if (isControlAscii(c) || is8bit(c) || contains(" ()<>@,;:\\\"[]?=", std::string_view(&c, 1)))
      return false;
    slashes += c == '/';
    c = toLowerAscii(c);
  }
  return slashes == 1;
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
  // Quotes around a boundary are never wrong, and readers exist that cut bare ones short.
  if (row.member == &_svContentType::m_boundary && needsNoRfc2231) {
    out.append("; ").append(row.name).append("=\"").append(value).append("\"");
    return;
  }
  const bool isName = row.member == &_svContentType::m_name;
  appendParam(row.name, value, codePage, isName, out);
}

bool holdsSame(const std::vector<_svParamSet::Param>& params, const _svParamSet::Param& wanted) noexcept {
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
      if (!isInPlace && !holdsSame(all, wanted[i])) return false;
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
  const ParameterizedValue parsed = parseParameterizedValue(value);
  std::string type;
  const bool usable = readType(parsed.value, type);
  m_type.setString(usable ? std::string_view(type) : kAssumedType);
  for (const _svParamSet::Param& param : parsed.params.params()) takeParam(param, charset);
  m_subtype.toLowerCase();
  m_subtype.trim2();
  return usable;
}

void _svContentType::takeParam(const _svParamSet::Param& param, _svCharset& charset) {
  if (StringBuffer* member = memberFor(*this, param.name)) {
    member->setString(std::string_view(param.value));
    return;
  }
  if (equalsNoCase(param.name, "format") && equalsNoCase(trim(param.value), "flowed")) {
    m_formatFlowed = true;
    return;
  }
  if (equalsNoCase(param.name, "charset")) {
    charset.setByName(param.value.c_str());
    if (charset.getCodePage() > 0 && isText(m_type)) return;
  }
  m_otherParams.addParam(std::string_view(param.name), std::string_view(param.value));
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
