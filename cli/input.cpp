#include "cli/input.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iostream>
#include <system_error>

#include "cli/progress.h"
#include "cli/views/terminal.h"
#include "cli/writing/structure.h"

namespace mailtree::cli {
namespace {

constexpr std::size_t kReadChunk = std::size_t{64} * 1024;

/// Reads the descriptor itself, from where it stands to its end; 0 or the errno that stopped it. Opening
/// /dev/stdin instead would start a file anew, and fails for sockets and for files only the opener may read.
int readStandardInput(DataBuffer& bytes) {
  for (;;) {
    unsigned char* const room = bytes.appendUninitialized(kReadChunk);
    if (!room) return ENOMEM;
    const ssize_t count = ::read(STDIN_FILENO, room, kReadChunk);
    const int error = count < 0 ? errno : 0;
    bytes.shorten(kReadChunk - static_cast<std::size_t>(count < 0 ? 0 : count));
    if (error == EINTR) continue;
    if (count <= 0) return error;
  }
}

std::optional<Message> load(const std::string& path, DataBuffer& bytes, bool discardInput, bool unwrap,
                            SystemCerts& certs) {
  Message message{RefPtr<_svEmailCommon>(new _svEmailCommon), nullptr};
  LogNull log;
  message.root.reset(Email2::createFromMimeDb(*message.common, bytes, discardInput, unwrap, certs, log,
                                              /*parseOption=*/false));
  // A tree with something missing is no answer, and written it would replace the whole one.
  if (message.root && message.common->m_isWhole) return message;
  complain(path, kNoMemory);
  return std::nullopt;
}

bool hasUnixLines(std::string_view message) {
  const std::size_t end = message.find('\n');
  return end != std::string_view::npos && (end == 0 || message[end - 1] != '\r');
}

/// Whether the line ends of a body are line ends of the mail: base64 and binary carry bytes, and in
/// quoted-printable only those of a text cannot be told from encoded ones.
bool hasLinesOfMail(const Email2& leaf) {
  const std::string_view encoding = leaf.m_transferEncoding;
  if (encoding.empty() || equalsNoCase(encoding, "7bit") || equalsNoCase(encoding, "8bit")) return true;
  const std::string_view type = leaf.m_contentType.m_type;
  return equalsNoCase(encoding, "quoted-printable") && (type.empty() || beginsWithNoCase(type, "text/"));
}

void completeLineEnds(Email2& node) {
  if (node.getNumParts() > 0 || !hasLinesOfMail(node) || !node.m_body.containsBareCRLF() ||
      node.m_body.containsChar('\0'))
    return;  // where NULs stand, LF may be half a letter
  StringBuffer lines(node.m_body.view());
  DataBuffer body;
  if (lines.toCRLF() && body.append(lines)) node.m_body.takeData(body);
}

std::optional<Message> loadToWrite(const std::string& path, DataBuffer& bytes, bool discardInput) {
  const bool isUnixFile = hasUnixLines(bytes.view());
  SystemCerts none;
  std::optional<Message> message = load(path, bytes, discardInput, /*unwrap=*/false, none);
  if (message && isUnixFile) walkUnsigned(*message->root, completeLineEnds);
  return message;
}

}  // namespace

void complain(std::string_view problem) {
  clearProgressLine();
  std::cerr << "mailtree: " << printable(problem) << '\n';
}

void complain(std::string_view file, std::string_view problem) {
  complain((file.empty() ? "''" : std::string(file)).append(": ").append(problem));
}

Exit refuse(std::string_view option, std::string_view problem) {
  complain(option, problem);
  return Exit::usage;
}

std::string lastError(const LogMemory& log, std::string_view otherwise) {
  const auto& entries = log.entries();
  const auto last = std::find_if(entries.rbegin(), entries.rend(),
                                 [](const LogEntry& entry) { return entry.kind == LogEntry::Kind::Error; });
  return last == entries.rend() ? std::string(otherwise) : last->text;
}

Exit finishStandardOutput() {
  if (abandonedOperations() != 0) {
    complain("standard output", kNoMemory);
    return Exit::unreadable;
  }
  if (std::cout.flush()) return Exit::fine;
  complain("standard output", "cannot be written");
  return Exit::unreadable;
}

Exit appendFiles(const std::string& path, std::vector<std::string>& files) {
  namespace fs = std::filesystem;
  std::error_code error, ignored;
  if (path == "-" || !fs::is_directory(path, ignored)) {
    files.push_back(path);
    return Exit::fine;
  }
  const auto before = static_cast<std::ptrdiff_t>(files.size());
  for (fs::directory_iterator entry(path, error), end; !error && entry != end; entry.increment(error)) {
    const fs::file_type type = entry->status(ignored).type();
    // A link to nowhere is complained of when it is read.
    const bool isFile =
        type == fs::file_type::regular || type == fs::file_type::not_found || type == fs::file_type::none;
    if (isFile && !entry->path().filename().string().starts_with('.'))
      files.push_back(entry->path().string());
  }
  if (!error && static_cast<std::ptrdiff_t>(files.size()) == before)
    complain(path, "no files in it; folders below are not looked into");
  std::sort(files.begin() + before, files.end());
  if (!error) return Exit::fine;
  complain(path, error.message());
  return Exit::unreadable;
}

bool readFile(const std::string& path, DataBuffer& bytes) {
  if (path == "-") {
    const int error = readStandardInput(bytes);
    if (error) complain(path, std::generic_category().message(error));
    return error == 0;
  }
  LogMemory log;
  if (bytes.loadFileUtf8(path.c_str(), log)) return true;
  complain(path, lastError(log, "cannot be read"));
  return false;
}

std::optional<Message> loadMessage(const std::string& path, SystemCerts& certs) {
  DataBuffer bytes;
  if (!readFile(path, bytes)) return std::nullopt;
  return load(path, bytes, /*discardInput=*/true, /*unwrap=*/true, certs);
}

std::optional<Message> loadMessage(const std::string& path) {
  SystemCerts none;
  return loadMessage(path, none);
}

std::optional<Message> loadMessage(const std::string& path, DataBuffer& bytes, SystemCerts& certs) {
  return load(path, bytes, /*discardInput=*/false, /*unwrap=*/true, certs);
}

std::optional<Message> loadMessageToWrite(const std::string& path) {
  DataBuffer bytes;
  if (!readFile(path, bytes)) return std::nullopt;
  return loadToWrite(path, bytes, /*discardInput=*/true);
}

std::optional<Message> loadMessageToWrite(const std::string& path, DataBuffer& bytes) {
  return loadToWrite(path, bytes, /*discardInput=*/false);
}

Exit reportLimits(const std::string& path, LimitSet limits) {
  for (const LimitName& row : kLimitNames)
    if (limits.has(row.limit)) complain(path, std::string(row.name) + ": the rest was left as it is");
  return limits.isEmpty() ? Exit::fine : Exit::limit;
}

}  // namespace mailtree::cli
