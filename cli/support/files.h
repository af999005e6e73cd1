// cli/support/files.h - reading files and standard input.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/support/exit_codes.h"
#include "cli/support/terminal.h"
#include "mailtree/base/DataBuffer.h"

namespace CLI {
class App;
}

namespace mailtree::cli {

/// Appends the file that an argument names or, for a folder, its files sorted by name, without hidden files
/// and subfolders. unreadable after reporting an error.
Exit appendFiles(const std::string& path, std::vector<std::string>& files);

/// Reads a whole file, or standard input for "-". False after reporting an error.
bool readFile(const std::string& path, DataBuffer& bytes);

/// Reads until what has been read is enough, or to the end.
bool readFileUntil(const std::string& path, DataBuffer& bytes,
                   const std::function<bool(std::string_view)>& isEnough);

/// Adds the argument of a verb that reads any number of messages.
void addMessageFiles(CLI::App& verb, std::vector<std::string>& paths);

/// Calls a verb's work for each file, in order. Folders are replaced with their files. With more than one
/// file, each result gets a title, "== FILE ==", unless it names its file itself.
/// @param single  the option or verb that takes only one file; null when there is none.
/// @param style   of the titles.
Exit forEachFile(const std::vector<std::string>& paths, bool hasTitles,
                 const std::function<Exit(const std::string&)>& work, const char* single = nullptr,
                 const Style& style = {});

}  // namespace mailtree::cli
