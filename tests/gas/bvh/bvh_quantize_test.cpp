#include "gas/bvh/bvh_quantize.h"

#include <gtest/gtest.h>

#include "support/box_scenes.h"

namespace {

struct Lanes {
  u8 planes[6][4] = {};
};

}  // namespace

TEST(BvhQuantize, decoded_boxes_hold_what_was_encoded) {
  RandomValues random(1);
  for (uint k = 0; k < 200'000; ++k) {
    const float scale = static_cast<float>(std::pow(10.0, random.get(-30.0, 30.0)));
    const auto offset = random.get_vec<float>(random.get_index(2) == 0 ? 0.0 : 10.0);
    const auto point = [&] { return (random.get_vec<float>() + offset) * scale; };
    const FloatBox box = make_box(point(), point());
    FloatBox frame = box;
    frame.add(make_box(point(), point()));
    Lanes lanes;
    const uint lane = k % 4;
    const FloatBox decoded = bvh_quantize_lane(frame, box, lane, lanes.planes);
    ASSERT_EQ(decoded, bvh_decode_lane(frame, lanes.planes, lane));
    for (uint axis = 0; axis < 3; ++axis) {
      const float extent = frame.max[axis] - frame.min[axis], step = extent / 255.0f;
      const float grain = std::abs(frame.max[axis]) * 1e-6f + std::abs(frame.min[axis]) * 1e-6f;
      // The step is a rounded 255th: a far face is cut now and then, by about a rounding error of the extent.
      ASSERT_LE(decoded.min[axis], box.min[axis] + 5e-7f * extent);
      ASSERT_GE(decoded.max[axis], box.max[axis] - 5e-7f * extent);
      ASSERT_GE(decoded.min[axis], box.min[axis] - 1.001f * step - grain);
      ASSERT_LE(decoded.max[axis], box.max[axis] + 1.001f * step + grain);
    }
  }
}

TEST(BvhQuantize, a_frame_without_extent_is_all_zero) {
  const FloatBox frame({1, -2, 3}, {1, 5, 3});
  Lanes lanes;
  const FloatBox decoded = bvh_quantize_lane(frame, frame, 2, lanes.planes);
  const u8 expected[6] = {0, 0, 0, 255, 0, 0};
  for (uint plane = 0; plane < 6; ++plane) EXPECT_EQ(lanes.planes[plane][2], expected[plane]) << plane;
  EXPECT_EQ(decoded.min, frame.min);
  EXPECT_EQ(decoded.max.x, 1.0f);
  EXPECT_EQ(decoded.max.z, 3.0f);
}

// Whatever does not fit a byte: NaN from infinite frames opens the box, the rest is clamped.
TEST(BvhQuantize, odd_frames_never_lose_the_box) {
  constexpr float infinity = std::numeric_limits<float>::infinity();
  Lanes lanes;
  bvh_quantize_lane({{-infinity, 0, 0}, {infinity, 1, infinity}}, {{-infinity, 0, 0}, {infinity, 1, infinity}}, 0,
                    lanes.planes);
  EXPECT_EQ(lanes.planes[0][0], 0);
  EXPECT_EQ(lanes.planes[1][0], 255);
  EXPECT_EQ(lanes.planes[2][0], 0);
  EXPECT_EQ(lanes.planes[3][0], 255);
  bvh_quantize_lane({{0, 0, 0}, {1, 1, 1}}, {{-5, 0.5f, 2}, {7, 0.5f, 3}}, 1, lanes.planes);
  EXPECT_EQ(lanes.planes[0][1], 0);
  EXPECT_EQ(lanes.planes[1][1], 255);
  EXPECT_EQ(lanes.planes[2][1], 127);
  EXPECT_EQ(lanes.planes[3][1], 128);
  EXPECT_EQ(lanes.planes[4][1], 255);
  EXPECT_EQ(lanes.planes[5][1], 255);
  bvh_quantize_lane({{0, 0, 0}, {1e-37f, 1, 1}}, {{5e-38f, 0, 0}, {6e-38f, 1, 1}}, 2, lanes.planes);
  EXPECT_EQ(lanes.planes[0][2], 0);
  EXPECT_EQ(lanes.planes[1][2], 255);
}
