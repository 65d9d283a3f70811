// host/vq_simd/simd_float.h
//
// SimdF: four floats worked on at once. Two forms with one meaning, lane by lane and bit by bit: SSE4.2 on x86-64 and
// plain C++ elsewhere. SimdFPlain is compiled everywhere, because the tests hold it against the other.
//
// min and max return their SECOND operand when either is NaN. A kernel that keeps its running bound in the second
// place therefore ignores a NaN candidate.
#pragma once
#include "vq_simd/simd_float_plain.h"
#if defined(__SSE4_2__)
#include "vq_simd/simd_float_sse.h"
using SimdF = SimdFSse;
#else
using SimdF = SimdFPlain;
#endif

/// Asks for the cache line that holds `address`. Never faults, so that an address beyond an array's end, or computed
/// from a null array, is harmless: hence the integer.
inline void simd_prefetch(std::uintptr_t address) { __builtin_prefetch(reinterpret_cast<const void*>(address)); }
