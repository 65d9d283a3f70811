// host/vq_simd/simd_float.h
//
// SimdF: four floats per operation. Two implementations with the same results in every bit: SSE4.2 on x86-64, plain C++
// elsewhere. SimdFPlain is compiled everywhere, because tests compare the two.
//
// min and max return their SECOND operand when either is NaN. A kernel with its running bound as the second
// operand therefore ignores a NaN candidate.
#pragma once
#include "vq_simd/simd_float_plain.h"
#if defined(__SSE4_2__)
#include "vq_simd/simd_float_sse.h"
using SimdF = SimdFSse;
#else
using SimdF = SimdFPlain;
#endif

/// Prefetches the cache line of `address`. Never faults: the address may be behind the end of an array, or computed
/// from a null pointer; therefore an integer. Functions that only prefetch must be inlined always, as this one: g++ 12
/// sees no effect in them and drops calls.
[[gnu::always_inline]] inline void simd_prefetch(std::uintptr_t address) {
  __builtin_prefetch(reinterpret_cast<const void*>(address));
}
