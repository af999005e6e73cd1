// What of a message leaves, and to whom.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "mailtree/mailtree.h"

namespace mailtree {
namespace {

std::string joined(const std::vector<std::string>& texts) {
  std::string text;
  for (const std::string& each : texts) text += (text.empty() ? "" : " ") + each;
  return text;
}

TEST(Output, TellsTheEnvelope) {
  const struct {
    const char* header;
    const char* sender;
    const char* recipients;
  } rows[] = {
      {"From: A <a@x>, b@x\r\nTo: c@x, C <c@X>, e@x\r\nCc: f@x\r\nBcc: g@x\r\n", "a@x", "c@x e@x f@x g@x"},
      {"From: a@x, b@x\r\nSender: b@x\r\nTo: Anybody, d@x\r\n", "b@x", "d@x"},
      {"Resent-From: r@x\r\nResent-To: s@x\r\nResent-From: q@x\r\nResent-To: p@x\r\nFrom: a@x\r\nTo: d@x\r\n",
       "r@x", "s@x"},
      {"Return-Path: <bounce@x>\r\nFrom: A\r\nTo: undisclosed-recipients:;\r\n", "", ""},
  };
  for (const auto& row : rows) {
    const Envelope envelope = Message::parse(std::string(row.header) + "\r\nText").value().envelope();
    EXPECT_EQ(envelope.sender, row.sender) << row.header;
    EXPECT_EQ(joined(envelope.recipients), row.recipients) << row.header;
  }
}

TEST(Output, ShowsBccOnlyOnRequest) {
  Message made;  // has Bcc recipients without a field
  ASSERT_TRUE(made.setFrom("a@x.example") && made.setBcc("Jo <jo@x.example>"));
  Message received = Message::parse(
                         "From: a@x.example\r\nResent-Bcc: r@x.example\r\nBcc: Jo\r\n <jo@x.example>\r\nX-Y: "
                         "z\r\n\r\nText\r\n")
                         .value();
  for (Message* const mail : {&made, &received}) {
    const std::string sent = mail->toString().value(), draft = mail->toString({.bcc = true}).value();
    EXPECT_EQ(sent.find("jo@x"), std::string::npos) << sent;
    EXPECT_EQ(sent.find("r@x"), std::string::npos) << sent;
    EXPECT_EQ(Message::parse(draft).value().bcc(), Address::parseList("Jo <jo@x.example>")) << draft;
    EXPECT_EQ(mail->toString().value(), sent);
    EXPECT_EQ(mail->toString({.bcc = true}).value(), draft);
  }
}

TEST(Output, HidesBccHoweverItsLineBegins) {
  for (const char* mail :
       {"From: a@x\r\nTo: b@x\rBcc: s@x.example\r\n\r\nText\r\n", "From: a@x\rBcc: s@x.example\r\rText",
        "\uFEFFBcc: s@x.example\r\nFrom: a@x\r\n\r\nText\r\n"})
    EXPECT_EQ(Message::parse(mail)->toString()->find("s@x.example"), std::string::npos) << mail;
}

TEST(Output, ChecksBeforeSending) {
  Message mail;
  EXPECT_EQ(mail.check().error().message, "the message has no sender");
  ASSERT_TRUE(mail.setFrom("a@x.example"));
  EXPECT_EQ(mail.check().error().code, ErrorCode::noRecipient);
  ASSERT_TRUE(mail.setBcc("b@x.example"));
  EXPECT_TRUE(mail.check());
}

TEST(Output, WritesTheSameBytesEverywhere) {
  const Message mail =
      Message::parse("From: a@x\nSVX-Y: z\nContent-Type: text/plain; charset=utf-8\n\n.Grüße\n").value();
  const std::filesystem::path path = std::filesystem::temp_directory_path() / "mailtree-output-test.eml";
  for (const WriteOptions& options :
       {WriteOptions{}, WriteOptions{.dotStuff = true}, WriteOptions{.asciiOnly = true}}) {
    const std::string text = mail.toString(options).value();
    EXPECT_EQ(text.find("SVX-"), std::string::npos);
    EXPECT_EQ(text.find("\r\n.Grü") == std::string::npos, options.dotStuff || options.asciiOnly) << text;
    std::ostringstream stream;
    ASSERT_TRUE(mail.write(stream, options) && mail.save(path.string(), options));
    EXPECT_EQ(stream.str(), text);
    std::ifstream file(path, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), text);
  }
  std::filesystem::remove(path);
  Message changed = mail.clone().value();
  ASSERT_TRUE(changed.setSubject("s"));
  const std::string before = changed.toString().value();
  EXPECT_NE(changed.toString({.asciiOnly = true}).value(), before);
  EXPECT_EQ(changed.toString().value(), before) << "labels for ASCII do not stay";
}

TEST(Output, FailsWhole) {
  const Message mail;
  std::ostringstream closed;
  closed.setstate(std::ios::badbit);
  EXPECT_EQ(mail.write(closed).error().code, ErrorCode::unwritable);
  const Result<void> saved = mail.save("/nowhere/at/all.eml");
  ASSERT_FALSE(saved);
  EXPECT_EQ(saved.error().where, "/nowhere/at/all.eml");
}

}  // namespace
}  // namespace mailtree
