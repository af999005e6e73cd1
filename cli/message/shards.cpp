#include "cli/message/shards.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>

namespace mailtree::cli {
namespace {

namespace fs = std::filesystem;
using Kind = MailSource::Kind;

/// What a file in a folder counts for, beside bytes of mailboxes. Any number gives parts that fit together.
constexpr std::uint64_t kBytesForName = 16 << 10;

/// A range of one argument: of bytes, of messages, or all.
struct Piece {
  enum class Unit { whole, bytes, messages };

  std::string argument;
  Unit unit = Unit::whole;
  std::uint64_t begin = 0, end = 0;
};

std::optional<std::uint64_t> numberIn(std::string_view text) {
  std::uint64_t number = 0;
  const auto [last, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || last != text.data() + text.size()) return std::nullopt;
  return number;
}

std::optional<std::uint64_t> numberInEnvironment(const char* name) {
  const char* const value = std::getenv(name);
  return value ? numberIn(value) : std::nullopt;
}

/// Some tasks of an array that are submitted again look like an array of their own: the numbers tell the
/// parts only when they begin at 0 or 1 and have no gaps.
Result<Shard> shardOfWholeArray(std::uint64_t id) {
  const std::uint64_t first = numberInEnvironment("SLURM_ARRAY_TASK_MIN").value_or(1);
  const std::uint64_t count = numberInEnvironment("SLURM_ARRAY_TASK_COUNT").value_or(0);
  const std::uint64_t last = numberInEnvironment("SLURM_ARRAY_TASK_MAX").value_or(first + count - 1);
  if (count == 0 || first > 1 || id < first || last + 1 != first + count)
    return Error{ErrorCode::badValue, "these tasks are no whole array of 1 to N: say auto/N", {}};
  return Shard{id - first + 1, count};
}

Result<Shard> shardOfEnvironment(std::optional<std::uint64_t> of) {
  if (const auto id = numberInEnvironment("SLURM_ARRAY_TASK_ID")) {
    if (of) return Shard{*id, *of};
    return shardOfWholeArray(*id);
  }
  const auto job = numberInEnvironment("PARALLEL_SEQ");
  if (job && of) return Shard{*job, *of};
  if (job) return Error{ErrorCode::badValue, "PARALLEL_SEQ does not tell of how many: say auto/N", {}};
  return Error{ErrorCode::badValue, "neither SLURM_ARRAY_TASK_ID nor PARALLEL_SEQ is set", {}};
}

std::uint64_t sizeOf(const std::string& path) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  return error ? 1 : std::max<std::uintmax_t>(size, 1);
}

std::uint64_t countIn(const std::string& argument) {
  Sources sources(SourceArguments{{argument}, {}, {}});
  SourceMessage message;
  std::uint64_t count = 0;
  while (sources.next(message)) ++count;
  return count;
}

/// An argument as a whole; the end is what it counts for.
Result<Piece> wholeOf(const std::string& argument) {
  if (argument == "-") return Error{ErrorCode::badValue, "standard input has no parts", {}};
  std::error_code ignored;
  const fs::file_status status = fs::status(argument, ignored);
  if (fs::exists(status) && !fs::is_regular_file(status) && !fs::is_directory(status))
    return Error{ErrorCode::badValue, "is not a file or folder, so it has no parts", argument};
  Piece piece{argument};
  piece.end = sizeOf(argument);
  Result<MailSource> source = MailSource::open(argument);
  if (!source) return piece;  // one message of a mailbox, or an error when it is read
  const Kind kind = source->kind();
  if (kind == Kind::maildir || kind == Kind::mh || kind == Kind::folder) {
    piece.unit = Piece::Unit::messages;
    piece.end = std::max<std::uint64_t>(1, countIn(argument)) * kBytesForName;
  } else if (source->takeBytes(0, piece.end)) {
    piece.unit = Piece::Unit::bytes;
  }
  return piece;
}

/// number * part / parts, without a product that is too large.
std::uint64_t fractionOf(std::uint64_t number, std::uint64_t part, std::uint64_t parts) {
  return number / parts * part + number % parts * part / parts;
}

/// The range of a whole argument that is within [begin, end), both counted from its beginning.
std::optional<Piece> within(Piece piece, std::uint64_t begin, std::uint64_t end) {
  switch (piece.unit) {
    case Piece::Unit::whole:
      if (begin > 0 || end == 0) return std::nullopt;
      return piece;
    case Piece::Unit::bytes:
      piece.begin = begin;
      piece.end = std::min(end, piece.end);
      break;
    case Piece::Unit::messages:
      piece.begin = (begin + kBytesForName - 1) / kBytesForName;
      piece.end = (std::min(end, piece.end) + kBytesForName - 1) / kBytesForName;
      break;
  }
  if (piece.begin >= piece.end) return std::nullopt;
  return piece;
}

Result<std::vector<Piece>> piecesOf(const Shard& shard, const std::vector<std::string>& arguments) {
  std::vector<Piece> wholes;
  std::uint64_t total = 0;
  for (const std::string& argument : arguments) {
    Result<Piece> whole = wholeOf(argument);
    if (!whole) return std::move(whole).error();
    total += whole->end;
    wholes.push_back(*std::move(whole));
  }
  const std::uint64_t begin = fractionOf(total, shard.number - 1, shard.of),
                      end = fractionOf(total, shard.number, shard.of);
  std::vector<Piece> pieces;
  std::uint64_t at = 0;
  for (Piece& whole : wholes) {
    const std::uint64_t next = at + whole.end;
    if (next > begin && at < end)
      if (auto piece = within(std::move(whole), begin > at ? begin - at : 0, end - at))
        pieces.push_back(*std::move(piece));
    at = next;
  }
  return pieces;
}

/// Reads one piece after the other.
class PieceReader {
 public:
  explicit PieceReader(std::vector<Piece> pieces) : m_pieces(std::move(pieces)) {}

