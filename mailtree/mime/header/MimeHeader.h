// mime/header/MimeHeader.h - the ordered header-field list of one part.
//
//   Storage    One block of text with offsets: a received header costs one copy of its bytes and one entry
//              per field. A value is unfolded and decoded on demand.
//   Fidelity   An unchanged field is written as received, including its folding (line breaks as CRLF). A
//              field that was set is encoded in the code page of the call and folded at 78.
//   Names      Matched ignoring case. Characters that a field name cannot contain
//              are dropped from a name that is set.
//   Safety     No CR, LF or NUL comes out of a received value or gets into a set one (except in
//              the raw file name that replaceMimeFieldUtf8 allows). A written value cannot end
//              its field early or forge another.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Export.h"
#include "mailtree/base/Object.h"
#include "mailtree/base/StringBuffer.h"
#include "mailtree/mime/Limits.h"

namespace mailtree {

class ClsXml;
class ExtPtrArray;
class LogBase;
class Replacements;
class _svCharset;
class _svContentType;

class MAILTREE_API MimeHeader final : public SorvikObject {
 public:
  MimeHeader() = default;
  MimeHeader(const MimeHeader&) = default;
  MimeHeader(MimeHeader&&) noexcept = default;
  MimeHeader& operator=(const MimeHeader&) = default;
  MimeHeader& operator=(MimeHeader&&) noexcept = default;

  // Loading

  /// Replaces the list with the fields of a header text (any line breaks; it ends at an empty line
  /// or at its end). A line that is not a field stays in the list as a nameless line and is
  /// written back. Replaces getDetectedCP().
  void loadMimeHeaderText(std::string_view text, LogBase& log);
  /// The same, also reporting the charset and filling the parsed Content-Type from the first Content-Type
  /// field; either may be null, and both are unchanged when there is no such field.
  void loadMimeHeaderText(std::string_view text, _svCharset* charsetOut, _svContentType* contentTypeOut,
                          LogBase& log);

  /// Result of parsing a header at the start of a message or part.
  struct Extent {
    std::size_t headerSize;  ///< Offset after the last header line and its line break.
    std::size_t bodyOffset;  ///< Offset of the body.
    bool malformed;          ///< A line is not a field, or the empty line is missing.
    LimitSet limits;         ///< Limits exceeded; fields beyond them belong to the body.
  };
  /// The meaning of empty lines before the first field.
  enum class LeadingEmptyLines {
    skip,      ///< Ignored, when fields follow: something before the message left them.
    endHeader  ///< The first one ends an empty header, as in the parts of a digest (RFC 2046, 5.1.5).
  };
  /// Reads the header at the beginning of `text` (a whole entity) in one pass, replacing the list. A line
  /// that is not a field is kept as a nameless line when a field follows before the next empty line;
  /// otherwise the body begins with it.
  Extent loadFromEntity(std::string_view text, LeadingEmptyLines emptyLines = LeadingEmptyLines::skip);

  /// Rewrites every received field that holds 8-bit bytes as a final value with encoded words,
  /// decoded by the code page of the header, so its lines are ASCII when written. Unchanged: lines
  /// that are not fields, address lists that would lose an address, utf-8 addresses and identifiers
  /// (RFC 6532). No work for an ASCII header.
  void encode8bitFields();

  // Reading

  /// Value of the first field of that name, unfolded and decoded to utf-8, replacing `out`; false, with `out`
  /// cleared, when absent.
  bool getMimeFieldUtf8(const char* name, StringBuffer& out, LogBase& log) const;
  bool getMimeFieldUtf8_2(const char* name, unsigned nameLength, StringBuffer& out, LogBase& log) const;
  int getNumFields() const noexcept { return static_cast<int>(m_fields.size()); }
  bool getFieldNameUtf8(int index, StringBuffer& out, LogBase& log) const;
  bool getFieldValueUtf8(int index, StringBuffer& out, LogBase& log) const;
  /// A parameter of the first field of that name, decoded to utf-8, replacing `out`; false, with `out`
  /// cleared, when field or parameter is absent.
  bool getSubFieldUtf8(const char* fieldName, const char* attrName, StringBuffer& out, LogBase& log) const;
  bool hasField(const char* name, LogBase& log) const;
  /// Whether a field of that name has a decoded value matching the wildcard pattern.
  bool hasHeaderMatchingUtf8(const char* name, const char* pattern, bool caseSensitive, LogBase& log) const;
  /// Code page of the 8-bit text in the received header: 65001 when it is valid utf-8, else declared or
  /// detected; 0 when there is none.
  int getDetectedCP() const noexcept { return m_detectedCodePage; }
  bool has8bit() const noexcept { return m_has8bit; }  ///< Whether the received header has 8-bit bytes.

