#include "mailtree/message/output.h"

#include <algorithm>
#include <tuple>
#include <unordered_set>

#include "mailtree/base/Ascii.h"
#include "mailtree/message/fields.h"
#include "mailtree/message/internal.h"
#include "mailtree/message/internal_fields.h"
#include "mailtree/message/mailbox_key.h"
#include "mailtree/message/received_form.h"
#include "mailtree/message/tree_changes.h"

namespace mailtree {
namespace {

// Writing

/// Shows or hides the Bcc recipients for as long as a message is written.
class BccScope {
 public:
  BccScope(Email2& root, bool isShown) : m_root(root), m_wasAdded(isShown && !hasField()) {
    if (m_wasAdded) {
      LogNull log;
      showBcc(root, log);
    }
    m_root.m_header.m_omitsBcc = !isShown;
  }
  BccScope(const BccScope&) = delete;
  BccScope& operator=(const BccScope&) = delete;
  ~BccScope() {
    m_root.m_header.m_omitsBcc = false;
    if (m_wasAdded) m_root.clearBccFromHeader();
  }

 private:
  bool hasField() const { return m_root.m_header.findField("Bcc") >= 0; }

  Email2& m_root;
  bool m_wasAdded;
};

/// Gives 8bit content without a label, or with a wrong one, the label by which it is encoded, for as long as
/// a message is written.
class LabelScope {
 public:
  LabelScope(Email2& root, bool isWanted) {
    if (isWanted) walkUnsigned(root, [this](Email2& node) { label8bit(node); });
  }
  LabelScope(const LabelScope&) = delete;
  LabelScope& operator=(const LabelScope&) = delete;
  ~LabelScope() {
    for (Labelled& each : m_labelled) {
      each.node->m_header = std::move(each.header);
      each.node->m_transferEncoding.setString(each.encoding);
    }
  }

 private:
  struct Labelled {
    Email2* node;
    MimeHeader header;
    std::string encoding;
  };

  void label8bit(Email2& node) {
    const std::string_view encoding = node.m_transferEncoding;
    const bool isUnlabelled = encoding.empty() || equalsNoCase(encoding, "7bit");
    if (!isUnlabelled || node.getNumParts() > 0 || node.isMultipart() || node.m_body.is7bit(0)) return;
    m_labelled.push_back({&node, node.m_header, std::string(encoding)});
    LogNull log;
    node.setContentEncodingNonRecursive("8bit", log);
  }

  std::vector<Labelled> m_labelled;
};

Error inClear() {
  return {ErrorCode::inClear, "an answer to encrypted mail would be written unencrypted", {}};
}

Result<void> writeReceived(std::string_view bytes, _svOutput* sink, StringBuffer& text) {
  ProgressContext progress(nullptr);
  ErrorLog log;
  if (sink ? sink->write(bytes, progress, log) : text.append(bytes)) return {};
  return Error{ErrorCode::unwritable, log.errorOr("the message could not be written completely"), {}};
}

/// Writes to the sink, or to `text` when there is none.
Result<void> assemble(MessageState& state, const WriteOptions& options, _svOutput* sink, StringBuffer& text) {
  if (state.answersEncrypted && !options.inClear) return inClear();
  if (const std::optional<std::string> received = receivedForm(state, options))
    return writeReceived(*received, sink, text);
  Result<Email2*> root = state.written();
  if (!root) return std::move(root).error();
  const LabelScope labels(**root, options.asciiOnly);
  const BccScope bcc(**root, options.bcc);
  ErrorLog log;
  if (assembleTree(**root, options, sink, text, log)) return {};
  return Error{ErrorCode::unwritable, log.errorOr("the message could not be written completely"), {}};
}

// The envelope

/// The Resent- fields until a name comes again: each resending puts a block of its own before the others
/// (RFC 5322, 3.6.6).
std::vector<int> latestResentFields(const MimeHeader& header) {
  std::vector<int> fields;
  std::unordered_set<std::string> known;
  for (int i = 0; i < header.getNumFields(); ++i) {
    if (!beginsWithNoCase(header.fieldName(i), "Resent-")) continue;
    if (!known.insert(lowerCase(header.fieldName(i))).second) break;
    fields.push_back(i);
  }
  return fields;
}

constexpr const char* kResentTo[] = {"Resent-To", "Resent-Cc", "Resent-Bcc"};

/// A word alone may be a name.
bool isAddress(std::string_view text) { return contains(text, "@"); }

std::string_view firstAddress(const ExtPtrArray& entries) {
  for (int i = 0; i < entries.getSize(); ++i)
    if (const std::string_view text = entries.at<_svEmailAddress>(i)->m_address.view(); isAddress(text))
      return text;
  return {};
}

class EnvelopeMaker {
 public:
  explicit EnvelopeMaker(const Email2& root) : m_root(root), m_header(root.m_header) {}

  Envelope make() {
    const std::vector<int> resent = latestResentFields(m_header);
    for (const char* const name : {"Resent-From", "Resent-Sender"}) takeSender(resent, name);
    for (const char* const name : kResentTo) takeRecipients(resent, name);
    if (!resent.empty()) return std::move(m_envelope);
    const std::vector<int> all = everyField();
    if (!isAutomatedReply(m_header))
      for (const char* const name : {"From", "Sender"}) takeSender(all, name);
    for (const char* const name : {"To", "Cc", "Bcc"}) takeRecipients(all, name);
    // Hidden recipients are in the list only.
    take(m_root.m_bccAddrs);
    return std::move(m_envelope);
  }

