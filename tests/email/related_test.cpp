// Related items: where they are, how they are counted, found, dropped and repaired; and calendars.
#include <filesystem>
#include <fstream>

#include "tests/email/cases.h"

namespace mailtree {
namespace {

TEST(RelatedItems, are_placed_beside_the_html_body) {
  for (const auto& [before, after] : rowsOf<2>(R"(
    html                                            | related(html,zip)
    mixed(alternative(plain,related(html,png)),pdf) | mixed(alternative(plain,related(html,png,zip)),pdf)
    alternative(plain,html)                         | alternative(plain,related(html,zip))
    alternative(plain,HTML/x)                       | alternative(plain,html/x,related(zip))
    mixed(html,pdf:attachment)                      | mixed(related(html,zip),pdf:attachment)
    mixed(plain,png:inline,html,digest,rfc822)      | mixed(related(plain,html,rfc822,zip),png:inline,digest)
    signed(html,p7s)                                | related(signed(html,p7s),zip))")) {
    const EmailPtr mail = buildTree(before);
    mail->addRelatedContent(nullptr, quiet);
    EXPECT_EQ(printTree(mail), printTree(buildTree(before)));
    mail->addRelatedContent(buildTree("zip").release(), quiet);
    EXPECT_EQ(printTree(mail) + disagreeingFields(*mail), after) << before;
  }
}

TEST(RelatedItems, are_numbered_after_the_html_body) {
  for (const auto& [tree, expected] : rowsOf<2>(R"(
    related(html,png,zip) | 2 /1 /2 none                                || related(plain,png,zip) | 3 /0 /1 /2
    mixed(alternative(plain,related(html,png)),zip) | 1 /0/1/1 none none || related | 0 none none none
    mixed(html,png) | 0 none none none)")) {
    const EmailPtr mail = buildTree(tree);
    std::string found = std::to_string(mail->getNumRelatedItems(quiet));
    for (int i = 0; i < 3; ++i) found += " " + pathOf(*mail, mail->getRelatedItem(i, quiet));
    EXPECT_EQ(found, expected) << tree;
    for (const int index : {-1, 7, 0x7FFFFFFF})
      EXPECT_EQ(mail->getRelatedItem(index, quiet), nullptr) << tree;
  }
  const EmailPtr upper = buildTree("related(html,png)");
  upper->getPart(0)->m_contentType.m_type.setString("TEXT/HTML");
  EXPECT_EQ(upper->getNumRelatedItems(quiet), 2) << "deliberately: only the lower-case type is the body's";
}

TEST(RelatedItems, take_header_fields) {
  const EmailPtr mail = buildTree("related(html,png)");
  LogMemory log;
  EXPECT_TRUE(mail->setRelatedHeader(0, "Content-ID", "<a@x>", log));
  EXPECT_EQ(mail->getPart(1)->m_contentId.view(), "<a@x>");
  EXPECT_FALSE(mail->setRelatedHeader(1, "Content-ID", "<b@x>", log));
  EXPECT_EQ(said(log), "Failed to find related sub-part.|");
}

TEST(RelatedItems, are_dropped_by_numbers_that_deliberately_skip_the_first_subpart_of_any_type) {
  for (const auto& [before, index, after] : rowsOf<3>(R"(
    related(html,png,zip) | 0 | related(html,zip) || mixed(related(png,zip,p7s)) | 1 | mixed(related(png,zip))
    related(png,zip) | 1 | related(png,zip)       || related(png,zip) | -1 | related(png,zip)
    mixed(html,png) | 0 | mixed(html,png)         || mixed(related(png,zip,p7s)) | all | mixed(related(png))
    related | all | related                       || mixed(html,png) | all | mixed(html,png))")) {
    const EmailPtr mail = buildTree(before);
    index == "all" ? mail->dropRelatedItems() : mail->dropRelatedItem(std::stoi(index));
    EXPECT_EQ(printTree(mail), after) << before << " " << index;
  }
  const EmailPtr broken = buildTree("related(html,png,zip)");
  const Killed dead(*broken->getPart(1));  // a damaged child ends it
  broken->dropRelatedItem(1);
  EXPECT_EQ(broken->getNumParts(), 3);
}

TEST(FixRelated, moves_attachments_that_the_html_shows) {
  // A mixed enclosure without attachments of its own is one enclosure too many, even if something was moved.
  for (const auto& [before, after] : rowsOf<2>(R"(
    mixed(html[body=<img src=cid:a>],png[cid=<a>]:attachment,pdf) | mixed(related(html,png:attachment),pdf)
    mixed(html[body=cid:a cid:b],png[cid=<a>]:inline,zip[cid=<b>]) | mixed(related(html,zip,png:inline))
    mixed(related(html[body=cid:a cid:b],png[cid=b]),zip[cid= <a> ]) | mixed(related(html,png,zip))
    mixed(alt(plain,html[body=cid:a]),png[cid=<a>]) | alternative(plain,related(html,png))
    mixed(alt(plain,html[body=cid:a]),png[cid=<a>],pdf) | mixed(alternative(plain,related(html,png)),pdf)
    alternative(plain,html[body=cid:a],pdf[cid=<a>]) | alternative(plain,related(html,pdf))
    mixed(alternative(plain,html,pdf)) | alternative(plain,html,pdf)
    mixed(html[body=cid:A],pdf[cid=<a>]) | mixed(html,pdf)
    mixed(html[body=cid:],pdf[cid=<>],zip[cid=],octet) | mixed(html,pdf,zip,octet)
    mixed(html[body=<a>],pdf[cid=<<a>>]) | mixed(related(html,pdf))
    mixed(plain[body=cid:a],pdf[cid=<a>]) | mixed(plain,pdf)
    mixed(html[body=self,cid=<self>,name=x,enc=base64]) | mixed(html)
    signed(html[body=cid:a],pdf[cid=<a>]) | signed(html,pdf)
    mixed(alternative(plain,html)) | mixed(alternative(plain,html)))")) {
    const EmailPtr mail = buildTree(before);
    LogMemory log;
    mail->fixRelated(log);
    EXPECT_EQ(printTree(mail) + disagreeingFields(*mail) + said(log), after) << before;
  }
}

TEST(FixRelated, deliberately_keeps_the_boundary_of_the_enclosure_that_collapses) {
  const EmailPtr mail = buildTree("mixed(alternative(plain,html[body=cid:a]),png[cid=<a>])");
  const std::string boundary(mail->m_contentType.m_boundary.view());
  mail->fixRelated(quiet);
  EXPECT_EQ(fieldOf(*mail, "Content-Type"), "multipart/alternative; boundary=\"" + boundary + "\"");
  EXPECT_EQ(printTree(load(write(*mail))), "alternative(plain,related(html,png))");
}

TEST(FixRelated, takes_many_attachments_in_linear_time) {
  std::string tree = "mixed(html[body=cid:n]";
  for (int i = 0; i < 5'000; ++i) tree += ",png[cid=n]";
  const EmailPtr mail = buildTree(tree + ")");
  for (int i = 1; i < mail->getNumParts(); ++i)
    mail->getPart(i)->setContentDispositionUtf8("attachment", nullptr, quiet);
  mail->fixRelated(quiet);
  EXPECT_EQ(mail->getNumRelatedItems(quiet), 5'000);
}

/// An item of "bytes" in a file, or in memory when there is no path.
EmailPtr makeItem(const std::string& path, const char* name, bool hasId, LogBase& log,
                  const char* type = nullptr) {
  const RefPtr<_svEmailCommon> settings(new _svEmailCommon);
  _svEmailCommon& common = *settings;
  XString file(path.c_str()), shown(name);
  DataBuffer data;
  data.append("bytes");
  if (path.empty() && hasId)
    return EmailPtr(Email2::createRelatedFromDataUtf8(common, name, type, data, log));
  if (path.empty()) return EmailPtr(Email2::createRelatedFromDataNoCid(common, name, data, log));
  if (hasId) return EmailPtr(Email2::createRelatedFromFileUtf8(common, path.c_str(), type, log));
  return EmailPtr(Email2::createRelatedFromFileNoCid(common, file, shown, log));
}

TEST(NewRelatedItem, says_what_it_is_and_how_the_html_refers_to_it) {
  const auto folder = std::filesystem::temp_directory_path() / "mailtree-related-test";
  std::filesystem::create_directories(folder);
  for (const auto& [name, type, encoding] : rowsOf<3>(R"(
    LOGO.PNG | Content-Type: image/png; name=LOGO.PNG\n | base64
    é.css | Content-Type: text/css; name*=utf-8''%C3%A9.css; name=e.css\n | quoted-printable
    logo | Content-Type: application/octet-stream; name=logo\n | base64
    deliberately-without-type.xyz |  | base64)")) {
    const std::string common = type + "Content-Transfer-Encoding: " + encoding + "\n";
    const std::string file = (folder / name).string();
    std::ofstream(file) << "bytes";
    for (const std::string& path : {file, std::string()}) {
      LogMemory log;
      const EmailPtr shown = makeItem(path, name.c_str(), /*hasId=*/true, log);
      const EmailPtr located = makeItem(path, name.c_str(), /*hasId=*/false, log);
      ASSERT_TRUE(shown && located) << name;
      EXPECT_EQ(shown->m_contentId.view(), fieldOf(*shown, "Content-ID"));
      shown->removeHeaderField("Content-ID");
      EXPECT_EQ(fieldLines(*shown), common);
      EXPECT_EQ(fieldLines(*located), common + "Content-Disposition: inline; filename=\"" + name +
                                          "\"\nContent-Location: " + name + "\n");
      for (const auto* item : {&shown, &located}) {
        EXPECT_EQ(disagreeingFields(**item) + said(log), "") << name;
        EXPECT_EQ((*item)->m_contentType.m_name.view(), name);
        EXPECT_EQ((*item)->m_body.view(), "bytes");
      }
    }
  }
  const std::string file = (folder / "dir\\a.png").string();
  std::ofstream(file) << "bytes";
  const EmailPtr item = makeItem(file, "", /*hasId=*/true, quiet, "Image/X-Icon");
  EXPECT_EQ(printTree(item, TreeDetail::names), "image/x-icon[name=a.png]");
  std::filesystem::remove_all(folder);
}

TEST(NewRelatedItem, is_refused_without_name_or_file) {
  const std::string folder = std::filesystem::temp_directory_path().string();
  for (const bool hasId : {true, false}) {
    LogMemory log;
    EXPECT_FALSE(makeItem("", "", hasId, log));
    EXPECT_FALSE(makeItem(folder, "a.png", hasId, log));
    log.clear();
    EXPECT_FALSE(makeItem(folder + "/missing.png", "a.png", hasId, log));
    EXPECT_EQ(said(log), (hasId ? "filePath=" : "filename=") + folder +
                             "/missing.png|File does not exist, or cannot open file.|");
  }
}

TEST(NewCalendar, has_its_method_once_however_often_the_field_is_made_anew) {
  const EmailPtr mail = buildTree("alternative(plain)");
  mail->use_codepage(28591);
  DataBuffer data;
  data.append("BEGIN:VCALENDAR\r\nSUMMARY:Grüße\r\n");
  Email2* const calendar =
      Email2::createCalendarAlternativeUtf8(*mail->m_common, data, "REQUEST", 65001, quiet);
  ASSERT_TRUE(calendar);
  mail->insertSubPartAtIndex(calendar, -1);
  EXPECT_TRUE(data.isEmpty());
  EXPECT_EQ(
      fieldLines(*calendar),
      "Content-Type: text/calendar; charset=utf-8; method=\"REQUEST\"\nContent-Transfer-Encoding: base64\n");
  EXPECT_FALSE(calendar->isNotAlternativeBody());

  calendar->setName(StringBuffer("invite.ics"), quiet);
  const EmailPtr reread = load(write(*mail));
  Email2* const part = reread->getPart(1);
  EXPECT_EQ(part->m_body.view(), "BEGIN:VCALENDAR\r\nSUMMARY:Grüße\r\n");
  EXPECT_EQ(fieldOf(*part, "Content-Type"), "text/calendar; charset=utf-8; name=invite.ics; method=REQUEST");
  part->setName(StringBuffer("other.ics"), quiet);
  EXPECT_EQ(fieldOf(*part, "Content-Type"), "text/calendar; charset=utf-8; name=other.ics; method=REQUEST");
}

TEST(NewCalendar, lets_no_method_write_parameters_or_fields) {
  DataBuffer data;
  const EmailPtr reread = load(write(*EmailPtr(Email2::createCalendarAlternativeUtf8(
      *new _svEmailCommon, data, "X\"; name=\"evil\r\nBcc: evil@example.com", 0, quiet))));
  EXPECT_EQ(field(*reread, "Bcc"), "(absent)");
  EXPECT_EQ(reread->m_contentType.m_name.view(), "");
}

}  // namespace
}  // namespace mailtree
