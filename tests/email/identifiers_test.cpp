#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mailtree/email/model/internal.h"
#include "tests/support/fields.h"

namespace mailtree {
namespace {

using testing::MatchesRegex;

LogNull quiet;

EmailPtr bareNode() { return EmailPtr(Email2::createNewObject00()); }

TEST(Identifiers, message_id_is_forty_digits_at_the_host_and_drawn_anew_each_time) {
  const EmailPtr node = bareNode();
  ASSERT_TRUE(node->generateMessageID(quiet));
  const std::string first = fieldOf(*node, "message-id");
  EXPECT_THAT(first, MatchesRegex("<[0-9A-F]{40}@[A-Za-z0-9]+>"));
  ASSERT_TRUE(node->generateMessageID(quiet));
  EXPECT_NE(fieldOf(*node, "message-id"), first);
  EXPECT_EQ(node->getNumHeaderFields(), 1);
}

TEST(Identifiers, content_id_is_unique_and_logged_when_verbose) {
  const EmailPtr node = bareNode();
  LogMemory log;
  ASSERT_TRUE(node->generateContentId(log));
  EXPECT_EQ(log.text(), "");
  const std::string first(node->m_contentId.view());
  log.m_verboseLogging = true;
  ASSERT_TRUE(node->generateContentId(log));
  const std::string second(node->m_contentId.view());
  EXPECT_THAT(second, MatchesRegex("<CID-[A-Za-z0-9]+@[A-Za-z0-9]+>"));
  EXPECT_NE(first, second);
  EXPECT_EQ(fieldOf(*node, "Content-ID"), second);
  EXPECT_EQ(log.text(), "generatedContentId: " + second + "\n");
}

TEST(Identifiers, host_is_reduced_to_ascii_letters_and_digits) {
  const std::pair<const char*, const char*> rows[] = {{"desk-7.example.com", "@desk7examplecom"},
                                                      {"b\xC3\xBCro 1>\r\nc", "@bro1c"},
                                                      {"\xD0\xB4", "@unknown"}};
  for (const auto& [computer, host] : rows) {
    StringBuffer out("@");
    appendIdentifierHost(computer, out);
    EXPECT_EQ(out.view(), host);
  }
}

TEST(Dates, field_is_written_only_when_asked_for) {
  const EmailPtr node = bareNode();
  node->setDate("Sat, 21 Nov 2026 08:30:00 +0100", quiet, false);
  EXPECT_FALSE(node->hasHeaderField("Date", quiet));
  SorvikSysTime date, now;
  node->getDate(date);
  EXPECT_EQ(date.m_year * 100 + date.m_hour, 2026 * 100 + 7);

  node->setDate("not a date", quiet, true);
  EXPECT_EQ(fieldOf(*node, "Date"), "not a date");
  EXPECT_TRUE(node->m_date == date) << "an unreadable text leaves the date alone";

  node->resetDate(quiet);
  now.getCurrentGmt();
  EXPECT_LE(std::abs(now.toUnixTime() - node->m_date.toUnixTime()), 5);
  EXPECT_EQ(disagreeingFields(*node), "");
}

TEST(EmailFilename, begins_with_the_date_does_not_repeat_and_counts_round_from_999_to_0) {
  const EmailPtr node = bareNode();
  node->setDate("Thu, 5 Feb 2026 03:04:09 +0000", quiet, false);
  const std::string date = "dir/e_20260205_030409_";
  const auto next = [&] {
    StringBuffer name("dir/");
    node->genEmailFilename(name);
    return name.extractString();
  };
  std::string last = next();
  EXPECT_THAT(last, MatchesRegex(date + "[0-9a-f]{6}[0-9a-f]{3}[0-9A-Fa-f]{8}\\.eml"));
  for (int i = 0; i < 1000; ++i) {
    const std::string name = next();
    const auto counter = [&](const std::string& text) {
      return std::stoi(text.substr(date.size() + 6, 3), nullptr, 16);
    };
    ASSERT_EQ(counter(name), counter(last) == 999 ? 0 : counter(last) + 1);
    ASSERT_NE(name.substr(date.size(), 6), last.substr(date.size(), 6)) << "the tick";
    ASSERT_NE(name.substr(date.size() + 9), last.substr(date.size() + 9)) << "the random part";
    last = name;
  }
}

}  // namespace
}  // namespace mailtree
