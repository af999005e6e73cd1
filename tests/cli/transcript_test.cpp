// Dialogues with the command, replayed: each file of tests/data/transcripts says what is
// typed and what comes back.
//
//   # A comment. Empty lines may be anywhere.
//   $ mailtree body - <<.          a line of shell, run in a folder of its own
//   > Subject: s                   more of it, directly after "$"
//   > .
//   | text                         standard output
//   ! mailtree: ...                standard error
//   ? 1                            the exit status, when it is not 0
//
// The folder holds samples/, reports/ and secure/: the messages and identities of the repository. Control
// characters are shown as pictures (␍ is a carriage return), others that nobody sees as <202E>, bytes that
// are no utf-8 as <xE9>, a blank at the end of a line as ␠; ⊣ follows a last line without an end. What
// differs from run to run is replaced by words in capitals.
//
// With MAILTREE_UPDATE_TRANSCRIPTS=1 the answers are written anew, for review.
#include <gtest/gtest.h>

#include <ctime>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "mailtree/base/Utf.h"
#include "tests/cli/command.h"

namespace mailtree::cli_test {
namespace {

namespace fs = std::filesystem;

std::string folder() { return places::testData() + "/transcripts/"; }

std::string inBrackets(const char* kind, std::uint32_t number) {
  std::ostringstream text;
  text << '<' << kind << std::hex << std::uppercase << number << '>';
  return text.str();
}

bool isUnseen(char32_t c) {
  return (c >= 0x80 && c < 0xA0) || c == 0xAD || c == 0x61C || c == 0x180E || (c >= 0x200B && c < 0x2010) ||
         (c >= 0x2028 && c < 0x202F) || (c >= 0x2060 && c < 0x2070) || c == 0xFEFF || c >= 0xE0000;
}

/// A line as a reviewer can see it.
std::string visible(const std::string& line) {
  std::string shown;
  for (std::size_t at = 0, begin = 0; at < line.size(); begin = at) {
    const char32_t c = nextCodePoint(line, at);
    const std::string bytes = line.substr(begin, at - begin);
    if (!isValidUtf8(bytes)) {
      for (const char byte : bytes) shown += inBrackets("x", static_cast<unsigned char>(byte));
    } else if ((c < ' ' && c != '\t') || c == 0x7F) {
      appendUtf8(shown, c == 0x7F ? 0x2421 : 0x2400 + c);
    } else {
      shown += isUnseen(c) ? inBrackets("", c) : bytes;
    }
  }
  if (shown.ends_with(' ')) shown.replace(shown.size() - 1, 1, "␠");
  return shown;
}

/// Puts fixed words for what differs from run to run: the time, within a day, and identifiers, which are
/// numbered as they come so that what refers to one still has to name it.
class Mask {
 public:
  std::string masked(std::string text) {
    for (const std::time_t day : {m_begin, m_begin + 24 * 60 * 60}) {
      char date[64];
      std::strftime(date, sizeof date, "%a, %d %b %Y ..:..:.. .0000|%Y-%m-%dT..:..:..Z", std::gmtime(&day));
      text = std::regex_replace(text, std::regex(date), "NOW");
    }
    static const std::regex identifier("(----=_|<|CID-)([0-9A-F]{40})(@[A-Za-z0-9.-]+)?");
    std::string out;
    std::smatch found;
    for (; std::regex_search(text, found, identifier); text = found.suffix()) {
      const auto number = m_numbers.emplace(found[2], m_numbers.size() + 1).first->second;
      const std::string begin = found[1] == "----=_" ? "BOUNDARY" : found[1].str() + "UNIQUE";
      out += found.prefix().str() + begin + std::to_string(number);
    }
    return out + text;
  }

 private:
  const std::time_t m_begin = std::time(nullptr);
  std::map<std::string, std::size_t> m_numbers;
};

/// What was said, each line after a mark.
std::string marked(const std::string& text, const std::string& mark) {
  std::string lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    line = visible(line) + (in.eof() ? "⊣" : "");
    lines += mark + (line.empty() ? "" : ' ' + line) + '\n';
  }
  return lines;
}

/// The transcript with the answers that come back now.
std::string replayed(const std::string& transcript) {
  const Workspace work;
  const std::string here = work.folder().string(), bin = work.path("bin");
  fs::create_directory(bin);
  fs::create_symlink(places::mailtreeCommand(), bin + "/mailtree");
  fs::create_symlink(places::samples(), work.path("samples"));
  for (const char* name : {"reports", "secure"})
    fs::create_symlink(places::testData() + '/' + name, work.path(name));
  const std::string begin = "cd '" + here + "'; unset NO_COLOR MAILTREE_PASSWORD; export LC_ALL=C PATH='" +
                            bin + "':\"$PATH\"; exec < /dev/null; ";
  std::string now, command;
  Mask mask;
  const auto answer = [&] {
    if (command.empty()) return;
    const Result result = shell(begin + command);
    now += marked(mask.masked(result.out), "|") + marked(mask.masked(result.err), "!");
    if (result.status != 0) now += "? " + std::to_string(result.status) + '\n';
    command.clear();
  };
  std::istringstream in(transcript);
  for (std::string line; std::getline(in, line);) {
    const char mark = line.empty() ? ' ' : line[0];
    if (mark != '>') answer();
    if (mark == '$' || mark == '>') command += line.substr(std::min<std::size_t>(line.size(), 2)) + '\n';
    if (mark != '|' && mark != '!' && mark != '?') now += line + '\n';
  }
  answer();
  return now;
}

class Transcript : public testing::TestWithParam<std::string> {};

TEST_P(Transcript, is_what_happens) {
  const std::string file = folder() + GetParam() + ".txt", before = readFile(file), now = replayed(before);
  ASSERT_NE(now.find("\n$ "), std::string::npos) << "no command in it";
  const Workspace work;
  if (std::getenv("MAILTREE_UPDATE_TRANSCRIPTS"))
    std::ofstream(file, std::ios::binary) << now;
  else if (now != before)
    ADD_FAILURE()
        << shell("diff -u --label expected --label found '" + file + "' " + work.write("now", now)).out;
}

std::set<std::string> names() {
  std::set<std::string> sorted;
  for (const auto& entry : fs::directory_iterator(folder())) sorted.insert(entry.path().stem().string());
  return sorted;
}

INSTANTIATE_TEST_SUITE_P(All, Transcript, testing::ValuesIn(names()),
                         [](const auto& test) { return test.param; });

}  // namespace
}  // namespace mailtree::cli_test