  /// Index of the first field of that name at or after `from`, -1 when absent.
  int findField(std::string_view name, int from = 0) const noexcept {
    return (m_nameSizes & sizeBit(name.size())) != 0 ? search(name, from) : -1;
  }
  /// Index of the last field of that name, also where it is empty; -1 when absent.
  int findLastField(std::string_view name) const noexcept;
  std::string_view fieldName(int index) const noexcept;
  /// Whether the field is as received; false when it was set since, or the index is out of range.
  bool isReceived(int index) const noexcept;
  /// The stored value without the line break: a received one folded, encoded, trimmed; a set one as given.
  std::string_view rawValue(int index) const noexcept;
  /// The value unfolded, not decoded (8-bit bytes as utf-8); an empty view when the index is -1. `scratch`
  /// holds it when it had to be changed. Structured fields are parsed from this.
  std::string_view unfoldedValue(int index, std::string& scratch) const;
  /// The value unfolded and decoded.
  std::string decodedValue(int index) const;

  // Changing

  /// Sets the first field of that name, in the caller's letter case, or appends a new one. A null value
  /// removes every field of that name. A Content-Disposition may end in `; filename="..."` with any text
  /// between the quotes, unescaped: such a name stays in the list as given and is made safe when written.
  void replaceMimeFieldUtf8(const char* name, const char* value, LogBase& log);
  /// The same for a value that follows the grammar of the field, Content-Disposition included.
  /// @param asGiven   the value is final: it is only folded when written.
  /// @param ordinary  false for Content-Type, whose ASCII values are always written unchanged.
  void replaceMimeFieldUtf8_a(const char* name, const char* value, bool asGiven, bool ordinary, LogBase& log);
  /// Appends a field even if one of that name exists.
  void addMimeField(const char* name, const char* value, bool asGiven, LogBase& log);
  void removeMimeField(const char* name, bool all);
  /// Removes every field whose name begins with the prefix, ignoring case; none for an empty prefix.
  void removeHeadersBeginningWith(const char* prefix);
  /// Replaces the fields whose names begin with the prefix by those of another list, unchanged.
  void takeFieldsBeginningWith(const char* prefix, const MimeHeader& from);
  void copyMimeHeaderFrom(const MimeHeader& other, LogBase& log);
  /// Makes an exact copy of another list, including its options. False, and unchanged, when memory ran out.
  bool cloneMimeHeader(const MimeHeader& other);
  void clear();
  /// Replaces a literal text in every decoded value, matching case; names stay. A
  /// field without it keeps its received bytes.
  /// @return whether a field changed.
  bool replacePattern(const char* key, const char* value);
  /// The same for a whole list, each value decoded once. @return the indexes of the fields that changed.
  std::vector<int> replacePatterns(const Replacements& replacements);
  /// Joins all fields of that name into the first, separated by commas, and removes the
  /// others. Does nothing for fewer than two.
  void joinFields(std::string_view name);

  // Writing

