// mime/coding/Uu.h - uudecoding: files written as text between "begin MODE NAME" and "end".
//
// Tolerates a missing "end", a missing final zero line, trailing blanks and lines with a wrong length. Text
// that does not decode is not a block.
#pragma once

#include <cstddef>
#include <string_view>

#include "mailtree/base/Containers.h"
#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/Export.h"
#include "mailtree/base/LoadBudget.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

/// Whether a Content-Transfer-Encoding names uuencoding, under any of its names.
MAILTREE_API bool isUuTransferEncoding(std::string_view encoding) noexcept;

/// The text around the blocks.
struct UuSurroundings {
  std::size_t firstBlock = 0;  ///< Position of the first one.
  bool textFollows = false;    ///< There is text between or after the blocks.
};

class MAILTREE_API Uu {
 public:
  /// Decodes the first block of the text, appending its bytes to `out`. False, with
  /// `out` unchanged, when no block decodes.
  bool uu_decode(std::string_view text, DataBuffer& out);
  /// Appends the name of the block that uu_decode decoded last.
  void uu_getFilename(StringBuffer& out) const { out.append(m_filename); }
  /// Decodes every block of the text: one owned DataBuffer in `data` and one string in
  /// `names` for each, in order.
  /// @param around  when not null, receives the text around the blocks.
  /// @param most    stops after one block more than this.
  /// @return the number of blocks.
  static int uu_decodeMultipleDb(std::string_view text, ExtPtrArray& data, ExtPtrArraySb& names,
                                 UuSurroundings* around = nullptr, int most = kMaxParts);

 private:
  StringBuffer m_filename;
};

}  // namespace mailtree
