#include "mailtree/base/Output.h"

#include <sys/stat.h>

#include <sstream>
#include <thread>

#include "tests/base/tables.h"

namespace mailtree {
namespace {

class StopAfter final : public ProgressMonitor {
 public:
  explicit StopAfter(std::uint64_t bytes) : m_limit(bytes) {}
  bool onProgress(std::uint64_t bytesDone) override {
    ++m_asked;
    return bytesDone <= m_limit;
  }
  int m_asked = 0;

 private:
  std::uint64_t m_limit;
};

TEST(Output, that_was_aborted_stays_failed_even_with_fresh_progress) {
  StopAfter monitor(4);
  ProgressContext progress(&monitor), fresh(nullptr);
  DataBuffer bytes;
  MemoryOutput output(bytes), other(bytes);
  EXPECT_TRUE(output.write("abcd", progress, quiet));
  EXPECT_FALSE(output.write("e", progress, quiet));
  EXPECT_TRUE(progress.aborted());
  EXPECT_FALSE(output.write("f", progress, quiet));
  EXPECT_FALSE(output.write("g", fresh, quiet));
  EXPECT_FALSE(other.write("h", progress, quiet)) << "an aborted operation writes to no other sink either";
  EXPECT_EQ(bytes.view(), "abcde");
  EXPECT_FALSE(progress.advance(0));
  EXPECT_EQ(monitor.m_asked, 2) << "an aborted operation is not asked about again";
}

TEST(Output, treats_a_monitor_or_stream_that_throws_as_failed) {
  class Thrower final : public ProgressMonitor {
    bool onProgress(std::uint64_t) override { throw 1; }
  } thrower;
  LogMemory log;
  std::ostringstream text, broken;
  ProgressContext throwing(&thrower), progress(nullptr);
  EXPECT_FALSE(StreamOutput(text).write("x", throwing, log));

  broken.exceptions(std::ios::badbit);
  StreamOutput failing(broken);
  EXPECT_TRUE(failing.write("x", progress, log));
  EXPECT_THROW(broken.setstate(std::ios::badbit), std::ios_base::failure);
  EXPECT_FALSE(failing.write("x", progress, log));
  EXPECT_FALSE(log.entries().empty());
}

class FileOutputTest : public FolderTest {
 protected:
  long entries() const { return std::distance(fs::directory_iterator(m_folder), fs::directory_iterator()); }
  bool save(const std::string& target, std::string_view bytes, Existing existing = Existing::replace,
            Readers readers = Readers::usual) {
    FileOutput output;
    return output.open(target.c_str(), m_log, existing, readers) && output.write(bytes, m_progress, m_log) &&
           output.commit(m_log);
  }

