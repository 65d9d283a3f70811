// host/vq_simd/simd_float_plain.h
//
// The plain C++ implementation of SimdF: the other implementation must give the same bits.
#pragma once
#include <cmath>
#include <cstring>

#include "vq_core/core_types.h"

struct SimdFPlain {
  float lane[4];

  SimdFPlain() = default;
  explicit SimdFPlain(float value) : lane{value, value, value, value} {}
  SimdFPlain(float a, float b, float c, float d) : lane{a, b, c, d} {}

  /// Four floats from a 16-byte aligned address.
  static SimdFPlain load(const float* from) { return load_unaligned(from); }
  static SimdFPlain load_unaligned(const float* from) { return {from[0], from[1], from[2], from[3]}; }
  /// Two floats from `low`, then two from `high`.
  static SimdFPlain load_pairs(const float* low, const float* high) { return {low[0], low[1], high[0], high[1]}; }
  /// Twelve floats, x y z x y z ..., as four of each.
  static void load_triples(const float* from, SimdFPlain& x, SimdFPlain& y, SimdFPlain& z) {
    x = {from[0], from[3], from[6], from[9]};
    y = {from[1], from[4], from[7], from[10]};
    z = {from[2], from[5], from[8], from[11]};
  }
  /// Three doubles, rounded; lane 3 is 0.
  static SimdFPlain load_doubles(const double* from) {
    return {static_cast<float>(from[0]), static_cast<float>(from[1]), static_cast<float>(from[2]), 0.0f};
  }
  /// Four unsigned bytes as floats.
  static SimdFPlain load_bytes(const u8* from) {
    return {static_cast<float>(from[0]), static_cast<float>(from[1]), static_cast<float>(from[2]),
            static_cast<float>(from[3])};
  }
  void store(float* to) const { store_unaligned(to); }
  void store_unaligned(float* to) const { std::memcpy(to, lane, sizeof lane); }
  /// Lane 0.
  void store_first(float* to) const { *to = lane[0]; }
  /// The lanes rounded towards zero, as four unsigned bytes. Each must lie in 0 to 255: not NaN, not infinite.
  void store_bytes(u8* to) const {
    for (uint k = 0; k < 4; ++k) to[k] = static_cast<u8>(lane[k]);
  }

  template <class Operation>
  static SimdFPlain each(const SimdFPlain& a, const SimdFPlain& b, Operation operation) {
    return {operation(a.lane[0], b.lane[0]), operation(a.lane[1], b.lane[1]), operation(a.lane[2], b.lane[2]),
            operation(a.lane[3], b.lane[3])};
  }
  friend SimdFPlain operator+(const SimdFPlain& a, const SimdFPlain& b) {
    return each(a, b, [](float x, float y) { return x + y; });
  }
  friend SimdFPlain operator-(const SimdFPlain& a, const SimdFPlain& b) {
    return each(a, b, [](float x, float y) { return x - y; });
  }
  friend SimdFPlain operator*(const SimdFPlain& a, const SimdFPlain& b) {
    return each(a, b, [](float x, float y) { return x * y; });
  }
  friend SimdFPlain operator/(const SimdFPlain& a, const SimdFPlain& b) {
    return each(a, b, [](float x, float y) { return x / y; });
  }
  friend SimdFPlain min(const SimdFPlain& a, const SimdFPlain& b) {
    return each(a, b, [](float x, float y) { return x < y ? x : y; });
  }
  friend SimdFPlain max(const SimdFPlain& a, const SimdFPlain& b) {
    return each(a, b, [](float x, float y) { return x > y ? x : y; });
  }
  /// The lanes 1, 2, 3, 0.
  friend SimdFPlain rotate_lanes(const SimdFPlain& a) { return {a.lane[1], a.lane[2], a.lane[3], a.lane[0]}; }
  /// The lanes 1, 2, 0, 3: of a vector, the next axis.
  friend SimdFPlain rotate_axes(const SimdFPlain& a) { return {a.lane[1], a.lane[2], a.lane[0], a.lane[3]}; }
  /// The lanes 2, 3, 0, 1.
  friend SimdFPlain swap_pairs(const SimdFPlain& a) { return {a.lane[2], a.lane[3], a.lane[0], a.lane[1]}; }
  /// Lanes 0 and 1 of `a`, then lanes 0 and 1 of `b`.
  friend SimdFPlain join_pairs(const SimdFPlain& a, const SimdFPlain& b) {
    return {a.lane[0], a.lane[1], b.lane[0], b.lane[1]};
  }
  /// Turns four rows into four columns.
  friend void transpose(SimdFPlain& a, SimdFPlain& b, SimdFPlain& c, SimdFPlain& d) {
    const SimdFPlain rows[4] = {a, b, c, d};
    SimdFPlain* columns[4] = {&a, &b, &c, &d};
    for (uint column = 0; column < 4; ++column)
      for (uint row = 0; row < 4; ++row) columns[column]->lane[row] = rows[row].lane[column];
  }
};

/// The magnitudes of `magnitude` with the signs of `sign`.
inline SimdFPlain copy_sign(const SimdFPlain& magnitude, const SimdFPlain& sign) {
  return SimdFPlain::each(magnitude, sign, [](float x, float y) { return std::copysign(x, y); });
}
inline SimdFPlain abs(const SimdFPlain& a) { return copy_sign(a, SimdFPlain(0.0f)); }
inline SimdFPlain floor(const SimdFPlain& a) {
  return {std::floor(a.lane[0]), std::floor(a.lane[1]), std::floor(a.lane[2]), std::floor(a.lane[3])};
}
inline SimdFPlain ceil(const SimdFPlain& a) {
  return {std::ceil(a.lane[0]), std::ceil(a.lane[1]), std::ceil(a.lane[2]), std::ceil(a.lane[3])};
}
inline SimdFPlain sqrt(const SimdFPlain& a) {
  return {std::sqrt(a.lane[0]), std::sqrt(a.lane[1]), std::sqrt(a.lane[2]), std::sqrt(a.lane[3])};
}
/// Lane `k` in all lanes.
template <uint k>
SimdFPlain broadcast(const SimdFPlain& a) {
  return SimdFPlain(a.lane[k]);
}

/// A truth value per lane, bit k for lane k.
struct SimdMaskPlain {
  uint bits = 0;
  friend SimdMaskPlain operator&(SimdMaskPlain a, SimdMaskPlain b) { return {a.bits & b.bits}; }
  uint get_bits() const { return bits; }
};

inline SimdMaskPlain operator<=(const SimdFPlain& a, const SimdFPlain& b) {
  uint bits = 0;
  for (uint k = 0; k < 4; ++k) bits |= (a.lane[k] <= b.lane[k] ? 1u : 0u) << k;
  return {bits};
}
inline SimdMaskPlain operator>(const SimdFPlain& a, const SimdFPlain& b) {
  uint bits = 0;
  for (uint k = 0; k < 4; ++k) bits |= (a.lane[k] > b.lane[k] ? 1u : 0u) << k;
  return {bits};
}
/// Also where a bound is NaN.
inline SimdMaskPlain is_not_greater(const SimdFPlain& a, const SimdFPlain& b) { return {(a > b).bits ^ 0xfu}; }
/// Lane by lane, `a` where the mask is true, else `b`.
inline SimdFPlain select(SimdMaskPlain mask, const SimdFPlain& a, const SimdFPlain& b) {
  SimdFPlain out = b;
  for (uint k = 0; k < 4; ++k)
    if (mask.bits >> k & 1u) out.lane[k] = a.lane[k];
  return out;
}
