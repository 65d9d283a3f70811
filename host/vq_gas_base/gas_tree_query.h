// host/vq_gas_base/gas_tree_query.h
//
// How a query enters a tree of the host: ray by ray, at its cluster. Shared by GasTree, GasGridTree and their motion.
#pragma once
#include "vq_gas_base/gas_binary_walk.h"
#include "vq_gas_base/gas_ray_range.h"
#include "vq_gas_base/gas_tree.h"

inline GeometryRayVisits* gas_get_visits(const GeometryRaytraceCtx& query, uint ray) {
  return query.visits != nullptr ? query.visits + ray : nullptr;
}

/// Calls walk(r, start) for each ray of the active range that has not ended, with the range narrowed to it. No calls
/// for a query that was begun for the other kind of hits, and for a cluster that is not one of the tree.
template <GasWalkHits hits, class Walk>
void gas_tree_for_each_ray(const GasBinaryTree& tree, GeometryRaytraceCtx& query, const Walk& walk) {
  if (!gas_is_begun_for(query, hits == GasWalkHits::nearest)) return;
  const GasBinaryPlace start = tree.find_cluster(query.cluster);
  if (!start.exists()) return;
  const GasActiveRangeScope scope(query);
  const uint last = query.last_ray;
  for (uint r = query.first_ray; r <= last; ++r) {
    if (hits == GasWalkHits::all && query.is_stopped(r)) continue;
    query.first_ray = query.last_ray = r;
    walk(r, start);
  }
}

/// The static form of a ray query. `leaf` as for gas_walk_ray(), with the ray and its number in front.
template <GasWalkHits hits, class Leaf>
void gas_tree_ray_hit(const GasBinaryTree& tree, GeometryRaytraceCtx& query, const Leaf& leaf) {
  gas_tree_for_each_ray<hits>(tree, query, [&](uint r, const GasBinaryPlace& start) {
    GasBinaryRay ray(query.get_ray(r), query.get_tnear(r), query.get_limit(r), tree.get_bbox(), gas_get_no_slack());
    if (start.ref.is_leaf() && !ray.touches(tree.get_box(start))) return;
    gas_walk_ray<hits>(tree, GasStillBoxes{tree.get_nodes()}, start, ray, gas_get_visits(query, r),
                       [&](const GasBinaryPlace& at) { return leaf(ray, r, at); });
  });
}

/// After a leaf: shortens the ray to its nearest hit. False when a ray of an all-hits query ends.
template <GasWalkHits hits>
bool gas_go_on(const GeometryRaytraceCtx& query, uint r, GasBinaryRay& ray) {
  if constexpr (hits == GasWalkHits::all) return !query.is_stopped(r);
  ray.set_limit(query.map->get_path(r).distance);
  return true;
}

/// Tests the primitives of a leaf of a part.
template <GasWalkHits hits>
struct GasPartLeaf {
  const uint* positions;  ///< of the part
  const GasTreeLeaf<GeometryRaytraceCtx>& primitive;
  const CtxEval& ctx;
  CtxShader& shader;
  GeometryRaytraceCtx& query;
  GasBinaryRay& ray;
  uint r;

  bool operator()(const GasBinaryPlace& at) const {
    if (GeometryRayVisits* visits = gas_get_visits(query, r)) ++visits->leaves;
    const uint* end = positions + at.ref.index + at.ref.count;
    for (const uint* position = positions + at.ref.index; position != end; ++position)
      primitive.function(primitive.user, *position, ctx, shader, query);
    return gas_go_on<hits>(query, r, ray);
  }
};

/// Where a frustum query starts. Mode all asks about the whole structure, whatever the cluster.
inline GasBinaryPlace gas_find_frustum_start(const GasBinaryTree& tree, const GeometryFrustumCtx& query) {
  const bool is_all = query.mode == static_cast<uint>(GeometryFrustumMode::all);
  return tree.find_cluster(is_all ? 0 : query.cluster);
}

/// The items that get a leaf: those whose box is neither NaN nor inverted. Throws std::bad_alloc, also when there are
/// more items than a GasBinaryRef can count, and AppStopped.
/// @param app  is checked for stop requests; or null
CoreVector<uint> gas_list_placed(const CoreVector<GMathBbox3<float>>& boxes, const AppBase* app);