  LogMemory m_log;
  ProgressContext m_progress{nullptr};
};

TEST_F(FileOutputTest, shows_a_file_only_when_it_is_whole) {
  std::ofstream(path("f")) << "old";
  {
    FileOutput output;
    ASSERT_TRUE(output.open(path("f").c_str(), m_log));
    ASSERT_TRUE(output.write(std::string(200000, 'n'), m_progress, m_log));
    EXPECT_EQ(contentOf(path("f")), "old");
  }
  EXPECT_EQ(contentOf(path("f")), "old") << "never committed";
  EXPECT_EQ(entries(), 1) << "the temporary went";
  EXPECT_TRUE(save(path("f"), "new"));
  EXPECT_EQ(contentOf(path("f")), "new");
  {
    StopAfter monitor(0);
    ProgressContext progress(&monitor);
    FileOutput output;
    ASSERT_TRUE(output.open(path("g").c_str(), m_log));
    EXPECT_FALSE(output.write("x", progress, m_log));
    EXPECT_FALSE(output.commit(m_log)) << "aborted";
  }
  EXPECT_EQ(entries(), 1);
}

TEST_F(FileOutputTest, honours_the_umask_and_keeps_permissions_of_what_it_replaces) {
  const mode_t before = umask(027);
  EXPECT_TRUE(save(path("fresh"), "x"));
  std::ofstream(path("old")) << "x";
  fs::permissions(path("old"), fs::perms(0604));
  EXPECT_TRUE(save(path("old"), "y"));
  std::ofstream(path("secret")) << "x";
  EXPECT_TRUE(save(path("secret"), "y", Existing::replace, Readers::owner));
  umask(before);
  const std::pair<const char*, int> rows[] = {{"fresh", 0640}, {"old", 0604}, {"secret", 0600}};
  for (const auto& [name, perms] : rows)
    EXPECT_EQ(static_cast<int>(fs::status(path(name)).permissions()), perms);
}

TEST_F(FileOutputTest, writes_through_a_symbolic_link) {
  fs::create_directory(path("below"));
  std::ofstream(path("below/real")) << "old";
  fs::create_symlink("below/real", path("link"));
  EXPECT_TRUE(save(path("link"), "new"));
  EXPECT_TRUE(fs::is_symlink(path("link")));
  EXPECT_EQ(contentOf(path("below/real")), "new");
}

TEST_F(FileOutputTest, replaces_the_entry_or_refuses_it_when_told_so) {
  std::ofstream(path("target")) << "precious";
  std::ofstream(path("file")) << "old";
  fs::permissions(path("file"), fs::perms(0600));
  fs::create_symlink(path("target"), path("link"));
  fs::create_symlink(path("nowhere"), path("dangling"));
  fs::create_directory(path("folder"));
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  const long before = entries();
  const std::pair<const char*, bool> rows[] = {
      {"file", true}, {"link", true}, {"dangling", true}, {"folder", false}, {"fifo", false}};
  for (const auto& [name, isReplaced] : rows) {
    const fs::file_type type = fs::symlink_status(path(name)).type();
    EXPECT_FALSE(save(path(name), "new", Existing::refuse)) << name;
    EXPECT_EQ(fs::symlink_status(path(name)).type(), type) << name;
    EXPECT_EQ(save(path(name), "new", Existing::replaceEntry), isReplaced) << name;
    EXPECT_EQ(fs::symlink_status(path(name)).type(), isReplaced ? fs::file_type::regular : type) << name;
  }
  EXPECT_EQ(entries(), before);
  EXPECT_EQ(contentOf(path("target")), "precious");
  EXPECT_EQ(fs::status(path("file")).permissions(), fs::perms(0600));
}

TEST_F(FileOutputTest, does_not_take_a_name_that_was_taken_in_between) {
  FileOutput late, unfinished;
  ASSERT_TRUE(late.open(path("f").c_str(), m_log, Existing::refuse));
  ASSERT_TRUE(unfinished.open(path("g").c_str(), m_log));
  EXPECT_FALSE(fs::exists(path("f")));
  EXPECT_TRUE(save(path("f"), "x", Existing::refuse));
  EXPECT_FALSE(late.commit(m_log));
  EXPECT_EQ(contentOf(path("f")), "x");
  EXPECT_EQ(entries(), 2);
  FileOutput::removeUnfinished();
  EXPECT_EQ(entries(), 1);
}

TEST_F(FileOutputTest, takes_names_of_any_length_the_host_takes) {
  EXPECT_TRUE(save(path(std::string(255, 'x')), "x"));
  EXPECT_FALSE(save(path(std::string(256, 'x')), "x"));
  EXPECT_EQ(entries(), 1) << "a name refused at the end leaves no file";
}

TEST_F(FileOutputTest, writes_straight_to_what_is_no_regular_file) {
  const std::string fifo = path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::string read;
  std::thread reader([&] { read = contentOf(fifo); });
  EXPECT_TRUE(save(fifo, "through the pipe"));
  reader.join();
  EXPECT_EQ(read, "through the pipe");
  EXPECT_TRUE(fs::is_fifo(fifo));
  EXPECT_TRUE(save("/dev/null", "x"));
}

TEST_F(FileOutputTest, does_not_replace_the_file_of_an_open_stream) {
  const FilePtr open(std::fopen(path("log").c_str(), "w"));
  ASSERT_TRUE(open);
  std::fputs("before ", open.get());
  std::fflush(open.get());
  EXPECT_TRUE(save("/dev/fd/" + std::to_string(fileno(open.get())), "after"));
  EXPECT_EQ(contentOf(path("log")), "before after");
}

TEST_F(FileOutputTest, says_why_it_could_not_write) {
  std::ofstream(path("file")) << "x";
  std::ofstream(path("readonly")) << "x";
  fs::permissions(path("readonly"), fs::perms(0444));
  const Row rows[] = {{path("missing/f"), "No such file or directory"}, {path("file/f"), "Not a directory"},
                      {"/dev/full", "No space left on device"},         {m_folder.string(), "Is a directory"},
                      {path("readonly"), "Permission denied"},          {"", "No such file or directory"}};
  for (const auto& [target, reason] : rows) {
    if (target == path("readonly") && geteuid() == 0) continue;  // the superuser may write anything
    m_log.clear();
    EXPECT_FALSE(save(target, "x")) << target;
    ASSERT_FALSE(m_log.entries().empty()) << target;
    EXPECT_EQ(m_log.entries().back().text, reason) << target;
  }
  EXPECT_EQ(entries(), 2);
  EXPECT_FALSE(FileOutput().open("", m_log)) << "told before anything is written";
}

}  // namespace
}  // namespace mailtree
