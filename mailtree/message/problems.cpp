// message/problems.cpp - what a careful reader wants to know about a message.
#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

#include "mailtree/base/ShownText.h"
#include "mailtree/base/Utf.h"
#include "mailtree/message/problem_list.h"
#include "mailtree/mime/charset/Charset.h"

namespace mailtree {
namespace {

using Kind = Problem::Kind;
using Severity = Problem::Severity;

constexpr struct {
  Repair repair;
  Severity severity;
  std::string_view sentence;
} kRepairs[] = {
    {Repair::charset, Severity::note, "the declared charset is unknown or wrong, and another one was found"},
    {Repair::boundaryMissing, Severity::warning, "the boundary between the parts is missing"},
    {Repair::boundaryUnclosed, Severity::warning, "the end is missing: there is no closing boundary"},
    {Repair::contentType, Severity::warning, "the Content-Type cannot be used, and text/plain was assumed"},
    {Repair::loneAttachment, Severity::note,
     "the message is only an attachment, and an empty text was added"},
    {Repair::looseAlternative, Severity::note,
     "plain text and HTML beside each other were joined as alternatives"},
    {Repair::noCharset, Severity::note, "the text does not declare its charset, and one that fits was found"},
    {Repair::notHtml, Severity::note, "the file is labelled as HTML, but is a PDF by its name"},
    {Repair::utf16, Severity::note, "the text is in utf-16 without a label"},
    {Repair::nulBytes, Severity::warning, "NUL bytes in the text became blanks"},
    {Repair::longLines, Severity::note, "the HTML has lines that are too long for mail"},
    {Repair::uuencoded, Severity::warning, "files encoded in the text became attachments"},
};
// Damage is counted, and the header is looked at again.
static_assert(std::size(kRepairs) + 2 == std::size(kRepairNames));

void findRepairs(int row, const PartRow& part, ProblemList& problems) {
  const RepairSet& repairs = part.node->m_repairs;
  if (repairs.isEmpty()) return;
  for (const auto& [repair, severity, sentence] : kRepairs)
    if (repairs.has(repair)) problems.add(row, severity, Kind::repaired, std::string(sentence));
  if (repairs.has(Repair::damagedText))
    problems.add(
        row, Severity::warning, Kind::damagedText,
        "bytes of the text mean nothing in its charset (" + std::to_string(repairs.damagedSequences()) + ")");
}

/// A text that is ASCII reads the same in nearly every charset.
void findUnknownCharset(int row, const PartRow& part, ProblemList& problems) {
  if (!part.isText()) return;
  const std::string charset = charsetOf(part);
  if (charset.empty() || codePageOfCharset(charset) != 0) return;
  const bool isSafe = part.node->m_repairs.has(Repair::charset) || isAscii(part.node->m_body.view());
  problems.add(row, isSafe ? Severity::note : Severity::warning, Kind::malformed,
               "the charset " + quoted(charset) + " is unknown");
}

void findLimits(LimitSet limits, ProblemList& problems) {
  for (const LimitText& row : kLimitTexts)
    if (limits.has(row.limit))
      problems.add(0, Severity::danger, Kind::limit, row.text() + ": the rest was not read");
}

void appendClosedLayers(const Security& security, std::vector<Problem>& problems) {
  for (const SecurityLayer& layer : security.layers)
    if (layer.isEncrypted() && !layer.isOpened)
      problems.push_back(
          {Kind::notOpened, layer.part,
           "the encrypted content was not opened" + (layer.problem.empty() ? "" : ": " + layer.problem)});
}

}  // namespace

std::string quoted(std::string_view text) {
  constexpr std::size_t kMost = 60;
  if (text.size() <= kMost) return inQuotes(text);
  return inQuotes(text.substr(0, utf8PrefixLength(text, kMost))) + "...";
}

std::vector<Problem> Message::problems() const {
  MessageState& state = *m_state;
  const Outline& outline = state.outline();
  const ReceivedEntities received(state);
  ProblemList list(state);
  for (int id = 0; const PartRow& part : outline.rows) {
    const int row = id++;
    const std::vector<ReceivedField> fields = received.fieldsOf(row);
    findFieldProblems(row, part, fields, list);
    if (row == 0) findSenderProblems(state.root(), fields, list);
    findEncodingProblems(row, part, fields, list);
    findNameProblems(row, part, list);
    findRepairs(row, part, list);
    findUnknownCharset(row, part, list);
  }
  findStructureProblems(received, list);
  findLineProblems(received, list);
  findLimits(state.opened.common->m_limits, list);
  std::vector<Problem> problems = list.take();
  if (!state.layers.empty()) appendClosedLayers(security(), problems);
  return problems;
}

}  // namespace mailtree
