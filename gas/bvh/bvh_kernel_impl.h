// gas/bvh/bvh_kernel_impl.h
//
// The traversal loop and its steps. Included by bvh_kernel.cpp, which instantiates every variant once.
//
//   bvh_load_ray            the ray in single precision, rounded outwards
//   traverse_ray            pops what waits, nearest on top
//     descend               from node to nearest hit child, down to a leaf
//       bvh_pick_planes     near and far planes of four children as stored,
//       bvh_decode_planes   or from 8 bits;
//       bvh_blend_lanes     those of two motion samples blended in time
//       bvh_test_lanes      four slab tests at once;
//       bvh_test_oriented   four boxes that each have a frame of their own
//       take_nearest        orders the hit children; the others wait on the stack
//     visit_leaf            the structure's leaf function
//
// The loop is bound by the latency of these dependent steps and by mispredicted branches, then by cache misses; hence
// planes picked by an offset per axis rather than by a blend, the pair of hit children ordered without a branch, and
// children prefetched as soon as they are known to be hit.
#pragma once
#include <algorithm>
#include <bit>
#include <cmath>
#include <span>
#include <type_traits>

#include "gas/bvh/bvh_kernel.h"
#include "gas/bvh/bvh_quantize.h"
#include "gas/bvh/bvh_start.h"
#include "vq_geometry/geometry_raytrace_ctx.h"
#include "vq_simd/simd_float.h"

enum class BvhTime { still, moving };
enum class BvhVisits { uncounted, counted };
/// Which inner nodes a tree can hold, and how they are taken.
enum class BvhKinds {
  aligned,                    ///< a tree without 8-bit nodes, as all small ones are, needs no boxes on the stack
  aligned_and_quantized,      ///<
  all,                        ///< oriented nodes too
  oriented_taken_as_aligned,  ///< oriented references lead to the aligned node of the same index
};

/// A child that waits for its turn. Its box matters only to quantized nodes, which are decoded against it; a moving ray
/// needs it at both samples, because 8-bit planes of different frames cannot be blended before they are decoded.
template <BvhTime time>
struct BvhStackEntry {
  BvhChildRef ref;
  GMathBbox3<float> box[time == BvhTime::moving ? 2 : 1];
  float distance;
};
/// Where oriented references are taken as aligned ones a path may lead anywhere, back to its own beginning too: it goes
/// on only to aligned nodes behind the last one on it.
template <BvhTime time>
struct BvhGuardedStackEntry : BvhStackEntry<time> {
  u32 first_allowed = 0;  ///< lowest index of an aligned node that may follow
};
static_assert(sizeof(BvhStackEntry<BvhTime::still>) == 36 && sizeof(BvhStackEntry<BvhTime::moving>) == 60);

/// One ray in single precision, as the node test wants it. Origin and inverse direction are rounded once towards an
/// earlier entry and once towards a later exit, far enough that no rounding in the slab test can part a ray from a box
/// that it touches (Ize 2013, "Robust BVH Ray Traversal"): rays aimed at an edge or a vertex would otherwise slip
/// between the two boxes that meet there, several in a hundred on a mesh of flat boxes.
struct BvhRay {
  SimdF near_origin[3], near_inverse[3];
  SimdF far_origin[3], far_inverse[3];
  SimdF t_near, t_far;
  uint near_plane[3], far_plane[3];  ///< which of the six planes the ray meets first and last, per axis
  uint sample[2];                    ///< moving: the two motion samples around the ray's time
  SimdF sample_weight[2];            ///< moving: their shares
};

/// Planes of four boxes in the order in which the ray meets them.
struct BvhLanes {
  SimdF near[3], far[3];
  SimdF min_x, max_x;
};

inline float bvh_clamp_limit(double limit) {
  const float rounded = static_cast<float>(limit);
  return rounded < FLT_MAX ? rounded : FLT_MAX;
}

