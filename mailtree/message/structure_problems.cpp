// message/structure_problems.cpp - parts that one program finds and another does not: boundaries, encodings.
#include <algorithm>
#include <array>
#include <string>
#include <unordered_set>

#include "mailtree/base/Utf.h"
#include "mailtree/message/problem_list.h"
#include "mailtree/mime/BoundaryLines.h"

namespace mailtree {
namespace {

using Kind = Problem::Kind;
using Severity = Problem::Severity;

constexpr std::size_t kLongestBoundary = 70;  // RFC 2046, 5.1.1

std::string_view valueOf(const std::vector<ReceivedField>& fields, std::string_view name,
                         std::optional<std::size_t>& offset) {
  for (const ReceivedField& field : fields)
    if (equalsNoCase(field.name, name)) return offset = field.offset, trim(field.value);
  return {};
}

// Transfer encodings

constexpr std::string_view kEncodings[] = {
    "base64", "quoted-printable", "x-uuencode", "x-uue", "uuencode", "7bit", "8bit", "binary"};

// Base64 and quoted-printable

enum Base64Kind : unsigned char { other, digit, pad, blank };

constexpr auto kBase64Kinds = [] {
  std::array<unsigned char, 256> kinds{};
  for (int c = 0; c < 256; ++c) {
    const char character = static_cast<char>(c);
    if (isAlnumAscii(character) || c == '+' || c == '/') kinds[static_cast<std::size_t>(c)] = digit;
    if (c == '=') kinds[static_cast<std::size_t>(c)] = pad;
    if (isSpaceAscii(character)) kinds[static_cast<std::size_t>(c)] = blank;
  }
  return kinds;
}();

/// What decoders treat differently: they stop, skip, or go on.
void readBase64(const ReceivedEntity& entity, std::string_view body, ProblemList& problems) {
  std::size_t digits = 0, strays = 0, firstStray = 0, firstAfterEnd = 0;
  bool isPadded = false;
  for (std::size_t at = 0; at < body.size(); ++at) {
    const unsigned char kind = kBase64Kinds[static_cast<unsigned char>(body[at])];
    if (kind == blank) continue;
    if (kind == pad) {
      isPadded = true;
    } else if (kind == other) {
      if (strays++ == 0) firstStray = at;
    } else {
      ++digits;
      if (isPadded && firstAfterEnd == 0) firstAfterEnd = at;
    }
  }
  const auto add = [&](Severity severity, std::string text, std::size_t at) {
    problems.add(entity.row, severity, Kind::ambiguous, std::move(text), entity.bodyBegin + at);
  };
  if (strays > 0)
    add(Severity::warning,
        "the base64 has characters that do not belong to it (" + std::to_string(strays) + ")", firstStray);
  if (firstAfterEnd > 0)
    add(Severity::danger, "the base64 goes on after its end: some programs stop there", firstAfterEnd);
  else if (strays == 0 && (isPadded ? digits % 4 == 1 : digits % 4 != 0))
    add(Severity::warning, "the base64 is cut off", body.size());
}

void readQuotedPrintable(const ReceivedEntity& entity, std::string_view body, ProblemList& problems) {
  std::size_t strays = 0, first = 0;
  for (std::size_t at = body.find('='); at != std::string_view::npos; at = body.find('=', at + 1)) {
    const std::string_view rest = body.substr(at + 1, 2);
    if (rest.size() == 2 && hexValue(rest[0]) >= 0 && hexValue(rest[1]) >= 0) continue;
    const std::size_t next = body.find_first_not_of(" \t", at + 1);
    if (next == std::string_view::npos || body[next] == '\r' || body[next] == '\n') continue;
    if (strays++ == 0) first = at;
  }
  if (strays > 0)
    problems.add(entity.row, Severity::note, Kind::malformed,
                 "the quoted-printable has \"=\" that escapes nothing (" + std::to_string(strays) + ")",
                 entity.bodyBegin + first);
}

void read8bit(const ReceivedEntity& entity, std::string_view body, ProblemList& problems) {
  if (isAscii(body)) return;
  const auto first = static_cast<std::size_t>(std::ranges::find_if(body, is8bit) - body.begin());
  problems.add(entity.row, Severity::note, Kind::malformed,
               "there are 8-bit bytes in what is declared as 7-bit", entity.bodyBegin + first);
}

void readBody(const ReceivedEntity& entity, std::string_view body, ProblemList& problems) {
  if (equalsNoCase(entity.encoding, "base64")) return readBase64(entity, body, problems);
  if (equalsNoCase(entity.encoding, "quoted-printable")) readQuotedPrintable(entity, body, problems);
  if (!equalsNoCase(entity.encoding, "8bit") && !equalsNoCase(entity.encoding, "binary"))
    read8bit(entity, body, problems);
}

// Boundaries

/// Hashes that grow with a text, so that all its beginnings are looked up in one pass.
class GrowingHash {
 public:
  std::uint64_t add(char c) noexcept {
    return m_value = (m_value ^ static_cast<unsigned char>(c)) * 0x100000001B3;
  }

