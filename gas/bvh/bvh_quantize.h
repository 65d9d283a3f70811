// gas/bvh/bvh_quantize.h
//
// 8-bit boxes. Builder, refit and kernels must decode the same bits, so they share these functions and are compiled
// without fused multiply-add. The step is extent * 0.003921569f, not extent / 255: the product is what all three use.
#pragma once
#include <cfloat>
#include <cmath>

#include "gas/bvh/bvh_layout.h"

inline constexpr float bvh_quantum = 0.003921569f;  ///< 1 / 255

/// Decodes byte `q` in a frame from `frame_min` to frame_min + extent.
inline float bvh_decode_plane(float frame_min, float extent, u8 q) {
  return frame_min + static_cast<float>(q) * (extent * bvh_quantum);
}

/// Clamps to 0..255 and truncates. NaN (from a frame of infinite extent) becomes `if_nan`.
inline u8 bvh_clamp_byte(float value, u8 if_nan) {
  if (value != value) return if_nan;
  return static_cast<u8>(value < 0.0f ? 0.0f : value > 255.0f ? 255.0f : value);
}

/// The frame of a quantized node below an aligned one: its box, enlarged by 2^-18 of the extent. Byte 255 decodes up to
/// three rounding errors short of the frame's far face, and each quantized child takes the decoded box as its frame:
/// the margin suffices for twenty quantized nodes on one path.
inline GMathBbox3<float> bvh_make_frame(GMathBbox3<float> box) {
  for (uint axis = 0; axis < 3; ++axis) box.max[axis] += (box.max[axis] - box.min[axis]) * 0x1p-18f;
  return box;
}

/// Writes `box` into lane `lane`, rounded outwards to whole bytes of `frame`, and returns the decoded box. It contains
/// `box` if `frame` does and is from bvh_make_frame() or decoded from such a frame.
inline GMathBbox3<float> bvh_quantize_lane(const GMathBbox3<float>& frame, const GMathBbox3<float>& box, uint lane,
                                           u8 (&planes)[6][4]) {
  GMathBbox3<float> decoded;
  for (uint axis = 0; axis < 3; ++axis) {
    const float frame_min = frame.min[axis];
    const float extent = frame.max[axis] - frame_min;
    const float scale = extent > 0.0f ? 255.0f / extent : 0.0f;
    // For extents below about 7.5e-37 the scale overflows: all lanes then cover the whole frame.
    const bool is_resolved = scale <= FLT_MAX;
    u8 q_min = is_resolved ? bvh_clamp_byte(std::floor((box.min[axis] - frame_min) * scale), 0) : u8{0};
    u8 q_max = is_resolved ? bvh_clamp_byte(std::ceil((box.max[axis] - frame_min) * scale), 255) : u8{255};
    // Rounding may decode a plane inside the box: move it outwards by one step.
    if (q_min > 0 && bvh_decode_plane(frame_min, extent, q_min) > box.min[axis]) --q_min;
    if (q_max < 255 && bvh_decode_plane(frame_min, extent, q_max) < box.max[axis]) ++q_max;
    planes[2 * axis][lane] = q_min;
    planes[2 * axis + 1][lane] = q_max;
    decoded.min[axis] = bvh_decode_plane(frame_min, extent, q_min);
    decoded.max[axis] = bvh_decode_plane(frame_min, extent, q_max);
  }
  return decoded;
}

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
