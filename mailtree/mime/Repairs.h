// mime/Repairs.h - the repairs that reading a part took, for display.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

#include "mailtree/base/FlagSet.h"

namespace mailtree {

/// A repair made to one part while loading; values are bits.
enum class Repair : std::uint32_t {
  charset = 1,            ///< The declared charset was unknown or could not decode the text; another one did.
  boundaryMissing = 2,    ///< A multipart without a usable boundary: its bytes are its body.
  boundaryUnclosed = 4,   ///< The closing boundary is missing.
  contentType = 8,        ///< The Content-Type was unusable; text/plain was assumed.
  headerSyntax = 16,      ///< Header lines that are not fields, or no blank line after the header.
  loneAttachment = 32,    ///< A message that was only an attachment became a multipart/mixed.
  looseAlternative = 64,  ///< Loose plain text and HTML became a multipart/alternative.
  notHtml = 128,          ///< An attachment typed text/html is a PDF by its file name.
  noCharset = 256,        ///< 8-bit text without a charset; one that decodes it was found.
  utf16 = 512,            ///< Text in utf-16 without a label.
  nulBytes = 1024,        ///< NUL bytes in a utf-8 text became blanks.
  longLines = 2048,       ///< Unencoded HTML with lines too long for mail; it is written encoded.
  uuencoded = 4096,       ///< Uuencoded files in the text became attachments.
  damagedText = 8192,     ///< Byte sequences invalid in the text's charset; shown as U+FFFD.
};

class RepairSet : public FlagSet<Repair> {
 public:
  using FlagSet::add;
  constexpr void add(RepairSet other) noexcept {
    FlagSet::add(other);
    m_damagedSequences = std::max(m_damagedSequences, other.m_damagedSequences);
  }
  constexpr void addDamage(std::size_t sequences) noexcept {
    if (sequences == 0) return;
    add(Repair::damagedText);
    constexpr std::size_t kMax = std::numeric_limits<std::uint32_t>::max();
    m_damagedSequences = static_cast<std::uint32_t>(std::min(sequences, kMax));
  }
  constexpr std::uint32_t damagedSequences() const noexcept { return m_damagedSequences; }

 private:
  std::uint32_t m_damagedSequences = 0;  ///< In the text; those of utf-8 are still in the stored body.
};

struct RepairName {
  Repair repair;
  std::string_view name;
};

/// The text shown for each repair.
inline constexpr RepairName kRepairNames[] = {
    {Repair::charset, "wrong or unknown charset"},
    {Repair::boundaryMissing, "multipart without boundary"},
    {Repair::boundaryUnclosed, "closing boundary missing"},
    {Repair::contentType, "unusable content type"},
    {Repair::headerSyntax, "malformed header"},
    {Repair::loneAttachment, "lone attachment wrapped"},
    {Repair::looseAlternative, "loose alternatives joined"},
    {Repair::noCharset, "no charset declared"},
    {Repair::notHtml, "PDF labelled as HTML"},
    {Repair::utf16, "unlabelled utf-16"},
    {Repair::nulBytes, "NUL bytes"},
    {Repair::longLines, "lines too long for mail"},
    {Repair::uuencoded, "uuencoded files extracted"},
    {Repair::damagedText, "damaged text"},
};

}  // namespace mailtree
