#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "mailtree/base/Platform.h"
#include "mailtree/email/Email2.h"
#include "mailtree/email/model/internal.h"
#include "tests/support/fields.h"

namespace mailtree {
namespace {

using testing::MatchesRegex;

LogNull quiet;

EmailPtr bareNode() { return EmailPtr(Email2::createNewObject00()); }

TEST(Identifiers, message_id_is_forty_digits_at_the_host) {
  const EmailPtr node = bareNode();
  std::set<std::string> seen;
  for (int i = 0; i < 100; ++i) {
    ASSERT_TRUE(node->generateMessageID(quiet));
    seen.insert(fieldOf(*node, "message-id"));
  }
  EXPECT_EQ(seen.size(), 100u);
  EXPECT_THAT(*seen.begin(), MatchesRegex("<[0-9A-F]{40}@[A-Za-z0-9]+>"));
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
  ASSERT_EQ(log.entries().size(), 1u);
  EXPECT_EQ(log.entries()[0].tag, "generatedContentId");
  EXPECT_EQ(log.entries()[0].text, second);
}

TEST(Identifiers, host_is_reduced_to_ascii_letters_and_digits) {
  const struct {
    const char* computer;
    const char* host;
  } rows[] = {
      {"desk-7.example.com", "desk7examplecom"},
      {"\xD0\xB4\xD0\xBE\xD0\xBC", "unknown"},
      {"b\xC3\xBCro 1", "bro1"},
      {"a@b>\r\nc", "abc"},
      {"", "unknown"},
  };
  for (const auto& row : rows) {
    StringBuffer out("@");
    appendIdentifierHost(row.computer, out);
    EXPECT_EQ(out.view(), std::string("@") + row.host) << row.computer;
  }
}

// Dates

TEST(Dates, field_is_written_only_when_asked_for) {
  const EmailPtr node = bareNode();
  node->setDate("Sat, 21 Nov 2026 08:30:00 +0100", quiet, false);
  EXPECT_FALSE(node->hasHeaderField("Date", quiet));
  SorvikSysTime date;
  node->getDate(date);
  EXPECT_EQ(date.m_year, 2026);
  EXPECT_EQ(date.m_hour, 7);

  node->setDate("not a date", quiet, true);
  EXPECT_EQ(fieldOf(*node, "Date"), "not a date");
  EXPECT_TRUE(node->m_date == date) << "an unreadable text leaves the date alone";

  node->resetDate(quiet);
  SorvikSysTime now;
  now.getCurrentGmt();
  EXPECT_LE(std::abs(now.toUnixTime() - node->m_date.toUnixTime()), 5);
  EXPECT_EQ(disagreeingFields(*node), "");
}

// File names

std::string filenameFor(const SorvikSysTime& time) {
  StringBuffer out;
  Email2::genEmailFilename2(time, out);
  return out.extractString();
}

TEST(EmailFilename, begins_with_the_date_and_does_not_repeat) {
  const EmailPtr node = bareNode();
  node->setDate("Thu, 5 Feb 2026 03:04:09 +0000", quiet, false);
  StringBuffer name("dir/");
  node->genEmailFilename(name);
  EXPECT_THAT(std::string(name.view()),
              MatchesRegex("dir/e_20260205_030409_[0-9a-f]{6}[0-9a-f]{3}[0-9A-Fa-f]{8}\\.eml"));
  const std::string a = filenameFor(node->m_date), b = filenameFor(node->m_date);
  const std::size_t tick = std::string("e_20260205_030409_").size();
  EXPECT_NE(a.substr(tick, 6), b.substr(tick, 6));
  EXPECT_NE(a.substr(tick + 6, 3), b.substr(tick + 6, 3));
  EXPECT_NE(a.substr(tick + 9), b.substr(tick + 9));
}

TEST(EmailFilename, counter_goes_round_from_999_to_0) {
  const std::size_t counter = std::string("e_00000000_000000_").size() + 6;
  int last = std::stoi(filenameFor({}).substr(counter, 3), nullptr, 16);
  bool wentRound = false;
  for (int i = 0; i < 1000; ++i) {
    const int next = std::stoi(filenameFor({}).substr(counter, 3), nullptr, 16);
    ASSERT_EQ(next, last == 999 ? 0 : last + 1);
    wentRound |= next == 0;
    last = next;
  }
  EXPECT_TRUE(wentRound);
}

}  // namespace
}  // namespace mailtree
