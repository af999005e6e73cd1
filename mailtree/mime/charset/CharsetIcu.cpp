// mime/charset/CharsetIcu.cpp - the code pages that ICU converts.
#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <memory>
#include <vector>

#include "mailtree/base/Utf.h"
#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/charset/CharsetInternal.h"

namespace mailtree {
namespace {

struct ConverterRow {
  int codePage;
  const char* converter;
};

constexpr ConverterRow kConverters[] = {
    {932, "ibm-943_P15A-2003"},  // the Shift_JIS of Windows, mapping for mapping
    {936, "windows-936-2000"},  {949, "windows-949-2000"},
    {950, "windows-950-2000"},  {951, "ibm-1375_P100-2008"},
    {kCpUtf32LE, "UTF-32LE"},   {kCpUtf32BE, "UTF-32BE"},
    {20932, "EUC-JP"},          {20936, "EUC-CN"},
    {20949, "EUC-KR"},          {kCpIso2022Kr, "ISO-2022-KR"},
    {50227, "ISO-2022-CN"},     {kCpEucJp, "EUC-JP"},
    {51936, "EUC-CN"},          {51949, "EUC-KR"},
    {51950, "EUC-TW"},          {kCpHz, "HZ"},
    {54936, "gb18030"},         {kCpUtf7, "UTF-7"},
};
static_assert(std::is_sorted(std::begin(kConverters), std::end(kConverters),
                             [](const auto& a, const auto& b) { return a.codePage < b.codePage; }));

struct CloseConverter {
  void operator()(UConverter* converter) const noexcept { ucnv_close(converter); }
};

struct OpenConverter {
  std::string_view name;  // points to a literal
  std::unique_ptr<UConverter, CloseConverter> converter;
};

/// Opening a converter costs more than converting a header with it, so every thread keeps the ones it opened.
/// Null when there is no such converter.
UConverter* converterNamed(const char* name) {
  thread_local std::vector<OpenConverter> opened;
  for (const OpenConverter& one : opened)
    if (one.name == name) return one.converter.get();

  UErrorCode error = U_ZERO_ERROR;
  std::unique_ptr<UConverter, CloseConverter> fresh(ucnv_open(name, &error));
  if (U_FAILURE(error)) fresh.reset();
  if (fresh) ucnv_setFallback(fresh.get(), false);  // no best fits
  return opened.emplace_back(OpenConverter{name, std::move(fresh)}).converter.get();
}

void noteDamage(const void* context) noexcept { *static_cast<bool*>(const_cast<void*>(context)) = true; }

/// Whether a callback is about bytes or characters, not about the lifetime of its converter.
constexpr bool isAboutText(UConverterCallbackReason reason) noexcept { return reason <= UCNV_IRREGULAR; }

void replaceBytes(const void* context, UConverterToUnicodeArgs* args, const char*, std::int32_t,
                  UConverterCallbackReason reason, UErrorCode* error) {
  if (!isAboutText(reason)) return;
  noteDamage(context);
  *error = U_ZERO_ERROR;
  const UChar replacement = kReplacementCharacter;
  ucnv_cbToUWriteUChars(args, &replacement, 1, 0, error);
}

void replaceCharacter(const void* context, UConverterFromUnicodeArgs* args, const UChar*, std::int32_t,
                      UChar32, UConverterCallbackReason reason, UErrorCode* error) {
  if (!isAboutText(reason)) return;
  noteDamage(context);
  *error = U_ZERO_ERROR;
  const UChar questionMark = u'?';
  const UChar* source = &questionMark;
  ucnv_cbFromUWriteUChars(args, &source, source + 1, 0, error);
}

/// Appends utf-16 as utf-8 and returns the number of units used. A surrogate whose other
/// half is in the next piece is left out.
std::size_t appendUnits(const UChar* units, std::size_t count, bool more, ByteSink& out) {
  if (more && count && U16_IS_LEAD(units[count - 1])) --count;
  const std::size_t capacity = count * 3 + 1;
  char* const begin = out.grow(capacity);
  char* to = begin;
  for (std::size_t i = 0; i < count;) {
    UChar32 c;
    U16_NEXT(units, i, count, c);
    if (c < 0x10000) {
      to = storePacked(U16_IS_SURROGATE(c) ? kPackedReplacement : packUtf8(static_cast<char16_t>(c)), to);
      continue;
    }
    *to++ = static_cast<char>(0xF0 | c >> 18);
    *to++ = static_cast<char>(0x80 | (c >> 12 & 0x3F));
    *to++ = static_cast<char>(0x80 | (c >> 6 & 0x3F));
    *to++ = static_cast<char>(0x80 | (c & 0x3F));
  }
  out.shrink(capacity - static_cast<std::size_t>(to - begin));
  return count;
}

/// ibm-943 rotates three control characters, as IBM hosts did.
constexpr std::string_view kRotating = "ibm-943_P15A-2003";

char unrotated(char c) noexcept {
  switch (c) {
    case 0x1A: return 0x1C;
    case 0x1C: return 0x7F;
    case 0x7F: return 0x1A;
    default: return c;
  }
}

/// Restores the control characters. No second byte of a character is one of them.
void unrotate(char* bytes, std::size_t size) noexcept {
  std::transform(bytes, bytes + size, bytes, unrotated);
}

}  // namespace

const char* icuConverterOf(int codePage) noexcept {
  const auto* const found =
      std::lower_bound(std::begin(kConverters), std::end(kConverters), codePage,
                       [](const auto& row, int wanted) { return row.codePage < wanted; });
  return found != std::end(kConverters) && found->codePage == codePage ? found->converter : nullptr;
}

bool decodeWithIcu(const char* name, std::string_view bytes, ByteSink& out) {
  UConverter* const converter = converterNamed(name);
  if (!converter) return false;
  bool damaged = false;
  UErrorCode error = U_ZERO_ERROR;
  ucnv_resetToUnicode(converter);
  ucnv_setToUCallBack(converter, replaceBytes, &damaged, nullptr, nullptr, &error);

  std::array<UChar, 2048> units;
  std::size_t kept = 0;  // a surrogate from the previous piece
  const char* source = bytes.data();
  bool more = true;
  while (more) {
    UChar* target = units.data() + kept;
    error = U_ZERO_ERROR;
    ucnv_toUnicode(converter, &target, units.data() + units.size(), &source, bytes.data() + bytes.size(),
                   nullptr, true, &error);
    more = error == U_BUFFER_OVERFLOW_ERROR;
    if (U_FAILURE(error) && !more) return false;
    const std::size_t count = static_cast<std::size_t>(target - units.data());
    const std::size_t taken = appendUnits(units.data(), count, more, out);
    kept = count - taken;
    if (kept) units[0] = units[taken];
  }
  return !damaged;
}

std::u16string decodeShortWithIcu(const char* name, std::string_view bytes) {
  UConverter* const converter = converterNamed(name);
  if (!converter) return {};
  bool damaged = false;
  UErrorCode error = U_ZERO_ERROR;
  ucnv_setToUCallBack(converter, replaceBytes, &damaged, nullptr, nullptr, &error);
  std::u16string units(bytes.size() * 2, u'\0');
  error = U_ZERO_ERROR;
  const std::int32_t count = ucnv_toUChars(converter, units.data(), static_cast<std::int32_t>(units.size()),
                                           bytes.data(), static_cast<std::int32_t>(bytes.size()), &error);
  if (damaged || U_FAILURE(error)) return {};
  units.resize(static_cast<std::size_t>(count));
  return units;
}

bool encodeWithIcu(const char* name, std::string_view utf8, ByteSink& out) {
  UConverter* const converter = converterNamed(name);
  if (!converter) return false;
  const std::u16string units = utf8ToUtf16(utf8);
  bool damaged = !isValidUtf8(utf8);
  UErrorCode error = U_ZERO_ERROR;
  ucnv_resetFromUnicode(converter);
  ucnv_setFromUCallBack(converter, replaceCharacter, &damaged, nullptr, nullptr, &error);

  std::array<char, 4096> bytes;
  const UChar* source = units.data();
  bool more = true;
  while (more) {
    char* target = bytes.data();
    error = U_ZERO_ERROR;
    ucnv_fromUnicode(converter, &target, bytes.data() + bytes.size(), &source, units.data() + units.size(),
                     nullptr, true, &error);
    more = error == U_BUFFER_OVERFLOW_ERROR;
    if (U_FAILURE(error) && !more) return false;
    const std::size_t count = static_cast<std::size_t>(target - bytes.data());
    if (name == kRotating) unrotate(bytes.data(), count);
    out.append(std::string_view(bytes.data(), count));
  }
  return !damaged;
}

}  // namespace mailtree
