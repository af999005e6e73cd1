// mime/MimeHeader.h - the ordered header-field list of one part.
//
//   Storage    One block of text with offsets: a received header costs one copy of its bytes and one row per field. A value
//              is unfolded and decoded when somebody asks for it.
//   Fidelity   A field that nobody changed is written as it was received, folding included (line ends as CRLF). A field
//              that was set is encoded for the code page at hand and folded at 78.
//   Names      Matched without regard to case.
//   Safety     CR, LF and NUL never get into a value; what is written cannot end a field early or forge another.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mailtree/base/Object.h"
#include "mailtree/base/StringBuffer.h"
#include "mailtree/mime/Limits.h"

namespace mailtree {

class LogBase;
class _svCharset;
class _svContentType;

class MimeHeader final : public SorvikObject {
 public:
  MimeHeader() = default;
  MimeHeader(const MimeHeader&) = default;
  MimeHeader(MimeHeader&&) noexcept = default;
  MimeHeader& operator=(const MimeHeader&) = default;
  MimeHeader& operator=(MimeHeader&&) noexcept = default;

  // Loading

  /// Replaces the list by the fields of a header text (line ends of any kind; it ends at an empty line or at its end).
  /// What is not a field stays in the list as a nameless line and is written back. Replaces getDetectedCP().
  void loadMimeHeaderText(std::string_view text, LogBase& log);
  /// The same, also reporting the charset and filling the parsed Content-Type from the first Content-Type field; either may
  /// be null.
  void loadMimeHeaderText(std::string_view text, _svCharset* charsetOut, _svContentType* contentTypeOut, LogBase& log);

  /// What the parser tells about a header at the start of a message or part.
  struct Extent {
    std::size_t headerSize;    ///< Bytes of header lines, the empty line not counted.
    std::size_t bodyOffset;    ///< Where the body begins.
    bool malformed;            ///< A line was no field, or the empty line is missing.
    LimitSet limits;           ///< Limits met; fields beyond them belong to the body.
  };
  /// Reads the header that `text` (a whole entity) begins with, in one pass, replacing the list.
  Extent loadFromEntity(std::string_view text);

  /// Rewrites every received field that holds 8-bit bytes as set text with encoded words, by the detected code page, so that
  /// the whole list is ASCII when written. No work for an ASCII header.
  void encode8bitFields();

  // Reading

  /// Value of the first field of that name, unfolded and decoded to utf-8, replacing `out`; false, with `out` emptied, when
  /// absent.
  bool getMimeFieldUtf8(const char* name, StringBuffer& out, LogBase& log) const;
  bool getMimeFieldUtf8_2(const char* name, unsigned nameLength, StringBuffer& out, LogBase& log) const;
  int getNumFields() const noexcept { return static_cast<int>(m_fields.size()); }
  bool getFieldNameUtf8(int index, StringBuffer& out, LogBase& log) const;
  bool getFieldValueUtf8(int index, StringBuffer& out, LogBase& log) const;
  bool hasField(const char* name, LogBase& log) const;
  /// Whether a field of that name has a decoded value matching the wildcard pattern.
  bool hasHeaderMatchingUtf8(const char* name, const char* pattern, bool caseSensitive, LogBase& log) const;
  /// Code page of the 8-bit text in the received header: 65001 when it is valid utf-8, else declared or detected; 0: none.
  int getDetectedCP() const noexcept { return m_detectedCodePage; }

  /// Index of the first field of that name at or after `from`, -1 when absent.
  int findField(std::string_view name, int from = 0) const noexcept;
  std::string_view fieldName(int index) const noexcept;
  /// The value as it stands, folded and encoded, without the line end; trimmed.
  std::string_view rawValue(int index) const noexcept;
  /// The value unfolded, not decoded (8-bit bytes as utf-8); empty view when the index is -1. `scratch` holds it when it had
  /// to be changed. This is what structured fields are parsed from.
  std::string_view unfoldedValue(int index, std::string& scratch) const;
  /// The value unfolded and decoded.
  std::string decodedValue(int index) const;

  // Changing

  /// Sets the first field of that name, in the caller's letter case, or appends a new one. A null value removes it.
  void replaceMimeFieldUtf8(const char* name, const char* value, LogBase& log);
  /// @param asGiven   the caller's own flag: the value is a finished header value, written as it stands.
  /// @param ordinary  false for Content-Type, whose value is always written as it stands.
  void replaceMimeFieldUtf8_a(const char* name, const char* value, bool asGiven, bool ordinary, LogBase& log);
  /// Appends a field even if one of that name exists.
  void addMimeField(const char* name, const char* value, bool asGiven, LogBase& log);
  void removeMimeField(const char* name, bool all);
  void copyMimeHeaderFrom(const MimeHeader& other, LogBase& log);
  void clear();
  /// Joins all fields of that name into the first, ", " between the values; the others go. Nothing for fewer than two.
  void joinFields(std::string_view name);

  // Writing

  /// Appends the field lines separated by CRLF, none after the last.
  /// @param prefix    fields whose names begin with it (ignoring case) are left out; null: none. "SVZ-" fields, and empty
  ///                  Content-Type and Content-Transfer-Encoding fields, are always left out.
  /// @param codePage  in which set values are encoded; utf-8 where it is 0 or cannot carry a value.
  /// @param isTop     false: a list that was never loaded from text leaves out what means nothing in a body part
  ///                  (MIME-Version, Date, Message-ID, X-Priority).
  void getMimeHeader(StringBuffer& out, const char* prefix, int codePage, bool isTop, LogBase& log) const;
  /// Estimated bytes of the written header.
  unsigned getMimeHeaderSize() const noexcept;
  unsigned getSendCost() const noexcept { return getMimeHeaderSize(); }
  bool wasLoadedFromText() const noexcept { return m_loadedFromText; }

  std::size_t heapUsage() const override { return m_block.capacity() + m_fields.capacity() * sizeof(Field); }

  /// The option every email node switches on: set values longer than a line are folded.
  bool m_foldLongValues = false;

 private:
  enum class Kind : std::uint8_t {
    received,  ///< Written as it stands in the block.
    set,       ///< utf-8, encoded and folded when written.
    asGiven,   ///< A finished value, folded when written.
    noField    ///< A line without a colon; name empty.
  };
  /// One row: where name and value stand in the block. `value` excludes the line break and the blanks after the colon are
  /// part of the line, so that a received line is written back from `name` to the end of `value` in one piece.
  struct Field {
    std::uint32_t nameOffset;
    std::uint32_t nameSize;
    std::uint32_t valueOffset;
    std::uint32_t valueSize;
    Kind kind;
  };

  void setField(int index, std::string_view name, std::string_view value, Kind kind);
  void appendField(std::string_view name, std::string_view value, Kind kind);

  std::string m_block;
  std::vector<Field> m_fields;
  int m_detectedCodePage = 0;
  bool m_loadedFromText = false;
  bool m_has8bit = false;
};

}  // namespace mailtree
