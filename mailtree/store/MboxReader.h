// store/MboxReader.h - splits an mbox into its messages. Private.
#pragma once

#include <memory>
#include <string>

#include "mailtree/store/ReadWindow.h"
#include "mailtree/store/SourceReader.h"
#include "mailtree/store/mbox_separator.h"

namespace mailtree {

/// Reads an mbox, or a single message: a text that does not begin with "From ". An empty one has no messages.
class MboxReader final : public SourceReader {
 public:
  MboxReader(std::shared_ptr<FileReader> file, const SourceOptions& options);
  MboxReader(std::unique_ptr<ByteStream> stream, std::string path, const SourceOptions& options);
  /// Looks at the first bytes. Must be called once, before anything else.
  /// @param isMessage  it is known to be one message, also when it begins with "From ".
  Result<void> begin(bool isMessage = false);

  /// An error is one of reading, so nothing follows.
  MailSource::Kind kind() const noexcept override;
  Result<bool> next(SourceMessage& message) override { return advance(&message); }
  Result<bool> pass() override { return advance(nullptr); }
  Result<void> seekOffset(std::uint64_t offset) override;
  Result<bool> takeRange(std::uint64_t part, std::uint64_t parts) override;
  Result<bool> takeBytes(std::uint64_t begin, std::uint64_t end) override;

 private:
  /// A message without its separator, and where the next one begins.
  struct Lengths {
    std::uint64_t begin = 0, end = 0, next = 0;
    bool isExact = false;  ///< By its Content-Length: every byte belongs to it, and lines are as they are.
  };
  /// Bytes around a position.
  struct Surroundings {
    bool isThere = false;  ///< The position is within the file.
    std::string_view text{};
    std::size_t before = 0;  ///< How many of them are before it.
  };

  /// A separator that was found, for when its message is given.
  struct Found {
    std::uint64_t at = ~std::uint64_t{0};
    std::size_t senderAt = 0;  ///< In the line; the text that it views moves.
    Separator separator{};
  };

  Result<bool> advance(SourceMessage* message);
  std::optional<Separator> separatorHere() const;
  bool isEnd(std::uint64_t at) const noexcept;
  Result<bool> giveWhole(SourceMessage* message);
  Result<Lengths> findContent(std::uint64_t begin, const Separator& separator);
  Result<Lengths> contentByLength(std::uint64_t begin);
  Result<std::uint64_t> findSeparator(std::uint64_t from, std::uint64_t message);
  Result<void> jumpTo(std::uint64_t offset);
  Result<void> passTo(std::uint64_t offset);
  Result<bool> isSeparatorAt(std::uint64_t line, std::uint64_t keep);
  Result<Surroundings> surroundings(std::uint64_t at, std::uint64_t keep);
  Result<void> copyBytes(const Lengths& content, SourceMessage& message);
  Result<void> copy(const Lengths& content, const Separator& separator, SourceMessage& message);
  std::uint64_t keepFrom(std::uint64_t message, std::uint64_t searched) const noexcept;

  std::string m_path;
  SourceOptions m_options;
  ReadWindow m_window;
  std::string m_judged;  ///< Bytes read apart from the window.
  Found m_found;
  MailSource::Kind m_kind = MailSource::Kind::mbox;
  std::uint64_t m_at = 0;                        ///< Where the next message begins.
  std::uint64_t m_first = 0;                     ///< Where the first one of the file does.
  std::uint64_t m_rangeEnd = ~std::uint64_t{0};  ///< Messages from there on belong to others.
  std::uint64_t m_number = 0;                    ///< Of the last message.
  bool m_isCounting = true;
  bool m_usesLengths = false;
  bool m_hasQuoted = false;  ///< There may be quoted lines in the message that was found last.
};

}  // namespace mailtree
