// mime/address/Address.h - email addresses with display names, and lists of them (RFC 5322, 6532).
//
//   Read      Structure first, names decoded afterwards, so that an encoded word can never forge an address.
//             Groups are flattened, comments dropped (one alone becomes the name), routes dropped, quoted
//             strings unquoted; lists as people send them: semicolons, unquoted commas in "Last, First
//             <a@b>", stray dots, missing brackets.
//   Held      Name and address in utf-8, decoded.
//   Written   Names quoted where RFC 5322 asks for it, or as encoded words; CR, LF and NUL never come out.
#pragma once

#include <string_view>
#include <vector>

#include "mailtree/base/Containers.h"
#include "mailtree/base/Object.h"
#include "mailtree/base/XString.h"

namespace mailtree {

class LogBase;

class _svEmailAddress final : public SorvikObject {
 public:
  XString m_name;     ///< Friendly name.
  XString m_address;  ///< local@domain.

  /// A new empty heap object owned by the caller; null when memory ran out.
  static _svEmailAddress* createNewObject();

  /// Reads one address (the first when there are several). False, and nothing changed, when the text holds
  /// none with "@".
  /// @param relaxed accepted for the callers' sake; reading is always tolerant.
  bool loadSingleEmailAddr(const char* text, bool relaxed, LogBase& log);
  /// Appends every address of a header value to `out` as owned _svEmailAddress objects; entries without an
  /// address (a lone group name, an empty entry, several words without "@", a name in quotes) are dropped, a
  /// single ASCII word without "@" is kept as a bare local part. Local parts that need their quotes keep them.
  /// @return how many were appended.
  static int parseAndLoadList(const char* text, ExtPtrArray& out, bool relaxed, LogBase& log);
  static int parseAndLoadList(std::string_view text, ExtPtrArray& out);
  /// The same, and in their places the entries that are a name without an address: the address is empty.
  static int parseAndLoadEntries(std::string_view text, ExtPtrArray& out);

  /// Appends a list of _svEmailAddress as one header value, ", " between entries. An entry reads back as the
  /// one address it is, whatever was set: local parts are quoted where they must be, and what could begin
  /// another address is left out. An entry without an address is written as its name alone, beside others in
  /// quotes or with "<>" so that it is no part of the next one's name; one without both not at all, nor in a
  /// header one whose address is too long for a line.
  /// @param codePage     of encoded words; 0, or one that cannot carry a name, means utf-8.
  /// @param first        always true.
  /// @param forHeader    true: a header value, names as encoded words where needed; false: for display, plain
  /// utf-8.
  /// @param useQ         Q encoding, else B.
  static void emitAsMimeField(const ExtPtrArray& list, int codePage, bool first, bool forHeader, bool useQ,
                              StringBuffer& out, LogBase& log);
  /// Appends one more entry to a header value that emitAsMimeField wrote of several.
  void emitAsNextInMimeField(int codePage, bool useQ, StringBuffer& value, LogBase& log) const;
  void emitSelfAsMimeField(int codePage, bool first, bool forHeader, bool useQ, StringBuffer& out,
                           LogBase& log) const;

  void copyEmailAddress(const _svEmailAddress& other);
  /// Replaces every occurrence of a text in name and address, matching case; an empty one matches nothing.
  void replaceString(const char* a, const char* b);
  void clearEmailAddress();
};

/// Whether a header value reads as just these entries: as many, with these names and addresses.
bool readsAsEntries(std::string_view text, const ExtPtrArray& entries);

}  // namespace mailtree
