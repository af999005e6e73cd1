#include "mailtree/base/DataBuffer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <thread>

#include "mailtree/base/Log.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {
namespace {

DataBuffer bufferOf(std::string_view bytes) {
  DataBuffer buffer;
  buffer.append(bytes);
  return buffer;
}

TEST(DataBuffer, changes_its_bytes_borrowed_or_owned) {
  using namespace std::string_view_literals;
  const struct {
    const char* name;
    void (*change)(DataBuffer&);
    std::string_view before, after;
  } rows[] = {
      {"append nothing", [](DataBuffer& b) { b.append(nullptr, 3); }, "ab", "ab"},
      {"append itself", [](DataBuffer& b) { b.append(b); }, "0123456789abcdef",
       "0123456789abcdef0123456789abcdef"},
      {"append its own tail", [](DataBuffer& b) { b.append(b.getData2() + 3, 2); }, "abcde", "abcdede"},
      {"append a NUL", [](DataBuffer& b) { b.appendChar('\0'); }, "a", "a\0"sv},
      {"prepend", [](DataBuffer& b) { b.prepend("xyz", 3); }, "ab", "xyzab"},
      {"prepend its own middle", [](DataBuffer& b) { b.prepend(b.getData2() + 1, 3); }, "abcde", "bcdabcde"},
      {"shorten beyond the start", [](DataBuffer& b) { b.shorten(99); }, "ab", ""},
      {"shorten, then append", [](DataBuffer& b) { b.shorten(1), b.appendChar('x'); }, "ab", "ax"},
      {"replace a character", [](DataBuffer& b) { b.replaceChar('\0', ' '); }, "a\0b\0"sv, "a b "},
      {"replace all, longer", [](DataBuffer& b) { b.replaceAllOccurances("aa", "xyz"); }, "aaaaab",
       "xyzxyzab"},
      {"replace all, shorter", [](DataBuffer& b) { b.replaceAllOccurances("\r\n", "\n"); }, "a\r\nb\r\n",
       "a\nb\n"},
      {"replace all by own bytes", [](DataBuffer& b) { b.replaceAllOccurances("b", b.view()); }, "abc",
       "aabcc"},
      {"replace all, empty", [](DataBuffer& b) { b.replaceAllOccurances("", "x"); }, "abc", "abc"},
      {"shrink", [](DataBuffer& b) { b.reserveMore(1000), b.minimizeMemoryUsage(); }, "abc", "abc"},
      {"assign itself",
       [](DataBuffer& b) {
         DataBuffer& same = b;
         b = same;
       },
       "abc", "abc"},
  };
  for (const auto& row : rows) {
    DataBuffer owned = bufferOf(row.before);
    row.change(owned);
    EXPECT_EQ(owned.view(), row.after) << row.name;

    const std::string lender(row.before);
    DataBuffer borrowed;
    borrowed.borrowData(lender.data(), lender.size());
    row.change(borrowed);
    EXPECT_EQ(borrowed.view(), row.after) << row.name << ", borrowed";
    EXPECT_EQ(lender, row.before) << row.name << ": the lender's bytes changed";
  }
}

TEST(DataBuffer, finds_line_faults_wherever_they_stand) {
  const struct {
    const char* text;
    bool bare;
    std::size_t longest;
  } rows[] = {
      {"", false, 0},      {"abc", false, 3},     {"a\r\nbcd\r\n", false, 3}, {"\n", true, 0},
      {"\r", true, 0},     {"a\r\nb\n", true, 1}, {"ab\rcde\r\nf", true, 5},  {"a\r\r\n", true, 1},
      {"\r\n\n", true, 0}, {"abc\n\r", true, 3},  {"a\r\n\r\nbb", false, 2},
  };
  for (const auto& row : rows)
    EXPECT_EQ(bufferOf(row.text).containsBareCRLF(), row.bare) << testing::PrintToString(row.text);
  // Blocks are scanned at once, so each row also stands across every offset of a longer, faultless text.
  for (const auto& row : rows) {
    for (std::size_t lines : {0U, 1U, 63U, 64U, 127U, 128U, 255U}) {
      std::string text;
      for (std::size_t i = 0; i < lines; ++i) text += "\r\n";
      for (std::size_t i = 0; i < lines % 3; ++i) text += ".";
      const std::string after = text + "\r\n" + row.text;
      const DataBuffer buffer = bufferOf(after);
      EXPECT_EQ(buffer.containsBareCRLF(), row.bare)
          << testing::PrintToString(row.text) << " after " << lines;
      const std::size_t longest = std::max(row.longest, lines % 3);
      EXPECT_EQ(StringBuffer(after.c_str()).longestLineLength(), longest) << testing::PrintToString(after);
      EXPECT_FALSE(buffer.hasLineLonger(longest)) << testing::PrintToString(after);
      EXPECT_EQ(longest > 0 && buffer.hasLineLonger(longest - 1), longest > 0)
          << testing::PrintToString(after);
    }
  }
}

TEST(DataBuffer, searches_with_limits) {
  using namespace std::string_view_literals;
  const DataBuffer buffer = bufferOf("head\0 <html>\xE9"sv);
  EXPECT_TRUE(buffer.containsSubstring("<html>", 0));
  EXPECT_TRUE(buffer.containsSubstring("<html>", 12));
  EXPECT_FALSE(buffer.containsSubstring("<html>", 11)) << "the match ends beyond the limit";
  EXPECT_TRUE(buffer.is7bit(12));
  EXPECT_FALSE(buffer.is7bit(0));
  EXPECT_FALSE(buffer.is7bit(1000));
  EXPECT_EQ(buffer.findBytes("\0 <", 3), 4);
  EXPECT_EQ(buffer.findBytes("\0x", 2), -1);
  EXPECT_TRUE(buffer.endsWithStr("\xE9"));
  EXPECT_FALSE(DataBuffer().endsWithStr("x"));
  EXPECT_FALSE(DataBuffer().containsChar('\0'));
}

TEST(DataBuffer, moves_its_bytes_instead_of_copying_them) {
  DataBuffer from = bufferOf(std::string(1000, 'x'));
  const unsigned char* const bytes = from.getData2();
  DataBuffer to = bufferOf("old");
  to.takeData(from);
  EXPECT_EQ(to.getData2(), bytes);
  EXPECT_EQ(from.getData2(), nullptr);
  EXPECT_EQ(from.getSize(), 0U);
  to.takeData(to);
  EXPECT_EQ(to.getSize(), 1000U);
  const DataBuffer copy(to);
  EXPECT_NE(copy.getData2(), bytes);
  EXPECT_EQ(copy.view(), to.view());
}

TEST(DataBuffer, refuses_sizes_that_cannot_be_and_keeps_its_bytes) {
  DataBuffer buffer = bufferOf("kept");
  volatile std::size_t impossible = std::numeric_limits<std::size_t>::max() - 2;
  EXPECT_FALSE(buffer.append("x", impossible));
  EXPECT_FALSE(buffer.prepend("x", impossible));
  EXPECT_EQ(buffer.appendUninitialized(impossible), nullptr);
  EXPECT_EQ(buffer.view(), "kept");
}

TEST(DataBuffer, reads_utf16_little_endian) {
  using namespace std::string_view_literals;
  const struct {
    std::string_view utf16, utf8;
  } rows[] = {
      {""sv, ""},
      {"\xFF\xFE"sv, ""},
      {"\xFF\xFE"
       "A\0\xE9\0"sv,
       "A\xC3\xA9"},
      {"\xAC\x20\x3D\xD8\x00\xDE"sv, "\xE2\x82\xAC\xF0\x9F\x98\x80"},
      {"\x3D\xD8"
       "A\0"sv,
       "\xEF\xBF\xBD"
       "A"},  // a high surrogate alone
      {"\x00\xDE"
       "A\0"sv,
       "\xEF\xBF\xBD"
       "A"},                               // a low surrogate alone
      {"A\0\x3D\xD8"sv, "A\xEF\xBF\xBD"},  // a high surrogate at the end
      {"A\0B"sv, "A\xEF\xBF\xBD"},         // half a unit
  };
  for (const auto& row : rows) {
    StringBuffer text("> ");
    ASSERT_TRUE(bufferOf(row.utf16).cvUnicodeToUtf8(text));
    EXPECT_EQ(text.view(), "> " + std::string(row.utf8)) << testing::PrintToString(row.utf16);
    DataBuffer bytes = bufferOf(row.utf16);
    ASSERT_TRUE(bytes.cvUnicodeToUtf8_db(bytes)) << "a buffer may be its own destination";
    EXPECT_EQ(bytes.view(), std::string(row.utf16) + std::string(row.utf8))
        << testing::PrintToString(row.utf16);
  }
}

class DataBufferFile : public testing::Test {
 protected:
  void SetUp() override {
    m_folder = testing::TempDir() + "mailtree-load-" + std::to_string(getpid());
    std::filesystem::create_directories(m_folder);
  }
  void TearDown() override { std::filesystem::remove_all(m_folder); }
  std::string path(const char* name) const { return m_folder + "/" + name; }

