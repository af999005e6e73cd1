// Which messages an expression describes, what it says about a wrong one, and which conversations there are.
#include <gtest/gtest.h>

#include <algorithm>

#include "mailtree/message/Expression.h"
#include "mailtree/message/LazyMessage.h"
#include "mailtree/message/Threads.h"

namespace mailtree {
namespace {

/// A: a letter with accents in encoded words. B: HTML and a file, unread. C: ASCII, with things that only
/// look like something else. D: undated, with a broken header.
const struct {
  char name;
  const char* bytes;
} kMessages[] = {
    {'A',
     "From: =?utf-8?q?J=C3=B6rg_M=C3=BCller?= <jo@berg.example>\r\nTo: Anna <anna@see.example>\r\n"
     "Subject: =?utf-8?q?Stra=C3=9Fenfest?= am\r\n Sonntag\r\nDate: Sat, 31 Jan 2026 23:30:00 -0100\r\n"
     "List-Id: Fest <fest.berg.example>\r\nContent-Type: text/plain; charset=utf-8\r\n\r\nCaf\xC3\x89 "
     "am\r\nMarkt\r\n"},
    {'B',
     "From: \"Anna \\\"A\\\" See\" <anna@see.example>\nSubject: report\nDate: Fri, 1 Jan 2027 00:00:00 "
     "+0000\n"
     "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: "
     "text/html\n\n<p>zwei&nbsp;T\xC3\xB6pfe</p>\n--b\n"
     "Content-Type: application/vnd.ms-excel; name=\"Zahlen 2026.XLSX\"\nContent-Disposition: "
     "attachment\n\nx\n--b--\n"},
    {'C',
     "From: info@host.example\nTo: jo@berg.example\nX-Spam: No, score\nSubject: header and or not\n"
     "Date: Sun, 1 Mar 2026 12:00:00 +0000\n\nSubject: sonntag\nbegin at ten\n"},
    {'D', "no header\n\nthree words here\n"},
};

std::string found(const Expression& expression) {
  std::string names;
  LazyMessage lazy;
  for (const auto& [name, bytes] : kMessages) {
    SourceMessage message;
    message.bytes = bytes;
    message.isInMaildir = true;
    if (name != 'B') message.flags = "RS";
    lazy.assign(message);
    if (expression.matches(lazy)) names += name;
  }
  return names;
}

TEST(Expression, finds_messages_or_says_what_is_wrong_with_it) {
  constexpr std::pair<const char*, const char*> kRows[] = {
      {"from:JORG", "A"},  // neither case nor accents count
      {"from:\"jörg mü\"", "A"},
      {"from:'jorg'", ""},
      {"from:anna", "B"},
      {"from:\"a\\\\\\\" see\"", "B"},  // as it is written
      {"to:anna or cc:anna or bcc:anna", "A"},
      {"subject:strassenfest", "A"},
      {"subject:\"fest am sonntag\"", "A"},  // folded there
      {"subject:sonntag", "A"},              // not the line of a body
      {"sonntag", "AC"},                     // the body too
      {"\"cafe am markt\"", "A"},            // broken there
      {"body:topfe", "B"},
      {"body:report", ""},
      {"header X-Spam:no", "C"},
      {"header x-spam: and to:jo", "C"},
      {"header", "CD"},
      {"list:fest.berg", "A"},
      {"date:2026-02", "A"},  // in UTC
      {"date:2026-02-01..2026-02-28", "A"},
      {"date:2026..2027", "ABC"},
      {"date:..2026", "AC"},
      {"date:2026-03-01..", "BC"},
      {"size:<100", "D"},
      {"size:>=0.1k", "ABC"},
      {"type:text/html", "B"},
      {"type:excel or type:application", "B"},
      {"type:*excel", "B"},
      {"file:*.xlsx", "B"},
      {"file:zahlen", "B"},
      {"file:zahlen*", "B"},
      {"has:attachment", "B"},
      {"has:calendar or is:signed or is:encrypted or is:valid or is:report", ""},
      {"is:repaired", "D"},
      {"is:unread", "B"},
      {"not is:unread not date:2026", "D"},
      {"to:anna or to:jo from:info", "AC"},  // "and" binds closer
      {"(to:anna or to:jo) from:info", "C"},
      {"NOT (to:anna OR to:jo)", "BD"},
      {"\"and\"", "C"},
      {"", "column 1: the expression is empty"},
      {"from:", "column 6: a value is missing after from:"},
      {"from: x", "column 7: a value is missing after from:"},
      {"ü (a or", "column 8: a test is missing here"},
      {"(a", "column 1: the bracket is not closed"},
      {"a) b", "column 2: a bracket is closed that was not opened"},
      {"and b", "column 1: a test is missing here"},
      {"a \"b", "column 3: the quotes are not closed"},
      {"http://x", "column 1: there is no test \"http:\"; quotes make it a text to look for"},
      {"date:2026-13", "column 6: not a date such as 2026, 2026-03-15 or 2026-01..2026-03"},
      {"size:big", "column 6: not a size such as >1M or 10k..20k"},
      {"has:cake", "column 5: not one of attachment, calendar"},
  };
  for (const auto& [text, expected] : kRows) {
    const Result<Expression> expression = Expression::parse(text);
    EXPECT_EQ(expression ? found(*expression) : expression.error().message, expected) << text;
  }
  EXPECT_FALSE(Expression::parse(std::string(100'000, '(')));
}

/// Messages such as "b<a-x:Re: s": an id, the references, and the subject; sent in this order.
std::string conversations(const std::vector<std::string>& messages) {
  Threads threads;
  std::chrono::sys_seconds now{};
  for (const std::string& message : messages) {
    Threads::Entry entry;
    entry.messageId = message.substr(0, 1);
    entry.date = now += std::chrono::seconds(1);
    const std::size_t colon = message.find(':');
    for (std::size_t at = 2; at < std::min(colon, message.size()); at += 2)
      entry.references.push_back(message.substr(at, 1));
    entry.subject = colon == std::string::npos ? message : message.substr(colon + 1);
    threads.add(entry);
  }
  std::string shown;
  for (const Threads::Row& row : threads.rows())
    shown += (row.depth == 0 ? " " : "") + std::string(row.depth, '>') + messages[row.message].substr(0, 1);
  return shown;
}

TEST(Threads, are_built_from_references_and_subjects) {
  const std::pair<std::vector<std::string>, const char*> rows[] = {
      {{"a", "b<a", "c<a-b", "d<a", "e"}, " a>b>>c>d e"},
      {{"c<a-b", "b<a", "a"}, " a>b>>c"},
      {{"b<x", "c<x", "d<y"}, " b>c d"},              // x is missing, and holds them together
      {{"c<a-x-b", "a", "b<x"}, " a>b>>c"},           // so is x in between
      {{"a<b", "b<a"}, " b>a"},                       // a circle
      {{"a:s", "b:Re: s", "c:AW: Re: S"}, " a>b>c"},  // by their subjects
      {{"a:s", "b:s", "c:t"}, " a>b c"},
      {{"a:Re: s", "b:s"}, " b>a"},
      {{"a", "a<x", "b<a"}, " a>b a"},  // an id that is there twice
  };
  for (const auto& [messages, expected] : rows)
    EXPECT_EQ(conversations(messages), expected) << messages.front();
}

}  // namespace
}  // namespace mailtree
