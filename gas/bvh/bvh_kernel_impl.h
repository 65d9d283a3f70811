// gas/bvh/bvh_kernel_impl.h
//
// The traversal loop and its steps. Included by bvh_kernel.cpp, which instantiates every variant once.
//
//   bvh_load_ray            the ray in single precision, rounded outwards
//   traverse_ray            pops entries from the stack
//     descend               from node to hit child, down to a leaf
//       bvh_pick_planes     near and far planes of four children as stored,
//       bvh_decode_planes   or from 8 bits;
//       bvh_blend_lanes     those of two motion samples blended in time
//       bvh_test_lanes      four slab tests at once;
//       bvh_test_oriented   four oriented boxes, each in its own frame
//       take_next           continues with the nearest or largest hit child, pushes the others
//     visit_leaf            the structure's leaf callback
//
// The loop is bound by the latency of these dependent steps and by mispredicted branches, then by cache misses; hence
// planes picked by an offset per axis rather than by a blend, and children prefetched as soon as they are known to be
// hit.
#pragma once
#include <algorithm>
#include <bit>
#include <span>
#include <type_traits>

#include "gas/bvh/bvh_kernel.h"
#include "gas/bvh/bvh_kernel_lanes.h"
#include "gas/bvh/bvh_quantize.h"
#include "gas/bvh/bvh_start.h"
#include "vq_geometry/geometry_raytrace_ctx.h"

enum class BvhVisits { uncounted, counted };
/// The kinds of inner nodes in the tree, and how oriented references are read.
enum class BvhKinds {
  aligned,                    ///< a tree without 8-bit nodes, as all small ones are, needs no boxes on the stack
  aligned_and_quantized,      ///< 8-bit nodes too
  all,                        ///< and oriented ones
  oriented_taken_as_aligned,  ///< an oriented reference is read as the aligned node of the same index
};

/// A child to be visited later. The box is read only for quantized nodes, which are decoded against it; a moving ray
/// needs it at both samples, because 8-bit planes of different frames cannot be blended before they are decoded.
template <BvhTime time>
struct BvhStackEntry {
  BvhChildRef ref;
  GMathBbox3<float> box[time == BvhTime::moving ? 2 : 1];
  float distance;
};
/// When oriented references are read as aligned ones, a path can form a cycle. To end it, a path continues only to
/// aligned nodes of a higher index than the last one.
template <BvhTime time>
struct BvhGuardedStackEntry : BvhStackEntry<time> {
  u32 first_allowed = 0;  ///< lowest index of an aligned node that may be visited
};
static_assert(sizeof(BvhStackEntry<BvhTime::still>) == 36 && sizeof(BvhStackEntry<BvhTime::moving>) == 60);

/// Address of a referenced node or leaf, by those of the reference's three kind bits that the tree uses: base, bytes
/// per index, and the offsets of the other cache lines to prefetch. A table, because a branch on the kind would be
/// mispredicted half of the time.
template <BvhKinds kinds>
struct BvhPrefetchTable {
  static constexpr bool has_oriented = kinds == BvhKinds::all;
  struct Row {
    std::uintptr_t base;
    u32 stride;
    u32 second, third, fourth;  ///< where there are fewer lines, the last one again
  };
  static constexpr uint row_count = kinds == BvhKinds::aligned ? 2 : has_oriented ? 8 : 4;
  Row rows[row_count];

