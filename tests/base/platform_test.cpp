#include "mailtree/base/Platform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "mailtree/base/Log.h"
#include "mailtree/base/Stdio.h"

namespace mailtree {
namespace {

using testing::ElementsAre;

TEST(RandomSource, appends_as_many_bytes_as_asked_for) {
  DataBuffer bytes;
  bytes.append("head");
  EXPECT_TRUE(RandomSource::genRandomBytes(0, bytes));
  EXPECT_TRUE(RandomSource::genRandomBytes(1000, bytes));
  EXPECT_EQ(bytes.getSize(), 1004U);
  EXPECT_EQ(bytes.view().substr(0, 4), "head");
  const std::set<char> distinct(bytes.view().begin() + 4, bytes.view().end());
  EXPECT_GT(distinct.size(), 200U);
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
  LogNull log;
  StringBuffer first("old"), second;
  Psdk::generateBoundary(first, log);
  Psdk::generateBoundary(second, log);
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
  EXPECT_GE(passed, 19U);
  EXPECT_LT(passed, 5000U);
}

TEST(Psdk, counts_corrupt_objects_without_touching_them) {
  const unsigned before = Psdk::corruptObjectsSeen();
  Psdk::corruptObjectFound(nullptr);
  Psdk::badObjectFound(reinterpret_cast<const void*>(1));
  EXPECT_EQ(Psdk::corruptObjectsSeen(), before + 2);
}

TEST(FileSys, knows_what_exists) {
  EXPECT_TRUE(FileSys::fileExistsUtf8("/"));
  EXPECT_FALSE(FileSys::fileExistsUtf8("/no-such-file-anywhere"));
  EXPECT_FALSE(FileSys::fileExistsUtf8(""));
  EXPECT_FALSE(FileSys::fileExistsUtf8(nullptr));
  EXPECT_FALSE(FileSys::fileExistsUtf8(std::string(100000, 'x').c_str()));
}

TEST(Format, agrees_with_the_standard_library) {
  const char* const numberFormats[] = {"%d",     "%5d|",    "%-5d|", "%05d",   "%+d", "% d", "%.3d",
                                       "%8.3d|", "%08.3d|", "%x",    "%06x",   "%#x", "%X",  "%#06X",
                                       "%u",     "%-8u|",   "%03x",  "%%%d%%", "%i"};
  const int numbers[] = {0, 1, -1, 42, 255, -70000, 2147483647, -2147483647 - 1};
  for (const char* const format : numberFormats)
    for (const int number : numbers) {
      char ours[64], theirs[64];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
      const int expected = std::snprintf(theirs, sizeof theirs, format, number);
#pragma GCC diagnostic pop
      EXPECT_EQ(_svStdio::_svSprintf2(ours, sizeof ours, format, number, 0), expected)
          << format << " of " << number;
      EXPECT_STREQ(ours, theirs) << format << " of " << number;
    }
}

TEST(Format, writes_texts_and_16_bit_fields_and_never_past_the_buffer) {
  const std::uint16_t year = 2024, month = 2;
  const struct {
    const char* format;
    FormatArgument a, b;
    unsigned size;
    int result;
    const char* out;
  } rows[] = {
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
      {nullptr, 1, 2, 64, 0, ""},
  };
  for (const auto& row : rows) {
    std::string out(64, '#');
    EXPECT_EQ(_svStdio::_svSprintf2(out.data(), row.size, row.format, row.a, row.b), row.result)
        << viewOf(row.format);
    EXPECT_STREQ(out.c_str(), row.out) << viewOf(row.format);
    EXPECT_EQ(out.find_first_not_of('#', row.size), std::string::npos) << viewOf(row.format);
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

MATCHER_P4(IsEntry, kind, context, tag, text, "") {
  return arg.kind == kind && arg.context == context && arg.tag == tag && arg.text == text;
}

TEST(LogMemory, keeps_entries_in_order_with_their_contexts) {
  using Kind = LogEntry::Kind;
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
  EXPECT_THAT(log.entries(), ElementsAre(IsEntry(Kind::ContextOpen, "", "", "outer"),
                                         IsEntry(Kind::Info, "outer", "", "begin"),
                                         IsEntry(Kind::ContextOpen, "outer", "", "inner"),
                                         IsEntry(Kind::Data, "outer/inner", "size", "-5"),
                                         IsEntry(Kind::Error, "outer/inner", "", "bad\r\nthing \x1B[31m"),
                                         IsEntry(Kind::ContextClose, "outer", "", "inner"),
                                         IsEntry(Kind::Data, "outer", "name", "value"),
                                         IsEntry(Kind::ContextClose, "", "", "outer")));
  EXPECT_EQ(log.text(),
            "outer:\n"
            "  begin\n"
            "  inner:\n"
            "    size: -5\n"
            "    error: bad  thing  [31m\n"
            "  name: value\n");
}

TEST(LogMemory, survives_contexts_closed_too_often_and_starts_anew_after_clear) {
  LogMemory log;
  log.closeContext();
  log.openContext("a");
  log.clear();
  log.logInfo("x");
  EXPECT_THAT(log.entries(), ElementsAre(IsEntry(LogEntry::Kind::Info, "", "", "x")));
}

TEST(Log, options_are_found_ignoring_case) {
  LogNull log;
  EXPECT_FALSE(log.hasOption("UseBccHeader"));
  log.m_options.setString("NoUnwrapAttachedMessage, usebccheader");
  EXPECT_TRUE(log.hasOption("UseBccHeader"));
}

}  // namespace
}  // namespace mailtree
