// cli/export.cpp - mailtree export: a record for each message, for databases, scripts and models.
#include <atomic>
#include <filesystem>
#include <iostream>
#include <memory>

#include "cli/commands.h"
#include "cli/exporting/records.h"
#include "cli/exporting/resumable_file.h"
#include "cli/exporting/whole_file.h"
#include "cli/message/input.h"
#include "cli/message/shards.h"
#include "cli/message/streaming.h"
#include "cli/secure/keys.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/saving.h"
#include "mailtree/base/FileNames.h"
#include "mailtree/crypto/Digest.h"

namespace mailtree::cli {
namespace {

struct ExportOptions {
  SourceArguments sources;
  StreamSettings stream;
  bool json = false, csv = false;
  std::string textFolder, attachments, shard = "1/1", properties;
  Destination out;
  bool resume = false;
  KeyOptions keys;

  RecordForm form() const {
    if (csv) return RecordForm::csv;
    return json ? RecordForm::json : RecordForm::text;
  }
};

std::vector<std::string> wordsAt(std::string_view text, char separator) {
  std::vector<std::string> words;
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t end = std::min(text.find(separator, at), text.size());
    if (end > at) words.emplace_back(text.substr(at, end - at));
    at = end + 1;
  }
  return words;
}

/// What decides the output, to tell whether --resume continues the same work.
std::string keyOf(const ExportOptions& options, const Shard& shard) {
  std::string key;
  for (const auto* const list : {&options.sources.paths, &options.sources.lists, &options.sources.nulLists}) {
    for (const std::string& name : *list) key.append(name).append(1, '\0');
    key += '\n';
  }
  key += std::to_string(static_cast<int>(options.form())) + "\n" + options.properties + "\n" +
         std::to_string(shard.number) + "/" + std::to_string(shard.of) + "\n" +
         (options.attachments.empty() ? "" : "files");
  return sha256Hex(key);
}

Exit fail(const Error& error) {
  error.where.empty() ? reportError(error.message) : reportError(error.where, error.message);
  return Exit::unreadable;
}

/// The record of a message, or why there is none.
struct Made {
  std::string record = {};
  LimitSet limits = {};
  std::optional<Error> error = {};
};

class Exporter {
 public:
  Exporter(const ExportOptions& options, const Shard& shard, const Keys& keys)
      : m_options(options),
        m_shard(shard),
        m_keys(keys),
        m_attachments(options.attachments),
        m_records({.form = options.form(),
                   .properties = wordsAt(options.properties, ','),
                   .attachments = options.attachments.empty() ? nullptr : &m_attachments}) {}

  Exit run() {
    if (const Exit failed = open(); failed != Exit::fine) return failed;
    if (m_file.isComplete()) return reportUnreadable();
    Result<MessageFeed> feed = feedOf(m_shard, m_options.sources);
    if (!feed) return fail(feed.error());
    Streaming stream(m_options.sources, streamWith(m_options.keys, m_options.stream),
                     skipping(*std::move(feed)));
    stream.whenUnreadable([this](const SourceMessage& message) { addUnreadable(message); });
    const Exit result =
        stream.run([this](SourceMessage& message) { return make(message); },
                   [this](SourceMessage& message, Made& made) { return take(message, made); }, [] {});
    return finish(result, stream.end());
  }

 private:
  bool hasFile() const { return m_options.textFolder.empty() && !isStandardOutput(m_options.out.path); }

  Exit open() {
    if (!m_options.attachments.empty())
      if (const Result<void> opened = m_attachments.open(); !opened) return fail(opened.error());
    if (!m_options.textFolder.empty() && !makeFolder(m_options.textFolder)) return Exit::unreadable;
    if (hasFile()) {
      using Begin = ResumableFile::Begin;
      const Begin begin = m_options.resume      ? Begin::resume
                          : m_options.out.force ? Begin::force
                                                : Begin::fresh;
      if (const Result<void> opened = m_file.open(m_options.out.path, keyOf(m_options, m_shard), begin);
          !opened)
        return fail(opened.error());
    }
    const bool hasHead = m_options.csv && m_shard.number == 1 && m_file.messages() == 0;
    if (hasHead && hasFile()) m_file.beginWith(m_records.head());
    if (hasHead && !hasFile()) std::cout << m_records.head();
    return Exit::fine;
  }