  std::string m_folder;
};

TEST_F(DataBufferFile, is_loaded_whole_whatever_its_size) {
  for (const std::size_t size : {0U, 1U, 31U, 65536U, 1000003U}) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7);
    std::ofstream(path("f"), std::ios::binary) << bytes;
    DataBuffer buffer = bufferOf("old");
    LogNull log;
    EXPECT_TRUE(buffer.loadFileUtf8(path("f").c_str(), log)) << size;
    EXPECT_TRUE(buffer.view() == bytes) << size;
  }
}

TEST_F(DataBufferFile, is_read_from_a_pipe_in_pieces) {
  const std::string fifo = path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::string piece(70000, 'p');
  std::thread writer([&] {
    std::ofstream out(fifo, std::ios::binary);
    for (int i = 0; i < 5; ++i) out << piece << std::flush;
  });
  DataBuffer buffer;
  LogNull log;
  EXPECT_TRUE(buffer.loadFileUtf8(fifo.c_str(), log));
  writer.join();
  EXPECT_EQ(buffer.getSize(), 5 * piece.size());
  EXPECT_EQ(buffer.findBytes("q", 1), -1);
}

TEST_F(DataBufferFile, that_cannot_be_read_is_explained) {
  std::ofstream(path("secret")) << "x";
  std::filesystem::permissions(path("secret"), std::filesystem::perms::none);
  const struct {
    std::string path;
    const char* reason;
  } rows[] = {
      {path("missing"), "No such file or directory"},
      {path("secret/below"), "Not a directory"},
      {m_folder, "Is a directory"},
      {"", "No such file or directory"},
      {path("secret"), "Permission denied"},
  };
  for (const auto& row : rows) {
    if (row.path == path("secret") && geteuid() == 0) continue;  // the superuser may read anything
    DataBuffer buffer = bufferOf("old");
    LogMemory log;
    EXPECT_FALSE(buffer.loadFileUtf8(row.path.c_str(), log)) << row.path;
    EXPECT_TRUE(buffer.isEmpty()) << row.path;
    ASSERT_FALSE(log.entries().empty()) << row.path;
    EXPECT_EQ(log.entries().back().kind, LogEntry::Kind::Error) << row.path;
    EXPECT_EQ(log.entries().back().text, row.reason) << row.path;
  }
}

}  // namespace
}  // namespace mailtree
