// mime/charset/CharsetDetect.cpp - finds the code page of bytes whose label is missing or wrong.
#include <unicode/ucsdet.h>

#include <algorithm>
#include <iterator>
#include <memory>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/charset/CharsetInternal.h"

namespace mailtree {
namespace {

constexpr unsigned byteOf(char c) noexcept { return static_cast<unsigned char>(c); }

/// Whether the code page decodes every byte.
bool decodesAll(int codePage, std::string_view bytes) {
  std::string scratch;
  return decodeToUtf8(codePage, bytes, scratch);
}

// Byte order marks

struct Mark {
  std::string_view bytes;
  int codePage;
};

constexpr Mark kMarks[] = {
    {"\xEF\xBB\xBF", kCpUtf8},
    {"\xFF\xFE", kCpUtf16LE},
    {"\xFE\xFF", kCpUtf16BE},
};

/// The byte order mark at the beginning of the bytes; null when there is none.
const Mark* markOf(std::string_view bytes) noexcept {
  const auto* const found = std::find_if(std::begin(kMarks), std::end(kMarks),
                                         [bytes](const Mark& mark) { return bytes.starts_with(mark.bytes); });
  return found == std::end(kMarks) ? nullptr : found;
}

// utf-16 without a mark: the high bytes of its units are mostly equal, usually zero.

constexpr bool isUtf16(int codePage) noexcept { return codePage == kCpUtf16LE || codePage == kCpUtf16BE; }

struct ZeroCounts {
  std::size_t even = 0;
  std::size_t odd = 0;
};

constexpr std::size_t kSample = std::size_t{64} * 1024;

ZeroCounts countZeros(std::string_view bytes) noexcept {
  ZeroCounts zeros;
  const std::size_t end = std::min(bytes.size(), kSample);
  for (std::size_t i = 0; i < end; ++i) {
    if (bytes[i] != '\0') continue;
    ++(i % 2 ? zeros.odd : zeros.even);
  }
  return zeros;
}

/// 0 when the zeros are inconclusive.
int utf16ByZeros(std::string_view bytes) noexcept {
  const ZeroCounts zeros = countZeros(bytes);
  const std::size_t quarter = std::min(bytes.size(), kSample) / 8 + 1;  // of the units
  if (zeros.odd >= quarter && zeros.odd > 4 * zeros.even) return kCpUtf16LE;
  if (zeros.even >= quarter && zeros.even > 4 * zeros.odd) return kCpUtf16BE;
  return 0;
}

// 7-bit charsets that switch with escapes

struct EscapeRow {
  std::string_view escape;
  int codePage;
};

constexpr EscapeRow kEscapes[] = {
    {"\x1B$)C", kCpIso2022Kr}, {"\x1B$B", kCpIso2022Jp}, {"\x1B$@", kCpIso2022Jp},
    {"\x1B(I", kCpIso2022Jp},  {"\x1B(J", kCpIso2022Jp}, {"\x1B$(D", kCpIso2022Jp},
};

int codePageByEscapes(std::string_view bytes) {
  if (bytes.find('\x1B') == std::string_view::npos || !isAscii(bytes)) return 0;
  for (const auto& [escape, codePage] : kEscapes)
    if (bytes.find(escape) != std::string_view::npos && decodesAll(codePage, bytes)) return codePage;
  return 0;
}

// Western text: a few accented letters and typographic signs among ASCII letters. So few bytes give no usable
// statistics, so the bytes around them decide.

/// Typographic signs of Windows between 0x80 and 0xBF: euro, ellipsis, quotes, bullet,
/// dashes, section, degree...
constexpr std::string_view kWesternSigns =
    "\x80\x85\x91\x92\x93\x94\x95\x96\x97\x99\xA0\xA3\xA7\xA9\xAB\xAE\xB0\xB4\xB7\xBB";

constexpr bool isWesternLetter(char c) noexcept {
  return byteOf(c) >= 0xC0 && byteOf(c) != 0xD7 && byteOf(c) != 0xF7;
}

/// Whether the accented letters from `begin` to `end` can be in a word: one anywhere,
/// two next to an ASCII letter, never three.
bool fitsInWord(std::string_view bytes, std::size_t begin, std::size_t end) noexcept {
  if (end - begin != 2) return end - begin < 2;
  return (begin > 0 && isAlphaAscii(bytes[begin - 1])) || (end < bytes.size() && isAlphaAscii(bytes[end]));
}

bool looksWestern(std::string_view bytes) noexcept {
  constexpr std::size_t kTooFewForStatistics = 12;
  std::size_t letters = 0, accented = 0, signs = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    letters += isAlphaAscii(bytes[i]);
    if (!is8bit(bytes[i])) continue;
    if (accented + signs > kTooFewForStatistics) return false;
    if (kWesternSigns.find(bytes[i]) != std::string_view::npos) {
      ++signs;
      continue;
    }
    const std::size_t begin = i;
    while (i < bytes.size() && isWesternLetter(bytes[i])) ++i;
    if (i == begin || !fitsInWord(bytes, begin, i)) return false;
    accented += i - begin;
    --i;
  }
  return letters >= 3 * accented;
}

// Everything else: ICU's statistics

struct CloseDetector {
  void operator()(UCharsetDetector* detector) const noexcept { ucsdet_close(detector); }
};

constexpr std::int32_t kMinConfidence = 10;

/// ISO code pages have only controls between 0x80 and 0x9F, the related Windows code pages letters and signs.
struct RelatedPage {
  int isoPage;
  int windowsPage;
};

constexpr RelatedPage kRelatedPages[] = {
    {kCpLatin1, kCpWindows1252}, {kCpLatin2, 1250}, {28597, 1253}, {28598, 1255}, {28599, 1254}};

bool hasC1(std::string_view bytes) noexcept {
  return std::any_of(bytes.begin(), bytes.end(),
                     [](char c) { return byteOf(c) >= 0x80 && byteOf(c) < 0xA0; });
}

int withRelatedPage(int codePage, std::string_view bytes) noexcept {
  const auto* const found =
      std::find_if(std::begin(kRelatedPages), std::end(kRelatedPages),
                   [codePage](const RelatedPage& row) { return row.isoPage == codePage; });
  return found != std::end(kRelatedPages) && hasC1(bytes) ? found->windowsPage : codePage;
}

int codePageByStatistics(std::string_view bytes) {
  UErrorCode error = U_ZERO_ERROR;
  const std::unique_ptr<UCharsetDetector, CloseDetector> detector(ucsdet_open(&error));
  const std::string_view sample = bytes.substr(0, kSample);
  ucsdet_setText(detector.get(), sample.data(), static_cast<std::int32_t>(sample.size()), &error);
  std::int32_t count = 0;
  const UCharsetMatch** const matches = ucsdet_detectAll(detector.get(), &count, &error);
  if (U_FAILURE(error)) return 0;
  for (std::int32_t i = 0; i < count; ++i) {  // the best first
    if (ucsdet_getConfidence(matches[i], &error) < kMinConfidence) return 0;
    const int codePage =
        withRelatedPage(codePageOfCharset(viewOf(ucsdet_getName(matches[i], &error))), bytes);
    if (codePage && codePage != kCpUtf8 && decodesAll(codePage, bytes)) return codePage;
  }
  return 0;
}

// Damage. Only non-ASCII characters are counted, because they tell which charset a text is in.

struct Sequences {
  std::size_t valid = 0;
  std::size_t damaged = 0;

