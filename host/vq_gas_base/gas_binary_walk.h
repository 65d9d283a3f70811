// host/vq_gas_base/gas_binary_walk.h
//
// Traversal of a GasBinaryTree by one ray, frustum or beam. A walk tests boxes and hands each leaf that it reaches to
// a functor; in a grid of parts that functor walks the part's own tree with the same ray.
//
//   GasBinaryRay             the ray, in the form of the node test
//   gas_walk_ray             nearer child first; the sibling waits on the stack
//     gas_test_children      two slab tests at once (Kay, Kajiya 1986)
//   gas_walk_frustum         a subtree inside all planes is not tested again
//   gas_walk_beam            nearer child first, as a ray with a cross-section
//
// The stack is an array on the machine stack: no path of a GasBinaryTree is longer than most_depth.
#pragma once
#include <utility>

#include "vq_gas_base/gas_beam_planes.h"
#include "vq_gas_base/gas_binary_tree.h"
#include "vq_gas_base/gas_node_planes.h"
#include "vq_gas_base/gas_slab_ray.h"
#include "vq_geometry/geometry_frustum_ctx.h"
#include "vq_geometry/geometry_ray_frustum_ctx.h"
#include "vq_geometry/geometry_raytrace_ctx.h"

enum class GasWalkHits { all, nearest };
enum class GasWalkTime { still, moving };

/// One ray for the node test. Lanes 0 and 1 are the near planes of both children, 2 and 3 their far planes. The far
/// lanes are negated, so that the largest value of all lanes gives the latest entry and the earliest exit.
struct GasBinaryRay {
  SimdF origin[3], inverse[3];
  SimdF bounds;       ///< t_near twice, then -t_far twice
  float limit;        ///< t_far
  uint near_lane[3];  ///< 0 or 2: where a row has the near planes
  uint far_lane[3];
  SimdF sample_weight[2];  ///< moving: blend weights of both motion samples

  /// @param bounds, plane_slack  as for gas_load_slab_ray()
  GasBinaryRay(const GMathBasicRay<double>& ray, double tnear, double tfar, const GMathBbox3<float>& bounds,
               const SimdF& plane_slack) {
    const GasSlabRay slabs = gas_load_slab_ray(ray, tnear, bounds, plane_slack);
    spread<0>(slabs);
    spread<1>(slabs);
    spread<2>(slabs);
    for (uint axis = 0; axis < 3; ++axis) {
      near_lane[axis] = 2 * ray.negative[axis];
      far_lane[axis] = 2 - near_lane[axis];
    }
    first_ = static_cast<float>(tnear);
    set_limit(tfar);
  }
  void set_limit(double tfar) {
    limit = gas_clamp_limit(tfar);
    bounds = SimdF(first_, first_, -limit, -limit);
  }
  bool touches(const GMathBbox3<float>& box) const;
  /// The near planes of a row of GasBinaryPlanes, then its far planes.
  SimdF pick(const GasBinaryPlanes& boxes, uint axis) const {
    return SimdF::load_pairs(boxes.planes[axis] + near_lane[axis], boxes.planes[axis] + far_lane[axis]);
  }
  void set_time(double fraction) {
    const float second = static_cast<float>(fraction);
    sample_weight[0] = SimdF(1.0f - second);
    sample_weight[1] = SimdF(second);
  }

 private:
  float first_;

  template <uint axis>
  void spread(const GasSlabRay& slabs) {
    origin[axis] = join_pairs(broadcast<axis>(slabs.near_origin), broadcast<axis>(slabs.far_origin));
    inverse[axis] = join_pairs(broadcast<axis>(slabs.near_inverse), SimdF(0.0f) - broadcast<axis>(slabs.far_inverse));
  }
};

/// The boxes that a walk tests: those of the static tree.
struct GasStillBoxes {
  const GasBinaryNode* nodes;

  SimdF load(u32 node, uint axis, const GasBinaryRay& ray) const { return ray.pick(nodes[node].boxes, axis); }
};

/// Those of two motion samples, blended at the ray's time.
struct GasMovingBoxes {
  const GasBinaryPlanes *first, *second;

  SimdF load(u32 node, uint axis, const GasBinaryRay& ray) const {
    return ray.sample_weight[0] * ray.pick(first[node], axis) + ray.sample_weight[1] * ray.pick(second[node], axis);
  }
};