/// x, y and z, each in all lanes.
inline void bvh_spread(const SimdF& v, SimdF (&axes)[3]) {
  axes[0] = broadcast<0>(v);
  axes[1] = broadcast<1>(v);
  axes[2] = broadcast<2>(v);
}

// As a call, which it would become with so many callers, it made short rays 8 % slower.
template <BvhTime time>
[[gnu::always_inline]] inline BvhRay bvh_load_ray(const GeometryRaytraceCtx& query, uint ray, float limit) {
  const GMathBasicRay<double>& record = query.get_ray(ray);
  BvhRay out;
  const double tnear = query.get_tnear(ray);
  const auto pack = [](const GMathVec3<double>& v) {
    return SimdF(static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z), 0.0f);
  };
  const SimdF origin = pack(record.origin), inverse = pack(record.inverse);
  // Along the direction, so that the ray meets near planes earlier and far planes later. An infinite origin stays one.
  const SimdF slack = copy_sign(min(copy_sign(origin, SimdF(0.0f)), SimdF(FLT_MAX)) * SimdF(0x1p-23f), inverse);
  // Behind the origin a smaller factor would mean a later entry; there the origin's slack must do.
  const float inverse_slack = tnear >= 0.0 ? 0x1p-22f : 0.0f;
  bvh_spread(origin + slack, out.near_origin);
  bvh_spread(origin - slack, out.far_origin);
  bvh_spread(inverse * SimdF(1.0f - inverse_slack), out.near_inverse);
  bvh_spread(inverse * SimdF(1.0f + inverse_slack), out.far_inverse);
  for (uint axis = 0; axis < 3; ++axis) {
    out.near_plane[axis] = 2 * axis + record.negative[axis];
    out.far_plane[axis] = 2 * axis + 1 - record.negative[axis];
  }
  out.t_near = SimdF(static_cast<float>(tnear));
  out.t_far = SimdF(limit);
  if constexpr (time == BvhTime::moving) {
    const GeometryRaySpan& span = query.spans[ray];
    const float fraction = static_cast<float>(span.fraction);
    out.sample[0] = span.first;
    out.sample[1] = span.second;
    out.sample_weight[0] = SimdF(1.0f - fraction);
    out.sample_weight[1] = SimdF(fraction);
  }
  return out;
}

/// Planes as floats, from a node or from a block of motion samples.
inline BvhLanes bvh_pick_planes(const float (&planes)[6][4], const BvhRay& ray) {
  BvhLanes lanes;
  for (uint axis = 0; axis < 3; ++axis) {
    lanes.near[axis] = SimdF::load(planes[ray.near_plane[axis]]);
    lanes.far[axis] = SimdF::load(planes[ray.far_plane[axis]]);
  }
  lanes.min_x = SimdF::load(planes[0]);
  lanes.max_x = SimdF::load(planes[1]);
  return lanes;
}

/// Planes in 8 bits, decoded against the frame that the parent's lane box is.
inline BvhLanes bvh_decode_planes(const u8 (&planes)[6][4], const GMathBbox3<float>& frame, const BvhRay& ray) {
  BvhLanes lanes;
  for (uint axis = 0; axis < 3; ++axis) {
    const SimdF first(frame.min[axis]);
    const SimdF step((frame.max[axis] - frame.min[axis]) * bvh_quantum);
    lanes.near[axis] = first + SimdF::load_bytes(planes[ray.near_plane[axis]]) * step;
    lanes.far[axis] = first + SimdF::load_bytes(planes[ray.far_plane[axis]]) * step;
  }
  const bool x_is_negative = ray.near_plane[0] != 0;
  lanes.min_x = x_is_negative ? lanes.far[0] : lanes.near[0];
  lanes.max_x = x_is_negative ? lanes.near[0] : lanes.far[0];
  return lanes;
}

inline SimdF bvh_blend(const SimdF& a, const SimdF& b, const BvhRay& ray) {
  return ray.sample_weight[0] * a + ray.sample_weight[1] * b;
}

