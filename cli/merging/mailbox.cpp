#include "cli/merging/mailbox.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "cli/message/output.h"
#include "cli/support/errors.h"
#include "cli/support/saving.h"
#include "mailtree/base/Ascii.h"
#include "mailtree/store/mbox_quoting.h"

namespace mailtree::cli {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLeastDigits = 6;
constexpr std::string_view kExtension = ".eml";
constexpr const char* kExists = "already exists; --force replaces it";
constexpr const char* kNoMemory = "not enough memory";

bool assembleInto(Email2& email, StringBuffer& text) {
  LogMemory log;
  text.weakClear();
  if (assembleMessage(email, text, log)) return true;
  reportError(lastError(log, kNoMemory));
  return false;
}

class FolderTarget final : public MergeTarget {
 public:
  FolderTarget(std::string folder, bool force) : m_folder(std::move(folder)), m_force(force) {}

  bool open(std::uint64_t messages) override {
    m_digits = std::max(kLeastDigits, std::to_string(messages).size());
    return makeFolder(m_folder) && (m_force || isFree(messages));
  }

  bool put(Email2& email) override {
    return assembleInto(email, m_text) && saveFile(fs::path(m_folder) / nameOf(++m_number), m_text.view(),
                                                   m_force ? Existing::replaceEntry : Existing::refuse);
  }

  bool commit() override { return true; }

 private:
  std::string nameOf(std::uint64_t number) const {
    const std::string digits = std::to_string(number);
    return std::string(m_digits - std::min(m_digits, digits.size()), '0') + digits + std::string(kExtension);
  }

  /// Whether this run will write a file of this name.
  bool isTargetName(const std::string& name, std::uint64_t messages) const {
    if (name.size() != m_digits + kExtension.size() || !name.ends_with(kExtension)) return false;
    if (!std::all_of(name.begin(), name.end() - kExtension.size(), isDigitAscii)) return false;
    const std::uint64_t number = std::stoull(name);
    return number >= 1 && number <= messages;
  }

  bool isFree(std::uint64_t messages) const {
    std::error_code error;
    for (fs::directory_iterator at(m_folder, error), end; !error && at != end; at.increment(error)) {
      if (!isTargetName(at->path().filename().string(), messages)) continue;
      reportError(at->path().string(), kExists);
      return false;
    }
    if (error) reportError(m_folder, error.message());
    return !error;
  }

  std::string m_folder;
  bool m_force;
  std::size_t m_digits = kLeastDigits;
  std::uint64_t m_number = 0;
  StringBuffer m_text;  ///< Reused for every message.
};

class MailboxTarget final : public MergeTarget {
 public:
  MailboxTarget(std::string path, bool force) : m_path(std::move(path)), m_force(force) {}

  bool open(std::uint64_t) override {
    std::error_code ignored;
    if (!m_force && fs::exists(fs::symlink_status(m_path, ignored))) {
      reportError(m_path, kExists);
      return false;
    }
    return reportUnless(m_sink.open(m_path.c_str(), m_log, m_force ? Existing::replace : Existing::refuse));
  }

  bool put(Email2& email) override {
    if (!assembleInto(email, m_text)) return false;
    m_entry.clear();
    const std::chrono::sys_seconds date{std::chrono::seconds(email.m_date.toUnixTime())};
    appendMboxEntry(withLfForCrlf(std::string(m_text.view())), email.m_fromAddr.m_address.view(), date,
                    m_entry);
    return reportUnless(m_sink.write(m_entry, m_progress, m_log));
  }

  bool commit() override { return reportUnless(m_sink.commit(m_log)); }

 private:
  bool reportUnless(bool done) const {
    if (!done) reportError(m_path, lastError(m_log, "cannot be written"));
    return done;
  }

  std::string m_path;
  bool m_force;
  FileOutput m_sink;
  LogMemory m_log;
  ProgressContext m_progress{nullptr};
  StringBuffer m_text;
  std::string m_entry;
};

}  // namespace

std::unique_ptr<MergeTarget> folderTarget(std::string folder, bool force) {
  return std::make_unique<FolderTarget>(std::move(folder), force);
}

std::unique_ptr<MergeTarget> mailboxTarget(std::string path, bool force) {
  return std::make_unique<MailboxTarget>(std::move(path), force);
}

}  // namespace mailtree::cli
