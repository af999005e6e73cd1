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

/// Each as "part@offset severity text".
std::string problemsOf(std::string_view mime) {
  std::string found;
  for (const Problem& problem : Message::parse(mime)->problems())
    found += problem.part + (problem.offset ? "@" + std::to_string(*problem.offset) : std::string()) + " " +
             "nwd"[static_cast<int>(problem.severity)] + " " + problem.text + "\n";
  return found;
}

constexpr const char* kGood = "From: a@x.example\nDate: Thu, 1 Jan 2026 00:00:00 +0000\nMessage-ID: <a@b>\n";
constexpr std::size_t kGoodSize = 73;

TEST(Reading, TellsWhatIsWrongWithAMessage) {
  EXPECT_EQ(problemsOf(kNested),
            "1@198 w the field Subject is there 2 times\n"
            "1@211 d the Content-Type has the parameter boundary 2 times\n"
            "1 n the field Date is missing\n"
            "1@0 w From has a name and no address: \"Anna Berg\"\n");
  struct {
    std::string_view rest,
        problem;  ///< Of a message whose header is good so far; problem with `@` from there.
  } rows[] = {
      {"\nhi\n", ""},
      {"Content-Type: text/plain; charset=nope\n\nhi\n", "1 n the charset \"nope\" is unknown"},
      {"Subject: \xE9\n\nhi\n", "1@0 w the field \"Subject\" has raw 8-bit bytes"},
      {"Content-Transfer-Encoding: quoted-printable\n\na=XYb =\n=3D\n",
       "1@46 n the quoted-printable has \"=\""},
      {"Content-Transfer-Encoding: base64\n\naGk!h\n", "1@38 w the base64 has characters"},
      {"Content-Transfer-Encoding: base64\n\naGk=\naGk=\n", "1@40 d the base64 goes on after its end"},
      {"Content-Transfer-Encoding: base64\n\naGkhaG\n", "1@42 w the base64 is cut off"},
      {"Content-Transfer-Encoding: base-64\n\naGk=\n", "1@0 w the Content-Transfer-Encoding \"base-64\" is"},
      {"Content-Transfer-Encoding: Base64\nContent-Type: multipart/mixed; boundary=b\n\n--b\n\nx\n--b--\n",
       "1@0 d a multipart is declared to be in base64"},
      {"this line is no field\nX: y\n\nhi\n", "1@0 w a line of the header is not a field"},
      {"Subject : x\n\nhi\n", "1@0 w a blank is before the colon"},
      {"Subject: =?nope?q?=E9?=\n\nhi\n", "1@0 w the field \"Subject\" has an encoded word in the unknown"},
      {"X: a\n \n b\n\nhi\n", "1@0 w a line of the field \"X\" has only blanks"},
      {"X: a\rY: b\n\nhi\n", "1@4 d the header has CR without LF"},
      {"\nh\ri\n", "1@2 w the content has CR without LF"},
      {std::string_view("\nh\0i\n", 5), "1@2 w the content has NUL bytes"},
      {"Reply-To: b@evil.example\n\nhi\n", "1@0 w answers go to another domain"},
      {"Reply-To: b@mail.x.example\n\nhi\n", ""},
      {"Sender: \"a@bank.example\" <b@x.example>\n\nhi\n", "1@0 d the name in Sender is another address"},
      {"Sender: =?utf-8?q?a=40bank.example?=\n\nhi\n", "1@0 d Sender has an address only in its name"},
      {"Content-Type: a/b; name=x.pdf\nContent-Disposition: attachment; filename=x.exe\n\nhi\n",
       " d the file has two names: \"x.pdf\" and \"x.exe\""},
      {"MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=b\n\n--b\n\nx\n--b2\n\ny\n--b--\n",
       "1.1@68 d a line begins with a boundary"},
      {"MIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=b\n\n--b\n\nx\n--b--\n--b\n\ny\n",
       "1.1@74 d a boundary begins no part here"},
  };
  for (const auto& [rest, problem] : rows) {
    std::string wanted(problem);
    if (const std::size_t at = wanted.find('@'); at < 6)
      wanted = wanted.substr(0, at + 1) + std::to_string(kGoodSize + std::stoul(wanted.substr(at + 1))) +
               wanted.substr(wanted.find(' '));
    const std::string found = problemsOf(std::string(kGood).append(rest));
    EXPECT_TRUE(problem.empty() ? found.empty() : found.find(wanted) != std::string::npos)
        << rest << "wanted: " << wanted << "\nfound:\n"
        << found;
  }
}

TEST(Reading, TellsWhichLinesAreTooLong) {
  const std::string lines =
      std::string(kGood) + "\n" + std::string(999, 'x') + "\n" + std::string(998, 'x') + "\n";
  EXPECT_EQ(problemsOf(lines), "1@74 n the content has lines of more than 998 bytes (1)\n");
}

}  // namespace
}  // namespace mailtree
