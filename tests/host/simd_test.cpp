// The plain form of four floats is the oracle of the machine's: every operation, bit by bit, on nasty numbers.
#include "vq_simd/simd_float.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <limits>

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
F load(const Lanes& lanes) {
  return F::load_unaligned(lanes.data());
}
template <class F>
Lanes store(const F& value) {
  Lanes lanes;
  value.store_unaligned(lanes.data());
  return lanes;
}

/// Which NaN an operation makes is left to the machine; min, max, select and loads must pass on the very bits.
void expect_same(const Lanes& a, const Lanes& b, bool exact_nan, const char* what) {
  for (uint k = 0; k < 4; ++k) {
    if (!exact_nan && a[k] != a[k] && b[k] != b[k]) continue;
    EXPECT_EQ(std::bit_cast<u32>(a[k]), std::bit_cast<u32>(b[k])) << what << " lane " << k;
  }
}

TEST(SimdF, equals_its_plain_form_in_every_bit) {
  RandomValues random(1);
  for (uint repeat = 0; repeat < 50000; ++repeat) {
    alignas(16) Lanes x, y;
    for (uint k = 0; k < 4; ++k) {
      x[k] = get_nasty(random);
      y[k] = get_nasty(random);
    }
    const SimdF a = SimdF::load(x.data()), b = load<SimdF>(y);
    const SimdFPlain c = SimdFPlain::load(x.data()), d = load<SimdFPlain>(y);
    expect_same(store(a), x, true, "load");
    expect_same(store(a + b), store(c + d), false, "+");
    expect_same(store(a - b), store(c - d), false, "-");
    expect_same(store(a * b), store(c * d), false, "*");
    expect_same(store(a / b), store(c / d), false, "/");
    expect_same(store(min(a, b)), store(min(c, d)), true, "min");
    expect_same(store(max(a, b)), store(max(c, d)), true, "max");
    EXPECT_EQ((a <= b).get_bits(), (c <= d).get_bits());
    EXPECT_EQ((a > b).get_bits(), (c > d).get_bits());
    EXPECT_EQ(((a <= b) & (b > a)).get_bits(), ((c <= d) & (d > c)).get_bits());
    expect_same(store(select(a <= b, a, b)), store(select(c <= d, c, d)), true, "select");
    expect_same(store(rotate_lanes(a)), store(rotate_lanes(c)), true, "rotate_lanes");
    expect_same(store(copy_sign(a, b)), store(copy_sign(c, d)), true, "copy_sign");
    expect_same(store(abs(a)), store(abs(c)), true, "abs");
    expect_same(store(broadcast<2>(a)), store(broadcast<2>(c)), true, "broadcast");
    SimdF rows[4] = {a, b, min(a, b), max(a, b)};
    SimdFPlain plain_rows[4] = {c, d, min(c, d), max(c, d)};
    transpose(rows[0], rows[1], rows[2], rows[3]);
    transpose(plain_rows[0], plain_rows[1], plain_rows[2], plain_rows[3]);
    for (uint k = 0; k < 4; ++k) expect_same(store(rows[k]), store(plain_rows[k]), true, "transpose");
    u8 bytes[4];
    for (u8& byte : bytes) byte = static_cast<u8>(random.get_index(256));
    expect_same(store(SimdF::load_bytes(bytes)), store(SimdFPlain::load_bytes(bytes)), true, "bytes");
    u8 stored[4], plain_stored[4];
    (SimdF::load_bytes(bytes) + SimdF(0.75f)).store_bytes(stored);
    (SimdFPlain::load_bytes(bytes) + SimdFPlain(0.75f)).store_bytes(plain_stored);
    EXPECT_TRUE(std::equal(bytes, bytes + 4, stored) && std::equal(bytes, bytes + 4, plain_stored));
  }
}

TEST(SimdF, min_and_max_return_their_second_operand_on_nan) {
  const float none = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(store(min(SimdF(none), SimdF(2.0f)))[0], 2.0f);
  EXPECT_EQ(store(max(SimdF(none), SimdF(2.0f)))[3], 2.0f);
}

}  // namespace
