// What is set in a header is what is read back, also from the bytes; what cannot be used changes nothing.
#include <gtest/gtest.h>

#include <functional>

#include "mailtree/mailtree.h"

namespace mailtree {
namespace {

/// The message read from its own bytes.
Message reread(const Message& mail, const WriteOptions& options = {}) {
  return Message::parse(mail.toString(options).value()).value();
}

std::string textOf(const std::vector<Address>& addresses) {
  std::string text;
  for (const Address& each : addresses) text += (text.empty() ? "" : ", ") + each.text();
  return text;
}

struct FreeText {
  const char* what;
  std::string text;
};

TEST(Changing, ReadsFreeTextBackAsItWasSet) {
  std::string letters;
  for (int i = 0; i < 50'000; ++i) letters += i % 7 ? "ä" : " ";
  const FreeText rows[] = {
      {"empty", ""},
      {"outer blanks", "  lead and trail \t"},
      {"blanks between letters", "ä  ö \t b"},
      {"what looks like an encoded word", "=?utf-8?Q?x?= and ä"},
      {"several scripts", "Grüße, 日本語 🎉"},
      {"one long word", std::string(5'000, 'x')},
      {"100,000 bytes", letters},
  };
  for (const FreeText& row : rows) {
    Message mail;
    ASSERT_TRUE(mail.setSubject(row.text)) << row.what;
    ASSERT_TRUE(mail.addHeader("X-Note", row.text)) << row.what;
    EXPECT_EQ(mail.subject(), row.text) << row.what;
    EXPECT_EQ(reread(mail).subject(), row.text) << row.what;
    EXPECT_EQ(reread(mail).header("X-Note"), row.text) << row.what;
  }
}

TEST(Changing, ReadsAddressesBackAsTheyWereSet) {
  const Address rows[] = {
      {"", "anna@berg.example"},
      {"Anna Berg", "anna@berg.example"},
      {"Berg, Anna \"the\\boss\" (x); <y@z.example>", "anna@berg.example"},
      {"Ünï @ cödé, 日本", "jo.o'hara@see.example"},
      {"=?utf-8?Q?x", "a@[192.0.2.1]"},
      {"Jörg", "jörg@müller.example"},
      {"two  blanks", "\"a b\"@see.example"},
      {"a name alone", ""},
      {"a@b.example", ""},
  };
  for (const Address& row : rows) {
    const std::vector<Address> list{{"", "first@x.example"}, row, {"Last", "last@x.example"}};
    Message mail;
    ASSERT_TRUE(mail.setFrom(row)) << row.text();
    ASSERT_TRUE(mail.setTo(list) && mail.setCc(list) && mail.setBcc(list)) << row.text();
    const Message read = reread(mail, {.bcc = true});
    EXPECT_EQ(read.from(), row);
    EXPECT_EQ(textOf(read.to()), textOf(list));
    EXPECT_EQ(textOf(read.cc()), textOf(list));
    EXPECT_EQ(textOf(read.bcc()), textOf(list));
    if (row.address.empty()) continue;
    EXPECT_EQ(Address::parse(row.text()).value_or(Address()), row);
  }
}

TEST(Changing, SaysWhatCannotBeUsedAndWhy) {
  const std::string nul("a\0b", 3);
  const std::vector<Address> oneBad{{"", "a@b.example"}, {"", "x y"}}, oneEmpty{{"", "a@b.example"}, {}};
  const std::vector<std::string> badIds{"a@b", "c d"};
  const struct {
    std::function<Result<void>(Message&)> change;
    const char* message;
  } rows[] = {
      {[](Message& m) { return m.setFrom("x y"); }, "not an address: 'x y': white space in the address"},
      {[](Message& m) { return m.setFrom("a@b, c@d"); },
       "not an address: 'a@b, c@d': more than one address where one is expected"},
      {[](Message& m) { return m.setTo("a@b, Jo <jo>"); }, "not an address: 'Jo <jo>': missing at sign"},
      {[&](Message& m) { return m.setTo(oneBad); }, "not an address: 'x y': white space in the address"},
      {[&](Message& m) { return m.setCc(oneEmpty); }, "not an address: no name and no address"},
      {[](Message& m) {
         return m.setFrom(Address{"A\nB", "a@b"});
       },
       "a line break"},
      {[](Message& m) {
         return m.setFrom(Address{"A", "Jo <a@b>"});
       },
       "not an address: 'Jo <a@b>'"},
      {[&](Message& m) { return m.setSubject(nul); }, "contains a control character"},
      {[](Message& m) { return m.setSubject("a\r\nBcc: x@y"); }, "contains a line break"},
      {[](Message& m) { return m.setSubject("\xff"); }, "not valid utf-8"},
      {[](Message& m) { return m.setSubject(std::string(5u << 20, 'x')); }, "the header would be too long"},
      {[](Message& m) {
         return m.setDate({Date().time, std::chrono::hours(120)});
       },
       "not a date"},
      {[](Message& m) { return m.setMessageId("a b@c"); }, "not an identifier such as"},
      {[&](Message& m) { return m.setReferences(badIds); },
       "not an identifier such as 'a1@berg.example': 'c d'"},
      {[](Message& m) { return m.setHeader("X Y", "z"); }, "not a field name: 'X Y'"},
      {[](Message& m) { return m.setHeader("Content-Type", "text/html"); },
       "the field follows from the content"},
      {[](Message& m) { return m.removeHeader("mime-version"); }, "the field follows from the content"},
      {[](Message& m) { return m.setHeader("Date", "tomorrow"); }, "Date 'tomorrow': not a date"},
      {[](Message& m) { return m.addHeader("SVX-Note", "z"); }, "fields with this name are never written"},
  };
  for (const auto& row : rows) {
    Message mail;
    const std::string before = mail.toString().value();
    const Result<void> result = row.change(mail);
    ASSERT_FALSE(result) << row.message;
    EXPECT_NE(result.error().message.find(row.message), std::string::npos) << result.error().message;
    EXPECT_EQ(mail.toString().value(), before) << row.message;
  }
}

TEST(Changing, SetsIdentifiersDatesAndFieldsOnce) {
  Message mail = Message::parse("Subject: a\r\nsubject: b\r\nReferences: <x@y>\r\nTo: a@b\r\n\r\n").value();
  const Date date{Date().time + std::chrono::hours(24 * 365 * 50), std::chrono::minutes(-210)};
  const std::vector<std::string> references{"1@x", "<2@x>"};
  ASSERT_TRUE(mail.setSubject("c") && mail.setMessageId("<id@x>") && mail.setInReplyTo("1@x") &&
              mail.setTo(""));
  ASSERT_TRUE(mail.setReferences(references) && mail.setListId("list.x") && mail.setDate(date));
  ASSERT_TRUE(mail.setReplyTo("a@b.example, Jo <c@d.example>"));
  const Message read = reread(mail);
  EXPECT_EQ(read.subject(), "c");
  EXPECT_EQ(read.messageId() + " " + read.inReplyTo() + " " + read.listId(), "id@x 1@x list.x");
  EXPECT_EQ(read.references(), (std::vector<std::string>{"1@x", "2@x"}));
  EXPECT_EQ(read.date(), date);
  EXPECT_EQ(textOf(read.replyTo()), "a@b.example, Jo <c@d.example>");
  EXPECT_EQ(read.header("To"), std::nullopt);
}

TEST(Changing, ReadsTheOffsetOfADate) {
  const struct {
    const char* text;
    int minutes;
    const char* written;
  } rows[] = {
      {"Sun, 22 Nov 2026 12:00:00 +0100", 60, "Sun, 22 Nov 2026 12:00:00 +0100"},
      {"22 Nov 26 12:00 EST", -300, "Sun, 22 Nov 2026 12:00:00 -0500"},
      {"Sun Nov 22 23:30:00 2026 -0330 (NST)", -210, "Sun, 22 Nov 2026 23:30:00 -0330"},
      {"Wed, 1 Jan 2020 00:30:00 +1400", 840, "Wed, 01 Jan 2020 00:30:00 +1400"},
  };
  for (const auto& row : rows) {
    const Result<Date> date = Date::parse(row.text);
    ASSERT_TRUE(date) << row.text;
    EXPECT_EQ(date->offset.count(), row.minutes) << row.text;
    EXPECT_EQ(date->text(), row.written);
  }
  EXPECT_FALSE(Date::parse("03/04/05"));
}

TEST(Changing, SetsManyRecipientsInLinearTime) {
  std::vector<Address> list;
  for (int i = 0; i < 40'000; ++i)
    list.push_back({"Nö " + std::to_string(i), std::to_string(i) + "@x.example"});
  Message mail;
  ASSERT_TRUE(mail.setTo(list));
  EXPECT_EQ(mail.envelope().recipients.size(), list.size());
}

}  // namespace
}  // namespace mailtree
