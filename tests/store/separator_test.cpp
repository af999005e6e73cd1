#include "mailtree/store/mbox_separator.h"

#include <gtest/gtest.h>

#include <string>

namespace mailtree {
namespace {

constexpr std::string_view kField = "Subject: x\n";

// "sender|seconds", or "-" for a line that is no separator.
std::string judged(const std::string& line, bool isLikelyPlace) {
  const std::string text = line + "\n" + (isLikelyPlace ? std::string(kField) : "text\n");
  const std::optional<Separator> found = readSeparator(text, isLikelyPlace);
  if (!found) return "-";
  EXPECT_EQ(found->size, line.size() + 1);
  return std::string(found->sender) + "|" +
         (found->date ? std::to_string(found->date->time_since_epoch().count()) : "?");
}

TEST(Separator, KnowsTheFormsThatProgramsWriteWhereverTheyAre) {
  const std::pair<const char*, const char*> rows[] = {
      {"From ann@example.org Sat Nov 21 08:30:00 2026", "ann@example.org|1795249800"},
      {"From ann@example.org Sat Nov 21 08:30:00 2026\r", "ann@example.org|1795249800"},
      {"From ann@example.org  Sat Nov  7 08:30 2026", "ann@example.org|1794040200"},
      {"From - Sat Nov 21 08:30:00 2026", "|1795249800"},
      {"From ???@??? Sat Nov 21 08:30:00 2026", "???@???|1795249800"},
      {"From MAILER-DAEMON Sat Nov 21 08:30:00 2026", "MAILER-DAEMON|1795249800"},
      {"From ann at example.org  Sat Nov 21 08:30:00 2026", "ann at example.org|1795249800"},
      {"From \"ann b\"@example.org Sat Nov 21 08:30:00 2026", "\"ann b\"@example.org|1795249800"},
      {"From ann@example.org Sat Nov 21 08:30:00 CET 2026", "ann@example.org|1795246200"},
      {"From 1234@xxx Sat Nov 21 08:30:00 +0000 2026", "1234@xxx|1795249800"},
      {"From ann@example.org Sat Nov 21 08:30:00 2026 -0130", "ann@example.org|1795255200"},
      {"From uunet!ann Sat Nov 21 08:30 EST 2026 remote from uunet", "uunet!ann|1795267800"},
      {"From Sat Nov 21 08:30:00 2026", "|1795249800"},
      {"From sat Sat Nov 31 08:30:00 2026", "sat|?"}};
  for (const auto& [line, expected] : rows) EXPECT_EQ(judged(line, false), expected) << line;
}

TEST(Separator, KnowsOtherFormsAfterAnEmptyLineAndBeforeAField) {
  const std::pair<const char*, const char*> rows[] = {
      {"From ann@example.org Sat, 21 Nov 2026 08:30:00 +0100", "ann@example.org|1795246200"},
      {"From ann@example.org 21 Nov 26 08:30:00", "ann@example.org|1795249800"},
      {"From ann b Sat Nov 21 08:30:00 2026 (local)", "ann b|1795249800"},
      {"From -2145163493738472661", "-2145163493738472661|?"},
      {"From ann@example.org", "ann@example.org|?"}};
  for (const auto& [line, expected] : rows) {
    EXPECT_EQ(judged(line, true), expected) << line;
    EXPECT_EQ(judged(line, false), "-") << line;
  }
}

TEST(Separator, RefusesTextThatOnlyLooksLikeOne) {
  for (const char* line :
       {"From now on we meet at 08:30", "From: ann@example.org", "From ", "From",
        "from ann Sat Nov 21 08:30:00 2026", "From ann@example.org Sat Nov 21 2026",
        "From ann@example.org Sat Nov 21 08:30:00 202", "From ann@example.org Sam Nov 21 08:30:00 2026",
        "From ann@example.org Sat Nov 32 08:30:00 2026", "From ann@example.org Sat Nov 21 24:30:00 2026",
        "From 1999 to 2004", "From me @ home", ">From ann@example.org Sat Nov 21 08:30:00 2026",
        " From ann@example.org Sat Nov 21 08:30:00 2026"})
    EXPECT_EQ(judged(line, true), "-") << line;
  const std::string longSender(1000, 'a');
  EXPECT_EQ(judged("From " + longSender + " Sat Nov 21 08:30:00 2026", true), "-");
}

}  // namespace
}  // namespace mailtree
