// gas/bvh/bvh_quantize.h
//
// 8-bit boxes. Builder, refit and kernels must decode the same bits, so they share these functions and are compiled
// without fused multiply-add. The step is extent * 0.003921569f, not extent / 255: the product is what all three use.
#pragma once
#include <cfloat>
#include <limits>

#include "gas/bvh/bvh_layout.h"
#include "vq_gas_base/gas_simd_box.h"

inline constexpr float bvh_quantum = 0.003921569f;  ///< 1 / 255

/// Decodes byte `q` in a frame from `frame_min` to frame_min + extent.
inline float bvh_decode_plane(float frame_min, float extent, u8 q) {
  return frame_min + static_cast<float>(q) * (extent * bvh_quantum);
}

/// The frame of a quantized node below an aligned one: its box, enlarged by 2^-18 of the extent. Byte 255 decodes up to
/// three rounding errors short of the frame's far face, and each quantized child takes the decoded box as its frame:
/// the margin suffices for twenty quantized nodes on one path.
inline GMathBbox3<float> bvh_make_frame(GMathBbox3<float> box) {
  for (uint axis = 0; axis < 3; ++axis) box.max[axis] += (box.max[axis] - box.min[axis]) * 0x1p-18f;
  return box;
}

/// Quantizes the boxes of one node in its frame, on all axes at once.
class BvhQuantizer {
 public:
  explicit BvhQuantizer(const GMathBbox3<float>& frame) {
    const GasSimdBox box = GasSimdBox::load(frame);
    const SimdF extent = box.high - box.low, none(0.0f), unresolved(std::numeric_limits<float>::quiet_NaN());
    first_ = box.low;
    step_ = extent * SimdF(bvh_quantum);
    scale_ = select(extent > none, SimdF(255.0f) / extent, none);
    // For extents below about 7.5e-37 the scale overflows: all lanes then cover the whole frame.
    scale_ = select(scale_ <= SimdF(FLT_MAX), scale_, unresolved);
  }

  /// Writes `box` into lane `lane`, rounded outwards to whole bytes of the frame, and returns the decoded box. It
  /// contains `box` if the frame does and is from bvh_make_frame() or decoded from such a frame.
  GMathBbox3<float> write_lane(const GMathBbox3<float>& box, uint lane, u8 (&planes)[6][4]) const {
    const GasSimdBox exact = GasSimdBox::load(box);
    const SimdF least(0.0f), most(255.0f), one(1.0f);
    // What is NaN (from a frame without resolution, or of infinite extent) covers the frame.
    SimdF low = floor(min(max((exact.low - first_) * scale_, least), most));
    SimdF high = ceil(max(min((exact.high - first_) * scale_, most), least));
    // Rounding may decode a plane inside the box: move it outwards by one step.
    low = select((low > least) & (decode(low) > exact.low), low - one, low);
    high = select((most > high) & (exact.high > decode(high)), high + one, high);
    u8 low_bytes[4], high_bytes[4];
    low.store_bytes(low_bytes);
    high.store_bytes(high_bytes);
    for (uint axis = 0; axis < 3; ++axis) {
      planes[2 * axis][lane] = low_bytes[axis];
      planes[2 * axis + 1][lane] = high_bytes[axis];
    }
    return GasSimdBox{decode(low), decode(high)}.get_bbox();
  }

 private:
  SimdF decode(const SimdF& bytes) const { return first_ + bytes * step_; }

  SimdF first_, step_, scale_;  ///< lanes x, y, z
};

/// Decodes the box of lane `lane` in `frame`.
inline GMathBbox3<float> bvh_decode_lane(const GMathBbox3<float>& frame, const u8 (&planes)[6][4], uint lane) {
  GMathBbox3<float> box;
  for (uint axis = 0; axis < 3; ++axis) {
    const float extent = frame.max[axis] - frame.min[axis];
    box.min[axis] = bvh_decode_plane(frame.min[axis], extent, planes[2 * axis][lane]);
    box.max[axis] = bvh_decode_plane(frame.min[axis], extent, planes[2 * axis + 1][lane]);
  }
  return box;
}

/// An unused lane: inverted on every axis.
inline void bvh_clear_lane(uint lane, u8 (&planes)[6][4]) {
  for (uint axis = 0; axis < 3; ++axis) {
    planes[2 * axis][lane] = 255;
    planes[2 * axis + 1][lane] = 0;
  }
}