  bool mostlyValid() const noexcept { return valid > 0 && valid >= 9 * damaged; }
  bool oneAmongValid() const noexcept { return valid > 0 && damaged == 1; }
};

Sequences utf8Sequences(std::string_view bytes) noexcept {
  Sequences found;
  for (std::size_t at = 0; at < bytes.size();) {
    if (!is8bit(bytes[at])) {
      ++at;
      continue;
    }
    const std::size_t begin = at;
    const bool isDamaged = nextCodePoint(bytes, at) == kReplacementCharacter &&
                           bytes.substr(begin, at - begin) != kReplacementUtf8;
    ++(isDamaged ? found.damaged : found.valid);
  }
  return found;
}

/// Counted in the result of a conversion. With wide units ASCII letters count like any other.
Sequences sequencesIn(int codePage, std::string_view bytes) {
  std::string utf8;
  decodeToUtf8(codePage, bytes, utf8);
  const bool countsAscii = hasWideUnits(codePage);
  Sequences found;
  for (std::size_t at = 0; at < utf8.size(); ++at) {
    const bool begins = is8bit(utf8[at]) ? byteOf(utf8[at]) >= 0xC0 : countsAscii;
    if (!begins) continue;
    const bool isDamaged = utf8.compare(at, kReplacementUtf8.size(), kReplacementUtf8) == 0;
    ++(isDamaged ? found.damaged : found.valid);
  }
  return found;
}

/// Whether the bytes disprove a multibyte label although some of the text can be read in it.
bool contradicts(int claimed, std::string_view bytes) noexcept {
  if (!hasWideUnits(claimed)) return isAsciiCompatible(claimed) && looksWestern(bytes);
  const ZeroCounts zeros = countZeros(bytes);
  if (zeros.even + zeros.odd == 0) return isAscii(bytes) || looksWestern(bytes);
  // Zeros on both sides: a byte is missing in the middle, and the rest is misaligned.
  const auto [fewer, more] = std::minmax(zeros.even, zeros.odd);
  return isUtf16(claimed) && 4 * fewer > more;
}

DamagedReading readDamaged(int claimed, std::string_view bytes) {
  if (isAsciiCompatible(claimed) && isValidUtf8(bytes)) return {kCpUtf8, 0};
  const Sequences utf8 = utf8Sequences(bytes);
  const bool isLabelTrusted = claimed == kCpUtf8 && utf8.valid > utf8.damaged;
  if (isLabelTrusted || utf8.mostlyValid()) return {kCpUtf8, utf8.damaged};

  if (claimed != kCpUtf8 && isMultibyte(claimed) && !contradicts(claimed, bytes)) {
    const Sequences found = sequencesIn(claimed, bytes);
    if (found.mostlyValid() || found.oneAmongValid()) return {claimed, found.damaged};
  }
  if (utf8.damaged == 0) return {kCpUtf8, 0};
  // In western text a capital before a closing quote is also a valid utf-8 sequence.
  const bool isUtf8 = utf8.oneAmongValid() && (containsUtf8Accent(bytes) || !looksWestern(bytes));
  return isUtf8 ? DamagedReading{kCpUtf8, 1} : DamagedReading{0, 0};
}

int detect(std::string_view bytes) {
  if (bytes.empty()) return 0;
  if (const int codePage = codePageByEscapes(bytes)) return codePage;
  if (const int codePage = utf16ByZeros(bytes); codePage && decodesAll(codePage, bytes)) return codePage;
  if (readDamaged(0, bytes).codePage == kCpUtf8) return kCpUtf8;
  return looksWestern(bytes) ? kCpWindows1252 : codePageByStatistics(bytes);
}

// A received text

/// The utf-16 variant of a text labelled utf-16. Without a mark and without a byte order in the label it is
/// big-endian (RFC 2781, 4.3), unless its zeros say otherwise.
int utf16ByLabel(std::string_view label, int codePage, std::string_view bytes) noexcept {
  const bool namesByteOrder = codePage == kCpUtf16BE || containsNoCase(label, "le");
  if (namesByteOrder) return codePage;
  return utf16ByZeros(bytes) == kCpUtf16LE ? kCpUtf16LE : kCpUtf16BE;
}

class Receiver {
 public:
  Receiver(std::string_view label, std::string_view bytes, DataBuffer& out) noexcept
      : m_label(label), m_bytes(bytes), m_out(out) {}