  bool next(SourceMessage& message) {
    for (; m_piece < m_pieces.size(); ++m_piece) {
      const Piece& piece = m_pieces[m_piece];
      if (piece.unit == Piece::Unit::bytes ? nextInRange(piece, message) : nextOfAll(piece, message))
        return true;
      m_source.reset();
      m_sources.reset();
    }
    return false;
  }

 private:
  bool nextOfAll(const Piece& piece, SourceMessage& message) {
    if (!m_sources) {
      m_sources = std::make_unique<Sources>(SourceArguments{{piece.argument}, {}, {}});
      m_given = 0;
    }
    for (; piece.unit == Piece::Unit::messages && m_given < piece.begin; ++m_given)
      if (!m_sources->next(message)) return false;
    if (piece.unit == Piece::Unit::messages && m_given >= piece.end) return false;
    ++m_given;
    return m_sources->next(message);
  }

  bool nextInRange(const Piece& piece, SourceMessage& message) {
    std::optional<Error> error;
    if (!m_source) {
      Result<MailSource> opened = MailSource::open(piece.argument);
      Result<void> taken = opened ? opened->takeBytes(piece.begin, piece.end) : Result<void>(opened.error());
      if (taken)
        m_source.emplace(*std::move(opened));
      else
        error = taken.error();
    }
    if (m_source) {
      if (m_source->next(message)) return true;
      if (m_source->error() && !m_hasFailed) error = *m_source->error();
    }
    if (!error || std::exchange(m_hasFailed, true)) return m_hasFailed = false;
    message = {};
    message.path = piece.argument;
    message.error = std::move(error);
    return true;
  }

  std::vector<Piece> m_pieces;
  std::size_t m_piece = 0;
  std::unique_ptr<Sources> m_sources;
  std::optional<MailSource> m_source;
  std::uint64_t m_given = 0;
  bool m_hasFailed = false;
};

}  // namespace

Result<Shard> shardOf(const std::string& text) {
  const std::size_t slash = text.find('/');
  const bool hasSlash = slash != std::string::npos;
  const std::optional<std::uint64_t> of = numberIn(hasSlash ? std::string_view(text).substr(slash + 1) : "");
  const Error wrong{ErrorCode::badValue, "must be K/N, auto or auto/N", {}};
  if (hasSlash && !of) return wrong;
  const std::string first = text.substr(0, slash);
  Result<Shard> shard = wrong;
  if (first == "auto")
    shard = shardOfEnvironment(of);
  else if (const auto number = numberIn(first); number && of)
    shard = Shard{*number, *of};
  constexpr std::uint64_t kMost = 1'000'000'000;
  if (shard && (shard->number < 1 || shard->number > shard->of || shard->of > kMost))
    return Error{ErrorCode::badValue, "there is no such part: they are counted from 1", {}};
  return shard;
}

Result<MessageFeed> feedOf(const Shard& shard, const SourceArguments& arguments) {
  if (shard.isWhole()) {
    auto sources = std::make_shared<Sources>(arguments);
    return MessageFeed([sources](SourceMessage& message) { return sources->next(message); });
  }
  Result<std::vector<std::string>> paths = Sources::argumentsIn(arguments);
  if (!paths) return std::move(paths).error();
  Result<std::vector<Piece>> pieces = piecesOf(shard, *paths);
  if (!pieces) return std::move(pieces).error();
  auto reader = std::make_shared<PieceReader>(*std::move(pieces));
  return MessageFeed([reader](SourceMessage& message) { return reader->next(message); });
}

}  // namespace mailtree::cli