  BvhPrefetchTable(const GasBvh<4>& tree, const BvhLeafRecords& records) {
    const auto address = [](const void* array) { return reinterpret_cast<std::uintptr_t>(array); };
    for (uint bits = 0; bits < row_count; ++bits) {
      const BvhChildRef ref{0, bits << 8};
      switch (ref.get_kind()) {
        case BvhKind::aligned:
          rows[bits] = {address(tree.aligned), sizeof(BvhNodeAligned), 64, 64, 64};
          break;
        case BvhKind::quantized:
          rows[bits] = {address(tree.quantized), sizeof(BvhNodeQuantized), 32, 32, 32};
          break;
        case BvhKind::oriented:
          rows[bits] = {address(tree.oriented), sizeof(BvhNodeOriented), 64, 128, 192};
          break;
        case BvhKind::leaf:
          rows[bits] =
              records.first != nullptr ? make_record_row(records) : Row{address(tree.order), sizeof(u32), 0, 0, 0};
          break;
      }
    }
  }
  /// One cache line or two.
  static Row make_record_row(const BvhLeafRecords& records) {
    const u32 last = std::min(records.size - 1, 64u);
    return {reinterpret_cast<std::uintptr_t>(records.first), records.size, last, last, last};
  }
  /// A whole aligned node, both halves of a quantized one, a leaf's first item or record; where there are any, a whole
  /// oriented node.
  [[gnu::always_inline]] void prefetch(BvhChildRef ref) const {
    const Row& row = rows[ref.word >> 8 & (row_count - 1)];
    const std::uintptr_t at = row.base + u64{ref.index} * row.stride;
    simd_prefetch(at);
    simd_prefetch(at + row.second);
    if constexpr (has_oriented) {
      simd_prefetch(at + row.third);
      simd_prefetch(at + row.fourth);
    }
  }
};

template <BvhHits hits, BvhTime time, BvhVisits visits, BvhKinds kinds>
class BvhTraversal {
 public:
  static constexpr bool is_guarded = kinds == BvhKinds::oriented_taken_as_aligned;
  using Entry = std::conditional_t<is_guarded, BvhGuardedStackEntry<time>, BvhStackEntry<time>>;

  /// @param stack  three entries for each level of the tree, and one
  BvhTraversal(const BvhTarget& target, const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
               std::span<Entry> stack)
      : tree_(target.tree),
        motion_(target.motion),
        prefetch_(target.tree, target.records),
        leaf_function_(hits == BvhHits::all ? target.leaf.ray : target.leaf.nearest),
        leaf_user_(target.leaf.ray_user),
        ctx_(ctx),
        shader_(shader),
        query_(query),
        stack_(stack.data()),
        stack_end_(stack.data() + stack.size()) {}

  /// Traverses the tree with ray `ray` from `start`, which is an inner node.
  void traverse_ray(const BvhStart& start, uint ray) {
    query_.first_ray = query_.last_ray = ray;
    BvhRay r = bvh_load_ray<time>(query_, ray, get_limit(ray), get_bounds(ray));
    if constexpr (kinds == BvhKinds::all)
      oriented_ray_ = bvh_load_oriented_ray(query_.get_ray(ray), query_.get_tnear(ray), query_.get_limit(ray));
    if constexpr (time == BvhTime::moving) moved_ = motion_->get_aligned_between(r.sample);
    if constexpr (is_guarded) nodes_left_ = 4 * (u64{tree_.aligned_count} + tree_.quantized_count + 1);
    write_start(start, r, *stack_);
    walk(r, start.ref, ray);
  }

 private:
  float get_limit(uint ray) const { return gas_clamp_limit(query_.get_limit(ray)); }

  /// A box around the whole tree at both motion samples of the ray.
  GMathBbox3<float> get_bounds(uint ray) const {
    if constexpr (time == BvhTime::still) return tree_.box;
    GMathBbox3<float> bounds = motion_->get_bbox(query_.spans[ray].first);
    bounds.add(motion_->get_bbox(query_.spans[ray].second));
    return bounds;
  }

  void write_start(const BvhStart& start, const BvhRay& ray, Entry& to) const {
    if constexpr (is_guarded) to.first_allowed = 0;
    if constexpr (time == BvhTime::still) {
      to.box[0] = start.box;
    } else {
      for (uint k = 0; k < 2; ++k)
        to.box[k] = start.is_root ? motion_->get_bbox(ray.sample[k])
                                  : motion_->get_aligned(start.node, ray.sample[k]).get_lane(start.lane);
    }
  }

