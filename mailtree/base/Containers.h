// base/Containers.h - arrays of object pointers, arrays of strings, a queue, a pair.
//
//   Ownership  The destructor of an ExtPtrArray deletes only what appendObject added. insertAt and appendPtr
//              lend; removeAt disowns; removeAllObjects deletes everything, lent or owned.
#pragma once

#include <cstddef>
#include <deque>
#include <string_view>
#include <vector>

#include "mailtree/base/Export.h"
#include "mailtree/base/Object.h"
#include "mailtree/base/StringBuffer.h"

namespace mailtree {

class MAILTREE_API ExtPtrArray final : public SorvikObject {
 public:
  ExtPtrArray() noexcept = default;
  ExtPtrArray(const ExtPtrArray&) = delete;
  ExtPtrArray& operator=(const ExtPtrArray&) = delete;
  ~ExtPtrArray() override;

  /// Appends and owns. False when memory ran out; the object then still belongs to the caller. Null is
  /// refused.
  bool appendObject(SorvikObject* object);
  /// Appends a borrowed pointer, null included.
  bool appendPtr(SorvikObject* object);
  /// Inserts a borrowed pointer before `index`; an index beyond the end, or a negative one, appends.
  bool insertAt(int index, SorvikObject* object);
  /// Room for `count` more entries; false when memory ran out.
  bool reserveMore(int count);
  /// Null when out of range.
  SorvikObject* elementAt(int index) const noexcept;
  int getSize() const noexcept { return static_cast<int>(m_entries.size()); }
  /// Removes the entry without deleting it and passes ownership to the caller; null when out of range.
  SorvikObject* removeAt(int index) noexcept;
  /// Removes all without deleting any.
  void removeAll() noexcept { m_entries.clear(); }
  /// Deletes every entry, owned or lent.
  void removeAllObjects() noexcept;
  /// Moves all entries, with their ownership, to the end of another array. False,
  /// with nothing moved, when memory ran out.
  bool transferPtrs(ExtPtrArray& destination);

  /// elementAt for a list that holds only T.
  template <class T>
  T* at(int index) const noexcept {
    return static_cast<T*>(elementAt(index));
  }

  std::size_t heapUsage() const override { return m_entries.capacity() * sizeof(Entry); }

 private:
  struct Entry {
    SorvikObject* object;
    bool owned;
  };
  std::vector<Entry> m_entries;
};

/// Owning array of StringBuffer.
class MAILTREE_API ExtPtrArraySb final : public SorvikObject {
 public:
  /// Takes ownership of the string; false when it is null or memory ran out (the caller then keeps it).
  bool appendSb(StringBuffer* text) { return m_strings.appendObject(text); }
  bool appendString(std::string_view text);
  /// Null when out of range.
  StringBuffer* sbAt(int index) const noexcept { return m_strings.at<StringBuffer>(index); }
  int getSize() const noexcept { return m_strings.getSize(); }
  bool containsString(const char* text, bool caseSensitive) const noexcept;
  void removeAllSbs() noexcept { m_strings.removeAllObjects(); }

 private:
  ExtPtrArray m_strings;
};

/// Array of utf-8 strings.
class ClsStringArray final : public SorvikObject {
 public:
  bool appendUtf8(const char* text) { return m_strings.appendString(viewOf(text)); }
  bool appendUtf8(std::string_view text) { return m_strings.appendString(text); }
  int getSize() const noexcept { return m_strings.getSize(); }
  /// Null when out of range.
  const char* getUtf8(int index) const noexcept {
    const StringBuffer* const text = m_strings.sbAt(index);
    return text ? text->getString() : nullptr;
  }

 private:
  ExtPtrArraySb m_strings;
};

/// First-in first-out queue of borrowed pointers.
class MAILTREE_API _svQueue {
 public:
  bool push(SorvikObject* object);
  /// Null when empty.
  SorvikObject* pop() noexcept;
  bool hasObjects() const noexcept { return !m_entries.empty(); }

 private:
  std::deque<SorvikObject*> m_entries;
};

/// Key and value.
class StringPair final : public SorvikObject {
 public:
  StringPair(const char* key, const char* value) : m_key(key), m_value(value) {}
  const char* getKey() const noexcept { return m_key.getString(); }
  const char* getValue() const noexcept { return m_value.getString(); }

 private:
  StringBuffer m_key;
  StringBuffer m_value;
};

}  // namespace mailtree