  DecodedText run() {
    if (trim(m_label).empty()) return {TextOrigin::unlabelled, 0, false};
    const int named = codePageOfCharset(m_label);
    const int declared = isUtf16(named) ? byUtf16Label(named) : named;
    const Mark* const mark = markOf(m_bytes);
    if (declared && tryCodePage(declared, TextOrigin::declared)) return m_result;
    if (mark && tryCodePage(mark->codePage, TextOrigin::byteOrderMark)) return m_result;
    if (const int escapes = codePageByEscapes(m_bytes); escapes && tryCodePage(escapes, TextOrigin::detected))
      return m_result;
    if (mark ? tryDamaged(mark->codePage, TextOrigin::byteOrderMark)
             : tryDamaged(declared, TextOrigin::declared))
      return m_result;
    if (const int detected = detectCodePage(m_bytes); detected && tryCodePage(detected, TextOrigin::detected))
      return m_result;
    return {TextOrigin::undetected, 0, false};
  }

 private:
  int byUtf16Label(int declared) const noexcept {
    const Mark* const mark = markOf(m_bytes);
    return mark && isUtf16(mark->codePage) ? mark->codePage : utf16ByLabel(m_label, declared, m_bytes);
  }

  /// Tries a code page that must decode every byte; m_result then says how, and m_out
  /// holds the text if it had to be converted.
  bool tryCodePage(int codePage, TextOrigin origin) {
    m_result = {origin, codePage, false};
    if (codePage == kCpUtf8) return isValidUtf8(m_bytes);
    if (isAsciiCompatible(codePage) && isAscii(m_bytes)) return true;
    return convert(codePage);
  }