  /// Visits the tree from `at`. What else a step needs to know about the current node is in the entry at `top`; the
  /// entries below it wait.
  [[gnu::always_inline]] void walk(BvhRay& r, BvhChildRef at, uint ray) {
    Entry* top = stack_;
    float limit = get_limit(ray);
    for (;;) {
      if (descend(r, at, top)) {
        if (!visit_leaf(at, ray)) return;
        if constexpr (hits == BvhHits::nearest) {
          const double distance = query_.map->get_path(ray).distance;
          limit = gas_clamp_limit(distance);
          r.t_far = SimdF(limit);
          if constexpr (kinds == BvhKinds::all) oriented_ray_.set_limit(distance);
        } else if constexpr (hits == BvhHits::any) {
          if (query_.map->get_path(ray).distance <= GeometryIntersection::any_distance) return;
        }
      }
      do {
        if (top == stack_) return;
        --top;
      } while (hits == BvhHits::nearest && top->distance > limit);
      at = top->ref;
    }
  }

  /// Descends to a leaf by the next hit child of each node and pushes the siblings. False when all children of a
  /// node are missed.
  [[gnu::always_inline]] bool descend(const BvhRay& ray, BvhChildRef& at,
                                      Entry*& top) {  // as a call: 10 to 18 % slower; its steps, too, when moving
    for (;;) {
      // Oriented first when the tree has such nodes, as most are in trees over curves; then aligned, the most frequent
      // kind.
      const u32 kind = at.word & (BvhChildRef::leaf_bit | BvhChildRef::quantized_bit);
      if constexpr (kinds == BvhKinds::all) {
        if (at.word & BvhChildRef::oriented_bit) {
          if (!step_oriented(ray, at, top)) return false;
          continue;
        }
      }
      if (kind == 0) {
        if (!step_aligned(ray, at, top)) return false;
      } else if (kinds == BvhKinds::aligned || (kind & BvhChildRef::leaf_bit)) {
        return true;
      } else {
        if (!step_quantized(ray, at, top)) return false;
      }
    }
  }

  /// A bit for each lane that is used. Unused ones are inverted boxes, but a ray with a NaN passes every slab, and
  /// their reference 0 would lead back to node 0.
  uint get_used_lanes(BvhChildRef node) const {
    return is_guarded ? 0xf : (1u << node.get_count()) - 1;  // guarded: the count is that of another node
  }

  [[gnu::always_inline]] bool step_aligned(const BvhRay& ray, BvhChildRef& at, Entry*& top) {
    const u32 index = at.index;
    if constexpr (is_guarded) {
      if (index >= tree_.aligned_count || index < top->first_allowed || nodes_left_ == 0) return false;
      --nodes_left_;
    }
    count_node();
    const BvhNodeAligned& node = tree_.aligned[index];
    SimdF entry;
    uint mask;
    if constexpr (time == BvhTime::still) {
      mask = bvh_test_lanes(bvh_pick_planes(node.lanes.planes, ray), ray, entry);
    } else {
      const BvhMovedPlanes::Node moved = moved_[index];
      const BvhLanes a = bvh_pick_planes(moved.a.planes, ray);
      const BvhLanes b = bvh_pick_planes(moved.b.planes, ray);
      mask = bvh_test_lanes(bvh_blend_lanes(a, b, ray), ray, entry);
    }
    const auto get_child = [&](uint lane) { return node.child[lane]; };
    const auto write_box = [&](Entry& to, BvhChildRef child, uint lane) {
      if constexpr (is_guarded) to.first_allowed = index + 1;
      // Only a quantized node is decoded against the box that its parent holds for it.
      if (kinds == BvhKinds::aligned || !(child.word & BvhChildRef::quantized_bit)) return;
      if constexpr (time == BvhTime::still) {
        to.box[0] = node.lanes.get_lane(lane);
      } else {
        const BvhMovedPlanes::Node moved = moved_[index];
        to.box[0] = moved.a.get_lane(lane);
        to.box[1] = moved.b.get_lane(lane);
      }
    };
    return take_next(mask & get_used_lanes(at), entry, at, top, get_child, write_box);
  }