 private:
  std::vector<int> everyField() const {
    std::vector<int> fields(static_cast<std::size_t>(m_header.getNumFields()));
    for (std::size_t i = 0; i < fields.size(); ++i) fields[i] = static_cast<int>(i);
    return fields;
  }

  /// The entries of each of the fields that has this name.
  template <class Take>
  void forEach(const std::vector<int>& fields, std::string_view name, Take&& takeEntries) {
    std::string scratch;
    for (const int i : fields) {
      if (!equalsNoCase(m_header.fieldName(i), name)) continue;
      ExtPtrArray entries;
      _svEmailAddress::parseAndLoadList(m_header.unfoldedValue(i, scratch), entries);
      takeEntries(entries);
    }
  }

  /// Later names have precedence: Sender is who sends for the authors.
  void takeSender(const std::vector<int>& fields, std::string_view name) {
    bool isFirst = true;
    forEach(fields, name, [&](const ExtPtrArray& entries) {
      const std::string_view address = firstAddress(entries);
      if (!address.empty() && std::exchange(isFirst, false)) m_envelope.sender = address;
    });
  }

  void takeRecipients(const std::vector<int>& fields, std::string_view name) {
    forEach(fields, name, [this](const ExtPtrArray& entries) { take(entries); });
  }

  void take(const ExtPtrArray& entries) {
    for (int i = 0; i < entries.getSize(); ++i) {
      const std::string_view address = entries.at<_svEmailAddress>(i)->m_address.view();
      if (isAddress(address) && m_known.insert(mailboxKey(address)).second)
        m_envelope.recipients.emplace_back(address);
    }
  }

  const Email2& m_root;
  const MimeHeader& m_header;
  Envelope m_envelope;
  std::unordered_set<std::string> m_known;
};

}  // namespace

bool assembleTree(Email2& root, const WriteOptions& options, _svOutput* sink, StringBuffer& text,
                  LogBase& log) {
  const std::uint64_t before = abandonedOperations();
  ProgressContext progress(nullptr);
  const bool isWritten =
      root.assembleMimeBody2(text, sink, sink && options.dotStuff, kOmittedPrefix, progress, log, /*depth=*/0,
                             options.asciiOnly, /*isTop=*/true) &&
      !(sink && sink->failed());
  if (abandonedOperations() == before) return isWritten;
  log.logError(kNoMemory);
  return false;
}

std::optional<std::vector<Recipient>> resentRecipientsOf(const Email2& root) {
  const std::vector<int> fields = latestResentFields(root.m_header);
  if (fields.empty()) return std::nullopt;
  std::vector<Recipient> recipients;
  std::string scratch;
  for (const char* const name : kResentTo)
    for (const int field : fields) {
      if (!equalsNoCase(root.m_header.fieldName(field), name)) continue;
      ExtPtrArray entries;
      _svEmailAddress::parseAndLoadList(root.m_header.unfoldedValue(field, scratch), entries);
      for (int i = 0; i < entries.getSize(); ++i)
        if (const std::string_view address = entries.at<_svEmailAddress>(i)->m_address.view();
            isAddress(address))
          recipients.push_back({name, std::string(address)});
    }
  return recipients;
}

Envelope envelopeOf(const Email2& root) { return EnvelopeMaker(root).make(); }

Envelope Message::envelope() const { return envelopeOf(m_state->root()); }

Result<void> Message::check() const {
  const Envelope to = envelope();
  if (to.sender.empty() && !isAutomatedReply(m_state->root().m_header))
    return Error{ErrorCode::noRecipient, "the message has no sender", "From"};
  if (to.recipients.empty()) return Error{ErrorCode::noRecipient, "the message has no recipient", "To"};
  return m_state->answersEncrypted ? Result<void>(inClear()) : Result<void>();
}

Result<std::string> Message::toString(const WriteOptions& options) const {
  StringBuffer text;
  DataBuffer stuffed;
  MemoryOutput sink(stuffed);
  return assemble(*m_state, options, options.dotStuff ? &sink : nullptr, text).transform([&] {
    return options.dotStuff ? std::string(stuffed.view()) : text.extractString();
  });
}

Result<void> Message::write(std::ostream& out, const WriteOptions& options) const {
  StreamOutput sink(out);
  StringBuffer unused;
  return assemble(*m_state, options, &sink, unused);
}

Result<void> Message::save(const std::string& path, const WriteOptions& options) const {
  FileOutput sink;
  StringBuffer unused;
  LogMemory log;
  const auto failed = [&path](std::string message) {
    return Error{ErrorCode::unwritable, std::move(message), path};
  };
  const bool isSecret = m_state->wasEncrypted || m_state->answersEncrypted;
  const Readers readers = isSecret ? Readers::owner : Readers::usual;
  if (!sink.open(path.c_str(), log, Existing::replace, readers))
    return failed(lastError(log, "cannot be written"));
  if (Result<void> done = assemble(*m_state, options, &sink, unused); !done) return done;
  if (!sink.commit(log)) return failed(lastError(log, "cannot be written"));
  return {};
}

}  // namespace mailtree