  /// Tries a code page, `claimed` if possible, that decodes enough of a text that none decodes completely.
  bool tryDamaged(int claimed, TextOrigin origin) {
    const auto [codePage, damaged] = readDamaged(claimed, m_bytes);
    if (codePage == 0) return false;
    const TextOrigin other = damaged == 0 ? TextOrigin::validUtf8 : TextOrigin::detected;
    m_result = {codePage == claimed ? origin : other, codePage, false, damaged};
    if (codePage != kCpUtf8) convert(codePage);
    return true;
  }

  /// False when some byte was invalid; the rest of a damaged text is kept.
  bool convert(int codePage) {
    // The mark of utf-16 does not belong to the text.
    const Mark* const mark = isUtf16(codePage) ? markOf(m_bytes) : nullptr;
    DataBuffer text;
    const bool isValid = decodeToUtf8(codePage, m_bytes.substr(mark ? mark->bytes.size() : 0), text);
    if (!isValid && m_result.damaged == 0) return false;
    m_out.takeData(text);
    m_result.converted = true;
    return true;
  }

  std::string_view m_label;
  std::string_view m_bytes;
  DataBuffer& m_out;
  DecodedText m_result{TextOrigin::undetected, 0, false};
};

}  // namespace

bool containsUtf8Accent(std::string_view bytes) noexcept {
  for (std::size_t i = 0; i + 1 < bytes.size(); ++i)
    if ((bytes[i] == '\xC2' || bytes[i] == '\xC3') && is8bit(bytes[i + 1])) return true;
  return false;
}

int detectCodePage(std::string_view bytes) {
  return neverThrow(0, [bytes] { return detect(bytes); });
}

DamagedReading codePageDespiteDamage(int claimed, std::string_view bytes) {
  return neverThrow(DamagedReading{0, 0}, [=] { return readDamaged(claimed, bytes); });
}

DecodedText receivedTextToUtf8(std::string_view label, std::string_view bytes, DataBuffer& out) {
  return neverThrow(DecodedText{TextOrigin::undetected, 0, false},
                    [&] { return Receiver(label, bytes, out).run(); });
}

}  // namespace mailtree
