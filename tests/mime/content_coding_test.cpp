#include "mailtree/mime/coding/ContentCoding.h"

#include <algorithm>
#include <memory>

#include "tests/mime/tables.h"

namespace mailtree {
namespace {

/// Takes so many bytes, then fails.
struct FailingOutput final : _svOutput {
  explicit FailingOutput(std::size_t size) : capacity(size) {}
  bool put(std::string_view bytes, LogBase&) override {
    largest = std::max(largest, bytes.size());
    if (text.size() + bytes.size() > capacity) return false;
    text += bytes;
    return true;
  }

  std::size_t capacity, largest = 0;
  std::string text;
};

std::string mixedText(std::size_t size) {
  std::string text;
  for (unsigned i = 0; text.size() < size; ++i)
    text += i % 7 ? "line of text " : i % 3 ? "\xC3\xA9\r\n." : " \r\nFrom ";
  return text;
}

TEST(ContentCoding, appends_behind_what_is_there) {
  StringBuffer text("> ");
  DataBuffer bytes;
  ASSERT_TRUE(ContentCoding::encodeBase64("foobar", 6, text));
  ASSERT_TRUE(ContentCoding::encodeBase64(nullptr, 0, text));
  ASSERT_TRUE(ContentCoding::encodeQuotedPrintable("a=b", 3, text));
  EXPECT_EQ(text.view(), "> Zm9vYmFy\r\na=3Db");
  ASSERT_TRUE(ContentCoding::decodeBase64ToDb("Zm9v", bytes));
  ASSERT_TRUE(ContentCoding::decodeBase64ToDb("", bytes));
  ASSERT_TRUE(ContentCoding::decodeQuotedPrintableToDb("=3Dx=\r\n", bytes));
  EXPECT_EQ(bytes.view(), "foo=x");
}

TEST(ContentCoding, is_base64_wants_a_digit_and_nothing_strange) {
  for (const char* text : {"Zm9v", " Z\r\nm8=\t"}) EXPECT_TRUE(ContentCoding::isBase64(text)) << text;
  for (const std::string& text : {""s, " \r\n"s, "=="s, "Zm9v-"s, "Zm\x80"s, "Zm\0"s})
    EXPECT_FALSE(ContentCoding::isBase64(text)) << text;
}

TEST(ContentCoding, computed_size_is_the_size) {
  for (const std::size_t n : {0, 1, 2, 3, 56, 57, 58, 114, 100000}) {
    StringBuffer text;
    ContentCoding::encodeBase64(std::string(n, 'x').data(), n, text);
    EXPECT_EQ(ContentCoding::computeBase64Size(n, 76), text.getSize()) << n;
  }
  EXPECT_EQ(ContentCoding::computeBase64Size(4, 0), 8U);
}

TEST(ContentCoding, writes_to_a_sink_what_it_appends_in_bounded_pieces_and_reports_a_failure) {
  const std::string bytes = mixedText(100000);
  ProgressContext progress(nullptr);
  const auto check = [&](const auto& append, const auto& write) {
    FailingOutput whole(1 << 20), failing(50000);
    EXPECT_TRUE(write(bytes.data(), bytes.size(), whole, progress, quiet));
    EXPECT_EQ(whole.text, textOf([&](StringBuffer& out) { append(bytes.data(), bytes.size(), out); }));
    EXPECT_LT(whole.largest, 40000U);
    EXPECT_FALSE(write(bytes.data(), bytes.size(), failing, progress, quiet));
  };
  check(ContentCoding::encodeBase64, ContentCoding::encodeBase64ToOutput);
  check(ContentCoding::encodeQuotedPrintable, ContentCoding::encodeQpToOutput);
}

TEST(ContentCoding, payloads_of_encoded_words) {
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {"", "", ""},
      {"Doe, Jane", "RG9lLCBKYW5l", "Doe=2C_Jane"},
      {"A1!*+-/", "QTEhKistLw==", "A1!*+-/"},
      {"_?=\xC3\xBC.", "Xz89w7wu", "=5F=3F=3D=C3=BC=2E"},
      {repeat("\xFF", 100), repeat("/", 133) + "w==", repeat("=FF", 100)}};
  for (const auto& [bytes, b, q] : rows) {
    std::size_t bLength = 99, qLength = 99;
    const std::unique_ptr<char[]> bText(ContentCoding::B_Encode(bytes.data(), bytes.size(), &bLength));
    const std::unique_ptr<char[]> qText(
        ContentCoding::Q_EncodeCommaToo(bytes.data(), bytes.size(), &qLength));
    EXPECT_EQ(std::string(bText.get()), b);
    EXPECT_EQ(std::string(qText.get()), q);
    EXPECT_TRUE(bLength == b.size() && qLength == q.size()) << bytes;
  }
}

TEST(ContentCoding, decodes_the_encoded_words_of_a_value_in_place) {
  StringBuffer value("=?iso-8859-1?Q?caf=E9?= =?utf-8?B?w6k=?= plain");
  ContentCoding::QB_DecodeToUtf8(value, quiet);
  EXPECT_EQ(value.view(), "caf\xC3\xA9\xC3\xA9 plain");
}

}  // namespace
}  // namespace mailtree
