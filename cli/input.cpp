#include "cli/input.h"

#include <iostream>

#include "cli/views/terminal.h"

namespace mailtree::cli {
namespace {

constexpr const char* kStandardInput = "/dev/stdin";

}  // namespace

void complain(std::string_view file, std::string_view problem) {
  std::cerr << "mailtree: ";
  if (!file.empty()) std::cerr << printable(file) << ": ";
  std::cerr << printable(problem) << '\n';
}

std::string lastError(const LogMemory& log, std::string_view otherwise) {
  const auto& entries = log.entries();
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry)
    if (entry->kind == LogEntry::Kind::Error) return entry->text;
  return std::string(otherwise);
}

Exit finishStandardOutput() {
  if (std::cout.flush()) return Exit::fine;
  complain("standard output", "cannot be written");
  return Exit::unreadable;
}

bool readFile(const std::string& path, DataBuffer& bytes) {
  LogMemory log;
  if (bytes.loadFileUtf8(path == "-" ? kStandardInput : path.c_str(), log)) return true;
  complain(path, lastError(log, "cannot be read"));
  return false;
}

std::optional<Message> loadMessage(const std::string& path) {
  DataBuffer bytes;
  if (!readFile(path, bytes)) return std::nullopt;
  Message message{RefPtr<_svEmailCommon>(new _svEmailCommon), nullptr};
  SystemCerts certs;
  LogNull log;
  message.root.reset(Email2::createFromMimeDb(*message.common, bytes, /*discardInput=*/true, /*unwrap=*/true,
                                              certs, log,
                                              /*parseOption=*/false));
  if (message.root) return message;
  complain(path, "not enough memory");
  return std::nullopt;
}

Exit reportLimits(const std::string& path, LimitSet limits) {
  for (const LimitName& row : kLimitNames)
    if (limits.has(row.limit)) complain(path, std::string(row.name) + ": the rest was left as it is");
  return limits.isEmpty() ? Exit::fine : Exit::limit;
}

}  // namespace mailtree::cli
