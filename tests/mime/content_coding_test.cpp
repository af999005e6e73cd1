#include "mailtree/mime/coding/ContentCoding.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

namespace mailtree {
namespace {

/// Takes so many bytes, then fails.
class FailingOutput final : public _svOutput {
 public:
  explicit FailingOutput(std::size_t capacity) : m_capacity(capacity) {}
  std::string text;
  std::size_t largest = 0;

 protected:
  bool put(std::string_view bytes, LogBase&) override {
    largest = std::max(largest, bytes.size());
    if (text.size() + bytes.size() > m_capacity) return false;
    text += bytes;
    return true;
  }

 private:
  std::size_t m_capacity;
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
  const struct {
    std::string_view text;
    bool is;
  } rows[] = {{"Zm9v", true}, {" Z\r\nm8=\t", true}, {"", false},       {" \r\n", false},
              {"==", false},  {"Zm9v-", false},      {"Zm\x80", false}, {std::string_view("Zm\0", 3), false}};
  for (const auto& row : rows) EXPECT_EQ(ContentCoding::isBase64(row.text), row.is) << row.text;
}

TEST(ContentCoding, computed_size_is_the_size) {
  for (const std::size_t n : {0, 1, 2, 3, 56, 57, 58, 114, 100000}) {
    StringBuffer text;
    ContentCoding::encodeBase64(std::string(n, 'x').data(), n, text);
    EXPECT_EQ(ContentCoding::computeBase64Size(n, 76), text.getSize()) << n;
  }
  EXPECT_EQ(ContentCoding::computeBase64Size(4, 0), 8U);
}

TEST(ContentCoding, writes_to_a_sink_what_it_appends_in_bounded_pieces) {
  const std::string bytes = mixedText(100000);
  StringBuffer base64, qp;
  ContentCoding::encodeBase64(bytes.data(), bytes.size(), base64);
  ContentCoding::encodeQuotedPrintable(bytes.data(), bytes.size(), qp);

  LogNull log;
  ProgressContext progress(nullptr);
  FailingOutput base64Out(1 << 20), qpOut(1 << 20);
  EXPECT_TRUE(ContentCoding::encodeBase64ToOutput(bytes.data(), bytes.size(), base64Out, progress, log));
  EXPECT_TRUE(ContentCoding::encodeQpToOutput(bytes.data(), bytes.size(), qpOut, progress, log));
  EXPECT_EQ(base64Out.text, base64.view());
  EXPECT_EQ(qpOut.text, qp.view());
  EXPECT_LT(std::max(base64Out.largest, qpOut.largest), 40000U);
}

TEST(ContentCoding, reports_a_sink_that_failed) {
  const std::string bytes = mixedText(100000);
  LogNull log;
  ProgressContext progress(nullptr);
  FailingOutput base64Out(50000), qpOut(50000);
  EXPECT_FALSE(ContentCoding::encodeBase64ToOutput(bytes.data(), bytes.size(), base64Out, progress, log));
  EXPECT_FALSE(ContentCoding::encodeQpToOutput(bytes.data(), bytes.size(), qpOut, progress, log));
}

TEST(ContentCoding, payloads_of_encoded_words) {
  const struct {
    std::string bytes, b, q;
  } rows[] = {
      {"", "", ""},
      {"Doe, Jane", "RG9lLCBKYW5l", "Doe=2C_Jane"},
      {"A1!*+-/",
       "QTEhKist"
       "Lw==",
       "A1!*+-/"},
      {"_?=\xC3\xBC.", "Xz89w7wu", "=5F=3F=3D=C3=BC=2E"},
      {std::string(100, '\xFF'), std::string(132, '/') + "/w==",
       [] {
         std::string q;
         for (int i = 0; i < 100; ++i) q += "=FF";
         return q;
       }()},
  };
  for (const auto& row : rows) {
    std::size_t bLength = 99, qLength = 99;
    const std::unique_ptr<char[]> b(ContentCoding::B_Encode(row.bytes.data(), row.bytes.size(), &bLength));
    const std::unique_ptr<char[]> q(
        ContentCoding::Q_EncodeCommaToo(row.bytes.data(), row.bytes.size(), &qLength));
    EXPECT_EQ(std::string(b.get()), row.b);
    EXPECT_EQ(bLength, row.b.size());
    EXPECT_EQ(std::string(q.get()), row.q);
    EXPECT_EQ(qLength, row.q.size());
  }
}

TEST(ContentCoding, decodes_the_encoded_words_of_a_value_in_place) {
  LogNull log;
  StringBuffer value("=?iso-8859-1?Q?caf=E9?= =?utf-8?B?w6k=?= plain");
  ContentCoding::QB_DecodeToUtf8(value, log);
  EXPECT_EQ(value.view(), "caf\xC3\xA9\xC3\xA9 plain");
}

}  // namespace
}  // namespace mailtree