/// Bit k is set when the ray touches child k. Lanes 0 and 1 of `entry` become the entry distances.
template <class Boxes>
[[gnu::always_inline]] inline uint gas_test_children(const Boxes& boxes, u32 node, const GasBinaryRay& ray,
                                                     SimdF& entry) {
  // A ray lying in a slab plane gives 0 * inf = NaN; max() returns its second operand then, so the running bound stands
  // second and the ray counts as inside that slab.
  SimdF reach = ray.bounds;
  for (uint axis = 0; axis < 3; ++axis)
    reach = max((boxes.load(node, axis, ray) - ray.origin[axis]) * ray.inverse[axis], reach);
  entry = reach;
  return (reach <= SimdF(0.0f) - swap_pairs(reach)).get_bits() & 3u;
}

inline bool GasBinaryRay::touches(const GMathBbox3<float>& box) const {
  struct OneBox {
    GasBinaryPlanes planes;
    SimdF load(u32 /*node*/, uint axis, const GasBinaryRay& ray) const { return ray.pick(planes, axis); }
  } boxes;
  boxes.planes.set_box(0, box);
  boxes.planes.set_box(1, box);
  SimdF entry;
  return gas_test_children(boxes, 0, *this, entry) != 0;
}

/// A child to be visited later. Without initial values: a walk must not clear its whole stack first.
struct GasWalkEntry {
  u32 index, count;  ///< a GasBinaryRef
  u32 slot;
  float distance;
};

/// Walks one ray from `start`, whose own box is not tested.
/// @param visits  counts nodes; or null
/// @param leaf    bool leaf(const GasBinaryPlace&): false ends the walk. After a nearer hit it lowers the ray's limit.
/// @return false when a leaf ended the walk
template <GasWalkHits hits, class Boxes, class Leaf>
bool gas_walk_ray(const GasBinaryTree& tree, const Boxes& boxes, const GasBinaryPlace& start, GasBinaryRay& ray,
                  GeometryRayVisits* visits, Leaf&& leaf) {
  if (!start.exists()) return true;
  GasWalkEntry stack[GasBinaryTree::most_depth];
  GasWalkEntry* top = stack;
  GasBinaryPlace at = start;
  const auto nodes = reinterpret_cast<std::uintptr_t>(tree.get_nodes());
  for (;;) {
    bool is_hit = true;
    while (!at.ref.is_leaf()) {
      if (visits != nullptr) ++visits->nodes;
      const u32 index = at.ref.index;
      const GasBinaryNode& node = tree.get_node(index);
      // Both children, before it is known which ones are hit: a miss in the cache takes longer than the test.
      simd_prefetch(nodes + sizeof(GasBinaryNode) * node.child[0].index);
      simd_prefetch(nodes + sizeof(GasBinaryNode) * node.child[1].index);
      SimdF entry;
      const uint mask = gas_test_children(boxes, index, ray, entry);
      if (mask == 0) {
        is_hit = false;
        break;
      }
      uint nearer = mask >> 1;  // the only child that is hit
      if (mask == 3) {
        const SimdF other = rotate_lanes(entry);
        nearer = (entry > other).get_bits() & 1u;
        const uint farther = nearer ^ 1u;
        top->index = node.child[farther].index;
        top->count = node.child[farther].count;
        top->slot = 2 * index + farther;
        max(entry, other).store_first(&top->distance);
        ++top;
      }
      at = {node.child[nearer], 2 * index + nearer};
    }
    if (is_hit && !leaf(at)) return false;
    do {
      if (top == stack) return true;
      --top;
    } while (hits == GasWalkHits::nearest && top->distance > ray.limit);
    at = {{top->index, top->count}, top->slot};
  }
}

/// Boxes behind a plane are left out, except in mode all until something outside has been reported: only a leaf knows
/// whether what it holds is visible to the query.
inline bool gas_is_left_out(const GeometryFrustumCtx& query, GeometryBoxPlace place) {
  const bool is_all = query.mode == static_cast<uint>(GeometryFrustumMode::all);
  return place == GeometryBoxPlace::outside && (!is_all || query.result.outside != 0);
}

