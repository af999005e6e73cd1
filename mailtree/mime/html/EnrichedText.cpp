#include "mailtree/mime/html/EnrichedText.h"

#include <algorithm>
#include <optional>

#include "mailtree/base/Ascii.h"

namespace mailtree {
namespace {

/// Names of commands have at most 60 characters; a "<" before anything longer is text.
constexpr std::size_t kMostCommandBytes = 62;

class EnrichedReader {
 public:
  EnrichedReader(std::string_view text, EnrichedForm form) : m_rest(text), m_form(form) {}

  std::string read() {
    m_plain.reserve(m_rest.size());
    while (!m_rest.empty()) {
      if (m_rest.front() == '<')
        readCommand();
      else if (m_rest.front() == '\n' || m_rest.front() == '\r')
        readBreaks();
      else
        readText();
    }
    return std::move(m_plain);
  }

 private:
  bool isHidden() const { return m_hiddenLevel > 0; }
  void add(std::string_view text) {
    if (!isHidden()) m_plain += text;
  }

  void readText() {
    const std::size_t end = std::min(m_rest.find_first_of("<\r\n"), m_rest.size());
    add(m_rest.substr(0, end));
    m_rest.remove_prefix(end);
  }

  /// One break is a blank, of several all but one are kept (RFC 1896, 2).
  void readBreaks() {
    std::size_t count = 0;
    while (!m_rest.empty() && (m_rest.front() == '\n' || m_rest.front() == '\r')) {
      count += m_rest.front() == '\n' || !m_rest.starts_with("\r\n");
      m_rest.remove_prefix(1);
    }
    const bool isLiteral = m_unfilledLevel > 0;
    if (m_form == EnrichedForm::richtext || (count == 1 && !isLiteral))
      addBlank();
    else
      add(std::string(isLiteral ? count : count - 1, '\n'));
  }

  void addBlank() {
    if (!m_plain.empty() && !isSpaceAscii(m_plain.back())) add(" ");
  }

  std::optional<std::string> commandAtFront() const {
    const std::size_t end = m_rest.substr(0, kMostCommandBytes).find_first_of("> \r\n\t", 1);
    if (end == std::string_view::npos || m_rest[end] != '>' || end < 2) return std::nullopt;
    return lowerCase(m_rest.substr(1, end - 1));
  }

  void readCommand() {
    if (m_form == EnrichedForm::enriched && m_rest.starts_with("<<")) return take(2, "<");
    const std::optional<std::string> command = commandAtFront();
    if (!command) return take(1, "<");
    take(command->size() + 2, {});
    obey(*command);
  }

  void take(std::size_t count, std::string_view text) {
    m_rest.remove_prefix(count);
    add(text);
  }

  void obey(std::string_view command) {
    const bool isEnd = command.starts_with('/');
    const std::string_view name = isEnd ? command.substr(1) : command;
    if (name == "param" || name == "comment") return enter(m_hiddenLevel, isEnd);
    if (name == "nofill" || name == "verbatim") return enter(m_unfilledLevel, isEnd);
    if (m_form == EnrichedForm::enriched) return;
    if (name == "lt") return add("<");
    if (name == "nl") return add("\n");
    if (name == "np" || (name == "paragraph" && isEnd)) add("\n\n");
  }

  static void enter(int& level, bool isEnd) { level = isEnd ? std::max(level - 1, 0) : level + 1; }

  std::string_view m_rest;
  EnrichedForm m_form;
  std::string m_plain;
  int m_hiddenLevel = 0, m_unfilledLevel = 0;
};

}  // namespace

std::string textOfEnriched(std::string_view text, EnrichedForm form) {
  return EnrichedReader(text, form).read();
}

}  // namespace mailtree
