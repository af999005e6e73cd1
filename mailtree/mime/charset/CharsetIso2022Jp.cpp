// mime/charset/CharsetIso2022Jp.cpp - iso-2022-jp (RFC 1468), as mailers really write it.
//
// Both directions use euc-jp, which holds the same characters in the same rows with the top bits set. This
// also covers the rows that Windows added (circled numbers, names with rare kanji) and half-width kana.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "mailtree/mime/charset/CharsetInternal.h"

namespace mailtree {
namespace {

constexpr char kEscape = '\x1B';
constexpr char kShiftOut = '\x0E';
constexpr char kShiftIn = '\x0F';
constexpr char kEucKana = '\x8E';
constexpr char kEucSupplement = '\x8F';

constexpr unsigned byteOf(char c) noexcept { return static_cast<unsigned char>(c); }

enum class Set { ascii, roman, kana, kanji, supplement };

struct Designation {
  std::string_view sequence;  ///< After ESC.
  Set set;
};

constexpr Designation kDesignations[] = {
    {"(B", Set::ascii}, {"(J", Set::roman},  {"(I", Set::kana},   {"$B", Set::kanji},
    {"$@", Set::kanji}, {"$(B", Set::kanji}, {"$(@", Set::kanji}, {"$(D", Set::supplement},
};

/// Announces a newer edition of the set that follows; only the designation after it matters.
constexpr std::string_view kRevision = "&@";

constexpr bool isGraphic(char c) noexcept { return c > ' ' && c < '\x7F'; }
constexpr char withTopBit(char c) noexcept { return static_cast<char>(byteOf(c) | 0x80); }
constexpr char withoutTopBit(char c) noexcept { return static_cast<char>(byteOf(c) & 0x7F); }

// Runs are measured in words of eight bytes.

constexpr std::uint64_t eightTimes(unsigned byte) noexcept {
  return std::uint64_t{0x0101010101010101} * byte;
}
constexpr std::uint64_t kTopBits = eightTimes(0x80);

constexpr bool anyIs(std::uint64_t word, char c) noexcept {
  const std::uint64_t zeroes = word ^ eightTimes(byteOf(c));
  return ((zeroes - eightTimes(1)) & ~zeroes & kTopBits) != 0;
}

constexpr bool allGraphic(std::uint64_t word) noexcept {
  if (word & kTopBits) return false;
  const std::uint64_t above = word + eightTimes(0x80 - '!'), beyond = word + eightTimes(0x80 - '\x7F');
  return (above & ~beyond & kTopBits) == kTopBits;
}

constexpr bool isPlain(char c) noexcept { return c != kEscape && c != kShiftOut && byteOf(c) < 0x80; }
constexpr bool allPlain(std::uint64_t word) noexcept {
  return !(word & kTopBits) && !anyIs(word, kEscape) && !anyIs(word, kShiftOut);
}

/// The longest prefix of a text whose words, and then bytes, are of a kind.
template <class AreWords, class AreBytes>
std::string_view runOf(std::string_view text, AreWords areWords, AreBytes areBytes) noexcept {
  std::uint64_t word = 0;
  std::size_t n = 0;
  for (; text.size() - n >= sizeof word; n += sizeof word) {
    std::memcpy(&word, text.data() + n, sizeof word);
    if (!areWords(word)) break;
  }
  while (n < text.size() && areBytes(text[n])) ++n;
  return text.substr(0, n);
}

class Reader {
 public:
  Reader(std::string_view bytes, ByteSink& out) noexcept : m_rest(bytes), m_out(out) {}

  bool run() {
    while (!m_rest.empty()) {
      if (m_rest.front() == kEscape)
        designate();
      else
        take();
    }
    flush();
    return m_whole;
  }

 private:
  void designate() {
    m_rest.remove_prefix(1);
    if (m_rest.starts_with(kRevision)) return m_rest.remove_prefix(kRevision.size());
    for (const auto& [sequence, set] : kDesignations) {
      if (!m_rest.starts_with(sequence)) continue;
      m_rest.remove_prefix(sequence.size());
      m_set = set;
      return;
    }
    damage();
  }

  void take() {
    const char c = m_rest.front();
    const bool single = m_set == Set::ascii || m_set == Set::roman;
    if (single && isPlain(c) && !m_shifted) return takeRun();
    if (m_set == Set::kanji && !m_shifted && takePairs()) return;
    m_rest.remove_prefix(1);
    if (c == '\r' || c == '\n') m_set = Set::ascii, m_shifted = false;  // every line begins in ASCII
    if (c == kShiftOut || c == kShiftIn) {
      m_shifted = c == kShiftOut;
    } else if (byteOf(c) >= 0x80) {
      damage();
    } else if (!isGraphic(c)) {
      m_euc += c;
    } else if (m_set == Set::kana || m_shifted) {
      m_euc += kEucKana;
      m_euc += withTopBit(c);
    } else {
      takePair(c);
    }
  }

