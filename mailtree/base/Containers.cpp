#include "mailtree/base/Containers.h"

#include <algorithm>
#include <memory>
#include <tuple>
#include <utility>

namespace mailtree {
namespace {

/// Whether `index` is a valid index of `size` entries; negative ones become huge.
bool isIndex(int index, std::size_t size) noexcept { return static_cast<std::size_t>(index) < size; }

}  // namespace

// Arrays are emptied before their objects are deleted: a destructor that accesses its
// array finds none of them.

ExtPtrArray::~ExtPtrArray() {
  const std::vector<Entry> entries = std::exchange(m_entries, {});
  for (const Entry& entry : entries)
    if (entry.owned) entry.object->deleteObject();
}

void ExtPtrArray::removeAllObjects() noexcept {
  const std::vector<Entry> entries = std::exchange(m_entries, {});
  for (const Entry& entry : entries)
    if (entry.object) entry.object->deleteObject();
}

bool ExtPtrArray::appendObject(SorvikObject* object) {
  if (!object) return false;
  return neverThrow(false, [&] {
    m_entries.push_back({object, true});
    return true;
  });
}

bool ExtPtrArray::appendPtr(SorvikObject* object) {
  return neverThrow(false, [&] {
    m_entries.push_back({object, false});
    return true;
  });
}

bool ExtPtrArray::insertAt(int index, SorvikObject* object) {
  const std::size_t at =
      isIndex(index, m_entries.size()) ? static_cast<std::size_t>(index) : m_entries.size();
  return neverThrow(false, [&] {
    m_entries.insert(m_entries.begin() + static_cast<std::ptrdiff_t>(at), {object, false});
    return true;
  });
}

bool ExtPtrArray::reserveMore(int count) {
  return neverThrow(false, [&] {
    m_entries.reserve(m_entries.size() + static_cast<std::size_t>(std::max(count, 0)));
    return true;
  });
}

SorvikObject* ExtPtrArray::elementAt(int index) const noexcept {
  return isIndex(index, m_entries.size()) ? m_entries[static_cast<std::size_t>(index)].object : nullptr;
}

SorvikObject* ExtPtrArray::removeAt(int index) noexcept {
  if (!isIndex(index, m_entries.size())) return nullptr;
  const auto entry = m_entries.begin() + index;
  SorvikObject* const object = entry->object;
  m_entries.erase(entry);
  return object;
}

bool ExtPtrArray::transferPtrs(ExtPtrArray& destination) {
  if (this == &destination) return true;
  const bool moved = neverThrow(false, [&] {
    destination.m_entries.insert(destination.m_entries.end(), m_entries.begin(), m_entries.end());
    return true;
  });
  if (moved) removeAll();
  return moved;
}

bool ExtPtrArraySb::appendString(std::string_view text) {
  return neverThrow(false, [&] {
    auto copy = std::make_unique<StringBuffer>(text);
    if (!appendSb(copy.get())) return false;
    std::ignore = copy.release();  // now owned by the array
    return true;
  });
}

bool ExtPtrArraySb::containsString(const char* text, bool caseSensitive) const noexcept {
  for (int i = 0; i < getSize(); ++i) {
    const StringBuffer& entry = *sbAt(i);
    if (caseSensitive ? entry.equals(text) : entry.equalsIgnoreCase(text)) return true;
  }
  return false;
}

bool _svQueue::push(SorvikObject* object) {
  return neverThrow(false, [&] {
    m_entries.push_back(object);
    return true;
  });
}

SorvikObject* _svQueue::pop() noexcept {
  if (m_entries.empty()) return nullptr;
  SorvikObject* const object = m_entries.front();
  m_entries.pop_front();
  return object;
}

}  // namespace mailtree
