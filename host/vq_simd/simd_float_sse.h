// host/vq_simd/simd_float_sse.h
//
// The SSE4.2 form of SimdF. The only place in the project that names intrinsics.
#pragma once
#include <smmintrin.h>

#include <cstring>

#include "vq_core/core_types.h"

struct SimdFSse {
  __m128 value;

  SimdFSse() = default;
  SimdFSse(__m128 value) : value(value) {}
  explicit SimdFSse(float all) : value(_mm_set1_ps(all)) {}
  SimdFSse(float a, float b, float c, float d) : value(_mm_setr_ps(a, b, c, d)) {}

  /// Four floats from a 16-byte aligned address.
  static SimdFSse load(const float* from) { return _mm_load_ps(from); }
  static SimdFSse load_unaligned(const float* from) { return _mm_loadu_ps(from); }
  /// Two floats from `low`, then two from `high`.
  static SimdFSse load_pairs(const float* low, const float* high) {
    const __m128 pair = _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(low)));
    return _mm_loadh_pi(pair, reinterpret_cast<const __m64*>(high));
  }
  /// Twelve floats, x y z x y z ..., as four of each.
  static void load_triples(const float* from, SimdFSse& x, SimdFSse& y, SimdFSse& z) {
    const __m128 a = _mm_loadu_ps(from), b = _mm_loadu_ps(from + 4), c = _mm_loadu_ps(from + 8);
    const __m128 xy = _mm_shuffle_ps(b, c, _MM_SHUFFLE(2, 1, 3, 2));  // x2 y2 x3 y3
    const __m128 yz = _mm_shuffle_ps(a, b, _MM_SHUFFLE(1, 0, 2, 1));  // y0 z0 y1 z1
    x = _mm_shuffle_ps(a, xy, _MM_SHUFFLE(2, 0, 3, 0));
    y = _mm_shuffle_ps(yz, xy, _MM_SHUFFLE(3, 1, 2, 0));
    z = _mm_shuffle_ps(yz, c, _MM_SHUFFLE(3, 0, 3, 1));
  }
  /// Three doubles, rounded; lane 3 is 0.
  static SimdFSse load_doubles(const double* from) {
    return _mm_movelh_ps(_mm_cvtpd_ps(_mm_loadu_pd(from)), _mm_cvtpd_ps(_mm_load_sd(from + 2)));
  }
  /// Four unsigned bytes as floats.
  static SimdFSse load_bytes(const u8* from) {
    int packed;
    std::memcpy(&packed, from, sizeof packed);
    return _mm_cvtepi32_ps(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(packed)));
  }
  void store(float* to) const { _mm_store_ps(to, value); }
  void store_unaligned(float* to) const { _mm_storeu_ps(to, value); }
  /// Lane 0.
  void store_first(float* to) const { _mm_store_ss(to, value); }
  /// The lanes rounded towards zero, as four unsigned bytes. Each must lie in 0 to 255: not NaN, not infinite.
  void store_bytes(u8* to) const {
    const __m128i words = _mm_packus_epi32(_mm_cvttps_epi32(value), _mm_setzero_si128());
    const int packed = _mm_cvtsi128_si32(_mm_packus_epi16(words, words));
    std::memcpy(to, &packed, sizeof packed);
  }

  friend SimdFSse operator+(const SimdFSse& a, const SimdFSse& b) { return _mm_add_ps(a.value, b.value); }
  friend SimdFSse operator-(const SimdFSse& a, const SimdFSse& b) { return _mm_sub_ps(a.value, b.value); }
  friend SimdFSse operator*(const SimdFSse& a, const SimdFSse& b) { return _mm_mul_ps(a.value, b.value); }
  friend SimdFSse operator/(const SimdFSse& a, const SimdFSse& b) { return _mm_div_ps(a.value, b.value); }
  friend SimdFSse min(const SimdFSse& a, const SimdFSse& b) { return _mm_min_ps(a.value, b.value); }
  friend SimdFSse max(const SimdFSse& a, const SimdFSse& b) { return _mm_max_ps(a.value, b.value); }
  /// The lanes 1, 2, 3, 0.
  friend SimdFSse rotate_lanes(const SimdFSse& a) { return _mm_shuffle_ps(a.value, a.value, _MM_SHUFFLE(0, 3, 2, 1)); }
  /// The lanes 1, 2, 0, 3: of a vector, the next axis.
  friend SimdFSse rotate_axes(const SimdFSse& a) { return _mm_shuffle_ps(a.value, a.value, _MM_SHUFFLE(3, 0, 2, 1)); }
  /// The lanes 2, 3, 0, 1.
  friend SimdFSse swap_pairs(const SimdFSse& a) { return _mm_shuffle_ps(a.value, a.value, _MM_SHUFFLE(1, 0, 3, 2)); }
  /// Lanes 0 and 1 of `a`, then lanes 0 and 1 of `b`.
  friend SimdFSse join_pairs(const SimdFSse& a, const SimdFSse& b) { return _mm_movelh_ps(a.value, b.value); }
  /// Turns four rows into four columns.
  friend void transpose(SimdFSse& a, SimdFSse& b, SimdFSse& c, SimdFSse& d) {
    _MM_TRANSPOSE4_PS(a.value, b.value, c.value, d.value);
  }
};

/// The magnitudes of `magnitude` with the signs of `sign`.
inline SimdFSse copy_sign(const SimdFSse& magnitude, const SimdFSse& sign) {
  const __m128 sign_bit = _mm_set1_ps(-0.0f);
  return _mm_or_ps(_mm_andnot_ps(sign_bit, magnitude.value), _mm_and_ps(sign_bit, sign.value));
}
inline SimdFSse abs(const SimdFSse& a) { return _mm_andnot_ps(_mm_set1_ps(-0.0f), a.value); }
inline SimdFSse floor(const SimdFSse& a) { return _mm_floor_ps(a.value); }
inline SimdFSse ceil(const SimdFSse& a) { return _mm_ceil_ps(a.value); }
inline SimdFSse sqrt(const SimdFSse& a) { return _mm_sqrt_ps(a.value); }
/// Lane `k` in all lanes.
template <uint k>
SimdFSse broadcast(const SimdFSse& a) {
  return _mm_shuffle_ps(a.value, a.value, _MM_SHUFFLE(k, k, k, k));
}

/// A truth value per lane: all bits of a lane set or clear.
struct SimdMaskSse {
  __m128 value;
  friend SimdMaskSse operator&(SimdMaskSse a, SimdMaskSse b) { return {_mm_and_ps(a.value, b.value)}; }
  /// Bit k for lane k.
  uint get_bits() const { return static_cast<uint>(_mm_movemask_ps(value)); }
};

inline SimdMaskSse operator<=(const SimdFSse& a, const SimdFSse& b) { return {_mm_cmple_ps(a.value, b.value)}; }
/// Also where a bound is NaN.
inline SimdMaskSse is_not_greater(const SimdFSse& a, const SimdFSse& b) { return {_mm_cmpngt_ps(a.value, b.value)}; }
inline SimdMaskSse operator>(const SimdFSse& a, const SimdFSse& b) { return {_mm_cmpgt_ps(a.value, b.value)}; }
/// Lane by lane, `a` where the mask is true, else `b`.
inline SimdFSse select(SimdMaskSse mask, const SimdFSse& a, const SimdFSse& b) {
  return _mm_blendv_ps(b.value, a.value, mask.value);
}