/// What a tree's leaves are for a frustum walk.
enum class GasFrustumLeaves {
  single,  ///< one item each: the place of a leaf is that of GeometryFrustumCtx::classify()
  ranges,  ///< of items that are tested later: a subtree inside of all planes becomes one leaf
};

/// A child that a frustum walk visits later.
struct GasFrustumEntry {
  GasBinaryRef ref;
  u32 first;  ///< of its items in the order
  GeometryBoxPlace place;
  u32 straddled;  ///< planes that are still to be tested
};

/// Walks a frustum from `start`.
/// @param leaf  void leaf(const GasFrustumEntry&)
template <GasFrustumLeaves leaves, class Leaf>
void gas_walk_frustum(const GasBinaryTree& tree, const GasFrustumEntry& start, const GasFrustumPlanes& planes,
                      GeometryFrustumCtx& query, Leaf&& leaf) {
  const bool is_any = query.mode == static_cast<uint>(GeometryFrustumMode::any);
  const auto nodes = reinterpret_cast<std::uintptr_t>(tree.get_nodes());
  GasFrustumEntry stack[GasBinaryTree::most_depth + 1];
  uint count = 0;
  stack[count++] = start;
  while (count > 0 && !(is_any && query.result.finished != 0)) {
    GasFrustumEntry at = stack[--count];
    if (gas_is_left_out(query, at.place)) continue;
    if (leaves == GasFrustumLeaves::ranges && at.place == GeometryBoxPlace::inside)
      at.ref = {at.first, at.ref.get_item_count()};
    if (at.ref.is_leaf()) {
      leaf(at);
      continue;
    }
    const GasBinaryNode& node = tree.get_node(at.ref.index);
    const bool is_straddling = at.place == GeometryBoxPlace::straddling;
    const GasChildPlaces places =
        is_straddling ? planes.classify(GasNodeRows(node.boxes), at.straddled) : GasChildPlaces();
    const u32 first[2] = {at.first, at.first + node.child[0].get_item_count()};
    for (uint lane = 2; lane-- > 0;) {
      GeometryBoxPlace place = is_straddling ? places.get(lane) : at.place;
      if (leaves == GasFrustumLeaves::single && place == GeometryBoxPlace::straddling && node.child[lane].is_leaf())
        place = query.classify(node.boxes.get_box(lane));
      if (gas_is_left_out(query, place)) continue;
      const GasBinaryRef& child = node.child[lane];
      if (place == GeometryBoxPlace::straddling && !child.is_leaf())
        simd_prefetch(nodes + sizeof(GasBinaryNode) * child.index);
      stack[count++] = {child, first[lane], place, places.straddled[lane]};
    }
  }
}

/// Walks a beam from `start`, nearer child first. Boxes behind the nearest item so far are left out.
/// @param limit  distance of that item; lowered after a leaf
/// @param leaf   void leaf(const GasBinaryRef&)
template <class Leaf>
void gas_walk_beam(const GasBinaryTree& tree, const GasBinaryPlace& start, const GasBeamPlanes& beam, float& limit,
                   GeometryRayFrustumCtx& query, Leaf&& leaf) {
  struct Entry {
    GasBinaryRef ref;
    float first;  ///< smallest distance of the box
  };
  float first[2] = {};
  if (!start.exists() || !beam.touches(tree.get_box(start), limit, first[0])) return;
  const auto nodes = reinterpret_cast<std::uintptr_t>(tree.get_nodes());
  Entry stack[GasBinaryTree::most_depth + 1];
  uint count = 0;
  stack[count++] = {start.ref, first[0]};
  while (count > 0) {
    const Entry at = stack[--count];
    if (at.first > limit) continue;
    if (at.ref.is_leaf()) {
      leaf(at.ref);
      limit = beam.get_distance(query.get_tfar());
      continue;
    }
    const GasBinaryNode& node = tree.get_node(at.ref.index);
    const uint touched = beam.find_touched(GasNodeRows(node.boxes), limit, first);
    const uint nearer = first[1] < first[0] ? 1 : 0;
    for (const uint lane : {1 - nearer, nearer}) {
      if ((touched >> lane & 1) == 0) continue;
      if (!node.child[lane].is_leaf()) simd_prefetch(nodes + sizeof(GasBinaryNode) * node.child[lane].index);
      stack[count++] = {node.child[lane], first[lane]};
    }
  }
}