inline BvhLanes bvh_blend_lanes(const BvhLanes& a, const BvhLanes& b, const BvhRay& ray) {
  BvhLanes lanes;
  for (uint axis = 0; axis < 3; ++axis) {
    lanes.near[axis] = bvh_blend(a.near[axis], b.near[axis], ray);
    lanes.far[axis] = bvh_blend(a.far[axis], b.far[axis], ray);
  }
  lanes.min_x = bvh_blend(a.min_x, b.min_x, ray);
  lanes.max_x = bvh_blend(a.max_x, b.max_x, ray);
  return lanes;
}

/// Slab test (Kay, Kajiya 1986) of one ray against four boxes. Writes the entry distance of each lane, in units of the
/// ray's direction, and returns a bit per hit lane.
inline uint bvh_test_lanes(const BvhLanes& box, const BvhRay& ray, SimdF& entry) {
  // A ray lying in a slab plane gives 0 * inf = NaN; SimdF's min and max return their second operand on NaN, so the
  // running bound stands second and the ray counts as inside that slab.
  entry = ray.t_near;
  SimdF exit = ray.t_far;
  for (uint axis = 0; axis < 3; ++axis) {
    entry = max((box.near[axis] - ray.near_origin[axis]) * ray.near_inverse[axis], entry);
    exit = min((box.far[axis] - ray.far_origin[axis]) * ray.far_inverse[axis], exit);
  }
  // Only a NaN ray needs the second term: it passes every slab, and an unused lane would lead it back to node 0.
  return ((entry <= exit) & (box.min_x <= box.max_x)).get_bits();
}

/// The same ray as oriented lanes want it: not inverted, because each lane has axes of its own.
struct BvhOrientedRay {
  SimdF origin[3], direction[3];
  SimdF slack[3];  ///< how far rounding may have moved any of the points that count, along the world's axes
};

/// @param bounds  holds everything that the ray may hit
inline BvhOrientedRay bvh_load_oriented_ray(const GMathBasicRay<double>& ray, const GMathBbox3<float>& bounds) {
  BvhOrientedRay out;
  for (uint axis = 0; axis < 3; ++axis) {
    const float origin = static_cast<float>(ray.origin[axis]);
    out.origin[axis] = SimdF(origin);
    out.direction[axis] = SimdF(static_cast<float>(ray.direction[axis]));
    // A point O + t D of a box within the bounds comes out of the test some 12 roundings off, each of at most 2^-24 of
    // the terms' sum, and |t D| <= |O| + |bound|; the frame itself was rounded some 7 times.
    const float bound = std::max(std::fabs(bounds.min[axis]), std::fabs(bounds.max[axis]));
    out.slack[axis] = SimdF((std::fabs(origin) + bound) * 0x1p-20f);
  }
  return out;
}

/// One row of the frames of four lanes: where the ray is between two planes of it.
struct BvhOrientedSlab {
  SimdF near, far;
  SimdF speed;  ///< magnitude of the ray's direction along the row
};

/// Planes at `low` and `high`; the unit cube's are at 0 and 1.
/// @param row  coefficients of x, y, z, then the offset
inline BvhOrientedSlab bvh_cross_slab(const float (*row)[4], const SimdF& low, const SimdF& high,
                                      const BvhOrientedRay& ray) {
  const SimdF x = SimdF::load(row[0]), y = SimdF::load(row[1]), z = SimdF::load(row[2]);
  const SimdF d = x * ray.direction[0] + y * ray.direction[1] + z * ray.direction[2];
  const SimdF o = x * ray.origin[0] + y * ray.origin[1] + z * ray.origin[2] + SimdF::load(row[3]);
  // Both planes are moved outwards, so that a fibre far from the origin is as wide here as it is there.
  const SimdF slack = abs(x) * ray.slack[0] + abs(y) * ray.slack[1] + abs(z) * ray.slack[2];
  const SimdF inverse = SimdF(-1.0f) / d;
  const SimdF t_low = (o + slack - low) * inverse;
  const SimdF t_high = (o - slack - high) * inverse;
  return {min(t_low, t_high), max(t_low, t_high), abs(d)};
}

