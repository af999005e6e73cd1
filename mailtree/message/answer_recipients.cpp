#include "mailtree/message/answer_recipients.h"

#include <algorithm>
#include <span>
#include <unordered_set>
#include <utility>

#include "mailtree/message/address_rules.h"
#include "mailtree/message/fields.h"
#include "mailtree/message/internal.h"
#include "mailtree/message/quoting.h"
#include "mailtree/mime/LineLengths.h"

namespace mailtree {
namespace {

using Mailboxes = std::unordered_set<std::string>;

/// Case may tell local parts apart (RFC 5321, 2.4), but no host is known to do so, and people write their
/// addresses as they like: nobody should get an answer twice, or answer to themselves.
std::string personKey(std::string_view address) { return lowerCase(address); }

/// Collects recipients, each once.
class Recipients {
 public:
  explicit Recipients(Mailboxes known = {}) : m_known(std::move(known)) {}

  void add(std::span<const Address> entries, std::vector<Address>& list) {
    for (const Address& entry : entries)
      if (!bareAddressProblem(entry.address) && m_known.insert(personKey(entry.address)).second)
        list.push_back({oneLine(entry.name), entry.address});
  }

  /// The same without some of them.
  void add(std::span<const Address> entries, const Mailboxes& without, std::vector<Address>& list) {
    std::vector<Address> others(entries.begin(), entries.end());
    std::erase_if(others, [&](const Address& entry) { return without.contains(personKey(entry.address)); });
    add(others, list);
  }

 private:
  Mailboxes m_known;
};

Mailboxes ownMailboxes(const ReplyOptions& options) {
  Mailboxes own{personKey(options.from.address)};
  for (const Address& address : options.own) own.insert(personKey(address.address));
  return own;
}

std::vector<Address> authorsOf(const Message& message) {
  std::vector<Address> authors = addressesOf(message.email2(), "From");
  return authors.empty() ? std::vector{message.from()} : authors;
}

// Mailing lists

std::string decodedPercents(std::string_view text) {
  std::string decoded;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool isCode =
        text[at] == '%' && at + 2 < text.size() && hexValue(text[at + 1]) >= 0 && hexValue(text[at + 2]) >= 0;
    decoded += isCode ? static_cast<char>(hexValue(text[at + 1]) * 16 + hexValue(text[at + 2])) : text[at];
    if (isCode) at += 2;
  }
  return decoded;
}

/// The addresses of the first mailto link in List-Post (RFC 2369, 3.4), which may also be "NO".
std::vector<Address> listAddresses(const Message& message) {
  constexpr std::string_view kScheme = "mailto:";
  const std::string field = message.header("List-Post").value_or(std::string());
  const std::size_t begin = findNoCase(field, kScheme);
  if (begin == std::string::npos) return {};
  const std::string_view link = std::string_view(field).substr(begin + kScheme.size());
  return Address::parseList(decodedPercents(link.substr(0, link.find_first_of("?>"))));
}

Error noRecipient(std::string message, std::string field) {
  return {ErrorCode::noRecipient, std::move(message), std::move(field)};
}

// Threading (RFC 5322, 3.6.4)

/// More than this is of no use to any program, and would not fit in a header.
constexpr std::size_t kMostReferences = 200;

/// Whether it can be written on a line of a header.
bool isWritable(const std::string& id) { return id.size() < kMaxLine7bit - 2 && isIdentifier(id); }

}  // namespace

Result<AnswerRecipients> replyRecipients(const Message& answered, const ReplyOptions& options) {
  const Mailboxes own = ownMailboxes(options);
  Recipients recipients;
  AnswerRecipients found;
  if (options.list) {
    recipients.add(listAddresses(answered), found.to);
    if (found.to.empty())
      return noRecipient("the message names no address of a mailing list to answer to", "List-Post");
  }
  const std::vector<Address> to = answered.to(), authors = authorsOf(answered);
  const bool isOwn = own.contains(personKey(answered.from().address));
  // Who answers an own message goes on writing to the same people.
  if (found.to.empty() && isOwn) recipients.add(to, own, found.to);
  if (found.to.empty() && isOwn) recipients.add(to, found.to);
  if (found.to.empty()) recipients.add(answered.replyTo(), found.to);
  if (found.to.empty()) recipients.add(authors, found.to);
  if (options.all) {
    recipients.add(to, own, found.to);
    recipients.add(answered.cc(), own, found.cc);
  }
  recipients.add(options.to, found.to);
  recipients.add(options.cc, found.cc);
  if (found.to.empty() && found.cc.empty())
    return noRecipient("nobody to answer: the message has no sender's address", "From");
  return found;
}

std::string answeredId(const Message& answered) {
  const std::string id = answered.messageId();
  return isWritable(id) ? id : std::string();
}

std::vector<std::string> answerReferences(const Message& answered) {
  std::vector<std::string> ids = answered.references();
  if (ids.empty()) ids = idsIn(answered.header("In-Reply-To").value_or(std::string()));
  // In-Reply-To with several ids does not tell which of them comes first.
  if (ids.size() > 1 && answered.references().empty()) ids.clear();
  const std::string last = answeredId(answered);
  std::erase_if(ids, [&](const std::string& id) { return id == last || !isWritable(id); });
  if (!last.empty()) ids.push_back(last);
  // The first one names the conversation.
  if (ids.size() > kMostReferences) ids.erase(ids.begin() + 1, ids.end() - (kMostReferences - 1));
  return ids;
}

}  // namespace mailtree
