// Related items: where they stand, how they are counted, found, dropped and mended; and calendars.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/dead_node.h"
#include "tests/support/fields.h"
#include "tests/support/messages.h"
#include "tests/support/node_path.h"
#include "tests/support/tree_notation.h"

namespace mailtree {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

std::string shape(const EmailPtr& mail) { return printTree(mail, TreeDetail::names); }

TEST(RelatedItems, are_placed_beside_the_html_body) {
  const struct {
    const char *before, *after;
  } rows[] = {
      {"html", "related(html,zip)"},
      {"plain", "related(plain,zip)"},
      {"related(html,png)", "related(html,png,zip)"},
      {"mixed(alternative(plain,related(html,png)),pdf)",
       "mixed(alternative(plain,related(html,png,zip)),pdf)"},
      {"alternative(plain,html)", "alternative(plain,related(html,zip))"},
      {"alternative(html,calendar)", "alternative(calendar,related(html,zip))"},
      {"alternative(plain,HTML/x)", "alternative(plain,html/x,related(zip))"},
      {"mixed(alternative(plain,html),pdf)", "mixed(alternative(plain,related(html,zip)),pdf)"},
      {"mixed(html,pdf:attachment)", "mixed(related(html,zip),pdf:attachment)"},
      {"mixed(plain,png:inline,html,signed(plain,p7s),rfc822)",
       "mixed(related(plain,html,rfc822,zip),png:inline,signed(plain,p7s))"},
      {"signed(html,p7s)", "related(signed(html,p7s),zip)"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = buildTree(row.before);
    LogNull log;
    mail->addRelatedContent(nullptr, log);
    EXPECT_EQ(printTree(mail), printTree(buildTree(row.before)));
    mail->addRelatedContent(buildTree("zip").release(), log);
    EXPECT_EQ(printTree(mail), row.after) << row.before;
    EXPECT_EQ(disagreeingFields(*mail), "") << row.before;
  }
}

TEST(RelatedItems, are_numbered_behind_the_html_body) {
  const struct {
    const char* tree;
    int count;
    const char *first, *second;
  } rows[] = {
      {"related(html,png,zip)", 2, "/1", "/2"},
      {"related(plain,png,zip)", 3, "/0", "/1"},
      {"related(alternative(plain,html),png)", 2, "/0", "/1"},
      {"mixed(alternative(plain,related(html,png)),zip)", 1, "/0/1/1", "none"},
      {"related(html)", 0, "none", "none"},
      {"related", 0, "none", "none"},
      {"mixed(html,png)", 0, "none", "none"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = buildTree(row.tree);
    LogNull log;
    EXPECT_EQ(mail->getNumRelatedItems(log), row.count) << row.tree;
    EXPECT_EQ(pathOf(*mail, mail->getRelatedItem(0, log)), row.first) << row.tree;
    EXPECT_EQ(pathOf(*mail, mail->getRelatedItem(1, log)), row.second) << row.tree;
    for (const int index : {-1, 7, 0x7FFFFFFF})
      EXPECT_EQ(mail->getRelatedItem(index, log), nullptr) << row.tree;
  }
  const EmailPtr upper = buildTree("related(html,png)");
  upper->getPart(0)->m_contentType.m_type.setString("TEXT/HTML");
  LogNull log;
  EXPECT_EQ(upper->getNumRelatedItems(log), 2) << "deliberately: only the lower-case type is the body's";
}

TEST(RelatedItems, take_header_fields) {
  const EmailPtr mail = buildTree("related(html,png)");
  LogMemory log;
  EXPECT_TRUE(mail->setRelatedHeader(0, "Content-ID", "<a@x>", log));
  EXPECT_EQ(mail->getPart(1)->m_contentId.view(), "<a@x>");
  EXPECT_EQ(countMessages(log), 0);
  EXPECT_FALSE(mail->setRelatedHeader(1, "Content-ID", "<b@x>", log));
  EXPECT_THAT(log.text(), HasSubstr("Failed to find related sub-part."));
}

TEST(RelatedItems, are_dropped_by_numbers_that_deliberately_skip_the_first_subpart_whatever_it_is) {
  const struct {
    const char* before;
    int index;
    const char* after;
  } rows[] = {
      {"related(html,png,zip)", 0, "related(html,zip)"},
      {"related(html,png,zip)", 1, "related(html,png)"},
      {"related(png,zip,pdf)", 0, "related(png,pdf)"},
      {"related(png,zip,pdf)", 1, "related(png,zip)"},
      {"related(png,zip)", 1, "related(png,zip)"},
      {"related(png,zip)", -1, "related(png,zip)"},
      {"mixed(related(html,png),pdf)", 0, "mixed(related(html),pdf)"},
      {"mixed(html,png)", 0, "mixed(html,png)"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = buildTree(row.before);
    mail->dropRelatedItem(row.index);
    EXPECT_EQ(printTree(mail), row.after) << row.before << " " << row.index;
  }
  const EmailPtr broken = buildTree("related(html,png,zip)");
  const Killed dead(*broken->getPart(1));
  broken->dropRelatedItem(1);
  EXPECT_EQ(broken->getNumParts(), 3) << "a damaged child ends it";
}

TEST(RelatedItems, are_all_dropped_but_the_first_subpart) {
  for (const auto& [before, after] :
       {std::pair("mixed(related(png,zip,pdf),pdf)", "mixed(related(png),pdf)"),
        std::pair("related(html)", "related(html)"), std::pair("related", "related"),
        std::pair("mixed(html,png)", "mixed(html,png)")}) {
    const EmailPtr mail = buildTree(before);
    mail->dropRelatedItems();
    EXPECT_EQ(printTree(mail), after) << before;
  }
}

TEST(FixRelated, moves_attachments_that_the_html_shows) {
  const struct {
    const char *before, *after;
  } rows[] = {
      {"mixed(html[body=<img src=cid:a>],png[file=a,cid=<a>]:attachment,pdf:attachment)",
       "mixed(related(html,png[file=a]:attachment),pdf:attachment)"},
      {"mixed(html[body=cid:a cid:b],png[file=a,cid=<a>]:attachment,png[file=b,cid=<b>]:attachment)",
       "mixed(related(html,png[file=b]:attachment,png[file=a]:attachment))"},
      {"mixed(related(html[body=cid:a cid:b],png[file=b,cid=b]:inline),png[file=a,cid= <a> ]:inline)",
       "mixed(related(html,png[file=b]:inline,png[file=a]:inline))"},
      {"mixed(alternative(plain,html[body=cid:img1]),png[cid=<img1>])",
       "alternative(plain,related(html,png))"},
      {"mixed(alternative(plain,html[body=cid:img1]),png[cid=<img1>],pdf)",
       "mixed(alternative(plain,related(html,png)),pdf)"},
      {"alternative(plain,html[body=cid:a],pdf[cid=<a>])", "alternative(plain,related(html,pdf))"},
      // A mixed enclosure without attachments of its own is one enclosure too many, whatever was moved.
      {"mixed(alternative(plain,html,pdf))", "alternative(plain,html,pdf)"},
      // Nothing to move, or nothing that may be moved.
      {"mixed(html[body=cid:A],pdf[cid=<a>])", "mixed(html,pdf)"},
      {"mixed(html[body=cid:],pdf[cid=<>],zip[cid=],octet)", "mixed(html,pdf,zip,octet)"},
      {"mixed(html[body=<a>],pdf[cid=<<a>>])", "mixed(related(html,pdf))"},
      {"mixed(plain[body=cid:a],pdf[cid=<a>])", "mixed(plain,pdf)"},
      {"mixed(html[body=self,cid=<self>,name=x,enc=base64])", "mixed(html[name=x])"},
      {"signed(html[body=cid:a],pdf[cid=<a>])", "signed(html,pdf)"},
      {"mixed(alternative(plain,html))", "mixed(alternative(plain,html))"},
  };
  for (const auto& row : rows) {
    const EmailPtr mail = buildTree(row.before);
    LogMemory log;
    mail->fixRelated(log);
    EXPECT_EQ(shape(mail), row.after) << row.before;
    EXPECT_EQ(disagreeingFields(*mail), "") << row.before;
    EXPECT_EQ(countMessages(log), 0) << row.before;
  }
}

TEST(FixRelated, deliberately_keeps_the_boundary_of_the_enclosure_that_collapses) {
  const EmailPtr mail = buildTree("mixed(alternative(plain,html[body=cid:a]),png[cid=<a>])");
  const std::string boundary(mail->m_contentType.m_boundary.view());
  LogNull log;
  mail->fixRelated(log);
  EXPECT_THAT(fieldOf(*mail, "Content-Type"),
              MatchesRegex("multipart/alternative; boundary=\"" + boundary + "\""));
  EXPECT_EQ(printTree(load(write(*mail))), "alternative(plain,related(html,png))");
}

TEST(FixRelated, takes_many_attachments_in_linear_time) {
  std::string tree = "mixed(html[body=cid:n]";
  for (int i = 0; i < 20'000; ++i) tree += ",png[cid=n]";
  const EmailPtr mail = buildTree(tree + ")");
  LogNull log;
  mail->getPart(0)->m_body.append("cid:n");
  for (int i = 1; i < mail->getNumParts(); ++i)
    mail->getPart(i)->setContentDispositionUtf8("attachment", nullptr, log);
  mail->fixRelated(log);
  EXPECT_EQ(mail->getNumRelatedItems(log), 20'000);
}

struct Maker {
  const char* label;
  EmailPtr (*make)(_svEmailCommon& common, const std::string& file, const char* name, LogBase& log);
  bool hasContentId;
};

constexpr Maker kMakers[] = {
    {"file",
     [](_svEmailCommon& common, const std::string& file, const char*, LogBase& log) {
       return EmailPtr(Email2::createRelatedFromFileUtf8(common, file.c_str(), nullptr, log));
     },
     true},
    {"data",
     [](_svEmailCommon& common, const std::string&, const char* name, LogBase& log) {
       DataBuffer data;
       data.append("bytes");
       return EmailPtr(Email2::createRelatedFromDataUtf8(common, name, nullptr, data, log));
     },
     true},
    {"file without Content-ID",
     [](_svEmailCommon& common, const std::string& file, const char* name, LogBase& log) {
       XString path(file.c_str()), shown(name);
       return EmailPtr(Email2::createRelatedFromFileNoCid(common, path, shown, log));
     },
     false},
    {"data without Content-ID",
     [](_svEmailCommon& common, const std::string&, const char* name, LogBase& log) {
       DataBuffer data;
       data.append("bytes");
       return EmailPtr(Email2::createRelatedFromDataNoCid(common, name, data, log));
     },
     false},
};

TEST(NewRelatedItem, says_what_it_is_and_how_the_html_refers_to_it) {
  const auto folder = std::filesystem::temp_directory_path() / "mailtree-related-test";
  std::filesystem::create_directories(folder);
  const struct {
    const char *name, *type, *encoding;
  } rows[] = {
      {"logo.png", "image/png", "base64"},
      {"LOGO.PNG", "image/png", "base64"},
      {"Größe 1.css", "text/css", "quoted-printable"},
      {"logo", "application/octet-stream", "base64"},
      {"deliberately-without-type.xyz", "", "base64"},
  };
  for (const auto& row : rows) {
    const std::string file = (folder / row.name).string();
    std::ofstream(file) << "bytes";
    for (const Maker& maker : kMakers) {
      const std::string label = std::string(maker.label) + ' ' + row.name;
      const RefPtr<_svEmailCommon> common(new _svEmailCommon);
      LogMemory log;
      const EmailPtr item = maker.make(*common, file, row.name, log);
      ASSERT_TRUE(item) << label;
      EXPECT_EQ(item->m_contentType.m_type.view(), row.type) << label;
      EXPECT_EQ(item->m_contentType.m_name.view(), row.name) << label;
      EXPECT_EQ(item->m_transferEncoding.view(), row.encoding) << label;
      EXPECT_EQ(fieldOf(*item, "Content-Transfer-Encoding"), row.encoding) << label;
      EXPECT_EQ(item->m_body.view(), "bytes") << label;
      EXPECT_EQ(item->hasHeaderField("Content-Type", log), *row.type != '\0') << label;
      EXPECT_EQ(item->hasHeaderField("Content-ID", log), maker.hasContentId) << label;
      EXPECT_EQ(fieldOf(*item, "Content-Location"), maker.hasContentId ? "(none)" : row.name) << label;
      EXPECT_EQ(item->m_disposition.view(), maker.hasContentId ? "" : "inline") << label;
      EXPECT_EQ(item->m_dispFilename.view(), maker.hasContentId ? "" : row.name) << label;
      for (const char* absent : {"Date", "X-Priority", "MIME-Version", "Message-ID"})
        EXPECT_FALSE(item->hasHeaderField(absent, log)) << label << absent;
      EXPECT_EQ(countMessages(log), 0) << label;
    }
  }
  std::filesystem::remove_all(folder);
}

TEST(NewRelatedItem, takes_a_type_that_is_given_and_a_name_without_its_path) {
  const auto folder = std::filesystem::temp_directory_path() / "mailtree-related-path-test";
  std::filesystem::create_directories(folder);
  const std::string file = (folder / "dir\\a.png").string();
  std::ofstream(file) << "bytes";
  const RefPtr<_svEmailCommon> common(new _svEmailCommon);
  LogNull log;
  const EmailPtr item(Email2::createRelatedFromFileUtf8(*common, file.c_str(), "Image/X-Icon", log));
  ASSERT_TRUE(item);
  EXPECT_EQ(shape(item), "image/x-icon[name=a.png]");
  std::filesystem::remove_all(folder);
}

TEST(NewRelatedItem, is_refused_without_name_or_file) {
  const RefPtr<_svEmailCommon> common(new _svEmailCommon);
  const std::string folder = std::filesystem::temp_directory_path().string();
  for (const Maker& maker : kMakers) {
    LogMemory log;
    EXPECT_FALSE(maker.make(*common, "", "", log)) << maker.label;
    EXPECT_EQ(countMessages(log), 0) << maker.label;
    if (!std::string(maker.label).starts_with("file")) continue;
    EXPECT_FALSE(maker.make(*common, folder + "/missing.png", "a.png", log)) << maker.label;
    EXPECT_THAT(log.text(), HasSubstr("File does not exist, or cannot open file.")) << maker.label;
    EXPECT_FALSE(maker.make(*common, folder, "a.png", log)) << maker.label;
  }
}

TEST(NewCalendar, has_its_method_once_however_often_the_field_is_made_anew) {
  const EmailPtr mail = buildTree("alternative(plain)");
  mail->use_codepage(28591);
  LogNull log;
  DataBuffer data;
  data.append("BEGIN:VCALENDAR\r\nSUMMARY:Grüße\r\n");
  Email2* const calendar =
      Email2::createCalendarAlternativeUtf8(*mail->m_common, data, "REQUEST", 65001, log);
  ASSERT_TRUE(calendar);
  mail->insertSubPartAtIndex(calendar, -1);
  EXPECT_TRUE(data.isEmpty());
  EXPECT_THAT(fieldNames(*calendar), ElementsAre("Content-Type", "Content-Transfer-Encoding"));
  EXPECT_EQ(fieldOf(*calendar, "Content-Type"), "text/calendar; charset=utf-8; method=\"REQUEST\"");
  EXPECT_EQ(calendar->m_transferEncoding.view(), "base64");
  EXPECT_FALSE(calendar->isNotAlternativeBody());

  calendar->setName(StringBuffer("invite.ics"), log);
  calendar->refreshContentTypeHeader(log);
  EXPECT_EQ(fieldOf(*calendar, "Content-Type"),
            "text/calendar; charset=utf-8; name=invite.ics; method=REQUEST");
  const EmailPtr reread = load(write(*mail));
  Email2* const part = reread->getPart(1);
  EXPECT_EQ(part->m_body.view(), "BEGIN:VCALENDAR\r\nSUMMARY:Grüße\r\n");
  part->setName(StringBuffer("other.ics"), log);
  EXPECT_THAT(fieldOf(*part, "Content-Type"), EndsWith("; name=other.ics; method=REQUEST"));
}

TEST(NewCalendar, lets_no_method_write_parameters_or_fields) {
  const RefPtr<_svEmailCommon> common(new _svEmailCommon);
  LogNull log;
  DataBuffer data;
  const EmailPtr calendar(Email2::createCalendarAlternativeUtf8(
      *common, data, "X\"; name=\"evil\r\nBcc: evil@example.com", 0, log));
  const EmailPtr reread = load(write(*calendar));
  EXPECT_EQ(field(*reread, "Bcc"), "(absent)");
  EXPECT_EQ(reread->m_contentType.m_name.view(), "");
}

TEST(RelatedItems, do_nothing_on_a_dead_node) {
  const EmailPtr mail = buildTree("related(html,png)");
  const EmailPtr item = buildTree("zip");
  LogMemory log;
  {
    const Killed dead(*mail);
    EXPECT_EQ(mail->getNumRelatedItems(log), 0);
    EXPECT_EQ(mail->firstPartNotRelatedItem(log), 0);
    EXPECT_EQ(mail->getRelatedItem(0, log), nullptr);
    EXPECT_FALSE(mail->setRelatedHeader(0, "X-A", "b", log));
    mail->addRelatedContent(item.get(), log);
    mail->dropRelatedItem(0);
    mail->dropRelatedItems();
    mail->fixRelated(log);
  }
  EXPECT_EQ(printTree(mail), "related(html,png)");
  EXPECT_EQ(countMessages(log), 0);
}

}  // namespace
}  // namespace mailtree
