#include <algorithm>

#include "mailtree/store/MailWriter.h"
#include "mailtree/store/folder_entries.h"
#include "tests/store/stores.h"

namespace mailtree {
namespace {

class Folders : public Stores {
 protected:
  /// "folder|file|flags" of each message.
  Strings shown(const std::string& name, MailSource::Kind kind) const {
    Result<MailSource> source = MailSource::open(path(name));
    EXPECT_EQ(source->kind(), kind);
    return rest(*source, [](const SourceMessage& message) {
      EXPECT_EQ(message.bytes, "A: 1\n");
      return message.folder + "|" + message.path.substr(message.path.rfind('/') + 1) + "|" +
             message.flags.value_or("none");
    });
  }
};

TEST_F(Folders, MaildirHasFlagsAndSubfoldersAndNoUnfinishedMessages) {
  for (const char* name :
       {"cur/2:2,RS", "cur/1:2,", "cur/3;2,F", "cur/.hidden", "new/4", "tmp/5", ".Sent.2026/cur/6:2,S",
        ".Sent.2026/tmp/7", "Drafts/new/8", "Drafts/tmp/9", "dovecot.index"})
    save("m/"s + name, "A: 1\n");
  std::filesystem::create_directory_symlink(path("m"), path("m/.Circle"));
  EXPECT_EQ(shown("m", MailSource::Kind::maildir),
            (Strings{"|1:2,|", "|2:2,RS|RS", "|3;2,F|F", "|4|none", "Sent/2026|6:2,S|S", "Drafts|8|none"}));
}

TEST_F(Folders, PartOfAMaildirIsReadByItself) {
  for (const char* name : {"m/cur/1:2,S", "m/tmp/5", "other/cur/1"}) save(name, "A: 1\n");
  EXPECT_EQ(shown("m/cur/", MailSource::Kind::maildir), Strings{"|1:2,S|S"});
  EXPECT_EQ(shown("other/cur", MailSource::Kind::mh), Strings{"|1|none"});
}

TEST_F(Folders, MhIsReadInTheOrderOfItsNumbers) {
  for (const char* name : {"10", "9", "100", ",8", ".mh_sequences", "inbox/1", "inbox/x.txt"})
    save("mh/"s + name, "A: 1\n");
  EXPECT_EQ(shown("mh", MailSource::Kind::mh), (Strings{"|9|none", "|10|none", "|100|none", "inbox|1|none"}));
}

TEST_F(Folders, TreesGiveTheirMessageFiles) {
  for (const char* name :
       {"b.eml", "a.EML", ".x.eml", "1", "n.txt", "sub/deep/c.eml", ".git/d.eml", "in/cur/1:2,S"})
    save("t/"s + name, "A: 1\n");
  std::filesystem::create_symlink(path("t/b.eml"), path("t/z.eml"));
  std::filesystem::create_symlink("nowhere", path("t/y.eml"));
  EXPECT_EQ(shown("t", MailSource::Kind::folder),
            (Strings{"|a.EML|none", "|b.eml|none", "! cannot be read: No such file or directory",
                     "|z.eml|none", "in|1:2,S|S", "sub/deep|c.eml|none"}));
  std::filesystem::create_directory(path("empty"));
  EXPECT_EQ(bodiesIn(path("empty")), Strings());
  EXPECT_EQ(bodiesIn(path("none")), Strings{"! cannot be read: No such file or directory"});
}

TEST_F(Folders, FollowsAMessageThatIsRenamed) {
  save("m/cur/x", "");
  const std::string before = save("m/new/1.host", "A: 1\n");
  Result<MailSource> source = MailSource::open(path("m"));
  SourceMessage message;
  ASSERT_TRUE(source->next(message) && source->next(message));
  std::filesystem::rename(before, path("m/cur/1.host:2,S"));
  EXPECT_TRUE(readMessage(message));
  EXPECT_EQ(message.bytes + *message.flags, "A: 1\nS");
  std::filesystem::remove(message.path);
  message.hasBytes = false;
  EXPECT_EQ(readMessage(message).error().code, ErrorCode::unreadable);
}

TEST_F(Folders, WritesFlagsAndNumbers) {
  save("f/000041.eml", "old");
  Result<MailWriterPtr> folder = openFolderWriter(path("f")), maildir = openMaildirWriter(path("m"));
  ASSERT_TRUE((*folder)->add("new") && (*maildir)->add("new", {.flags = "SR/S"}));
  save("f/000042.eml", "other");  // meanwhile
  ASSERT_TRUE((*folder)->flush() && (*maildir)->flush());
  EXPECT_EQ(load("f/000043.eml"), "new");
  Result<MailSource> source = MailSource::open(path("m"));
  SourceMessage message;
  ASSERT_TRUE(source->next(message));
  EXPECT_EQ(message.flags, "RS");
}

TEST(Names, OfNumbersAreSortedByValue) {
  NameList names;
  for (const char* name : {"10", "9", "007", "", "123456789012345678901", "99999999999999999999"})
    names.add(name);
  names.sortNumbers();
  Strings sorted;
  for (std::size_t i = 0; i < names.size(); ++i) sorted.push_back(names[i]);
  EXPECT_EQ(sorted, (Strings{"", "007", "9", "10", "99999999999999999999", "123456789012345678901"}));
}

}  // namespace
}  // namespace mailtree