 private:
  std::uint64_t m_value = 0xCBF29CE484222325;
};

class Boundaries {
 public:
  void add(std::string_view boundary) {
    m_whole.emplace(boundary);
    GrowingHash hash;
    std::uint64_t value = 0;
    for (const char c : boundary) value = hash.add(c);
    m_hashes.insert(value);
    m_longest = std::max(m_longest, boundary.size());
  }
  bool isEmpty() const noexcept { return m_whole.empty(); }
  bool has(std::string_view text) const { return m_whole.contains(std::string(text)); }
  /// Whether the text is not a boundary, but begins with one.
  bool isNearMiss(std::string_view text) const {
    if (has(text) || (text.ends_with("--") && has(text.substr(0, text.size() - 2)))) return false;
    return beginsWithAnother(text);
  }
  bool beginsWithAnother(std::string_view text) const {
    GrowingHash hash;
    for (std::size_t i = 0; i + 1 < text.size() && i < m_longest; ++i)
      if (m_hashes.contains(hash.add(text[i])) && has(text.substr(0, i + 1))) return true;
    return false;
  }

 private:
  std::unordered_set<std::string> m_whole;
  std::unordered_set<std::uint64_t> m_hashes;
  std::size_t m_longest = 0;
};

class BoundaryChecks {
 public:
  BoundaryChecks(const ReceivedEntities& received, ProblemList& problems)
      : m_received(received), m_problems(problems) {}

  void run() {
    for (const ReceivedEntity& entity : m_received.all())
      if (!entity.boundary.empty()) readBoundary(entity, entity.boundary);
    if (!m_boundaries.isEmpty()) readLines();
  }

 private:
  void readBoundary(const ReceivedEntity& entity, std::string_view boundary) {
    const auto add = [&](Severity severity, const char* text) {
      m_problems.add(entity.row, severity, Kind::ambiguous, text, entity.begin);
    };
    if (m_boundaries.has(boundary))
      add(Severity::danger, "the boundary is that of another multipart too");
    else if (m_boundaries.beginsWithAnother(boundary))
      add(Severity::warning, "the boundary begins with that of another multipart");
    if (boundary.size() > kLongestBoundary) add(Severity::note, "the boundary is too long");
    if (std::ranges::any_of(boundary, [](char c) { return is8bit(c) || isControlAscii(c); }))
      add(Severity::danger, "the boundary has characters that no boundary can have");
    m_boundaries.add(boundary);
  }

  /// Every line that begins with "--" is looked at once; entities begin in the order of the lines.
  void readLines() {
    const std::string_view text = m_received.text();
    auto entity = m_received.all().begin();
    const auto end = m_received.all().end();
    std::size_t from = std::min(text.size(), entity->bodyBegin);
    for (std::size_t at; (at = findDashLine(text, from)) != std::string_view::npos;) {
      const DashLine line = dashLineAt(text, at);
      from = line.next;
      while (entity != end && entity->begin < line.next) ++entity;
      const bool beginsPart = entity != end && entity->begin == line.next;
      if (beginsPart || trimLeft(text.substr(line.next)).empty()) continue;
      const int row = std::prev(entity)->row;
      if (m_boundaries.has(line.content) && !std::exchange(m_hasLost, true))
        m_problems.add(row, Severity::danger, Kind::ambiguous,
                       "a boundary begins no part here, but may in other programs", at);
      else if (m_boundaries.isNearMiss(line.content) && !std::exchange(m_hasNearMiss, true))
        m_problems.add(row, Severity::danger, Kind::ambiguous,
                       "a line begins with a boundary, and some programs take it for one", at);
    }
  }

  const ReceivedEntities& m_received;
  ProblemList& m_problems;
  Boundaries m_boundaries;
  bool m_hasLost = false, m_hasNearMiss = false;
};

}  // namespace

void findEncodingProblems(int row, const PartRow& part, const std::vector<ReceivedField>& fields,
                          ProblemList& problems) {
  if (part.contentType == "message/partial")
    problems.add(row, Severity::warning, Kind::ambiguous,
                 "the message is a piece of a larger one, which filters do not see whole");
  std::optional<std::size_t> offset;
  const std::string_view value = valueOf(fields, "Content-Transfer-Encoding", offset);
  if (value.empty()) return;
  const bool isKnown = std::ranges::any_of(kEncodings, [value](auto e) { return equalsNoCase(e, value); });
  if (!isKnown)
    return problems.add(row, Severity::warning, Kind::ambiguous,
                        "the Content-Transfer-Encoding " + quoted(value) + " is unknown", offset);
  if (!equalsNoCase(value, "base64") && !equalsNoCase(value, "quoted-printable")) return;
  // Some programs decode what is inside, others read it as it is (RFC 2045, 6.4).
  if (beginsWithNoCase(part.contentType, "multipart/"))
    problems.add(row, Severity::danger, Kind::ambiguous,
                 "a multipart is declared to be in " + lowerCase(value), offset);
  else if (part.isMessage())
    problems.add(row, Severity::danger, Kind::ambiguous,
                 "an attached message is declared to be in " + lowerCase(value), offset);
}

void findStructureProblems(const ReceivedEntities& received, ProblemList& problems) {
  for (const ReceivedEntity& entity : received.all())
    if (entity.isLeaf)
      readBody(entity, received.text().substr(entity.bodyBegin, entity.end - entity.bodyBegin), problems);
  BoundaryChecks(received, problems).run();
}

}  // namespace mailtree
