// Splitting an mbox, and writing what came out of it.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "fuzz/target.h"
#include "mailtree/store/MboxReader.h"
#include "mailtree/store/mbox_quoting.h"

using namespace mailtree;

namespace {

struct Piece {
  std::uint64_t offset, length;
  std::string bytes;
  bool operator==(const Piece&) const = default;
};
using Pieces = std::vector<Piece>;

/// The bytes as a file without a name.
std::shared_ptr<FileReader> fileOf(std::string_view text) {
  Descriptor file(::memfd_create("mbox", MFD_CLOEXEC));
  const bool isWritten =
      file && ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
  fuzz::require(isWritten, "there is memory for a file");
  return std::make_shared<FileReader>(std::move(file), "mbox", text.size());
}

class TextStream final : public ByteStream {
 public:
  explicit TextStream(std::string_view text) : m_text(text) {}
  Result<std::size_t> read(char* out, std::size_t size) override {
    const std::size_t got = m_text.copy(out, size);
    m_text.remove_prefix(got);
    return got;
  }

 private:
  std::string_view m_text;
};

Pieces piecesOf(MboxReader& reader) {
  Pieces pieces;
  SourceMessage message;
  for (;;) {
    const Result<bool> given = reader.next(message);
    fuzz::require(given.has_value(), "what is there can be read");
    if (!*given) return pieces;
    fuzz::require(message.hasBytes, "no message is too large");
    pieces.push_back({message.offset, message.length, message.bytes});
  }
}

void begin(MboxReader& reader) { fuzz::require(reader.begin().has_value(), "what is there can be opened"); }

Pieces whole(std::string_view text, std::size_t window) {
  MboxReader reader(fileOf(text), {.window = window});
  begin(reader);
  return piecesOf(reader);
}

Pieces streamed(std::string_view text, std::size_t window) {
  MboxReader reader(std::make_unique<TextStream>(text), "mbox", {.window = window});
  begin(reader);
  return piecesOf(reader);
}

Pieces parted(std::string_view text, std::uint64_t parts) {
  Pieces all;
  for (std::uint64_t part = 0; part < parts; ++part) {
    MboxReader reader(fileOf(text), {.window = 1000});
    begin(reader);
    const Result<bool> taken = reader.takeRange(part, parts);
    fuzz::require(taken.has_value(), "a part can be taken");
    if (!*taken && part > 0) break;
    std::ranges::move(piecesOf(reader), std::back_inserter(all));
  }
  return all;
}

void coverInput(std::string_view text, const Pieces& pieces) {
  std::uint64_t end = pieces.empty() ? text.size() : pieces.front().offset;
  const bool onlyLineEnds = text.substr(0, end).find_first_not_of("\r\n") == text.npos;
  fuzz::require(onlyLineEnds, "only line ends are before the first message");
  for (const Piece& piece : pieces) {
    fuzz::require(piece.offset == end, "messages follow each other without gaps");
    end += piece.length;
  }
  fuzz::require(end == text.size(), "the last message ends with the file");
}

void writeBack(const Pieces& pieces) {
  std::string mbox;
  for (const Piece& piece : pieces) appendMboxEntry(piece.bytes, "a@b.c", {}, mbox);
  const Pieces again = whole(mbox, 1000);
  const auto sameBytes = [](const Piece& a, const Piece& b) { return a.bytes == b.bytes; };
  fuzz::require(std::ranges::equal(pieces, again, sameBytes), "what is written is read back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::textOf(data, size);
  const Pieces pieces = whole(text, std::size_t{1} << 16);
  coverInput(text, pieces);
  for (const std::size_t window : {1, 13, 1201}) {
    fuzz::require(whole(text, window) == pieces, "the window does not matter");
    fuzz::require(streamed(text, window) == pieces, "a stream gives the same");
  }
  for (const std::uint64_t parts : {2, 5})
    fuzz::require(parted(text, parts) == pieces, "parts are disjoint and complete");
  writeBack(pieces);
  return 0;
}
