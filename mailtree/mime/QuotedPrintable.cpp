#include "mailtree/mime/QuotedPrintable.h"

#include <algorithm>
#include <array>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "mailtree/base/Ascii.h"

namespace mailtree::quotedPrintable {
namespace {

constexpr std::size_t kMaxLine = 76;
constexpr std::size_t kEscapeSize = 3;
constexpr char kUpperHex[] = "0123456789ABCDEF";

constexpr unsigned char byteOf(char c) noexcept { return static_cast<unsigned char>(c); }

// Both searches below are the inner loops of this file: 16 bytes at a time where the compiler says that every
// processor it builds for can do that.

/// Bytes that an encoded text may hold as they are, blanks included.
constexpr bool isLiteral(char c) noexcept { return (c >= ' ' && c <= '~' && c != '=') || c == '\t'; }

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

constexpr std::uint16_t kNoHex = 0x100;

/// Value of each hexadecimal digit, kNoHex for anything else, shifted left by Shift.
template <int Shift>
constexpr std::array<std::uint16_t, 256> kHex = [] {
  std::array<std::uint16_t, 256> values{};
  for (int c = 0; c < 256; ++c) {
    const int value = hexValue(static_cast<char>(c));
    values[static_cast<unsigned>(c)] = value < 0 ? kNoHex : static_cast<std::uint16_t>(value << Shift);
  }
  return values;
}();

/// The byte of two hexadecimal digits, or something of kNoHex and above.
std::uint16_t hexPair(const char* p) noexcept { return kHex<4>[byteOf(p[0])] | kHex<0>[byteOf(p[1])]; }

/// Decodes "=XX" for as long as they follow one another.
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

/// Where the soft line break that begins with the "=" at p ends; null when it is none. The end of the text is
/// one too.
const char* afterSoftBreak(const char* p, const char* end) noexcept {
  ++p;
  while (p < end && isBlankAscii(*p)) ++p;
  if (p == end) return p;
  const char* const after = afterLineBreak(p, end);
  return after == p ? nullptr : after;
}

}  // namespace

std::size_t decode(std::string_view text, std::uint8_t* out) noexcept {
  const std::uint8_t* const begin = out;
  const char* p = text.data();
  const char* const end = p + text.size();
  while (p < end) {
    copyPlain(p, end, out);
    if (p == end) break;
    const char* const escape = p;
    decodeEscapes(p, end, out);
    if (p != escape) continue;
    if (const char* const after = afterSoftBreak(p, end)) {
      p = after;
    } else {
      *out++ = '=';
      ++p;
    }
  }
  return static_cast<std::size_t>(out - begin);
}

namespace {

/// Each byte's escape, and a fourth byte so that a copy is one store.
constexpr std::array<std::array<char, kEscapeSize + 1>, 256> kEscapes = [] {
  std::array<std::array<char, kEscapeSize + 1>, 256> escapes{};
  for (unsigned c = 0; c < 256; ++c) escapes[c] = {'=', kUpperHex[c >> 4], kUpperHex[c & 15], '\0'};
  return escapes;
}();

/// How far ahead a decision may look: "From " from its first byte, a blank and the line break behind it.
constexpr std::size_t kLookahead = 5;

/// One piece of text on its way out, through a small buffer so that the string grows by pages and not by
/// bytes.
class PieceEncoder {
 public:
  PieceEncoder(std::string_view data, bool last, std::size_t lineLength, std::string& out) noexcept
      : m_data(data), m_last(last), m_lineLength(lineLength), m_out(out) {}

  /// Encodes what can be decided without more text; how many bytes that was.
  std::size_t run() {
    while (m_position < m_data.size() && (m_last || m_data.size() - m_position > kLookahead)) step();
    flush();
    return m_position;
  }

  std::size_t lineLength() const noexcept { return m_lineLength; }

 private:
  void step() {
    if (m_used > m_buffer.size() - 2 * kMaxLine) flush();
    const char c = m_data[m_position];
    if (c == '\r' && breakAt(m_position)) {
      put("\r\n");
      m_lineLength = 0;
      m_position += 2;
    } else if (m_lineLength == 0 && opensWithTrouble()) {
      putEscape();
    } else {
      const std::size_t run = usableRun();
      run ? putRun(run) : putEscape();
    }
  }

  bool breakAt(std::size_t position) const noexcept { return m_data.substr(position, 2) == "\r\n"; }

