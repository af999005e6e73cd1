// base/Avx2.h - 32-byte vector code: where it can be compiled, and whether this processor runs it.
#pragma once

#if defined(__x86_64__) && defined(__GNUC__)
#define MAILTREE_HAS_AVX2_PATH 1
/// For functions that are called only when hasAvx2().
#define MAILTREE_AVX2 __attribute__((target("avx2,bmi,popcnt")))
#else
#define MAILTREE_HAS_AVX2_PATH 0
#endif

namespace mailtree {

/// Whether this processor has all instructions that MAILTREE_AVX2 allows the compiler to use. A virtual
/// machine may hide some.
inline bool hasAvx2() noexcept {
#if MAILTREE_HAS_AVX2_PATH
  static const bool kIsSupported =
      __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") && __builtin_cpu_supports("popcnt");
  return kIsSupported;
#else
  return false;
#endif
}

}  // namespace mailtree
