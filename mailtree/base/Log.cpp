#include "mailtree/base/Log.h"

#include <algorithm>
#include <iterator>

namespace mailtree {
namespace {

/// One line of a terminal: text quoted from a message can neither break the line nor control the terminal.
void appendOneLine(std::string& out, std::string_view text) {
  std::transform(text.begin(), text.end(), std::back_inserter(out),
                 [](char c) { return isControlAscii(c) ? ' ' : c; });
}

void appendLine(std::string& out, std::size_t depth, std::string_view label, std::string_view text) {
  out.append(2 * depth, ' ');
  appendOneLine(out, label);
  appendOneLine(out, text);
  out.push_back('\n');
}

}  // namespace

void LogMemory::logError(std::string_view text) { keep(Kind::Error, {}, text); }

void LogMemory::logInfo(std::string_view text) { keep(Kind::Info, {}, text); }

void LogMemory::LogDataSb(std::string_view tag, std::string_view text) { keep(Kind::Data, tag, text); }

void LogMemory::LogDataLong(std::string_view tag, std::int64_t number) {
  keep(Kind::Data, tag, std::to_string(number));
}

void LogMemory::openContext(std::string_view name) {
  keep(Kind::ContextOpen, {}, name);
  neverThrow(false, [&] {
    m_parentLength.push_back(m_context.size());
    if (!m_context.empty()) m_context.push_back('/');
    m_context.append(name);
    return true;
  });
}

void LogMemory::closeContext() {
  if (m_parentLength.empty()) return;
  const std::size_t length = m_parentLength.back();
  m_parentLength.pop_back();
  neverThrow(false, [&] {
    const std::string name = m_context.substr(length == 0 ? 0 : std::min(length + 1, m_context.size()));
    m_context.resize(length);
    keep(Kind::ContextClose, {}, name);
    return true;
  });
}

void LogMemory::clear() {
  m_entries.clear();
  m_context.clear();
  m_parentLength.clear();
}

std::string LogMemory::text() const {
  std::string out;
  std::size_t depth = 0;
  for (const LogEntry& entry : m_entries) {
    switch (entry.kind) {
      case Kind::Error: appendLine(out, depth, "error: ", entry.text); break;
      case Kind::Info: appendLine(out, depth, {}, entry.text); break;
      case Kind::Data: appendLine(out, depth, entry.tag + ": ", entry.text); break;
      case Kind::ContextOpen: appendLine(out, depth++, {}, entry.text + ":"); break;
      case Kind::ContextClose: depth -= depth > 0; break;
    }
  }
  return out;
}

/// When memory runs out, the entry is lost, but the logging operation does not fail.
void LogMemory::keep(Kind kind, std::string_view tag, std::string_view text) {
  neverThrow(false, [&] {
    m_entries.push_back({kind, m_context, std::string(tag), std::string(text)});
    return true;
  });
}

std::string lastError(const LogMemory& log, std::string_view otherwise) {
  const auto isError = [](const LogEntry& entry) { return entry.kind == LogEntry::Kind::Error; };
  const auto& entries = log.entries();
  const auto last = std::find_if(entries.rbegin(), entries.rend(), isError);
  return last == entries.rend() ? std::string(otherwise) : last->text;
}

}  // namespace mailtree