  /// Whether a line ends here for good: nothing but the text's end or a hard break follows.
  bool lineEndsAt(std::size_t position) const noexcept {
    return breakAt(position) || (m_last && position == m_data.size());
  }

  /// Mail transports change a leading dot and a leading "From "; two dashes with something behind them could be the
  /// boundary of a multipart around this text.
  bool opensWithTrouble() const noexcept {
    const std::string_view ahead = m_data.substr(m_position, kLookahead);
    const bool mayBeBoundary = ahead.size() > 2 && ahead.starts_with("--") && !isSpaceAscii(ahead[2]);
    return ahead[0] == '.' || mayBeBoundary || ahead == "From ";
  }

  /// Literal bytes at the position, one more than fits on a line at most, without a blank that would end the
  /// line.
  std::size_t usableRun() const noexcept {
    const std::size_t known = m_last ? m_data.size() - m_position : m_data.size() - m_position - kLookahead;
    const std::size_t run = literalRun(m_data.data() + m_position, std::min(known, kMaxLine + 1));
    const bool endsInBlank =
        run && isBlankAscii(m_data[m_position + run - 1]) && lineEndsAt(m_position + run);
    return endsInBlank ? run - 1 : run;
  }

  /// A line may be full only when it ends for good; otherwise its last place belongs to the "=" of a soft
  /// break.
  bool fits(std::size_t size, std::size_t next) const noexcept {
    const std::size_t length = m_lineLength + size;
    return length < kMaxLine || (length == kMaxLine && lineEndsAt(next));
  }

  void putRun(std::size_t run) {
    if (fits(run, m_position + run)) {
      putOnLine(m_data.substr(m_position, run));
      m_position += run;
      return;
    }
    const std::size_t part = kMaxLine - 1 - m_lineLength;
    put(m_data.substr(m_position, part));
    m_position += part;
    breakSoftly();
  }

  void putEscape() {
    if (!fits(kEscapeSize, m_position + 1)) return breakSoftly();
    // Text that is not ASCII comes in runs: as many as leave room for the "=" of a soft break go the same way
    // at once.
    const std::size_t room = (kMaxLine - 1 - std::min(kMaxLine - 1, m_lineLength)) / kEscapeSize;
    const std::size_t most = std::min(std::max<std::size_t>(room, 1), m_data.size() - m_position);
    const char* p = m_data.data() + m_position;
    char* to = m_buffer.data() + m_used;
    std::size_t n = 0;
    do {
      std::memcpy(to, kEscapes[byteOf(p[n])].data(), kEscapeSize + 1);
      to += kEscapeSize;
    } while (++n < most && is8bit(p[n]));
    m_used += n * kEscapeSize;
    m_lineLength += n * kEscapeSize;
    m_position += n;
  }

  void breakSoftly() {
    put("=\r\n");
    m_lineLength = 0;
  }

  void putOnLine(std::string_view bytes) {
    put(bytes);
    m_lineLength += bytes.size();
  }

  void put(std::string_view bytes) {
    std::memcpy(m_buffer.data() + m_used, bytes.data(), bytes.size());
    m_used += bytes.size();
  }

  void flush() {
    m_out.append(m_buffer.data(), m_used);
    m_used = 0;
  }

  std::string_view m_data;
  bool m_last;
  std::size_t m_lineLength;
  std::string& m_out;
  std::size_t m_position = 0;
  std::size_t m_used = 0;
  std::array<char, 4096> m_buffer;
};

}  // namespace

void Encoder::encode(std::string_view data, bool last, std::string& out) {
  const auto encodePiece = [&](std::string_view piece, bool isLast) {
    PieceEncoder encoder(piece, isLast, m_lineLength, out);
    const std::size_t done = encoder.run();
    m_lineLength = encoder.lineLength();
    return done;
  };

  if (!m_pending.empty()) {
    // What was kept back, and enough behind it to decide on all of it.
    const std::size_t kept = m_pending.size();
    const std::string_view ahead = data.substr(0, kLookahead);
    m_pending.append(ahead);
    const std::size_t done = encodePiece(m_pending, last && ahead.size() == data.size());
    if (done < kept) {
      m_pending.erase(0, done);
      return;
    }
    m_pending.clear();
    data.remove_prefix(done - kept);
  }
  data.remove_prefix(encodePiece(data, last));
  m_pending.assign(data);
  if (last) m_lineLength = 0;
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
