// mime/coding/Avx512Bytes.h - a byte for each place of a 64-byte register, as tables for the coders' vector
// code.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "mailtree/mime/coding/Avx512.h"

#if MAILTREE_HAS_AVX2_PATH

#include <immintrin.h>

namespace mailtree::avx512 {

constexpr std::size_t kBlock = 64;

/// For instructions whose unmasked form makes GCC 12 warn of an uninitialized variable of its own.
constexpr __mmask64 kAll = ~std::uint64_t{0};

struct alignas(kBlock) Bytes {
  std::array<std::uint8_t, kBlock> bytes;
};

/// @param entry  gives the byte for a place.
template <class Entry>
constexpr Bytes makeBytes(Entry entry) {
  Bytes table{};
  for (unsigned i = 0; i < kBlock; ++i) table.bytes[i] = static_cast<std::uint8_t>(entry(i));
  return table;
}

MAILTREE_AVX512 inline __m512i load(const Bytes& table) noexcept {
  return _mm512_load_si512(table.bytes.data());
}

}  // namespace mailtree::avx512

#endif
