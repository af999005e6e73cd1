// message/field_problems.cpp - header fields that programs read in different ways, or cannot read at all.
#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <optional>
#include <string>

#include "mailtree/base/Search.h"
#include "mailtree/base/Utf.h"
#include "mailtree/message/problem_list.h"
#include "mailtree/mime/charset/Charset.h"
#include "mailtree/mime/header/HeaderParams.h"

namespace mailtree {
namespace {

using Kind = Problem::Kind;
using Severity = Problem::Severity;

struct SingleField {
  std::string_view name;
  Severity severity = Severity::warning;
  bool isOfPart = false;                             ///< RFC 2045: in every part; otherwise in a message.
  std::optional<Severity> ifMissing = std::nullopt;  ///< In a message (RFC 5322, 3.6).
};
constexpr SingleField kSingleFields[] = {
    {"From", Severity::danger, false, Severity::warning},
    {"Sender"},
    {"Reply-To"},
    {"To"},
    {"Cc"},
    {"Bcc"},
    {"Date", Severity::warning, false, Severity::note},
    {"Message-ID", Severity::warning, false, Severity::note},
    {"In-Reply-To"},
    {"References"},
    {"Subject"},
    {"MIME-Version", Severity::note, true},
    {"Content-Type", Severity::danger, true},
    {"Content-Transfer-Encoding", Severity::danger, true},
    {"Content-Disposition", Severity::danger, true},
    {"Content-ID", Severity::note, true},
};

constexpr std::size_t kLongestName = 25;
/// For each size the fields whose names have it, a bit for each: few names are left to compare.
constexpr std::array<std::uint32_t, kLongestName + 1> kFieldsOfSize = [] {
  std::array<std::uint32_t, kLongestName + 1> fields{};
  for (std::size_t i = 0; i < std::size(kSingleFields); ++i)
    fields[kSingleFields[i].name.size()] |= std::uint32_t{1} << i;
  return fields;
}();

/// Parameters of which programs take the first, or the last.
struct SingleParameter {
  std::string_view field, name;
  Severity severity;
};
constexpr SingleParameter kSingleParameters[] = {{"Content-Type", "boundary", Severity::danger},
                                                 {"Content-Type", "charset", Severity::warning},
                                                 {"Content-Type", "name", Severity::danger},
                                                 {"Content-Type", "start", Severity::warning},
                                                 {"Content-Disposition", "filename", Severity::danger}};

/// The first unknown charset of an encoded word; empty when there is none.
std::string_view unknownWordCharset(std::string_view value) {
  if (value.find('?') == std::string_view::npos) return {};  // found fastest
  for (std::size_t at = 0; (at = findSubstring(value, "=?", at)) != std::string_view::npos;) {
    at += 2;
    const std::size_t end = value.find_first_of("? \t\r\n", at);
    if (end == std::string_view::npos) break;
    const std::string_view coding = value.substr(end, 3);
    const bool isWord = coding == "?q?" || coding == "?Q?" || coding == "?b?" || coding == "?B?";
    const std::string_view charset = value.substr(at, std::min(value.find('*', at), end) - at);
    if (isWord && codePageOfCharset(charset) == 0) return charset;
  }
  return {};
}

/// Whether a line of a folded value has nothing but blanks: many programs end the header there.
bool hasBlankLine(std::string_view value) {
  for (std::size_t at = value.find('\n'); at != std::string_view::npos; at = value.find('\n', at)) {
    const std::size_t begin = ++at;
    while (at < value.size() && value[at] != '\n' && isSpaceAscii(value[at])) ++at;
    if (begin < value.size() && (at == value.size() || value[at] == '\n')) return true;
  }
  return false;
}

/// Whether all are ASCII, found out at once for the fields of one text.
bool areAscii(const std::vector<ReceivedField>& fields) {
  if (fields.empty()) return true;
  if (!fields.front().offset)
    return std::ranges::all_of(fields, [](const ReceivedField& field) { return isAscii(field.value); });
  const char* const begin = fields.front().name.data();
  const std::string_view last = fields.back().value;
  return isAscii({begin, static_cast<std::size_t>(last.data() + last.size() - begin)});
}

class FieldChecks {
 public:
  FieldChecks(int row, RepairSet repairs, const std::vector<ReceivedField>& fields, ProblemList& problems)
      : m_row(row),
        m_repairs(repairs),
        m_fields(fields),
        m_areAscii(areAscii(fields)),
        m_problems(problems) {}

