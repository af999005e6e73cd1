#include "mailtree/mime/AttachmentRules.h"

#include <gtest/gtest.h>

#include <string>

namespace mailtree {
namespace {

std::string textOf(const char* reason) { return reason ? reason : "(nothing)"; }

TEST(AttachmentRules, the_first_rule_that_applies_decides) {
  const struct {
    PartTraits part;  // type, name, disposition, dispFilename, transferEncoding, hasMessageClass
    bool inMixed;
    bool isAttachment;
    const char* reason;
  } rows[] = {
      {{"multipart/mixed", "", "attachment", "a.zip"}, true, false, "No (multipart enclosure)"},
      {{"MULTIPART/x", "", "attachment"}, true, false, "No (multipart enclosure)"},
      {{"multipart", "", "inline", "a.zip"}, true, false, "No (multipart enclosure)"},
      {{"message/rfc822", "", "Attachment", "page.MHT"}, false, true, "Yes (MHT)"},
      {{"message/rfc822", "", "attachment", "a.eml"}, true, false, "No (message/rfc822)"},
      {{"message/rfc822", "page.mht", "attachment"}, true, false, "No (message/rfc822)"},
      {{"message/rfc822", "", "inline", "page.mht"}, true, false, "No (message/rfc822)"},
      {{"message/global", "", "attachment"}, true, true, "Yes (disposition=attachment)"},
      {{"application/x-PKCS7-signature", "", "ATTACHMENT", "smime.p7s"},
       false,
       true,
       "Yes (pkcs7-signature AND disposition=attachment)"},
      {{"application/pkcs7-signature", "smime.p7s", "", "smime.p7s", "base64"},
       true,
       false,
       "No (pkcs7-signature)"},
      {{"text/plain", "", "ATTACHMENT"}, false, true, "Yes (disposition=attachment)"},
      {{"", "", "attachment"}, false, true, "Yes (disposition=attachment)"},
      {{"application/pdf"}, false, true, "Yes (content-type=application)"},
      {{"application/pdf", "", "inline"}, false, true, "Yes (content-type=application)"},
      {{"Application/pdf"}, false, false, "No, attachment is not indicated."},
      {{"image/png", "", "Inline", "logo.png"}, false, true, "Yes, inline AND has filename"},
      {{"image/png", "", "inline"},
       true,
       true,
       "Yes, under multipart-mixed AND image/application/audio/video"},
      {{"audio/mp3", "", "inline"},
       true,
       true,
       "Yes, under multipart-mixed AND image/application/audio/video"},
      {{"video/mp4", "", "inline"},
       true,
       true,
       "Yes, under multipart-mixed AND image/application/audio/video"},
      {{"Image/png", "", "inline"}, true, false, "No, inline AND no filename"},
      {{"text/html", "", "inline"}, true, false, "No, inline AND no filename"},
      {{"image/x-tiff", "", "inline"}, false, true, "Yes, image/*-tiff"},
      {{"image/tiff", "", "inline"}, false, false, "No, inline AND no filename"},
      {{"image/png", "", "inline"}, false, false, "No, inline AND no filename"},
      {{"text/plain", "", "", "", "", true}, true, true, "Yes, because of Content-Class header."},
      {{"text/plain", "", "", "", "", true}, false, false, "No, attachment is not indicated."},
      {{"text/html", "", "", "", "", true}, true, false, "No, attachment is not indicated."},
      {{"text/plain", "a.txt", "", "", "Base64"},
       false,
       true,
       "Yes, has name attribute and base64 encoding."},
      {{"text/plain", "a.txt", "", "", "8bit"}, false, false, "No, attachment is not indicated."},
      {{"text/plain", "", "", "a.txt", "base64"}, false, false, "No, attachment is not indicated."},
      {{"text/plain", "key.PEM"}, false, true, "Yes, special name file suffixes: pem, pmi, gtr"},
      {{"text/plain", "a.pmi", "unheard-of"}, false, true, "Yes, special name file suffixes: pem, pmi, gtr"},
      {{"text/plain", "a.gtr"}, false, true, "Yes, special name file suffixes: pem, pmi, gtr"},
      {{""}, true, false, "No, attachment is not indicated."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.part.type) + " name=" + std::string(row.part.name) +
                 " disposition=" + std::string(row.part.disposition) +
                 " filename=" + std::string(row.part.dispFilename) + (row.inMixed ? " in mixed" : ""));
    const AttachmentVerdict verdict = judgeAttachment(row.part, row.inMixed);
    EXPECT_EQ(verdict.isAttachment, row.isAttachment);
    EXPECT_EQ(textOf(verdict.reason), row.reason);
  }
}

TEST(AttachmentRules, an_inline_part_goes_by_its_filename_and_an_undisposed_one_by_its_name_deliberately) {
  EXPECT_FALSE(judgeAttachment({"text/plain", "a.pem", "inline"}, false).isAttachment);
  EXPECT_TRUE(judgeAttachment({"text/plain", "a.pem"}, false).isAttachment);
  EXPECT_TRUE(judgeAttachment({"text/plain", "", "inline", "a.txt"}, false).isAttachment);
  EXPECT_FALSE(judgeAttachment({"text/plain", "", "", "a.txt"}, false).isAttachment);
}

TEST(AttachmentRules, strict_attachments_are_applications_and_what_says_attachment) {
  const char* const kUrl = "Not strict attachment because of special chars in name attribute.";
  const char* const kUnsaid = "Not strict attachment because 'attachment' keyword not found in disposition.";
  const struct {
    PartTraits part;
    bool isStrict;
    const char* reason;
  } rows[] = {
      {{"multipart/mixed", "", "attachment"}, false, nullptr},
      {{"Message/RFC822", "", "attachment"}, false, nullptr},
      {{"application/pdf"}, true, nullptr},
      {{"application/pdf", "get?a=1"}, true, nullptr},
      {{"application/pdf", "get?a=1&b=2", "attachment"}, false, kUrl},
      {{"Application/pdf"}, false, kUnsaid},
      {{"text/plain", "get?a=1&b=2", "ATTACHMENT"}, true, nullptr},
      {{"text/plain", "a.txt", "inline", "a.txt", "base64"}, false, kUnsaid},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.part.type) + " name=" + std::string(row.part.name));
    const StrictVerdict verdict = judgeStrictAttachment(row.part);
    EXPECT_EQ(verdict.isStrict, row.isStrict);
    EXPECT_EQ(textOf(verdict.reason), textOf(row.reason));
  }
}

TEST(AttachmentRules, only_text_that_is_no_attachment_is_converted) {
  EXPECT_TRUE(isConvertibleText({"text/plain"}));
  EXPECT_TRUE(isConvertibleText({"TEXT/HTML", "", "inline"}));
  EXPECT_FALSE(isConvertibleText({"text/plain", "", "attachment"}));
  EXPECT_FALSE(isConvertibleText({"text/plain", "a.txt", "", "", "base64"}));
  EXPECT_FALSE(isConvertibleText({"application/json"}));
  EXPECT_FALSE(isConvertibleText({""}));
}

}  // namespace
}  // namespace mailtree
