#include "mailtree/base/Slab.h"

namespace mailtree {

Slab* Slab::create(std::size_t objects, std::size_t objectSize) {
  return new (::operator new(sizeof(Slab) + objects * objectSize)) Slab(objects * objectSize);
}

void Slab::release() noexcept {
  if (m_references.fetch_sub(1, std::memory_order_acq_rel) == 1) ::operator delete(this);
}

}  // namespace mailtree
