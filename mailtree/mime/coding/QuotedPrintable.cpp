#include "mailtree/mime/coding/QuotedPrintable.h"

#include <algorithm>
#include <array>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "mailtree/base/Ascii.h"
#include "mailtree/mime/coding/QuotedPrintableInternal.h"

namespace mailtree::quotedPrintable {
namespace {

// Both searches below are the inner loops of this file: 16 bytes at a time if all
// target processors of the build can do that.

/// Length of the run of literal bytes at p, at most `limit`.
std::size_t literalRun(const char* p, std::size_t limit) noexcept {
  std::size_t n = 0;
#if defined(__SSE2__)
  for (; limit - n >= 16; n += 16) {
    const __m128i text = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + n));
    const __m128i printable = _mm_and_si128(_mm_cmpgt_epi8(text, _mm_set1_epi8(' ' - 1)),
                                            _mm_cmplt_epi8(text, _mm_set1_epi8('~' + 1)));
    const __m128i plain = _mm_andnot_si128(_mm_cmpeq_epi8(text, _mm_set1_epi8('=')), printable);
    const __m128i literal = _mm_or_si128(plain, _mm_cmpeq_epi8(text, _mm_set1_epi8('\t')));
    const unsigned others = ~static_cast<unsigned>(_mm_movemask_epi8(literal)) & 0xFFFF;
    if (others) return n + static_cast<unsigned>(__builtin_ctz(others));
  }
#endif
  while (n < limit && isLiteral(p[n])) ++n;
  return n;
}

/// Copies bytes up to the first "=" and moves both pointers. `out` has as much room as there is text.
void copyPlain(const char*& p, const char* end, std::uint8_t*& out) noexcept {
#if defined(__SSE2__)
  for (; end - p >= 16; p += 16, out += 16) {
    const __m128i text = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), text);
    const auto mask = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(text, _mm_set1_epi8('='))));
    if (mask == 0) continue;
    p += __builtin_ctz(mask);
    out += __builtin_ctz(mask);
    return;
  }
#endif
  while (p < end && *p != '=') *out++ = byteOf(*p++);
}

/// Decodes consecutive "=XX" escapes.
void decodeEscapes(const char*& p, const char* end, std::uint8_t*& out) noexcept {
  while (end - p >= 3 && *p == '=') {
    const std::uint16_t value = hexPair(p + 1);
    if (value >= kNoHex) return;
    *out++ = static_cast<std::uint8_t>(value);
    p += kEscapeSize;
  }
}

/// Where the line break at p ends: CRLF, LF or a lone CR. p itself when there is none.
const char* afterLineBreak(const char* p, const char* end) noexcept {
  if (p < end && *p == '\r') ++p;
  if (p < end && *p == '\n') ++p;
  return p;
}

/// Where the soft line break that begins with the "=" at p ends; null when there is none. The end of the text
/// counts as a line break.
const char* afterSoftBreak(const char* p, const char* end) noexcept {
  ++p;
  while (p < end && isBlankAscii(*p)) ++p;
  if (p == end) return p;
  const char* const after = afterLineBreak(p, end);
  return after == p ? nullptr : after;
}

}  // namespace

void decodeNonEscape(const char*& p, const char* end, std::uint8_t*& out) noexcept {
  if (const char* const after = afterSoftBreak(p, end)) {
    p = after;
  } else {
    *out++ = '=';
    ++p;
  }
}

std::size_t decodePortable(std::string_view text, std::uint8_t* out) noexcept {
  const std::uint8_t* const begin = out;
  const char* p = text.data();
  const char* const end = p + text.size();
  while (p < end) {
    copyPlain(p, end, out);
    const char* const escape = p;
    decodeEscapes(p, end, out);
    if (p == escape && p < end) decodeNonEscape(p, end, out);
  }
  return static_cast<std::size_t>(out - begin);
}

