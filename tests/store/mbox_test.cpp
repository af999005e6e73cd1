#include <algorithm>
#include <tuple>

#include "tests/store/stores.h"

namespace mailtree {
namespace {

const std::string kSeparator = "From a@b.c Sat Nov 21 08:30:00 2026\n";

class Mbox : public Stores {};

std::string replaced(std::string text) {
  for (std::size_t at; (at = text.find("@@\n")) != text.npos;) text.replace(at, 3, kSeparator);
  return text;
}

TEST_F(Mbox, IsSplitTheSameWithAnyWindow) {
  struct Row {
    const char* what;
    std::string mbox;  // "@@" is a separator line
    Strings messages;
  };
  const Row rows[] = {
      {"nothing", "", {}},
      {"no separator", "A: 1\n\n>From x\n", {"A: 1\n\n>From x\n"}},
      {"two", "@@\nA: 1\n\nx\n\n@@\nA: 2\n\n", {"A: 1\n\nx\n", "A: 2\n"}},
      {"no empty line", "@@\nA: 1\n\nx\n@@\nA: 2\n\ny", {"A: 1\n\nx\n", "A: 2\n\ny"}},
      {"empty ones", "@@\n@@\n\n@@\n\n\n", {"", "", "\n"}},
      {"line ends before the first", "\n\n@@\nA: 1\n", {"A: 1\n"}},
      {"quoted",
       "@@\n>From x\n>>From y\n>>>From z\n> From\na>From b\n",
       {"From x\n>From y\n>>From z\n> From\na>From b\n"}},
      {"lookalikes",
       "@@\nA: 1\n\nFrom now on\n\nFrom here:\nB: 2\nFrom \n",
       {"A: 1\n\nFrom now on\n\nFrom here:\nB: 2\nFrom \n"}},
      {"likely ones",
       "@@\n\nx\n\nFrom a@b.c\nA: 2\n\ny\nFrom a@b.c\nA: 3\n",
       {"\nx\n", "A: 2\n\ny\nFrom a@b.c\nA: 3\n"}},
      {"CRLF",
       "From a@b.c Sat Nov 21 08:30:00 2026\r\nA: 1\r\n\r\nx\r\n\r\n@@\nA: 2\r\n\r\n",
       {"A: 1\r\n\r\nx\r\n", "A: 2\r\n"}},
      {"NULs", "@@\nA: \0\n\0From x\n"s + "@@\n\0"s, {"A: \0\n\0From x\n"s, "\0"s}},
      {"cut", "@@\nA: 1\n\nFrom a@b.c Sat Nov 21 08:3", {"A: 1\n\nFrom a@b.c Sat Nov 21 08:3"}},
      {"any first line", "From here\nA: 1\n\n@@\nA: 2\n", {"A: 1\n", "A: 2\n"}},
      {"without line end", "From a@b.c Sat Nov 21 08:30:00 2026 -0000\nA: 1\n\nx\n\n", {"A: 1\n\nx"}},
      {"lengths",
       "@@\nContent-Length: 41\n\n>From x\n" + kSeparator.substr(3) + "\n@@\nA: 2\n",
       {"Content-Length: 41\n\n>From x\n" + kSeparator.substr(3), "A: 2\n"}},
      {"lengths over separators",
       "@@\nContent-Length: 38\n\n@@\nx\n\n@@\nContent-Length: 2\n\nz\n\n@@\ny\n",
       {"Content-Length: 38\n\n" + kSeparator + "x\n", "Content-Length: 2\n\nz\n", "y\n"}},
      {"wrong lengths",
       "@@\nContent-Length: 37\n\n@@\nx\n\n@@\nContent-Length: 99999999999999999999\n\n>From z\n",
       {"Content-Length: 37\n", "x\n", "Content-Length: 99999999999999999999\n\nFrom z\n"}},
      {"lengths in a quoted message",
       "From a@b.c Sat Nov 21 08:30:00 2026 +0000\nContent-Length: 38\n\n@@\nx\n\n@@\ny\n",
       {"Content-Length: 38\n", "x\n", "y\n"}}};
  for (const Row& row : rows) {
    const std::string file = save("mbox", replaced(row.mbox));
    for (const std::size_t window : {1, 5, 64, 1000, 100'000}) {
      const Strings expected = [&] {
        Strings all;
        for (const std::string& message : row.messages) all.push_back(replaced(message));
        return all;
      }();
      EXPECT_EQ(bodiesIn(file, {.window = window}), expected) << row.what << ", window " << window;
    }
  }
}

TEST_F(Mbox, TellsWhereMessagesAre) {
  const std::string file = save("mbox", replaced("@@\nA: 1\n\nx\n\n@@\nA: 2\n"));
  Result<MailSource> source = MailSource::open(file);
  SourceMessage message;
  ASSERT_TRUE(source && source->next(message) && source->next(message));
  EXPECT_EQ(source->kind(), MailSource::Kind::mbox);
  EXPECT_EQ(message.path, file);
  EXPECT_EQ(message.sender, "a@b.c");
  EXPECT_EQ(message.date->time_since_epoch().count(), 1795249800);
  EXPECT_EQ(std::tuple(message.number, message.offset, message.length), std::tuple(2u, 45u, 41u));
  EXPECT_EQ(nameOf(message), file + "#2");
  EXPECT_TRUE(source->seekOffset(45) && source->next(message));
  EXPECT_EQ(nameOf(message), file + "@45");
  EXPECT_EQ(message.bytes, "A: 2\n");
  for (const std::uint64_t offset : {1, 36, 44, 46, 1000})
    EXPECT_EQ(source->seekOffset(offset).error().code, ErrorCode::notFound) << offset;
  source = MailSource::open(file);
  EXPECT_TRUE(source->seekNumber(1) && source->next(message) && source->seekNumber(2) &&
              source->next(message));
  EXPECT_EQ(message.bytes, "A: 2\n");
  EXPECT_EQ(source->seekNumber(2).error().code, ErrorCode::badValue);
  source = MailSource::open(file);
  EXPECT_EQ(source->seekNumber(4).error().message, "has only 2 messages");
  const std::string alone = save("alone", replaced("@@\nA: 1\n"));
  EXPECT_TRUE(MailSource::open(alone)->next(message));
  EXPECT_EQ(nameOf(message), alone);
}

TEST_F(Mbox, PartsGiveEachMessageOnce) {
  std::string lines, byLength, files;
  for (int i = 0; i < 23; ++i) {
    const std::string number = std::to_string(i), body(static_cast<std::size_t>(i * i), 'x');
    lines += "@@\nA: " + number + "\n\n" + body + "\nFrom a@b.c\n\n";
    byLength += "@@\nContent-Length: " + std::to_string(body.size() + 37) + "\n\n@@\n" + body + "\n\n";
    save("folder/" + number + ".eml", number);
  }
  for (const std::string& path :
       {save("mbox", replaced(lines)), save("lengths", replaced(byLength)), this->path("folder")}) {
    const Strings all = bodiesIn(path);
    EXPECT_EQ(all.size(), 23u);
    for (const std::uint64_t parts : {1, 2, 3, 7, 40, 1000}) {
      Strings together;
      for (std::uint64_t part = 0; part < parts; ++part) {
        Result<MailSource> source = MailSource::open(path, {.window = 100});
        ASSERT_TRUE(source->takePart(part, parts));
        for (std::string& bytes : bodies(*source)) together.push_back(std::move(bytes));
      }
      if (path == this->path("folder")) std::ranges::sort(together);
      Strings expected = all;
      if (path == this->path("folder")) std::ranges::sort(expected);
      EXPECT_EQ(together, expected) << path << " in " << parts;
    }
  }
}

TEST_F(Mbox, OfFiveGigabytesIsReadInLittleMemory) {
  const std::uint64_t far = std::uint64_t{5} << 30;
  const std::string file = save("mbox", kSeparator + "A: 1\n\n" + kSeparator + "A: 2\n");
  std::filesystem::resize_file(file, far);
  std::ofstream(file, std::ios::app | std::ios::binary) << "\n" + kSeparator + "A: 3\n\nx\n";
  Result<MailSource> source = MailSource::open(file);
  SourceMessage message;
  const Strings shown =
      rest(*source, [&](const SourceMessage& m) { return m.bytes + std::to_string(m.offset); });
  EXPECT_EQ(shown,
            (Strings{"A: 1\n0", "! the message is too large: 5368709043 bytes", "A: 3\n\nx\n5368709121"}));
  EXPECT_TRUE(source->seekOffset(far + 1) && source->next(message));
  EXPECT_EQ(message.bytes, "A: 3\n\nx\n");
  source = MailSource::open(file);
  EXPECT_TRUE(source->takePart(3, 4) && source->next(message));
  EXPECT_EQ(message.offset, far + 1);
}

TEST_F(Mbox, NamesMessagesThatAreTooLargeAndGoesOn) {
  const std::string file =
      save("mbox", replaced("@@\nA: 1\n\n@@\n" + std::string(500, 'x') + "\n\n@@\nA: 2\n"));
  for (const std::size_t window : {1, 4000})
    EXPECT_EQ(bodiesIn(file, {.largest = 100, .window = window}),
              (Strings{"A: 1\n", "! the message is too large: 502 bytes", "A: 2\n"}));
}

TEST_F(Mbox, ThatBecomesShorterIsAnError) {
  const std::string file = save("mbox", replaced("@@\n\n" + std::string(5000, 'x') + "\n\n@@\nA: 2\n"));
  Result<MailSource> source = MailSource::open(file, {.window = 10});
  std::filesystem::resize_file(file, 3000);
  EXPECT_EQ(bodies(*source), Strings{"! became shorter while it was read"});
}

}  // namespace
}  // namespace mailtree
