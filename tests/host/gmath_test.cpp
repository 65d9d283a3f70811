// Numbers that are none, inverse matrices and time samplings.
#include <gtest/gtest.h>

#include <cmath>
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

TEST(GMathMatrix, affine_inverse_has_the_values_of_the_general_one) {
  RandomValues random(1);
  for (uint k = 0; k < 1000; ++k) {
    GMathMatrix4x4<double> matrix;
    for (uint row = 0; row < 3; ++row)
      for (double& entry : matrix.m[row]) entry = random.get();
    // Twice the matrix is not affine, and its exact inverse is half of the other.
    GMathMatrix4x4<double> twice = matrix;
    for (auto& row : twice.m)
      for (double& entry : row) entry *= 2.0;
    const GMathMatrix4x4<double> inverse = matrix.get_inverse(), half = twice.get_inverse();
    for (uint row = 0; row < 3; ++row)
      for (uint column = 0; column < 4; ++column) ASSERT_EQ(inverse.m[row][column], 2.0 * half.m[row][column]);
    const GMathVec3<double> point = random.get_vec(), back = inverse.transform_point(matrix.transform_point(point));
    ASSERT_LT((back - point).get_length(), 1e-9 / std::fabs(matrix.get_determinant()));
  }
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