char* encodeUnbrokenPortable(std::string_view bytes, char* to) noexcept {
  constexpr std::size_t kBlock = 16;
  const char* p = bytes.data();
  const char* const end = p + bytes.size();
  while (end - p >= std::ptrdiff_t{kBlock}) {
    if (literalRun(p, kBlock) == kBlock) {
      std::memcpy(to, p, kBlock);
      to += kBlock;
    } else {
      for (std::size_t i = 0; i < kBlock; ++i) to = putCode(p[i], to);
    }
    p += kBlock;
  }
  while (p < end) to = putCode(*p++, to);
  return to;
}

bool needsEscapedStartAfter(char first, std::string_view line) noexcept {
  if (first == '.') return true;
  if (first == 'F') return line.starts_with("From ") || line == "From=20";
  if (line.size() < 3 || line[1] != '-') return false;
  if (line[2] != '=') return !isSpaceAscii(line[2]);
  return !isSpaceAscii(static_cast<char>(hexPair(line.data() + 3)));
}

std::size_t plainLinesPortable(std::string_view text) noexcept {
  std::size_t done = 0;
  for (;;) {
    const std::string_view rest = text.substr(done);
    const std::size_t n = literalRun(rest.data(), std::min(rest.size(), kMaxLine + 1));
    if (n > kMaxLine || rest.substr(n, kBreak.size()) != kBreak) return done;
    const std::string_view line = rest.substr(0, n);
    if (n && (isBlankAscii(line.back()) || needsEscapedStart(line))) return done;
    done += n + kBreak.size();
  }
}

#if MAILTREE_HAS_AVX2_PATH

namespace {

char* encodeUnbroken(std::string_view bytes, std::size_t readable, char* to) noexcept {
  return hasAvx2() ? encodeUnbrokenAvx2(bytes, readable, to) : encodeUnbrokenPortable(bytes, to);
}

std::size_t plainLines(std::string_view text) noexcept {
  return hasAvx2() ? plainLinesAvx2(text) : plainLinesPortable(text);
}

bool hasSpans() noexcept { return hasAvx512(); }
char* encodeSpan(std::string_view bytes, char* to, LineEnds& ends) noexcept {
  return encodeSpanAvx512(bytes, to, ends);
}

}  // namespace

std::size_t decode(std::string_view text, std::uint8_t* out) noexcept {
  if (hasAvx512()) return decodeAvx512(text, out);
  return hasAvx2() ? decodeAvx2(text, out) : decodePortable(text, out);
}

#else

namespace {

char* encodeUnbroken(std::string_view bytes, std::size_t, char* to) noexcept {
  return encodeUnbrokenPortable(bytes, to);
}
std::size_t plainLines(std::string_view text) noexcept { return plainLinesPortable(text); }
constexpr bool hasSpans() noexcept { return false; }
char* encodeSpan(std::string_view, char* to, LineEnds&) noexcept { return to; }

}  // namespace

std::size_t decode(std::string_view text, std::uint8_t* out) noexcept { return decodePortable(text, out); }

#endif

namespace {

/// How much of an encoded text fits in `room` before a soft break, without splitting an escape.
std::size_t softLength(const char* text, std::size_t room) noexcept {
  const std::size_t cutsLast = text[room - 1] == '=', cutsTwo = text[room - 2] == '=';
  return room - cutsLast - 2 * cutsTwo;  // without a branch: which of them it is cannot be foreseen
}

/// Bytes copied to the string at a time. The compiler copies more with one string instruction, which is slow
/// at unfavourable alignments.
constexpr std::size_t kPortion = 2048;

/// Breaks text into lines of the right length, through a small buffer so the string grows
/// by pages, not by bytes.
class LineWriter {
 public:
  explicit LineWriter(std::string& out) noexcept : m_out(out) {}

  /// Copies whole lines unchanged.
  void putLines(std::string_view lines) {
    flush();
    m_out.append(lines);
  }

  /// Writes full lines of encoded text, each with a soft break, while more than `kept` characters are left,
  /// at least kMaxLine; returns how much text that took.
  std::size_t putFull(std::string_view text, std::size_t kept) {
    const char* p = text.data();
    const char* const end = p + text.size();
    char* const to = putFull(p, end, kept, next());
    m_used = usedUpTo(to);
    return text.size() - static_cast<std::size_t>(end - p);
  }

