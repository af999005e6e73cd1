#include "cli/message/store_output.h"

#include "cli/message/sources.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"

namespace mailtree::cli {
namespace {

std::string problemOfTarget(const std::string& text) {
  const Result<Target> target = targetOf(text);
  return target ? "" : "'" + text + "': " + target.error().message;
}

}  // namespace

Option addStoreOutput(Verb verb, const std::string& option, std::string& target,
                      const std::string& description) {
  return verb.addText(option, target, description).kind("STORE").check(problemOfTarget);
}

Exit StoreOutput::open(const Target& target) {
  m_target = target;
  Result<MailWriterPtr> writer = openTarget(target);
  if (!writer) return report(writer.error());
  m_writer = *std::move(writer);
  return Exit::fine;
}

Exit StoreOutput::add(std::string_view message, const SourceMessage& source) {
  Delivery delivery{.sender = source.sender, .date = source.date};
  if (source.flags) delivery.flags = *source.flags;
  MailWriter* const writer = writerFor(source.folder);
  return writer ? report(writer->add(message, delivery)) : Exit::unreadable;
}

MailWriter* StoreOutput::writerFor(const std::string& folder) {
  if (folder.empty() || m_target.kind == Target::Kind::mbox) return m_writer.get();
  const auto [found, isNew] = m_folders.try_emplace(folder);
  if (!isNew) return found->second.get();
  Result<MailWriterPtr> writer = openTarget(subfolderOf(m_target, folder));
  if (writer) return (found->second = *std::move(writer)).get();
  report(writer.error());
  return nullptr;
}

Exit StoreOutput::finish() {
  Exit result = report(m_writer->flush());
  for (const auto& [name, writer] : m_folders)
    if (writer) result = worse(result, report(writer->flush()));
  return result;
}

/// Only the first error is reported: on a full disk every message would have one.
Exit StoreOutput::report(const Result<void>& done) {
  if (done) return Exit::fine;
  if (!m_hasFailed) reportError(m_target.path, problemOf(done.error()));
  m_hasFailed = true;
  return Exit::unreadable;
}

Exit rewriteEachMessage(const SourceArguments& arguments, const std::string& target, const char* single,
                        const std::optional<StreamSettings>& stream,
                        const std::function<Exit(Input&)>& work) {
  if (target.empty()) return forEachMessage(arguments, {.hasTitles = false, .single = single}, work);
  StoreOutput store;
  if (const Exit failed = store.open(*targetOf(target)); failed != Exit::fine) return failed;
  const auto add = [&store](const Input& input) {
    return input.rewritten ? store.add(*input.rewritten, input.source) : Exit::fine;
  };
  const Exit result =
      forEachMessage(arguments, {.hasTitles = false, .stream = stream, .whenDone = add}, work);
  return worse(result, store.finish());
}

}  // namespace mailtree::cli
