// host/vq_gas_base/gas_tree.h
//
// The host's tree over boxes: one item is one leaf, and a callback tests what the leaf holds. Structures use it for
// items that are not primitives of a geometry: particles, edges of UV maps, parts of a grid.
//
// Any number of threads may query a tree at once, each with its own contexts. No query may run during create() and
// clear().
#pragma once
#include "vq_core/core_base_type.h"
#include "vq_core/core_export.h"
#include "vq_gas_base/gas_binary_tree.h"

class AppBase;
class AppProgressBar;
class CtxEval;
class CtxShader;
class GeometryFrustumCtx;
class GeometryRayFrustumCtx;
class GeometryRaytraceCtx;

enum class GasWalkHits;

/// Tests leaf `leaf` of a tree: the position of its box in the list given to create().
template <class Query>
using GasTreeLeafCallback = void (*)(void* user, const uint& leaf, const CtxEval&, CtxShader&, Query&);

/// A leaf callback and the pointer that is passed to it.
template <class Query>
struct GasTreeLeaf {
  GasTreeLeafCallback<Query> function = nullptr;
  void* user = nullptr;
};

class VQ_EXPORT GasTree : public CoreBaseObject {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  GasTree() = default;
  /// Deep copies, with callbacks; empty when there is no memory.
  GasTree(const GasTree& other);
  GasTree& operator=(const GasTree& other);

  /// Replaces the tree by one over `boxes`. Boxes that are NaN or inverted get no leaf; infinite ones are allowed.
  /// Throws std::bad_alloc, and AppStopped after a stop request; the tree is then empty. O(n log n). The tree does not
  /// depend on the number of threads.
  /// @param progress   one step per box; or null
  /// @param app        lends its threads, and is checked for stop requests; null: this thread alone
  /// @param most_leaf  boxes in a leaf. With more than one the tree takes less memory, and queries reach all boxes of a
  ///                   leaf that they touch: the callback must test the box itself
  void create(const CoreVector<GMathBbox3<float>>& boxes, AppProgressBar* progress, const AppBase* app = nullptr,
              uint most_leaf = 1);
  /// Removes all leaves. Callbacks stay.
  void clear();
  bool is_empty() const { return tree.is_empty(); }
  /// Inverted (+FLT_MAX, -FLT_MAX) for an empty tree.
  const GMathBbox3<float>& get_bbox() const { return tree.get_bbox(); }
  /// Bytes held, this object included.
  u64 get_memory_size() const override {
    return sizeof(GasTree) + tree.get_memory_size() + u64{order.get_capacity()} * sizeof(uint);
  }

  /// Sets the callback of a kind of query. Without one, queries of that kind do nothing.
  void set_ray_leaf(GasTreeLeafCallback<GeometryRaytraceCtx> function, void* user) { ray_leaf = {function, user}; }
  void set_frustum_leaf(GasTreeLeafCallback<GeometryFrustumCtx> function, void* user) {
    frustum_leaf = {function, user};
  }
  void set_ray_frustum_leaf(GasTreeLeafCallback<GeometryRayFrustumCtx> function, void* user) {
    ray_frustum_leaf = {function, user};
  }

  // Queries. Results are those of the callbacks: a tree reports none itself. Each starts at the query's cluster; a
  // handle that is not one of this tree finds nothing. Callbacks may throw.

  /// All leaves that a ray of the active range touches within its interval, ray by ray: the callback sees an active
  /// range of one ray, which is restored at the end. Rays with a set stop flag end.
  void ray_hit(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const;
  /// The same, nearer leaves first; leaves behind the ray's nearest hit so far are left out.
  void ray_hit_nearest(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const;
  /// All leaves near a ray: a leaf is visited once per ray when its box, grown by the ray's extent on every axis, holds
  /// the ray's origin or is crossed between tnear and tfar.
  /// @param data  passed to the ray callback in place of its user pointer
  void ray_hit_extent(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query, void* data) const;
  /// All leaves whose boxes are not behind a plane. Mode any ends when result.finished is set. Mode all ignores the
  /// cluster and visits also leaves behind a plane until result.outside is set.
  /// @param motion  without effect: this tree is static
  void frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query, const bool& motion = false) const;
  /// All leaves that touch the current beam and are not behind its nearest item so far, nearer ones first.
  void ray_frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryRayFrustumCtx& query,
                       const bool& motion = false) const;

  /// Appends handles of subtrees that together hold everything once: at most `count`, fewer where dividing further
  /// would not separate their boxes by at least `ratio` of their volume. One null handle for the whole; none for an
  /// empty tree. Handles stay valid in copies, and in a tree created again from the same boxes.
  void get_clusters(CoreVector<void*>& clusters, const uint& count, const float& ratio) const;
  /// @param boxes  [clusters.get_count()] written; inverted for a handle that is not one of this tree
  void get_clusters_bboxes(const CoreBasicArray<void*>& clusters, GMathBbox3<float>* boxes) const;

 protected:
  GasBinaryTree tree;      ///< leaves name items, or ranges of `order`
  CoreVector<uint> order;  ///< items in the order of the tree; empty with one box a leaf
  GasTreeLeaf<GeometryRaytraceCtx> ray_leaf;
  GasTreeLeaf<GeometryFrustumCtx> frustum_leaf;
  GasTreeLeaf<GeometryRayFrustumCtx> ray_frustum_leaf;

 private:
  template <class Visit>
  bool visit_items(const GasBinaryRef& leaf, const Visit& visit) const;
  template <GasWalkHits hits>
  void walk_rays(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const;
};
