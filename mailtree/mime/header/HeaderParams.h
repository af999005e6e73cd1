// mime/header/HeaderParams.h - the "value; name=value; ..." form of Content-Type and Content-Disposition.
//
//   Read      RFC 2045 and RFC 2231 (continuations, charsets, percent escapes in any mixture), and common
//             errors: unquoted values with characters that need quotes, encoded words inside values, missing
//             semicolons, comments, single quotes, unterminated quotes, backslashes in Windows paths.
//   Written   Tokens bare, other ASCII quoted, non-ASCII by RFC 2231 in utf-8 or the given code page.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Export.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

/// An ordered parameter list of a header value. Names are compared ignoring case; values are utf-8.
class MAILTREE_API _svParamSet {
 public:
  struct Param {
    std::string name;
    std::string value;
  };

  /// Appends one, even if the name exists; CR, LF and NUL are removed from both.
  void addParam(std::string_view name, std::string_view value);
  /// @param replace  whether to remove existing ones of that name; false only
  ///                 appends. A null value counts as empty.
  void addParam(const char* name, const char* value, bool replace);
  /// Null when absent.
  const std::string* find(std::string_view name) const noexcept;
  /// Removes every one of that name and returns the value of the first; false when absent.
  bool take(std::string_view name, std::string& value);
  void reserve(std::size_t count) { m_params.reserve(count); }
  void clear() noexcept { m_params.clear(); }
  bool isEmpty() const noexcept { return m_params.empty(); }
  const std::vector<Param>& params() const noexcept { return m_params; }

 private:
  std::vector<Param> m_params;
};

struct ParameterizedValue {
  std::string_view
      value;           ///< The text before the first ";", trimmed, without comments; points into the input.
  _svParamSet params;  ///< Decoded; the first of a name wins, an RFC 2231 form wins over a plain one.
  bool overLimit = false;  ///< More parameters than Limits allow: the rest was not read.
};

/// Longer values are written in sections (RFC 2231): a line may not hold them, and a run of blanks in them
/// may not survive folding.
constexpr std::size_t kMaxPlainParameter = 500;

/// Reads an unfolded header value. Encoded words in values are decoded, but never in a boundary.
MAILTREE_API ParameterizedValue parseParameterizedValue(std::string_view headerValue);

/// The same without a copy where nothing has to be decoded: passes the text before the parameters first, then
/// name and value of each in order. The views are valid during the call only.
/// @return false when there are more parameters than Limits allow; the rest is not passed.
using ValueHandler = std::function<void(std::string_view value)>;
using ParameterHandler = std::function<void(std::string_view name, std::string_view value)>;
MAILTREE_API bool readParameters(std::string_view headerValue, const ValueHandler& takeValue,
                                 const ParameterHandler& take);

/// How often a parameter is given in the plain form; the forms of RFC 2231 are allowed beside it.
MAILTREE_API std::size_t countPlainParameters(std::string_view headerValue, std::string_view name);

/// Appends "; name=value", quoted or encoded as needed; non-ASCII values by RFC 2231 in `codePage` (utf-8
/// when it cannot represent them), followed by a readable ASCII fallback when `withFallback`.
MAILTREE_API void appendParam(std::string_view name, std::string_view value, int codePage, bool withFallback,
                              std::string& out);

}  // namespace mailtree
