// Files that the HTML shows, and calendars: listed, put in, dropped and mended by the command.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/cli/shown.h"

namespace mailtree::cli_test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kCalendar =
    "BEGIN:VCALENDAR\nVERSION:2.0\nMETHOD:REQUEST\nSUMMARY:Grüße\nEND:VCALENDAR\n";

/// A workspace with two images and a calendar.
struct Files {
  Workspace work;
  std::string logo = work.write("logo.png", "PNG\1");
  std::string photo = work.write("my photo.jpg", "JPG\2");
  std::string calendar = work.write("invite.ics", kCalendar);
  std::string mail = work.path("m.eml");

  Result compose(const std::string& options) const {
    return mailtree("compose --from a@x --subject s -o " + mail + ' ' + options);
  }
};

TEST(Related, files_are_shown_by_the_html_whose_other_bytes_stay) {
  const Files files;
  ASSERT_EQ(files
                .compose("--html '<p>cid:logo.png <img src=\"cid:logo.png\"><img src=\"cid:my%20photo.jpg\">"
                         "<img src=\"cid:other\"></p>' --inline " +
                         files.logo + " --inline '" + files.photo + "=photo@x'")
                .status,
            0);
  const json listed = json::parse(mailtree("related --json " + files.mail).out)["related"];
  ASSERT_EQ(listed.size(), 2U);
  std::string id = listed[0]["content_id"];
  ASSERT_THAT(id, testing::MatchesRegex("<.+@.+>"));
  EXPECT_EQ(listed[1]["content_id"], "<photo@x>");
  EXPECT_EQ(listed[1]["content_type"], "image/jpeg");
  EXPECT_THAT(mailtree("body --html " + files.mail).out,
              HasSubstr("<p>cid:logo.png <img src=\"cid:" + id.substr(1, id.size() - 2) +
                        "\"><img src=\"cid:photo@x\"><img src=\"cid:other\"></p>"));
  EXPECT_EQ(mailtree("extract -o - --part " + listed[1]["id"].dump() + ' ' + files.mail).out, "JPG\2");
}

TEST(Related, files_and_calendars_stand_beside_the_texts) {
  const Files files;
  const std::string image = " --inline " + files.logo, invite = " --calendar " + files.calendar,
                    pdf = " --attach " + files.work.write("a.pdf", "%PDF");
  const struct {
    std::string options, shape;
  } rows[] = {
      {"--html h" + image, "multipart/related(text/html,image/png)"},
      {"--html h --inline-location " + files.logo, "multipart/related(text/html,image/png)"},
      {"--html h --inline " + files.work.write("x.unheard-of", "x"),
       "multipart/related(text/html,application/octet-stream)"},
      {"--text t --html h" + image,
       "multipart/alternative(text/plain,multipart/related(text/html,image/png))"},
      {"--text t --html h" + image + invite + pdf,
       "multipart/mixed(multipart/alternative(text/plain,multipart/related(text/html,image/png),text/"
       "calendar),"
       "application/pdf)"},
      {"--html h" + image + invite,
       "multipart/alternative(multipart/related(text/html,image/png),text/calendar)"},
      {"--text t" + invite, "multipart/alternative(text/plain,text/calendar)"},
      {invite, "multipart/alternative(text/calendar)"},
  };
  for (const auto& row : rows) {
    ASSERT_EQ(files.compose(row.options).status, 0) << row.options;
    EXPECT_EQ(shapeOf(shown(files.mail)["tree"]), row.shape) << row.options;
  }
}

TEST(Related, calendar_says_its_method_once) {
  const Files files;
  for (const auto& [option, method] : {std::pair("", "REQUEST"), std::pair(" --method reply", "reply")}) {
    ASSERT_EQ(files.compose("--text t --calendar " + files.calendar + option).status, 0) << option;
    const std::string message = readFile(files.mail);
    EXPECT_THAT(message, testing::ContainsRegex("text/calendar; charset=utf-8;[ \r\n]*method=\"?" +
                                                std::string(method)));
    EXPECT_EQ(message.find("method="), message.rfind("method=")) << message;
  }
  ASSERT_EQ(mailtree("edit " + files.mail + " --calendar " + files.calendar + " -o " + files.mail).status, 0);
  EXPECT_EQ(shapeOf(shown(files.mail)["tree"]), "multipart/alternative(text/plain,text/calendar)")
      << "replaced";
}