  /// Skips the messages that are done.
  MessageFeed skipping(MessageFeed feed) {
    return [this, feed = std::move(feed), toPass = m_file.messages()](SourceMessage& message) mutable {
      const bool passes = toPass > 0;
      for (; toPass > 0; --toPass)
        if (!feed(message)) message = {};
      if (passes && !m_file.isLast(placeOf(message))) {
        message = {};
        message.path = m_options.out.path;
        message.error = Error{ErrorCode::badValue, "the sources have changed since the export was begun", {}};
        m_hasChanged = true;
        return true;
      }
      return !m_hasChanged && feed(message);
    };
  }

  std::string textPathOf(const SourceMessage& message) const {
    const std::string place = placeOf(message);
    const std::string name = safeFileName(place.substr(place.find_last_of('/') + 1), {});
    return m_options.textFolder + "/" + name + "-" + sha256Hex(place).substr(0, 8) + ".txt";
  }

  /// Called by any thread.
  Made make(SourceMessage& source) {
    const bool isText = !m_options.textFolder.empty();
    const std::string path = isText ? textPathOf(source) : std::string();
    // A text is never empty; an empty file is left over from a loss of power.
    std::error_code failed;
    if (isText && m_options.resume && std::filesystem::file_size(path, failed) > 0 && !failed) return {};
    Result<mailtree::Message> message = mailtree::Message::parse(source.bytes, {.keys = &m_keys.all});
    if (!message) return {.error = message.error()};
    Made made{.record = m_records.recordOf(*message, source, source.bytes.size()),
              .limits = limitsIn(*message)};
    if (!isText) return made;
    if (!writeWhole(path, made.record)) made.error = Error{ErrorCode::unwritable, "stopped", path};
    made.record.clear();
    return made;
  }

  bool take(const SourceMessage& source, Made& made) {
    const std::string place = placeOf(source);
    if (made.error) m_result = fail({made.error->code, made.error->message, place});
    if (made.error || m_attachments.hasFailed()) return m_hasStopped = true, false;
    m_result = worse(m_result, reportLimits(place, made.limits));
    if (!m_options.textFolder.empty()) return true;
    return add(made.record, place);
  }

  bool add(const std::string& record, const std::string& place) {
    if (m_hasChanged) return false;
    if (!hasFile()) return std::cout.write(record.data(), static_cast<std::streamsize>(record.size())).good();
    Result<void> done = m_file.add(record, place);
    if (done && m_file.isDue()) done = save();
    if (done) return true;
    m_result = worse(m_result, fail(done.error()));
    m_hasStopped = true;
    return false;
  }

  void addUnreadable(const SourceMessage& message) {
    if (!hasFile() || m_hasChanged) return;
    if (const Result<void> done = m_file.addUnreadable(placeOf(message)); !done) {
      m_result = worse(m_result, fail(done.error()));
      m_hasStopped = true;
    }
  }

  /// Messages that an earlier run could not read are not tried again.
  Exit reportUnreadable() const {
    if (m_file.unreadable() == 0) return Exit::fine;
    const bool isOne = m_file.unreadable() == 1;
    reportError(m_options.out.path, std::to_string(m_file.unreadable()) + (isOne ? " message" : " messages") +
                                        " could not be read and " + (isOne ? "is" : "are") +
                                        " missing; --force tries again");
    return Exit::unreadable;
  }

  /// Attachments go to disk first: the journal never names a message whose files are not there.
  Result<void> save() {
    if (!m_options.attachments.empty())
      if (Result<void> done = m_attachments.flush(); !done) return done;
    return m_file.save();
  }

