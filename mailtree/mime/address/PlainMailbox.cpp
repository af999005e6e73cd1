#include "mailtree/mime/address/PlainMailbox.h"

#include <array>

#include "mailtree/base/Ascii.h"

namespace mailtree {
namespace {

/// What a byte may be part of; a backslash may begin an escape.
enum Use : unsigned char { inAddress = 1, inName = 2, inQuotes = 4 };

constexpr std::array<unsigned char, 256> kUses = [] {
  constexpr std::string_view kAddress = ".-_+", kName = "!#$%&'*/=?^`{|}~", kQuoted = "()<>[]:;@, ";
  std::array<unsigned char, 256> uses{};
  for (std::size_t i = 0; i < uses.size(); ++i) {
    const char c = static_cast<char>(i);
    if (isAlnumAscii(c) || kAddress.find(c) != std::string_view::npos)
      uses[i] = inAddress | inName | inQuotes;
    if (is8bit(c) || kName.find(c) != std::string_view::npos) uses[i] = inName | inQuotes;
    if (kQuoted.find(c) != std::string_view::npos) uses[i] = inQuotes;
  }
  return uses;
}();

class Scanner {
 public:
  explicit Scanner(std::string_view text) noexcept : m_text(text) {}

  std::size_t position() const noexcept { return m_at; }
  bool isAtEnd() const noexcept { return m_at == m_text.size(); }
  bool take(char c) noexcept {
    if (isAtEnd() || m_text[m_at] != c) return false;
    ++m_at;
    return true;
  }
  std::string_view takeAll(Use use) noexcept {
    const std::size_t begin = m_at;
    while (!isAtEnd() && (kUses[static_cast<unsigned char>(m_text[m_at])] & use)) ++m_at;
    return m_text.substr(begin, m_at - begin);
  }
  void skipBlanks() noexcept {
    while (!isAtEnd() && isSpaceAscii(m_text[m_at])) ++m_at;
  }

  std::string_view takeAddress() noexcept {
    const std::size_t begin = m_at;
    const bool isWhole = !takeAll(inAddress).empty() && take('@') && !takeAll(inAddress).empty();
    return isWhole ? m_text.substr(begin, m_at - begin) : std::string_view();
  }

  /// Words with single blanks between them, up to the "<".
  std::string_view takeWords() noexcept {
    const std::size_t begin = m_at;
    std::size_t end = begin;
    do {
      if (takeAll(inName).empty()) break;
      end = m_at;
    } while (take(' '));
    skipBlanks();
    return m_text.substr(begin, end - begin);
  }

  std::string_view takeQuoted() noexcept {
    const std::string_view name = takeAll(inQuotes);
    const bool isName = take('"') && !name.empty() && name.front() != ' ' && name.back() != ' ';
    skipBlanks();
    return isName ? name : std::string_view();
  }

 private:
  std::string_view m_text;
  std::size_t m_at = 0;
};

}  // namespace

std::optional<PlainMailbox> readPlainMailbox(std::string_view list, bool quotes) noexcept {
  Scanner scanner(list);
  scanner.skipBlanks();
  const Scanner begin = scanner;
  PlainMailbox mailbox{{}, scanner.takeAddress(), 0};
  if (mailbox.address.empty()) {
    scanner = begin;
    const bool isQuoted = scanner.take('"');
    mailbox.name = isQuoted ? scanner.takeQuoted() : scanner.takeWords();
    if ((isQuoted && (!quotes || mailbox.name.empty())) || !scanner.take('<')) return std::nullopt;
    mailbox.address = scanner.takeAddress();
    if (mailbox.address.empty() || !scanner.take('>')) return std::nullopt;
  }
  scanner.skipBlanks();
  const bool isEnd = scanner.isAtEnd() || scanner.take(',') || scanner.take(';');
  if (!isEnd) return std::nullopt;
  mailbox.size = scanner.position();
  return mailbox;
}

}  // namespace mailtree
