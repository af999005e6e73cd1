// message/sender_problems.cpp - who a message claims to be from, and what may deceive a reader about it.
#include <string>

#include "mailtree/base/Utf.h"
#include "mailtree/message/problem_list.h"

namespace mailtree {
namespace {

using Kind = Problem::Kind;
using Severity = Problem::Severity;

std::string_view domainOf(std::string_view address) {
  const std::size_t at = address.rfind('@');
  return at == std::string_view::npos ? std::string_view() : address.substr(at + 1);
}

/// The domain without the labels of single hosts. Deliberate: without a list of the suffixes under which
/// anyone can register, a short second label below a country, as in "co.uk", is taken for one.
std::string_view organizationOf(std::string_view domain) {
  const std::size_t last = domain.rfind('.');
  if (last == std::string_view::npos || last == 0) return domain;
  std::size_t second = domain.rfind('.', last - 1);
  if (second == std::string_view::npos) return domain;
  const bool isSuffix = domain.size() - last == 3 && last - second <= 4;
  if (isSuffix && second > 0) second = domain.rfind('.', second - 1);
  return second == std::string_view::npos ? domain : domain.substr(second + 1);
}

bool isSameOrganization(std::string_view a, std::string_view b) {
  return equalsNoCase(organizationOf(domainOf(a)), organizationOf(domainOf(b)));
}

/// The first thing in a name that looks like an address; empty when there is none.
std::string_view addressIn(std::string_view name) {
  constexpr std::string_view kEnds = " \t<>()[]\"',;:";
  for (std::size_t at = name.find('@'); at != std::string_view::npos; at = name.find('@', at + 1)) {
    const std::size_t before = at == 0 ? std::string_view::npos : name.find_last_of(kEnds, at - 1);
    const std::size_t begin = at == 0 ? 0 : before == std::string_view::npos ? 0 : before + 1;
    const std::size_t end = std::min(name.find_first_of(kEnds, at), name.size());
    const std::string_view domain = name.substr(at + 1, end - at - 1);
    if (begin < at && domain.find('.') != std::string_view::npos) return name.substr(begin, end - begin);
  }
  return {};
}

/// Whether the text has a character that turns the direction of those after it, so that "fdp.exe" is shown
/// as "exe.pdf".
bool turnsDirection(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const char32_t c = nextCodePoint(text, at);
    if ((c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069)) return true;
  }
  return false;
}

class SenderChecks {
 public:
  SenderChecks(const Email2& root, const std::vector<ReceivedField>& fields, ProblemList& problems)
      : m_root(root), m_fields(fields), m_problems(problems) {}

  void run() {
    const std::vector<Address> authors = addressesOf(m_root, "From");
    if (has("From") && authors.empty()) add(Severity::warning, Kind::malformed, "From is empty", "From");
    if (authors.size() > 1) readSeveral(authors.size());
    const std::vector<Address> answered = addressesOf(m_root, "Reply-To");
    for (const Address& entry : authors) readEntry("From", entry);
    for (const Address& entry : addressesOf(m_root, "Sender")) readEntry("Sender", entry);
    for (const Address& entry : answered) readEntry("Reply-To", entry);
    if (!authors.empty()) readReplyTo(authors.front().address, answered);
  }

 private:
  bool has(std::string_view name) const { return m_root.m_header.findField(name) >= 0; }

  void add(Severity severity, Kind kind, std::string text, std::string_view name) {
    std::optional<std::size_t> offset;
    for (const ReceivedField& field : m_fields)
      if (equalsNoCase(field.name, name) && !offset) offset = field.offset;
    m_problems.add(0, severity, kind, std::move(text), offset);
  }

  void readSeveral(std::size_t count) {
    if (has("Sender"))
      return add(Severity::note, Kind::ambiguous, "From has " + inWords(count, "entries"), "From");
    add(Severity::danger, Kind::ambiguous,
        "From has " + inWords(count, "entries, and no Sender says whose message it is"), "From");
  }

  void readEntry(const std::string& field, const Address& entry) {
    const std::string_view named = addressIn(entry.name);
    if (entry.address.empty()) {
      const std::string what = named.empty() ? "a name and no address: " : "an address only in its name: ";
      add(named.empty() ? Severity::warning : Severity::danger,
          named.empty() ? Kind::malformed : Kind::deceptive, field + " has " + what + quoted(entry.name),
          field);
    } else if (!named.empty() && !equalsNoCase(named, entry.address)) {
      add(isSameOrganization(named, entry.address) ? Severity::note : Severity::danger, Kind::deceptive,
          "the name in " + field + " is another address: " + quoted(named) + ", not " + quoted(entry.address),
          field);
    }
    if (contains(entry.address, "=?"))
      add(Severity::danger, Kind::deceptive, field + " has an encoded word in the address", field);
    if (entry.address.find('@') != entry.address.rfind('@'))
      add(Severity::danger, Kind::deceptive, field + " has an address with two @: " + quoted(entry.address),
          field);
    if (turnsDirection(entry.name))
      add(Severity::danger, Kind::deceptive,
          "the name in " + field + " turns the direction of its characters", field);
  }

  /// A list has answers sent to itself, as its readers expect.
  void readReplyTo(std::string_view author, const std::vector<Address>& answered) {
    if (author.empty() || has("List-Id") || has("List-Post")) return;
    for (const Address& entry : answered) {
      if (entry.address.empty() || isSameOrganization(entry.address, author)) continue;
      return add(Severity::warning, Kind::deceptive,
                 "answers go to another domain than that of From: " + quoted(entry.address), "Reply-To");
    }
  }

  const Email2& m_root;
  const std::vector<ReceivedField>& m_fields;
  ProblemList& m_problems;
};

}  // namespace

void findSenderProblems(const Email2& root, const std::vector<ReceivedField>& fields, ProblemList& problems) {
  SenderChecks(root, fields, problems).run();
}

void findNameProblems(int row, const PartRow& part, ProblemList& problems) {
  const std::string_view name = part.node->m_contentType.m_name, fileName = part.node->m_dispFilename;
  if (turnsDirection(part.filename))
    problems.add(row, Severity::danger, Kind::deceptive,
                 "the file name turns the direction of its characters");
  if (name.empty() || fileName.empty() || name == fileName) return;
  const auto extensionOf = [](std::string_view file) {
    return file.substr(std::min(file.rfind('.'), file.size()));
  };
  const std::string_view one = extensionOf(name), other = extensionOf(fileName);
  const bool isOtherType = !one.empty() && !other.empty() && !equalsNoCase(one, other);
  problems.add(row, isOtherType ? Severity::danger : Severity::note, Kind::ambiguous,
               "the file has two names: " + quoted(name) + " and " + quoted(fileName));
}

}  // namespace mailtree
