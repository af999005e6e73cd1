// base/Object.h - base classes of the object model: validity markers, ownership, reference counts.
//
//   Marker     Every object has a 32-bit marker while it is alive and loses it when it is destroyed, so a use
//              after destruction can be detected and refused.
//   Ownership  Owned<T> is the owner used inside; ObjectOwner and deleteObject are
//              for operations with raw pointers.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "mailtree/base/Export.h"

namespace mailtree {

/// Writes a marker in a way the optimizer must keep: it removes a plain store in a destructor.
inline void writeMarker(std::uint32_t& marker, std::uint32_t value) noexcept {
  *static_cast<volatile std::uint32_t*>(&marker) = value;
}

/// Reads a marker with a load the optimizer must not remove.
inline bool hasMarker(const std::uint32_t& marker, std::uint32_t value) noexcept {
  return *static_cast<const volatile std::uint32_t*>(&marker) == value;
}

/// Marker of every live value type of this library.
inline constexpr std::uint32_t kObjectMarker = 0x62CB09E3;

/// Base of every heap object that an owning array can hold, and of the value types that carry the marker.
class MAILTREE_API SorvikObject {
 public:
  SorvikObject() noexcept { writeMarker(m_objectMarker, kObjectMarker); }
  SorvikObject(const SorvikObject&) noexcept : SorvikObject() {}
  SorvikObject& operator=(const SorvikObject&) noexcept { return *this; }
  virtual ~SorvikObject() { writeMarker(m_objectMarker, 0); }

  /// Heap bytes of this object, without the object itself. 0 for a type that does not measure itself.
  virtual std::size_t heapUsage() const { return 0; }

  /// Deletes this heap object through the base class.
  void deleteObject() { delete this; }

  /// Whether the library-wide marker is intact: false once the object was destroyed.
  bool isValidObject() const noexcept { return hasMarker(m_objectMarker, kObjectMarker); }

 private:
  std::uint32_t m_objectMarker;
};

/// An object with a single owner.
class MAILTREE_API NonRefCountedObj : public SorvikObject {};

/// A reference-counted object that deletes itself when the last reference is released. Starts uncounted: the
/// creator's first incRefCount makes the count 1. The count is atomic; the object's content is not protected.
class MAILTREE_API RefCountedObject : public SorvikObject {
 public:
  void incRefCount() noexcept { m_refCount.fetch_add(1, std::memory_order_relaxed); }
  /// Deletes the object when the count reaches zero.
  void decRefCount() noexcept {
    if (m_refCount.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }
  int refCount() const noexcept { return m_refCount.load(std::memory_order_relaxed); }

 protected:
  RefCountedObject() noexcept = default;
  RefCountedObject(const RefCountedObject&) = delete;
  RefCountedObject& operator=(const RefCountedObject&) = delete;

 private:
  std::atomic<int> m_refCount{0};
};

/// Holds one reference to a RefCountedObject for its own lifetime.
template <class T>
class RefPtr {
 public:
  RefPtr() noexcept = default;
  explicit RefPtr(T* object) noexcept : m_object(object) {
    if (m_object) m_object->incRefCount();
  }
  RefPtr(const RefPtr& other) noexcept : RefPtr(other.m_object) {}
  RefPtr(RefPtr&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
  RefPtr& operator=(RefPtr other) noexcept {
    std::swap(m_object, other.m_object);
    return *this;
  }
  ~RefPtr() {
    if (m_object) m_object->decRefCount();
  }
  T* get() const noexcept { return m_object; }
  T* operator->() const noexcept { return m_object; }
  T& operator*() const noexcept { return *m_object; }
  explicit operator bool() const noexcept { return m_object != nullptr; }

 private:
  T* m_object = nullptr;
};

/// Deleter through the base class, for unique_ptr.
struct DeleteObject {
  void operator()(SorvikObject* object) const noexcept { object->deleteObject(); }
};

template <class T>
using Owned = std::unique_ptr<T, DeleteObject>;

/// Holds one heap object and deletes it at the end of its scope unless released.
class ObjectOwner {
 public:
  ObjectOwner() noexcept = default;
  explicit ObjectOwner(SorvikObject* object) noexcept : m_object(object) {}
  /// Takes ownership of another object; deletes the previous one.
  void own(SorvikObject* object) noexcept { m_object.reset(object); }
  SorvikObject* get() const noexcept { return m_object.get(); }
  SorvikObject* release() noexcept { return m_object.release(); }

 private:
  Owned<SorvikObject> m_object;
};

/// Number of operations abandoned for lack of memory; see abandonedOperations(). Not inline: a program and
/// the shared library that it uses have one count.
MAILTREE_API std::uint64_t& abandonedCount() noexcept;

/// Number of operations abandoned on this thread so far. Many do not report it: a text stays empty, a part is
/// left out. A caller that must know compares the number with an earlier one.
inline std::uint64_t abandonedOperations() noexcept { return abandonedCount(); }

/// Runs `body`; anything it throws, bad_alloc included, becomes `onFailure`. The only catch-all of the
/// library.
template <class Result, class Body>
Result neverThrow(Result onFailure, Body&& body) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (...) {
    ++abandonedCount();
    return onFailure;
  }
}

}  // namespace mailtree