/// Where the box of a lane lies in the lane's own frame: the unit cube, or blended between two motion samples.
struct BvhUnitCubes {
  SimdF get_low(uint /*row*/) const { return SimdF(0.0f); }
  SimdF get_high(uint /*row*/) const { return SimdF(1.0f); }
};
struct BvhMovedCubes {
  const BvhLanePlanes &a, &b;
  const BvhRay& ray;
  SimdF get_low(uint row) const { return blend(2 * row); }
  SimdF get_high(uint row) const { return blend(2 * row + 1); }

 private:
  SimdF blend(uint plane) const { return bvh_blend(SimdF::load(a.planes[plane]), SimdF::load(b.planes[plane]), ray); }
};

/// Slab test of one ray against four oriented boxes (Woop et al. 2014). The frames are affine, so distances are those
/// of the world and compare with the aligned lanes'. An unused lane, all of whose rows are 0, is never hit.
template <class Cubes>
inline uint bvh_test_oriented(const BvhNodeOriented& node, const Cubes& cubes, const BvhOrientedRay& oriented,
                              const BvhRay& ray, SimdF& entry) {
  entry = ray.t_near;
  SimdF exit = ray.t_far, speed(0.0f);
  for (uint row = 0; row < 3; ++row) {
    const BvhOrientedSlab slab = bvh_cross_slab(node.rows + 4 * row, cubes.get_low(row), cubes.get_high(row), oriented);
    entry = max(slab.near, entry);
    exit = min(slab.far, exit);
    speed = speed + slab.speed;
  }
  return ((entry <= exit) & (speed > SimdF(0.0f))).get_bits();
}

/// Where the memory of a reference lies, by its three kind bits: base, bytes per index, and how far the second cache
/// line is that is worth having. A table, because a branch on the kind would be mispredicted as often as not.
struct BvhPrefetchTable {
  struct Row {
    std::uintptr_t base;
    u32 stride;
    u32 second;
  };
  Row rows[8];

  explicit BvhPrefetchTable(const GasBvh<4>& tree) {
    const auto address = [](const void* array) { return reinterpret_cast<std::uintptr_t>(array); };
    for (uint bits = 0; bits < 8; ++bits) {
      const BvhChildRef ref{0, bits << 8};
      switch (ref.get_kind()) {
        case BvhKind::aligned:
          rows[bits] = {address(tree.aligned), sizeof(BvhNodeAligned), 64};
          break;
        case BvhKind::quantized:
          rows[bits] = {address(tree.quantized), sizeof(BvhNodeQuantized), 32};
          break;
        case BvhKind::oriented:
          rows[bits] = {address(tree.oriented), sizeof(BvhNodeOriented), 64};
          break;
        case BvhKind::leaf:
          rows[bits] = {address(tree.order), sizeof(u32), 0};
          break;
      }
    }
  }
  /// The first two cache lines: a whole aligned node, both halves of a quantized one, a leaf's first item.
  void prefetch(BvhChildRef ref) const {
    const Row& row = rows[ref.word >> 8 & 7];
    const std::uintptr_t at = row.base + u64{ref.index} * row.stride;
    simd_prefetch(at);
    simd_prefetch(at + row.second);
  }
};

template <BvhHits hits, BvhTime time, BvhVisits visits, BvhKinds kinds>
class BvhTraversal {
 public:
  static constexpr bool is_guarded = kinds == BvhKinds::oriented_taken_as_aligned;
  using Entry = std::conditional_t<is_guarded, BvhGuardedStackEntry<time>, BvhStackEntry<time>>;

