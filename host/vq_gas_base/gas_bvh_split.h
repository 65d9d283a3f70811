// host/vq_gas_base/gas_bvh_split.h
//
// Split strategies: divide a set of items in two. The tree builder makes the nodes, a strategy chooses the split. Sets
// are ranges of one order array; splitting a set permutes its range in place so that each half is a range again:
//
//   order[]   ... | first ........................ first + count | ...
//                 |        left         |         right          |
//
// Both strategies always end: a set larger than the maximum leaf is always split, also with NaN or infinite boxes. They
// throw AppStopped after a stop request of the application, and std::bad_alloc.
#pragma once
#include <memory>

#include "vq_core/core_array.h"
#include "vq_core/core_export.h"
#include "vq_core/core_types.h"
#include "vq_gmath/gmath_bbox.h"
#include "vq_gmath/gmath_linear_space.h"

class AppBase;
class GasBvhSplitSmall;
class SysThreadManager;
struct GasBvhSplitSides;

/// Callbacks that measure items along the axes of a space (unit length, at right angles): one box around all of them,
/// or one box per item. Called on several threads at once, with the context's `measure_owner`.
using GasBvhMeasureSet = GMathBbox3<float> (*)(const CoreBasicArray<uint>& items, const GMathLinearSpace3<float>& space,
                                               void* owner, SysThreadManager* threads);
using GasBvhMeasureItems = void (*)(const CoreBasicArray<uint>& items, const GMathLinearSpace3<float>& space,
                                    GMathBbox3<float>* boxes, void* owner, SysThreadManager* threads);

struct GasBvhSplitSet {
  uint first = 0;
  uint count = 0;
};

struct GasBvhSplitSetGeom : GasBvhSplitSet {
  GMathBbox3<float> box;  ///< in the builder's space
  float area = 0.0f;      ///< half the surface of the box; larger children get lower lanes
  float priority = 0.0f;  ///< of the children of a node, the one with the highest is split next
  bool leaf = false;      ///< not to be split any further
  bool apart = false;     ///< each item gets a lane of its own
  // Of the oriented strategy:
  bool has_space = false;          ///< the set is in an oriented node
  GMathLinearSpace3<float> space;  ///< the space in which the set was split off, or after refit() its own
  GMathBbox3<float> space_box;     ///< its box along `space`; approximate, or after refit() measured, no extent 0
  bool refitted = false;
};

/// The input of a strategy; filled by the tree builder, shared by all sets of one build.
struct VQ_EXPORT GasBvhSplitCtx {
  uint* order = nullptr;                                  ///< permuted in place
  const GMathBbox3<float>* item_boxes = nullptr;          ///< indexed by item
  const GMathLinearSpace3<float>* item_spaces = nullptr;  ///< indexed by item; oriented strategy only
  const u32* item_weights = nullptr;                      ///< float bits, indexed by item; null: each has `item_cost`
  uint item_start = 0;
  uint item_count = 0;
  uint leaf_threshold = 1;
  uint max_leaf = 1;
  /// For four-wide trees: the lanes that the node has for the next set's parts, 4 at a node's first split. 0: unknown.
  uint free_lanes = 0;
  float item_cost = 1.0f;      ///< cost of testing one item
  float aligned_cost = 1.0f;   ///< cost of testing an aligned node
  float oriented_cost = 5.0f;  ///< cost of testing an oriented node; infinite: no oriented nodes
  float item_cost_scale = 1.0f;
  float direction_hints[2][4] = {{0.0f, 0.0f, 1.0f, 0.0f}, {0.0f, 0.0f, 1.0f, 0.0f}};
  GMathBbox3<float> item_box;                  ///< of the whole range
  GasBvhMeasureSet measure_set = nullptr;      ///< oriented strategy only
  GasBvhMeasureItems measure_items = nullptr;  ///< oriented strategy only; GasBvhSplitUnaligned does not use it
  void* measure_owner = nullptr;               ///< passed to both
  const AppBase* application = nullptr;        ///< checked for stop requests; or null

  bool is_stop_requested() const;
  /// Throws AppStopped after a stop request of the application. Called by splits for every few thousand items.
  void check_stop() const;

  /// The union of the set's item boxes; empty for an empty set. Exact minima and maxima, so that the result does not
  /// depend on the number of threads. Runs on the manager's threads when one is given and the set is large.
  GMathBbox3<float> compute_items_bbox(const GasBvhSplitSet& set, SysThreadManager* threads) const;
};

/// The bin of one item on each axis; the fourth byte is unused.
struct GasBvhSplitItemBins {
  u8 bin[4];
};

/// Binned surface-area split on the centroids (Wald 2007, "On fast Construction of SAH-based Bounding Volume
/// Hierarchies"). The result depends on the set and `free_lanes` alone, never on the number of threads.
class VQ_EXPORT GasBvhSplitAligned {
 public:
  /// Permutes the set's range and fills both halves (range, box, area, priority). False when it does not split the set:
  /// only for sets of at most max_leaf items that are cheaper as a leaf. Does not change `aligned`. With a thread
  /// manager a large set is split on its threads.
  bool split(GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left, GasBvhSplitSetGeom& right,
             bool& aligned, SysThreadManager* threads);

 private:
  bool split_any(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                 GasBvhSplitSetGeom& right, SysThreadManager* threads);

  /// Scratch, kept from set to set: the bins of each item, and the range in its new order.
  CoreVector<GasBvhSplitItemBins> item_bins_;
  CoreVector<uint> moved_;
};

/// Compares the cost of the best aligned split with that of the best split in a space computed from the items'
/// preferred spaces, and chooses oriented boxes where they cost less (Woop, Benthin, Wald, Johnson, Afra 2014,
/// "Exploiting Local Orientation Similarity for Efficient Ray Traversal of Hair and Fur"). The oriented split is
/// searched with capsules that approximate the items; only refit() measures the items themselves. The result depends on
/// the set and `free_lanes` alone, never on the number of threads.
class VQ_EXPORT GasBvhSplitUnaligned {
 public:
  GasBvhSplitUnaligned();
  GasBvhSplitUnaligned(GasBvhSplitUnaligned&& other) noexcept;
  ~GasBvhSplitUnaligned();
  /// As GasBvhSplitAligned::split(), and sets `aligned` to false when the halves should have oriented boxes; does not
  /// change it otherwise. The halves then get the space of the split; their area is that of their boxes in it.
  bool split(GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left, GasBvhSplitSetGeom& right,
             bool& aligned, SysThreadManager* threads);
  /// Gives `set` the space of its items' mean direction and its tight box in it, with every extent large
  /// enough that the frame is invertible in single precision. Does nothing when the set was refitted since its range
  /// was made.
  void refit(GasBvhSplitCtx& ctx, GasBvhSplitSetGeom& set, SysThreadManager* threads);

 private:
  template <class Search>
  bool split_small(GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                   GasBvhSplitSetGeom& right, bool& aligned);
  void fill_oriented_halves(const GasBvhSplitSetGeom& set, const GMathLinearSpace3<float>& space,
                            const GasBvhSplitSides& sides, GasBvhSplitSetGeom& left, GasBvhSplitSetGeom& right) const;

  GasBvhSplitAligned large_;                 ///< splits sets that are too large for oriented boxes
  std::unique_ptr<GasBvhSplitSmall> small_;  ///< scratch, kept from set to set
};
