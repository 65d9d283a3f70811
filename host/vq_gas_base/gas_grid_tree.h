// host/vq_gas_base/gas_grid_tree.h
//
// A tree whose parts are built when a query first reaches them. create() sorts the boxes into the cells of a uniform
// grid; a cell with boxes is a part. Over the parts stands a small tree, built at once; each part has a tree of its
// own, built by the thread that needs it, from boxes that it requests again.
//
//   positions_ [box]   numbers of the boxes, part by part; a part's tree permutes its own range
//   parts_     [part]  range of positions, state, tree
//   boxes_     [box]   only until a function supplies boxes
//
//   state of a part    unbuilt --> building --> built
//                         ^           |
//                         +-----------+   no memory, a failed supplier, or a stop request
//
// Threads that need a part in state building wait for that part alone. A query misses what is in a part that could not
// be built; the next query tries again.
//
// Any number of threads may query at once. No query may run during create(), clear() and the functions that set
// callbacks.
#pragma once
#include <atomic>
#include <memory>

#include "vq_core/core_export.h"
#include "vq_gas_base/gas_lazy_state.h"
#include "vq_gas_base/gas_tree.h"

/// Writes the boxes of the items at `positions`, in their order. May throw.
using GasGridLeafBoxes = void (*)(void* user, const CtxEval&, const uint& count, const uint* positions,
                                  GMathBbox3<float>* boxes);
/// Receives the bytes held before and after a part was built, the grid's own object included. Thread-safe; must not
/// throw.
using GasGridMemoryChange = void (*)(const u64& old_size, const u64& new_size, void* user);

/// The functions through which a grid reaches the primitives of its owner; each is followed by its first argument.
struct GasGridCallbacks {
  GasGridLeafBoxes leaf_boxes = nullptr;  ///< null: the boxes of create() are kept
  void* leaf_boxes_user = nullptr;
  GasTreeLeaf<GeometryRaytraceCtx> ray;      ///< all-hits queries
  GasTreeLeaf<GeometryRaytraceCtx> nearest;  ///< nearest-hit queries
  GasTreeLeaf<GeometryFrustumCtx> frustum;
  GasGridMemoryChange memory = nullptr;
  void* memory_user = nullptr;
  u64 options = 0;  ///< option bits; none is defined
};

/// Some small items that a query reaches.
struct GasGridItems {
  const uint* numbers = nullptr;              ///< [count] of their boxes in create()
  const GMathVec3<float>* corners = nullptr;  ///< [count * stride] of each box the lower corner, then the upper one
  uint count = 0;
  uint stride = 1;  ///< corners per item; 1: all are points

  GasGridItems get_range(uint first, uint length) const {
    return {numbers + first, corners + std::size_t{first} * stride, length, stride};
  }
  const GMathVec3<float>& get_low(uint k) const { return corners[std::size_t{k} * stride]; }
  GMathBbox3<float> get_box(uint k) const { return {get_low(k), corners[std::size_t{k} * stride + stride - 1]}; }
};
/// Tests items whose boxes the query reaches.
template <class Query>
using GasGridItemsCallback = void (*)(void* user, const GasGridItems&, const CtxEval&, CtxShader&, Query&);

struct GasGridPart {
  uint first = 0, count = 0;  ///< range of the grid's positions
  GasLazyState state;
  // Once made.
  GasBinaryTree tree;                          ///< leaves are ranges of this part's positions
  CoreAlignedArray<GMathVec3<float>> corners;  ///< of small items, in the order of the positions; padded by three
  uint corner_stride = 1;

  u64 get_memory_size() const { return tree.get_memory_size() + corners.get_bytes(); }
};

class VQ_EXPORT GasGridTree : public GasTree {
 public:
  static const CoreClassInfo& class_info();
  const CoreClassInfo& get_class_info() const override { return class_info(); }

  GasGridTree() = default;
  /// Deep copies, callbacks included, with all parts unbuilt; empty when there is no memory. No query of the source may
  /// run meanwhile.
  GasGridTree(const GasGridTree& other);
  GasGridTree& operator=(const GasGridTree& other);

  /// Replaces the grid by one over `boxes`; all parts are unbuilt. Which boxes get a leaf, failures, threads: as for
  /// GasTree::create(). O(n).
  /// @param resolution  the number of parts wanted. A part has at most max(64, 4 n / resolution) boxes, so there may be
  ///                    more; empty cells make fewer.
  void create(const CoreVector<GMathBbox3<float>>& boxes, const uint& resolution, AppProgressBar* progress,
              const AppBase* app = nullptr);
  /// Removes all parts. Callbacks stay.
  void clear();
  bool is_empty() const { return tree.is_empty(); }
  /// Bytes held, this object included.
  u64 get_memory_size() const override {
    return sizeof(GasGridTree) + own_bytes_ + part_bytes_.load(std::memory_order_relaxed);
  }
  uint get_part_count() const { return part_count_; }
  /// Parts built so far.
  uint get_built_part_count() const { return built_count_.load(std::memory_order_relaxed); }
  /// The part of each box of create(), core_invalid_index for a box without a leaf. O(n). Throws
  /// std::bad_alloc. No query may run meanwhile.
  CoreVector<uint> list_parts(uint box_count) const;
  /// True once a query has reached the part. `part` below get_part_count().
  bool is_part_built(uint part) const { return parts_[part].state.is_made(); }

