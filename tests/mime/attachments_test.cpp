// What is an attachment, and attachments in the forms of older systems.
#include "mailtree/mime/AttachmentRules.h"
#include "tests/mime/tables.h"

namespace mailtree {
namespace {

/// "+reason" of an attachment, "-reason" of what is none.
template <class Verdict>
std::string textOfVerdict(bool is, const Verdict& verdict) {
  return (is ? "+" : "-") + std::string(verdict.reason ? verdict.reason : "(nothing)");
}

TEST(AttachmentRules, the_first_rule_that_applies_decides) {
  const std::string multipart = "-No (multipart enclosure)", rfc822 = "-No (message/rfc822)";
  const std::string disposed = "+Yes (disposition=attachment)",
                    application = "+Yes (content-type=application)";
  const std::string media = "+Yes, under multipart-mixed AND image/application/audio/video";
  const std::string noName = "-No, inline AND no filename", none = "-No, attachment is not indicated.";
  const std::string suffix = "+Yes, special name file suffixes: pem, pmi, gtr";
  // Type, name, disposition, file name in it, transfer encoding, whether it has a message
  // class; inside a mixed?
  const std::tuple<PartTraits, bool, std::string> rows[] = {
      {{"MULTIPART/x", "", "attachment"}, true, multipart},    {{"", "", "attachment"}, false, disposed},
      {{"multipart", "", "inline", "a.zip"}, true, multipart}, {{"application/pdf"}, false, application},
      {{"message/global", "", "attachment"}, true, disposed},  {{"Application/pdf"}, false, none},
      {{"text/plain", "", "ATTACHMENT"}, false, disposed},     {{"image/png", "", "inline"}, true, media},
      {{"application/pdf", "", "inline"}, false, application}, {{"audio/mp3", "", "inline"}, true, media},
      {{"text/plain", "a.pem", "inline"}, false, noName},      {{"video/mp4", "", "inline"}, true, media},
      {{"image/tiff", "", "inline"}, false, noName},           {{"Image/png", "", "inline"}, true, noName},
      {{"text/plain", "", "", "", "", true}, false, none},     {{"text/html", "", "inline"}, true, noName},
      {{"text/html", "", "", "", "", true}, true, none},       {{"text/plain", "key.PEM"}, false, suffix},
      {{"text/plain", "a.txt", "", "", "8bit"}, false, none},  {{"text/plain", "a.gtr"}, false, suffix},
      {{"text/plain", "a.pmi", "unheard-of"}, false, suffix}};
  const std::tuple<PartTraits, bool, std::string> more[] = {
      {{"message/rfc822", "", "Attachment", "page.MHT"}, false, "+Yes (MHT)"},
      {{"message/rfc822", "page.mht", "attachment"}, true, rfc822},
      {{"message/rfc822", "", "inline", "page.mht"}, true, rfc822},
      {{"application/x-PKCS7-signature", "", "ATTACHMENT", "smime.p7s"},
       false,
       "+Yes (pkcs7-signature AND disposition=attachment)"},
      {{"application/pkcs7-signature", "a.p7s", "", "a.p7s", "base64"}, true, "-No (pkcs7-signature)"},
      {{"image/png", "", "Inline", "logo.png"}, false, "+Yes, inline AND has filename"},
      {{"image/x-tiff", "", "inline"}, false, "+Yes, image/*-tiff"},
      {{"text/plain", "", "", "", "", true}, true, "+Yes, because of Content-Class header."},
      {{"text/plain", "a.txt", "", "", "Base64"}, false, "+Yes, has name attribute and base64 encoding."},
      {{"text/plain", "", "", "a.txt", "base64"}, false, none},
      {{""}, true, none}};
  for (const auto& [part, inMixed, reason] : both(rows, more)) {
    const AttachmentVerdict verdict = judgeAttachment(part, inMixed);
    EXPECT_EQ(textOfVerdict(verdict.isAttachment, verdict), reason)
        << part.type << " name=" << part.name << " disposition=" << part.disposition
        << " filename=" << part.dispFilename << (inMixed ? " in mixed" : "");
  }
}

TEST(AttachmentRules, strict_attachments_are_applications_and_what_says_attachment) {
  const std::string url = "-Not strict attachment because of special chars in name attribute.";
  const std::string unsaid = "-Not strict attachment because 'attachment' keyword not found in disposition.";
  const std::pair<PartTraits, std::string> rows[] = {
      {{"multipart/mixed", "", "attachment"}, "-(nothing)"},
      {{"Message/RFC822", "", "attachment"}, "-(nothing)"},
      {{"application/pdf", "get?a=1"}, "+(nothing)"},
      {{"application/pdf", "get?a=1&b=2", "attachment"}, url},
      {{"Application/pdf"}, unsaid},
      {{"text/plain", "get?a=1&b=2", "ATTACHMENT"}, "+(nothing)"},
      {{"text/plain", "a.txt", "inline", "a.txt", "base64"}, unsaid}};
  for (const auto& [part, reason] : rows) {
    const StrictVerdict verdict = judgeStrictAttachment(part);
    EXPECT_EQ(textOfVerdict(verdict.isStrict, verdict), reason) << part.type << " name=" << part.name;
  }
}

TEST(AttachmentRules, only_text_that_is_no_attachment_is_converted) {
  EXPECT_TRUE(isConvertibleText({"TEXT/HTML", "", "inline"}));
  EXPECT_FALSE(isConvertibleText({"text/plain", "", "attachment"}));
  EXPECT_FALSE(isConvertibleText({"text/plain", "a.txt", "", "", "base64"}));
  EXPECT_FALSE(isConvertibleText({"application/json"}));
  EXPECT_FALSE(isConvertibleText({""}));
}

/// "type|encoding|disposition|file name|body"
std::string shown(const MimeMessage2& entity) {
  return entity.getContentType() + "|"s + entity.getContentEncoding() + "|" +
         textOf([&](StringBuffer& out) { entity.getDisposition(out); }) + "|" +
         textOf([&](StringBuffer& out) { entity.getMimeFilename(out); }) + "|" +
         std::string(entity.getMimeBodyDb()->view());
}

TEST(AttachmentForms, an_apple_pair_gives_its_data_fork_as_an_attachment) {
#define RESOURCE_FORK "--b\nContent-Type: application/applefile; name=\"resource.sit\"\n\nfork\n"
  const auto forkOf = [](const std::string& rest) {
    const Owned<MimeMessage2> fork(
        message("Content-Type: Multipart/" + rest)->getAppleDoubleAttachment(quiet));
    return fork ? shown(*fork) : "none";
  };
  const Row rows[] = {
      {"AppleDouble; boundary=b\n\n" RESOURCE_FORK
       "--b\nContent-Type: image/gif; name=\"pic.gif\"\n\ndata\n--b--\n",
       "image/gif||attachment|pic.gif|data"},
      {"AppleDouble; boundary=b\n\n--b\nContent-Type: image/gif; name=\"pic.gif\"\n\ndata\n" RESOURCE_FORK
       "--b--\n",
       "image/gif||attachment|pic.gif|data"},
      {"AppleDouble; boundary=b\n\n" RESOURCE_FORK "--b\nContent-Type: image/gif\n\ndata\n--b--\n",
       "image/gif||attachment|resource.sit|data"},
      {"AppleDouble; boundary=b\n\n" RESOURCE_FORK "--b--\n", "none"},
      {"mixed; boundary=b\n\n--b\n\ndata\n--b--\n", "none"}};
  expectEach(forkOf, rows);
}

TEST(AttachmentForms, a_uuencoded_body_is_decoded_in_place) {
#define CODED "\nContent-Transfer-Encoding: X-UUencode\n\n"
  const auto decoded = [](const std::string& rest) {
    const auto entity = message("Content-Type: image/" + rest);
    entity->uuDecodeAttachment(quiet);
    return shown(*entity);
  };
  const Row rows[] = {
      {"gif; name=x.gif" CODED "begin 644 c:\\cat.gif\n#0V%T\n`\nend\n", "image/gif|base64||x.gif|Cat"},
      {"gif" CODED "begin 644 c:\\cat.gif\n#0V%T\n`\nend\n", "image/gif|base64||cat.gif|Cat"},
      {"gif" CODED "Cat", "image/gif|X-UUencode|||Cat"},
      {"gif\n\nbegin 644 a\n#0V%T\n`\nend", "image/gif||||begin 644 a\n#0V%T\n`\nend"}};
  expectEach(decoded, rows);
}

}  // namespace
}  // namespace mailtree
