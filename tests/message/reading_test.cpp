#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

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

TEST(Reading, SavesFilesBesideOthersOfTheSameName) {
  std::string folder = testing::TempDir() + "mailtree-XXXXXX";
  ASSERT_TRUE(::mkdtemp(folder.data()));
  const Result<Message> mail = Message::parse(
      "Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: a/b; "
      "name=\"../x.pdf\"\n\none\n--b--\n");
  const Part file = mail->attachments().at(0);
  EXPECT_EQ(file.saveIn(folder).value(), folder + "/x.pdf");
  std::filesystem::create_symlink("nowhere", folder + "/x (2).pdf");
  EXPECT_EQ(file.saveIn(folder).value(), folder + "/x (3).pdf");
  EXPECT_EQ(std::filesystem::file_size(folder + "/x (3).pdf"), 3u);
  EXPECT_EQ(file.saveIn(folder + "/missing").error().code, ErrorCode::unwritable);
  std::filesystem::remove_all(folder);
}

TEST(Reading, OpensWhatAMessageCarries) {
  const Result<Message> mail = Message::parse(kNested);
  ASSERT_EQ(mail->messages().size(), 1u);
  EXPECT_EQ(mail->messages()[0].subject(), "inner 1/2");
  EXPECT_EQ(mail->part("1.2")->message().error().code, ErrorCode::badValue);
  EXPECT_EQ(mail->calendar()->method, "REQUEST");
  EXPECT_FALSE(mail->report());
}

TEST(Reading, KnowsWhichMessageAReportIsAbout) {
  const Result<Message> mail = Message::parse(
      "Content-Type: multipart/report; boundary=b\n\n--b\n\nNot delivered\n--b\n"
      "Content-Type: message/delivery-status\n\nReporting-MTA: dns; x\n\nFinal-Recipient: rfc822; a@x\n"
      "Action: failed\n\n--b\nContent-Type: message/rfc822\n\nSubject: boat\nMessage-ID: <1@x>\n\n--b--\n");
  const Report report = mail->report().value();
  EXPECT_EQ(report.subject + " " + report.messageId, "boat 1@x");
  EXPECT_EQ(report.recipients.at(0).address, "a@x");
}

TEST(Reading, TellsWhatProgramsReadInDifferentWays) {
  std::string found;
  for (const Problem& problem :
       Message::parse(std::string("Content-Transfer-Encoding: Base64\n") + kNested)->problems())
    found += problem.part + " " + problem.text + "\n";
  EXPECT_EQ(found,
            "1 the field Subject is there 2 times\n"
            "1 the Content-Type has the parameter boundary 2 times\n"
            "1 a multipart is declared to be in base64\n");
}

}  // namespace
}  // namespace mailtree
