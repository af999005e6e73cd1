#include "mailtree/base/DataBuffer.h"

#include <sys/stat.h>

#include <limits>
#include <thread>

#include "tests/base/tables.h"

namespace mailtree {
namespace {

DataBuffer bufferOf(std::string_view bytes) {
  DataBuffer buffer;
  buffer.append(bytes);
  return buffer;
}

TEST(DataBuffer, changes_its_bytes_borrowed_or_owned) {
  const Change<DataBuffer> rows[] = {
      {[](DataBuffer& b) { b.append(nullptr, 3); }, "ab", "ab"},
      {[](DataBuffer& b) { b.append(b.getData2() + 3, 2); }, "abcde", "abcdede"},
      {[](DataBuffer& b) { b.appendChar('\0'); }, "a", "a\0"s},
      {[](DataBuffer& b) { b.prepend("xyz", 3); }, "ab", "xyzab"},
      {[](DataBuffer& b) { b.prepend(b.getData2() + 1, 3); }, "abcde", "bcdabcde"},
      {[](DataBuffer& b) { b.shorten(99); }, "ab", ""},
      {[](DataBuffer& b) { b.shorten(1), b.appendChar('x'); }, "ab", "ax"},
      {[](DataBuffer& b) { b.replaceChar('\0', ' '); }, "a\0b\0"s, "a b "},
      {[](DataBuffer& b) { b.replaceAllOccurances("aa", "xyz"); }, "aaaaab", "xyzxyzab"},
      {[](DataBuffer& b) { b.replaceAllOccurances("b", b.view()); }, "abc", "aabcc"},
      {[](DataBuffer& b) { b.replaceAllOccurances("", "x"); }, "abc", "abc"},
      {[](DataBuffer& b) { b.reserveMore(1000), b.minimizeMemoryUsage(); }, "abc", "abc"},
      {[](DataBuffer& b) { b = static_cast<const DataBuffer&>(b); }, "abc", "abc"}};
  for (const auto& [change, before, after] : rows) {
    DataBuffer owned = bufferOf(before), borrowed;
    change(owned);
    EXPECT_EQ(owned.view(), after);
    const std::string lender(before);
    borrowed.borrowData(lender.data(), lender.size());
    change(borrowed);
    EXPECT_EQ(borrowed.view(), after) << "borrowed";
    EXPECT_EQ(lender, before) << "the lender's bytes changed";
  }
}

TEST(DataBuffer, finds_line_faults_wherever_they_stand) {
  const std::tuple<const char*, bool, std::size_t> rows[] = {
      {"", false, 0},      {"abc", false, 3},     {"a\r\nbcd\r\n", false, 3}, {"\n", true, 0},
      {"\r", true, 0},     {"a\r\nb\n", true, 1}, {"ab\rcde\r\nf", true, 5},  {"a\r\r\n", true, 1},
      {"\r\n\n", true, 0}, {"abc\n\r", true, 3},  {"a\r\n\r\nbb", false, 2}};
  for (const auto& [text, isBare, ownLongest] : rows) {
    EXPECT_EQ(bufferOf(text).containsBareCRLF(), isBare) << testing::PrintToString(text);
    // Blocks are scanned at once, so each row is also tried at every offset of a longer, faultless text.
    for (std::size_t lines : {0U, 1U, 63U, 64U, 127U, 128U, 255U}) {
      std::string all;
      for (std::size_t i = 0; i < lines; ++i) all += "\r\n";
      all += std::string(lines % 3, '.') + "\r\n" + text;
      SCOPED_TRACE(testing::PrintToString(all));
      const DataBuffer buffer = bufferOf(all);
      const std::size_t longest = std::max(ownLongest, lines % 3);
      EXPECT_EQ(buffer.containsBareCRLF(), isBare);
      EXPECT_EQ(StringBuffer(all.c_str()).longestLineLength(), longest);
      EXPECT_FALSE(buffer.hasLineLonger(longest));
      EXPECT_EQ(longest > 0 && buffer.hasLineLonger(longest - 1), longest > 0);
    }
  }
}

TEST(DataBuffer, searches_with_limits) {
  const DataBuffer buffer = bufferOf("head\0 <html>\xE9"s);
  EXPECT_TRUE(buffer.containsSubstring("<html>", 0));
  EXPECT_TRUE(buffer.containsSubstring("<html>", 12));
  EXPECT_FALSE(buffer.containsSubstring("<html>", 11)) << "the match ends beyond the limit";
  EXPECT_TRUE(buffer.is7bit(12));
  EXPECT_FALSE(buffer.is7bit(0));
  EXPECT_FALSE(buffer.is7bit(1000));
  EXPECT_EQ(buffer.findBytes("\0 <", 3), 4);
  EXPECT_EQ(buffer.findBytes("\0x", 2), -1);
  EXPECT_TRUE(buffer.endsWithStr("\xE9"));
}

TEST(DataBuffer, moves_its_bytes_instead_of_copying_them) {
  DataBuffer from = bufferOf(std::string(1000, 'x')), to = bufferOf("old");
  const unsigned char* const bytes = from.getData2();
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
  const Row rows[] = {{"\xFF\xFE", ""},
                      {"\xFF\xFE\x41\0\xE9\0"s, "A\xC3\xA9"},
                      {"\x3D\xD8\x41\0"s, "\uFFFD\x41"},  // a high surrogate alone
                      {"\x00\xDE\x41\0"s, "\uFFFD\x41"},  // a low surrogate alone
                      {"A\0\x3D\xD8"s, "A\uFFFD"},        // a high surrogate at the end
                      {"A\0B"s, "A\uFFFD"}};              // half a unit
  for (const auto& [utf16, utf8] : rows) {
    StringBuffer text("> ");
    ASSERT_TRUE(bufferOf(utf16).cvUnicodeToUtf8(text));
    EXPECT_EQ(text.view(), "> " + utf8) << testing::PrintToString(utf16);
    DataBuffer bytes = bufferOf(utf16);
    ASSERT_TRUE(bytes.cvUnicodeToUtf8_db(bytes)) << "a buffer may be its own destination";
    EXPECT_EQ(bytes.view(), utf16 + utf8) << testing::PrintToString(utf16);
  }
}

class DataBufferFile : public FolderTest {};

TEST_F(DataBufferFile, of_any_size_is_loaded_whole) {
  for (const std::size_t size : {0U, 1U, 31U, 65536U, 1000003U}) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7);
    std::ofstream(path("f"), std::ios::binary) << bytes;
    DataBuffer buffer = bufferOf("old");
    EXPECT_TRUE(buffer.loadFileUtf8(path("f").c_str(), quiet)) << size;
    EXPECT_TRUE(buffer.view() == bytes) << size;
  }
}