  // For reports. No query may run meanwhile.

  /// The tree over the parts: each leaf names one part by its number.
  const GasBinaryTree& get_tree() const { return tree; }
  /// A part; its tree is empty unless it is built.
  const GasGridPart& get_part(uint part) const { return parts_[part]; }
  /// The number in create() of the box at place `k` of a part, in the order of the part's tree.
  uint get_part_box(const GasGridPart& part, uint k) const { return positions_[part.first + k]; }

  /// For primitives, which test themselves: leaves hold up to 4. With a function for boxes those of create() are freed.
  /// All parts become unbuilt.
  void set_callbacks(const GasGridCallbacks& callbacks);
  /// For small items, such as points: the grid tests their boxes, and passes items that it reaches to the leaf
  /// callbacks of GasTree. The tree of a part ends at groups of a few items; their boxes are kept with the part: 12
  /// bytes a point, else 24. All parts become unbuilt.
  /// @param function  supplies boxes in place of those of create(); null: these are kept
  void set_leaf_boxes(GasGridLeafBoxes function, void* user);
  /// For small items: receive all items of a group at once, or of a subtree that is inside of a frustum, instead of
  /// single ones. Null: the leaf callbacks of GasTree.
  void set_items_callbacks(GasGridItemsCallback<GeometryFrustumCtx> frustum,
                           GasGridItemsCallback<GeometryRayFrustumCtx> ray_frustum, void* user) {
    items_callbacks_ = {frustum, ray_frustum, user};
  }
  /// Reports of memory held by parts; null: none.
  void set_memory_change(GasGridMemoryChange function, void* user);

  // Queries as in GasTree; the callbacks receive the number of a box of create(). They build the parts that they reach.

  void ray_hit(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const;
  void ray_hit_nearest(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query) const;
  void frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryFrustumCtx& query, const bool& motion = false) const;
  void ray_frustum_hit(const CtxEval& ctx, CtxShader& shader, GeometryRayFrustumCtx& query,
                       const bool& motion = false) const;

 private:
  friend class GasGridTreeMotion;

  void sort_into_parts(const CoreVector<GMathBbox3<float>>& boxes, uint resolution, AppProgressBar* progress,
                       const AppBase* app);
  void copy_from(const GasGridTree& other);
  void keep_boxes(const CoreVector<GMathBbox3<float>>& boxes);
  void close_parts();
  void count_own_bytes();
  /// A part with its tree, built when it is not; null when that failed. Throws nothing.
  const GasGridPart* open_part(const CtxEval& ctx, uint index) const {
    GasGridPart& part = parts_[index];
    if (part.state.is_made()) return &part;
    return part.state.ensure([&] { build_part(ctx, part); }) ? &part : nullptr;
  }
  void build_part(const CtxEval& ctx, GasGridPart& part) const;
  static void keep_corners(const CoreAlignedArray<GMathBbox3<float>>& boxes, GasGridPart& part);
  GasGridItems get_items(const GasGridPart& part, const GasBinaryRef& leaf) const {
    GasGridItems items{positions_.get() + part.first + leaf.index, part.corners.get(), leaf.count, part.corner_stride};
    if (tests_items_) items.corners += std::size_t{leaf.index} * part.corner_stride;
    return items;
  }
  const GasTreeLeaf<GeometryRaytraceCtx>& get_ray_primitive() const;
  const GasTreeLeaf<GeometryRaytraceCtx>& get_nearest_primitive() const;
  template <GasWalkHits hits>
  void walk_rays(const CtxEval& ctx, CtxShader& shader, GeometryRaytraceCtx& query,
                 const GasTreeLeaf<GeometryRaytraceCtx>& primitive) const;

  GasGridCallbacks callbacks_;
  bool provider_enabled_ = false;  ///< boxes of parts come from callbacks_.leaf_boxes
  struct {
    GasGridItemsCallback<GeometryFrustumCtx> frustum = nullptr;
    GasGridItemsCallback<GeometryRayFrustumCtx> ray_frustum = nullptr;
    void* user = nullptr;
  } items_callbacks_;
  bool tests_items_ = true;  ///< items do not test themselves
  CoreAlignedArray<uint> positions_;
  CoreAlignedArray<GMathBbox3<float>> boxes_;
  std::unique_ptr<GasGridPart[]> parts_;
  uint part_count_ = 0;
  u64 own_bytes_ = 0;  ///< all but the parts' trees
  // Lazily changed by queries.
  mutable std::atomic<u64> part_bytes_{0};
  mutable std::atomic<uint> built_count_{0};
};