  /// Writes all of a line and its line break if any.
  void putLine(std::string_view text, std::string_view lineBreak) {
    const char* const end = text.data() + text.size();
    m_used = usedUpTo(putLine(text.data(), end, lineBreak, next()));
  }

  /// Writes lines with breaks, the first from `begin` on; returns where the text after them begins.
  const char* putLines(const char* begin, const LineEnds& ends) {
    char* to = next();
    for (std::size_t i = 0; i < ends.count; ++i) {
      to = putLine(begin, ends.at[i], kBreak, to);
      begin = ends.at[i] + kBreak.size();
    }
    m_used = usedUpTo(to);
    return begin;
  }

  void flush() {
    m_out.append(m_buffer.data(), m_used);
    m_used = 0;
  }

 private:
  // The place in the buffer is passed on and returned: a member would be stored and loaded again after every
  // character written. Text is copied by whole lines, which is cheaper than copying its exact length:
  // kMaxLine bytes are readable from any place in it.

  char* next() noexcept { return m_buffer.data() + m_used; }
  std::size_t usedUpTo(const char* to) const noexcept {
    return static_cast<std::size_t>(to - m_buffer.data());
  }

  char* makeRoom(char* to) {
    m_used = usedUpTo(to);
    if (m_used > m_buffer.size() - 2 * kMaxLine) flush();
    return next();
  }

  char* putFull(const char*& p, const char* end, std::size_t kept, char* to) {
    while (static_cast<std::size_t>(end - p) > kept) {
      to = makeRoom(to);
      std::size_t room = kMaxLine - 1;
      if (needsEscapedStart(std::string_view(p, end))) {
        to = putEscape(*p++, to);
        room -= kEscapeSize;
      }
      const std::size_t n = softLength(p, room);
      std::memcpy(to, p, kMaxLine);
      std::memcpy(to + n, kSoftBreak.data(), kSoftBreak.size());
      to += n + kSoftBreak.size();
      p += n;
    }
    return to;
  }

  char* putLine(const char* p, const char* end, std::string_view lineBreak, char* to) {
    to = makeRoom(putFull(p, end, kMaxLine, to));
    if (needsEscapedStart(std::string_view(p, end))) {
      // One character becomes three, for which there may be no room.
      to = putFull(p, end, kMaxLine + 1 - kEscapeSize, to);
      to = makeRoom(to);
      if (needsEscapedStart(std::string_view(p, end))) to = putEscape(*p++, to);
    }
    std::memcpy(to, p, kMaxLine);
    to += end - p;
    std::memcpy(to, kBreak.data(), kBreak.size());
    return to + lineBreak.size();
  }

  std::string& m_out;
  std::size_t m_used = 0;
  std::array<char, kPortion> m_buffer;
};

/// Encodes one piece of a text: first its bytes, then the lines of the encoded text.
class PieceEncoder {
 public:
  PieceEncoder(std::string_view unfinished, std::string& out) noexcept
      : m_lines(out), m_end(unfinished.copy(m_text.data(), m_text.size())) {}

  /// Returns the unencoded rest: a CR that may belong to a line break, or nothing.
  std::string_view encode(std::string_view data, bool last) {
    while (!data.empty()) {
      if (unfinished().empty() && takePlainLines(data)) continue;
      if (takeSpan(data)) continue;
      std::string_view piece = data.substr(0, kPiece);
      const std::size_t lineEnd = piece.find(kBreak);
      const bool isOpen = lineEnd == std::string_view::npos && !(last && piece.size() == data.size());
      piece = piece.substr(0, lineEnd);
      if (isOpen && piece.ends_with('\r')) piece.remove_suffix(1);
      append(piece, data.size());
      data.remove_prefix(piece.size());
      if (lineEnd != std::string_view::npos) {
        finishLine(kBreak);
        data.remove_prefix(kBreak.size());
      } else if (data == "\r" && !last) {
        break;
      }
    }
    if (last && !unfinished().empty()) finishLine({});
    m_lines.flush();
    return data;
  }

