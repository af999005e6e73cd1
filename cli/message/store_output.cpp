#include "cli/message/store_output.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "cli/message/sources.h"
#include "cli/support/arguments.h"
#include "cli/support/errors.h"

namespace mailtree::cli {
namespace {

struct Form {
  std::string_view prefix;
  Result<MailWriterPtr> (*open)(const std::string& path);
};
constexpr Form kForms[] = {{"mbox:", [](const std::string& path) { return openMboxWriter(path); }},
                           {"maildir:", openMaildirWriter},
                           {"dir:", openFolderWriter}};

/// Null unless a form and a name are there.
const Form* formOf(std::string_view target) {
  const auto* const form = std::ranges::find_if(kForms, [target](const Form& row) {
    return target.starts_with(row.prefix) && target.size() > row.prefix.size();
  });
  return form == std::end(kForms) ? nullptr : form;
}

std::string problemOfTarget(const std::string& target) {
  return formOf(target) ? "" : "'" + target + "': must be mbox:FILE, maildir:FOLDER or dir:FOLDER";
}

}  // namespace

CLI::Option* addStoreOutput(CLI::App& verb, const std::string& option, std::string& target,
                            const std::string& description) {
  return addText(verb, option, target, description)->type_name("STORE")->check(problemOfTarget);
}

Exit StoreOutput::open(const std::string& target) {
  const Form& form = *formOf(target);
  m_target = target.substr(form.prefix.size());
  Result<MailWriterPtr> writer = form.open(m_target);
  if (!writer) return report(writer.error());
  m_writer = *std::move(writer);
  return Exit::fine;
}

Exit StoreOutput::add(std::string_view message, const SourceMessage& source) {
  Delivery delivery{.sender = source.sender, .date = source.date};
  if (source.flags) delivery.flags = *source.flags;
  return report(m_writer->add(message, delivery));
}

Exit StoreOutput::finish() { return report(m_writer->flush()); }

/// Only the first error is reported: on a full disk every message would have one.
Exit StoreOutput::report(const Result<void>& done) {
  if (done) return Exit::fine;
  if (!m_hasFailed) reportError(m_target, problemOf(done.error()));
  m_hasFailed = true;
  return Exit::unreadable;
}

Exit forEachMessage(const SourceArguments& arguments, const std::string& target, const char* single,
                    const std::function<Exit(Input&, StoreOutput&)>& work) {
  StoreOutput store;
  if (!target.empty())
    if (const Exit failed = store.open(target); failed != Exit::fine) return failed;
  const Exit result =
      forEachMessage(arguments, {.hasTitles = false, .single = store.isOpen() ? nullptr : single},
                     [&](Input& input) { return work(input, store); });
  return store.isOpen() ? worse(result, store.finish()) : result;
}

}  // namespace mailtree::cli