  BvhTraversal(const BvhTarget& target, const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
               std::span<Entry> stack)
      : tree_(target.tree),
        motion_(target.motion),
        prefetch_(target.tree),
        leaf_function_(hits == BvhHits::nearest ? target.leaf.nearest : target.leaf.ray),
        leaf_user_(target.leaf.ray_user),
        ctx_(ctx),
        shader_(shader),
        query_(query),
        stack_(stack.data()),
        stack_end_(stack.data() + stack.size()) {}

  /// Walks ray `ray` from `start`, which is a node.
  void traverse_ray(const BvhStart& start, uint ray) {
    query_.first_ray = query_.last_ray = ray;
    float limit = bvh_clamp_limit(query_.get_limit(ray));
    BvhRay r = bvh_load_ray<time>(query_, ray, limit);
    if constexpr (kinds == BvhKinds::all) oriented_ray_ = bvh_load_oriented_ray(query_.get_ray(ray), get_bounds(r));
    if constexpr (is_guarded) nodes_left_ = 4 * (u64{tree_.aligned_count} + tree_.quantized_count + 1);
    Entry at = make_start(start, r);
    Entry* top = stack_;
    for (;;) {
      if (descend(r, at, top)) {
        if (!visit_leaf(at.ref, ray)) return;
        if constexpr (hits == BvhHits::nearest) {
          limit = bvh_clamp_limit(query_.map->get_path(ray).distance);
          r.t_far = SimdF(limit);
        }
      }
      do {
        if (top == stack_) return;
        --top;
      } while (hits == BvhHits::nearest && top->distance > limit);
      at = *top;
    }
  }

 private:
  GMathBbox3<float> get_bounds(const BvhRay& ray) const {
    GMathBbox3<float> bounds = tree_.box;
    if constexpr (time == BvhTime::moving) {
      for (const uint sample : ray.sample) bounds.add(motion_->get_bbox(sample));
    }
    return bounds;
  }

  Entry make_start(const BvhStart& start, const BvhRay& ray) const {
    Entry at;
    at.ref = start.ref;
    at.distance = 0.0f;
    if constexpr (time == BvhTime::still) {
      at.box[0] = start.box;
    } else {
      for (uint k = 0; k < 2; ++k)
        at.box[k] = start.is_root ? motion_->get_bbox(ray.sample[k])
                                  : motion_->get_aligned(start.node, ray.sample[k]).get_lane(start.lane);
    }
    return at;
  }

  /// Follows the nearest hit child down to a leaf; its siblings wait on the stack. False when a node's children are all
  /// missed.
  [[gnu::always_inline]] bool descend(const BvhRay& ray, Entry& at, Entry*& top) {  // as a call: 10 to 18 % slower
    for (;;) {
      // Aligned first, as most nodes are; of curves most are oriented.
      const u32 kind = at.ref.word & (BvhChildRef::leaf_bit | BvhChildRef::quantized_bit);
      if (kinds == BvhKinds::all && (at.ref.word & BvhChildRef::oriented_bit)) {
        if (!step_oriented(ray, at, top)) return false;
      } else if (kind == 0) {
        if (!step_aligned(ray, at, top)) return false;
      } else if (kinds == BvhKinds::aligned || (kind & BvhChildRef::leaf_bit)) {
        return true;
      } else {
        if (!step_quantized(ray, at, top)) return false;
      }
    }
  }