  void run() {
    for (const ReceivedField& field : m_fields) count(field);
    for (std::size_t i = 0; i < m_seen.size(); ++i) reportRepeated(kSingleFields[i], m_seen[i]);
    for (const ReceivedField& field : m_fields) {
      if (field.name.empty()) {
        if (!m_hasBadLine)
          add(Severity::warning, Kind::ambiguous, "a line of the header is not a field", field);
        m_hasBadLine = true;
        continue;
      }
      readForm(field);
      readBytes(field);
      if (beginsWithNoCase(field.name, "Content-")) readParameters(field);
    }
    if (m_repairs.has(Repair::headerSyntax) && !m_hasBadLine)
      m_problems.add(m_row, Severity::warning, Kind::repaired, "there is no empty line after the header");
    if (m_row == 0) reportMissing();
  }

 private:
  struct Seen {
    std::size_t count = 0;
    const ReceivedField* second = nullptr;
  };

  void add(Severity severity, Kind kind, std::string text, const ReceivedField& field) {
    m_problems.add(m_row, severity, kind, std::move(text), field.offset);
  }

  void count(const ReceivedField& field) {
    if (field.name.size() > kLongestName) return;
    for (std::uint32_t left = kFieldsOfSize[field.name.size()]; left != 0; left &= left - 1) {
      const auto i = static_cast<std::size_t>(std::countr_zero(left));
      if (!equalsNoCase(field.name, kSingleFields[i].name)) continue;
      if (++m_seen[i].count == 2) m_seen[i].second = &field;
      return;
    }
  }

  void reportRepeated(const SingleField& single, const Seen& seen) {
    if (seen.count < 2 || (m_row != 0 && !single.isOfPart)) return;
    add(single.severity, Kind::ambiguous,
        "the field " + std::string(single.name) + " is there " + inWords(seen.count, "times"), *seen.second);
  }

  void readForm(const ReceivedField& field) {
    if (field.hasBlankBeforeColon)
      add(Severity::warning, Kind::ambiguous, "a blank is before the colon of " + quoted(field.name), field);
    if (hasBlankLine(field.value))
      add(Severity::warning, Kind::ambiguous,
          "a line of the field " + quoted(field.name) + " has only blanks, and may end the header", field);
  }

  void readBytes(const ReceivedField& field) {
    if (!m_areAscii && !isAscii(field.value)) {
      const bool isUtf8 = isValidUtf8(field.value);
      add(isUtf8 ? Severity::note : Severity::warning, Kind::malformed,
          "the field " + quoted(field.name) + " has raw 8-bit bytes" +
              (isUtf8 ? "" : ", which are not utf-8: their charset was guessed"),
          field);
    }
    if (const std::string_view charset = unknownWordCharset(field.value); !charset.empty())
      add(Severity::warning, Kind::malformed,
          "the field " + quoted(field.name) + " has an encoded word in the unknown charset " +
              quoted(charset),
          field);
  }

  void readParameters(const ReceivedField& field) {
    if (std::ranges::count(field.value, ';') > 1) countParameters(field);
    if (equalsNoCase(field.name, "Content-Type") && containsNoCase(field.value, "boundary*"))
      add(Severity::danger, Kind::ambiguous,
          "the boundary is given in a form that many programs do not read (RFC 2231)", field);
  }

  void countParameters(const ReceivedField& field) {
    std::string value(field.value);  // unfolded
    std::erase_if(value, [](char c) { return c == '\r' || c == '\n'; });
    for (const SingleParameter& single : kSingleParameters) {
      if (!equalsNoCase(field.name, single.field)) continue;
      const std::size_t times = countPlainParameters(value, single.name);
      if (times > 1)
        add(single.severity, Kind::ambiguous,
            "the " + std::string(single.field) + " has the parameter " + std::string(single.name) + " " +
                inWords(times, "times"),
            field);
    }
  }

  void reportMissing() {
    for (std::size_t i = 0; i < m_seen.size(); ++i)
      if (kSingleFields[i].ifMissing && m_seen[i].count == 0)
        m_problems.add(0, *kSingleFields[i].ifMissing, Kind::malformed,
                       "the field " + std::string(kSingleFields[i].name) + " is missing");
  }

  int m_row;
  RepairSet m_repairs;
  const std::vector<ReceivedField>& m_fields;
  const bool m_areAscii;
  ProblemList& m_problems;
  std::array<Seen, std::size(kSingleFields)> m_seen{};
  bool m_hasBadLine = false;
};

}  // namespace

void findFieldProblems(int row, const PartRow& part, const std::vector<ReceivedField>& fields,
                       ProblemList& problems) {
  FieldChecks(row, part.node->m_repairs, fields, problems).run();
}

}  // namespace mailtree