  Exit finish(Exit result, StreamEnd end) {
    if (m_attachments.hasFailed()) m_result = worse(m_result, Exit::unreadable);
    const bool isWhole = end == StreamEnd::whole && !m_hasStopped && !m_hasChanged;
    Result<void> done;
    if (!m_options.textFolder.empty()) done = synchronize(m_options.textFolder);
    if (done && !m_options.attachments.empty()) done = m_attachments.flush();
    if (done && hasFile()) done = isWhole ? m_file.finish() : m_file.save();
    if (!done) m_result = worse(m_result, fail(done.error()));
    if (m_file.unreadable() > 0) m_result = worse(m_result, Exit::unreadable);
    return worse(result, m_result);
  }

  const ExportOptions& m_options;
  const Shard m_shard;
  const Keys& m_keys;
  HashFolder m_attachments;
  Records m_records;
  ResumableFile m_file;
  std::atomic<bool> m_hasChanged = false;
  bool m_hasStopped = false;
  Exit m_result = Exit::fine;
};

Exit exportAll(const ExportOptions& options) {
  const bool hasText = !options.textFolder.empty();
  if (!options.json && !options.csv && !hasText)
    return usageError("export", "one of --json, --csv and --text is needed");
  if (options.resume && !hasText && isStandardOutput(options.out.path))
    return usageError("--resume", "needs -o or --text");
  const Result<Shard> shard = shardOf(options.shard);
  if (!shard) return usageError("--shard", shard.error().message);
  for (const std::string& property : wordsAt(options.properties, ','))
    if (const std::string problem = problemOfProperty(property, options.form()); !problem.empty())
      return usageError("--properties", problem);
  Keys keys;
  if (const Exit failed = readKeys(options.keys, keys); failed != Exit::fine) return failed;
  return Exporter(options, *shard, keys).run();
}

}  // namespace

void addExport(Verb app, Action& action) {
  auto options = std::make_shared<ExportOptions>();
  const Verb verb = app.addVerb("export", "Write a record for each message: JSON, a table, or its text");
  addSources(verb, options->sources);
  const Option json =
      verb.addFlag("--json", options->json, "One Email object of JMAP (RFC 8621) on each line, and more");
  const Option csv = verb.addFlag("--csv", options->csv, "Comma-separated values with a header row");
  const Option text =
      verb.addText("--text", options->textFolder, "Write a text file for each message to this folder");
  text.kind(kFolder);
  json.excludes(csv).excludes(text);
  csv.excludes(text);
  verb.addText("--properties", options->properties, "Only these properties, separated by commas")
      .excludes(text);
  verb.addText("--attachments", options->attachments,
               "Save attachments in this folder, each content once, named by its SHA-256 (blobId)")
      .kind(kFolder);
  verb.addText("-o,--output", options->out.path, "File to write; standard output without it")
      .kind(kFile)
      .excludes(text);
  verb.addFlag("--force", options->out.force, "Overwrite an existing file");
  verb.addFlag("--resume", options->resume,
               "Go on where an earlier call with the same options was interrupted; nothing to do is fine");
  verb.addText("--shard", options->shard,
               "Only part K of N, as K/N; auto: by SLURM_ARRAY_TASK_ID; auto/N: also by PARALLEL_SEQ");
  addStreamOptions(verb, options->stream);
  addReadingKeyOptions(verb, options->keys);
  verb.setFooter(
      "A message of an mbox is named box.mbox@OFFSET. Its JSON has, beyond the Email object: size, threadId "
      "(the Message-ID that began the thread), receivedAt, keywords (of a Maildir), security (null when "
      "there "
      "is none) and problems (as check). The parts of --shard, joined in order, are the whole. Until all is "
      "done, -o FILE is FILE.part, and FILE.journal says how far it is; with --resume the journal stays, so\n"
      "that the next call knows that all is done.\n\n"
      "Example:\n  mailtree export --json -o mail.jsonl inbox.mbox Maildir\n"
      "  mailtree export --json --properties subject,from,bodyValues box.mbox | jq .subject\n"
      "  mailtree export --csv --attachments files -o mail.csv archive.mbox.gz\n"
      "  mailtree export --json --shard auto --resume -o part-$SLURM_ARRAY_TASK_ID.jsonl box.mbox");
  verb.whenChosen([options, &action] { action = [options] { return exportAll(*options); }; });
}

}  // namespace mailtree::cli