  [[gnu::always_inline]] bool step_quantized(const BvhRay& ray, BvhChildRef& at, Entry*& top) {
    count_node();
    const u32 index = at.index;
    const BvhNodeQuantized& node = tree_.quantized[index];
    BvhLanePlanes decoded[time == BvhTime::still ? 1 : 2];
    SimdF entry;
    uint mask;
    if constexpr (time == BvhTime::still) {
      mask = bvh_test_lanes(bvh_decode_planes(node.lanes.planes, top->box[0], ray, decoded[0]), ray, entry);
    } else {
      const BvhLaneBytes& bytes_a = motion_->get_quantized(index, ray.sample[0]);
      const BvhLaneBytes& bytes_b = motion_->get_quantized(index, ray.sample[1]);
      const BvhLanes a = bvh_decode_planes(bytes_a.planes, top->box[0], ray, decoded[0]);
      const BvhLanes b = bvh_decode_planes(bytes_b.planes, top->box[1], ray, decoded[1]);
      mask = bvh_test_lanes(bvh_blend_lanes(a, b, ray), ray, entry);
    }
    const auto get_child = [&](uint lane) { return node.get_child(lane); };
    const auto write_box = [&](Entry& to, BvhChildRef /*child*/, uint lane) {
      if constexpr (is_guarded) to.first_allowed = top->first_allowed;
      for (uint k = 0; k < std::size(decoded); ++k) to.box[k] = decoded[k].get_lane(lane);
    };
    return take_next(mask & get_used_lanes(at), entry, at, top, get_child, write_box);
  }

  bool step_oriented(const BvhRay& ray, BvhChildRef& at, Entry*& top) {
    count_node();
    const u32 index = at.index;
    const BvhNodeOriented& node = tree_.oriented[index];
    SimdF entry;
    uint mask;
    if constexpr (time == BvhTime::still) {
      mask = bvh_test_oriented(node, BvhUnitCubes(), oriented_ray_, entry);
    } else {
      const BvhMovedCubes cubes{motion_->get_oriented(index, ray.sample[0]),
                                motion_->get_oriented(index, ray.sample[1]), ray};
      mask = bvh_test_oriented(node, cubes, oriented_ray_, entry);
    }
    const auto get_child = [&](uint lane) { return node.child[lane]; };
    // No child is quantized, so none needs its box.
    return take_next(mask, entry, at, top, get_child, [](Entry&, BvhChildRef, uint) {});
  }

  /// Makes one of the hit children the current one and pushes the others. False when none is hit.
  /// @param mask  a bit for each hit lane
  template <class GetChild, class WriteBox>
  [[gnu::always_inline]] bool take_next(uint mask, const SimdF& entry, BvhChildRef& at, Entry*& top,
                                        const GetChild& get_child, const WriteBox& write_box) {
    // A jump for each lane that is hit alone, although an index would do: if the processor predicts it, it loads the
    // child's node while this one is still being tested. Rays gain up to 16 % in large trees and lose up to 4 % where
    // all nodes are in the cache (docs/performance.md).
    switch (mask) {
      case 0b0000:
        return false;
      case 0b0001:
        return take(0, at, top, get_child, write_box);
      case 0b0010:
        return take(1, at, top, get_child, write_box);
      case 0b0100:
        return take(2, at, top, get_child, write_box);
      case 0b1000:
        return take(3, at, top, get_child, write_box);
      default:
        break;
    }
    if constexpr (hits == BvhHits::any) {
      return take_largest(mask, at, top, get_child, write_box);
    } else {
      return take_nearest(mask, entry, at, top, get_child, write_box);
    }
  }

  /// At least two children. Lanes are in the order of their areas, and a ray that enters a larger box is the likelier
  /// to hit something in it.
  template <class GetChild, class WriteBox>
  [[gnu::always_inline]] bool take_largest(uint mask, BvhChildRef& at, Entry*& top, const GetChild& get_child,
                                           const WriteBox& write_box) {
    const uint first = static_cast<uint>(std::countr_zero(mask));
    for (mask &= mask - 1; mask != 0;) {
      const uint last = static_cast<uint>(std::bit_width(mask)) - 1;
      mask ^= 1u << last;
      push(last, 0.0f, top, get_child, write_box);
    }
    return take(first, at, top, get_child, write_box);
  }

