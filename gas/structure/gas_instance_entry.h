// gas/structure/gas_instance_entry.h
//
// What a query reads at a leaf of a structure over instances, in few cache lines.
//
//   GasInstanceLeaf   24 bytes, in the order of the tree     cluster | instance | local box, a byte a plane
//   GasInstance      192 bytes, one per accepted instance    frame of these boxes, matrix | the rest
//
// The world box of a leaf is large if its instance is turned. So the ray is first tested against the cluster's box in
// the instance's space: half of all leaves or more need no further work. What the test reads of an instance is in two
// cache lines and is prefetched when the leaf's box is hit; in a large scene a ray waits longer for it than the test
// takes.
#pragma once
#include "gas/bvh/bvh_quantize.h"
#include "vq_gas_base/gas_slab_ray.h"
#include "vq_gmath/gmath_matrix.h"

/// When a ray may be tested against the local boxes of an instance's leaves.
enum class GasInstanceBoxes : u8 {
  never,    ///< they do not hold the instance
  at_rest,  ///< the shape changes over time
  always,
};

struct GasInstanceLeaf {
  u64 cluster = 0;
  u32 instance = 0;  ///< index of its GasInstance
  // Planes of the local box in the instance's frame: x, y, z, unused.
  u8 low[4] = {0, 0, 0, 0};
  u8 high[4] = {0, 0, 0, 0};
  GasInstanceBoxes boxes = GasInstanceBoxes::never;

  void set_box(const GMathBbox3<float>& frame, const GMathBbox3<float>& box) {
    u8 planes[6][4];
    BvhQuantizer(frame).write_lane(box, 0, planes);
    for (uint axis = 0; axis < 3; ++axis) {
      low[axis] = planes[2 * axis][0];
      high[axis] = planes[2 * axis + 1][0];
    }
  }
};
static_assert(sizeof(GasInstanceLeaf) == 24);

struct alignas(64) GasInstance {
  GMathBbox3<float> frame;         ///< holds the local boxes of all leaves
  void* inner = nullptr;           ///< for use by the structure: how it finds the inner structure
  GMathMatrix4x4<double> inverse;  ///< of `matrix`; rays need its first three rows, which end the second cache line
  const GMathMatrix4x4<double>* matrix = nullptr;  ///< to the outer space, at rest
  uint index = 0;                                  ///< in the input
  uint accepted = 0;                               ///< in the table
  bool is_visible = true;                          ///< false: invisible to all queries

  bool has_finite_frame() const {
    for (uint axis = 0; axis < 3; ++axis)
      if (!(frame.min[axis] >= -FLT_MAX && frame.max[axis] - frame.min[axis] <= FLT_MAX)) return false;
    return true;
  }
};
static_assert(sizeof(GasInstance) == 192 && offsetof(GasInstance, inverse) + 3 * 4 * sizeof(double) == 128);

/// Prefetches all cache lines of a record.
template <class T>
[[gnu::always_inline]] inline void gas_prefetch(const T& record) {
  const auto first = reinterpret_cast<std::uintptr_t>(&record);
  for (std::size_t byte = 0; byte < sizeof(T); byte += 64) simd_prefetch(first + byte);
  simd_prefetch(first + sizeof(T) - 1);
}

/// A ray in an instance's space, in the form of the test against local boxes.
class GasInstanceRay {
 public:
  /// @param frame  of the instance; its leaves' boxes lie in it
  void set(const GMathBasicRay<double>& ray, double tnear, const GMathBbox3<float>& frame) {
    slabs_ = gas_load_slab_ray(ray, tnear, frame, gas_get_no_slack());
    first_ = static_cast<float>(tnear);
    frame_min_ = pack(frame.min);
    frame_step_ = (pack(frame.max) - frame_min_) * SimdF(bvh_quantum);
  }
  /// False if the ray misses the leaf's box within its interval.
  bool touches(const GasInstanceLeaf& leaf, double limit) const {
    const SimdF low = frame_min_ + SimdF::load_bytes(leaf.low) * frame_step_;
    const SimdF high = frame_min_ + SimdF::load_bytes(leaf.high) * frame_step_;
    const auto is_negative = SimdF(0.0f) > slabs_.near_inverse;
    const SimdF near = (select(is_negative, high, low) - slabs_.near_origin) * slabs_.near_inverse;
    const SimdF far = (select(is_negative, low, high) - slabs_.far_origin) * slabs_.far_inverse;
    // A ray in the plane of a face gives 0 * inf = NaN: max() and min() return their second operand then.
    const SimdF entry = max(near, SimdF(first_)), exit = min(far, SimdF(gas_clamp_limit(limit)));
    const SimdF last_entry = max(max(broadcast<0>(entry), broadcast<1>(entry)), broadcast<2>(entry));
    const SimdF first_exit = min(min(broadcast<0>(exit), broadcast<1>(exit)), broadcast<2>(exit));
    return (last_entry <= first_exit).get_bits() != 0;
  }

 private:
  static SimdF pack(const GMathVec3<float>& v) { return SimdF(v.x, v.y, v.z, 0.0f); }

  GasSlabRay slabs_;
  SimdF frame_min_, frame_step_;  ///< bytes to planes, with the roundings of bvh_decode_plane()
  float first_ = 0.0f;
};
