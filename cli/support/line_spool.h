// cli/support/line_spool.h - lines that wait until they can be printed in another order. Once there are more
// than a few, they wait in a temporary file.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Result.h"

namespace mailtree::cli {

class LineSpool {
 public:
  /// Where a line is.
  struct Place {
    std::uint32_t block, at, size;
  };

  LineSpool() = default;
  LineSpool(const LineSpool&) = delete;
  LineSpool& operator=(const LineSpool&) = delete;
  ~LineSpool();

  Place add(std::string_view line);
  /// Fails when the temporary file cannot be read.
  Result<void> read(const Place& place, std::string& line) const;

 private:
  /// Lines one after the other: in memory, or in the file when there is nothing in memory.
  struct Block {
    std::string lines;
    std::uint64_t fileOffset = 0;
  };

  void addBlock();
  bool writeToFile(Block& block);

  std::vector<Block> m_blocks;
  std::uint64_t m_fileSize = 0;
  int m_file = -1;
  bool m_isFull = false;  ///< The file takes no more, or there can be none: further lines stay in memory.
};

}  // namespace mailtree::cli
