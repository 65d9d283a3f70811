// host/vq_gas_base/gas_bvh_split.h
//
// Split strategies: how a set of items becomes two. The tree builder owns the nodes; a strategy owns the choice. Sets
// are ranges of one order array, and splitting a set permutes its range in place so that each half is a range again:
//
//   order[]   ... | first ........................ first + count | ...
//                 |        left         |         right          |
//
// Both strategies always end: a set larger than the maximum leaf is never refused, whatever its boxes hold. They throw
// AppStopped when the application asks to stop, and std::bad_alloc.
#pragma once
#include "vq_core/core_array.h"
#include "vq_core/core_types.h"
#include "vq_gmath/gmath_bbox.h"
#include "vq_gmath/gmath_linear_space.h"

class AppBase;
class SysThreadManager;

/// Measures items along the axes of a space (unit length, at right angles): the box of all of them together, or one box
/// for each. Called on several threads at once, with the context's `measure_owner`.
using GasBvhMeasureSet = GMathBbox3<float> (*)(const CoreBasicArray<uint>& items, const GMathLinearSpace3<float>& space,
                                               void* owner, SysThreadManager* threads);
using GasBvhMeasureItems = void (*)(const CoreBasicArray<uint>& items, const GMathLinearSpace3<float>& space,
                                    GMathBbox3<float>* boxes, void* owner, SysThreadManager* threads);

struct GasBvhSplitSet {
  uint first = 0;
  uint count = 0;
};

struct GasBvhSplitSetGeom : GasBvhSplitSet {
  GMathBbox3<float> box;           ///< in the builder's space
  float area = 0.0f;               ///< half the surface of `box`: who is split first
  bool leaf = false;               ///< not to be split any further
  GMathLinearSpace3<float> space;  ///< oriented strategy: the set's frame
  GMathBbox3<float> space_box;     ///< oriented strategy: the set's box measured along `space`, no extent 0
  bool refitted = false;           ///< oriented strategy: `space` and `space_box` are those of this range
};

/// What a strategy knows of the items; filled by the tree builder, shared by all sets of one build.
struct GasBvhSplitCtx {
  uint* order = nullptr;                                  ///< permuted in place
  const GMathBbox3<float>* item_boxes = nullptr;          ///< indexed by item
  const GMathLinearSpace3<float>* item_spaces = nullptr;  ///< indexed by item; oriented strategy only
  const u32* item_weights = nullptr;                      ///< float bits, indexed by item; null: all weigh `item_cost`
  uint item_start = 0;
  uint item_count = 0;
  uint leaf_threshold = 1;
  uint max_leaf = 1;
  float item_cost = 1.0f;      ///< of testing one item
  float aligned_cost = 1.0f;   ///< of testing an aligned node
  float oriented_cost = 5.0f;  ///< of testing an oriented node; infinite: none are made
  float item_cost_scale = 1.0f;
  float direction_hints[2][4] = {{0.0f, 0.0f, 1.0f, 0.0f}, {0.0f, 0.0f, 1.0f, 0.0f}};
  GMathBbox3<float> item_box;                  ///< of the whole range
  GasBvhMeasureSet measure_set = nullptr;      ///< oriented strategy only, as
  GasBvhMeasureItems measure_items = nullptr;  ///< is this, which GasBvhSplitUnaligned does without, and
  void* measure_owner = nullptr;               ///< what both are called with
  const AppBase* application = nullptr;        ///< may ask the build to stop; null: nobody does

  bool is_stop_requested() const;
  /// Throws AppStopped when the application asks to stop. Splits call it for every few thousand items.
  void check_stop() const;

  /// The union of the set's item boxes; empty for an empty set. Exact minima and maxima, so that the result does not
  /// depend on how the work is cut. Runs on the manager's threads when one is given and the set is large.
  GMathBbox3<float> compute_items_bbox(const GasBvhSplitSet& set, SysThreadManager* threads) const;
};

/// Where one item falls on each axis; the fourth byte holds nothing of meaning.
struct GasBvhSplitItemBins {
  u8 bin[4];
};

/// Binned surface-area split on the centroids (Wald 2007, "On fast Construction of SAH-based Bounding Volume
/// Hierarchies"). The result depends on the set alone, never on the number of threads.
class GasBvhSplitAligned {
 public:
  /// Permutes the set's range and fills both halves (range, box, area). False when it will not split the set: only for
  /// sets of at most max_leaf items that are cheaper as a leaf. `aligned` is left as it is. With a thread manager a
  /// large set is split on its threads.
  bool split(GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left, GasBvhSplitSetGeom& right,
             bool& aligned, SysThreadManager* threads);

 private:
  /// Of the set at hand: where each item is to go, and the range in its new order. Kept from set to set.
  CoreVector<GasBvhSplitItemBins> item_bins_;
  CoreVector<uint> moved_;
};

/// Weighs the aligned cut of a set against one in a space that its items' preferred spaces suggest, and asks for
/// oriented boxes where those are the cheaper (Woop, Benthin, Wald, Johnson, Afra 2014, "Exploiting Local Orientation
/// Similarity for Efficient Ray Traversal of Hair and Fur"). That cut is chosen by rods that stand for the items; only
/// refit() measures them. The result depends on the set alone, never on the number of threads.
class GasBvhSplitUnaligned {
 public:
  /// As GasBvhSplitAligned::split(), and sets `aligned` to false when the halves should have oriented boxes; leaves it
  /// as it is otherwise. Areas and boxes of the halves are those along the world's axes either way.
  bool split(GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left, GasBvhSplitSetGeom& right,
             bool& aligned, SysThreadManager* threads);
  /// Gives `set` the space of its items' mean direction and its tight box in it, every extent raised so far above 0
  /// that the frame can be inverted in single precision. Does nothing when the set has been refitted since its range
  /// was made.
  void refit(GasBvhSplitCtx& ctx, GasBvhSplitSetGeom& set, SysThreadManager* threads);

 private:
  template <class MakeSearch>
  bool split_by(const MakeSearch& make_search, GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set,
                GasBvhSplitSetGeom& left, GasBvhSplitSetGeom& right, bool& aligned, SysThreadManager* threads);
  static bool split_pair(GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set, GasBvhSplitSetGeom& left,
                         GasBvhSplitSetGeom& right, bool& aligned);
  static bool may_orient(const GasBvhSplitCtx& ctx);
  /// Fills `space_boxes_` with those of the items' rods. False when oriented boxes are not to be had or cannot pay.
  bool fill_space_boxes(const GasBvhSplitCtx& ctx, const GasBvhSplitSetGeom& set);

  /// Of the set at hand, as those of the aligned strategy. Kept from set to set.
  CoreVector<GMathBbox3<float>> space_boxes_;
  CoreVector<GasBvhSplitItemBins> item_bins_, oriented_item_bins_;
  CoreVector<uint> moved_;
};
