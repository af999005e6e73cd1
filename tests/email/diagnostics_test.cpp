#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/dead_node.h"
#include "tests/support/messages.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

std::string structureOf(Email2& mail) {
  LogMemory log;
  StringBuffer scratch("old");
  mail.logEmailStructure(scratch, log);
  return log.text();
}

TEST(StructureLog, nests_a_context_per_node_and_leaves_empty_values_out) {
  const EmailPtr mail = load(crlf(
      "From: A <a@x.example>\nSubject: =?utf-8?Q?S=C3=BC=C3=9F?=\nContent-Type: multipart/alternative; "
      "boundary=b\n\n--b\nContent-Type: text/plain\n\nabc\n--b\nContent-Type: image/png; name=n.png\n"
      "Content-Disposition: inline; filename=f.png\nContent-Transfer-Encoding: base64\n\nAAAA\n--b--\n"));
  EXPECT_EQ(structureOf(*mail),
            "multipart_alternative:\n"
            "  From: A <a@x.example>\n"
            "  Subject: Süß\n"
            "  ContentType: multipart/alternative; boundary=\"b\"\n"
            "  bodySize: 0\n"
            "  text_plain:\n"
            "    ContentType: text/plain\n"
            "    bodySize: 3\n"
            "  image_png:\n"
            "    ContentType: image/png; name=n.png\n"
            "    ContentTransferEncoding: base64\n"
            "    Filename: f.png\n"
            "    Name: n.png\n"
            "    bodySize: 3\n");
}

TEST(StructureLog, passes_over_dead_parts_and_bears_any_depth) {
  const EmailPtr mail = buildTree("mixed(plain,html)");
  const Killed dead(*mail->getPart(0));
  EXPECT_THAT(structureOf(*mail), testing::Not(testing::HasSubstr("text_plain")));
  EXPECT_THAT(structureOf(*mail), testing::HasSubstr("text_html"));
  EXPECT_EQ(structureOf(*mail->getPart(0)), "");

  class Depth final : public LogBase {
   public:
    void logError(std::string_view) override {}
    void logInfo(std::string_view) override {}
    void LogDataSb(std::string_view, std::string_view) override {}
    void LogDataLong(std::string_view, std::int64_t) override {}
    void openContext(std::string_view) override { deepest = std::max(deepest, ++open); }
    void closeContext() override { --open; }
    int open = 0, deepest = 0;
  } log;
  const EmailPtr root(Email2::createNewObject00());
  Email2* last = root.get();
  for (int i = 0; i < 100'000; ++i) {
    Email2* const part = Email2::createNewObject0(*root->m_common);
    last->insertSubPartAtIndex(part, -1);
    last = part;
  }
  StringBuffer scratch;
  root->logEmailStructure(scratch, log);
  EXPECT_EQ(log.deepest, 100'001);
  EXPECT_EQ(log.open, 0);
}

TEST(ContentTypeLog, logs_empty_values_too) {
  LogMemory log;
  buildTree("none")->logContentTypeAndEncoding(log);
  load("Content-Type: Text/HTML\r\nContent-Transfer-Encoding: 8BIT\r\n\r\n")->logContentTypeAndEncoding(log);
  EXPECT_THAT(log.text(),
              testing::HasSubstr("contentTypeHdr: Text/HTML\ncontentTransferEncodingHdr: 8BIT\n"));
  EXPECT_THAT(log.text(), testing::StartsWith("m_encoding: "));
  EXPECT_EQ(countMessages(log), 6);
}

}  // namespace
}  // namespace mailtree
