// The plain form of four floats is the oracle of the machine's: every operation, bit by bit, on nasty numbers.
#include "vq_simd/simd_float.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <limits>
#include <vector>

#include "support/random_values.h"

namespace {

using Lanes = std::array<float, 4>;

/// Any bit pattern; half of the time a special one, so that equal, signed-zero and NaN operands meet.
float get_nasty(RandomValues& random) {
  using Limits = std::numeric_limits<float>;
  constexpr float inf = Limits::infinity(), nan = Limits::quiet_NaN(), tiny = Limits::denorm_min(), big = Limits::max();
  const float special[] = {0.0f, -0.0f, 1.0f, -1.0f, inf, -inf, big, -big, Limits::min(), tiny, -tiny, nan, -nan};
  if (random.get_index(2) == 0) return special[random.get_index(std::size(special))];
  return std::bit_cast<float>(static_cast<u32>(random.get_engine()()));
}

template <class F>
Lanes store(const F& value) {
  Lanes lanes;
  value.store_unaligned(lanes.data());
  return lanes;
}

/// What every operation makes of some bits, in one list; with NaN as none where the machine may choose which.
template <class F>
std::vector<u32> compute(const Lanes& x, const Lanes& y, const u8 (&bytes)[4]) {
  std::vector<u32> out;
  const auto keep = [&](const F& value) {
    for (const float lane : store(value)) out.push_back(std::bit_cast<u32>(lane));
  };
  const auto keep_number = [&](const F& value) {
    for (const float lane : store(value)) out.push_back(lane != lane ? 0 : std::bit_cast<u32>(lane));
  };
  const F a = F::load(x.data()), b = F::load_unaligned(y.data());
  const double doubles[3] = {x[0] * (1.0 + 0x1p-25), y[1] * 0x1.9p-3, x[2] * 0x1.8000001p0};
  for (const F& value : {a + b, a - b, a * b, a / b, sqrt(a), floor(a), ceil(a), F::load_doubles(doubles)})
    keep_number(value);
  for (const F& value : {a, min(a, b), max(a, b), select(a <= b, a, b), rotate_lanes(a), rotate_axes(a),
                         copy_sign(a, b), abs(a), broadcast<2>(a), F::load_bytes(bytes)})
    keep(value);
  for (const uint bits : {(a <= b).get_bits(), (a > b).get_bits(), ((a <= b) & (b > a)).get_bits()})
    out.push_back(bits);
  F rows[4] = {a, b, min(a, b), max(a, b)};
  transpose(rows[0], rows[1], rows[2], rows[3]);
  for (const F& row : rows) keep(row);
  u8 stored[4];
  (F::load_bytes(bytes) + F(0.75f)).store_bytes(stored);
  out.insert(out.end(), stored, stored + 4);
  return out;
}

TEST(SimdF, equals_its_plain_form_in_every_bit) {
  RandomValues random(1);
  for (uint repeat = 0; repeat < 50000; ++repeat) {
    alignas(16) Lanes x, y;
    u8 bytes[4];
    for (uint k = 0; k < 4; ++k) {
      x[k] = get_nasty(random);
      y[k] = get_nasty(random);
      bytes[k] = static_cast<u8>(random.get_index(256));
    }
    ASSERT_EQ(compute<SimdF>(x, y, bytes), compute<SimdFPlain>(x, y, bytes)) << repeat;
  }
  const float none = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(store(min(SimdF(none), SimdF(2.0f)))[0], 2.0f) << "the second operand on NaN";
  EXPECT_EQ(store(max(SimdF(none), SimdF(2.0f)))[3], 2.0f);
}

}  // namespace
