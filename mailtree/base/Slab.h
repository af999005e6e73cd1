// base/Slab.h - memory for the nodes of a tree: one allocation for many objects of one type.
//
//   Lifetime  Every object is destroyed on its own, in any order and on any thread, by the delete of its
//             class. The slab is freed when its pool no longer uses it and the last of its objects is gone.
//   A class   whose objects may be in a slab has a member `Slab* m_slab = nullptr`, befriends SlabPool and
//             destroyInSlab, and declares
//                 static void operator delete(T* object, std::destroying_delete_t) noexcept {
//                 destroyInSlab(object); }
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <new>
#include <utility>

#include "mailtree/base/Export.h"

#if defined(__SANITIZE_ADDRESS__)
#define MAILTREE_POISONS_SLABS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MAILTREE_POISONS_SLABS 1
#endif
#endif
#if defined(MAILTREE_POISONS_SLABS)
#include <sanitizer/asan_interface.h>
#endif

namespace mailtree {

class MAILTREE_API Slab {
 public:
  /// The caller owns one reference. Throws bad_alloc.
  static Slab* create(std::size_t objects, std::size_t objectSize);

  /// The next free place; null when the slab is full.
  void* take(std::size_t size) noexcept {
    if (m_size - m_used < size) return nullptr;
    return reinterpret_cast<std::byte*>(this + 1) + std::exchange(m_used, m_used + size);
  }
  void hold() noexcept { m_references.fetch_add(1, std::memory_order_relaxed); }
  void release() noexcept;

 private:
  explicit Slab(std::size_t size) noexcept : m_size(size) {}

  std::size_t m_size;
  std::size_t m_used = 0;
  // Different threads may destroy adjacent objects.
  alignas(std::max_align_t) std::atomic<unsigned> m_references{1};
};

/// Creates objects, several to a slab.
template <class T>
class SlabPool {
 public:
  /// @param expected  how many will be made; more are possible.
  explicit SlabPool(std::size_t expected) noexcept : m_expected(expected) {}
  SlabPool(const SlabPool&) = delete;
  SlabPool& operator=(const SlabPool&) = delete;
  ~SlabPool() { leaveSlab(); }

  /// A new object, owned by the caller. Throws bad_alloc and what its constructor throws.
  template <class... Args>
  T* create(Args&&... args) {
    static_assert(alignof(T) <= alignof(std::max_align_t));
    T* const object = new (place()) T(std::forward<Args>(args)...);
    object->m_slab = m_slab;
    m_slab->hold();
    return object;
  }

 private:
  /// Limits the memory that an object keeps when it outlives its tree. In bytes, so that the slab of one
  /// class fits where that of another was.
  static constexpr std::size_t kMaxBytes = std::size_t{14} << 10;
  static constexpr std::size_t kMax = kMaxBytes / sizeof(T);
  static constexpr std::size_t kMin = 1;

  void* place() {
    if (m_slab)
      if (void* const place = m_slab->take(sizeof(T))) return place;
    leaveSlab();
    const std::size_t count = std::clamp(m_expected, kMin, kMax);
    m_slab = Slab::create(count, sizeof(T));
    m_expected = m_expected > count ? m_expected - count : count * 2;
    return m_slab->take(sizeof(T));
  }

  void leaveSlab() noexcept {
    if (m_slab) std::exchange(m_slab, nullptr)->release();
  }

  Slab* m_slab = nullptr;
  std::size_t m_expected;
};

/// The delete of such a class, for objects in slabs and for those made by new.
template <class T>
void destroyInSlab(T* object) noexcept {
  Slab* const slab = object->m_slab;
  object->~T();
  if (!slab) return ::operator delete(object);
#if defined(MAILTREE_POISONS_SLABS)
  ASAN_POISON_MEMORY_REGION(object, sizeof(T));
#endif
  slab->release();
}

}  // namespace mailtree
