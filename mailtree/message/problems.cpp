// message/problems.cpp - what a careful reader wants to know about a message.
#include <iterator>
#include <string>
#include <utility>

#include "mailtree/message/internal.h"

namespace mailtree {
namespace {

constexpr struct {
  Repair repair;
  std::string_view sentence;
} kRepairs[] = {
    {Repair::charset, "the declared charset is unknown or wrong, and another one was found"},
    {Repair::boundaryMissing, "the boundary between the parts is missing"},
    {Repair::boundaryUnclosed, "the end is missing: there is no closing boundary"},
    {Repair::contentType, "the Content-Type cannot be used, and text/plain was assumed"},
    {Repair::headerSyntax, "the header has lines that are not fields, or has no end"},
    {Repair::loneAttachment, "the message is only an attachment, and an empty text was added"},
    {Repair::looseAlternative, "plain text and HTML beside each other were joined as alternatives"},
    {Repair::noCharset, "the text does not declare its charset, and one that fits was found"},
    {Repair::notHtml, "the file is labelled as HTML, but is a PDF by its name"},
    {Repair::utf16, "the text is in utf-16 without a label"},
    {Repair::nulBytes, "NUL bytes in the text became blanks"},
    {Repair::longLines, "the HTML has lines that are too long for mail"},
    {Repair::uuencoded, "files encoded in the text became attachments"},
};
static_assert(std::size(kRepairs) + 1 == std::size(kRepairNames));  // damage is counted

/// Fields that a message may have once only (RFC 5322, 3.6).
constexpr std::string_view kSingleFields[] = {"From",        "Sender",     "Reply-To", "To",
                                              "Cc",          "Bcc",        "Date",     "Message-ID",
                                              "In-Reply-To", "References", "Subject"};
/// The same for every part (RFC 2045).
constexpr std::string_view kSingleContentFields[] = {
    "MIME-Version", "Content-Type", "Content-Transfer-Encoding", "Content-Disposition", "Content-ID"};
/// Parameters of which programs take the first, or the last.
constexpr std::string_view kSingleParameters[] = {"boundary", "charset", "name", "start"};

std::string inWords(std::size_t count, std::string_view what) {
  return std::to_string(count) + " " + std::string(what);
}

class Problems {
 public:
  explicit Problems(MessageState& state) : m_state(state) {}

  std::vector<Problem> all() {
    readHeader(m_state.root());
    const std::size_t count = m_state.outline().rows.size();
    for (std::size_t id = 0; id < count; ++id) readPart(static_cast<int>(id));
    readLimits();
    return std::move(m_problems);
  }

 private:
  void add(Problem::Kind kind, std::string text) { m_problems.push_back({kind, partId(), std::move(text)}); }
  std::string partId() const { return MessageState::partOf(m_state, m_row).id(); }

  void readPart(int row) {
    m_row = row;
    const Email2& part = *m_state.outline().row(row).node;
    readRepairs(part.m_repairs);
    for (const std::string_view name : kSingleContentFields) readSingle(part.m_header, name);
    readParameters(part.m_header);
    readEncoding(part);
  }

  void readRepairs(const RepairSet& repairs) {
    if (repairs.isEmpty()) return;
    for (const auto& [repair, sentence] : kRepairs)
      if (repairs.has(repair)) add(Problem::Kind::repaired, std::string(sentence));
    if (repairs.has(Repair::damagedText))
      add(Problem::Kind::damagedText, "bytes of the text mean nothing in its charset (" +
                                          std::to_string(repairs.damagedSequences()) + ")");
  }

  void readHeader(const Email2& root) {
    for (const std::string_view name : kSingleFields) readSingle(root.m_header, name);
    std::string scratch;
    ExtPtrArray authors;
    _svEmailAddress::parseAndLoadEntries(
        root.m_header.unfoldedValue(root.m_header.findField("From"), scratch), authors);
    if (authors.getSize() > 1 && root.m_header.findField("Sender") < 0)
      add(Problem::Kind::ambiguous, "From has " + inWords(static_cast<std::size_t>(authors.getSize()),
                                                          "entries, and no Sender says whose message it is"));
  }

  void readSingle(const MimeHeader& header, std::string_view name) {
    std::size_t count = 0;
    for (int i = header.findField(name); i >= 0; i = header.findField(name, i + 1)) ++count;
    if (count > 1)
      add(Problem::Kind::ambiguous,
          "the field " + std::string(name) + " is there " + inWords(count, "times"));
  }

  void readParameters(const MimeHeader& header) {
    std::string scratch;
    const std::string_view type = header.unfoldedValue(header.findField("Content-Type"), scratch);
    for (const std::string_view name : kSingleParameters) {
      const std::size_t count = countPlainParameters(type, name);
      if (count > 1)
        add(Problem::Kind::ambiguous,
            "the Content-Type has the parameter " + std::string(name) + " " + inWords(count, "times"));
    }
  }

  /// Some programs decode the parts of a multipart that claims to be encoded, others read it as it is
  /// (RFC 2045, 6.4).
  void readEncoding(const Email2& part) {
    const std::string_view encoding = part.m_transferEncoding;
    if (!beginsWithNoCase(part.m_contentType.m_type, "multipart/")) return;
    if (equalsNoCase(encoding, "base64") || equalsNoCase(encoding, "quoted-printable"))
      add(Problem::Kind::ambiguous, "a multipart is declared to be in " + lowerCase(encoding));
  }

  void readLimits() {
    m_row = 0;
    for (const LimitText& row : kLimitTexts)
      if (m_state.opened.common->m_limits.has(row.limit))
        add(Problem::Kind::limit, row.text() + ": the rest was not read");
  }

  MessageState& m_state;
  std::vector<Problem> m_problems;
  int m_row = 0;
};

}  // namespace

std::vector<Problem> Message::problems() const {
  std::vector<Problem> problems = Problems(*m_state).all();
  for (const SecurityLayer& layer : security().layers)
    if (layer.isEncrypted() && !layer.isOpened)
      problems.push_back(
          {Problem::Kind::notOpened, layer.part,
           "the encrypted content was not opened" + (layer.problem.empty() ? "" : ": " + layer.problem)});
  return problems;
}

}  // namespace mailtree
