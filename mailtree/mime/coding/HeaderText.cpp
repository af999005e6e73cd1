#include "mailtree/mime/coding/HeaderText.h"

#include <cstring>

#include "mailtree/base/Ascii.h"
#include "mailtree/base/Search.h"
#include "mailtree/base/Utf.h"
#include "mailtree/mime/charset/Charset.h"

namespace mailtree {

namespace {

constexpr std::string_view kBreaks("\r\n\0", 3);

std::size_t findBreak(std::string_view text, std::size_t from) noexcept {
  return findAny<'\n', '\r', '\0'>(text, from);
}

}  // namespace

bool containsBreak(std::string_view text) noexcept { return findBreak(text, 0) != text.size(); }

std::string withoutBreaks(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t done = 0; done < text.size();) {
    const std::size_t at = text.find_first_of(kBreaks, done);
    out.append(text, done, at - done);
    if (at == std::string_view::npos) break;
    const bool isNul = text[at] == '\0';
    done = at + (text.substr(at, 2) == "\r\n" ? 2 : 1);
    const bool isFold = !isNul && done < text.size() && isBlankAscii(text[done]);
    if (!isFold) out += ' ';
  }
  return out;
}

void eraseBreaks(std::string& text) {
  std::size_t kept = findBreak(text, 0);
  for (std::size_t from = kept; from < text.size();) {
    const std::size_t next = findBreak(text, ++from);  // after the break
    std::memmove(text.data() + kept, text.data() + from, next - from);
    kept += next - from;
    from = next;
  }
  text.resize(kept);
}

void appendBytesAsUtf8(int codePage, std::string_view bytes, std::string& out) {
  const std::size_t before = out.size();
  if (codePage > 0 && decodeToUtf8(codePage, bytes, out)) return;

  const std::string claimed = out.substr(before);
  out.resize(before);
  if (const int damaged = codePageDespiteDamage(codePage, bytes).codePage) {
    decodeToUtf8(damaged, bytes, out);
    return;
  }
  const int detected = detectHeaderCodePage(bytes);
  if (detected > 0 && decodeToUtf8(detected, bytes, out)) return;
  out.resize(before);
  if (!claimed.empty())
    out += claimed;
  else
    decodeToUtf8(kCpUtf8, bytes, out);
}

int detectHeaderCodePage(std::string_view bytes) {
  const int codePage = detectCodePage(bytes);
  return codePage == writableCodePage(codePage) && !isStatefulCodePage(codePage) ? codePage : 0;
}

int writableCodePage(int wanted) noexcept {
  const bool isUsable = isMailCodePage(wanted) && wanted != kCpUsAscii && !charsetNameOf(wanted).empty();
  return isUsable ? wanted : kCpUtf8;
}

}  // namespace mailtree
