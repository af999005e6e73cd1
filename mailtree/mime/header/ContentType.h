// mime/header/ContentType.h - the parsed Content-Type of a part (RFC 2045, 5).
#pragma once

#include <atomic>
#include <string_view>

#include "mailtree/base/Export.h"
#include "mailtree/base/StringBuffer.h"
#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/header/HeaderParams.h"

namespace mailtree {

class LogBase;

/// Content-Type as parsed members. The charset is not among them: it is the email's (_svCharset).
class MAILTREE_API _svContentType {
 public:
  _svContentType() = default;
  _svContentType(const _svContentType&) = default;
  _svContentType(_svContentType&&) noexcept = default;
  _svContentType& operator=(const _svContentType&) = default;
  _svContentType& operator=(_svContentType&&) noexcept = default;

  StringBuffer m_type;  ///< Media type, lower case, trimmed.
  StringBuffer m_name;  ///< name parameter, utf-8.
  StringBuffer m_protocol;
  StringBuffer m_micalg;
  StringBuffer m_boundary;
  StringBuffer m_smimeType;  ///< smime-type parameter.
  StringBuffer m_subtype;    ///< type parameter (of a multipart/related, its main part's type), lower case.
  bool m_formatFlowed = false;  ///< format=flowed (RFC 3676).
  /// Process-wide: no new text/plain body is declared format=flowed.
  static std::atomic<bool> m_noFormatFlowed;
  /// Parameters without a member of their own, in order: method, report-type, delsp, ... Charset names: an
  /// unknown one of a text type, any one of another type.
  _svParamSet m_otherParams;

  /// Reads a Content-Type value. A value without a slash or with broken syntax counts as text/plain; its
  /// parameters are still read.
  /// @param charset receives the charset parameter (cleared when there is none).
  /// @return false when the value was unusable and text/plain was assumed.
  bool loadFromMimeHeaderValue(const char* value, _svCharset& charset, LogBase& log);
  bool loadFromMimeHeaderValue(std::string_view value, _svCharset& charset);

  /// Appends the members as a Content-Type value, unfolded; nothing when there is no type.
  /// @param charset      written as the charset parameter of text types when it has a name, instead of one in
  ///                     m_otherParams; its code page encodes non-ASCII values.
  /// @param withFlowed   whether to write format=flowed, and delsp with it, when m_formatFlowed is set.
  /// @param withName     whether to write the name parameter.
  void buildMimeHeaderValue(StringBuffer& out, _svCharset& charset, bool withFlowed, bool withName,
                            LogBase& log) const;

  void copyFrom(const _svContentType& other) { *this = other; }
  void clear();

  /// Whether both mean the same: type and every parameter (boundary, protocol ... exactly, names of types
  /// ignoring case, m_otherParams in any order).
  bool sameMeaning(const _svContentType& other) const noexcept;

 private:
  void takeParam(std::string_view name, std::string_view value, _svCharset& charset);
};

}  // namespace mailtree
