// mime/address/Address.h - email addresses with display names, and lists of them (RFC 5322, 6532).
//
//   Read      Structure first, names decoded afterwards, so an encoded word cannot forge an address. Groups
//             are flattened, comments dropped (a lone one becomes the name), routes dropped, quoted strings
//             unquoted. Common errors are accepted: semicolons, unquoted commas in "Last, First <a@b>", stray
//             dots, missing brackets.
//   Stored    Name and address in utf-8, decoded.
//   Written   Names quoted where RFC 5322 requires it, or as encoded words; never CR, LF or NUL.
#pragma once

#include <string_view>
#include <vector>

#include "mailtree/base/Containers.h"
#include "mailtree/base/Export.h"
#include "mailtree/base/Object.h"
#include "mailtree/base/XString.h"

namespace mailtree {

class LogBase;

class MAILTREE_API _svEmailAddress final : public SorvikObject {
 public:
  XString m_name;     ///< Display name.
  XString m_address;  ///< `local@domain`.

  /// A new empty heap object owned by the caller; null when memory ran out.
  static _svEmailAddress* createNewObject();

  /// Reads one address (the first when there are several). False, with nothing changed,
  /// when the text has no address with "@".
  /// @param relaxed has no effect; reading is always tolerant.
  bool loadSingleEmailAddr(const char* text, bool relaxed, LogBase& log);
  /// Appends every address of a header value to `out` as owned _svEmailAddress objects. Entries
  /// without an address (a lone group name, an empty entry, several words without "@", a name in
  /// quotes) are dropped; a single ASCII word without "@" is kept as a bare local part. Local
  /// parts that need their quotes keep them.
  /// @return the number appended.
  static int parseAndLoadList(const char* text, ExtPtrArray& out, bool relaxed, LogBase& log);
  static int parseAndLoadList(std::string_view text, ExtPtrArray& out);
  /// The same, including the entries that are a name without an address: their address is empty.
  static int parseAndLoadEntries(std::string_view text, ExtPtrArray& out);

  /// Appends a list of _svEmailAddress as one header value, ", " between entries. Every entry reads back as
  /// one address, whatever was set: local parts are quoted where required, and text that could begin another
  /// address is dropped. An entry without an address is written as its name alone; beside others it is quoted
  /// or gets "<>", so it does not join the next name. An entry without both is omitted, and in a header also
  /// one whose address is too long for a line.
  /// @param codePage     of encoded words; 0, or one that cannot represent a name, means utf-8.
  /// @param first        always true.
  /// @param forHeader    true: a header value, names as encoded words where needed;
  ///                     false: for display, plain utf-8.
  /// @param useQ         Q encoding, else B.
  static void emitAsMimeField(const ExtPtrArray& list, int codePage, bool first, bool forHeader, bool useQ,
                              StringBuffer& out, LogBase& log);
  /// Appends another entry to a header value that emitAsMimeField wrote from several.
  void emitAsNextInMimeField(int codePage, bool useQ, StringBuffer& value, LogBase& log) const;
  void emitSelfAsMimeField(int codePage, bool first, bool forHeader, bool useQ, StringBuffer& out,
                           LogBase& log) const;

  void copyEmailAddress(const _svEmailAddress& other);
  /// Replaces every occurrence of a text in name and address, matching case; an empty text matches nothing.
  void replaceString(const char* a, const char* b);
  void clearEmailAddress();
};

/// Whether a header value reads as exactly these entries, with these names and addresses.
MAILTREE_API bool readsAsEntries(std::string_view text, const ExtPtrArray& entries);

}  // namespace mailtree