  /// Appends bytes of a line whose end was not seen; `readable` bytes are readable from the first one on.
  void append(std::string_view piece, std::size_t readable) {
    if (m_begin) moveToFront();
    m_end = offsetOf(encodeUnbroken(piece, readable, m_text.data() + m_end));
    breakSoftly();
  }

  /// Ends the line with a line break or at the end of the text.
  void finishLine(std::string_view lineBreak) {
    if (!unfinished().empty() && isBlankAscii(unfinished().back()))
      m_end = offsetOf(putEscape(unfinished().back(), m_text.data() + m_end - 1));
    m_lines.putLine(unfinished(), lineBreak);
    m_begin = m_end = 0;
  }

  /// Encoded text of the unfinished line.
  std::string_view unfinished() const noexcept { return {m_text.data() + m_begin, m_end - m_begin}; }

 private:
  /// Kept back: the possible end of a line, which may be one byte longer than the others and whose last blank
  /// is escaped, and the bytes that decide about escaping the beginning of a line.
  static constexpr std::size_t kKeep = kMaxLine + kEscapeSize;

  /// Removes lines that need no change from the front.
  bool takePlainLines(std::string_view& data) {
    const std::size_t n = plainLines(data.substr(0, kPortion));
    if (n == 0) return false;
    m_lines.putLines(data.substr(0, n));
    data.remove_prefix(n);
    return true;
  }

  /// Encodes a piece with all its lines, on a processor where that is fast, and removes it from the front.
  bool takeSpan(std::string_view& data) {
    // A blank before a line break must be in the same piece as the break.
    if (!hasSpans() || data.size() <= kSpanReach || data[0] == '\r') return false;
    std::string_view piece = data.substr(0, std::min(kPiece, data.size() - kSpanReach));
    if (piece.ends_with('\r')) piece.remove_suffix(1);
    if (m_begin) moveToFront();
    LineEnds ends;
    m_end = offsetOf(encodeSpan(piece, m_text.data() + m_end, ends));
    m_begin = offsetOf(m_lines.putLines(m_text.data() + m_begin, ends));
    breakSoftly();
    data.remove_prefix(piece.size());
    return true;
  }

  /// Writes lines that are full whatever follows.
  void breakSoftly() { m_begin += m_lines.putFull(unfinished(), kKeep); }

  std::size_t offsetOf(const char* p) const noexcept { return static_cast<std::size_t>(p - m_text.data()); }

  void moveToFront() noexcept {
    m_end -= m_begin;
    std::memmove(m_text.data(), m_text.data() + m_begin, m_end);
    m_begin = 0;
  }

  LineWriter m_lines;
  /// The text kept back and one encoded piece; after them the bytes that m_lines may read,
  /// kMaxLine from any place.
  std::array<char, kEscapeSize * kPiece + 2 * kMaxLine + kUnbrokenMargin> m_text;
  std::size_t m_begin = 0;
  std::size_t m_end;
};

}  // namespace

void Encoder::encode(std::string_view data, bool last, std::string& out) {
  PieceEncoder encoder(m_unfinished, out);
  if (m_carriageReturn && data.starts_with('\n')) {
    encoder.finishLine(kBreak);
    data.remove_prefix(1);
  } else if (m_carriageReturn && (last || !data.empty())) {
    encoder.append("\r", 1);
  } else if (m_carriageReturn) {
    return;
  }
  m_carriageReturn = !encoder.encode(data, last).empty();
  m_unfinished.assign(encoder.unfinished());
}

void decodeQ(std::string_view payload, std::string& out) {
  const std::size_t before = out.size();
  out.resize(before + payload.size());
  char* to = out.data() + before;
  const char* p = payload.data();
  const char* const end = p + payload.size();
  while (p < end) {
    const std::uint16_t value = *p == '=' && end - p >= 3 ? hexPair(p + 1) : kNoHex;
    *to++ = value < kNoHex ? static_cast<char>(value) : *p == '_' ? ' ' : *p;
    p += value < kNoHex ? kEscapeSize : 1;
  }
  out.resize(static_cast<std::size_t>(to - out.data()));
}

}  // namespace mailtree::quotedPrintable
