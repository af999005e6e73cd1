#include "cli/message/target.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace mailtree::cli {

Result<Target> targetOf(std::string_view text) {
  constexpr struct {
    std::string_view prefix;
    Target::Kind kind;
  } kForms[] = {
      {"mbox:", Target::Kind::mbox}, {"maildir:", Target::Kind::maildir}, {"dir:", Target::Kind::folder}};
  for (const auto& [prefix, kind] : kForms)
    if (text.size() > prefix.size() && text.starts_with(prefix))
      return Target{kind, std::string(text.substr(prefix.size()))};
  return Error{ErrorCode::badValue, "must be mbox:FILE, maildir:FOLDER or dir:FOLDER", {}};
}

Target targetNamed(const std::string& text) {
  if (Result<Target> target = targetOf(text)) return *std::move(target);
  std::error_code ignored;
  Target target{Target::Kind::mbox, text};
  if (std::filesystem::is_directory(std::filesystem::path(text) / "cur", ignored))
    target.kind = Target::Kind::maildir;
  else if (text.ends_with('/') || std::filesystem::is_directory(text, ignored))
    target.kind = Target::Kind::folder;
  return target;
}

Target subfolderOf(const Target& target, const std::string& folder) {
  if (target.kind == Target::Kind::maildir) {  // Maildir++ folders are all at the top: ".a.b"
    std::string name = folder;
    std::ranges::replace(name, '/', '.');
    return {target.kind, target.path + "/." + name};
  }
  const std::filesystem::path path = std::filesystem::path(target.path) / folder;
  std::error_code ignored;  // a failure is reported when it is opened
  std::filesystem::create_directories(path.parent_path(), ignored);
  return {target.kind, path.string()};
}

Result<MailWriterPtr> openTarget(const Target& target) {
  switch (target.kind) {
    case Target::Kind::maildir: return openMaildirWriter(target.path);
    case Target::Kind::folder: return openFolderWriter(target.path);
    case Target::Kind::mbox: break;
  }
  return target.path == "-" ? openMboxStream(STDOUT_FILENO, "-") : openMboxWriter(target.path);
}

}  // namespace mailtree::cli