  /// At least two children, the nearest first; the others are pushed nearest on top. Equal distances: the higher lane
  /// first.
  template <class GetChild, class WriteBox>
  [[gnu::always_inline]] bool take_nearest(uint mask, const SimdF& entry, BvhChildRef& at, Entry*& top,
                                           const GetChild& get_child, const WriteBox& write_box) {
    const uint first = static_cast<uint>(std::countr_zero(mask));
    mask &= mask - 1;
    alignas(16) float distance[4];
    entry.store(distance);
    const uint second = static_cast<uint>(std::countr_zero(mask));
    mask &= mask - 1;
    if (mask == 0) {
      const uint nearer = distance[first] < distance[second] ? first : second;
      const uint farther = first ^ second ^ nearer;
      push(farther, distance[farther], top, get_child, write_box);
      return take(nearer, at, top, get_child, write_box);
    }
    return take_nearest_of_many(first, second, mask, distance, at, top, get_child, write_box);
  }

  /// Three or four hit children, by insertion into a list ordered from far to near.
  template <class GetChild, class WriteBox>
  bool take_nearest_of_many(uint first, uint second, uint rest, const float (&distance)[4], BvhChildRef& at,
                            Entry*& top, const GetChild& get_child, const WriteBox& write_box) {
    uint order[4] = {first, second, 0, 0};
    if (distance[first] < distance[second]) std::swap(order[0], order[1]);
    uint count = 2;
    for (; rest != 0; rest &= rest - 1) {
      const uint lane = static_cast<uint>(std::countr_zero(rest));
      uint place = count++;
      for (; place > 0 && distance[order[place - 1]] < distance[lane]; --place) order[place] = order[place - 1];
      order[place] = lane;
    }
    for (uint k = 0; k + 1 < count; ++k) push(order[k], distance[order[k]], top, get_child, write_box);
    return take(order[count - 1], at, top, get_child, write_box);
  }

  template <class GetChild, class WriteBox>
  bool take(uint lane, BvhChildRef& at, Entry* top, const GetChild& get_child, const WriteBox& write_box) {
    at = get_child(lane);
    prefetch_.prefetch(at);
    write_box(*top, at, lane);
    return true;
  }

  /// The stack's size is computed from the tree's depth: it overflows only on a guarded path, which may be longer.
  template <class GetChild, class WriteBox>
  void push(uint lane, float distance, Entry*& top, const GetChild& get_child, const WriteBox& write_box) {
    if (is_guarded && top + 1 == stack_end_) return;
    const BvhChildRef child = get_child(lane);
    prefetch_.prefetch(child);
    write_box(*top, child, lane);
    top->ref = child;
    top->distance = distance;
    ++top;
  }

  /// Calls the leaf callback. False when the ray is ended by its stop flag.
  bool visit_leaf(BvhChildRef leaf, uint ray) {
    if constexpr (visits == BvhVisits::counted) ++query_.visits[ray].leaves;
    range_.set_view(tree_.order + leaf.index, leaf.get_count());
    leaf_function_(ctx_, shader_, query_, range_, leaf_user_);
    return hits != BvhHits::all || !query_.is_stopped(ray);
  }

  void count_node() {
    if constexpr (visits == BvhVisits::counted) ++query_.visits[query_.first_ray].nodes;
  }

  const GasBvh<4>& tree_;
  const GasBvhMotion<4>* motion_;
  BvhPrefetchTable<kinds> prefetch_;
  BvhRayLeafFunction leaf_function_;
  void* leaf_user_;
  const CtxEval& ctx_;
  CtxShader& shader_;
  GeometryRaytraceCtx& query_;
  Entry* stack_;
  Entry* stack_end_;
  // Only in the variants that use them: to set them takes time in short queries.
  struct Nothing {};
  std::conditional_t<time == BvhTime::moving, BvhMovedPlanes, Nothing> moved_;
  std::conditional_t<kinds == BvhKinds::all, BvhOrientedRay, Nothing> oriented_ray_;
  std::conditional_t<is_guarded, u64, Nothing> nodes_left_ = {};  ///< how many aligned nodes this ray may still test
  CoreBasicArray<uint> range_;
};
