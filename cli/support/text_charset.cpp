#include "cli/support/text_charset.h"

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/charset/Charset.h"

namespace mailtree::cli {
namespace {

struct ByteOrderMark {
  std::string_view bytes;
  int codePage;
  int swapped;  ///< The code page of the other order.
};

constexpr ByteOrderMark kMarks[] = {
    {"\xEF\xBB\xBF", kCpUtf8, kCpUtf8},
    {std::string_view("\xFF\xFE\0\0", 4), kCpUtf32LE, kCpUtf32BE},
    {std::string_view("\0\0\xFE\xFF", 4), kCpUtf32BE, kCpUtf32LE},
    {"\xFF\xFE", kCpUtf16LE, kCpUtf16BE},
    {"\xFE\xFF", kCpUtf16BE, kCpUtf16LE},
};

bool isAllowedIn(const ByteOrderMark& mark, TextCharset charset) {
  const int given = charset.codePage;
  return given == 0 || mark.codePage == given || (charset.isByteOrderUnspecified && mark.swapped == given);
}

/// In any other charset the same bytes are ordinary characters.
const ByteOrderMark* markOf(std::string_view bytes, TextCharset charset) {
  for (const ByteOrderMark& mark : kMarks)
    if (bytes.starts_with(mark.bytes) && isAllowedIn(mark, charset)) return &mark;
  return nullptr;
}

}  // namespace

TextCharset charsetOf(const std::string& name) {
  const bool isByteOrderUnspecified = equalsNoCase(name, "utf-16") || equalsNoCase(name, "utf-32");
  return {codePageOfCharset(name), isByteOrderUnspecified};
}

int markedCodePage(std::string_view bytes, TextCharset charset) {
  const ByteOrderMark* const mark = markOf(bytes, charset);
  return mark ? mark->codePage : 0;
}

std::optional<std::string> decodeText(std::string_view bytes, TextCharset charset, const std::string& option,
                                      std::string& out) {
  const ByteOrderMark* const mark = markOf(bytes, charset);
  if (mark) bytes.remove_prefix(mark->bytes.size());
  const int codePage = mark ? mark->codePage : charset.codePage;
  if (codePage == 0 || codePage == kCpUtf8) {
    if (!isValidUtf8(bytes)) return "the text is not valid utf-8; specify its charset with " + option;
    out = bytes;
  } else if (!decodeToUtf8(codePage, bytes, out)) {
    return charset.codePage ? "the text is not valid in the given charset"
                            : "the text does not match its byte order mark";
  }
  if (contains(out, std::string_view("\0", 1))) return "contains NUL bytes, so it is not text";
  return std::nullopt;
}

}  // namespace mailtree::cli
