// cli/copy.cpp - mailtree copy: messages of any sources into a mailbox or folder.

#include <array>
#include <cstring>
#include <filesystem>
#include <memory>
#include <unordered_map>
#include <unordered_set>

#include "cli/commands.h"
#include "cli/message/store_output.h"
#include "cli/message/streaming.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "mailtree/crypto/Digest.h"
#include "mailtree/message/Expression.h"
#include "mailtree/message/LazyMessage.h"
#include "mailtree/mime/header/MimeHeader.h"

namespace mailtree::cli {
namespace {

struct CopyOptions {
  SourceArguments sources;
  StreamSettings stream;
  std::string to, since, where;
  bool dedup = false, resume = false;
};

/// Half of a SHA-256, in hexadecimal: nobody finds two messages with the same one.
using Digest = std::array<char, 32>;

Digest digestOf(std::string_view bytes) {
  Digest digest{};
  const std::string hex = sha256Hex(bytes);
  std::memcpy(digest.data(), hex.data(), std::min(hex.size(), digest.size()));
  return digest;
}

struct DigestHash {
  std::size_t operator()(const Digest& digest) const noexcept {
    return std::hash<std::string_view>()({digest.data(), digest.size()});
  }
};

/// Text with line ends of one kind, without those at its end.
void appendLines(std::string& text, std::string_view lines) {
  lines = lines.substr(0, lines.find_last_not_of("\r\n") + 1);
  for (std::size_t i = 0; i < lines.size(); ++i)
    if (lines[i] != '\r' || i + 1 == lines.size() || lines[i + 1] != '\n') text += lines[i];
  text += '\n';
}

/// The same for copies of a message that came different ways: its Message-ID, subject and content. Without an
/// id the whole header counts.
Digest identityOf(std::string_view bytes) {
  MimeHeader header;
  const std::size_t body = header.loadFromEntity(bytes).bodyOffset;
  std::string text;
  if (header.decodedValue(header.findField("Message-ID")).empty())
    appendLines(text, bytes.substr(0, body));
  else
    for (const char* const name : {"Message-ID", "Subject", "Content-Type", "Content-Transfer-Encoding"})
      text.append(header.decodedValue(header.findField(name))).append("\n");
  appendLines(text, bytes.substr(body));
  return digestOf(text);
}

struct Copied {
  std::string bytes;
  std::optional<Digest> digest, identity;
};

/// What is in the target already.
class Earlier {
 public:
  Result<void> read(const Target& target) {
    std::error_code ignored;
    if (target.kind == Target::Kind::mbox && std::filesystem::file_size(target.path, ignored) == 0) return {};
    Result<MailSource> source = MailSource::open(target.path);
    if (!source) return std::move(source).error();
    SourceMessage message;
    while (source->next(message)) {
      if (Result<void> read = readMessage(message); !read) return read;
      ++m_counts[digestOf(message.bytes)];
    }
    return source->error() ? Result<void>(*source->error()) : Result<void>();
  }

  /// Whether a message is in it, once more than asked so far.
  bool takes(const Digest& digest) {
    const auto found = m_counts.find(digest);
    if (found == m_counts.end() || found->second == 0) return false;
    --found->second;
    return true;
  }

 private:
  std::unordered_map<Digest, std::uint32_t, DigestHash> m_counts;
};

class Copier {
 public:
  Copier(const CopyOptions& options, Target target, std::vector<Expression> conditions)
      : m_options(options), m_target(std::move(target)), m_conditions(std::move(conditions)) {}

  Exit run() {
    // Opening it cuts off what is not whole.
    if (const Exit failed = m_out.open(m_target); failed != Exit::fine) return failed;
    if (m_options.resume)
      if (const Result<void> read = m_earlier.read(m_target); !read) {
        reportError(m_target.path, read.error().message);
        return Exit::unreadable;
      }
    Streaming stream(m_options.sources, m_options.stream);
    const Exit result = stream.run(
        [this, lazy = LazyMessage()](SourceMessage& message) mutable { return make(message, lazy); },
        [this](SourceMessage& message, std::optional<Copied>& copied) {
          return !copied || take(message, *copied);
        },
        [this] { m_result = worse(m_result, m_out.finish()); });
    return worse(result, m_result);
  }

 private:
  /// On any thread.
  std::optional<Copied> make(SourceMessage& message, LazyMessage& lazy) const {
    lazy.assign(message);
    for (const Expression& condition : m_conditions)
      if (!condition.matches(lazy)) return std::nullopt;
    Copied copied;
    if (m_options.resume) copied.digest = digestOf(message.bytes);
    if (m_options.dedup) copied.identity = identityOf(message.bytes);
    // A separator without a date of its own has that of the message.
    if (!message.date && m_target.kind == Target::Kind::mbox)
      if (const std::optional<Date> date = lazy.date()) message.date = date->time;
    copied.bytes = std::move(message.bytes);
    return copied;
  }

  bool take(const SourceMessage& message, const Copied& copied) {
    if (copied.identity && !m_seen.insert(*copied.identity).second) return true;
    if (copied.digest && m_earlier.takes(*copied.digest)) return true;
    m_result = worse(m_result, m_out.add(copied.bytes, message));
    return m_result == Exit::fine;
  }

  const CopyOptions& m_options;
  const Target m_target;
  const std::vector<Expression> m_conditions;
  Earlier m_earlier;
  std::unordered_set<Digest, DigestHash> m_seen;
  StoreOutput m_out;
  Exit m_result = Exit::fine;
};

Exit copy(const CopyOptions& options) {
  Result<Target> target = targetOf(options.to);  // was checked
  if (options.resume && target->path == "-") return usageError("--resume", "needs a file or folder");
  std::vector<Expression> conditions;
  const std::string since = options.since.empty() ? "" : "date:" + options.since + "..";
  for (const auto& [option, text] : {std::pair("--since", since), std::pair("--where", options.where)}) {
    if (text.empty()) continue;
    Result<Expression> condition = Expression::parse(text);
    if (!condition) return usageError(option, condition.error().message);
    conditions.push_back(*std::move(condition));
  }
  return Copier(options, *std::move(target), std::move(conditions)).run();
}

}  // namespace

void addCopy(Verb app, Action& action) {
  auto options = std::make_shared<CopyOptions>();
  const Verb verb = app.addVerb("copy", "Copy messages into a mailbox or folder, byte for byte");
  addSources(verb, options->sources);
  addStoreOutput(
      verb, "--to", options->to,
      "mbox:FILE, which is appended to (mbox:- is standard output), maildir:FOLDER or dir:FOLDER of "
      ".eml files")
      .required();
  verb.addFlag("--dedup", options->dedup, "Each message once: by its Message-ID and content");
  verb.addText("--since", options->since, "Only messages from this day on (2026-01-31), month or year");
  verb.addText("--where", options->where, "Only messages that an expression of find describes");
  verb.addFlag("--resume", options->resume, "Copy only what is not in the target yet, after an interruption");
  addStreamOptions(verb, options->stream);
  verb.setFooter(
      "Flags of a Maildir, and sender and date of an mbox line, are kept where the target has them.\n\n"
      "Example:\n  mailtree copy old.mbox older.mbox.gz --to maildir:Mail --dedup\n"
      "  mailtree copy box.mbox --to dir:messages\n"
      "  mailtree copy Maildir --to mbox:2026.mbox --since 2026 --where 'not from:noreply'");
  verb.whenChosen([options, &action] { action = [options] { return copy(*options); }; });
}

}  // namespace mailtree::cli
