// python/src/keys.h - keys as Python holds them.
#pragma once

#include <pybind11/pybind11.h>

#include <memory>
#include <mutex>

#include "mailtree/message/Keys.h"
#include "python/src/fork_gate.h"

namespace mailtree::python {

/// Keys serve one thread at a time. Their lock is taken last, after that of a message. It holds the gate too:
/// in a child process nobody would ever give it back.
class KeyMutex {
 public:
  void lock() {
    forkGate().lock_shared();
    m_mutex.lock();
  }
  bool try_lock() {
    if (!forkGate().try_lock_shared()) return false;
    if (m_mutex.try_lock()) return true;
    forkGate().unlock_shared();
    return false;
  }
  void unlock() {
    m_mutex.unlock();
    forkGate().unlock_shared();
  }

 private:
  std::mutex m_mutex;
};

struct KeyRing {
  KeyMutex mutex;
  Keys keys;
};

using KeyRingPtr = std::shared_ptr<KeyRing>;

/// Runs `f` with the keys, or with null when there are none.
template <class F>
auto withKeys(const KeyRingPtr& ring, F&& f) {
  if (!ring) return f(static_cast<const Keys*>(nullptr));
  const std::lock_guard lock(ring->mutex);
  return f(static_cast<const Keys*>(&ring->keys));
}

}  // namespace mailtree::python
