#if defined(MAILTREE_HAS_ARCHIVE)
#include <archive.h>
#include <archive_entry.h>
#endif
#include <fcntl.h>
#include <sys/stat.h>

#include <thread>

#include "tests/store/stores.h"

namespace mailtree {
namespace {

const std::string kMbox =
    "From a@b.c Sat Nov 21 08:30:00 2026\nA: 1\n\nFrom a@b.c Sat Nov 21 08:30:00 2026\nA: 2\n";

class Opening : public Stores {
 protected:
  /// What standard input gives when it is this descriptor.
  static Strings given(int descriptor) {
    const int before = ::dup(STDIN_FILENO);
    ::dup2(descriptor, STDIN_FILENO);
    Strings all = bodiesIn("-");
    ::dup2(before, STDIN_FILENO);
    ::close(before);
    ::close(descriptor);
    return all;
  }
  /// The same through a pipe, in pieces.
  static Strings piped(const std::string& bytes) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    std::thread writer([&] {
      for (std::size_t at = 0; at < bytes.size(); at += 7)
        EXPECT_GT(::write(ends[1], bytes.data() + at, std::min<std::size_t>(7, bytes.size() - at)), 0);
      ::close(ends[1]);
    });
    Strings all = given(ends[0]);
    writer.join();
    return all;
  }
};

TEST_F(Opening, ReadsStandardInput) {
  EXPECT_EQ(given(::open(save("mbox", kMbox).c_str(), O_RDONLY)), (Strings{"A: 1\n", "A: 2\n"}));
  EXPECT_EQ(piped(kMbox), (Strings{"A: 1\n", "A: 2\n"}));
  EXPECT_EQ(piped("A: 1\n\nFrom x\n"), Strings{"A: 1\n\nFrom x\n"});
  EXPECT_EQ(piped(""), Strings());
}

TEST_F(Opening, WaitsForAQuietPipeUntilCancelled) {
  ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
  const int end = ::open(path("fifo").c_str(), O_RDWR | O_CLOEXEC);
  const std::string begun = kMbox + std::string(5'000, 'x');  // enough to tell what it is
  ASSERT_EQ(::write(end, begun.data(), begun.size()), static_cast<ssize_t>(begun.size()));
  std::atomic<bool> cancel = false;
  Result<MailSource> source = MailSource::open(path("fifo"), {}, cancel);
  SourceMessage message;
  ASSERT_TRUE(source && source->next(message));
  std::thread canceller([&] { cancel = true; });
  EXPECT_FALSE(source->next(message)) << "the second may go on";
  canceller.join();
  EXPECT_EQ(source->error()->message, "reading was cancelled");
  ::close(end);
  // Now it has no writer, for whom opening would wait.
  EXPECT_EQ(MailSource::open(path("fifo"), {}, cancel).error().message, "reading was cancelled");
}

TEST_F(Opening, ReadsNoFurtherThanTheHeaderWhenToldSo) {
  const std::string text = "A: 1\r\n\r\n", file = save("f/1.eml", text + std::string(100'000, 'x'));
  for (const std::string& path : {file, this->path("f")}) {
    const Strings given = bodiesIn(path, {.headersOnly = true});
    ASSERT_EQ(given.size(), 1u);
    EXPECT_LT(given[0].size(), 20'000u) << path;
  }
  EXPECT_EQ(bodiesIn(save("mbox", kMbox), {.headersOnly = true}), (Strings{"A: 1\n", "A: 2\n"}));
}

TEST_F(Opening, TellsWhatItFound) {
  const std::pair<std::string, MailSource::Kind> rows[] = {
      {"", MailSource::Kind::mbox},
      {"\r\nFrom x\n", MailSource::Kind::mbox},
      {"From : a@b.c\n", MailSource::Kind::message},
      {"BZhang wrote\n", MailSource::Kind::message},
      {"From" + std::string(2000, ' '), MailSource::Kind::message}};
  for (const auto& [bytes, kind] : rows) {
    Result<MailSource> source = MailSource::open(save("file", bytes));
    const Strings all = bodies(*source);
    EXPECT_EQ(source->kind(), kind) << bytes;
    const bool isOneMessage = kind == MailSource::Kind::message;
    EXPECT_EQ(isOneMessage ? all : Strings(), isOneMessage ? Strings{bytes} : Strings()) << bytes;
  }
}

#if defined(MAILTREE_HAS_ARCHIVE)

struct Packing {
  int format, filter;
};
using Entries = std::vector<std::pair<std::string, std::string>>;

void pack(const std::string& path, Packing packing, const Entries& entries) {
  archive* const out = archive_write_new();
  archive_write_set_format(out, packing.format);
  archive_write_add_filter(out, packing.filter);
  EXPECT_EQ(archive_write_open_filename(out, path.c_str()), ARCHIVE_OK) << archive_error_string(out);
  for (const auto& [name, bytes] : entries) {
    archive_entry* const entry = archive_entry_new();
    archive_entry_set_pathname(entry, name.c_str());
    archive_entry_set_filetype(entry, AE_IFREG);
    archive_entry_set_size(entry, static_cast<la_int64_t>(bytes.size()));
    EXPECT_EQ(archive_write_header(out, entry), ARCHIVE_OK) << archive_error_string(out);
    archive_write_data(out, bytes.data(), bytes.size());
    archive_entry_free(entry);
  }
  archive_write_free(out);
}

constexpr int kFilters[] = {ARCHIVE_FILTER_GZIP, ARCHIVE_FILTER_BZIP2, ARCHIVE_FILTER_ZSTD};

TEST_F(Opening, ReadsWhatIsCompressed) {
  for (const int filter : kFilters) {
    const Packing packing{ARCHIVE_FORMAT_RAW, filter};
    pack(path("mbox"), packing, {{"mbox", kMbox}});
    Result<MailSource> source = MailSource::open(path("mbox"));
    EXPECT_EQ(bodies(*source), (Strings{"A: 1\n", "A: 2\n"})) << filter;
    EXPECT_EQ(source->kind(), MailSource::Kind::mbox);
    EXPECT_EQ(piped(load("mbox")), (Strings{"A: 1\n", "A: 2\n"})) << filter;
    SourceMessage message;
    source = MailSource::open(path("mbox"));
    EXPECT_TRUE(source->seekOffset(42) && source->next(message));
    EXPECT_EQ(nameOf(message) + message.bytes, path("mbox@42") + "A: 2\n") << filter;
    for (const std::uint64_t offset : {1, 41, 43, 83, 1000})
      EXPECT_EQ(MailSource::open(path("mbox"))->seekOffset(offset).error().code, ErrorCode::notFound)
          << offset;
    save("folder/x", "");
    pack(path("folder/a.eml"), packing, {{"a", "A: 1\n"}});
    EXPECT_EQ(bodiesIn(path("folder")), Strings{"A: 1\n"}) << filter;
  }
}

TEST_F(Opening, GoesOnAfterALongMessageThatIsCompressed) {
  const std::string line(std::size_t{5} << 20, 'x');
  for (const std::string& header :
       {"A: 1\n\n"s, "Content-Length: " + std::to_string(line.size() + 1) + "\n\n"}) {
    const std::string from = kMbox.substr(0, kMbox.find('\n') + 1), message = header + line + "\n";
    pack(path("mbox"), {ARCHIVE_FORMAT_RAW, ARCHIVE_FILTER_GZIP}, {{"mbox", from + message + "\n" + kMbox}});
    EXPECT_TRUE(bodiesIn(path("mbox")) == (Strings{message, "A: 1\n", "A: 2\n"})) << header;
  }
}

TEST_F(Opening, ReadsArchivesOfMessages) {
  const Entries entries = {{"b.EML", "A: b\n"},       {"x/a.eml", "A: a\n"},     {"x/notes.txt", "A: n\n"},
                           {"x/cur/1:2,S", "A: 1\n"}, {"x/tmp/2.eml", "A: t\n"}, {"f.eml", "From x\n"},
                           {"takeout", kMbox}};
  const Packing packings[] = {{ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE},
                              {ARCHIVE_FORMAT_TAR_GNUTAR, ARCHIVE_FILTER_NONE},
                              {ARCHIVE_FORMAT_TAR_PAX_RESTRICTED, ARCHIVE_FILTER_GZIP}};
  for (const Packing& packing : packings) {
    pack(path("archive"), packing, entries);
    Result<MailSource> source = MailSource::open(path("archive"));
    const Strings shown = rest(*source, [](const SourceMessage& m) {
      return std::to_string(m.number) + m.folder + "|" + m.entry + "|" + m.flags.value_or("none") + "|" +
             m.bytes;
    });
    EXPECT_EQ(shown, (Strings{"1|b.EML|none|A: b\n", "2x|x/a.eml|none|A: a\n", "3x/cur|x/cur/1:2,S|S|A: 1\n",
                              "4|f.eml|none|From x\n", "5|takeout|none|A: 1\n", "6|takeout|none|A: 2\n"}))
        << packing.format;
    EXPECT_EQ(source->kind(), MailSource::Kind::archive);
  }
}

TEST_F(Opening, TellsThatAnArchiveIsDamaged) {
  std::string noise;  // does not compress, so that something can be cut off
  for (unsigned i = 1, value = 1; i < 20'000; ++i, value = value * 1'664'525 + 1'013'904'223)
    noise += static_cast<char>('!' + (value >> 24) % 90);
  for (const int filter : kFilters) {
    pack(path("mbox"), {ARCHIVE_FORMAT_RAW, filter}, {{"mbox", kMbox + noise}});
    std::filesystem::resize_file(path("mbox"), 10'000);
    const Strings all = bodiesIn(path("mbox"));
    ASSERT_FALSE(all.empty()) << filter;
    EXPECT_EQ(all.back().find("! cannot be decompressed: "), 0u) << filter;
  }
}

#endif

}  // namespace
}  // namespace mailtree
