// mime/charset/Charset.h - charsets by name and by code page, and conversion between code pages.
//
//   Code pages  Windows numbers: 65001 utf-8, 20127 us-ascii, 28591 iso-8859-1, 1200 and 1201 utf-16LE and
//               BE, 50220 to 50222 iso-2022-jp, 54936 gb18030 ... Below 1: none chosen.
//   Labels      Decoded as on the web: iso-8859-1 as windows-1252 in 0x80-0x9F, gb2312 and gbk as gb18030,
//               ks_c_5601-1987 as cp949, shift_jis as cp932. Encoded strictly: no best fits, no "?".
#pragma once

#include <string>
#include <string_view>

#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/Export.h"
#include "mailtree/base/Object.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

class LogBase;

inline constexpr int kCpUtf8 = 65001;
inline constexpr int kCpUsAscii = 20127;
inline constexpr int kCpLatin1 = 28591;
inline constexpr int kCpLatin2 = 28592;
inline constexpr int kCpUtf16LE = 1200;
inline constexpr int kCpUtf16BE = 1201;
inline constexpr int kCpUtf32LE = 12000;
inline constexpr int kCpUtf32BE = 12001;
inline constexpr int kCpUtf7 = 65000;

/// Code page of a charset label (any registered name or common alias, any case, quotes and blanks around it
/// ignored); 0 when unknown.
MAILTREE_API int codePageOfCharset(std::string_view name) noexcept;
/// Preferred MIME name of a code page, in lower case; empty when unknown.
MAILTREE_API std::string_view charsetNameOf(int codePage) noexcept;

/// Whether characters of a known code page may take several bytes, which makes damage to a text visible.
MAILTREE_API bool isMultibyte(int codePage) noexcept;
/// Whether ASCII text has the same bytes in a code page; false for an unknown one.
bool keepsAscii(int codePage) noexcept;
/// Whether a code page has units of two or four bytes (utf-16, utf-32): markup and
/// line breaks cannot be found in its bytes.
MAILTREE_API bool hasWideUnits(int codePage) noexcept;
/// Whether mail text can be written in a code page: not in wide units (RFC 2046, 4.1.1), utf-7, which mail
/// clients no longer support, or an unknown one.
MAILTREE_API bool isMailCodePage(int codePage) noexcept;

/// A charset: a name and a code page.
class MAILTREE_API _svCharset {
 public:
  int getCodePage() const noexcept { return m_codePage; }
  /// The name as set, or the preferred one of the code page; empty when nothing is chosen.
  const char* getName() const noexcept { return m_name.getString(); }
  void setByCodePage(int codePage);
  /// Keeps the name as given; the code page is 0 when the name is unknown.
  void setByName(const char* name) { setByName(viewOf(name)); }
  void setByName(std::string_view name);
  void copy(const _svCharset& other);
  /// Same code page, and, where that is 0, same name ignoring case.
  bool equals(const _svCharset& other) const noexcept;
  void clear() noexcept;

 private:
  int m_codePage = 0;
  StringBuffer m_name;
};

class MAILTREE_API EncodingConvert {
 public:
  /// Converts bytes from one code page to another, replacing the content of `out`.
  /// @return false when some input was malformed, some character does not exist in the target, or a code
  ///   page is unknown; `out` then holds the characters that could be converted ("?" in place of the rest,
  ///   U+FFFD in Unicode targets), or the input itself when a code page is unknown. Equal code pages copy the
  ///   bytes after checking them.
  static bool EncConvert(int fromCodePage, int toCodePage, const void* bytes, std::size_t size,
                         DataBuffer& out, LogBase& log);
};

/// Decodes bytes of a code page to utf-8, appended to `out`; the fast path of EncConvert. False when some
/// byte is invalid (it became U+FFFD) or the code page is unknown (nothing appended).
MAILTREE_API bool decodeToUtf8(int codePage, std::string_view bytes, DataBuffer& out);
MAILTREE_API bool decodeToUtf8(int codePage, std::string_view bytes, std::string& out);
/// Encodes utf-8 into a code page, appended to `out`, strictly. False when a character does not exist there
/// ("?" replaces it), the input is malformed or the code page is unknown.
MAILTREE_API bool encodeFromUtf8(int codePage, std::string_view utf8, std::string& out);

/// Best guess for 8-bit text without a usable label, from byte statistics; 0 when nothing fits. utf-8 is
/// recognized by validity, iso-2022 by its escapes, the others by the detector.
MAILTREE_API int detectCodePage(std::string_view bytes);

/// How the charset of a received text was found.
enum class TextOrigin {
  declared,  ///< The label was right.
  byteOrderMark,
  validUtf8,   ///< The label was unknown or wrong, the bytes are utf-8.
  detected,    ///< The label was unknown or wrong, a detected code page decoded the bytes.
  unlabelled,  ///< No label; not converted.
  undetected   ///< Nothing fits; not converted.
};

struct DecodedText {
  TextOrigin origin;
  int codePage;             ///< The one that decoded the bytes; 0 for unlabelled and undetected.
  bool converted;           ///< Whether `out` holds new text; when false the bytes stay as they are.
  std::size_t damaged = 0;  ///< Invalid sequences: U+FFFD in `out`; utf-8 keeps them.
};

/// Converts received text to utf-8. The label is trusted when it can decode every byte; else byte order
/// mark, valid utf-8, codePageDespiteDamage and detection are tried. `out` is replaced only when `converted`
/// is true (7-bit text in an ASCII-compatible charset and utf-8, even damaged, need no conversion).
MAILTREE_API DecodedText receivedTextToUtf8(std::string_view label, std::string_view bytes, DataBuffer& out);

/// Whether a byte C2 or C3 is followed by a non-ASCII byte, as every accented Latin letter is in utf-8.
MAILTREE_API bool containsUtf8Accent(std::string_view bytes) noexcept;

struct DamagedReading {
  int codePage;         ///< 0 when none decodes enough.
  std::size_t damaged;  ///< Sequences invalid in it.
};

/// The code page of a text that its label (`claimed`, 0 for none) does not decode completely: a few damaged
/// bytes do not disprove it. The label utf-8 is trusted when valid sequences outnumber damaged ones, another
/// multibyte one when nine in ten are valid or only one is damaged; so is utf-8 without a label.
MAILTREE_API DamagedReading codePageDespiteDamage(int claimed, std::string_view bytes);

}  // namespace mailtree
