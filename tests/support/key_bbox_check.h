// tests/support/key_bbox_check.h
//
// Boxes at the samples of a shutter, of a primitive with keys between them: do they hold it when they are blended, and
// are they no larger than that takes?
#pragma once
#include <gtest/gtest.h>

#include <vector>

#include "vq_ctx/ctx_eval.h"
#include "vq_ctx/ctx_motion_blur.h"
#include "vq_gmath/gmath_bbox.h"

/// @param get_box  (time) -> the primitive's box under the motion blur of `ctx`
/// @param slack    by how much bounds may differ because they were rounded
/// @return how many bounds had to grow
template <class GetBox>
uint check_boxes_between_keys(CtxEval& ctx, const CtxMotionBlur& motion_blur, const GMathTimeSampling& keys,
                              double slack, const GetBox& get_box) {
  using Box = GMathBbox3<double>;
  const GMathTimeSampling& sampling = motion_blur.get_time_sampling();
  const uint count = sampling.get_sample_count();
  const auto bound = [](const Box& box, uint b) { return b < 3 ? -box.min[b] : box.max[b - 3]; };
  std::vector<Box> exact(count), given(count);
  for (const bool blurred : {true, false}) {  // ends without motion blur
    ctx.set_motion_blur(blurred ? &motion_blur : nullptr);
    for (uint k = 0; k < count; ++k) (blurred ? given : exact)[k] = get_box(sampling.get_sample_time(k));
  }
  std::vector<double> needed(std::size_t{6} * (count + 1), 0.0);  // by sample; the first and last span have one
  for (uint span = 0; span + 1 < count; ++span) {
    const double begin = sampling.get_sample_time(span), end = sampling.get_sample_time(span + 1);
    std::vector<double> fractions;
    for (uint k = 0; k <= 100; ++k) fractions.push_back(k / 100.0);
    for (uint k = 0; k < keys.get_sample_count(); ++k)
      fractions.push_back((keys.get_sample_time(k) - begin) / (end - begin));
    for (const double f : fractions) {
      if (!(f >= 0.0 && f <= 1.0)) continue;
      const Box box = get_box(begin + (end - begin) * f);
      for (uint b = 0; b < 6; ++b) {
        const auto blend = [&](const std::vector<Box>& boxes) {
          return bound(boxes[span], b) * (1.0 - f) + bound(boxes[span + 1], b) * f;
        };
        EXPECT_GE(blend(given), bound(box, b) - slack) << "bound " << b << ", span " << span << ", at " << f;
        for (const uint sample : {span, span + 1})
          needed[6 * sample + b] = std::max(needed[6 * sample + b], bound(box, b) - blend(exact));
      }
    }
  }
  uint grown = 0;
  for (uint sample = 0; sample < count; ++sample)
    for (uint b = 0; b < 6; ++b) {
      const double surplus = bound(given[sample], b) - bound(exact[sample], b);
      EXPECT_GE(surplus, 0.0);
      EXPECT_LE(surplus, needed[6 * sample + b] + std::max(slack, 1e-6)) << "bound " << b << ", sample " << sample;
      grown += surplus > 0.0;
    }
  return grown;
}
