#include "cli/message/sources.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <system_error>

#include "cli/support/arguments.h"
#include "cli/support/errors.h"
#include "cli/support/interrupt.h"
#include "mailtree/mime/header/HeaderLines.h"
#include "mailtree/store/FolderReader.h"
#include "mailtree/store/archive.h"

namespace mailtree::cli {
namespace {

namespace fs = std::filesystem;
using Kind = MailSource::Kind;

bool exists(const std::string& path) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(path, ignored));
}

std::string hasOnly(std::uint64_t count) {
  return "has only " + std::to_string(count) + (count == 1 ? " message" : " messages");
}

/// Whether the first of what is compressed or packed is mail, or cannot be read, which is for the user to
/// know.
bool holdsMail(const fs::path& path) {
  Result<MailSource> source = MailSource::open(path.string(), {.headersOnly = true});
  SourceMessage message;
  if (!source) return true;
  if (!source->next(message)) return source->error() != nullptr;
  return message.error || source->kind() != Kind::message ||
         findFirstField(std::string_view(message.bytes).substr(0, kMagicBytes)) != std::string_view::npos;
}

/// Whether a file whose name does not tell may be mail. One that cannot be read is an error when it is
/// opened.
bool mayBeMail(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::string start(kMagicBytes, '\0');
  if (!file.read(start.data(), static_cast<std::streamsize>(start.size())) && !file.eof()) return true;
  start.resize(static_cast<std::size_t>(file.gcount()));
  if (beginsArchive(start)) return holdsMail(path);
  return trimLeft(start).starts_with("From ") || findFirstField(start) != std::string_view::npos;
}

/// Files directly in a folder that are not named as messages, and begin like mail; the first one last.
std::vector<std::string> otherFilesIn(const std::string& folder) {
  std::vector<std::string> files;
  std::error_code error, ignored;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
    const fs::file_type type = entry->status(ignored).type();
    const bool isFile = type == fs::file_type::regular || type == fs::file_type::not_found;
    const std::string name = entry->path().filename().string();
    if (isFile && !name.starts_with('.') && !isMessageFile(name) && mayBeMail(entry->path()))
      files.push_back(entry->path().string());
  }
  std::ranges::sort(files, std::greater<>());
  return files;
}

}  // namespace

/// Gives the arguments of the command line, then those in lists.
class Sources::Arguments {
 public:
  explicit Arguments(SourceArguments given) : m_given(std::move(given)) {
    for (std::string& list : m_given.lists) m_lists.push_back({std::move(list), '\n'});
    for (std::string& list : m_given.nulLists) m_lists.push_back({std::move(list), '\0'});
  }

  /// False at the end. With an error the argument is the name of the list.
  Result<bool> next(std::string& argument) {
    if (m_nextPath < m_given.paths.size()) {
      argument = m_given.paths[m_nextPath++];
      return true;
    }
    while (m_nextList < m_lists.size()) {
      Result<bool> given = nextInList(argument);
      if (given && *given) return true;
      if (!given) argument = m_lists[m_nextList].path;
      m_stream = nullptr;
      ++m_nextList;
      if (!given) return given;
    }
    return false;
  }

 private:
  struct List {
    std::string path;
    char end;
  };

  Result<bool> nextInList(std::string& argument) {
    const List& list = m_lists[m_nextList];
    errno = 0;
    if (!m_stream && list.path == "-" && std::ranges::count(m_given.paths, "-") > 0)
      return Error{ErrorCode::badValue, "standard input can be only one of the files", {}};
    if (!m_stream && list.path != "-") m_file = std::ifstream(list.path, std::ios::binary);
    m_stream = list.path == "-" ? &std::cin : &m_file;
    while (std::getline(*m_stream, argument, list.end))
      if (!argument.empty()) return true;
    if (m_stream->eof() && !m_stream->bad()) return false;
    return Error{ErrorCode::unreadable, std::generic_category().message(errno ? errno : EIO), {}};
  }

  SourceArguments m_given;
  std::vector<List> m_lists;
  std::size_t m_nextPath = 0, m_nextList = 0;
  std::ifstream m_file;
  std::istream* m_stream = nullptr;  ///< Of the list that is read.
};

Result<std::vector<std::string>> Sources::argumentsIn(const SourceArguments& given) {
  Arguments arguments(given);
  std::vector<std::string> all;
  for (std::string argument;; all.push_back(argument)) {
    Result<bool> hasMore = arguments.next(argument);
    if (!hasMore) return Error{hasMore.error().code, hasMore.error().message, argument};
    if (!*hasMore) return all;
  }
}

Sources::Sources(SourceArguments arguments, const SourcesOptions& options)
    : m_arguments(std::make_unique<Arguments>(std::move(arguments))), m_options(options) {}
Sources::~Sources() { reportEmpty(); }

void Sources::reportEmpty(std::uint64_t index) {
  const std::lock_guard lock(m_mutex);
  for (; !m_empty.empty() && m_empty.front().index <= index; m_empty.pop_front())
    reportError(m_empty.front().path, "contains no messages");
}

bool Sources::next(SourceMessage& message) {
  const bool isThere = give(message);
  m_given += isThere ? 1 : 0;
  return isThere;
}

