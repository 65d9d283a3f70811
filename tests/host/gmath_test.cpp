// Numbers that are none and time samplings.
#include <gtest/gtest.h>

#include <limits>

#include "support/random_values.h"
#include "vq_gmath/gmath_ray.h"
#include "vq_gmath/gmath_time_sampling.h"

namespace {

constexpr double inf = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

TEST(GMathValues, that_are_none_have_defined_answers) {
  GMathBbox3<float> box, empty;
  box.add(GMathVec3<float>(1, 2, 3));
  box.add(empty);
  box.add(GMathVec3<float>(std::numeric_limits<float>::quiet_NaN(), 5, 3));
  EXPECT_EQ(box, GMathBbox3<float>({1, 2, 3}, {1, 5, 3}));
  EXPECT_FALSE(gmath_is_valid_box(GMathBbox3<double>(empty)));
  EXPECT_FALSE(gmath_is_valid_box({{0, 0, 0}, {1, inf, 1}}));
  EXPECT_FALSE(gmath_is_valid_box({{0, nan, 0}, {1, 1, 1}}));
  EXPECT_TRUE(gmath_is_valid_box({{0, 0, 0}, {0, 1e308, 0}}));
  const GMathBasicRay<double> ray({0, 0, 0}, {-0.0, -2, 0});
  EXPECT_EQ(ray.inverse, GMathVec3<double>(inf, -0.5, inf)) << "zero of either sign counts as positive";
  EXPECT_TRUE(ray.negative[0] == 0 && ray.negative[1] == 1 && ray.negative[2] == 0);
}

TEST(GMathTimeSampling, span_is_exact_on_samples_and_stays_within_them) {
  RandomValues random(3);
  for (uint k = 0; k < 3000; ++k) {
    const uint count = 2 + random.get_index(20);
    const GMathTimeSampling sampling(random.get(-100, 100), random.get(0.001, 3.0) / (1 + random.get_index(7)), count);
    uint index = 99;
    double fraction = 99;
    const auto expect = [&](double time, uint expected_index, double expected_fraction) {
      sampling.get_span(time, index, fraction);
      EXPECT_EQ(index, expected_index) << "time " << time << " of " << count;
      EXPECT_EQ(fraction, expected_fraction) << "time " << time << " of " << count;
    };
    for (uint s = 0; s + 1 < count; ++s) expect(sampling.get_sample_time(s), s, 0.0);
    const double last = sampling.get_sample_time(count - 1);
    for (const double time : {last, last + 1, inf}) expect(time, count - 2, 1.0);
    for (const double time : {sampling.get_begin() - 1, -inf, nan}) expect(time, 0, 0.0);
    for (uint repeat = 0; repeat < 20; ++repeat) {
      const double time = random.get(sampling.get_begin(), last);
      sampling.get_span(time, index, fraction);
      ASSERT_TRUE(index <= count - 2 && fraction >= 0 && fraction <= 1);
      const double a = sampling.get_sample_time(index), b = sampling.get_sample_time(index + 1);
      EXPECT_NEAR(a + (b - a) * fraction, time, 1e-9);
    }
  }
}

}  // namespace