  /// Copies plain characters up to the next special one.
  void takeRun() {
    const std::string_view run = runOf(m_rest, allPlain, isPlain);
    m_rest.remove_prefix(run.size());
    if (m_set == Set::ascii) {
      m_euc += run;
      return;
    }
    for (const char c : run) {
      if (c == '\\') {
        putUtf8("\xC2\xA5");  // yen sign
      } else if (c == '~') {
        putUtf8("\xE2\x80\xBE");  // overline
      } else {
        m_euc += c;
      }
    }
  }

  /// Copies whole pairs; false when there are none.
  bool takePairs() {
    const std::size_t size = runOf(m_rest, allGraphic, isGraphic).size() & ~std::size_t{1};
    const std::size_t before = m_euc.size();
    m_euc += m_rest.substr(0, size);
    std::transform(m_euc.begin() + static_cast<std::ptrdiff_t>(before), m_euc.end(),
                   m_euc.begin() + static_cast<std::ptrdiff_t>(before), withTopBit);
    m_rest.remove_prefix(size);
    return size != 0;
  }

  void takePair(char first) {
    if (m_rest.empty() || !isGraphic(m_rest.front())) return damage();
    if (m_set == Set::supplement) m_euc += kEucSupplement;
    m_euc += withTopBit(first);
    m_euc += withTopBit(m_rest.front());
    m_rest.remove_prefix(1);
  }

  void putUtf8(std::string_view utf8) {
    flush();
    m_out.append(utf8);
  }

  void damage() {
    putUtf8(kReplacementUtf8);
    m_whole = false;
  }

  void flush() {
    if (m_euc.empty()) return;
    m_whole &= decodeDoubleByte(kCpEucJp, m_euc, m_out);
    m_euc.clear();
  }

  std::string_view m_rest;
  ByteSink& m_out;
  Set m_set = Set::ascii;
  bool m_shifted = false;  ///< Between SO and SI: half-width kana in the old 7-bit form.
  bool m_whole = true;
  std::string m_euc;  ///< Not decoded yet.
};

/// Whether the text uses the Chinese, Korean, Latin or Greek sets of iso-2022-jp-2 (RFC
/// 1554), which ICU decodes.
bool designatesOtherLanguages(std::string_view bytes) noexcept {
  constexpr std::string_view kOthers[] = {"\x1B$A", "\x1B$(A", "\x1B$(C", "\x1B.A", "\x1B.F"};
  return std::any_of(std::begin(kOthers), std::end(kOthers), [bytes](std::string_view sequence) {
    return bytes.find(sequence) != std::string_view::npos;
  });
}

constexpr std::string_view designationOf(Set set) noexcept {
  const auto* const found = std::find_if(std::begin(kDesignations), std::end(kDesignations),
                                         [set](const auto& row) { return row.set == set; });
  return found->sequence;
}

/// Appends a designation where the set changes.
void switchTo(Set wanted, Set& current, std::string& out) {
  if (wanted == current) return;
  out += kEscape;
  out += designationOf(wanted);
  current = wanted;
}

}  // namespace

bool isIso2022Jp(int codePage) noexcept { return codePage >= kCpIso2022Jp && codePage <= kCpIso2022JpShift; }

bool decodeIso2022Jp(std::string_view bytes, ByteSink& out) {
  const std::size_t before = out.size();
  if (Reader(bytes, out).run()) return true;
  if (!designatesOtherLanguages(bytes)) return false;

  std::string other;
  ByteSink sink(other);
  if (!decodeWithIcu("ISO-2022-JP-2", bytes, sink)) return false;
  out.shrink(out.size() - before);
  out.append(other);
  return true;
}

bool encodeIso2022Jp(std::string_view utf8, ByteSink& out) {
  std::string euc;
  ByteSink sink(euc);
  bool isComplete = encodeWithTable(kCpEucJp, utf8, sink);
  std::string text;
  Set set = Set::ascii;
  for (std::size_t i = 0; i < euc.size();) {
    const char c = euc[i++];
    if (byteOf(c) <= 0xA0 && c != kEucKana && c != kEucSupplement) {
      switchTo(Set::ascii, set, text);
      // A shift character of the text would be read as one of ours; C1 controls have no 7-bit form.
      const bool unwritable = c == kEscape || c == kShiftOut || c == kShiftIn || byteOf(c) >= 0x80;
      isComplete &= !unwritable;
      text += unwritable ? '?' : c;
      continue;
    }
    if (c == kEucSupplement) {
      // Few programs know the supplementary set, and RFC 1468 cannot express it.
      switchTo(Set::ascii, set, text);
      text += '?';
      isComplete = false;
      i += 2;
      continue;
    }
    switchTo(c == kEucKana ? Set::kana : Set::kanji, set, text);
    if (c != kEucKana) text += withoutTopBit(c);
    text += withoutTopBit(euc[i++]);
  }
  switchTo(Set::ascii, set, text);
  out.append(text);
  return isComplete;
}

}  // namespace mailtree
