// python/src/keys.h - keys as Python holds them.
#pragma once

#include <pybind11/pybind11.h>

#include <memory>
#include <mutex>

#include "mailtree/message/Keys.h"

namespace mailtree::python {

/// Keys serve one thread at a time. Their lock is taken last, after that of a message.
struct KeyRing {
  std::mutex mutex;
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
