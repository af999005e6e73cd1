#include <gtest/gtest.h>

#include "mailtree/message/Message.h"

namespace mailtree {
namespace {

constexpr const char* kNested =
    "From: Anna Berg\nTo: undisclosed-recipients:;, Jo <jo@b.example>\nMessage-ID: <a@b>\nIn-Reply-To: your "
    "<x@y> "
    "of now\n"
    "References: (c <no@id>) <r1@\n b> <r2@b>\nList-ID: \"A <b>\" <list.example>\nSubject: one\nSubject: "
    "two\n"
    "Content-Type: multipart/mixed; boundary=b; boundary=c\n\n"
    "--b\nContent-Type: multipart/digest; boundary=d\n\n--d\n\nSubject: inner 1/2\n\nhi\n--d--\n"
    "--b\nContent-Type: text/calendar; method=request\n\nBEGIN:VCALENDAR\n--b--\n";

TEST(Reading, GivesTheHeaderAsValues) {
  const Result<Message> mail = Message::parse(kNested);
  EXPECT_EQ(mail->from(), (Address{"Anna Berg", ""}));
  EXPECT_EQ(mail->to().back(), (Address{"Jo", "jo@b.example"}));
  EXPECT_EQ(mail->messageId() + " " + mail->inReplyTo() + " " + mail->listId(), "a@b x@y list.example");
  EXPECT_EQ(mail->references(), (std::vector<std::string>{"r1@b", "r2@b"}));
  EXPECT_EQ(mail->header("SUBJECT"), "one");
}

TEST(Reading, FindsPartsByTheirIds) {
  const Result<Message> mail = Message::parse(kNested);
  for (const Part& part : mail->parts()) EXPECT_EQ(mail->part(part.id()), part);
  for (const char* id : {"", "0", "2", "1.", "1.3", "1.2.1", "1.-1", "1.99999999999"})
    EXPECT_FALSE(mail->part(id)) << id;
  EXPECT_EQ(mail->part("1.1.1")->fileName(), "inner 1_2.eml");
}

TEST(Reading, OpensWhatAMessageCarries) {
  const Result<Message> mail = Message::parse(kNested);
  ASSERT_EQ(mail->messages().size(), 1u);
  EXPECT_EQ(mail->messages()[0].subject(), "inner 1/2");
  EXPECT_EQ(mail->part("1.2")->message().error().code, ErrorCode::badValue);
  EXPECT_EQ(mail->calendar()->method, "REQUEST");
  EXPECT_FALSE(mail->report());
}

TEST(Reading, TellsWhatProgramsReadInDifferentWays) {
  std::string found;
  for (const Problem& problem : Message::parse(kNested)->problems())
    found += problem.part + " " + problem.text + "\n";
  EXPECT_EQ(found,
            "1 the field Subject is there 2 times\n"
            "1 the Content-Type has the parameter boundary 2 times\n");
}

}  // namespace
}  // namespace mailtree
