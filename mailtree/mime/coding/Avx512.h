// mime/coding/Avx512.h - 64-byte vector code of the coders: where it can be compiled, and whether this
// processor runs it.
#pragma once

#include "mailtree/base/Avx2.h"

#if MAILTREE_HAS_AVX2_PATH
/// For functions that are called only when hasAvx512(): the coders need shuffles of whole registers (VBMI)
/// and the packing of selected bytes (VBMI2).
#define MAILTREE_AVX512 \
  __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,avx2,bmi,bmi2,lzcnt,popcnt")))
#endif

namespace mailtree {

/// Whether this processor has all instructions that MAILTREE_AVX512 allows the compiler to use. All
/// processors with VBMI2 also have LZCNT, which cannot be asked for by name.
inline bool hasAvx512() noexcept {
#if MAILTREE_HAS_AVX2_PATH
  static const bool kIsSupported =
      hasAvx2() && __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("avx512f") &&
      __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
      __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vbmi2");
  return kIsSupported;
#else
  return false;
#endif
}

}  // namespace mailtree
