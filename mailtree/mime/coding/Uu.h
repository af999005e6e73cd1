// mime/coding/Uu.h - uudecoding: files written as text between "begin MODE NAME" and "end".
//
// Tolerates a missing "end", a missing final zero line, trailing blanks and lines whose length is off; a
// block that does not decode is no block.
#pragma once

#include <cstddef>
#include <string_view>

#include "mailtree/base/Containers.h"
#include "mailtree/base/DataBuffer.h"
#include "mailtree/base/LoadBudget.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

/// Whether a Content-Transfer-Encoding names uuencoding, in any of the ways in which mailers wrote it.
bool isUuTransferEncoding(std::string_view encoding) noexcept;

/// What stands around the blocks of a text.
struct UuSurroundings {
  std::size_t firstBlock = 0;  ///< Position of the first one.
  bool textFollows = false;    ///< There is text between or behind the blocks.
};

class Uu {
 public:
  /// Decodes the first block of the text, appending its bytes to `out`. False, with `out`
  /// untouched, when there is none that decodes.
  bool uu_decode(std::string_view text, DataBuffer& out);
  /// Name of the block that uu_decode decoded last; appended.
  void uu_getFilename(StringBuffer& out) const { out.append(m_filename); }
  /// Decodes every block of the text: one owned DataBuffer in `data` and one string in `names` for each, in
  /// order.
  /// @param around  when not null, receives what stands around the blocks.
  /// @param most    after one more than that the rest is not looked at.
  /// @return how many.
  static int uu_decodeMultipleDb(std::string_view text, ExtPtrArray& data, ExtPtrArraySb& names,
                                 UuSurroundings* around = nullptr, int most = kMaxParts);

 private:
  StringBuffer m_filename;
};

}  // namespace mailtree