TEST_F(DataBufferFile, is_read_from_a_pipe_in_pieces) {
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  const std::string piece(70000, 'p');
  std::thread writer([&] {
    std::ofstream out(path("fifo"), std::ios::binary);
    for (int i = 0; i < 5; ++i) out << piece << std::flush;
  });
  DataBuffer buffer;
  EXPECT_TRUE(buffer.loadFileUtf8(path("fifo").c_str(), quiet));
  writer.join();
  EXPECT_TRUE(buffer.view() == std::string(350000, 'p'));
}

TEST_F(DataBufferFile, that_cannot_be_read_is_explained) {
  std::ofstream(path("secret")) << "x";
  fs::permissions(path("secret"), fs::perms::none);
  const Row rows[] = {{path("missing"), "No such file or directory"},
                      {path("secret/below"), "Not a directory"},
                      {path(""), "Is a directory"},
                      {"", "No such file or directory"},
                      {path("secret"), "Permission denied"}};
  for (const auto& [file, reason] : rows) {
    if (file == path("secret") && geteuid() == 0) continue;  // the superuser may read anything
    DataBuffer buffer = bufferOf("old");
    LogMemory log;
    EXPECT_FALSE(buffer.loadFileUtf8(file.c_str(), log)) << file;
    EXPECT_TRUE(buffer.isEmpty()) << file;
    EXPECT_TRUE(log.text().ends_with("error: " + reason + "\n")) << log.text();
  }
}

}  // namespace
}  // namespace mailtree
