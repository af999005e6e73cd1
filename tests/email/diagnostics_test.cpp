#include <gtest/gtest.h>

#include "tests/support/dead_node.h"
#include "tests/support/messages.h"

namespace mailtree {
namespace {

std::string structureOf(Email2& mail) {
  LogMemory log;
  StringBuffer scratch("old");
  mail.logEmailStructure(scratch, log);
  return log.text();
}

TEST(StructureLog, nests_a_context_per_node_and_leaves_empty_values_and_dead_parts_out) {
  const EmailPtr mail = load(crlf(
      "From: A <a@x.example>\nSubject: =?utf-8?Q?S=C3=BC=C3=9F?=\nContent-Type: multipart/alternative; "
      "boundary=b\n\n--b\nContent-Type: text/plain\n\nabc\n--b\nContent-Type: image/png; name=n.png\n"
      "Content-Disposition: inline; filename=f.png\nContent-Transfer-Encoding: base64\n\nAAAA\n--b--\n"));
  const std::string head =
      "multipart_alternative:\n"
      "  From: A <a@x.example>\n"
      "  Subject: Süß\n"
      "  ContentType: multipart/alternative; boundary=\"b\"\n"
      "  bodySize: 0\n";
  const std::string tail =
      "  image_png:\n"
      "    ContentType: image/png; name=n.png\n"
      "    ContentTransferEncoding: base64\n"
      "    Filename: f.png\n"
      "    Name: n.png\n"
      "    bodySize: 3\n";
  EXPECT_EQ(structureOf(*mail),
            head + "  text_plain:\n    ContentType: text/plain\n    bodySize: 3\n" + tail);
  const Killed dead(*mail->getPart(0));
  EXPECT_EQ(structureOf(*mail), head + tail);
  EXPECT_EQ(structureOf(*mail->getPart(0)), "");
}

TEST(ContentTypeLog, logs_empty_values_too) {
  LogMemory log;
  load("\r\n")->logContentTypeAndEncoding(log);
  load("Content-Type: Text/HTML\r\nContent-Transfer-Encoding: 8BIT\r\n\r\n")->logContentTypeAndEncoding(log);
  EXPECT_EQ(log.text(),
            "m_encoding: \ncontentTypeHdr: \ncontentTransferEncodingHdr: \n"
            "m_encoding: 8BIT\ncontentTypeHdr: Text/HTML\ncontentTransferEncodingHdr: 8BIT\n");
}

}  // namespace
}  // namespace mailtree
