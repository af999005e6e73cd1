// What the command does on a terminal: what it draws, what it asks for, what it never lets through.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "tests/cli/command.h"

namespace mailtree::cli_test {
namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

class Terminal : public testing::Test {
 protected:
  void SetUp() override {
    if (shell("script -qec true /dev/null < /dev/null").status != 0) GTEST_SKIP() << "there is no script(1)";
  }

  /// Runs the command on a terminal, with these variables such as "NO_COLOR=1", what is
  /// typed by another shell line.
  static Result run(const std::string& arguments, const std::string& environment = "",
                    const std::string& typing = "true") {
    return shell("(" + typing + ") | env -u NO_COLOR " + environment + " script -qec '\"$mailtree\" " +
                 arguments + "' /dev/null");
  }

  /// The options of a key that asks for its password.
  static std::string locked() { return " --p12 " + places::testData() + "/secure/alice.p12"; }

  std::string letter() const {
    return m_work.write("letter", "From: alice@example.com\r\n\r\nShall we?\r\n");
  }

  const Workspace m_work;
};

TEST_F(Terminal, gets_lines_and_colors_unless_told_not_to) {
  const std::tuple<const char*, const char*, bool> rows[] = {
      {"", "", true},
      {"", "NO_COLOR=", true},
      {"", "NO_COLOR=1", false},
      {"--no-color ", "", false},
      {"--color ", "NO_COLOR=1", true},
  };
  for (const auto& [options, environment, isColored] : rows) {
    SCOPED_TRACE(std::string(options) + environment);
    const Result result = run("show " + (options + sample("newsletter")), environment);
    EXPECT_THAT(result.out, HasSubstr("├─ 1"));
    EXPECT_THAT(result.out, HasSubstr("   └─ 4"));
    EXPECT_EQ(result.out.find('\033') != std::string::npos, isColored) << result.out;
  }
}

TEST_F(Terminal, gets_long_values_broken_before_it_breaks_them) {
  std::string fields, body;
  // A subject, and a line of text, after which the rest would begin a line of an 80-column terminal.
  for (const char* filler : {"x", "\xE2\x9C\x85"}) {
    std::string wide;
    for (int i = 0; i < 71; ++i) wide += filler;
    fields += "Subject: " + wide + "Signed:  signature valid\r\n";
    body += wide + "xxxxxxxSigned:  signature valid\r\n";
  }
  const std::string file =
      m_work.write("m", "Content-Type: text/plain; charset=utf-8\r\n" + fields + "\r\n" + body);
  for (const std::string verb : {"show --no-color ", "show --no-color --headers ", "headers "}) {
    std::istringstream lines(run(verb + file).out);
    for (std::string line; std::getline(lines, line);) {
      std::size_t columns = 0;  // as a terminal may count at most
      for (const char c : line) columns += (c & 0xC0) == 0xC0 ? 2 : (c & 0x80) == 0 && c != '\r';
      EXPECT_LE(columns, 80) << line;
    }
  }
}

TEST_F(Terminal, gets_bodies_as_harmless_lines) {
  const std::string file = m_work.write("m",
                                        "Content-Type: text/plain; charset=utf-8\r\n\r\na\x1b[2J\tb\r\n\u202E"
                                        "c");
  EXPECT_THAT(run("body " + file).out, testing::StartsWith("a\uFFFD[2J\tb\r\n\uFFFD"
                                                           "c\r\n"));
  for (const char* verb :
       {"write ", "xml ", "mht ", "tidy --safe-encodings ", "edit --remove X ", "write -o /dev/tty "})
    EXPECT_THAT(run(verb + file).out, Not(AnyOf(HasSubstr("\x1b[2J"), HasSubstr("\u202E")))) << verb;
}

TEST_F(Terminal, sees_how_far_a_merge_is) {
  const Result result = run("merge " + m_work.write("form", "To: {{to}}\r\n\r\nx\r\n") + " --data " +
                            m_work.write("table", "to\na@x.org\n") + " --mbox " + m_work.path("box"));
  EXPECT_THAT(result.out, HasSubstr(" 1 rows"));
  EXPECT_THAT(result.out, HasSubstr("\r\x1b[K1 message"));
}

TEST_F(Terminal, is_asked_for_a_password_and_does_not_show_it) {
  const Result result =
      run("sign " + letter() + locked() + " -o " + m_work.path("out"), "", "sleep 1; echo secret");
  EXPECT_THAT(result.out, HasSubstr("Password for " + places::testData() + "/secure/alice.p12"));
  EXPECT_THAT(result.out, Not(HasSubstr("secret\r\n"))) << "shown while it was typed";
  EXPECT_THAT(readFile(m_work.path("out")), HasSubstr("multipart/signed"));
}

TEST_F(Terminal, is_asked_twice_for_a_password_to_encrypt_with) {
  const std::string out = m_work.path("hidden");
  const std::tuple<const char*, const char*, bool> rows[] = {
      {"right", "right", true}, {"right", "wrong", false}, {"", "", false}};
  for (const auto& [typed, again, isDone] : rows) {
    std::filesystem::remove(out);
    const Result result = run("aes encrypt " + letter() + " -o " + out, "",
                              std::string("sleep 1; echo '") + typed + "'; sleep 1; echo '" + again + "'");
    EXPECT_EQ(std::filesystem::exists(out), isDone) << typed << ", " << again << '\n' << result.out;
  }
}

TEST_F(Terminal, is_left_as_it_was_when_a_signal_comes) {
  const std::string session = m_work.write(
      "session", "(sleep 2; kill -$1 $(cat pid-$1)) &\nsh -c 'echo $$ > pid-'$1'; exec \"$mailtree\" sign " +
                     letter() + locked() + "'\nstty -a | grep -o -e '-*echo '\n");
  // All at once, for each takes seconds. What runs in the background ignores the first.
  shell("cd " + m_work.path("") + "; run() { sleep 5 | timeout 60 script -qec \"sh " + session +
        " $1\" /dev/null > $1; }; run TERM & run HUP & run INT; wait");
  for (const char* signal : {"INT", "TERM", "HUP"})
    EXPECT_THAT(readFile(m_work.path(signal)), HasSubstr("\necho ")) << signal;
}

}  // namespace
}  // namespace mailtree::cli_test
