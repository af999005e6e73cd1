// mime/header/HeaderParams.h - the "value; name=value; ..." form of Content-Type and Content-Disposition.
//
//   Read      RFC 2045 and RFC 2231 (continuations, charsets, percent escapes in any mixture), and what
//             mailers really send: unquoted values with characters that need quotes, encoded words inside
//             values, missing semicolons' leftovers, comments, single quotes, unterminated quotes,
//             backslashes in Windows paths.
//   Written   Tokens bare, other ASCII quoted, non-ASCII by RFC 2231 in utf-8 or the given code page.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/StringBuffer.h"

namespace mailtree {

/// An ordered parameter list of a header value. Names are compared without regard to case; values are utf-8.
class _svParamSet {
 public:
  struct Param {
    std::string name;
    std::string value;
  };

  /// Appends one, even when there is one of that name; CR, LF and NUL are removed from both.
  void addParam(std::string_view name, std::string_view value);
  /// @param replace  whether those of that name go first; false only appends. A null value counts as empty.
  void addParam(const char* name, const char* value, bool replace);
  /// Null when absent.
  const std::string* find(std::string_view name) const noexcept;
  /// Removes every one of that name and gives the first's value back; false when absent.
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
      value;           ///< What stands before the first ";", trimmed, comments cut; points into the input.
  _svParamSet params;  ///< Decoded; the first of a name wins, a RFC 2231 form wins over a plain one.
  bool overLimit = false;  ///< More parameters than Limits allow: the rest was not read.
};

/// Longer values are written in sections (RFC 2231), for no line could be trusted to hold them, nor a run of
/// blanks in them to survive folding.
constexpr std::size_t kMaxPlainParameter = 500;

/// Reads an unfolded header value. Encoded words in values are decoded, but never in a boundary.
ParameterizedValue parseParameterizedValue(std::string_view headerValue);

/// The same without a copy where nothing has to be decoded: gives what stands before the parameters first, then name
/// and value of each in their order. The views are good for the call only.
/// @return false when there are more parameters than Limits allow; the rest is not given then.
using TakeValue = std::function<void(std::string_view value)>;
using TakeParameter = std::function<void(std::string_view name, std::string_view value)>;
bool readParameters(std::string_view headerValue, const TakeValue& takeValue, const TakeParameter& take);

/// Appends "; name=value" the way a header needs it; `codePage` is what non-ASCII values are written in
/// (utf-8 when it cannot carry them). Non-ASCII: RFC 2231, with a readable ASCII fallback behind it when
/// `withFallback`.
void appendParam(std::string_view name, std::string_view value, int codePage, bool withFallback,
                 std::string& out);

}  // namespace mailtree