  bool step_aligned(const BvhRay& ray, Entry& at, Entry*& top) {
    const u32 index = at.ref.index;
    if constexpr (is_guarded) {
      if (index >= tree_.aligned_count || index < at.first_allowed || nodes_left_ == 0) return false;
      --nodes_left_;
    }
    count_node();
    const BvhNodeAligned& node = tree_.aligned[index];
    SimdF entry;
    uint mask;
    if constexpr (time == BvhTime::still) {
      mask = bvh_test_lanes(bvh_pick_planes(node.lanes.planes, ray), ray, entry);
    } else {
      const BvhLanes a = bvh_pick_planes(motion_->get_aligned(index, ray.sample[0]).planes, ray);
      const BvhLanes b = bvh_pick_planes(motion_->get_aligned(index, ray.sample[1]).planes, ray);
      mask = bvh_test_lanes(bvh_blend_lanes(a, b, ray), ray, entry);
    }
    const auto get_child = [&](uint lane) { return node.child[lane]; };
    const auto write_box = [&](Entry& to, uint lane) {
      if constexpr (is_guarded) to.first_allowed = index + 1;
      // Only a quantized node is decoded against the box that its parent holds for it.
      if (kinds == BvhKinds::aligned || !(to.ref.word & BvhChildRef::quantized_bit)) return;
      if constexpr (time == BvhTime::still) {
        to.box[0] = node.lanes.get_lane(lane);
      } else {
        for (uint k = 0; k < 2; ++k) to.box[k] = motion_->get_aligned(index, ray.sample[k]).get_lane(lane);
      }
    };
    return take_nearest(mask, entry, at, top, get_child, write_box);
  }

  bool step_quantized(const BvhRay& ray, Entry& at, Entry*& top) {
    count_node();
    const u32 index = at.ref.index;
    const BvhNodeQuantized& node = tree_.quantized[index];
    const uint used_lanes = (1u << at.ref.get_count()) - 1;  // in a flat frame an unused lane decodes to a point
    SimdF entry;
    uint mask;
    if constexpr (time == BvhTime::still) {
      mask = bvh_test_lanes(bvh_decode_planes(node.lanes.planes, at.box[0], ray), ray, entry);
    } else {
      const BvhLanes a = bvh_decode_planes(motion_->get_quantized(index, ray.sample[0]).planes, at.box[0], ray);
      const BvhLanes b = bvh_decode_planes(motion_->get_quantized(index, ray.sample[1]).planes, at.box[1], ray);
      mask = bvh_test_lanes(bvh_blend_lanes(a, b, ray), ray, entry);
    }
    const auto get_child = [&](uint lane) { return node.get_child(lane); };
    // The child's frame is decoded from this node's own, which `at` still holds while siblings are pushed.
    GMathBbox3<float> frame[time == BvhTime::still ? 1 : 2];
    std::copy(std::begin(at.box), std::end(at.box), frame);
    const auto write_box = [&](Entry& to, uint lane) {
      if constexpr (is_guarded) to.first_allowed = at.first_allowed;
      // Only a quantized node is decoded against the box that its parent holds for it.
      if (kinds == BvhKinds::aligned || !(to.ref.word & BvhChildRef::quantized_bit)) return;
      if constexpr (time == BvhTime::still) {
        to.box[0] = bvh_decode_lane(frame[0], node.lanes.planes, lane);
      } else {
        for (uint k = 0; k < 2; ++k)
          to.box[k] = bvh_decode_lane(frame[k], motion_->get_quantized(index, ray.sample[k]).planes, lane);
      }
    };
    return take_nearest(mask & used_lanes, entry, at, top, get_child, write_box);
  }

  bool step_oriented(const BvhRay& ray, Entry& at, Entry*& top) {
    count_node();
    const u32 index = at.ref.index;
    const BvhNodeOriented& node = tree_.oriented[index];
    SimdF entry;
    uint mask;
    if constexpr (time == BvhTime::still) {
      mask = bvh_test_oriented(node, BvhUnitCubes(), oriented_ray_, ray, entry);
    } else {
      const BvhMovedCubes cubes{motion_->get_oriented(index, ray.sample[0]),
                                motion_->get_oriented(index, ray.sample[1]), ray};
      mask = bvh_test_oriented(node, cubes, oriented_ray_, ray, entry);
    }
    const auto get_child = [&](uint lane) { return node.child[lane]; };
    // No child is quantized, so none needs its box.
    return take_nearest(mask, entry, at, top, get_child, [](Entry& /*to*/, uint /*lane*/) {});
  }

