// base/FlagSet.h - a set of enumerators whose values are bits.
#pragma once

#include <type_traits>

namespace mailtree {

template <class Flag>
class FlagSet {
 public:
  constexpr void add(Flag flag) noexcept { m_bits |= static_cast<Bits>(flag); }
  constexpr void add(FlagSet other) noexcept { m_bits |= other.m_bits; }
  constexpr void remove(Flag flag) noexcept { m_bits &= ~static_cast<Bits>(flag); }
  constexpr bool has(Flag flag) const noexcept { return m_bits & static_cast<Bits>(flag); }
  constexpr bool isEmpty() const noexcept { return m_bits == 0; }
  constexpr void clear() noexcept { m_bits = 0; }

 private:
  using Bits = std::underlying_type_t<Flag>;
  Bits m_bits = 0;
};

}  // namespace mailtree