  /// Appends the field lines separated by CRLF, none after the last.
  /// @param prefix    fields whose names begin with it (ignoring case) are omitted; null:
  ///                  none. "SVZ-" fields, and empty Content-Type and
  ///                  Content-Transfer-Encoding fields, are always omitted.
  /// @param codePage  encodes set values; utf-8 where it is 0 or cannot represent a value.
  /// @param isTop     false: a list that was never loaded from text omits the fields that mean nothing in a
  ///                  body part (MIME-Version, Date, Message-ID, X-Priority).
  void getMimeHeader(StringBuffer& out, const char* prefix, int codePage, bool isTop, LogBase& log) const;
  /// Estimated bytes of the written header.
  unsigned getMimeHeaderSize() const noexcept;
  unsigned getSendCost() const noexcept { return getMimeHeaderSize(); }
  bool wasLoadedFromText() const noexcept { return m_loadedFromText; }
  /// Adds the fields to an XML element, one child each, named by the field in lower case, with its decoded
  /// value. An address field holds a pair of `addr` and `name` for each address (the name may be empty), or
  /// its text when it has no address. All Bcc addresses, of the fields and of the list, are in one `bcc`,
  /// without duplicates. Lines without a name and "SVZ-" fields are omitted. (mime/header/MimeHeaderXml.cpp)
  /// @param codePage      has no effect: fields are decoded by their own labels.
  /// @param bccAddresses  _svEmailAddress; may be null.
  /// @return false when memory ran out.
  bool mimeHeaderToXml(ClsXml& element, int codePage, ExtPtrArray* bccAddresses, LogBase& log) const;

  std::size_t heapUsage() const override { return m_block.capacity() + m_fields.capacity() * sizeof(Field); }

  /// Folds set values longer than a line. Every email node switches it on.
  bool m_foldLongValues = false;
  /// Omits the fields that only the sender may see when the list is written: Bcc and Resent-Bcc.
  bool m_omitsBcc = false;

 private:
  enum class Kind : std::uint8_t {
    received,     ///< Written as it is in the block.
    set,          ///< utf-8, encoded and folded when written.
    rawFilename,  ///< The same, with an unescaped quoted file name at its end.
    asGiven,      ///< A final value, folded when written.
    malformed     ///< A line without a field name; the name is empty.
  };
  /// One field: the offsets of its name and value in the block. The value excludes the last line break and
  /// includes the blanks after the colon, so a received line is written back from the name to the end of the
  /// value in one piece.
  struct Field {
    std::uint32_t nameOffset;
    std::uint32_t nameSize;
    std::uint32_t valueOffset;
    std::uint32_t valueSize;
    Kind kind;

    std::size_t end() const noexcept { return std::size_t{valueOffset} + valueSize; }
    std::size_t lineSize() const noexcept { return end() - nameOffset; }
  };
  class Reader;

  static constexpr std::uint64_t sizeBit(std::size_t nameSize) noexcept {
    return std::uint64_t{1} << (nameSize < 63 ? nameSize : 63);
  }
  int search(std::string_view name, int from) const noexcept;
  const Field* fieldAt(int index) const noexcept;
  std::string_view nameOf(const Field& field) const noexcept;
  std::string_view valueOf(const Field& field) const noexcept;
  std::string_view lineOf(const Field& field) const noexcept;

  std::string_view unfolded(const Field& field, std::string& scratch) const;
  void takeFields(const Reader& reader, std::string_view text);
  void detectCodePageOf8bit();
  int declaredCodePage() const;
  int codePageOfValue(std::string_view raw) const noexcept;

  void storeField(const char* name, const char* value, Kind kind);
  void append(std::string_view name, std::string_view value, Kind kind);
  bool replaceInField(Field& entry, const Replacements& replacements);
  bool storeField(Field& entry, std::string_view name, std::string_view value, Kind kind);
  void compact();

  bool isWritten(const Field& field, std::string_view prefix, bool isTop) const noexcept;
  static bool follows(const Field& field, const Field& next) noexcept;
  void writeField(const Field& field, int codePage, std::string& out) const;
  void writeAsReceived(const Field& field, std::string& out) const;
  void writeMalformedLine(const Field& field, bool isFirst, bool isLast, std::string& out) const;

  std::string m_block;
  std::vector<Field> m_fields;
  /// Bit n is set when a name of n bytes may be among the fields: rules out most lookups.
  std::uint64_t m_nameSizes = 0;
  std::size_t m_unusedBytes = 0;  ///< Of the block: replaced or removed lines.
  int m_detectedCodePage = 0;
  bool m_loadedFromText = false;
  bool m_has8bit = false;
  bool m_hasNonCrlfBreaks = false;  ///< Received fields contain line breaks other than CRLF.
};

}  // namespace mailtree