  /// Makes the nearest hit child the current one and pushes the others, nearest on top. Equal distances: the higher
  /// lane first. False when none is hit.
  template <class GetChild, class WriteBox>
  bool take_nearest(uint mask, const SimdF& entry, Entry& at, Entry*& top, const GetChild& get_child,
                    const WriteBox& write_box) {
    if (mask == 0) return false;
    const uint first = static_cast<uint>(std::countr_zero(mask));
    mask &= mask - 1;
    if (mask == 0) {
      at.ref = get_child(first);
      prefetch_.prefetch(at.ref);
      write_box(at, first);
      return true;
    }
    alignas(16) float distance[4];
    entry.store(distance);
    const uint second = static_cast<uint>(std::countr_zero(mask));
    mask &= mask - 1;
    if (mask == 0) {
      // Which one is nearer is a coin toss that no predictor learns: no branch.
      const bool first_is_nearer = distance[first] < distance[second];
      const uint nearer = first_is_nearer ? first : second;
      const uint farther = first ^ second ^ nearer;
      push(top, farther, distance, get_child, write_box);
      at.ref = get_child(nearer);
      prefetch_.prefetch(at.ref);
      write_box(at, nearer);
      return true;
    }
    return take_nearest_of_many(first, second, mask, distance, at, top, get_child, write_box);
  }

  /// Three or four hit children, by insertion into a list ordered from far to near.
  template <class GetChild, class WriteBox>
  bool take_nearest_of_many(uint first, uint second, uint rest, const float (&distance)[4], Entry& at, Entry*& top,
                            const GetChild& get_child, const WriteBox& write_box) {
    uint order[4] = {first, second, 0, 0};
    if (distance[first] < distance[second]) std::swap(order[0], order[1]);
    uint count = 2;
    for (; rest != 0; rest &= rest - 1) {
      const uint lane = static_cast<uint>(std::countr_zero(rest));
      uint place = count++;
      for (; place > 0 && distance[order[place - 1]] < distance[lane]; --place) order[place] = order[place - 1];
      order[place] = lane;
    }
    for (uint k = 0; k + 1 < count; ++k) push(top, order[k], distance, get_child, write_box);
    at.ref = get_child(order[count - 1]);
    prefetch_.prefetch(at.ref);
    write_box(at, order[count - 1]);
    return true;
  }

  /// The stack was sized from the tree's depth, so there is always room on a path that leads down.
  template <class GetChild, class WriteBox>
  void push(Entry*& top, uint lane, const float (&distance)[4], const GetChild& get_child, const WriteBox& write_box) {
    if (is_guarded && top == stack_end_) return;
    Entry& to = *top++;
    to.ref = get_child(lane);
    prefetch_.prefetch(to.ref);
    write_box(to, lane);
    to.distance = distance[lane];
  }

  /// False when the ray has seen enough.
  bool visit_leaf(BvhChildRef leaf, uint ray) {
    if constexpr (visits == BvhVisits::counted) ++query_.visits[ray].leaves;
    range_.set_view(tree_.order + leaf.index, leaf.get_count());
    leaf_function_(ctx_, shader_, query_, range_, leaf_user_);
    return hits == BvhHits::nearest || !query_.is_stopped(ray);
  }

  void count_node() {
    if constexpr (visits == BvhVisits::counted) ++query_.visits[query_.first_ray].nodes;
  }

  const GasBvh<4>& tree_;
  const GasBvhMotion<4>* motion_;
  BvhPrefetchTable prefetch_;
  BvhRayLeafFunction leaf_function_;
  void* leaf_user_;
  const CtxEval& ctx_;
  CtxShader& shader_;
  GeometryRaytraceCtx& query_;
  Entry* stack_;
  Entry* stack_end_;
  BvhOrientedRay oriented_ray_;  ///< kinds all
  u64 nodes_left_ = 0;           ///< guarded: how many aligned nodes this ray may still test
  CoreBasicArray<uint> range_;
};