TEST(Related, what_cannot_be_put_in_is_refused) {
  const Files files;
  const std::string image = "--inline " + files.logo;
  const struct {
    std::string options;
    int status;
    const char* complaint;
  } rows[] = {
      {"--text t " + image, 2, "there is no HTML"},
      {"--html h --inline -", 2, "standard input has no name"},
      {"--html h --inline '" + files.logo + "=a b'", 2, "no Content-ID"},
      {"--html h " + image + ' ' + image, 2, "two files are named 'logo.png'"},
      {"--html h --inline missing.png", 3, "missing.png"},
      {"--html h " + image, 0, "warning: the HTML does not refer to cid:logo.png"},
      {"--calendar " + files.logo, 3, "no calendar"},
      {"--calendar " + files.calendar + " --method 'A;b=c'", 2, "is no method such as REQUEST"},
      {"--calendar " + files.work.write("n.ics", "BEGIN:VCALENDAR\n"), 2, "the calendar names none"},
      {"--method REQUEST", 2, "--calendar"},
  };
  for (const auto& row : rows) {
    const Result result = files.compose(row.options);
    EXPECT_EQ(result.status, row.status) << row.options;
    EXPECT_THAT(result.err, HasSubstr(row.complaint)) << row.options;
  }
}

/// A message whose parts are these fields, each with a body that names its place.
std::string related(const Workspace& work, std::initializer_list<const char*> parts,
                    const char* type = "related") {
  std::string message =
      "MIME-Version: 1.0\nContent-Type: multipart/" + std::string(type) + "; boundary=b\n\n";
  int place = 0;
  for (const char* part : parts)
    message.append("--b\n").append(part).append("\n\nbody ") += std::to_string(place++) + " cid:one@x\n";
  return work.write("r.eml", message + "--b--\n");
}

TEST(Related, the_item_dropped_is_the_one_that_the_table_names) {
  const Workspace work;
  const char* const kPng = "Content-Type: image/png";
  const char* const kGif = "Content-Type: image/gif";
  for (const char* first : {"Content-Type: text/html", kPng}) {
    const std::string file = related(work, {first, kPng, kGif});
    const json listed = json::parse(mailtree("related --json " + file).out)["related"];
    for (const json& item : listed) {
      ASSERT_EQ(
          mailtree("edit " + file + " --drop-related " + item["number"].dump() + " -o " + work.path("n"))
              .status,
          0);
      const std::string message = readFile(work.path("n"));
      const std::string part = mailtree("extract -o - --part " + item["id"].dump() + ' ' + file).out;
      ASSERT_THAT(part, testing::StartsWith("body ")) << first << item;
      EXPECT_EQ(shown(work.path("n"))["tree"]["parts"].size(), 2U) << first << item;
      EXPECT_THAT(message, Not(HasSubstr(part.substr(0, 6)))) << first << item;
    }
  }
  const std::string plain = related(work, {"Content-Type: text/plain", kPng});
  EXPECT_THAT(mailtree("edit " + plain + " --drop-related 0").err, HasSubstr("is the text of the message"));
  EXPECT_EQ(mailtree("edit " + plain + " --drop-related 2").status, 1);
}

TEST(Related, attachments_are_mended) {
  const Workspace work;
  const std::string file =
      related(work,
              {"Content-Type: text/html",
               "Content-Type: image/png\nContent-ID: <one@x>\nContent-Disposition: attachment"},
              "mixed");
  EXPECT_EQ(mailtree("related " + file).status, 1);
  ASSERT_EQ(mailtree("edit " + file + " --fix-related -o " + work.path("n")).status, 0);
  EXPECT_EQ(shapeOf(shown(work.path("n"))["tree"]),
            "multipart/mixed(multipart/related(text/html,image/png))");
  EXPECT_THAT(mailtree("related " + work.path("n")).out, HasSubstr("\n 0     3  -     image/png"));
}

}  // namespace
}  // namespace mailtree::cli_test