bool Sources::give(SourceMessage& message) {
  for (;;) {
    if (!m_isOpen) {
      Result<bool> opened = openNext();
      if (opened && !*opened) return false;
      if (!opened) return giveError(message, std::move(opened).error());
      m_hasGiven = false;
    }
    m_isOpen = m_source->next(message);
    if (m_isOpen) {
      m_hasGiven = true;
      m_passed = message.number;
      m_offset = message.offset;
      m_isOpen = m_wanted.mark == 0;
      return true;
    }
    if (giveEnd(message)) return true;
  }
}

Sources::Wanted Sources::wantedBy(const std::string& argument) {
  Wanted whole{.argument = argument, .path = argument};
  const std::size_t mark = argument.find_last_not_of("0123456789");
  if (mark == std::string::npos || (argument[mark] != '#' && argument[mark] != '@')) return whole;
  const std::string path = argument.substr(0, mark);
  std::uint64_t value = 0;
  const char* const end = argument.data() + argument.size();
  const auto [last, error] = std::from_chars(argument.data() + mark + 1, end, value);
  const bool isNumber = last == end && error == std::errc() && (argument[mark] == '@' || value > 0);
  if (!isNumber || exists(argument) || (path != "-" && !exists(path))) return whole;
  return {.argument = argument, .path = path, .mark = argument[mark], .value = value};
}

/// False when there are no more arguments.
Result<bool> Sources::openNext() {
  if (!m_others.empty()) {
    m_wanted = std::move(m_others.back());
    m_others.pop_back();
  } else {
    std::string argument;
    Result<bool> given = m_arguments->next(argument);
    m_wanted = wantedBy(argument);
    if (!given || !*given) return given;
  }
  if (Result<void> opened = open(); !opened) return std::move(opened).error();
  return true;
}

Result<void> Sources::open() {
  const bool isFurther =
      m_wanted.mark == '@' ? m_wanted.value > m_offset : m_isCounted && m_wanted.value > m_passed;
  if (!m_source || m_source->error() || m_wanted.mark == 0 || m_wanted.path != m_path || !isFurther) {
    m_source.reset();
    Result<MailSource> opened = MailSource::open(m_wanted.path, m_options.reading, InterruptGuard::flag());
    if (!opened) return std::move(opened).error();
    m_source.emplace(*std::move(opened));
    m_path = m_wanted.path;
    m_passed = m_offset = 0;
    m_isCounted = true;
  }
  m_isCounted = m_isCounted && m_wanted.mark != '@';
  if (m_wanted.mark == 0) return {};
  Result<void> found =
      m_wanted.mark == '@' ? m_source->seekOffset(m_wanted.value) : m_source->seekNumber(m_wanted.value);
  if (!found) m_source.reset();
  return found;
}

/// At the end of a source: gives why it ended too early, or that it was an empty message.
bool Sources::giveEnd(SourceMessage& message) {
  if (const Error* const error = m_source->error()) return giveError(message, *error);
  if (m_wanted.mark != 0) return giveError(message, {ErrorCode::notFound, hasOnly(m_wanted.value - 1), {}});
  const Kind kind = m_source->kind();
  if (kind == Kind::folder)
    for (std::string& file : otherFilesIn(m_path))
      m_others.push_back({.argument = file, .path = file, .folder = m_path});
  const bool isEmpty = !m_hasGiven && m_others.empty();
  if (isEmpty && kind != Kind::mbox) {
    const std::lock_guard lock(m_mutex);
    m_empty.push_back({m_given, m_path});
  }
  if (!isEmpty || kind != Kind::mbox || !m_options.emptyIsMessage) return false;
  message = {};
  message.path = m_path;
  message.hasBytes = true;
  return true;
}

bool Sources::giveError(SourceMessage& message, Error error) const {
  message = {};
  message.path = m_wanted.argument;
  message.error = std::move(error);
  return true;
}

const std::string& Sources::found() const noexcept {
  return m_wanted.folder.empty() ? m_wanted.path : m_wanted.folder;
}

std::string problemOf(const Error& error) {
  for (const std::string_view prefix : {"cannot be read: ", "cannot be written: "})
    if (error.message.starts_with(prefix)) return error.message.substr(prefix.size());
  return error.message;
}

void addSources(Verb verb, SourceArguments& arguments) {
  const Option file = verb.addTexts(
      "FILE", arguments.paths,
      "Messages, mailboxes, folders or archives of them; box.mbox#12 is one message; - is standard "
      "input");
  file.required();
  addSourceLists(verb, file, arguments);
}

void addSourceLists(Verb verb, Option file, SourceArguments& arguments) {
  const auto mayBeMissing = [file] { file.required(false); };
  verb.addRepeated("--files-from", arguments.lists,
                   "Further names from this file, one a line; - is standard input")
      .kind(kFile)
      .whenGiven(mayBeMissing);
  verb.addRepeated("--files0-from", arguments.nulLists,
                   "The same with a NUL after each name, as find -print0 writes")
      .kind(kFile)
      .whenGiven(mayBeMissing);
}

}  // namespace mailtree::cli
