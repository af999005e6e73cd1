#include "mailtree/store/MailWriter.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <thread>

#include "tests/store/stores.h"

namespace mailtree {
namespace {

class Writing : public Stores {};

TEST_F(Writing, KeepsEveryByte) {
  const Strings messages = {"A: 1\n\nx\n",
                            "",
                            "\n",
                            "x",
                            "A: 1\r\n\r\nx\r\n",
                            "A: 1\r\n\r\nx\r\n\r\n",
                            "A: 1\r\n\r\nx",
                            "A: 1\n\nx\n\n\n",
                            "A: 1\n\nx\r",
                            "From a@b.c Sat Nov 21 08:30:00 2026\nA: 1\n",
                            "\nFrom \n>From \n>>From x",
                            "\r\nFrom x\r\n",
                            ">",
                            ">From ",
                            "x\n>>",
                            "A: \0\n\n\0From \n"s,
                            "Content-Length: 44\n\nFrom a\n",
                            "content-length: 1\n\n>From a",
                            std::string(3 << 20, '>')};
  Result<MailWriterPtr> writers[] = {openMboxWriter(path("mbox")), openMaildirWriter(path("maildir")),
                                     openFolderWriter(path("folder"))};
  for (Result<MailWriterPtr>& writer : writers) {
    ASSERT_TRUE(writer) << writer.error().message;
    for (const std::string& message : messages) ASSERT_TRUE((*writer)->add(message));
    ASSERT_TRUE((*writer)->flush());
  }
  for (const char* place : {"mbox", "maildir", "folder"}) EXPECT_EQ(bodiesIn(path(place)), messages) << place;
}

TEST_F(Writing, AppendsToWhatOthersLeft) {
  const std::pair<std::string, Strings> rows[] = {{"", {"new\n"}},
                                                  {"From x\nold", {"old\n", "new\n"}},
                                                  {"From x\nold\n", {"old\n", "new\n"}},
                                                  {"From x\nold\r\n\r\n", {"old\r\n", "new\n"}}};
  for (const auto& [before, after] : rows) {
    const std::string file = save("mbox", before);
    Result<MailWriterPtr> writer = openMboxWriter(file);
    ASSERT_TRUE(writer && (*writer)->add("new\n") && (*writer)->flush());
    EXPECT_EQ(bodiesIn(file), after) << before;
  }
  EXPECT_EQ(openMboxWriter(save("text", "no mbox")).error().message,
            "is not an mbox; nothing is appended to it");
  save("folder/text", "");
  EXPECT_EQ(openMaildirWriter(path("folder")).error().message, "is a folder and not a Maildir");
  EXPECT_TRUE(openFolderWriter(path("folder")));
}

TEST_F(Writing, CutsOffAnAppendThatFails) {
  const std::string file = save("mbox", "From x\nold\n\n");
  Result<MailWriterPtr> writer = openMboxWriter(file);
  ASSERT_TRUE((*writer)->add(std::string(10'000, 'x') + "\n"));
  struct rlimit usual {};
  ::getrlimit(RLIMIT_FSIZE, &usual);
  const auto before = std::signal(SIGXFSZ, SIG_IGN);
  const struct rlimit small { 5000, usual.rlim_max };
  ::setrlimit(RLIMIT_FSIZE, &small);
  const Result<void> failed = (*writer)->flush();
  ::setrlimit(RLIMIT_FSIZE, &usual);
  std::signal(SIGXFSZ, before);
  EXPECT_EQ(failed.error().code, ErrorCode::unwritable);
  EXPECT_EQ(load("mbox"), "From x\nold\n\n");
  EXPECT_TRUE((*writer)->flush());  // there is room again
  EXPECT_EQ(bodiesIn(file).size(), 2u);
}

TEST_F(Writing, CutsOffWhatAKilledWriterLeft) {
  const std::string old(500, 'o'), file = save("mbox", "From x\n" + old + "\n\n");
  const std::size_t before = std::filesystem::file_size(file);
  for (const std::size_t room : {1, 14, 200, 5000}) {
    const pid_t child = ::fork();
    if (child == 0) {  // ends by the signal at the limit, in the middle of a write
      const struct rlimit none { 0, 0 }, small{before + room, before + room};
      ::setrlimit(RLIMIT_CORE, &none);
      ::setrlimit(RLIMIT_FSIZE, &small);
      Result<MailWriterPtr> writer = openMboxWriter(file);
      for (int i = 0; i < 20; ++i) (void)(*writer)->add(std::string(500, 'x') + "\n");
      (void)(*writer)->flush();
      ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));
    ASSERT_EQ(std::filesystem::file_size(file), before + room);
    EXPECT_TRUE(std::filesystem::exists(file + ".lock"));
    Result<MailWriterPtr> writer = openMboxWriter(file, {.lockWait = std::chrono::milliseconds(20)});
    ASSERT_TRUE((*writer)->add("new\n") && (*writer)->flush());
    EXPECT_EQ(bodiesIn(file), (Strings{old + "\n", "new\n"})) << room;
    std::filesystem::resize_file(file, before);
  }
}

TEST_F(Writing, WaitsForOtherPrograms) {
  const std::string file = save("mbox", "");
  Result<MailWriterPtr> writer = openMboxWriter(file, {.lockWait = std::chrono::milliseconds(20)});
  ASSERT_TRUE((*writer)->add("new\n"));
  const std::string dotLock = save("mbox.lock", "1\n");
  EXPECT_EQ((*writer)->flush().error().message, "is locked by another program");
  EXPECT_TRUE(std::filesystem::exists(dotLock));
  const struct timespec longAgo[2] = {{1, 0}, {1, 0}};
  ::utimensat(AT_FDCWD, dotLock.c_str(), longAgo, 0);
  EXPECT_TRUE((*writer)->flush());
  EXPECT_FALSE(std::filesystem::exists(dotLock));
  // Programs that delete messages write a new file.
  std::filesystem::rename(save("other", "From x\nother\n"), file);
  ASSERT_TRUE((*writer)->add("newer\n") && (*writer)->flush());
  EXPECT_EQ(bodiesIn(file), (Strings{"other\n", "newer\n"}));
}

TEST_F(Writing, SharesAPlaceWithOtherWriters) {
  using Open = Result<MailWriterPtr> (*)(const std::string&);
  const std::pair<const char*, Open> places[] = {
      {"mbox", [](const std::string& p) { return openMboxWriter(p); }},
      {"maildir", openMaildirWriter},
      {"folder", openFolderWriter}};
  for (const auto& [place, open] : places) {
    const auto write = [&, open = open, file = path(place)](char letter) {
      Result<MailWriterPtr> writer = open(file);
      for (int i = 0; i < 60; ++i)
        EXPECT_TRUE((*writer)->add(std::string(40'000, letter)) && (i % 7 || (*writer)->flush()));
      EXPECT_TRUE((*writer)->flush());
    };
    std::thread first(write, 'a'), second(write, 'b');
    first.join();
    second.join();
    const Strings all = bodiesIn(path(place));
    EXPECT_EQ(all.size(), 120u) << place;
    for (const char letter : {'a', 'b'})
      EXPECT_EQ(std::ranges::count(all, std::string(40'000, letter)), 60) << place;
  }
}

TEST_F(Writing, ShowsNothingBeforeTheFlush) {
  for (const auto& open : {openMaildirWriter, openFolderWriter}) {
    Result<MailWriterPtr> writer = open(path("box"));
    ASSERT_TRUE((*writer)->add("A: 1\n", {.flags = "SRS/"}));
    EXPECT_EQ(bodiesIn(path("box")), Strings());
    writer->reset();
    Strings left;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path("box")))
      if (entry.is_regular_file()) left.push_back(entry.path());
    EXPECT_EQ(left, Strings());
    std::filesystem::remove_all(path("box"));
  }
}

TEST_F(Writing, WritesAStreamAsMbox) {
  const int file = ::open(path("out").c_str(), O_WRONLY | O_CREAT, 0600);
  Result<MailWriterPtr> writer = openMboxStream(file, "standard output");
  ASSERT_TRUE((*writer)->add("A: 1\n", {.sender = "two words", .date = std::chrono::sys_seconds{}}) &&
              (*writer)->flush());
  ::close(file);
  EXPECT_EQ(load("out"), "From MAILER-DAEMON Thu Jan  1 00:00:00 1970\nA: 1\n\n");
  EXPECT_EQ((*writer)->add(std::string(2 << 20, 'x')).error().where, "standard output");
}

}  // namespace
}  // namespace mailtree
