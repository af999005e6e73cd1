#include "mailtree/base/Platform.h"

#include <algorithm>
#include <cstdio>
#include <set>
#include <thread>

#include "mailtree/base/Stdio.h"
#include "tests/base/tables.h"

namespace mailtree {
namespace {

TEST(RandomSource, appends_as_many_bytes_as_asked_for) {
  DataBuffer bytes;
  bytes.append("head");
  EXPECT_TRUE(RandomSource::genRandomBytes(0, bytes));
  EXPECT_TRUE(RandomSource::genRandomBytes(1000, bytes));
  EXPECT_EQ(bytes.getSize(), 1004U);
  EXPECT_EQ(bytes.view().substr(0, 4), "head");
  EXPECT_GT(std::set<char>(bytes.view().begin() + 4, bytes.view().end()).size(), 200U);
}

TEST(UniqueId, never_repeats_across_threads) {
  std::vector<std::vector<std::string>> made(4);
  std::vector<std::thread> threads;
  for (auto& ids : made)
    threads.emplace_back([&ids] {
      for (int i = 0; i < 500; ++i) {
        StringBuffer id;
        ASSERT_TRUE(UniqueIdSource::genUniqueId(id));
        ids.push_back(id.extractString());
      }
    });
  for (std::thread& thread : threads) thread.join();
  std::set<std::string> distinct;
  for (const auto& ids : made) distinct.insert(ids.begin(), ids.end());
  EXPECT_EQ(distinct.size(), 2000U);
  for (const std::string& id : distinct) ASSERT_TRUE(std::all_of(id.begin(), id.end(), isAlnumAscii)) << id;
}

TEST(Boundary, is_one_that_no_encoded_text_can_hold_and_always_fits) {
  StringBuffer first("old"), second;
  Psdk::generateBoundary(first, quiet);
  Psdk::generateBoundary(second, quiet);
  EXPECT_NE(first.view(), second.view());
  EXPECT_TRUE(first.containsSubstring("=_"));
  EXPECT_FALSE(first.containsSubstring("old"));
  EXPECT_LE(first.getSize(), 60U);
  const auto isAllowed = [](char c) { return isAlnumAscii(c) || c == '_' || c == '=' || c == '-'; };
  EXPECT_TRUE(std::all_of(first.view().begin(), first.view().end(), isAllowed)) << first.view();
}

TEST(Psdk, ticks_in_milliseconds_and_sleeps_at_least_as_long_as_asked) {
  const std::uint32_t before = Psdk::getTickCount();
  Psdk::sleepMs(20);
  const std::uint32_t passed = Psdk::getTickCount() - before;
  EXPECT_TRUE(passed >= 19U && passed < 5000U) << passed;
}

TEST(Psdk, counts_corrupt_objects_without_touching_them) {
  const unsigned before = Psdk::corruptObjectsSeen();
  Psdk::corruptObjectFound(nullptr);
  Psdk::badObjectFound(reinterpret_cast<const void*>(1));
  EXPECT_EQ(Psdk::corruptObjectsSeen(), before + 2);
}

TEST(FileSys, knows_what_exists) {
  EXPECT_TRUE(FileSys::fileExistsUtf8("/"));
  const std::string tooLong(100000, 'x');
  for (const char* path : {"/no-such-file-anywhere", "", static_cast<const char*>(nullptr), tooLong.c_str()})
    EXPECT_FALSE(FileSys::fileExistsUtf8(path));
}

TEST(Format, agrees_with_the_standard_library) {
  for (const char* format : {"%d", "%5d|", "%-5d|", "%05d", "%+d", "% d", "%.3d", "%8.3d|", "%08.3d|", "%x",
                             "%06x", "%#x", "%X", "%#06X", "%u", "%-8u|", "%03x", "%%%d%%", "%i"})
    for (const int number : {0, 1, -1, 42, 255, -70000, 2147483647, -2147483647 - 1}) {
      char ours[64], theirs[64];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
      const int expected = std::snprintf(theirs, sizeof theirs, format, number);
#pragma GCC diagnostic pop
      EXPECT_EQ(_svStdio::_svSprintf2(ours, sizeof ours, format, number, 0), expected) << format << number;
      EXPECT_STREQ(ours, theirs) << format << " of " << number;
    }
}

TEST(Format, writes_texts_and_16_bit_fields_and_never_past_the_buffer) {
  const std::uint16_t year = 2024, month = 2;
  const std::tuple<const char*, FormatArgument, FormatArgument, unsigned, int, const char*> rows[] = {
      {"e_%04w%02w", year, month, 64, 8, "e_202402"},
      {"%w,%w", 65535, 65536, 64, 7, "65535,0"},
      {"%s=%5s|", "key", "v", 64, 10, "key=    v|"},
      {"%-4s|%.2s", "ab", "xyz", 64, 7, "ab  |xy"},
      {"%c%c", 'o', 'k', 64, 2, "ok"},
      {"[%s]%d", static_cast<const char*>(nullptr), 1, 64, 3, "[]1"},
      {"%d%d", 12, 34, 5, 4, "1234"},
      {"%d%d", 12, 34, 4, -1, "123"},
      {"%99999999999d", 1, 0, 8, -1, "       "},
      {"%s", 5, 0, 64, -1, ""},
      {"%d", "text", 0, 64, -1, ""},
      {"a%d%d%d", 1, 2, 64, -1, "a12"},
      {"a%q", 1, 2, 64, -1, "a"},
      {"a%", 1, 2, 64, -1, "a"},
      {nullptr, 1, 2, 64, 0, ""}};
  for (const auto& [format, a, b, size, result, text] : rows) {
    std::string out(64, '#');
    EXPECT_EQ(_svStdio::_svSprintf2(out.data(), size, format, a, b), result) << viewOf(format);
    EXPECT_STREQ(out.c_str(), text) << viewOf(format);
    EXPECT_EQ(out.find_first_not_of('#', size), std::string::npos) << viewOf(format);
  }
  EXPECT_EQ(_svStdio::_svSprintf2(nullptr, 5, "%d", 1, 2), -1);
}

TEST(CStrings, are_searched_without_fear_of_null) {
  const char* const text = "abcabc";
  EXPECT_EQ(svStrChr(text, 'b'), text + 1);
  EXPECT_EQ(svStrrChr(text, 'b'), text + 4);
  EXPECT_EQ(svStrStr(text, "ca"), text + 2);
  EXPECT_EQ(svStrChr(text, 'x'), nullptr);
  EXPECT_EQ(svStrChr(nullptr, 'x'), nullptr);
  EXPECT_EQ(svStrrChr(nullptr, 'x'), nullptr);
  EXPECT_EQ(svStrStr(nullptr, "x"), nullptr);
  EXPECT_EQ(svStrStr(text, nullptr), nullptr);
}

/// "kind context|tag|text" of every entry, a line each; the kind is a letter or a bracket.
std::string shown(const LogMemory& log) {
  std::string text;
  for (const LogEntry& entry : log.entries()) {
    text += "eid()"[static_cast<int>(entry.kind)];
    text += " " + entry.context + "|" + entry.tag + "|" + entry.text + "\n";
  }
  return text;
}

TEST(LogMemory, keeps_entries_in_order_with_their_contexts) {
  LogMemory log;
  {
    const LogContextExitor outer(log, "outer");
    const LogContextExitor unseen(log, "unseen", log.m_verboseLogging);
    log.logInfo("begin");
    {
      const LogContextExitor inner(log, "inner");
      log.LogDataLong("size", -5);
      log.logError("bad\r\nthing \x1B[31m");
    }
    log.LogDataSb("name", "value");
  }
  EXPECT_EQ(shown(log),
            "( ||outer\ni outer||begin\n( outer||inner\nd outer/inner|size|-5\n"
            "e outer/inner||bad\r\nthing \x1B[31m\n) outer||inner\nd outer|name|value\n) ||outer\n");
  EXPECT_EQ(log.text(),
            "outer:\n  begin\n  inner:\n    size: -5\n    error: bad  thing  [31m\n  name: value\n");
  log.clear();
  log.closeContext();  // once too often
  log.openContext("a");
  log.clear();
  log.logInfo("x");
  EXPECT_EQ(shown(log), "i ||x\n");
}

TEST(Log, options_are_found_ignoring_case) {
  LogNull log;
  EXPECT_FALSE(log.hasOption("UseBccHeader"));
  log.m_options.setString("NoUnwrapAttachedMessage, usebccheader");
  EXPECT_TRUE(log.hasOption("UseBccHeader"));
}

}  // namespace
}  // namespace mailtree
